#include "support/WaveWriter.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

namespace qktest {
namespace {
void put32(std::vector<uint8_t> &out, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}
void put16(std::vector<uint8_t> &out, uint16_t v) {
    out.push_back(static_cast<uint8_t>(v));
    out.push_back(static_cast<uint8_t>(v >> 8));
}
void putId(std::vector<uint8_t> &out, const char *id) {
    out.insert(out.end(), id, id + 4);
}
}  // namespace

bool WriteWave(const std::string &path, const std::vector<int> &interleaved, int channels, int rate,
               int bits) {
    const uint32_t bytesPerSample = static_cast<uint32_t>(bits / 8);
    const uint32_t dataBytes = static_cast<uint32_t>(interleaved.size()) * bytesPerSample;
    std::vector<uint8_t> out;
    putId(out, "RIFF");
    put32(out, 4 + 8 + 16 + 8 + dataBytes);
    putId(out, "WAVE");
    putId(out, "fmt ");
    put32(out, 16);
    put16(out, 1);
    put16(out, static_cast<uint16_t>(channels));
    put32(out, static_cast<uint32_t>(rate));
    put32(out, static_cast<uint32_t>(rate) * bytesPerSample * static_cast<uint32_t>(channels));
    put16(out, static_cast<uint16_t>(bytesPerSample * static_cast<uint32_t>(channels)));
    put16(out, static_cast<uint16_t>(bits));
    putId(out, "data");
    put32(out, dataBytes);
    for (int v : interleaved) {
        if (bits == 8) {
            out.push_back(static_cast<uint8_t>(v));
        } else {
            put16(out, static_cast<uint16_t>(static_cast<int16_t>(v)));
        }
    }
    std::FILE *file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool ok = std::fwrite(out.data(), 1, out.size(), file) == out.size();
    return std::fclose(file) == 0 && ok;
}

std::string ScratchPath(const std::string &name) {
    return testing::TempDir() + "qk_" + std::to_string(getpid()) + "_" + name;
}

}  // namespace qktest
