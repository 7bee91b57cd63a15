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
#include "support/WaveWriter.h"

using qktest::Bytes;

namespace {
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

// Writes the planar blocks (each of `blockChannels` channels) through a sink and gives the file.
Finished writeThrough(const std::string &path, int channels, int bits,
                      const std::vector<std::vector<float>> &blocks, int blockChannels) {
    CSINK_WAVE sink;
    sink.m_strSinkFile = path;
    EXPECT_EQ(sink._init(8192, channels, bits, 22050), 0);
    for (auto block : blocks) {
        const int length = static_cast<int>(block.size()) / blockChannels;
        EXPECT_EQ(sink._process(block.data(), length, blockChannels), 0);
    }
    EXPECT_EQ(sink._quit(), 0);
    const Finished f = finished(path);
    std::remove(path.c_str());
    return f;
}

// Messages shown through the reporting function while a test runs.
std::vector<std::string> g_reports;
int recordReport(unsigned long, const char *text, const char *, int) {
    g_reports.emplace_back(text);
    return qk::kAnswerOk;
}
}  // namespace

TEST(CSINK_WAVE, AllFourLayoutsInterleavePlanarBlocks) {
    // Two blocks of three frames; channel 1 starts at element iLength of each block.
    const std::vector<std::vector<float>> blocks = {{1.9f, 2, 3, 101, 102, 103},
                                                    {4, 5, 6, 104, 105, 106}};
    for (int bits : {8, 16}) {
        for (int channels : {1, 2}) {
            const Finished f =
                writeThrough(qktest::ScratchPath("layout.wav"), channels, bits, blocks, 2);
            Bytes expected;
            for (const auto &block : blocks) {
                for (int i = 0; i < 3; ++i) {
                    for (int c = 0; c < channels; ++c) {
                        expected.push_back(static_cast<uint8_t>(block[c * 3 + i]));
                        if (bits == 16) {
                            expected.push_back(0);
                        }
                    }
                }
            }
            EXPECT_EQ(f.data, expected) << bits << " bits, " << channels << " ch";
            EXPECT_EQ(f.fact, 0u);
            EXPECT_EQ(f.riffSize, f.fileSize - 8);
        }
    }
}

TEST(CSINK_WAVE, SamplesAreTruncatedAndWrapWithoutClipping) {
    struct Case {
        int bits;
        std::vector<float> in;
        Bytes out;
    };
    const Case cases[] = {
        // 40000.7 -> 40000 -> low 16 bits 0x9C40 = -25536; -1.9 -> -1; -40000 -> 25536 = 0x63C0.
        {16, {40000.7f, -1.9f, -40000.0f}, {0x40, 0x9C, 0xFF, 0xFF, 0xC0, 0x63}},
        {8, {300.0f, -1.0f, 255.9f, 128.0f}, {44, 255, 255, 128}},  // the low byte, no offset
        // Values no integer holds don't break anything: NaN gives 0, the rest saturate.
        {16, {std::nanf(""), 1e20f, -1e20f}, {0, 0, 0xFF, 0xFF, 0, 0}},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(writeThrough(qktest::ScratchPath("wrap.wav"), 1, c.bits, {c.in}, 1).data, c.out)
            << c.in[0];
    }
}

TEST(CSINK_WAVE, AnotherProgramReadsTheFile) {
    if (std::system("command -v sox >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "sox is not installed";
    }
    const std::string path = qktest::ScratchPath("sox.wav");
    const std::string info = qktest::ScratchPath("sox.txt");
    CSINK_WAVE sink;
    sink.m_strSinkFile = path;
    ASSERT_EQ(sink._init(8192, 2, 16, 44100), 0);
    std::vector<float> block(2 * 8192, 1000.0f);  // three blocks of 32 KB: past the file buffer
    for (int b = 0; b < 3; ++b) {
        ASSERT_EQ(sink._process(block.data(), 8192, 2), 0);
    }
    sink._quit();
    ASSERT_EQ(std::system(("sox --i " + path + " > " + info + " 2>&1").c_str()), 0);
    std::ifstream in(info);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("Channels       : 2"), std::string::npos) << text;
    EXPECT_NE(text.find("Sample Rate    : 44100"), std::string::npos) << text;
    EXPECT_NE(text.find("24576 samples"), std::string::npos) << text;
    std::remove(path.c_str());
    std::remove(info.c_str());
}

TEST(CSINK_WAVE, RefusesWhatItCannotWrite) {
    CSINK_WAVE sink;  // without a name nothing opens
    EXPECT_EQ(sink._init(8192, 2, 16, 44100), -1);
    float small[4] = {};
    EXPECT_EQ(sink._process(small, 2, 2), -1);
    sink.m_strSinkFile = qktest::ScratchPath("no-such-folder") + "/x.wav";
    EXPECT_EQ(sink._init(8192, 2, 16, 44100), -1);
    EXPECT_EQ(sink.m_iFailed, 1);

    sink.m_strSinkFile = qktest::ScratchPath("refuse.wav");
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
    const std::string path = qktest::ScratchPath("destroy.wav");
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
