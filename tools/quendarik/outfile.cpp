#include "outfile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

namespace qkcli {

OutputFile::OutputFile(std::string strPath) : m_strPath(std::move(strPath)) {}

OutputFile::~OutputFile() {
    if (!m_strTemporary.empty() && !m_bCommitted) {
        std::remove(m_strTemporary.c_str());
    }
}

bool OutputFile::Open(std::string &strReason) {
    namespace fs = std::filesystem;
    if (m_strPath.empty()) {
        strReason = "no file name";
        return false;
    }
    std::error_code ec;
    if (fs::is_directory(m_strPath, ec)) {
        strReason = "it is a folder";
        return false;
    }
    // A hidden name beside the file, unique to this run: mkstemp makes it.
    const fs::path path(m_strPath);
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::string name = (folder / ("." + path.filename().string() + ".XXXXXX")).string();
    std::vector<char> pattern(name.begin(), name.end());
    pattern.push_back('\0');
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) {
        strReason = std::strerror(errno);
        return false;
    }
    // mkstemp makes the file for its owner alone; the file gets what a plain create would.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
    ::close(fd);
    m_strTemporary = pattern.data();
    return true;
}

bool OutputFile::Commit(std::string &strReason) {
    if (m_strTemporary.empty()) {
        strReason = "nothing was written";
        return false;
    }
    if (std::rename(m_strTemporary.c_str(), m_strPath.c_str()) != 0) {
        strReason = std::strerror(errno);
        std::remove(m_strTemporary.c_str());
        return false;
    }
    m_bCommitted = true;
    return true;
}

bool OpenOutput(const char *pcCommand, OutputFile &out) {
    std::string reason;
    if (out.Open(reason)) {
        return true;
    }
    std::fprintf(stderr, "quendarik %s: can't write %s: %s\n", pcCommand, out.Path().c_str(),
                 reason.c_str());
    return false;
}

bool CommitOutput(const char *pcCommand, OutputFile &out) {
    std::string reason;
    if (out.Commit(reason)) {
        return true;
    }
    std::fprintf(stderr, "quendarik %s: can't write %s: %s\n", pcCommand, out.Path().c_str(),
                 reason.c_str());
    return false;
}

}  // namespace qkcli
