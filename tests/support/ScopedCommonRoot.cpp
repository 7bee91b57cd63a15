#include "support/ScopedCommonRoot.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace qktest {

ScopedCommonRoot::ScopedCommonRoot(const std::string &name) {
    namespace fs = std::filesystem;
    m_path =
        (fs::path(testing::TempDir()) / ("qk_common_" + name + "_" + std::to_string(::getpid())))
            .string();
    fs::remove_all(m_path);
    fs::create_directories(m_path);
    const char *previous = std::getenv("QK_COMMON_ROOT");
    m_previous = previous != nullptr ? previous : "";
    ::setenv("QK_COMMON_ROOT", m_path.c_str(), 1);
}

ScopedCommonRoot::~ScopedCommonRoot() {
    ::setenv("QK_COMMON_ROOT", m_previous.c_str(), 1);
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
}

std::string ScopedCommonRoot::Database(const std::string &name) const {
    return m_path + "/TORVELLAN/Common/Databases/" + name;
}

}  // namespace qktest
