#include "ShardManifest.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include <nlohmann/json.hpp>

#include "ShardPlan.h"

namespace qkcli {
namespace {
using nlohmann::json;
constexpr const char *kKind = "quendarik precompute";
constexpr const char *kSuffix = ".manifest.jsonl";

double centimetres(double metres) {
    return std::round(metres * 100.0) / 100.0;
}

bool plainName(const std::string &name) {
    if (name.empty() || name.size() > kManifestMaxName || name[0] == '.' || name.size() < 5 ||
        name.compare(name.size() - 4, 4, ".wav") != 0) {
        return false;
    }
    for (char c : name) {
        const bool ok = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                        (c >= 'A' && c <= 'Z') || c == '_' || c == '-' || c == '.';
        if (!ok) {
            return false;
        }
    }
    return true;
}

// A whole number of the object's field name, 0..limit.
bool unsignedField(const json &object, const char *name, uint64_t limit, uint64_t &value,
                   std::string &error) {
    const auto it = object.find(name);
    if (it == object.end() || !it->is_number_unsigned() || it->get<uint64_t>() > limit) {
        error = std::string("\"") + name + "\" is missing or not a whole number up to " +
                std::to_string(limit);
        return false;
    }
    value = it->get<uint64_t>();
    return true;
}

bool parseObject(const std::string &line, json &object, std::string &error) {
    if (line.size() > kManifestMaxLine) {
        error = "longer than " + std::to_string(kManifestMaxLine) + " bytes";
        return false;
    }
    object = json::parse(line, nullptr, false);
    if (object.is_discarded() || !object.is_object()) {
        error = "not a JSON object";
        return false;
    }
    return true;
}

bool hexCrc(const json &object, uint32_t &crc, std::string &error) {
    const auto it = object.find("crc32");
    const std::string text = it != object.end() && it->is_string() ? it->get<std::string>() : "";
    if (text.size() != 8 || text.find_first_not_of("0123456789abcdef") != std::string::npos) {
        error = "\"crc32\" is missing or not 8 lower-case hexadecimal digits";
        return false;
    }
    crc = static_cast<uint32_t>(std::stoul(text, nullptr, 16));
    return true;
}

bool placeField(const json &object, double place[3], std::string &error) {
    const auto it = object.find("place");
    if (it == object.end() || !it->is_array() || it->size() != 3) {
        error = "\"place\" is missing or not three numbers";
        return false;
    }
    for (size_t i = 0; i < 3; ++i) {
        const json &v = (*it)[i];
        if (!v.is_number() || !std::isfinite(v.get<double>()) ||
            std::fabs(v.get<double>()) > kManifestMaxCoordinate) {
            error = "\"place\" holds a number that isn't a coordinate in metres";
            return false;
        }
        place[i] = v.get<double>();
    }
    return true;
}

enum class LineRead { Line, End, TooLong };

// One line of at most kManifestMaxLine bytes; a longer one is not kept in memory.
LineRead readLine(std::istream &in, std::string &line) {
    line.clear();
    int c = 0;
    while ((c = in.get()) != std::char_traits<char>::eof() && c != '\n') {
        if (line.size() == kManifestMaxLine) {
            return LineRead::TooLong;
        }
        line.push_back(static_cast<char>(c));
    }
    return c == std::char_traits<char>::eof() && line.empty() ? LineRead::End : LineRead::Line;
}
}  // namespace

std::string ManifestFileName(uint32_t shard, uint32_t of) {
    return "shard-" + std::to_string(shard) + "-of-" + std::to_string(of) + kSuffix;
}

bool IsManifestFileName(const std::string &name) {
    unsigned shard = 0, of = 0;
    char rest[32] = {0};
    return std::sscanf(name.c_str(), "shard-%u-of-%u%31s", &shard, &of, rest) == 3 &&
           std::string(rest) == kSuffix && ManifestFileName(shard, of) == name;
}

std::string ManifestHeadLine(const ManifestHead &head) {
    nlohmann::ordered_json line = {
        {"manifest", kKind}, {"shard", head.shard}, {"of", head.of}, {"files", head.files}};
    return line.dump() + "\n";
}

std::string ManifestEntryLine(const ManifestEntry &entry) {
    char crc[9];
    std::snprintf(crc, sizeof crc, "%08x", static_cast<unsigned>(entry.crc32));
    nlohmann::ordered_json line = {
        {"name", entry.name},
        {"source", entry.source},
        {"place",
         {centimetres(entry.place[0]), centimetres(entry.place[1]), centimetres(entry.place[2])}},
        {"bytes", entry.bytes},
        {"crc32", crc}};
    return line.dump() + "\n";
}

bool ParseManifestHead(const std::string &line, ManifestHead &head, std::string &error) {
    json object;
    if (!parseObject(line, object, error)) {
        return false;
    }
    const auto kind = object.find("manifest");
    if (kind == object.end() || !kind->is_string() || kind->get<std::string>() != kKind) {
        error = std::string("not the first line of a manifest (\"manifest\":\"") + kKind + "\")";
        return false;
    }
    uint64_t shard = 0, of = 0, files = 0;
    if (!unsignedField(object, "shard", kMaxShards, shard, error) ||
        !unsignedField(object, "of", kMaxShards, of, error) ||
        !unsignedField(object, "files", kMaxResponses, files, error)) {
        return false;
    }
    if (shard >= of) {
        error = "shard " + std::to_string(shard) + " of " + std::to_string(of) + " doesn't exist";
        return false;
    }
    head = ManifestHead{static_cast<uint32_t>(shard), static_cast<uint32_t>(of), files};
    return true;
}

bool ParseManifestEntry(const std::string &line, ManifestEntry &entry, std::string &error) {
    json object;
    if (!parseObject(line, object, error)) {
        return false;
    }
    const auto name = object.find("name");
    if (name == object.end() || !name->is_string() || !plainName(name->get<std::string>())) {
        error = "\"name\" is missing or not the plain name of a .wav file";
        return false;
    }
    ManifestEntry e;
    e.name = name->get<std::string>();
    uint64_t source = 0;
    if (!unsignedField(object, "source", std::numeric_limits<int>::max(), source, error) ||
        !unsignedField(object, "bytes", kManifestMaxBytes, e.bytes, error) ||
        !placeField(object, e.place, error) || !hexCrc(object, e.crc32, error)) {
        return false;
    }
    if (source == 0) {
        error = "\"source\" counts from 1";
        return false;
    }
    e.source = static_cast<int>(source);
    entry = std::move(e);
    return true;
}

bool ReadManifest(std::istream &in, ManifestHead &head,
                  const std::function<void(const ManifestEntry &)> &onEntry, std::string &error) {
    std::string line;
    uint64_t number = 1, entries = 0;
    LineRead got = readLine(in, line);
    if (got == LineRead::End) {
        error = "empty";
        return false;
    }
    if (got == LineRead::TooLong || !ParseManifestHead(line, head, error)) {
        error = "line 1: " + (got == LineRead::TooLong ? "too long" : error);
        return false;
    }
    while ((got = readLine(in, line)) != LineRead::End) {
        ++number;
        ManifestEntry entry;
        if (got == LineRead::TooLong || !ParseManifestEntry(line, entry, error)) {
            error = "line " + std::to_string(number) + ": " +
                    (got == LineRead::TooLong ? "too long" : error);
            return false;
        }
        if (++entries > head.files) {
            error = "line " + std::to_string(number) + ": more files than the first line's " +
                    std::to_string(head.files);
            return false;
        }
        onEntry(entry);
    }
    if (entries != head.files) {
        error = "names " + std::to_string(entries) + " files where its first line says " +
                std::to_string(head.files);
        return false;
    }
    return true;
}

}  // namespace qkcli
