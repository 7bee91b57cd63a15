#include "world/CDSC_World.h"

#include <gtest/gtest.h>

namespace {
CDSC_Scene *sceneWithCorners(CDSC_World &world, const std::string &name,
                             std::initializer_list<int> ids) {
    CDSC_Scene *scene = nullptr;
    world.InsertScene(scene, name, "");
    for (int id : ids) {
        scene->InsertPoint(id, std::to_string(id), "0", "0");
    }
    return scene;
}
}  // namespace

TEST(CDSC_World, FindsCornersInTheSceneOrTheWorldWithoutFallback) {
    CDSC_World world;
    CDSC_Scene *first = sceneWithCorners(world, "first", {1, 2});
    first->m_iOffsetCorners = 1;
    first->m_iOffsetCornersBy = 10;
    CDSC_Scene *second = sceneWithCorners(world, "second", {1});
    ASSERT_EQ(first->GeneratePoints(), 0);

    CVRPoint found;
    EXPECT_EQ(world.FindVRPoint(first, "2", found), 1);
    EXPECT_EQ(found.x, 2.0f);
    EXPECT_EQ(found.m_pScene, first);
    EXPECT_EQ(world.FindVRPoint(second, "__12", found), 1);  // every leading "_" goes
    EXPECT_EQ(found.m_iWorldID, 12);
    EXPECT_EQ(world.FindVRPoint(second, "_2", found), 0);  // world ids carry the offset
    EXPECT_EQ(world.FindVRPoint(second, "2", found), 0);   // no fallback to the world
    EXPECT_EQ(world.FindVRPoint(nullptr, "1", found), 0);
}

TEST(CDSC_World, ScenesAndClearing) {
    CDSC_World world;
    CDSC_Scene *first = sceneWithCorners(world, "first", {1, 2});
    CDSC_Scene *second = sceneWithCorners(world, "/rooms/hall.txt", {5});
    EXPECT_EQ(second->m_strName, "hall.txt");
    EXPECT_EQ(second->m_strFolder, "/rooms");
    CVRPlane *plane = nullptr;
    first->InsertPlane(plane, 4, "floor", "Concrete");
    ASSERT_EQ(first->GeneratePoints(), 0);
    ASSERT_EQ(second->GeneratePoints(), 0);
    world.m_Planes.push_back(plane);
    ASSERT_EQ(world.m_Points.size(), 3u);

    // Removing a scene takes its corners and planes out of the flat lists.
    world.RemoveScene(first);
    ASSERT_EQ(world.m_Scenes.size(), 1u);
    ASSERT_EQ(world.m_Points.size(), 1u);
    EXPECT_EQ(world.m_Points[0]->m_iID, 5);
    EXPECT_TRUE(world.m_Planes.empty());

    // Clearing the planes keeps the sources, which the engine's objects point at.
    world.m_VRSources.push_back(std::make_unique<CVRSoundSource>());
    world.ClearPlanes();
    EXPECT_TRUE(world.m_Points.empty());
    EXPECT_EQ(world.m_VRSources.size(), 1u);
}

TEST(CDSC_World, ScenePointGenerationStopsAtTheFirstError) {
    CDSC_World world;
    CDSC_Scene *scene = sceneWithCorners(world, "s", {1});
    scene->InsertPoint(2, "1", "bad", "0");
    scene->InsertPoint(3, "3", "0", "0");
    EXPECT_EQ(scene->GeneratePoints(), 203);
    EXPECT_EQ(world.m_Points.size(), 1u);  // the corners before it stay listed
    CDSC_Scene orphan;
    orphan.InsertPoint(1, "1", "1", "1");
    EXPECT_EQ(orphan.GeneratePoints(), 201);
}
