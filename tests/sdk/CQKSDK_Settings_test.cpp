#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/Paths.h"
#include "quendarik/CQKSDK.h"
#include "settings/CQUENDARIC_PARAMETERS.h"
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

TEST(CQKSDK_Settings, PlaybackOutputTakesOnlyHeadphonesOrLoudspeakers) {
    ScopedSettingsDir dir("po");
    writeSettingsFor("pofive", [](CQUENDARIC_PARAMETERS &p) { p.m_iPO = 5; });
    CQKSDK sdk;
    int po = 0;
    EXPECT_EQ(sdk.qk_Siml_Set_PO(3), 0);
    sdk.qk_Siml_Get_PO(po);
    EXPECT_EQ(po, 2);
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
    sdk.qkSimSetCrossTalkAzimuth(30);
    sdk.qkSimSetCrossTalkElevation(-10);
    sdk.qk_CTC_Get_Parameters(dl, al, el, dr, ar, er);
    EXPECT_EQ(al, 30.0f);
    EXPECT_EQ(ar, 330.0f);
    EXPECT_EQ(er, -10.0f);
}

TEST(CQKSDK_Settings, ResearchKeysAreExactAndHaveTheirDefaults) {
    ScopedSettingsDir dir("research");
    CQKSDK sdk;
    int v = -1;
    for (const auto &[key, byDefault] : {std::pair<const char *, int>{"ORMS", 0},
                                         {"GRAPH_BIR", 0},
                                         {"INFO", 0},
                                         {"ONEREVERB", 1}}) {
        EXPECT_EQ((sdk.qk_Research_Get_BOOL(key, v), v), byDefault) << key;
    }
    EXPECT_EQ(sdk.qk_Research_Set_BOOL("orms", 1), 0);
    EXPECT_EQ((sdk.qk_Research_Get_BOOL("ORMS", v), v), 0);
    sdk.qk_Research_Set_BOOL("ORMS", 1);
    EXPECT_EQ((sdk.qk_Research_Get_BOOL("ORMS", v), v), 1);
    v = 42;
    EXPECT_EQ(sdk.qk_Research_Get_BOOL(nullptr, v), 0);
    EXPECT_EQ(sdk.qk_Research_Set_BOOL(nullptr, 1), 0);
    EXPECT_EQ(v, 42);
}

TEST(CQKSDK_Settings, TheApplicationsSettingsAreReadAndKept) {
    ScopedSettingsDir dir("appl");
    writeSettingsFor("Mixdesk", [](CQUENDARIC_PARAMETERS &p) { p.m_fGain = -4.0f; });
    {
        CQKSDK sdk;
        sdk.qk_Appl_Set("Mixdown");  // the same four letters
        float gain = 0.0f;
        EXPECT_EQ((sdk.qk_Siml_Get_Gain(gain), gain), -4.0f);
    }
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
