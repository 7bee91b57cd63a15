#include "SetVerify.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

#include "SetFileCheck.h"
#include "ShardManifest.h"

namespace qkcli {
namespace {
namespace fs = std::filesystem;

void checkEntry(const fs::path &folder, const ManifestEntry &entry, std::FILE *out,
                VerifyCount &count) {
    ++count.files;
    uint64_t bytes = 0;
    uint32_t crc = 0;
    const char *name = entry.name.c_str();
    if (!FileDigest((folder / entry.name).string(), bytes, crc)) {
        std::fprintf(out, "missing: %s\n", name);
    } else if (bytes < entry.bytes) {
        std::fprintf(out, "truncated: %s (%llu of %llu bytes)\n", name,
                     static_cast<unsigned long long>(bytes),
                     static_cast<unsigned long long>(entry.bytes));
    } else if (bytes != entry.bytes || crc != entry.crc32) {
        std::fprintf(out, "altered: %s (%s)\n", name,
                     bytes != entry.bytes ? "longer than written" : "its CRC-32 differs");
    } else {
        return;
    }
    ++count.problems;
}

std::vector<std::string> manifestNames(const fs::path &folder) {
    std::vector<std::string> names;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        const std::string name = it->path().filename().string();
        if (IsManifestFileName(name)) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}
}  // namespace

VerifyCount VerifySet(const std::string &folder, std::FILE *out) {
    VerifyCount count;
    const std::vector<std::string> names = manifestNames(folder);
    if (names.empty()) {
        std::fprintf(out, "no manifest (shard-K-of-N.manifest.jsonl) in %s\n", folder.c_str());
        ++count.problems;
        return count;
    }
    uint32_t of = 0;
    std::vector<bool> seen;
    for (const std::string &name : names) {
        ++count.manifests;
        std::ifstream in(fs::path(folder) / name, std::ios::binary);
        ManifestHead head;
        std::string error = "can't be opened";
        const bool ok = in && ReadManifest(
                                  in, head,
                                  [&](const ManifestEntry &entry) {
                                      // A manifest under another shard's name is told once, not
                                      // file by file.
                                      if (name == ManifestFileName(head.shard, head.of)) {
                                          checkEntry(folder, entry, out, count);
                                      }
                                  },
                                  error);
        if (!ok) {
            std::fprintf(out, "unreadable manifest: %s: %s\n", name.c_str(), error.c_str());
            ++count.problems;
        }
        if (!ok || name != ManifestFileName(head.shard, head.of)) {
            if (ok) {
                std::fprintf(out, "unreadable manifest: %s: its first line is shard %u of %u\n",
                             name.c_str(), head.shard, head.of);
                ++count.problems;
            }
            continue;
        }
        if (of == 0) {
            of = head.of;
            seen.assign(of, false);
        }
        if (head.of != of) {
            std::fprintf(out,
                         "foreign manifest: %s (the manifests before it split the set in %u)\n",
                         name.c_str(), of);
            ++count.problems;
            continue;
        }
        seen[head.shard] = true;
    }
    for (uint32_t k = 0; k < seen.size(); ++k) {
        if (!seen[k]) {
            std::fprintf(out, "missing manifest: %s\n", ManifestFileName(k, of).c_str());
            ++count.problems;
        }
    }
    return count;
}

}  // namespace qkcli
