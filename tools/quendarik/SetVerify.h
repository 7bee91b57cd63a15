// quendarik precompute --verify: a merged set checked against the manifests its shards wrote.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace qkcli {

struct VerifyCount {
    uint64_t manifests = 0;
    uint64_t files = 0;     // entries checked
    uint64_t problems = 0;  // lines written to out
};

// Reads every manifest in folder and checks each file they name (present, of its size, of its
// CRC-32), and that the manifests of every shard of the split are there. Writes one line to
// out for each missing, truncated or altered file, each missing or unreadable manifest.
VerifyCount VerifySet(const std::string &folder, std::FILE *out);

}  // namespace qkcli
