#include <gtest/gtest.h>

#include <climits>
#include <filesystem>

#include "dsp/IppBuffer.h"
#include "field/CSFM_PCIRS.h"
#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"
#include "support/WaveWriter.h"

namespace fs = std::filesystem;

namespace {
// 16-bit samples read back as value / 32768: exact for these.
constexpr float kFullScale = 32768.0f;

class PreComputedSet : public testing::Test {
  protected:
    PreComputedSet() : folder(qktest::ScratchPath("pcirs")) {
        fs::remove_all(folder);
        fs::create_directories(folder);
    }
    ~PreComputedSet() override {
        FreeIppArray(left);
        FreeIppArray(right);
        fs::remove_all(folder);
    }
    void Write(const std::string &name, const std::vector<int> &frames, int channels) {
        ASSERT_TRUE(qktest::WriteWave(folder + "/" + name, frames, channels, 44100, 16));
    }
    int Get(CSFM_PCIRS &set, C3Point listener, int id, C3Point source = C3Point(0, 0, 0, 0)) {
        return set.GetBIR(left, right, length, source, C3Point(), listener, C3Point(0, 1, 0, 0),
                          44100, id);
    }

    std::string folder;
    float *left = nullptr;
    float *right = nullptr;
    int length = -1;
};
}  // namespace

TEST_F(PreComputedSet, NamesGiveTheGeometryAndTheLastFieldLosesItsLastDigit) {
    Write("3_150_200_0_0_100_0_7_-150_250_10_0_0_1234.wav", {0}, 1);
    Write("junk.wav", {0}, 1);
    Write("1_2.wav", {0}, 1);
    Write("99999999999_1_1_1_1_1_1_-99999999999_1_1_1_1_1_11.wav", {0}, 1);
    Write("not_a_set.txt", {0}, 1);
    CSFM_PCIRS set;
    set.m_bLoadSamples = 0;
    EXPECT_EQ(set.init(folder), 0);
    ASSERT_EQ(set.m_Positions.size(), 4u);
    EXPECT_EQ(set.GetNumberOf3DSources(), 3);  // sorted: INT_MIN, 0, 0, 7
    const CPCIR &low = set.m_Positions[0];
    EXPECT_EQ(low.m_iSourceID, INT_MIN);
    EXPECT_EQ(low.m_iListenerID, INT_MAX);
    EXPECT_FLOAT_EQ(low.m_SourceLookAt.z, 0.01f);  // "11" read as "1"
    const CPCIR &full = set.m_Positions[3];
    EXPECT_EQ(full.m_iListenerID, 3);
    EXPECT_FLOAT_EQ(full.m_ListenerPos.x, 1.5f);
    EXPECT_FLOAT_EQ(full.m_ListenerPos.y, 2.0f);
    EXPECT_FLOAT_EQ(full.m_ListenerLookAt.y, 1.0f);
    EXPECT_EQ(full.m_iSourceID, 7);
    EXPECT_FLOAT_EQ(full.m_SourcePos.x, -1.5f);
    EXPECT_FLOAT_EQ(full.m_SourcePos.z, 0.1f);
    EXPECT_FLOAT_EQ(full.m_SourceLookAt.z, 1.23f);  // "1234" read as "123"
    for (size_t i = 1; i < 3; ++i) {                // names that aren't sets: zeros
        const CPCIR &r = set.m_Positions[i];
        EXPECT_EQ(r.m_iSourceID, 0);
        EXPECT_EQ(r.m_iSamples, 0);
        EXPECT_FLOAT_EQ(r.m_ListenerPos.x, 0.0f);
        EXPECT_FLOAT_EQ(r.m_SourceLookAt.z, 0.0f);
    }
    EXPECT_EQ(Get(set, C3Point(0, 0, 0, 0), 7), 0);
    EXPECT_EQ(length, 0);  // names only: no samples to give
}

TEST_F(PreComputedSet, FirstRecordWithinHalfAMetreElseTheLastRecord) {
    // Source 1 heard at the origin and 2 m along x; source 5 at the origin, in mono.
    Write("1_0_0_0_0_100_0_1_0_100_0_0_0_00.wav", {16384, -8192, -4096, 2048}, 2);
    Write("1_200_0_0_0_100_0_1_0_100_0_0_0_00.wav", {1024, 512, 256, 128}, 2);
    Write("1_0_0_0_0_100_0_5_0_100_0_0_0_00.wav", {-16384, 8192}, 1);
    CSFM_PCIRS set;
    set.init(folder);
    ASSERT_EQ(set.m_Positions.size(), 3u);
    ASSERT_EQ(set.m_Positions.back().m_iSourceID, 5);

    ASSERT_EQ(Get(set, C3Point(0.49, 0, 0, 0), 1), 0);
    ASSERT_EQ(length, 2);
    EXPECT_EQ(left[0], 16384 / kFullScale);
    EXPECT_EQ(left[1], -4096 / kFullScale);
    EXPECT_EQ(right[0], -8192 / kFullScale);
    EXPECT_EQ(right[1], 2048 / kFullScale);
    Get(set, C3Point(2.2, 0.1, 0, 0), 1, C3Point(2.2, 1, 0, 0));  // 0.9 m away: no gain
    EXPECT_EQ(left[0], 1024 / kFullScale);

    // Exactly 0.5 m from the first record and 1.5 m from the second: no match, the last record
    // (source 5, mono: its right ear silent).
    for (int id : {1, 9}) {
        Get(set, C3Point(0.5, 0, 0, 0), id);
        ASSERT_EQ(length, 2);
        EXPECT_EQ(left[0], -16384 / kFullScale) << id;
        EXPECT_EQ(left[1], 8192 / kFullScale) << id;
        EXPECT_EQ(right[0], 0.0f) << id;
        EXPECT_EQ(right[1], 0.0f) << id;
    }

    // The 1 / d law beyond a metre, from the source's place, not the record's.
    Get(set, C3Point(0, 0, 0, 0), 1, C3Point(0, 4, 0, 0));
    EXPECT_FLOAT_EQ(left[0], 0.25f * 16384 / kFullScale);
    Get(set, C3Point(0, 0, 0, 0), 1, C3Point(0, 1, 0, 0));
    EXPECT_EQ(left[0], 16384 / kFullScale);  // d = 1: no gain

    CSFM_PCIRS empty;
    empty.init(folder + "/no_such_folder");
    float *before = left;
    EXPECT_EQ(Get(empty, C3Point(0, 0, 0, 0), 1), -1);
    EXPECT_EQ(left, before);
}

// The scan goes past entries whose status can't be had (links to nothing), with one report for
// all of them, and takes ".wav" in any case.
TEST_F(PreComputedSet, ScanGoesPastBrokenEntriesAndTakesTheExtensionInAnyCase) {
    for (int i = 0; i < 8; ++i) {
        fs::create_symlink(folder + "/gone" + std::to_string(i),
                           folder + "/" + std::to_string(i) + "_0_0_0_0_0_0_9_0_0_0_0_0_0.wav");
    }
    Write("1_0_0_0_0_100_0_2_150_200_0_0_0_0.wav", {0}, 1);
    Write("1_0_0_0_0_100_0_3_150_200_0_0_0_0.WAV", {0}, 1);
    Write("1_0_0_0_0_100_0_4_150_200_0_0_0_0.Wav", {0}, 1);
    Write("1_0_0_0_0_100_0_5_150_200_0_0_0_0.wavx", {0}, 1);
    qktest::ReportRecorder reports;
    CSFM_PCIRS set;
    set.m_bLoadSamples = 0;
    EXPECT_EQ(set.init(folder), 0);
    std::vector<int> ids;
    for (const CPCIR &record : set.m_Positions) {
        ids.push_back(record.m_iSourceID);
    }
    EXPECT_EQ(ids, (std::vector<int>{2, 3, 4}));
    EXPECT_EQ(reports.entries.size(), 1u);
}
