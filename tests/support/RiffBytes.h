// Independent handling of RIFF bytes for the wave file tests: reading a file whole, walking
// its chunks, and building files (good, odd or broken) byte by byte.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qktest {

using Bytes = std::vector<uint8_t>;

Bytes ReadFileBytes(const std::string &path);
void WriteFileBytes(const std::string &path, const Bytes &bytes);

uint16_t LE16(const Bytes &b, size_t at);
uint32_t LE32(const Bytes &b, size_t at);

struct RawChunk {
    std::string id;
    uint32_t size;
    size_t dataOffset;
};
// The chunks inside a RIFF WAVE file, walked from byte 12 by their declared sizes.
std::vector<RawChunk> ChunksOf(const Bytes &file);

// Appends a chunk: id, little-endian size (the payload's unless given), payload, pad byte.
void AppendChunk(Bytes &out, const std::string &id, const Bytes &payload, int64_t size = -1);
// A 16-byte PCM format payload.
Bytes PcmFormat(int channels, int rate, int bits);
// "RIFF" size "WAVE" followed by the given chunks' bytes (size computed unless given).
Bytes RiffWave(const Bytes &chunks, int64_t size = -1);

// The sums of squares of the two channels of a 16-bit stereo wave file.
std::pair<double, double> StereoEnergies(const std::string &path);

// Open file descriptors of this process, for checks that nothing leaks.
int OpenFileCount();

}  // namespace qktest
