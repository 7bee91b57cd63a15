#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/ReportRecorder.h"
#include "support/ScopedSettingsDir.h"
#include "support/SdkAccess.h"

namespace {
class WorldFacade : public testing::Test {
  protected:
    WorldFacade() : root("facade_world"), settings("facade_world") {}
    CDSC_World &World() { return CQKSDKTestAccess::Engine(sdk).m_Context.m_World; }
    CQUENDARIC_PARAMETERS &Params() { return CQKSDKTestAccess::Engine(sdk).m_Parameters; }
    int Model() {
        int model = -9;
        sdk.qk_Wrld_Get_Model(model);
        return model;
    }
    std::string WorldFile() {
        char buffer[1024] = {};
        sdk.qk_Wrld_Get_File_Full(buffer);
        return buffer;
    }
    std::string QkWorld(const std::string &name) const {
        return root.Path() + "/TORVELLAN/Common/QKWORLD/" + name;
    }

    qktest::ScopedCommonRoot root;
    qktest::ScopedSettingsDir settings;
    CQKSDK sdk;
};
}  // namespace

TEST_F(WorldFacade, PresetsMakeTheirRoomsAndStoreTheirNumber) {
    struct Case {
        int preset;
        int result;
        size_t planes;
        float volume;
    };
    for (const Case &c : {Case{1, 0, 6, 8.0f}, Case{2, 0, 6, 144.0f}, Case{3, 0, 6, 500.0f},
                          Case{4, 0, 6, -1.0f}, Case{5, 0, 6, -1.0f}, Case{6, 0, 6, -1.0f},
                          Case{0, 0, 0, -1.0f}, Case{7, -1, 0, -1.0f}, Case{-3, -1, 0, -1.0f}}) {
        sdk.qk_Wrld_None();
        Params().m_iWorldChanged = 0;
        EXPECT_EQ(sdk.qk_Wrld_Preset(c.preset), c.result) << c.preset;
        EXPECT_EQ(Model(), c.preset);
        EXPECT_EQ(World().m_Planes.size(), c.planes) << c.preset;
        if (c.volume >= 0.0f) {
            EXPECT_FLOAT_EQ(World().m_fVolume, c.volume) << c.preset;
        }
        EXPECT_EQ(Params().m_iWorldChanged, c.result == 0 ? 1 : 0) << c.preset;
    }
    EXPECT_EQ(sdk.qk_Wrld_Trapezium(4, 6, 5, 3), 0);
    EXPECT_EQ(Model(), 2);
    EXPECT_EQ(World().m_Constants[0]->m_strValue, "4.000000");  // "%f"
}

TEST_F(WorldFacade, ImportAlwaysGivesMinusOneAndTheWorldHoldsTheFile) {
    const std::string path = root.Path() + "/room.txt";
    std::ofstream(path) << "GLOBAL s = 3\nCORNERS\n1 0 0 0\n2 s 0 0\n3 0 s 0\nPLANES\n"
                           "[ 1 x / 1 2 3 / abs_floor ]\n";
    EXPECT_EQ(sdk.qk_Wrld_Import(path.c_str()), -1);
    EXPECT_EQ(Model(), 3);
    ASSERT_EQ(World().m_Scenes.size(), 1u);
    EXPECT_EQ(World().m_Scenes[0]->m_strDescription, "main gd");
    ASSERT_EQ(World().m_Planes.size(), 1u);
    EXPECT_EQ(World().m_Planes[0]->m_Material.m_fCoeff[0], 8.0f);
    EXPECT_EQ(sdk.qk_Wrld_Import((root.Path() + "/missing.txt").c_str()), -1);
    EXPECT_TRUE(World().m_Planes.empty());
}

TEST_F(WorldFacade, AMissingWorldFileGivesTheDefaultRoomAndAMessage) {
    qktest::ReportRecorder reports;
    EXPECT_EQ(sdk.qk_Wrld_Set_File("nowhere"), -1);
    ASSERT_EQ(reports.entries.size(), 1u);
    EXPECT_EQ(reports.entries[0].text,
              QkWorld("nowhere.qkworld") + " file not found! Default QKWORLD will be used.");
    EXPECT_EQ(World().m_Planes.size(), 6u);
    EXPECT_FLOAT_EQ(World().m_fVolume, 75.0f);  // 5 x 5 x 3
    EXPECT_TRUE(std::filesystem::exists(QkWorld("Default.qkworld")));
    EXPECT_EQ(WorldFile(), QkWorld("Default.qkworld"));
    EXPECT_EQ(Model(), 3);

    std::filesystem::remove(QkWorld("Default.qkworld"));
    EXPECT_EQ(sdk.qk_Wrld_Set_File("Default"), -1);
    EXPECT_EQ(reports.entries.size(), 1u);  // no message for the default itself
}

TEST_F(WorldFacade, AStoredWorldIsLoadedAndTheDefaultIsNotWrittenTwice) {
    ASSERT_EQ(sdk.qk_Wrld_Generate_Default("Default"), 0);
    const std::string stored = WorldFile();
    EXPECT_EQ(stored, QkWorld("Default.qkworld"));

    sdk.qk_Wrld_ShoeBox(2, 2, 2);
    EXPECT_EQ(sdk.qk_Wrld_Set_File_Full(QkWorld("Default").c_str()), 0);  // extension added
    EXPECT_FLOAT_EQ(World().m_fVolume, 75.0f);
    char name[512] = {};
    sdk.qk_Wrld_Get_File(name);
    EXPECT_STREQ(name, "Default.qkworld");

    sdk.qk_Wrld_Set_File_Full("/nowhere/but/short");  // leaves the default behind again
    const std::string before = WorldFile();
    EXPECT_EQ(sdk.qk_Wrld_Generate_Default("Default"), -1);
    EXPECT_EQ(WorldFile(), before);
    EXPECT_FLOAT_EQ(World().m_fVolume, 75.0f);
}

TEST_F(WorldFacade, ABrokenWorldFileIsReportedAndKeepsTheRoom) {
    sdk.qk_Wrld_ShoeBox(2, 2, 2);
    const std::string path = root.Path() + "/broken.qkworld";
    std::ofstream(path) << "GLOBAL w = 4\n";
    qktest::ReportRecorder reports;
    EXPECT_EQ(sdk.qk_Wrld_Set_File_Full(path.c_str()), 0);  // the file opened
    ASSERT_EQ(reports.entries.size(), 1u);
    EXPECT_EQ(reports.entries[0].text, "Cannot serialize CDSC_World object.");
    EXPECT_FLOAT_EQ(World().m_fVolume, 8.0f);
}

TEST_F(WorldFacade, TheBlockPathDesignsOneChangedMaterialABlock) {
    sdk.qk_Wrld_ShoeBox(4, 5, 3);
    CQUENDARIK_PROCESSOR &engine = CQKSDKTestAccess::Engine(sdk);
    auto designed = [&] {
        int n = 0;
        for (const CVRPlane *plane : World().m_Planes) {
            n += plane->m_Material.m_strName == plane->m_strMaterial ? 1 : 0;
        }
        return n;
    };
    std::lock_guard<qk::CEngineLock> guard(engine.m_csEngine);
    Params().m_iSFM = 0;  // free field: materials are not needed
    engine.CheckForMaterialChanges(44100);
    EXPECT_EQ(designed(), 0);
    Params().m_iSFM = 1;
    Params().m_iMaterialCoeffs = 16;
    for (int block = 1; block <= 6; ++block) {
        Params().m_iMaterialChanged = 0;
        engine.CheckForMaterialChanges(48000);
        EXPECT_EQ(designed(), block);
        EXPECT_EQ(Params().m_iMaterialChanged, 1);
    }
    Params().m_iMaterialChanged = 0;
    engine.CheckForMaterialChanges(48000);
    EXPECT_EQ(Params().m_iMaterialChanged, 0);  // nothing left to change
    const CMATERIAL &floor = World().m_Planes[0]->m_Material;
    EXPECT_EQ(floor.m_iFilterLength, 16);
    EXPECT_EQ(floor.m_fSampleRate, 48000.0f);
    World().m_Planes[0]->m_strMaterial = "abs_wall";  // a host changes a plane's material
    engine.CheckForMaterialChanges(48000);
    EXPECT_EQ(Params().m_iMaterialChanged, 1);
    EXPECT_EQ(floor.m_fCoeff[0], 29.0f);
}
