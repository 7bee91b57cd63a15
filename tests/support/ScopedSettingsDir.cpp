#include "support/ScopedSettingsDir.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace qktest {

ScopedFolder::ScopedFolder(const char *variable, const std::string &name) : m_variable(variable) {
    namespace fs = std::filesystem;
    m_path =
        (fs::path(testing::TempDir()) / ("qk_" + name + "_" + std::to_string(::getpid()))).string();
    fs::remove_all(m_path);
    fs::create_directories(m_path);
    const char *previous = std::getenv(m_variable);
    m_hadPrevious = previous != nullptr;
    if (m_hadPrevious) {
        m_previous = previous;
    }
    ::setenv(m_variable, m_path.c_str(), 1);
}

ScopedFolder::~ScopedFolder() {
    if (m_hadPrevious) {
        ::setenv(m_variable, m_previous.c_str(), 1);
    } else {
        ::unsetenv(m_variable);
    }
    std::error_code ec;
    std::filesystem::permissions(m_path, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(m_path, ec);
}

std::vector<std::string> ScopedFolder::Files() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(m_path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace qktest
