#include "support/RiffBytes.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace qktest {

Bytes ReadFileBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void WriteFileBytes(const std::string &path, const Bytes &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

uint16_t LE16(const Bytes &b, size_t at) {
    return static_cast<uint16_t>(b.at(at) | b.at(at + 1) << 8);
}

uint32_t LE32(const Bytes &b, size_t at) {
    return static_cast<uint32_t>(LE16(b, at)) | static_cast<uint32_t>(LE16(b, at + 2)) << 16;
}

std::vector<RawChunk> ChunksOf(const Bytes &file) {
    std::vector<RawChunk> chunks;
    size_t at = 12;
    while (at + 8 <= file.size()) {
        const uint32_t size = LE32(file, at + 4);
        chunks.push_back({std::string(file.begin() + at, file.begin() + at + 4), size, at + 8});
        at += 8 + size + (size & 1);
    }
    return chunks;
}

namespace {
void append32(Bytes &out, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}
}  // namespace

void AppendChunk(Bytes &out, const std::string &id, const Bytes &payload, int64_t size) {
    out.insert(out.end(), id.begin(), id.end());
    append32(out, static_cast<uint32_t>(size < 0 ? payload.size() : static_cast<size_t>(size)));
    out.insert(out.end(), payload.begin(), payload.end());
    if (payload.size() % 2 == 1) {
        out.push_back(0);
    }
}

Bytes PcmFormat(int channels, int rate, int bits) {
    Bytes f;
    const int align = channels * bits / 8;
    f.push_back(1);
    f.push_back(0);
    f.push_back(static_cast<uint8_t>(channels));
    f.push_back(0);
    append32(f, static_cast<uint32_t>(rate));
    append32(f, static_cast<uint32_t>(rate * align));
    f.push_back(static_cast<uint8_t>(align));
    f.push_back(0);
    f.push_back(static_cast<uint8_t>(bits));
    f.push_back(0);
    return f;
}

Bytes RiffWave(const Bytes &chunks, int64_t size) {
    Bytes out = {'R', 'I', 'F', 'F'};
    append32(out, static_cast<uint32_t>(size < 0 ? chunks.size() + 4 : static_cast<size_t>(size)));
    out.insert(out.end(), {'W', 'A', 'V', 'E'});
    out.insert(out.end(), chunks.begin(), chunks.end());
    return out;
}

std::pair<double, double> StereoEnergies(const std::string &path) {
    const Bytes bytes = ReadFileBytes(path);
    double sum[2] = {0.0, 0.0};
    for (const RawChunk &c : ChunksOf(bytes)) {
        const size_t end = std::min<size_t>(bytes.size(), c.dataOffset + c.size);
        for (size_t at = c.dataOffset; c.id == "data" && at + 4 <= end; at += 4) {
            for (size_t ch = 0; ch < 2; ++ch) {
                const double v = static_cast<int16_t>(LE16(bytes, at + 2 * ch));
                sum[ch] += v * v;
            }
        }
    }
    return {sum[0], sum[1]};
}

int OpenFileCount() {
    int count = 0;
    for ([[maybe_unused]] const auto &entry :
         std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

}  // namespace qktest
