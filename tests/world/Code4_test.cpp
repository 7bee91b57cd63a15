#include "world/Code4.h"

#include <gtest/gtest.h>
#include <shapefil.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "support/ScopedSettingsDir.h"
#include "world/MaterialTables.h"

using namespace qk::table;
namespace fs = std::filesystem;

namespace {
struct Closer {
    void operator()(Data4 *d4) const { d4close(d4); }
};
using Table = std::unique_ptr<Data4, Closer>;

const float kFlat[8] = {20, 20, 20, 20, 20, 20, 20, 20};

class TableFiles : public testing::Test {
  protected:
    TableFiles() : root("tables") { code4initLow(&code); }
    ~TableFiles() override { code4initUndo(&code); }

    void Create(const std::string &path) {
        Table made(d4create(&code, path, MaterialTables::MaterialFields(),
                            MaterialTables::MaterialTags()));
        ASSERT_TRUE(made) << code.errorCode;
    }
    std::vector<std::string> Names(const std::string &path) {
        std::vector<std::string> names;
        EXPECT_EQ(MaterialTables::ListField(code, path, "MATERIAL", names), 0);
        return names;
    }

    qktest::ScopedCommonRoot root;
    Code4 code;
};
}  // namespace

TEST_F(TableFiles, RowsWrittenAreADbaseFileAndAreFoundByTheirKeys) {
    const std::string path = root.File("materials");
    Create(path);
    ASSERT_EQ(MaterialTables::AddMaterial(code, path, 7, "Brick", "Walls", "b.bmp", kFlat), 0);
    ASSERT_EQ(MaterialTables::AddMaterial(code, path, 3, "abs_floor", "None", "f.bmp", kFlat), 0);

    // shapelib alone reads what the layer wrote: the fields, their widths, the texts.
    DBFHandle dbf = DBFOpen((path + ".dbf").c_str(), "rb");
    ASSERT_NE(dbf, nullptr);
    EXPECT_EQ(DBFGetFieldCount(dbf), 14);
    EXPECT_EQ(DBFGetRecordCount(dbf), 2);
    EXPECT_EQ(DBFReadIntegerAttribute(dbf, 0, DBFGetFieldIndex(dbf, "ID")), 7);
    EXPECT_STREQ(DBFReadStringAttribute(dbf, 1, DBFGetFieldIndex(dbf, "MATERIAL")), "abs_floor");
    EXPECT_STREQ(DBFReadStringAttribute(dbf, 1, DBFGetFieldIndex(dbf, "F2000")), "20");
    DBFClose(dbf);

    Table table(d4open(&code, path + ".dbf"));
    ASSERT_TRUE(table);
    Data4 *d4 = table.get();
    EXPECT_EQ(d4recCountDo2(d4), 2);
    d4tagSelect(d4, d4tag(d4, "material"));
    struct Case {
        const char *key;
        int result;
    };
    for (const Case &c :
         {Case{"ABS_FLOOR", r4success}, Case{"ABS_FLOOR   ", r4success}, Case{"BRICK", r4success},
          Case{"abs_floor", r4eof}, Case{"ABS", r4after}}) {
        EXPECT_EQ(d4seek(d4, c.key), c.result) << c.key;
    }
    d4seek(d4, "BRICK");
    const Field4 *name = d4field(d4, "MATERIAL");
    EXPECT_EQ(f4len(name), 50);
    EXPECT_EQ(f4ptr(name), "Brick" + std::string(45, ' '));  // padded as stored

    // The ID tag orders by number; record order is the order of writing.
    d4tagSelect(d4, d4tag(d4, "ID"));
    ASSERT_EQ(d4top(d4), r4success);
    EXPECT_EQ(f4ptr(d4field(d4, "ID")), "    3");
    EXPECT_EQ(d4skip(d4, 1), r4success);
    EXPECT_EQ(f4ptr(d4field(d4, "ID")), "    7");
    EXPECT_EQ(d4skip(d4, 1), r4eof);
    d4tagSelect(d4, nullptr);
    EXPECT_EQ(d4bottom(d4), r4success);
    EXPECT_EQ(f4ptr(d4field(d4, "ID")), "    3");
    EXPECT_EQ(d4seek(d4, "BRICK"), r4noTag);
    EXPECT_EQ(d4tag(d4, "TAG_MNAME"), nullptr);
}

TEST_F(TableFiles, RowsAddedByAnotherDbaseWriterAreFoundThoughTheIndexFileIsOld) {
    const std::string path = root.File("materials");
    Create(path);
    ASSERT_EQ(MaterialTables::AddMaterial(code, path, 1, "Wood", "None", "w.bmp", kFlat), 0);
    DBFHandle dbf = DBFOpen((path + ".dbf").c_str(), "rb+");
    ASSERT_NE(dbf, nullptr);
    DBFWriteIntegerAttribute(dbf, 1, DBFGetFieldIndex(dbf, "ID"), 2);
    DBFWriteStringAttribute(dbf, 1, DBFGetFieldIndex(dbf, "MATERIAL"), "  Cork tiles ");
    DBFClose(dbf);

    Table table(d4open(&code, path));
    ASSERT_TRUE(table);
    d4tagSelect(table.get(), d4tag(table.get(), "MATERIAL"));
    EXPECT_EQ(d4seek(table.get(), "CORK TILES"), r4success);
}

TEST_F(TableFiles, ForeignAndBrokenFilesAreRefusedWithACode) {
    const std::string good = root.File("good");
    Create(good);
    ASSERT_EQ(MaterialTables::AddMaterial(code, good, 1, "Wood", "None", "w.bmp", kFlat), 0);
    std::ifstream in(good + ".dbf", std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_GT(bytes.size(), 64u);

    std::string hugeCount = bytes;
    hugeCount[4] = hugeCount[5] = hugeCount[6] = '\x7f';
    std::string wideField = bytes;
    wideField[32 + 16] = '\xff';  // ID claims 255 characters
    struct Case {
        const char *name;
        std::string dbf;
        std::string cdx;
        int code;
    };
    const Case cases[] = {
        {"empty", "", "", e4data},
        {"text", "GLOBAL w = 4\nCORNERS\n1 0 0 0\n", "", e4data},
        {"truncated", bytes.substr(0, 40), "", e4data},
        {"records cut off", bytes.substr(0, bytes.size() - 30), "", e4data},
        {"absurd record count", hugeCount, "", e4data},
        {"fields wider than the record", wideField, "", e4data},
        {"index of another kind", bytes, "not an index", e4index},
    };
    for (const Case &c : cases) {
        const std::string path = root.File("bad");
        std::ofstream(path + ".dbf", std::ios::binary) << c.dbf;
        fs::remove(path + ".cdx");
        if (!c.cdx.empty()) {
            std::ofstream(path + ".cdx", std::ios::binary) << c.cdx;
        }
        Table table(d4open(&code, path));
        EXPECT_FALSE(table) << c.name;
        EXPECT_EQ(code.errorCode, c.code) << c.name;
    }
    EXPECT_FALSE(Table(d4open(&code, root.File("absent"))));
    EXPECT_EQ(code.errorCode, e4open);
}

TEST_F(TableFiles, AFailedCreateLeavesTheTableThatWasThere) {
    const std::string path = root.File("materials");
    Create(path);
    ASSERT_EQ(MaterialTables::AddMaterial(code, path, 1, "Wood", "None", "w.bmp", kFlat), 0);
    const std::vector<FIELD4INFO> badFields = {{"A_NAME_TOO_LONG", 'C', 10, 0}};
    EXPECT_FALSE(Table(d4create(&code, path, badFields, {})));
    EXPECT_EQ(code.errorCode, e4fieldName);
    const std::vector<TAG4INFO> badTags = {{"X", "SUBSTR(MATERIAL,1,2)"}};
    EXPECT_FALSE(
        Table(d4create(&code, root.File("other"), MaterialTables::MaterialFields(), badTags)));
    EXPECT_EQ(Names(path), std::vector<std::string>{"Wood"});
}

TEST_F(TableFiles, EnsureTableTellsWhichFilesWereThere) {
    const std::string path = root.File("materials");
    auto ensure = [&] {
        return MaterialTables::EnsureTable(code, path, MaterialTables::MaterialFields(),
                                           MaterialTables::MaterialTags());
    };
    EXPECT_EQ(ensure(), 0);  // neither: made
    EXPECT_TRUE(fs::exists(path + ".dbf") && fs::exists(path + ".cdx"));
    ASSERT_EQ(MaterialTables::AddMaterial(code, path, 1, "Mine", "None", "m.bmp", kFlat), 0);
    EXPECT_EQ(ensure(), 1);  // both: nothing done
    EXPECT_EQ(Names(path), std::vector<std::string>{"Mine"});

    fs::remove(path + ".cdx");
    EXPECT_EQ(ensure(), 0);  // only the table: its rows stay, the index comes back
    EXPECT_EQ(Names(path), std::vector<std::string>{"Mine"});
    Table table(d4open(&code, path));
    d4tagSelect(table.get(), d4tag(table.get(), "MATERIAL"));
    EXPECT_EQ(d4seek(table.get(), "MINE"), r4success);
    table.reset();

    fs::remove(path + ".dbf");
    EXPECT_EQ(ensure(), 0);  // only the index: deleted, the table made anew
    EXPECT_TRUE(Names(path).empty());
}

TEST(MaterialTablesDefaults, AFolderWithOnlyOneFileOfATableGetsTheDefaultRows) {
    qktest::ScopedCommonRoot root("defaults");
    Code4 code;
    code4initLow(&code);
    ASSERT_EQ(MaterialTables::EnsureDefaults(code), 0);
    std::vector<std::string> names;
    ASSERT_EQ(MaterialTables::ListField(code, MaterialTables::MaterialsPath(), "MATERIAL", names),
              0);
    ASSERT_EQ(names.size(), 12u);
    EXPECT_EQ(names.front(), "Concrete block, unpainted");
    EXPECT_EQ(names.back(), "abs_ceiling");
    std::vector<std::string> categories;
    MaterialTables::ListField(code, MaterialTables::CategoriesPath(), "CATEGORY", categories);
    EXPECT_EQ(categories,
              (std::vector<std::string>{"None", "Floors", "Carpets", "Ceilings", "Reflective Walls",
                                        "Absorptive Walls", "Windows", "Miscellaneous"}));
    ASSERT_EQ(MaterialTables::EnsureDefaults(code), 0);  // both there: nothing added
    MaterialTables::ListField(code, MaterialTables::MaterialsPath(), "MATERIAL", names);
    EXPECT_EQ(names.size(), 12u);

    // A table that lost its index gets the defaults once more behind its own rows, with ids
    // from 1 again.
    fs::remove(MaterialTables::MaterialsPath() + ".cdx");
    ASSERT_EQ(MaterialTables::EnsureDefaults(code), 0);
    std::vector<std::string> ids;
    MaterialTables::ListField(code, MaterialTables::MaterialsPath(), "ID", ids);
    ASSERT_EQ(ids.size(), 24u);
    EXPECT_EQ(ids[12], "    1");

    // A folder with only the index: it goes, and the table starts with the twelve rows.
    fs::remove(MaterialTables::MaterialsPath() + ".dbf");
    ASSERT_EQ(MaterialTables::EnsureDefaults(code), 0);
    MaterialTables::ListField(code, MaterialTables::MaterialsPath(), "MATERIAL", names);
    EXPECT_EQ(names.size(), 12u);
}
