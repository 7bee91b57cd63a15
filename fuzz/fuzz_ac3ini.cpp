// The AC-3 source's settings file: sections, keys, values and comments in any bytes.
#include <cstddef>
#include <cstdint>
#include <string>

#include "sources/Ac3Settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    CAc3Settings settings;
    settings.Parse(std::string(reinterpret_cast<const char *>(data), size));
    return 0;
}
