#include "world/CVRConstant.h"

#include <gtest/gtest.h>

#include "support/ArchiveBytes.h"
#include "world/CDSC_World.h"

namespace {
// A world's constants generated in list order, as the world does it.
float valueOf(CDSC_World &world, const std::string &name) {
    for (const auto &c : world.m_Constants) {
        if (c->m_strName == name) {
            return c->m_fValue;
        }
    }
    ADD_FAILURE() << "no constant " << name;
    return 0.0f;
}

int generateOne(CDSC_World &world, const std::string &value, float &out) {
    CVRConstant c(&world, "probe", value, "", 1);
    c.m_fValue = out;
    const int result = c.Generate();
    out = c.m_fValue;
    return result;
}
}  // namespace

TEST(CVRConstant, LiteralForms) {
    CDSC_World world;
    float v = 9.0f;
    EXPECT_EQ(generateOne(world, "\"text\"", v), 0);
    EXPECT_EQ(v, 9.0f);  // a string leaves the value alone
    EXPECT_EQ(generateOne(world, "false", v), 0);
    EXPECT_EQ(v, 0.0f);
    EXPECT_EQ(generateOne(world, "3,5", v), 0);  // a decimal comma
    EXPECT_FLOAT_EQ(v, 3.5f);
    EXPECT_EQ(generateOne(world, "sqrt(16)", v), 0);  // the parser's square root is SQR
    EXPECT_EQ(v, 4.0f);
    EXPECT_EQ(generateOne(world, "1/0", v), 0);  // a value error is no error here
    EXPECT_EQ(generateOne(world, "2+", v), 0);
    EXPECT_EQ(generateOne(world, "2)", v), 203);
    CVRConstant orphan(nullptr, "a", "1+1", "", 1);
    EXPECT_EQ(orphan.Generate(), 203);
}

TEST(CVRConstant, ConstantsUsedBeforeTheyAreDefinedHaveTheirOldValue) {
    CDSC_World world;
    world.InsertConstant("h", "3", "", 1);
    world.InsertConstant("h2", "h*2", "", 1);
    world.InsertConstant("late", "g+1", "", 1);
    world.InsertConstant("g", "10", "", 1);
    EXPECT_EQ(world.GenerateConstants(), 0);
    EXPECT_FLOAT_EQ(valueOf(world, "h2"), 6.0f);
    EXPECT_FLOAT_EQ(valueOf(world, "late"), 1.0f);  // g was still 0.000
    EXPECT_EQ(world.GenerateConstants(), 0);
    EXPECT_FLOAT_EQ(valueOf(world, "late"), 11.0f);  // a second round sees g
}

TEST(CVRConstant, SubstitutionTestsTheFirstOccurrenceOnly) {
    CDSC_World world;
    world.InsertConstant("d", "4", "", 1);
    world.InsertConstant("Pi", "3.14159", "", 1);
    world.InsertConstant("w", "2", "", 1);
    EXPECT_EQ(world.GenerateConstants(), 0);
    float v = 0.0f;
    // "d" in "d2" fails the test and is left out altogether.
    EXPECT_EQ(generateOne(world, "d2+1", v), 203);
    // In "d+width" the first "d" passes, and then the one inside "width" is replaced too.
    EXPECT_EQ(generateOne(world, "d+width", v), 203);
    EXPECT_EQ(generateOne(world, "(d)*2", v), 0);
    EXPECT_FLOAT_EQ(v, 8.0f);
    // A constant enters with three decimals; names are matched in their exact case.
    EXPECT_EQ(generateOne(world, "Pi*1000", v), 0);
    EXPECT_FLOAT_EQ(v, 3142.0f);
    EXPECT_EQ(generateOne(world, "pi*1000", v), 203);
    // "^" is no separator on either side: w stays in the text.
    EXPECT_EQ(generateOne(world, "2^w", v), 203);
    EXPECT_EQ(generateOne(world, "(w)^2", v), 0);
    EXPECT_FLOAT_EQ(v, 4.0f);
}

TEST(CVRConstant, SubstitutionEndsForNamesInsideTheirOwnValue) {
    CDSC_World world;
    world.InsertConstant("0", "5", "", 1);  // "5.000" holds "0" again
    world.InsertConstant("", "1", "", 1);
    EXPECT_EQ(world.GenerateConstants(), 0);
    float v = 0.0f;
    EXPECT_EQ(generateOne(world, "0", v), 0);
    EXPECT_FLOAT_EQ(v, 5.0f);
}

TEST(CVRConstant, UpdateByName) {
    CDSC_World world;
    world.InsertConstant("a", "1", "", 1);
    world.InsertConstant("a", "2", "", 1);
    EXPECT_EQ(world.UpdateConstant("a", "7+1"), 0);
    EXPECT_FLOAT_EQ(world.m_Constants[0]->m_fValue, 8.0f);
    EXPECT_EQ(world.m_Constants[1]->m_strValue, "2");  // only the first of that name
    EXPECT_EQ(world.UpdateConstant("nobody", "3"), 0);
    EXPECT_EQ(world.m_Constants.size(), 2u);
}

TEST(CVRConstant, ArchiveForm) {
    CVRConstant c(nullptr, "width", "4,5", "room width", 0);
    c.m_fValue = 4.5f;
    std::vector<uint8_t> bytes = qktest::StoreBytes(c);
    // version, three counted strings around the value, the flag
    EXPECT_EQ(bytes.size(), 4u + 6u + 4u + 4u + 11u + 4u);
    CVRConstant back;
    qktest::LoadBytes(back, bytes);
    EXPECT_EQ(back.m_strValue, "4,5");
    EXPECT_EQ(back.m_fValue, 4.5f);

    bytes.pop_back();
    CVRConstant partial;
    EXPECT_THROW(qktest::LoadBytes(partial, bytes), qk::CArchiveException);
}
