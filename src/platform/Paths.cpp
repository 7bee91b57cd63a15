#include "platform/Paths.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>

namespace qk {
namespace {
std::string envOr(const char *name, const std::string &fallback) {
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0' ? std::string(value) : fallback;
}

std::string stripTrailingSeparators(std::string path) {
    while (path.size() > 1 && (path.back() == '/' || path.back() == '\\')) {
        path.pop_back();
    }
    return path;
}

bool startsWithFolder(const std::string &path, const std::string &folder) {
    return !folder.empty() && path.size() > folder.size() &&
           path.compare(0, folder.size(), folder) == 0 &&
           (path[folder.size()] == '/' || path[folder.size()] == '\\');
}
}  // namespace

std::string CommonFolder() {
    const char *root = std::getenv("QK_COMMON_ROOT");
    if (root != nullptr && *root != '\0') {
        return stripTrailingSeparators(root);
    }
    const char *xdg = std::getenv("XDG_DATA_HOME");
    if (xdg != nullptr && *xdg != '\0') {
        return JoinPath(stripTrailingSeparators(xdg), "quendarik");
    }
    return JoinPath(envOr("HOME", "/tmp"), ".local/share/quendarik");
}

std::string DataFolder() {
#ifdef QK_DATA_DIR
    return stripTrailingSeparators(envOr("QK_DATA_DIR", QK_DATA_DIR));
#else
    return stripTrailingSeparators(envOr("QK_DATA_DIR", "/usr/local/share/quendarik"));
#endif
}

std::string SettingsFolder(const std::string &modulePath) {
    const char *dir = std::getenv("QK_SETTINGS_DIR");
    if (dir != nullptr && *dir != '\0') {
        return stripTrailingSeparators(dir);
    }
    if (!modulePath.empty()) {
        return FolderPart(modulePath);
    }
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::string(".") : exe.parent_path().string();
}

std::string FileNamePart(const std::string &path) {
    const size_t cut = path.find_last_of("/\\");
    return cut == std::string::npos ? path : path.substr(cut + 1);
}

std::string FolderPart(const std::string &path) {
    const size_t cut = path.find_last_of("/\\");
    if (cut == std::string::npos) {
        return std::string();
    }
    return cut == 0 ? path.substr(0, 1) : path.substr(0, cut);  // "/x" is in the root, "/"
}

bool IsAbsolutePath(const std::string &path) {
    if (!path.empty() && path[0] == '/') {
        return true;
    }
    return path.size() >= 3 && std::isalpha(static_cast<unsigned char>(path[0])) &&
           path[1] == ':' && (path[2] == '\\' || path[2] == '/');
}

std::string JoinPath(const std::string &folder, const std::string &relative) {
    if (folder.empty()) {
        return relative;
    }
    std::string rel = relative;
    while (!rel.empty() && (rel.front() == '/' || rel.front() == '\\')) {
        rel.erase(rel.begin());
    }
    if (folder.back() == '/' || folder.back() == '\\') {
        return folder + rel;
    }
    return folder + "/" + rel;
}

std::string ResolveDataPath(const std::string &path) {
    std::error_code ec;
    if (std::filesystem::exists(path, ec)) {
        return path;
    }
    const std::string common = CommonFolder();
    if (startsWithFolder(path, common)) {
        const std::string fallback = JoinPath(DataFolder(), path.substr(common.size() + 1));
        if (std::filesystem::exists(fallback, ec)) {
            return fallback;
        }
    }
    return path;
}

std::string ToUpper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

}  // namespace qk
