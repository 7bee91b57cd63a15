#include "support/ScopedSettingsDir.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace qktest {

ScopedSettingsDir::ScopedSettingsDir(const std::string &name) {
    namespace fs = std::filesystem;
    m_path =
        (fs::path(testing::TempDir()) / ("qk_settings_" + name + "_" + std::to_string(::getpid())))
            .string();
    fs::remove_all(m_path);
    fs::create_directories(m_path);
    const char *previous = std::getenv("QK_SETTINGS_DIR");
    m_hadPrevious = previous != nullptr;
    if (m_hadPrevious) {
        m_previous = previous;
    }
    ::setenv("QK_SETTINGS_DIR", m_path.c_str(), 1);
}

ScopedSettingsDir::~ScopedSettingsDir() {
    if (m_hadPrevious) {
        ::setenv("QK_SETTINGS_DIR", m_previous.c_str(), 1);
    } else {
        ::unsetenv("QK_SETTINGS_DIR");
    }
    std::error_code ec;
    std::filesystem::permissions(m_path, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(m_path, ec);
}

std::vector<std::string> ScopedSettingsDir::Files() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(m_path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<uint8_t> ReadBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
}

void WriteBytes(const std::string &path, const std::vector<uint8_t> &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

}  // namespace qktest
