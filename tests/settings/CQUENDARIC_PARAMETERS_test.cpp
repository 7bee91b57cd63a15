#include "settings/CQUENDARIC_PARAMETERS.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"
#include "support/RiffBytes.h"
#include "support/ScopedSettingsDir.h"

using qktest::ScopedSettingsDir;

namespace {
// Gives every stored field a value of its own; returns the size the stored form must have
// (version, four bytes a number, strings counted in a byte), so that a field left out is noticed.
size_t fillDistinct(CQUENDARIC_PARAMETERS &p) {
    size_t size = 4;
    int n = 0;
    auto i = [&](qk::Relaxed<int> &field) { field = 1000 + n++, size += 4; };
    auto f = [&](qk::Relaxed<float> &field) { field = 0.25f + static_cast<float>(n++), size += 4; };
    auto s = [&](std::string &field) {
        field = "text " + std::to_string(n++);
        size += 1 + field.size();
    };
    i(p.m_iChannelMode), i(p.m_i3DAudio), i(p.m_iSFM), i(p.m_iReflections);
    i(p.m_iSpecularOrder), f(p.m_fTemperature), i(p.m_iSettingA), i(p.m_iMaterialCoeffs);
    f(p.m_fReverbDryLevel), f(p.m_fReverbWetLevel), s(p.m_strDirPreComputedWav);
    i(p.m_iCTCIfNot3DAudio), f(p.m_fTES), f(p.m_fCTCAzimuthL), f(p.m_fCTCElevationL);
    f(p.m_fCTCDistanceL), f(p.m_fCTCAzimuthR), f(p.m_fCTCElevationR), f(p.m_fCTCDistanceR);
    i(p.m_iCTCFilterMode), i(p.m_iPostEQ), i(p.m_iPO), f(p.m_fGain), f(p.m_fGain_LSF);
    f(p.m_fGain_HSF), f(p.m_fFrequency_LSF), f(p.m_fFrequency_HSF), f(p.m_fSettingB);
    i(p.m_iSaveWave), s(p.m_strSaveWave), i(p.m_iAGC), i(p.m_iBlockLength);
    i(p.m_iSampleRate), i(p.m_iBits), i(p.m_iChannels), i(p.m_iSplitBands);
    i(p.m_iHeadMotion), i(p.m_iWorldModel), s(p.m_strWorldFile), i(p.m_iAudioSink);
    s(p.m_strHRTF), s(p.m_strHRTF_CTC), i(p.m_iORMS), i(p.m_iGraphBIR), i(p.m_iInfo);
    i(p.m_iOneReverb);
    return size;
}
}  // namespace

TEST(CQUENDARIC_PARAMETERS, EveryFieldSurvivesTheFileNamedByFourLetters) {
    ScopedSettingsDir dir("file");
    std::vector<uint8_t> stored;
    {
        CQUENDARIC_PARAMETERS p;
        p.m_strApplication = "Quendar";
        const size_t size = fillDistinct(p);
        stored = p.StoreSettings();
        EXPECT_EQ(stored.size(), size);
        p._write();
        p.m_strApplication = "";  // the destructor's write goes to the default name
    }
    CQUENDARIC_PARAMETERS q;
    q.m_strApplication = "Quenched";  // the same four letters
    q._read();
    EXPECT_EQ(q.StoreSettings(), stored);
    EXPECT_EQ(dir.Files(), (std::vector<std::string>{"Quen.qksettings", "default.qksettings"}));
}

TEST(CQUENDARIC_PARAMETERS, TruncatedOrForeignFilesChangeNothing) {
    ScopedSettingsDir dir("bad");
    CQUENDARIC_PARAMETERS p;
    p.m_strApplication = "bad";
    const std::vector<uint8_t> before = p.StoreSettings();
    std::vector<uint8_t> good;
    {
        CQUENDARIC_PARAMETERS writer;
        fillDistinct(writer);
        writer.m_strApplication = "unused";
        good = writer.StoreSettings();
    }
    std::vector<std::vector<uint8_t>> bad;
    for (size_t cut : {size_t{0}, size_t{3}, size_t{40}, good.size() / 2, good.size() - 1}) {
        bad.emplace_back(good.begin(), good.begin() + static_cast<long>(cut));
    }
    bad.push_back(good);
    bad.back()[44] = 0xFF;  // the first string's length claims more than there is
    for (const auto &bytes : bad) {
        qktest::WriteFileBytes(dir.File("bad.qksettings"), bytes);
        p._read();
        EXPECT_EQ(p.StoreSettings(), before) << bytes.size() << " bytes";
    }
}

// A later version may add fields at the end: the leading ones are read as they stand.
TEST(CQUENDARIC_PARAMETERS, AFileWithMoreFieldsGivesItsLeadingOnes) {
    ScopedSettingsDir dir("later");
    std::vector<uint8_t> bytes;
    {
        CQUENDARIC_PARAMETERS writer;
        writer.m_strApplication = "unused";
        writer.m_fGain = -7.5f;
        writer.m_iPostEQ = 2;
        bytes = writer.StoreSettings();
    }
    bytes.insert(bytes.end(), 16, 0xA5);
    qktest::WriteFileBytes(dir.File("late.qksettings"), bytes);  // four letters name the file
    CQUENDARIC_PARAMETERS p;
    p.m_strApplication = "later";
    p._read();
    EXPECT_EQ(p.m_fGain, -7.5f);
    EXPECT_EQ(p.m_iPostEQ, 2);
}

TEST(CQUENDARIC_PARAMETERS, AFailedWriteKeepsTheOldFile) {
    ScopedSettingsDir dir("diskfull");
    CQUENDARIC_PARAMETERS p;
    p.m_strApplication = "full";
    p._write();
    const std::vector<uint8_t> old = qktest::ReadFileBytes(dir.File("full.qksettings"));
    ASSERT_FALSE(old.empty());

    // A file size limit below the settings' size makes the write fail part way, as a full
    // disk would.
    p.m_strWorldFile = std::string(1000, 'w');
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    auto *previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = saved;
    small.rlim_cur = 64;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    p._write();
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previous);

    EXPECT_EQ(qktest::ReadFileBytes(dir.File("full.qksettings")), old);
    EXPECT_EQ(dir.Files(), (std::vector<std::string>{"full.qksettings"}));  // no leftovers
}
