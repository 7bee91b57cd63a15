// Bytes from the fuzzer as a shard's manifest and as the head of a response file. A manifest
// either reads or is refused with a reason; every line it accepts, written again and read
// back, gives the same line.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "SetFileCheck.h"
#include "ShardManifest.h"

namespace {
void sameAfterRoundTrip(const qkcli::ManifestEntry &entry) {
    const std::string line = qkcli::ManifestEntryLine(entry);
    qkcli::ManifestEntry again;
    std::string error;
    if (!qkcli::ParseManifestEntry(line.substr(0, line.size() - 1), again, error) ||
        qkcli::ManifestEntryLine(again) != line) {
        std::abort();  // what the writer makes, the reader must take back as it was
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char *>(data), size));
    qkcli::ManifestHead head;
    std::string error;
    if (qkcli::ReadManifest(in, head, sameAfterRoundTrip, error)) {
        const std::string line = qkcli::ManifestHeadLine(head);
        qkcli::ManifestHead again;
        if (!qkcli::ParseManifestHead(line.substr(0, line.size() - 1), again, error) ||
            qkcli::ManifestHeadLine(again) != line) {
            std::abort();
        }
    } else if (error.empty()) {
        std::abort();  // a refusal always says why
    }
    qkcli::SetFileHeaderWhole(data, size, size);
    qkcli::SetFileHeaderWhole(data, size, uint64_t{size} * 3);
    return 0;
}
