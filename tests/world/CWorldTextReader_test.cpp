#include "world/CWorldTextReader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/ArchiveBytes.h"
#include "support/ReportRecorder.h"
#include "support/ScopedSettingsDir.h"
#include "support/Worlds.h"
#include "world/CDSC_World.h"
#include "world/MaterialTables.h"

namespace {
class WorldText : public testing::Test {
  protected:
    WorldText() : root("worldtext") {
        qk::table::code4initLow(&code);
        world = std::make_unique<CDSC_World>();
        world->m_pCode4 = &code;
    }
    // Reads text into a new scene of the world and returns the scene.
    CDSC_Scene *Read(const std::string &text) {
        CDSC_Scene *scene = nullptr;
        world->InsertScene(scene, "s", "");
        CWorldTextReader reader;
        reader.ReadText(text, world.get(), scene);
        return scene;
    }
    std::string Write(const std::string &name, const std::string &text) {
        const std::string path = root.Path() + "/" + name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << text;
        return path;
    }
    const CVRConstant *Constant(size_t i) const {
        return i < world->m_Constants.size() ? world->m_Constants[i].get() : nullptr;
    }

    qktest::ScopedCommonRoot root;
    qk::table::Code4 code;
    std::unique_ptr<CDSC_World> world;
};
}  // namespace

TEST_F(WorldText, LinesAndWhatTheyMake) {
    struct Case {
        const char *text;
        const char *constants;  // name=value|description, joined by ","
        const char *corners;    // id:x:y:z or id:f(function), joined by ","
        const char *planes;     // id:material:image:ids, joined by ","
    };
    const Case cases[] = {
        {"GLOBAL a=1;b", "a=1|b", "", ""},
        {"global a=1", "globala=1|", "", ""},
        {"GLOBALLOGO=1", "=1|", "", ""},
        {"GETLOCAL  r = 2 * 3 ; twice", "r=2*3|twice", "", ""},
        {"X = 1", "", "", ""},
        {"CORNERS\n5\t1\t2\t3", "", "5:1:2:3", ""},
        {"CORNERS\n5 (1 + 2) 0 0", "", "5:(1+2):0:0", ""},
        {"CORNERS\n5 1 2", "", "5:f(1)", ""},
        {"CORNERS\n12 -w/2 d/2 h ; note", "", "12:-w/2:d/2:h", ""},
        {"CORNERS\n7", "", "", ""},
        {"PLANES\n5 1 2 3", "", "", ""},
        {"PLANES\n[ 3 wall \\ 1 11 14 4 \\ abs_wall ] wall.bmp ; back", "", "",
         "3:abs_wall:wall.bmp:1 11 14 4"},
        {"PLANES\n[ 2 x / _1 2 _3 / m]", "", "", "2:m::_1 2 _3"},
        {"PLANES\n[ 2 x 1 2 3 ]", "", "", ""},
        {"PLANES\n[ 1 x / 1 2 3 / m\n( 2 / 4 5 6 / t )\n( 3 / 7 8 9 / t ) ]\n[ 4 x / 1 2 3 / n ]",
         "", "", "1:m::1 2 3,0:::4 5 6,0:::7 8 9,4:n::1 2 3"},
        {"PLANES\n[ 1 x / 1 2 3 / m\n( 2 / 4 5 6 / t )\nno sub-plane\n[ 4 x / 1 2 3 / n ]", "", "",
         "1:m::1 2 3,0:::4 5 6,4:n::1 2 3"},
        {"CORNERS\nABSORBER 1 2 3", "", "", ""},
        {"ROTATE 90\nCORNERS\n1 1 1 1\nTRANSLATE\n2 2 2 2", "", "1:1:1:1", ""},
    };
    for (const Case &c : cases) {
        world->ClearPlanes();
        const CDSC_Scene *scene = Read(c.text);
        std::string constants;
        for (const auto &k : world->m_Constants) {
            constants += (constants.empty() ? "" : ",") + k->m_strName + "=" + k->m_strValue + "|" +
                         k->m_strDescription;
        }
        std::string corners;
        for (const auto &p : scene->m_Points) {
            corners += (corners.empty() ? "" : ",") + std::to_string(p->m_iID) + ":" +
                       (p->m_strFunction.empty() ? p->m_strX + ":" + p->m_strY + ":" + p->m_strZ
                                                 : "f(" + p->m_strFunction + ")");
        }
        std::string planes;
        for (const auto &p : scene->m_Planes) {
            std::string ids;
            for (const std::string &id : p->m_PointIDs) {
                ids += (ids.empty() ? "" : " ") + id;
            }
            planes += (planes.empty() ? "" : ",") + std::to_string(p->m_iID) + ":" +
                      p->m_strMaterial + ":" + p->m_strImage + ":" + ids;
        }
        EXPECT_EQ(constants, c.constants) << c.text;
        EXPECT_EQ(corners, c.corners) << c.text;
        EXPECT_EQ(planes, c.planes) << c.text;
    }
}

TEST_F(WorldText, SceneMarksAndNumbers) {
    const CDSC_Scene *scene = Read(
        "OBJECT\nFROMFRONT\nOFFSETCO 100\nOFFSETPL 7 ; planes\nMIRROR 20 30\nCOPY\nORIGIN\n"
        "INCLUDE part.txt ; a part\n#I other.txt\n");
    EXPECT_EQ(scene->m_iObject, 1);
    EXPECT_EQ(scene->m_iFromBack, 0);
    EXPECT_EQ(scene->m_iOffsetCorners, 1);
    EXPECT_EQ(scene->m_iOffsetCornersBy, 100);
    EXPECT_EQ(scene->m_iOffsetPlanesBy, 7);
    EXPECT_EQ(scene->m_iMirror, 1);
    EXPECT_EQ(scene->m_iMirrorCorners, 20);
    EXPECT_EQ(scene->m_iMirrorPlanes, 30);
    EXPECT_EQ(scene->m_Includes, (std::vector<std::string>{"part.txt", "other.txt"}));
    const CDSC_Scene *plain = Read("MIRROR 20\nOFFSETCO\n");
    EXPECT_EQ(plain->m_iMirror, 0);
    EXPECT_EQ(plain->m_iOffsetCorners, 0);
}

TEST_F(WorldText, IncludesAreReadRelativeToTheirFileAndReachCornersByWorldIds) {
    Write("rooms/main.txt",
          "GLOBAL s = 2\nCORNERS\n1 0 0 0\n2 s 0 0\n3 0 s 0\nPLANES\n"
          "[ 1 x / 1 2 3 / abs_floor ]\nINCLUDE parts/roof.txt\n");
    Write("rooms/parts/roof.txt",
          "OFFSETCO 100\nCORNERS\n1 0 0 s\n2 0 s s\n3 s 0 s\nPLANES\n"
          "[ 1 x / 1 2 3 / abs_ceiling ]\n[ 2 x / _1 _101 _103 _2 / abs_wall ]\n");
    CDSC_Scene::Import(world.get(), root.Path() + "/rooms/main.txt", "", 1);
    ASSERT_EQ(world->m_Scenes.size(), 2u);
    EXPECT_EQ(world->m_Scenes[1]->m_strName, "roof.txt");
    EXPECT_EQ(world->m_Scenes[1]->m_iMain, 0);
    ASSERT_EQ(world->Generate(), 0);
    ASSERT_EQ(world->m_Planes.size(), 3u);
    EXPECT_EQ(world->m_Planes[2]->GetSize(), 4);
    EXPECT_FLOAT_EQ(world->m_fZMax, 2.0f);
}

TEST_F(WorldText, IncludeCyclesEndWithAReport) {
    const std::string self = Write("self.txt", "INCLUDE self.txt\n");
    Write("ping.txt", "INCLUDE pong.txt\nINCLUDE pong.txt\n");
    Write("pong.txt", "INCLUDE ping.txt\nINCLUDE ping.txt\n");
    qktest::ReportRecorder reports;
    CDSC_Scene::Import(world.get(), self, "", 1);
    EXPECT_EQ(world->m_Scenes.size(), static_cast<size_t>(CDSC_Scene::kMaxIncludeDepth + 1));
    ASSERT_EQ(reports.entries.size(), 1u);
    EXPECT_EQ(reports.entries[0].caption, "World");

    // Two files that each include the other twice would make 2^16 scenes: the count ends it,
    // with one report.
    world->ClearPlanes();
    reports.entries.clear();
    CDSC_Scene::Import(world.get(), root.Path() + "/ping.txt", "", 1);
    EXPECT_LE(world->m_Scenes.size(), CDSC_Scene::kMaxScenes);
    EXPECT_EQ(reports.entries.size(), 1u);

    // A big file that includes itself: the bytes of one import are counted, includes too.
    const std::string big = Write("big.txt", "INCLUDE big.txt\n" + std::string(3u << 20, ';'));
    world->ClearPlanes();
    CDSC_Scene::Import(world.get(), big, "", 1);
    EXPECT_EQ(world->m_Scenes.size(), CDSC_Scene::kMaxImportBytes / (3u << 20));
    const std::string huge =
        Write("huge.txt", std::string(CWorldTextReader::kMaxFileBytes + 1, ' '));
    world->ClearPlanes();
    CDSC_Scene::Import(world.get(), huge, "", 1);
    EXPECT_TRUE(world->m_Scenes.empty());

    world->ClearPlanes();
    CDSC_Scene::Import(world.get(), root.Path() + "/missing.txt", "", 1);
    CDSC_Scene::Import(world.get(), "relative.txt", "", 1);
    EXPECT_TRUE(world->m_Scenes.empty());
}

TEST_F(WorldText, AMaterialLineOnlyAsksAndInsertsNothing) {
    qktest::ReportRecorder reports(qk::kAnswerYes);
    Read(
        "ABS\n"
        "ABS myfoam = 10 20 <35> 40:50 60 70 80 scatter 1 1 1 1 1 1 1 1\n"
        "ABS abs_floor = 8 24 57 69 71 73 73 73\n"
        "ABS broken 1 2 3\n"
        "ABS ; nothing\n");
    // The tag the question looks in is not one the tables are made with: every named
    // material is asked about, including one the table has.
    ASSERT_EQ(reports.entries.size(), 2u);
    EXPECT_EQ(reports.entries[0].text, "Material: 'MYFOAM' was not found in local database: '" +
                                           MaterialTables::MaterialsPath() +
                                           ".dbf'.\nWould you like to insert it in the database?");
    EXPECT_EQ(reports.entries[0].caption, "World");
    EXPECT_EQ(reports.entries[0].severity, static_cast<int>(qk::Severity::Question));
    std::vector<std::string> names;
    MaterialTables::ListField(code, MaterialTables::MaterialsPath(), "MATERIAL", names);
    EXPECT_EQ(names.size(), 12u);  // the answer Yes inserted nothing
}

TEST_F(WorldText, TheShippedWorldsGenerate) {
    struct Case {
        const char *file;
        size_t scenes;
        size_t planes;
        float volume;
    };
    // The L counts only the 3 x 3 square where its wings meet (what lies inside every
    // plane), in three layers of cells under its 2.8 m ceiling.
    const std::string folder = std::string(std::getenv("QK_SOURCE_ROOT")) + "/data/worlds/";
    for (const Case &c : {Case{"shoebox_mixed.txt", 1, 6, 60.0f}, Case{"hall.txt", 1, 6, 1120.0f},
                          Case{"lshape.txt", 2, 8, 27.0f}}) {
        world->ClearPlanes();
        CDSC_Scene::Import(world.get(), folder + c.file, "", 1);
        EXPECT_EQ(world->m_Scenes.size(), c.scenes) << c.file;
        EXPECT_EQ(world->Generate(), 0) << c.file;
        EXPECT_EQ(world->m_Planes.size(), c.planes) << c.file;
        EXPECT_FLOAT_EQ(world->m_fVolume, c.volume) << c.file;
        for (const CVRPlane *plane : world->m_Planes) {
            EXPECT_GT(plane->m_Material.m_fCoeff[0], 0.0f) << c.file << " " << plane->m_iID;
        }
    }
}

TEST_F(WorldText, EveryKeywordWithIncludesReadsAndItsArchiveGeneratesTheSamePlanes) {
    const std::string main = Write("every/main.txt",
                                   "; every section of the language\n"
                                   "GLOBAL w = 4 ; width\n"
                                   "GETGLOBAL d = 3\n"
                                   "LOCAL h = 2.5\n"
                                   "GETLOCAL half = w/2 ; half the width\n"
                                   "ABS\n"
                                   "ABS myfoam = 10 20 30 40 50 60 70 80 s 1 1 1 1 1 1 1 1\n"
                                   "FROMBACK\nOBJECT\nOFFSETPL 10\nMIRROR 0 0\n"
                                   "TRANSLATE\nROTATE 90\nCOPY\nORIGIN\n"
                                   "CORNERS\n"
                                   "1 -half 0 0\n2 -half d 0\n3 half d 0\n4 half 0 0\n"
                                   "11 -half 0 h\n12 -half d h\n13 half d h\n14 half 0 h\n"
                                   "PLANES\n"
                                   "[ 1 floor / 4 3 2 1 / abs_floor ] floor.bmp\n"
                                   "[ 2 ceil / 11 12 13 14 / abs_ceiling ] ceiling.bmp\n"
                                   "#I walls.txt\n");
    Write("every/walls.txt",
          "OFFSETCO 100\nFROMFRONT\nPLANES\n"
          "[ 3 wall / _1 _11 _14 _4 / abs_wall ] wall.bmp\n"
          "[ 4 wall / _3 _13 _12 _2 / abs_wall ]\n"
          "[ 5 wall / _2 _12 _11 _1 / Wood\n"
          "( 6 / _2 _12 _11 / t ) ]\n"
          "[ 7 wall / _4 _14 _13 _3 / abs_wall ]\n");
    qktest::ReportRecorder reports;
    CDSC_Scene::Import(world.get(), main, "main gd", 1);
    EXPECT_EQ(reports.entries.size(), 1u);  // the question about myfoam
    ASSERT_EQ(world->m_Scenes.size(), 2u);
    ASSERT_EQ(world->m_Constants.size(), 4u);
    const CDSC_Scene &first = *world->m_Scenes[0];
    EXPECT_EQ(first.m_strName, "main.txt");
    EXPECT_EQ(first.m_strFolder, root.Path() + "/every");
    EXPECT_EQ(first.m_strDescription, "main gd");
    EXPECT_EQ(Constant(0)->m_strDescription, "width");
    EXPECT_EQ(first.m_iObject, 1);
    EXPECT_EQ(first.m_iMirror, 1);
    EXPECT_EQ(first.m_iOffsetPlanesBy, 10);
    EXPECT_EQ(world->m_Scenes[1]->m_iFromBack, 0);
    EXPECT_EQ(world->m_Scenes[1]->m_iOffsetCornersBy, 100);
    ASSERT_EQ(world->Generate(), 0);
    ASSERT_EQ(world->m_Planes.size(), 7u);
    EXPECT_FLOAT_EQ(Constant(3)->m_fValue, 2.0f);                  // half = w/2
    EXPECT_EQ(world->m_Planes[5]->GetSize(), 3);                   // the sub-plane, a triangle
    EXPECT_EQ(world->m_Planes[4]->m_Material.m_fCoeff[0], 15.0f);  // Wood
    // Cell centres at z = 0.5, 1.5 and 2.5, the last on the ceiling, which counts as inside.
    EXPECT_FLOAT_EQ(world->m_fVolume, 36.0f);

    CDSC_World copy;
    copy.m_pCode4 = &code;
    qktest::LoadBytes(copy, qktest::StoreBytes(*world));
    qktest::ExpectSamePlanes(*world, copy);
    EXPECT_FLOAT_EQ(copy.m_fVolume, 36.0f);
    EXPECT_EQ(copy.m_Scenes[1]->m_strName, "walls.txt");
}

// Includes written on another system name their folders with backslashes; an include that
// can't be read is reported with the file that asked for it, and the rest is read. A file in
// the root folder has "/" for its folder, so that its includes are found beside it.
TEST_F(WorldText, IncludesWithBackslashesAndIncludesThatCantBeRead) {
    Write("rooms/main.txt",
          "CORNERS\n1 0 0 0\n2 2 0 0\n3 0 2 0\nPLANES\n[ 1 x / 1 2 3 / abs_floor ]\n"
          "INCLUDE parts\\upper\\roof.txt\n#I parts\\gone.txt\n");
    Write("rooms/parts/upper/roof.txt",
          "CORNERS\n1 0 0 2\n2 0 2 2\n3 2 0 2\nPLANES\n"
          "[ 1 x / 1 2 3 / abs_ceiling ]\n");
    qktest::ReportRecorder reports;
    CDSC_Scene::Import(world.get(), root.Path() + "/rooms/main.txt", "", 1);
    ASSERT_EQ(world->m_Scenes.size(), 2u);
    EXPECT_EQ(world->m_Scenes[1]->m_strName, "roof.txt");
    ASSERT_EQ(world->Generate(), 0);
    EXPECT_EQ(world->m_Planes.size(), 2u);
    ASSERT_EQ(reports.entries.size(), 1u);
    EXPECT_NE(reports.entries[0].text.find("parts/gone.txt"), std::string::npos);
    EXPECT_NE(reports.entries[0].text.find("main.txt"), std::string::npos);

    const CDSC_Scene inRoot(world.get(), "/main.txt", "", 1);
    EXPECT_EQ(inRoot.m_strFolder, "/");
    EXPECT_EQ(inRoot.m_strName, "main.txt");
}
