// Generated rooms and the world's generation: flat lists, box, volume, results, archive.
#include "world/CWorld_Utils.h"

#include <gtest/gtest.h>

#include "support/ArchiveBytes.h"
#include "support/ReportRecorder.h"
#include "support/ScopedSettingsDir.h"
#include "support/Worlds.h"
#include "world/CDSC_World.h"

namespace {
class Rooms : public testing::Test {
  protected:
    Rooms() : root("rooms") {
        qk::table::code4initLow(&code);
        world = std::make_unique<CDSC_World>();  // makes the tables of this root
        world->m_pCode4 = &code;
    }
    CVRPoint Corner(int worldID) {
        CVRPoint p;
        EXPECT_EQ(world->FindVRPointFromWorldList(std::to_string(worldID), p), 1) << worldID;
        return p;
    }
    void Load(CDSC_World &w, const std::vector<uint8_t> &bytes) {
        w.m_pCode4 = &code;
        qktest::LoadBytes(w, bytes);
    }

    qktest::ScopedCommonRoot root;
    qk::table::Code4 code;
    std::unique_ptr<CDSC_World> world;
};

void expectPoint(const C3Point &p, float x, float y, float z) {
    EXPECT_FLOAT_EQ(p.x, x);
    EXPECT_FLOAT_EQ(p.y, y);
    EXPECT_FLOAT_EQ(p.z, z);
}
}  // namespace

TEST_F(Rooms, AShoeBoxHasSixInwardPlanesItsMaterialsAndItsVolume) {
    CWorld_Utils::Generate_ShoeBox(world.get(), "4", "5", "3");
    ASSERT_EQ(world->m_Planes.size(), 6u);
    ASSERT_EQ(world->m_Scenes.size(), 1u);
    EXPECT_EQ(world->m_Scenes[0]->m_strName, "main");
    EXPECT_FLOAT_EQ(world->m_fVolume, 60.0f);
    expectPoint(world->m_centre, 0.0f, 0.0f, 1.5f);
    EXPECT_FLOAT_EQ(world->m_fXMin, -2.0f);
    EXPECT_FLOAT_EQ(world->m_fYMax, 2.5f);
    EXPECT_FLOAT_EQ(world->m_fZMax, 3.0f);
    EXPECT_FLOAT_EQ(world->m_fExtent, 5.0f);
    EXPECT_FLOAT_EQ(world->m_fMaxMid, 1.5f);
    expectPoint(Corner(1), -2.0f, -2.5f, 0.0f);
    expectPoint(Corner(13), 2.0f, 2.5f, 3.0f);
    for (const CVRPlane *plane : world->m_Planes) {
        float d = 0.0f;
        plane->Distance(world->m_centre, d);
        EXPECT_GT(d, 0.0f) << plane->m_strName;  // the normal points into the room
        EXPECT_EQ(plane->m_Points.size(), 4u);
    }
    const CVRPlane &floor = *world->m_Planes[0];
    EXPECT_EQ(floor.m_strName, "floor");
    EXPECT_EQ(floor.m_strPointIDs, "4 3 2 1");
    EXPECT_EQ(floor.m_Material.m_fCoeff[2], 57.0f);
    EXPECT_EQ(world->m_Planes[2]->m_Material.m_fCoeff[0], 29.0f);  // abs_wall
    EXPECT_EQ(world->m_Planes[1]->m_strImage, "ceiling.bmp");

    C3Point onWall;
    onWall.x = 2.0f;
    EXPECT_EQ(world->IsPointInsize(onWall), 1);
    onWall.x = 2.01f;
    EXPECT_EQ(world->IsPointInsize(onWall), 0);
}

TEST_F(Rooms, AChangedConstantAndANewGenerationResizeTheRoom) {
    CWorld_Utils::Generate_ShoeBox(world.get(), "4", "5", "3");
    EXPECT_EQ(world->UpdateConstant("h", "4"), 0);
    EXPECT_EQ(world->UpdateConstant("no such", "9"), 0);
    ASSERT_EQ(world->Generate(), 0);
    EXPECT_FLOAT_EQ(world->m_fZMax, 4.0f);
    EXPECT_FLOAT_EQ(world->m_fVolume, 80.0f);
    // A second room replaces the first.
    CWorld_Utils::Generate_ShoeBox(world.get(), "2", "2", "2");
    EXPECT_EQ(world->m_Scenes.size(), 1u);
    EXPECT_EQ(world->m_Constants.size(), 3u);
    EXPECT_FLOAT_EQ(world->m_fVolume, 8.0f);
}

TEST_F(Rooms, TheTrapeziumKeepsItsLeaningRightWall) {
    CWorld_Utils::Generate_Trapezium(world.get(), "4", "6", "5", "3");
    ASSERT_EQ(world->m_Planes.size(), 6u);
    expectPoint(Corner(1), -4.0f, 0.0f, 0.0f);
    expectPoint(Corner(2), -4.0f, 5.0f, 0.0f);
    expectPoint(Corner(3), 3.0f, 5.0f, 0.0f);
    expectPoint(Corner(4), 2.0f, 0.0f, 0.0f);
    expectPoint(Corner(14), 2.0f, 0.0f, 3.0f);
    EXPECT_EQ(world->m_Planes[2]->m_strName, "stage_wall");
    EXPECT_GT(world->m_fVolume, 0.0f);
}

TEST_F(Rooms, GenerationResults) {
    struct Case {
        const char *name;
        std::function<void(CDSC_World &)> build;
        int result;
        size_t planes;
    };
    auto room = [](const char *w, std::vector<std::string> ids) {
        return [w, ids](CDSC_World &world) {
            CWorld_Utils::Generate_ShoeBox(&world, w, "5", "3");
            CVRPlane *plane = nullptr;
            world.m_Scenes[0]->InsertPlane(plane, 7, "extra", "abs_wall");
            for (const std::string &id : ids) {
                plane->InsertPoint(id);
            }
        };
    };
    const Case cases[] = {
        {"empty world", [](CDSC_World &) {}, 201, 0},
        {"good room", room("4", {"1", "2", "3"}), 0, 7},
        {"one id of four unknown: a triangle", room("4", {"1", "2", "99", "3"}), 0, 7},
        {"two ids left", room("4", {"1", "2", "99"}), 202, 0},
        {"a world id that no corner has", room("4", {"_1", "_2", "_99"}), 202, 0},
        {"an expression in error", room("4+nowhere", {"1", "2", "3"}), 203, 0},
        {"a corner reading a corner that isn't there",
         [](CDSC_World &world) {
             CDSC_Scene *scene = nullptr;
             world.InsertScene(scene, "s", "");
             scene->InsertPoint(1, "x(_7)", "0", "0");
         },
         204, 0},
    };
    for (const Case &c : cases) {
        CDSC_World w;
        w.m_pCode4 = &code;
        c.build(w);
        EXPECT_EQ(w.Generate(), c.result) << c.name;
        EXPECT_EQ(w.m_Planes.size(), c.planes) << c.name;
    }
    CDSC_World noTables;
    noTables.InsertConstant("a", "1", "", 1);
    EXPECT_EQ(noTables.Generate(), -1);
    EXPECT_FLOAT_EQ(noTables.m_Constants[0]->m_fValue, 1.0f);  // the constants came first
}

TEST_F(Rooms, APlaneBoxTakesALowerZIntoItsXMinimum) {
    CDSC_Scene *scene = nullptr;
    world->InsertScene(scene, "s", "");
    scene->InsertPoint(1, "0", "0", "5");
    scene->InsertPoint(2, "3", "0", "5");
    scene->InsertPoint(3, "3", "0", "-2");
    CVRPlane *plane = nullptr;
    scene->InsertPlane(plane, 1, "p", "abs_wall");
    for (const char *id : {"1", "2", "3"}) {
        plane->InsertPoint(id);
    }
    ASSERT_EQ(world->Generate(), 0);
    EXPECT_FLOAT_EQ(plane->m_fMinZ, 5.0f);
    EXPECT_FLOAT_EQ(plane->m_fMinX, -2.0f);
    EXPECT_FLOAT_EQ(world->m_fZMin, -2.0f);  // the world's box is right
}

TEST_F(Rooms, AHugeRoomIsCountedInCoarserCellsAndEnds) {
    struct Case {
        const char *w, *d, *h;
        float volume;
    };
    // Then slabs 10^15 m wide: wider cells across one 1 m high must not make its one layer
    // of cells vanish, and one lower than a cell has none, with no loop over its columns.
    for (const Case &c :
         {Case{"4000", "5000", "3000", 6.0e10f}, Case{"1000000000000000", "16", "1", 1.6e16f},
          Case{"1000000000000000", "16", "0.4", 0.0f}}) {
        CWorld_Utils::Generate_ShoeBox(world.get(), c.w, c.d, c.h);
        ASSERT_EQ(world->m_Planes.size(), 6u) << c.w;
        EXPECT_NEAR(world->m_fVolume, c.volume, c.volume * 0.01f) << c.w << " " << c.h;
    }
}

TEST_F(Rooms, AStoredWorldReadBackGeneratesTheSamePlanes) {
    CWorld_Utils::Generate_Trapezium(world.get(), "4", "6", "5", "3");
    world->m_Scenes[0]->m_iObject = 1;
    world->m_Scenes[0]->m_iOffsetCorners = 1;
    world->m_Scenes[0]->m_iOffsetCornersBy = 100;
    world->m_fScaleY = 2.0f;
    ASSERT_EQ(world->Generate(), 0);
    const std::vector<uint8_t> bytes = qktest::StoreBytes(*world);

    CDSC_World copy;
    Load(copy, bytes);
    qktest::ExpectSamePlanes(*world, copy);
    EXPECT_EQ(copy.m_Scenes[0]->m_iObject, 1);
    EXPECT_EQ(copy.m_Scenes[0]->m_iOffsetCornersBy, 100);
    EXPECT_EQ(copy.m_Scenes[0]->m_pWorld, &copy);
    EXPECT_FLOAT_EQ(copy.m_fScaleY, 2.0f);
    EXPECT_FLOAT_EQ(copy.m_fVolume, world->m_fVolume);
    EXPECT_EQ(qktest::StoreBytes(copy), bytes);
}

TEST_F(Rooms, AnArchiveThatCantBeReadLeavesTheWorldAsItWas) {
    CWorld_Utils::Generate_ShoeBox(world.get(), "4", "5", "3");
    std::vector<uint8_t> bytes = qktest::StoreBytes(*world);
    CDSC_World other;
    other.m_pCode4 = &code;
    CWorld_Utils::Generate_ShoeBox(&other, "2", "2", "2");

    qktest::ReportRecorder reports;
    std::vector<uint8_t> truncated(bytes.begin(), bytes.begin() + bytes.size() / 2);
    std::vector<uint8_t> foreign = bytes;
    const std::string scene = "CDSC_Scene";
    auto at = std::search(foreign.begin(), foreign.end(), scene.begin(), scene.end());
    ASSERT_NE(at, foreign.end());
    std::copy_n("CDSC_World", 10, at);  // a world where a scene belongs
    for (const auto &bad : {truncated, foreign, std::vector<uint8_t>{}}) {
        Load(other, bad);
        EXPECT_FLOAT_EQ(other.m_fVolume, 8.0f);
        EXPECT_EQ(other.m_Scenes.size(), 1u);
    }
    ASSERT_EQ(reports.entries.size(), 3u);
    EXPECT_EQ(reports.entries[0].text, "Cannot serialize CDSC_World object.");
}
