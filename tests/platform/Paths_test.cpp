#include "platform/Paths.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "platform/Report.h"

namespace {
// Sets an environment variable for the life of the object and puts the old value back.
class ScopedEnv {
  public:
    ScopedEnv(const char *name, const char *value) : m_name(name) {
        const char *old = std::getenv(name);
        m_hadOld = old != nullptr;
        if (m_hadOld) {
            m_old = old;
        }
        if (value != nullptr) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
    ~ScopedEnv() {
        if (m_hadOld) {
            setenv(m_name, m_old.c_str(), 1);
        } else {
            unsetenv(m_name);
        }
    }

  private:
    const char *m_name;
    std::string m_old;
    bool m_hadOld = false;
};
}  // namespace

TEST(Paths, SplitsAcceptBothSeparators) {
    EXPECT_EQ(qk::FileNamePart("C:\\Program Files\\TORVELLAN\\x.qkworld"), "x.qkworld");
    EXPECT_EQ(qk::FileNamePart("/a/b\\c.wav"), "c.wav");
    EXPECT_EQ(qk::FileNamePart("plain"), "plain");
    EXPECT_EQ(qk::FolderPart("/a/b\\c.wav"), "/a/b");
    EXPECT_EQ(qk::FolderPart("plain"), "");
    EXPECT_EQ(qk::FolderPart("/in_root.txt"), "/");
    EXPECT_TRUE(qk::IsAbsolutePath("/x"));
    EXPECT_TRUE(qk::IsAbsolutePath("D:\\x"));
    EXPECT_FALSE(qk::IsAbsolutePath("x/y"));
    EXPECT_EQ(qk::JoinPath("/a/", "/b"), "/a/b");
}

TEST(Paths, CommonFolderFollowsTheEnvironment) {
    {
        ScopedEnv root("QK_COMMON_ROOT", "/srv/qk/");
        EXPECT_EQ(qk::CommonFolder(), "/srv/qk");
    }
    ScopedEnv root("QK_COMMON_ROOT", nullptr);
    {
        ScopedEnv xdg("XDG_DATA_HOME", "/x/data");
        EXPECT_EQ(qk::CommonFolder(), "/x/data/quendarik");
    }
    ScopedEnv xdg("XDG_DATA_HOME", nullptr);
    ScopedEnv home("HOME", "/home/u");
    EXPECT_EQ(qk::CommonFolder(), "/home/u/.local/share/quendarik");
}

TEST(Paths, SettingsFolderPrefersTheVariableThenTheModuleThenTheProgram) {
    {
        ScopedEnv dir("QK_SETTINGS_DIR", "/etc/qk");
        EXPECT_EQ(qk::SettingsFolder("/usr/lib/libmQUENDARIKe.so"), "/etc/qk");
    }
    ScopedEnv dir("QK_SETTINGS_DIR", nullptr);
    EXPECT_EQ(qk::SettingsFolder("/usr/lib/libmQUENDARIKe.so"), "/usr/lib");
    const auto exe = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_EQ(qk::SettingsFolder(), exe.parent_path().string());
}

TEST(Paths, MissingCommonFilesFallBackToTheDataFolder) {
    namespace fs = std::filesystem;
    const fs::path base = fs::path(testing::TempDir()) / "paths_test";
    fs::remove_all(base);
    fs::create_directories(base / "data/TORVELLAN/Common/QKHRTF");
    std::ofstream(base / "data/TORVELLAN/Common/QKHRTF/set.qkhrtf") << "x";
    ScopedEnv root("QK_COMMON_ROOT", (base / "common").c_str());
    ScopedEnv data("QK_DATA_DIR", (base / "data").c_str());

    const std::string wanted = (base / "common/TORVELLAN/Common/QKHRTF/set.qkhrtf").string();
    EXPECT_EQ(qk::ResolveDataPath(wanted),
              (base / "data/TORVELLAN/Common/QKHRTF/set.qkhrtf").string());
    const std::string absent = (base / "common/none.qkhrtf").string();
    EXPECT_EQ(qk::ResolveDataPath(absent), absent);
    fs::remove_all(base);
}

namespace {
struct Seen {
    std::string text;
    std::string caption;
    int severity = -1;
    int calls = 0;
};

int recordAndAnswerYes(unsigned long user, const char *text, const char *caption, int severity) {
    auto *seen = reinterpret_cast<Seen *>(user);
    seen->text = text;
    seen->caption = caption;
    seen->severity = severity;
    ++seen->calls;
    return qk::kAnswerYes;
}
}  // namespace

TEST(Report, GoesToTheInstalledHandlerElseToStandardError) {
    Seen seen;
    qk::SetReportHandler(&recordAndAnswerYes, reinterpret_cast<unsigned long>(&seen));
    EXPECT_EQ(qk::Report("text", "FAILURE", qk::Severity::Error), qk::kAnswerOk);
    EXPECT_EQ(seen.text, "text");
    EXPECT_EQ(seen.caption, "FAILURE");
    EXPECT_EQ(seen.severity, 2);
    EXPECT_EQ(qk::Report("sure?", "", qk::Severity::Question), qk::kAnswerYes);

    qk::SetReportHandler(nullptr, 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(qk::Report("sure?", "Q", qk::Severity::Question), qk::kAnswerNo);
    const std::string line = testing::internal::GetCapturedStderr();
    EXPECT_NE(line.find("sure?"), std::string::npos);
    EXPECT_EQ(seen.calls, 2);
}
