// quendarik world info, run as a user runs it.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/ScopedSettingsDir.h"

#ifdef QK_TEST_CLI
namespace {
std::string run(const std::string &arguments) {
    std::string output;
    FILE *pipe = ::popen((std::string(QK_TEST_CLI) + " " + arguments + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return output;
    }
    char buffer[512];
    while (std::fgets(buffer, sizeof(buffer), pipe) != nullptr) {
        output += buffer;
    }
    ::pclose(pipe);
    return output;
}

double rt60(const std::string &output) {
    const size_t at = output.find("RT60 (Sabine): ");
    return at == std::string::npos ? -1.0 : std::stod(output.substr(at + 15));
}
}  // namespace

TEST(WorldInfo, TellsTheSabineReverberationTimeOfARoom) {
    qktest::ScopedCommonRoot root("worldinfo");
    // By hand, from the default rows: the mean of the eight bands of each material.
    const double floor = (8 + 24 + 57 + 69 + 71 + 73 + 73 + 73) / 800.0;  // abs_floor
    const double ceiling = (10 + 5 + 6 + 7 + 9 + 8 + 8 + 8) / 800.0;      // abs_ceiling
    const double wall = (29 + 10 + 5 + 4 + 7 + 9 + 9 + 9) / 800.0;        // abs_wall
    const double absorption = 36 * floor + 36 * ceiling + 4 * 24 * wall;  // 6 x 6 x 4 m
    const double expected = 0.163 * 144 / absorption;

    const std::string output = run("world info --room 6 6 4");
    EXPECT_NEAR(rt60(output), expected, 0.0005) << output;
    EXPECT_NE(output.find("volume: 144.00 m3"), std::string::npos) << output;
    EXPECT_NE(output.find("back_wall"), std::string::npos) << output;

    const std::string broken = run("world info --room 6 six 4");
    EXPECT_EQ(rt60(broken), -1.0);
    EXPECT_NE(broken.find("usage"), std::string::npos);
}

TEST(WorldInfo, ListsTheMaterialsTable) {
    qktest::ScopedCommonRoot root("materials_cli");
    const std::string output = run("materials");
    EXPECT_NE(output.find("abs_ceiling"), std::string::npos) << output;
    EXPECT_NE(output.find("Carpet on pad"), std::string::npos) << output;
}
#endif
