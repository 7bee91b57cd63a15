// The .qkhrtf file: layout, round trips, and files that are short, foreign or absurd.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "binaural/CHELPER_HRTF.h"
#include "platform/Archive.h"
#include "support/HrtfSets.h"

using qktest::Code;
using qktest::MakeSet;
using qktest::ReportCatcher;
using qktest::StoreToBytes;

namespace {
constexpr size_t kSamplesOffset = 521585;

int32_t intAt(const std::vector<uint8_t> &b, size_t at) {
    return static_cast<int32_t>(b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) |
                                (static_cast<uint32_t>(b[at + 3]) << 24));
}

void putIntAt(std::vector<uint8_t> &b, size_t at, int32_t v) {
    for (int i = 0; i < 4; ++i) {
        b[at + i] = static_cast<uint8_t>(static_cast<uint32_t>(v) >> (8 * i));
    }
}

int readBytes(CHELPER_HRTF &set, const std::vector<uint8_t> &bytes) {
    qk::CMemoryStream in(bytes.data(), bytes.size());
    return set.Read(in);
}

std::string tempPath(const std::string &name) {
    return qktest::TempPath(name);
}

std::vector<uint8_t> fileBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
}

// A set with a recognisable table A and lookup table, 3 measurements of 8 taps.
std::unique_ptr<CHELPER_HRTF> sampleSet(const char *pcDataType) {
    auto set = MakeSet(3, 8, "BOTH", 44100, pcDataType);
    for (int i = 0; i < CHELPER_HRTF::kDirections; ++i) {
        set->m_aiTableA[static_cast<size_t>(i)] = i * 7 - 3;
        set->m_aiLookup[static_cast<size_t>(i)] = i % 3;
    }
    set->m_fVersion = 1.5f;
    return set;
}

void expectSameSet(const CHELPER_HRTF &a, const CHELPER_HRTF &b) {
    EXPECT_EQ(a.m_fVersion, b.m_fVersion);
    EXPECT_STREQ(a.m_szDescription, b.m_szDescription);
    EXPECT_STREQ(a.m_szEars, b.m_szEars);
    EXPECT_STREQ(a.m_szDataType, b.m_szDataType);
    EXPECT_EQ(a.m_iChannels, b.m_iChannels);
    EXPECT_EQ(a.m_iFileRate, b.m_iFileRate);
    EXPECT_EQ(a.m_iFileTaps, b.m_iFileTaps);
    EXPECT_EQ(a.m_iMeasurements, b.m_iMeasurements);
    EXPECT_EQ(a.m_aiTableA, b.m_aiTableA);
    EXPECT_EQ(a.m_aiLookup, b.m_aiLookup);
    ASSERT_EQ(a.DataLength(), b.DataLength());
    EXPECT_EQ(std::memcmp(a.m_pfData.get(), b.m_pfData.get(),
                          sizeof(float) * static_cast<size_t>(a.DataLength())),
              0);
}
}  // namespace

TEST(CHELPER_HRTF_File, LayoutIsByteForByte) {
    auto set = sampleSet("16s");
    std::strcpy(set->m_szType, "IIR");  // a store always writes "FIR"
    const std::vector<uint8_t> b = StoreToBytes(*set);
    ASSERT_EQ(b.size(), kSamplesOffset + 3 * 2 * 8 * 2);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(b.data())), "QUENDARIK-HRTF");
    EXPECT_EQ(b[14], 0);
    EXPECT_EQ(intAt(b, 15), 0x3FC00000);  // 1.5f
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[19])), "made by the tests");
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[275])), "FIR");
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[279])), "BOTH");
    EXPECT_EQ(intAt(b, 285), 2);
    EXPECT_EQ(intAt(b, 289), 44100);
    EXPECT_EQ(intAt(b, 293), 8);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[297])), "16s");
    EXPECT_EQ(intAt(b, 301), 3);
    EXPECT_EQ(intAt(b, 305), -3);  // table A [0]
    EXPECT_EQ(intAt(b, 305 + 4 * 65159), 65159 * 7 - 3);
    EXPECT_EQ(intAt(b, 260945 + 4 * 4), 1);  // lookup [4]
    // First sample, 16 bits: the truncated value of sample * 32768.
    const int16_t first = static_cast<int16_t>(b[kSamplesOffset] | (b[kSamplesOffset + 1] << 8));
    EXPECT_EQ(first, static_cast<int16_t>(Code(0, 0) * 32768.0f));
}

TEST(CHELPER_HRTF_File, BothSampleTypesRoundTripBitForBit) {
    for (const char *type : {"32f", "16s"}) {
        auto set = sampleSet(type);
        if (std::strcmp(type, "32f") == 0) {
            set->m_pfData[5] = 0.123456789f;  // not a multiple of 1 / 32768
            set->m_pfData[6] = -3.5f;         // beyond full scale
        }
        CHELPER_HRTF loaded;
        ASSERT_EQ(readBytes(loaded, StoreToBytes(*set)), 0) << type;
        expectSameSet(*set, loaded);
        EXPECT_EQ(loaded.m_iSampleRate, 44100);
        EXPECT_EQ(loaded.m_iTaps, 8);
    }
}

TEST(CHELPER_HRTF_File, NamedFileRoundTripAndConstructorLoads) {
    auto set = sampleSet("32f");
    const std::string path = tempPath("roundtrip.qkhrtf");
    ASSERT_EQ(set->ReadWrite(1, path), 0);
    CHELPER_HRTF loaded(path);
    expectSameSet(*set, loaded);
    EXPECT_EQ(loaded.ReadWrite(0, path), 0);  // a second load replaces the first
    expectSameSet(*set, loaded);
    std::remove(path.c_str());
}

TEST(CHELPER_HRTF_File, SixteenBitsTruncateAndSaturate) {
    auto set = MakeSet(1, 4, "BOTH", 44100, "16s");
    const float in[8] = {1.0f, -1.0f, 0.99999f, -1.5f, 3.0f / 65536.0f, -3.0f / 65536.0f,
                         NAN,  0.5f};
    std::memcpy(set->m_pfData.get(), in, sizeof(in));
    CHELPER_HRTF loaded;
    ASSERT_EQ(readBytes(loaded, StoreToBytes(*set)), 0);
    const float expected[8] = {32767.0f / 32768.0f,
                               -1.0f,
                               32767.0f / 32768.0f,
                               -1.0f,
                               1.0f / 32768.0f,
                               -1.0f / 32768.0f,
                               0.0f,
                               0.5f};
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(loaded.m_pfData[i], expected[i]) << i;
    }
}

TEST(CHELPER_HRTF_File, WrongMagicReportsAndKeepsTheHeader) {
    ReportCatcher catcher;
    auto set = sampleSet("32f");
    std::vector<uint8_t> bytes = StoreToBytes(*set);
    CHELPER_HRTF loaded;
    ASSERT_EQ(readBytes(loaded, bytes), 0);
    bytes[3] = 'X';
    EXPECT_EQ(readBytes(loaded, bytes), -1);
    EXPECT_EQ(loaded.m_pfData.get(), nullptr);
    EXPECT_EQ(loaded.m_iMeasurements, 3);
    ASSERT_EQ(catcher.texts.size(), 1u);
    EXPECT_EQ(catcher.texts[0], "Invalid QKHRTF file");
    EXPECT_EQ(catcher.captions[0], "FAILURE");
}

TEST(CHELPER_HRTF_File, TruncatedFilesLeaveTheSetWithoutSamples) {
    ReportCatcher catcher;
    const std::vector<uint8_t> whole = StoreToBytes(*sampleSet("16s"));
    for (size_t cut : {size_t{0}, size_t{10}, size_t{15}, size_t{200}, size_t{304}, size_t{305},
                       size_t{260945}, kSamplesOffset, whole.size() - 1}) {
        CHELPER_HRTF loaded;
        const std::vector<uint8_t> part(whole.begin(), whole.begin() + static_cast<long>(cut));
        EXPECT_EQ(readBytes(loaded, part), -1) << cut;
        EXPECT_EQ(loaded.m_pfData.get(), nullptr) << cut;
        EXPECT_EQ(loaded.m_iMeasurements, 0) << cut;  // nothing of a short file takes effect
        float *l = nullptr, *r = nullptr;
        int n = 0;
        EXPECT_EQ(loaded.GetHRTF(l, r, n, 0.0f, 0.0f, 44100), 0);
        ippsFree(l);
        ippsFree(r);
    }
    // Each load says what is wrong, and each lookup that there is nothing to find.
    ASSERT_EQ(catcher.texts.size(), 18u);
    EXPECT_EQ(catcher.texts[0], "Invalid QKHRTF file");
    EXPECT_EQ(catcher.texts[4].rfind("Invalid QKHRTF file: ", 0), 0u);
}

TEST(CHELPER_HRTF_File, AbsurdCountsAreRefusedBeforeAnythingIsAllocated) {
    ReportCatcher catcher;
    const std::vector<uint8_t> whole = StoreToBytes(*sampleSet("32f"));
    struct Field {
        size_t at;
        int32_t value;
    } fields[] = {{285, 0},          {285, 3},         {285, -2}, {289, 0},
                  {289, -44100},     {289, 100000000}, {293, 0},  {293, -8},
                  {293, 1 << 30},    {301, 0},         {301, -1}, {301, 1 << 30},
                  {301, 0x7FFFFFFF}, {301, 4}};
    for (const Field &f : fields) {
        std::vector<uint8_t> bytes = whole;
        putIntAt(bytes, f.at, f.value);
        CHELPER_HRTF loaded;
        EXPECT_EQ(readBytes(loaded, bytes), -1) << f.at << " = " << f.value;
        EXPECT_EQ(loaded.m_pfData.get(), nullptr);
    }
    EXPECT_EQ(catcher.texts.size(), std::size(fields));
}

TEST(CHELPER_HRTF_File, UnknownSampleTypeKeepsTheHeaderButNoSamples) {
    ReportCatcher catcher;
    auto set = sampleSet("32f");
    std::vector<uint8_t> bytes = StoreToBytes(*set);
    std::memcpy(&bytes[297], "8u", 3);
    CHELPER_HRTF loaded;
    EXPECT_EQ(readBytes(loaded, bytes), -1);
    EXPECT_EQ(loaded.m_iMeasurements, 3);
    EXPECT_EQ(loaded.m_aiLookup, set->m_aiLookup);
    EXPECT_EQ(loaded.m_pfData.get(), nullptr);
    ASSERT_EQ(catcher.texts.size(), 1u);
    EXPECT_EQ(catcher.texts[0], "Invalid data type of QKHRTF file");
}

TEST(CHELPER_HRTF_File, OtherTypeWordAndTrailingBytesLoadNormally) {
    auto set = sampleSet("32f");
    std::vector<uint8_t> bytes = StoreToBytes(*set);
    std::memcpy(&bytes[275], "IIR", 4);
    bytes.push_back(0xAB);
    CHELPER_HRTF loaded;
    ASSERT_EQ(readBytes(loaded, bytes), 0);
    EXPECT_STREQ(loaded.m_szType, "IIR");
    expectSameSet(*set, loaded);
    // Text fields without their zero are cut to their size.
    std::memset(&bytes[19], 'd', 256);
    std::memset(&bytes[279], 'e', 6);
    ASSERT_EQ(readBytes(loaded, bytes), 0);
    EXPECT_EQ(std::strlen(loaded.m_szDescription), 255u);
    EXPECT_STREQ(loaded.m_szEars, "eeeee");
}

TEST(CHELPER_HRTF_File, MissingOrUnnamedFilesFailSilently) {
    ReportCatcher catcher;
    CHELPER_HRTF set;
    EXPECT_EQ(set.ReadWrite(0, tempPath("no-such-file.qkhrtf")), -1);
    EXPECT_EQ(set.ReadWrite(0, ""), -1);
    EXPECT_EQ(set.ReadWrite(1, ""), -1);
    EXPECT_TRUE(catcher.texts.empty());
}

TEST(CHELPER_HRTF_File, StreamLoadKeepsTheCallersRateAndReadsFloats) {
    auto set = sampleSet("32f");
    const std::vector<uint8_t> bytes = StoreToBytes(*set);
    std::istringstream stream(std::string(bytes.begin(), bytes.end()));
    stream.seekg(100);  // a load rewinds first
    CHELPER_HRTF loaded;
    loaded.m_pStream = &stream;
    loaded.m_iSampleRate = 22050;
    ASSERT_EQ(loaded.ReadWrite(0, "ignored.qkhrtf"), 0);
    EXPECT_EQ(loaded.m_iFileRate, 44100);
    EXPECT_EQ(loaded.m_iSampleRate, 22050);
    expectSameSet(*set, loaded);
    ASSERT_EQ(loaded.ReadWrite(0, ""), 0);  // and again from the start
    // The sample type word is kept but not looked at: the samples are floats.
    std::vector<uint8_t> shortWord = bytes;
    std::memcpy(&shortWord[297], "16s", 4);
    std::istringstream stream16(std::string(shortWord.begin(), shortWord.end()));
    loaded.m_pStream = &stream16;
    ASSERT_EQ(loaded.ReadWrite(0, ""), 0);
    EXPECT_STREQ(loaded.m_szDataType, "16s");
    EXPECT_EQ(loaded.m_pfData[5], set->m_pfData[5]);
    // A store is ignored while a stream is set.
    const std::string path = tempPath("stream-store.qkhrtf");
    EXPECT_EQ(loaded.ReadWrite(1, path), -1);
    EXPECT_FALSE(std::ifstream(path).good());
}

TEST(CHELPER_HRTF_File, StoreWithUnknownTypeLeavesAFileWithoutSamples) {
    ReportCatcher catcher;
    auto set = sampleSet("32f");
    std::strcpy(set->m_szDataType, "64f");
    const std::string path = tempPath("notype.qkhrtf");
    EXPECT_EQ(set->ReadWrite(1, path), -1);
    EXPECT_EQ(fileBytes(path).size(), kSamplesOffset);
    ASSERT_EQ(catcher.texts.size(), 1u);
    EXPECT_EQ(catcher.texts[0], "Invalid data type of QKHRTF file");
    std::remove(path.c_str());
}

TEST(CHELPER_HRTF_File, StoreTakesTheRateAndTapsInForceAndFillsTheRest) {
    auto set = sampleSet("32f");
    set->m_iSampleRate = 48000;
    set->m_iTaps = 10;  // two more than the set holds: written as zeros
    CHELPER_HRTF loaded;
    ASSERT_EQ(readBytes(loaded, StoreToBytes(*set)), 0);
    EXPECT_EQ(loaded.m_iFileRate, 48000);
    EXPECT_EQ(loaded.m_iFileTaps, 10);
    ASSERT_EQ(loaded.DataLength(), 60);
    EXPECT_EQ(loaded.m_pfData[47], Code(5, 7));
    EXPECT_EQ(loaded.m_pfData[59], 0.0f);
}

TEST(CHELPER_HRTF_File, AFailedStoreKeepsTheFileThatWasThere) {
    ReportCatcher catcher;
    auto set = sampleSet("32f");
    const std::string path = tempPath("kept.qkhrtf");
    ASSERT_EQ(set->ReadWrite(1, path), 0);
    const std::vector<uint8_t> before = fileBytes(path);
    set->m_iMeasurements = 0;  // a header no reader would take is not written
    EXPECT_EQ(set->ReadWrite(1, path), -1);
    EXPECT_EQ(fileBytes(path), before);
    EXPECT_EQ(set->ReadWrite(1, tempPath("no-such-folder/x.qkhrtf")), -1);
    std::remove(path.c_str());
}
