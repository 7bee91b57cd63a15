// The .qkhrtf file: round trips, and files that are short, foreign or absurd.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "binaural/CHELPER_HRTF.h"
#include "platform/Archive.h"
#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"
#include "support/WaveWriter.h"

using qktest::MakeSet;
using qktest::ReportRecorder;
using qktest::StoreToBytes;

namespace {
constexpr size_t kSamplesOffset = 521585;

void putIntAt(std::vector<uint8_t> &b, size_t at, int32_t v) {
    for (int i = 0; i < 4; ++i) {
        b[at + i] = static_cast<uint8_t>(static_cast<uint32_t>(v) >> (8 * i));
    }
}

int readBytes(CHELPER_HRTF &set, const std::vector<uint8_t> &bytes) {
    qk::CMemoryStream in(bytes.data(), bytes.size());
    return set.Read(in);
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

}  // namespace

TEST(CHELPER_HRTF_File, BothSampleTypesRoundTripBitForBit) {
    for (const char *type : {"32f", "16s"}) {
        auto set = sampleSet(type);
        if (std::strcmp(type, "32f") == 0) {
            set->m_pfData[5] = 0.123456789f;  // not a multiple of 1 / 32768
            set->m_pfData[6] = -3.5f;         // beyond full scale
        }
        CHELPER_HRTF loaded;
        ASSERT_EQ(readBytes(loaded, StoreToBytes(*set)), 0) << type;
        qktest::ExpectSameSet(*set, loaded);
        EXPECT_EQ(loaded.m_iSampleRate, 44100);
        EXPECT_EQ(loaded.m_iTaps, 8);
    }
}

TEST(CHELPER_HRTF_File, TruncatedFilesLeaveTheSetWithoutSamples) {
    ReportRecorder catcher;
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
    ASSERT_EQ(catcher.Texts().size(), 18u);
    EXPECT_EQ(catcher.Texts()[0], "Invalid QKHRTF file");
    EXPECT_EQ(catcher.Texts()[4].rfind("Invalid QKHRTF file: ", 0), 0u);
}

TEST(CHELPER_HRTF_File, AbsurdCountsAreRefusedBeforeAnythingIsAllocated) {
    ReportRecorder catcher;
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
    EXPECT_EQ(catcher.Texts().size(), std::size(fields));
}

namespace {
int32_t intAt(const std::vector<uint8_t> &b, size_t at) {
    return static_cast<int32_t>(b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) |
                                (static_cast<uint32_t>(b[at + 3]) << 24));
}
}  // namespace

// Where each field sits, and how a 16-bit set stores its samples: truncated towards zero,
// saturated at both ends.
TEST(CHELPER_HRTF_File, TheLayoutAndTheSixteenBitSamplesAreExact) {
    auto set = sampleSet("16s");
    const struct {
        float sample;
        int16_t stored;
    } samples[] = {{0.5f, 16384},     {-0.5f, -16384},     {1.0f, 32767},     {-1.0f, -32768},
                   {3.0f, 32767},     {-3.0f, -32768},     {0.99999f, 32767}, {-0.99999f, -32767},
                   {1.9f / 32768, 1}, {-1.9f / 32768, -1}, {0.4f / 32768, 0}, {-0.4f / 32768, 0}};
    for (size_t i = 0; i < std::size(samples); ++i) {
        set->m_pfData[static_cast<int>(i)] = samples[i].sample;
    }
    const std::vector<uint8_t> b = StoreToBytes(*set);
    ASSERT_EQ(b.size(), kSamplesOffset + 2u * 3 * 2 * 8);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(b.data())), "QUENDARIK-HRTF");
    float version = 0;
    std::memcpy(&version, &b[15], 4);
    EXPECT_EQ(version, 1.5f);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[275])), "FIR");
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[279])), "BOTH");
    EXPECT_EQ((std::vector<int32_t>{intAt(b, 285), intAt(b, 289), intAt(b, 293), intAt(b, 301)}),
              (std::vector<int32_t>{2, 44100, 8, 3}));
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[297])), "16s");
    EXPECT_EQ(intAt(b, 305 + 4 * 10), 10 * 7 - 3);  // table A
    EXPECT_EQ(intAt(b, 260945 + 4 * 10), 10 % 3);   // the lookup table
    for (size_t i = 0; i < std::size(samples); ++i) {
        const auto stored =
            static_cast<int16_t>(b[kSamplesOffset + 2 * i] | (b[kSamplesOffset + 2 * i + 1] << 8));
        EXPECT_EQ(stored, samples[i].stored) << samples[i].sample;
    }
}

// A store that can't be finished leaves the file that was there as it was.
TEST(CHELPER_HRTF_File, AFailedStoreKeepsTheOldFile) {
    ReportRecorder catcher;
    const std::string path = qktest::ScratchPath("kept.qkhrtf");
    auto good = sampleSet("32f");
    ASSERT_EQ(good->ReadWrite(1, path), 0);
    // The store's temporary name is taken by a folder: nothing can be written.
    ASSERT_EQ(::mkdir((path + ".part").c_str(), 0700), 0);
    auto other = sampleSet("16s");
    EXPECT_NE(other->ReadWrite(1, path), 0);
    EXPECT_EQ(catcher.Texts(), (std::vector<std::string>{"Can't write the QKHRTF file " + path}));
    CHELPER_HRTF loaded;
    ASSERT_EQ(loaded.ReadWrite(0, path), 0);
    qktest::ExpectSameSet(*good, loaded);
    ::rmdir((path + ".part").c_str());
    std::remove(path.c_str());
}
