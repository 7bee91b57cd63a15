// The program's job-size check: the bytes a job writes against one WAV file's limit and the
// free room of the file system that is to hold them.
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <string>

#ifdef QK_TEST_CLI
#include "jobsize.h"
#include "support/WaveWriter.h"

using qkcli::JobSize;

TEST(JobSize, AJobBeyondTheFreeRoomOrAWavFilesLimitIsRefusedWithItsFigures) {
    // A file in folders not made yet is counted on the file system of the nearest parent.
    const std::string path = qktest::ScratchPath("not/made/yet.wav");
    const double free = qkcli::FreeBytes(path);
    const double space = static_cast<double>(
        std::filesystem::space(
            std::filesystem::path(path).parent_path().parent_path().parent_path())
            .available);
    ASSERT_GT(free, 0.0);
    EXPECT_NEAR(free, space, 1e9);  // other work on the machine writes meanwhile

    std::string message;
    const JobSize small{"a little", path, 1000.0, false};
    EXPECT_TRUE(qkcli::JobFits(small, false, message));
    const JobSize huge{"twice the room", path, 2.0 * free + 1e9, false};
    EXPECT_FALSE(qkcli::JobFits(huge, false, message));
    EXPECT_NE(message.find(qkcli::FormatBytes(huge.dBytes)), std::string::npos) << message;
    EXPECT_NE(message.find(qkcli::FormatBytes(free).substr(0, 2)), std::string::npos) << message;
    EXPECT_NE(message.find("twice the room"), std::string::npos) << message;
    EXPECT_NE(message.find("--force"), std::string::npos) << message;
    EXPECT_TRUE(qkcli::JobFits(huge, true, message));

    // One WAV file holds at most 4 GiB, forced or not; it fits exactly up to there.
    JobSize wave{"", path, qkcli::kWaveFileMaxBytes, true};
    EXPECT_TRUE(qkcli::JobFits(wave, true, message));
    wave.dBytes += 1.0;
    EXPECT_FALSE(qkcli::JobFits(wave, true, message));
    EXPECT_NE(message.find("4.29 GB"), std::string::npos) << message;
    wave.dBytes = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(qkcli::JobFits(wave, true, message));
}

TEST(JobSize, BytesOfAWavFileAndTheirWords) {
    EXPECT_DOUBLE_EQ(qkcli::WaveFileBytes(1.0, 44100, 2, 16), qkcli::kWaveHeaderBytes + 176400);
    EXPECT_DOUBLE_EQ(qkcli::WaveFileBytes(0.5, 48000, 1, 8), qkcli::kWaveHeaderBytes + 24000);
    EXPECT_EQ(qkcli::FormatBytes(512), "512 B");
    EXPECT_EQ(qkcli::FormatBytes(176400), "176 kB");
    EXPECT_EQ(qkcli::FormatBytes(4294967295.0), "4.29 GB");
    EXPECT_EQ(qkcli::FormatBytes(1.764e14), "176 TB");
}
#endif
