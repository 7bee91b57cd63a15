#include "sdk/CQUENDARIC_PARAMETERS.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <filesystem>

#include "dsp/ipps.h"
#include "platform/Archive.h"
#include "platform/Report.h"
#include "support/HrtfSets.h"
#include "support/ScopedSettingsDir.h"

using qktest::ReadBytes;
using qktest::ScopedSettingsDir;
using qktest::WriteBytes;

namespace {
// One stored value, as the test expects to find it in the settings archive.
struct Value {
    char kind;  // 'i', 'f' or 's'
    int32_t i = 0;
    float f = 0.0f;
    std::string s;
};

// Gives every stored field a value of its own and returns them in the order of the file.
std::vector<Value> fillDistinct(CQUENDARIC_PARAMETERS &p) {
    std::vector<Value> order;
    auto i = [&order](qk::Relaxed<int> &field) {
        const int v = 1000 + static_cast<int>(order.size());
        field = v;
        order.push_back({'i', v, 0.0f, {}});
    };
    auto f = [&order](qk::Relaxed<float> &field) {
        const float v = 0.25f + static_cast<float>(order.size());
        field = v;
        order.push_back({'f', 0, v, {}});
    };
    auto s = [&order](std::string &field) {
        const std::string v = "text " + std::to_string(order.size());
        field = v;
        order.push_back({'s', 0, 0.0f, v});
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
    return order;
}

void expectLayout(const std::vector<uint8_t> &bytes, const std::vector<Value> &order) {
    qk::CMemoryStream in(bytes.data(), bytes.size());
    qk::CArchive ar(in, qk::CArchive::load);
    float version = 0.0f;
    ar >> version;
    EXPECT_EQ(version, 1.0f);
    for (size_t k = 0; k < order.size(); ++k) {
        const Value &want = order[k];
        if (want.kind == 'i') {
            int32_t v = 0;
            ar >> v;
            EXPECT_EQ(v, want.i) << "field " << k;
        } else if (want.kind == 'f') {
            float v = 0.0f;
            ar >> v;
            EXPECT_EQ(v, want.f) << "field " << k;
        } else {
            std::string v;
            ar >> v;
            EXPECT_EQ(v, want.s) << "field " << k;
        }
    }
    EXPECT_EQ(ar.Remaining(), 0);
}

int g_reports = 0;
int countReports(unsigned long, const char *, const char *, int) {
    ++g_reports;
    return 0;
}
}  // namespace

TEST(CQUENDARIC_PARAMETERS, DefaultsOfTheStoredFields) {
    ScopedSettingsDir dir("defaults");
    CQUENDARIC_PARAMETERS p;
    EXPECT_EQ(p.m_iChannelMode, 2);
    EXPECT_EQ(p.m_i3DAudio, 1);
    EXPECT_EQ(p.m_iMaterialCoeffs, 32);
    EXPECT_EQ(p.m_fReverbDryLevel, 0.9f);
    EXPECT_EQ(p.m_fCTCAzimuthL, 20.0f);
    EXPECT_EQ(p.m_fCTCAzimuthR, 340.0f);
    EXPECT_EQ(p.m_iCTCFilterMode, 1024);
    EXPECT_EQ(p.m_iPO, 2);
    EXPECT_EQ(p.m_fFrequency_HSF, 5000.0f);
    EXPECT_EQ(p.m_strSaveWave, "E:\\temp.wav");
    EXPECT_EQ(p.m_iBlockLength, 8192);
    EXPECT_EQ(p.m_iWorldModel, 2);
    EXPECT_EQ(p.m_iAudioSink, -1);
    EXPECT_EQ(p.m_iOneReverb, 1);
    EXPECT_EQ(p.m_iWorldChanged, 1);
}

TEST(CQUENDARIC_PARAMETERS, StoredFormHasEveryFieldInItsPlace) {
    ScopedSettingsDir dir("layout");
    CQUENDARIC_PARAMETERS p;
    const std::vector<Value> order = fillDistinct(p);
    ASSERT_EQ(order.size(), 46u);
    const std::vector<uint8_t> bytes = p.StoreSettings();
    expectLayout(bytes, order);

    CQUENDARIC_PARAMETERS q;
    ASSERT_TRUE(q.LoadSettings(bytes.data(), bytes.size()));
    EXPECT_EQ(q.m_iOneReverb, order.back().i);
    EXPECT_EQ(q.m_strHRTF_CTC, order[order.size() - 5].s);
    expectLayout(q.StoreSettings(), order);
}

TEST(CQUENDARIC_PARAMETERS, EveryFieldSurvivesTheFile) {
    ScopedSettingsDir dir("file");
    std::vector<Value> order;
    {
        CQUENDARIC_PARAMETERS p;
        p.m_strApplication = "Roundtrip";
        order = fillDistinct(p);
        p._write();
        EXPECT_EQ(ReadBytes(dir.File("Roun.qksettings")), p.StoreSettings());
        p.m_strApplication = "zzz";  // the destructor's write goes elsewhere
    }
    CQUENDARIC_PARAMETERS q;
    q.m_strApplication = "Roundabout";  // the same four letters
    q._read();
    expectLayout(q.StoreSettings(), order);
    EXPECT_EQ(dir.Files(), (std::vector<std::string>{"Roun.qksettings", "zzz.qksettings"}));
}

TEST(CQUENDARIC_PARAMETERS, FileNamesFromTheApplication) {
    ScopedSettingsDir dir("names");
    CQUENDARIC_PARAMETERS p;
    p.m_strApplication = "Quendar";
    EXPECT_EQ(p.SettingsPath(), dir.File("Quen.qksettings"));
    p.m_strApplication = "abc";
    EXPECT_EQ(p.SettingsPath(), dir.File("abc.qksettings"));
    p.m_strApplication = "default";
    EXPECT_EQ(p.SettingsPath(), dir.File("default.qksettings"));
    p.m_strApplication = "";
    EXPECT_EQ(p.SettingsPath(), dir.File("default.qksettings"));
    EXPECT_EQ(p.m_strApplication, "default");
}

TEST(CQUENDARIC_PARAMETERS, TruncatedOrForeignFilesChangeNothing) {
    ScopedSettingsDir dir("bad");
    std::vector<uint8_t> good;
    {
        CQUENDARIC_PARAMETERS writer;
        writer.m_strApplication = "bad";
        fillDistinct(writer);
        good = writer.StoreSettings();
    }
    CQUENDARIC_PARAMETERS p;
    p.m_strApplication = "bad";
    p.m_fGain = -3.0f;
    const std::vector<uint8_t> before = p.StoreSettings();

    std::vector<std::vector<uint8_t>> bad;
    for (size_t cut : {size_t{0}, size_t{3}, size_t{40}, good.size() / 2, good.size() - 1}) {
        bad.emplace_back(good.begin(), good.begin() + static_cast<long>(cut));
    }
    bad.push_back(good);
    bad.back().push_back(0);  // one byte too many: not a settings file
    bad.emplace_back(300, static_cast<uint8_t>('#'));
    std::vector<uint8_t> lyingString = good;
    lyingString[44] = 0xFF;  // the first string's length claims more than there is
    bad.push_back(lyingString);
    for (const auto &bytes : bad) {
        WriteBytes(dir.File("bad.qksettings"), bytes);
        p._read();
        EXPECT_EQ(p.StoreSettings(), before) << bytes.size() << " bytes";
    }
    WriteBytes(dir.File("bad.qksettings"), good);
    p._read();
    EXPECT_EQ(p.StoreSettings(), good);
}

TEST(CQUENDARIC_PARAMETERS, AFolderThatTakesNoFileFailsSilently) {
    ScopedSettingsDir dir("readonly");
    std::filesystem::permissions(
        dir.Path(), std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    std::string folder = dir.Path();
    if (std::FILE *probe = std::fopen(dir.File("probe").c_str(), "wb")) {
        // Permissions don't bind this user: take a folder no one can create files in.
        std::fclose(probe);
        std::filesystem::remove(dir.File("probe"));
        folder = "/proc/self/fdinfo";
    }
    ::setenv("QK_SETTINGS_DIR", folder.c_str(), 1);
    g_reports = 0;
    qk::SetReportHandler(&countReports, 0);
    {
        CQUENDARIC_PARAMETERS p;
        p.m_strApplication = "ro";
        p._write();
        p._read();
        EXPECT_EQ(p.m_iPO, 2);
    }
    qk::SetReportHandler(nullptr, 0);
    EXPECT_EQ(g_reports, 0);
    ::setenv("QK_SETTINGS_DIR", dir.Path().c_str(), 1);
    EXPECT_TRUE(dir.Files().empty());
}

TEST(CQUENDARIC_PARAMETERS, AFailedWriteKeepsTheOldFile) {
    ScopedSettingsDir dir("diskfull");
    CQUENDARIC_PARAMETERS p;
    p.m_strApplication = "full";
    p._write();
    const std::vector<uint8_t> old = ReadBytes(dir.File("full.qksettings"));
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

    EXPECT_EQ(ReadBytes(dir.File("full.qksettings")), old);
    EXPECT_EQ(dir.Files(), (std::vector<std::string>{"full.qksettings"}));  // no leftovers
    p._write();
    EXPECT_EQ(ReadBytes(dir.File("full.qksettings")), p.StoreSettings());
}

TEST(CQUENDARIC_PARAMETERS, StoringRecordsThePendingHRTFRequest) {
    ScopedSettingsDir dir("hrtf");
    CQUENDARIC_PARAMETERS p;
    p.m_strHRTF = "old.qkhrtf";
    p.m_strHRTF_CTC = "ctc.qkhrtf";
    p.SetHRTFRequest("asked.qkhrtf");
    p.StoreSettings();
    EXPECT_EQ(p.m_strHRTF, "asked.qkhrtf");
    EXPECT_EQ(p.m_strHRTF_CTC, "ctc.qkhrtf");  // no request: kept
    p.SetHRTFRequestCTC("ctc2.qkhrtf");
    CQUENDARIC_PARAMETERS q;
    const std::vector<uint8_t> bytes = p.StoreSettings();
    ASSERT_TRUE(q.LoadSettings(bytes.data(), bytes.size()));
    EXPECT_EQ(q.m_strHRTF_CTC, "ctc2.qkhrtf");
    EXPECT_EQ(q.GetHRTFRequestCTC(), "");  // a load sets the set in use, not the request
}

TEST(CQUENDARIC_PARAMETERS, TheDestructorStoresTheSettings) {
    ScopedSettingsDir dir("dtor");
    {
        CQUENDARIC_PARAMETERS p;
        p.m_strApplication = "dtor";
        p.m_fGain = 7.5f;
    }
    CQUENDARIC_PARAMETERS q;
    q.m_strApplication = "dtor";
    q._read();
    EXPECT_EQ(q.m_fGain, 7.5f);
}

TEST(CQUENDARIC_PARAMETERS, ButterworthCoefficientsAtTheSettingsRate) {
    ScopedSettingsDir dir("coefs");
    CQUENDARIC_PARAMETERS p;
    const double sqrt2 = std::sqrt(2.0);
    for (int rate : {44100, 22050}) {
        p.m_iSampleRate = rate;
        const double c = std::tan(M_PI * 1000.0 / rate);
        float *lp = ippsMalloc_32f(3);  // an old array is freed and replaced
        p.GetLPCoefs(lp, 1000.0f);
        const double wantLP[6] = {
            c * c, 2 * c * c, c * c, 1 + sqrt2 * c + c * c, 2 * (c * c - 1), c * c - sqrt2 * c + 1};
        for (int k = 0; k < 6; ++k) {
            EXPECT_NEAR(lp[k], wantLP[k], 1e-6) << rate << " b/a " << k;
        }
        float *hp = nullptr;
        p.GetHPCoefs(hp, 1000.0f);
        const double wantHP[3] = {1, -2, 1};
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(hp[k], wantHP[k]);
        }
        EXPECT_NEAR(hp[3], wantLP[3], 1e-6);  // the same denominator, in terms of tan
        ippsFree(lp);
        ippsFree(hp);
    }
}

// Bringing the data sets in line with the requests: a good file loads at the settings' rate
// and takes the canceller's set along; a missing one is reported, leaves no set and keeps
// the bad path; an empty request takes the path in force.
TEST(CQUENDARIC_PARAMETERS, SetHRTFFollowsTheRequest) {
    ScopedSettingsDir dir("sethrtf");
    qktest::ReportCatcher reports;
    auto made = qktest::MakeSet(3, 32, "BOTH", 44100);
    const std::string good = dir.File("good.qkhrtf");
    qktest::WriteBytes(good, qktest::StoreToBytes(*made));

    CQUENDARIC_PARAMETERS p;
    EXPECT_EQ(p.SetHRTF(), -1);  // nothing asked for: an empty set stays made
    ASSERT_NE(p.m_pHRTF, nullptr);
    EXPECT_EQ(p.m_pHRTF->m_iMeasurements, 0);

    p.m_iSampleRate = 22050;
    p.SetHRTFRequest(good);
    p.SetHRTFRequestCTC(good);
    EXPECT_TRUE(p.HRTFRequestPending());
    ASSERT_EQ(p.SetHRTF(), 0);
    EXPECT_FALSE(p.HRTFRequestPending());
    EXPECT_FALSE(p.HRTFRequestPendingCTC());
    EXPECT_EQ(p.m_strHRTF, good);
    ASSERT_NE(p.m_pHRTF, nullptr);
    EXPECT_EQ(p.m_pHRTF->m_iMeasurements, 3);
    EXPECT_EQ(p.m_pHRTF->m_iSampleRate, 22050);
    ASSERT_NE(p.m_pHRTF_CTC, nullptr);
    EXPECT_EQ(p.m_pHRTF_CTC->m_iMeasurements, 3);
    EXPECT_TRUE(reports.texts.empty());

    // An empty request is given the path in force, and the set is loaded again from it.
    p.SetHRTFRequest("");
    EXPECT_EQ(p.SetHRTF(), 0);
    EXPECT_EQ(p.GetHRTFRequest(), good);

    const std::string missing = dir.File("missing.qkhrtf");
    p.SetHRTFRequest(missing);
    EXPECT_EQ(p.SetHRTF(), -1);
    EXPECT_EQ(p.m_pHRTF, nullptr);
    EXPECT_EQ(p.m_strHRTF, missing);
    ASSERT_EQ(reports.texts.size(), 1u);
    EXPECT_EQ(reports.texts[0], "QKHRTF file not found");
    EXPECT_EQ(reports.captions[0], "FAILURE");

    // The canceller's set fails in silence, also for a file that isn't a set.
    const std::string foreign = dir.File("foreign.qkhrtf");
    qktest::WriteBytes(foreign, {1, 2, 3, 4});
    p.SetHRTFRequestCTC(foreign);
    EXPECT_EQ(p.SetHRTF_CTC(), -1);
    EXPECT_EQ(p.m_pHRTF_CTC, nullptr);
    p.SetHRTFRequest(good);
    EXPECT_EQ(p.SetHRTF(), 0);  // the canceller's result doesn't count
    EXPECT_EQ(p.m_pHRTF_CTC, nullptr);
}
