#include "world/FileBytes.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace qk::files {

bool ReadBytes(const std::string &path, size_t limit, std::vector<uint8_t> &out,
               uint64_t &fileSize) {
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec)) {
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    fileSize = std::filesystem::file_size(path, ec);
    if (ec) {
        return false;
    }
    const size_t n = fileSize < limit ? static_cast<size_t>(fileSize) : limit;
    out.assign(n, 0);
    in.read(reinterpret_cast<char *>(out.data()), static_cast<std::streamsize>(n));
    out.resize(static_cast<size_t>(in.gcount()));
    return true;
}

bool ReplaceFile(const std::string &path, const std::vector<uint8_t> &bytes) {
    const std::string temp = path + ".qktmp";
    std::FILE *file = std::fopen(temp.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool written =
        bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed || std::rename(temp.c_str(), path.c_str()) != 0) {
        std::remove(temp.c_str());
        return false;
    }
    return true;
}

bool Exists(const std::string &path) {
    std::error_code ec;
    return std::filesystem::exists(path, ec);
}

}  // namespace qk::files
