#include "platform/FileReplace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace qk {
namespace {
constexpr mode_t kFileMode = 0644;

bool writeAll(int fd, const std::vector<uint8_t> &bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            if (n == 0) {
                errno = ENOSPC;
            }
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

int makeTemp(const std::string &path, std::string &strTemp) {
    strTemp = path + ".XXXXXX";
    const int fd = ::mkstemp(strTemp.data());
    if (fd >= 0) {
        ::fchmod(fd, kFileMode);
    }
    return fd;
}
}  // namespace

bool ReplaceFile(const std::string &path, const std::vector<uint8_t> &bytes,
                 std::string &strError) {
    std::string temp;
    const int fd = makeTemp(path, temp);
    if (fd < 0) {
        strError = std::strerror(errno);
        return false;
    }
    bool ok = writeAll(fd, bytes) && ::fsync(fd) == 0;
    int error = errno;
    if (::close(fd) != 0 && ok) {
        ok = false;
        error = errno;
    }
    if (ok && std::rename(temp.c_str(), path.c_str()) != 0) {
        ok = false;
        error = errno;
    }
    if (!ok) {
        ::unlink(temp.c_str());
        strError = std::strerror(error);
    }
    return ok;
}

std::string MakeTempBeside(const std::string &path) {
    std::string temp;
    const int fd = makeTemp(path, temp);
    if (fd < 0) {
        return std::string();
    }
    ::close(fd);
    return temp;
}

bool CommitTemp(const std::string &from, const std::string &to, std::string &strError) {
    if (std::rename(from.c_str(), to.c_str()) != 0) {
        strError = std::strerror(errno);
        ::unlink(from.c_str());
        return false;
    }
    return true;
}

}  // namespace qk
