// Writes small PCM wave files byte by byte for tests, independently of the library's own
// wave writer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qktest {

// Interleaved frames of 16-bit samples (or 8-bit when bits is 8: each value's low byte).

bool WriteWave(const std::string &path, const std::vector<int> &interleaved, int channels, int rate,
               int bits);

// A unique file name in the test's scratch folder.
std::string ScratchPath(const std::string &name);

}  // namespace qktest
