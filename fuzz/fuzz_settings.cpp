// Bytes from the fuzzer as a settings file: either they load whole, and then store and load
// again to the same bytes, or they change nothing at all.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "settings/CQUENDARIC_PARAMETERS.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // Never destroyed, so that no settings file is written for every input.
    static CQUENDARIC_PARAMETERS *s_params = new CQUENDARIC_PARAMETERS;
    const std::vector<uint8_t> before = s_params->StoreSettings();
    if (!s_params->LoadSettings(data, size)) {
        if (s_params->StoreSettings() != before) {
            std::abort();  // a refused file changed the settings
        }
        return 0;
    }
    const std::vector<uint8_t> stored = s_params->StoreSettings();
    if (!s_params->LoadSettings(stored.data(), stored.size()) ||
        s_params->StoreSettings() != stored) {
        std::abort();  // what was stored does not load back as it was
    }
    return 0;
}
