// The manifest of one shard of a pre-computed set: a text file of JSON lines beside the
// responses. Its first line tells which shard it is,
//   {"manifest":"quendarik precompute","shard":0,"of":4,"files":100}
// and each line after it one response file the shard wrote,
//   {"name":"0_..._0.wav","source":1,"place":[0.5,-1,1.2],"bytes":12345,"crc32":"1a2b3c4d"}
// (place: the listener's position in metres; crc32: of the whole file, as zlib computes it).
// The reader takes the text of any source as untrusted: a line is refused, with its number
// and the reason, unless every field is present, of its type and within its limits.
#pragma once

#include <cstdint>
#include <functional>
#include <istream>
#include <string>

namespace qkcli {

constexpr size_t kManifestMaxLine = 4096;  // bytes; real lines are under 200
constexpr size_t kManifestMaxName = 255;   // bytes of a file name, as the file systems allow
constexpr uint64_t kManifestMaxBytes = uint64_t{1} << 40;
constexpr double kManifestMaxCoordinate = 1e7;  // metres

struct ManifestHead {
    uint32_t shard = 0;
    uint32_t of = 1;
    uint64_t files = 0;  // entry lines that follow
};

struct ManifestEntry {
    std::string name;  // a plain file name (no folder), ending in ".wav"
    int source = 0;    // from 1
    double place[3] = {0.0, 0.0, 0.0};
    uint64_t bytes = 0;
    uint32_t crc32 = 0;
};

// The manifest's file name for a shard: "shard-K-of-N.manifest.jsonl".
std::string ManifestFileName(uint32_t shard, uint32_t of);
// True for a name ManifestFileName makes.
bool IsManifestFileName(const std::string &name);

// The lines, each ending in a newline. Coordinates are written to the centimetre, as the
// files' names hold them.
std::string ManifestHeadLine(const ManifestHead &head);
std::string ManifestEntryLine(const ManifestEntry &entry);

// One line (without its newline); false with the reason in error.
bool ParseManifestHead(const std::string &line, ManifestHead &head, std::string &error);
bool ParseManifestEntry(const std::string &line, ManifestEntry &entry, std::string &error);

// Reads a whole manifest: its first line into head, then onEntry for every entry in order.
// False at the first bad line or when the count of entries isn't the head's, with
// "line N: reason" (or the count's difference) in error; the entries before it have been
// passed on.
bool ReadManifest(std::istream &in, ManifestHead &head,
                  const std::function<void(const ManifestEntry &)> &onEntry, std::string &error);

}  // namespace qkcli
