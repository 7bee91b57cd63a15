#include "sources/CSINK_WAVE.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/Report.h"
#include "support/RiffBytes.h"

using qktest::Bytes;

namespace {
std::string tempPath(const std::string &name) {
    return testing::TempDir() + "qk_sink_" + name;
}

// The "data" chunk's bytes of a finished file, and the file's "fact" count.
struct Finished {
    Bytes data;
    uint32_t fact = 0;
    uint32_t riffSize = 0;
    size_t fileSize = 0;
};

Finished finished(const std::string &path) {
    Finished f;
    const Bytes file = qktest::ReadFileBytes(path);
    f.fileSize = file.size();
    if (file.size() < 12) {
        return f;
    }
    f.riffSize = qktest::LE32(file, 4);
    for (const auto &chunk : qktest::ChunksOf(file)) {
        if (chunk.id == "fact") {
            f.fact = qktest::LE32(file, chunk.dataOffset);
        } else if (chunk.id == "data") {
            f.data.assign(file.begin() + chunk.dataOffset,
                          file.begin() + chunk.dataOffset + chunk.size);
        }
    }
    return f;
}

// Messages shown through the reporting function while a test runs.
std::vector<std::string> g_reports;
int recordReport(unsigned long, const char *text, const char *, int) {
    g_reports.emplace_back(text);
    return qk::kAnswerOk;
}
}  // namespace

TEST(CSINK_WAVE, WithoutANameNothingOpensAndNothingIsTouched) {
    CSINK_WAVE sink;
    EXPECT_EQ(sink._init(8192, 2, 16, 44100), -1);
    EXPECT_EQ(sink.m_iFailed, 1);
    EXPECT_EQ(sink.m_iInitialized, 0);
    float block[4] = {};
    EXPECT_EQ(sink._process(block, 2, 2), -1);
    EXPECT_EQ(sink._quit(), 0);
    EXPECT_EQ(sink.m_hmmio, nullptr);
}

TEST(CSINK_WAVE, AllFourLayoutsInterleavePlanarBlocks) {
    // Two blocks of three frames; channel 1 starts at element iLength of each block.
    const float first[6] = {1.9f, 2.0f, 3.0f, 101.0f, 102.0f, 103.0f};
    const float second[6] = {4.0f, 5.0f, 6.0f, 104.0f, 105.0f, 106.0f};
    for (int bits : {8, 16}) {
        for (int channels : {1, 2}) {
            const std::string path = tempPath("layout.wav");
            CSINK_WAVE sink;
            sink.m_strSinkFile = path;
            ASSERT_EQ(sink._init(8192, channels, bits, 22050), 0);
            EXPECT_EQ(sink.m_wfx.nBlockAlign, channels * bits / 8);
            EXPECT_EQ(sink.m_wfx.nAvgBytesPerSec, 22050u * channels * bits / 8);
            EXPECT_EQ(sink._process(const_cast<float *>(first), 3, 2), 0);
            EXPECT_EQ(sink._process(const_cast<float *>(second), 3, 2), 0);
            EXPECT_EQ(sink._quit(), 0);

            Bytes expected;
            for (const float *block : {first, second}) {
                for (int i = 0; i < 3; ++i) {
                    for (int c = 0; c < channels; ++c) {
                        const auto v = static_cast<int>(block[c * 3 + i]);
                        expected.push_back(static_cast<uint8_t>(v));
                        if (bits == 16) {
                            expected.push_back(0);
                        }
                    }
                }
            }
            EXPECT_EQ(finished(path).data, expected) << bits << " bits, " << channels << " ch";
            std::remove(path.c_str());
        }
    }
}

TEST(CSINK_WAVE, SamplesAreTruncatedAndWrapWithoutClipping) {
    const std::string path = tempPath("wrap.wav");
    CSINK_WAVE sink;
    sink.m_strSinkFile = path;
    ASSERT_EQ(sink._init(0, 1, 16, 44100), 0);
    // 40000.7 -> 40000 -> low 16 bits 0x9C40 = -25536; -1.9 -> -1; -40000 -> 25536.
    float block[3] = {40000.7f, -1.9f, -40000.0f};
    sink._process(block, 3, 1);
    sink._quit();
    const Bytes data = finished(path).data;
    ASSERT_EQ(data.size(), 6u);
    EXPECT_EQ(static_cast<int16_t>(qktest::LE16(data, 0)), -25536);
    EXPECT_EQ(static_cast<int16_t>(qktest::LE16(data, 2)), -1);
    EXPECT_EQ(static_cast<int16_t>(qktest::LE16(data, 4)), 25536);

    // 8 bits: the low byte, no offset of 128.
    sink._init(0, 1, 8, 44100);
    float bytes[4] = {300.0f, -1.0f, 255.9f, 128.0f};
    sink._process(bytes, 4, 1);
    sink._quit();
    EXPECT_EQ(finished(path).data, (Bytes{44, 255, 255, 128}));

    // Values no integer holds don't break anything: NaN gives 0, the rest saturate.
    sink._init(0, 1, 16, 44100);
    float absurd[3] = {std::nanf(""), 1e20f, -1e20f};
    sink._process(absurd, 3, 1);
    sink._quit();
    EXPECT_EQ(finished(path).data, (Bytes{0, 0, 0xFF, 0xFF, 0, 0}));
    std::remove(path.c_str());
}

TEST(CSINK_WAVE, FinishedFileHoldsEveryBlockAndZeroInFact) {
    const std::string path = tempPath("long.wav");
    CSINK_WAVE sink;
    sink.m_strSinkFile = path;
    ASSERT_EQ(sink._init(8192, 2, 16, 44100), 0);
    std::vector<float> block(2 * 8192);
    for (int b = 0; b < 3; ++b) {
        for (size_t i = 0; i < block.size(); ++i) {
            block[i] = static_cast<float>(b * 1000 + static_cast<int>(i % 1000));
        }
        ASSERT_EQ(sink._process(block.data(), 8192, 2), 0);
    }
    sink._quit();
    const Finished f = finished(path);
    EXPECT_EQ(f.fact, 0u);
    EXPECT_EQ(f.data.size(), 3u * 8192 * 4);
    EXPECT_EQ(f.riffSize, f.fileSize - 8);
    // Last frame of the last block: left = block[8191], right = block[16383].
    const size_t last = f.data.size() - 4;
    EXPECT_EQ(qktest::LE16(f.data, last), 2000 + 8191 % 1000);
    EXPECT_EQ(qktest::LE16(f.data, last + 2), 2000 + 16383 % 1000);
    std::remove(path.c_str());
}

TEST(CSINK_WAVE, AnotherProgramReadsTheFile) {
    if (std::system("command -v sox >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "sox is not installed";
    }
    const std::string path = tempPath("sox.wav");
    const std::string info = tempPath("sox.txt");
    CSINK_WAVE sink;
    sink.m_strSinkFile = path;
    ASSERT_EQ(sink._init(1024, 2, 16, 44100), 0);
    std::vector<float> block(2 * 1024, 1000.0f);
    sink._process(block.data(), 1024, 2);
    sink._quit();
    ASSERT_EQ(std::system(("sox --i " + path + " > " + info + " 2>&1").c_str()), 0);
    std::ifstream in(info);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("Channels       : 2"), std::string::npos) << text;
    EXPECT_NE(text.find("Sample Rate    : 44100"), std::string::npos) << text;
    EXPECT_NE(text.find("1024 samples"), std::string::npos) << text;
    std::remove(path.c_str());
    std::remove(info.c_str());
}

TEST(CSINK_WAVE, RefusesWhatItCannotWrite) {
    CSINK_WAVE sink;
    sink.m_strSinkFile = tempPath("no-such-folder") + "/x.wav";
    EXPECT_EQ(sink._init(8192, 2, 16, 44100), -1);
    EXPECT_EQ(sink.m_iFailed, 1);

    sink.m_strSinkFile = tempPath("refuse.wav");
    EXPECT_EQ(sink._init(8192, 0, 16, 44100), -1);
    EXPECT_EQ(sink._init(8192, 2, 16, 0), -1);
    ASSERT_EQ(sink._init(8192, 2, 16, 44100), 0);
    EXPECT_EQ(sink.m_iFailed, 0);
    std::vector<float> block(2 * 40000, 0.0f);
    EXPECT_EQ(sink._process(block.data(), 100, 1), -1);    // fewer channels than the file
    EXPECT_EQ(sink._process(block.data(), 40000, 2), -1);  // longer than any buffer
    EXPECT_EQ(sink._process(nullptr, 100, 2), -1);
    EXPECT_EQ(sink._process(block.data(), 100, 2), 0);
    sink._quit();
    EXPECT_EQ(finished(sink.m_strSinkFile).data.size(), 400u);
    std::remove(sink.m_strSinkFile.c_str());
}

TEST(CSINK_WAVE, AFailedWriteIsReportedAndTheSinkStaysOpen) {
    if (!std::ifstream("/dev/full")) {
        GTEST_SKIP() << "no /dev/full";
    }
    g_reports.clear();
    qk::SetReportHandler(&recordReport, 0);
    CSINK_WAVE sink;
    sink.m_strSinkFile = "/dev/full";
    ASSERT_EQ(sink._init(8192, 2, 16, 44100), 0);
    std::vector<float> block(2 * 8192, 0.0f);  // 32 KB: more than the file buffer holds
    EXPECT_EQ(sink._process(block.data(), 8192, 2), 0);
    EXPECT_EQ(sink.m_iInitialized, 1);
    EXPECT_EQ(sink._quit(), 0);
    qk::SetReportHandler(nullptr, 0);
    ASSERT_FALSE(g_reports.empty());
    EXPECT_EQ(g_reports.front(), "Failure writing data to file");
}

TEST(CSINK_WAVE, DestroyingAnOpenSinkLeavesACompleteFileAndNoHandles) {
    const std::string path = tempPath("destroy.wav");
    const int filesBefore = qktest::OpenFileCount();
    {
        auto sink = std::make_unique<CSINK_WAVE>();
        sink->m_strSinkFile = path;
        ASSERT_EQ(sink->_init(8192, 1, 16, 44100), 0);
        ASSERT_EQ(sink->_init(8192, 1, 16, 44100), 0);  // a second open closes the first
        float block[5] = {1, 2, 3, 4, 5};
        sink->_process(block, 5, 1);
    }
    EXPECT_EQ(qktest::OpenFileCount(), filesBefore);
    const Finished f = finished(path);
    EXPECT_EQ(f.data.size(), 10u);
    EXPECT_EQ(f.riffSize, f.fileSize - 8);
    std::remove(path.c_str());
}

TEST(CSINK_WAVE, SerializesItsNameAndFormatAfterTheBase) {
    CSINK_WAVE sink;
    sink.m_strSinkFile = "take.wav";
    sink.m_iChannels = 2;
    sink.m_iBits = 8;
    sink.m_iSampleRate = 48000;
    qk::CMemoryStream out;
    {
        qk::CArchive ar(out, qk::CArchive::store);
        sink.Serialize(ar);
    }
    CSINK_WAVE copy;
    qk::CMemoryStream in(out.Bytes().data(), out.Bytes().size());
    qk::CArchive ar(in, qk::CArchive::load);
    copy.Serialize(ar);
    EXPECT_EQ(copy.m_iID, sink.m_iID);
    EXPECT_EQ(copy.m_strSinkFile, "take.wav");
    EXPECT_EQ(copy.m_iChannels, 2);
    EXPECT_EQ(copy.m_iBits, 8);
    EXPECT_EQ(copy.m_iSampleRate, 48000);
    EXPECT_EQ(in.Remaining(), 0);
    // _init takes its own format and leaves the stored one alone.
    copy.m_strSinkFile.clear();
    copy._init(8192, 1, 16, 44100);
    EXPECT_EQ(copy.m_iChannels, 2);
    EXPECT_EQ(copy.m_iBits, 8);
}
