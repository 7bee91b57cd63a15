#pragma once

#include <chrono>
#include <cstdint>

namespace qk {

// Milliseconds of a monotonic clock; only differences have a meaning.
inline uint32_t GetTickCount() {
    using namespace std::chrono;
    return static_cast<uint32_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace qk
