#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/Paths.h"
#include "quendarik/CQKSDK.h"
#include "sdk/CQUENDARIC_PARAMETERS.h"
#include "support/ScopedSettingsDir.h"

using qktest::ScopedSettingsDir;

namespace {
// Writes a settings file for an application through a settings object of its own.
template <typename Change>
void writeSettingsFor(const std::string &application, Change change) {
    CQUENDARIC_PARAMETERS p;
    p.m_strApplication = application;
    change(p);
}
}  // namespace

TEST(CQKSDK_Settings, SimulationSettersReachTheirOwnFields) {
    ScopedSettingsDir dir("siml");
    CQKSDK sdk;
    sdk.qk_Siml_Set_3DAudio(0);
    sdk.qk_Siml_Set_CTCIfNot3DAudio(1);
    sdk.qk_Siml_Set_ReverbDryLevel(0.3f);
    sdk.qk_Siml_Set_AGC(0);
    sdk.qk_Siml_Set_SpecularOrder(4);
    sdk.qk_Siml_Set_PostEQ(2);
    sdk.qk_Siml_Set_Gain(-6.0f);
    sdk.qk_Siml_Set_Gain_LSF(3.0f);
    sdk.qk_Siml_Set_Frequency_LSF(120.0f);
    sdk.qk_Siml_Set_Gain_HSF(-2.0f);
    sdk.qk_Siml_Set_Frequency_HSF(6000.0f);
    sdk.qk_CTC_Set_TES(8.0f);
    int i = -1;
    float f = -1.0f;
    EXPECT_EQ((sdk.qk_Siml_Get_3DAudio(i), i), 0);
    EXPECT_EQ((sdk.qk_Siml_Get_CTCIfNot3DAudio(i), i), 1);
    EXPECT_EQ((sdk.qk_Siml_Get_ReverbDryLevel(f), f), 0.3f);
    EXPECT_EQ((sdk.qk_Siml_Get_AGC(i), i), 0);
    EXPECT_EQ((sdk.qk_Siml_Get_SpecularOrder(i), i), 4);
    EXPECT_EQ((sdk.qk_Siml_Get_PostEQ(i), i), 2);
    EXPECT_EQ((sdk.qk_Siml_Get_Gain(f), f), -6.0f);
    EXPECT_EQ((sdk.qk_Siml_Get_Gain_LSF(f), f), 3.0f);
    EXPECT_EQ((sdk.qk_Siml_Get_Frequency_LSF(f), f), 120.0f);
    EXPECT_EQ((sdk.qk_Siml_Get_Gain_HSF(f), f), -2.0f);
    EXPECT_EQ((sdk.qk_Siml_Get_Frequency_HSF(f), f), 6000.0f);
    EXPECT_EQ((sdk.qk_CTC_Get_TES(f), f), 8.0f);
}

TEST(CQKSDK_Settings, PlaybackOutputTakesOnlyHeadphonesOrLoudspeakers) {
    ScopedSettingsDir dir("po");
    writeSettingsFor("pofive", [](CQUENDARIC_PARAMETERS &p) { p.m_iPO = 5; });
    CQKSDK sdk;
    int po = 0;
    EXPECT_EQ(sdk.qk_Siml_Set_PO(3), 0);
    sdk.qk_Siml_Get_PO(po);
    EXPECT_EQ(po, 2);
    sdk.qk_Siml_Set_PO(1);
    sdk.qk_Siml_Get_PO(po);
    EXPECT_EQ(po, 1);
    // A value only a settings file can bring is not handed out.
    sdk.qk_Appl_Set("pofive");
    po = 77;
    EXPECT_EQ(sdk.qk_Siml_Get_PO(po), 0);
    EXPECT_EQ(po, 77);
}

TEST(CQKSDK_Settings, CrossTalkLoudspeakersMirrorTheAzimuth) {
    ScopedSettingsDir dir("ctc");
    CQKSDK sdk;
    float dl, al, el, dr, ar, er;
    sdk.qk_CTC_Get_Parameters(dl, al, el, dr, ar, er);
    EXPECT_EQ(al, 20.0f);
    EXPECT_EQ(ar, 340.0f);
    sdk.qkSimSetCrossTalkAzimuth(30);
    sdk.qkSimSetCrossTalkElevation(-10);
    sdk.qk_CTC_Get_Parameters(dl, al, el, dr, ar, er);
    EXPECT_EQ(al, 30.0f);
    EXPECT_EQ(ar, 330.0f);
    EXPECT_EQ(el, -10.0f);
    EXPECT_EQ(er, -10.0f);
    // Distance first on this interface.
    sdk.qk_CTC_Set_Parameters(1.5f, 25.0f, 5.0f, 2.5f, 335.0f, 6.0f);
    sdk.qk_CTC_Get_Parameters(dl, al, el, dr, ar, er);
    EXPECT_EQ(dl, 1.5f);
    EXPECT_EQ(al, 25.0f);
    EXPECT_EQ(el, 5.0f);
    EXPECT_EQ(dr, 2.5f);
    EXPECT_EQ(ar, 335.0f);
    EXPECT_EQ(er, 6.0f);
}

TEST(CQKSDK_Settings, ResearchKeysAreExactAndHaveTheirDefaults) {
    ScopedSettingsDir dir("research");
    CQKSDK sdk;
    int v = -1;
    EXPECT_EQ((sdk.qk_Research_Get_BOOL("ORMS", v), v), 0);
    EXPECT_EQ((sdk.qk_Research_Get_BOOL("GRAPH_BIR", v), v), 0);
    EXPECT_EQ((sdk.qk_Research_Get_BOOL("INFO", v), v), 0);
    EXPECT_EQ((sdk.qk_Research_Get_BOOL("ONEREVERB", v), v), 1);
    EXPECT_EQ(sdk.qk_Research_Set_BOOL("orms", 1), 0);
    EXPECT_EQ((sdk.qk_Research_Get_BOOL("ORMS", v), v), 0);
    sdk.qk_Research_Set_BOOL("ORMS", 1);
    sdk.qk_Research_Set_BOOL("ONEREVERB", 0);
    EXPECT_EQ((sdk.qk_Research_Get_BOOL("ORMS", v), v), 1);
    EXPECT_EQ((sdk.qk_Research_Get_BOOL("ONEREVERB", v), v), 0);
    v = 42;
    EXPECT_EQ(sdk.qk_Research_Get_BOOL("NOSUCH", v), 0);
    EXPECT_EQ(sdk.qk_Research_Get_BOOL(nullptr, v), 0);
    EXPECT_EQ(sdk.qk_Research_Set_BOOL(nullptr, 1), 0);
    EXPECT_EQ(sdk.qk_Research_Set_INT("ORMS", 5), 0);
    EXPECT_EQ(sdk.qk_Research_Get_INT("ORMS", v), 0);
    EXPECT_EQ(v, 42);
}

TEST(CQKSDK_Settings, SoundFieldModelSettings) {
    ScopedSettingsDir dir("sfm");
    CQKSDK sdk;
    int v = -1;
    EXPECT_EQ((sdk.qk_SFM_Get(v), v), 0);
    EXPECT_EQ((sdk.qk_SFM_Get_Material_Coeffs(v), v), 32);
    sdk.qk_SFM_Set(4);
    sdk.qk_SFM_Set_Material_Coeffs(64);
    EXPECT_EQ(sdk.qk_SFM_Set_DirPreComputedWav("/data/sets"), 0);
    EXPECT_EQ((sdk.qk_SFM_Get(v), v), 4);
    EXPECT_EQ((sdk.qk_SFM_Get_Material_Coeffs(v), v), 64);
    std::string folder;
    sdk.qk_SFM_Get_DirPreComputedWav(folder);
    EXPECT_EQ(folder, "/data/sets");
    sdk.qk_SFM_Set_DirPreComputedWav(nullptr);
    sdk.qk_SFM_Get_DirPreComputedWav(folder);
    EXPECT_EQ(folder, "");
}

TEST(CQKSDK_Settings, TheApplicationsSettingsAreReadAndKept) {
    ScopedSettingsDir dir("appl");
    writeSettingsFor("Mixdesk", [](CQUENDARIC_PARAMETERS &p) {
        p.m_fGain = -4.0f;
        p.m_iSFM = 2;
    });
    {
        CQKSDK sdk;
        sdk.qk_Appl_Set("Mixdown");  // the same four letters
        float gain = 0.0f;
        int model = 0;
        EXPECT_EQ((sdk.qk_Siml_Get_Gain(gain), gain), -4.0f);
        EXPECT_EQ((sdk.qk_SFM_Get(model), model), 2);
        sdk.qk_Siml_Set_Gain(-9.0f);
    }
    // The engine's end stores the settings under the application's name.
    CQUENDARIC_PARAMETERS p;
    p.m_strApplication = "Mixd";
    p._read();
    EXPECT_EQ(p.m_fGain, -9.0f);
    p.m_strApplication = "unused";
}

TEST(CQKSDK_Settings, SettingsDialogModuleIsCalledWithTheFacade) {
    ScopedSettingsDir dir("dialog");
    writeSettingsFor("dlgt", [](CQUENDARIC_PARAMETERS &p) { p.m_iAGC = 0; });
    // The stand-in is made present by loading it by its path; the facade asks for it by its
    // bare name.
    void *module = dlopen(QK_TEST_MODULE_DIR "/libmQUENDARIKe.so", RTLD_NOW);
    ASSERT_NE(module, nullptr) << dlerror();
    CQKSDK sdk;
    sdk.qk_Appl_Set("dlgt");
    sdk.qk_Siml_Set_AGC(1);
    EXPECT_EQ(sdk.qk_Dlg_Settings(42), 0);
    EXPECT_EQ(*static_cast<void **>(dlsym(module, "g_pDlgSdk")), &sdk);
    EXPECT_EQ(*static_cast<int *>(dlsym(module, "g_iDlgArg")), 42);
    int agc = -1;
    EXPECT_EQ((sdk.qk_Siml_Get_AGC(agc), agc), 0);  // the settings were read on loading
    sdk.qk_Siml_Set_AGC(1);
    sdk.qk_Dlg_Settings(7);
    EXPECT_EQ(*static_cast<int *>(dlsym(module, "g_iDlgCalls")), 2);
    EXPECT_EQ((sdk.qk_Siml_Get_AGC(agc), agc), 1);  // but only on the first call

    // With the module loaded and no folder named, its folder holds the settings.
    ::unsetenv("QK_SETTINGS_DIR");
    CQUENDARIC_PARAMETERS p;
    p.m_strApplication = "dlgt";
    const std::string path = p.SettingsPath();
    ::setenv("QK_SETTINGS_DIR", dir.Path().c_str(), 1);
    EXPECT_EQ(qk::FileNamePart(qk::FolderPart(path)), "module");
    dlclose(module);
}
