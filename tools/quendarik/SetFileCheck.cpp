#include "SetFileCheck.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>

namespace qkcli {
namespace {
constexpr uint32_t kCrcPolynomial = 0xEDB88320u;  // reflected 0x04C11DB7
constexpr uint32_t kRate = 44100;
constexpr uint16_t kChannels = 2;
constexpr uint16_t kBits = 16;
constexpr uint16_t kPcm = 1;
constexpr uint32_t kPcmFormatBytes = 16;
constexpr size_t kReadBlock = 1 << 16;

const std::array<uint32_t, 256> &crcTable() {
    static const std::array<uint32_t, 256> table = [] {
        std::array<uint32_t, 256> t{};
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int k = 0; k < 8; ++k) {
                c = (c & 1u) != 0 ? kCrcPolynomial ^ (c >> 1) : c >> 1;
            }
            t[i] = c;
        }
        return t;
    }();
    return table;
}

uint32_t le32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

uint16_t le16(const uint8_t *p) {
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}

bool pcmStereo16(const uint8_t *p, uint32_t size) {
    return size >= kPcmFormatBytes && le16(p) == kPcm && le16(p + 2) == kChannels &&
           le32(p + 4) == kRate && le32(p + 8) == kRate * kChannels * kBits / 8 &&
           le16(p + 12) == kChannels * kBits / 8 && le16(p + 14) == kBits;
}

struct FileCloser {
    void operator()(std::FILE *f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;
}  // namespace

uint32_t Crc32(uint32_t crc, const uint8_t *pbData, size_t size) {
    const std::array<uint32_t, 256> &table = crcTable();
    crc = ~crc;
    for (size_t i = 0; i < size; ++i) {
        crc = table[(crc ^ pbData[i]) & 0xFFu] ^ (crc >> 8);
    }
    return ~crc;
}

bool SetFileHeaderWhole(const uint8_t *pbHead, size_t headSize, uint64_t fileSize) {
    const size_t have = static_cast<size_t>(std::min<uint64_t>(headSize, fileSize));
    if (have < 12 || std::memcmp(pbHead, "RIFF", 4) != 0 ||
        std::memcmp(pbHead + 8, "WAVE", 4) != 0 || uint64_t{le32(pbHead + 4)} + 8 != fileSize) {
        return false;
    }
    bool format = false;
    // Chunks in the head, each whole before the next is looked at; "data" must run to the end.
    for (size_t at = 12; at + 8 <= have;) {
        const uint8_t *chunk = pbHead + at;
        const uint32_t size = le32(chunk + 4);
        if (std::memcmp(chunk, "data", 4) == 0) {
            return format && size % (kChannels * kBits / 8) == 0 &&
                   uint64_t{at} + 8 + size == fileSize;
        }
        const uint64_t next = uint64_t{at} + 8 + size + (size & 1u);
        if (next > have) {
            return false;
        }
        if (std::memcmp(chunk, "fmt ", 4) == 0) {
            format = pcmStereo16(chunk + 8, size);
        }
        at = static_cast<size_t>(next);
    }
    return false;
}

bool SetFileWhole(const std::string &path) {
    File f(std::fopen(path.c_str(), "rb"));
    if (!f || std::fseek(f.get(), 0, SEEK_END) != 0) {
        return false;
    }
    const long size = std::ftell(f.get());
    if (size < 0 || std::fseek(f.get(), 0, SEEK_SET) != 0) {
        return false;
    }
    uint8_t head[kSetFileHeadRead];
    const size_t got = std::fread(head, 1, sizeof head, f.get());
    return SetFileHeaderWhole(head, got, static_cast<uint64_t>(size));
}

bool FileDigest(const std::string &path, uint64_t &bytes, uint32_t &crc) {
    File f(std::fopen(path.c_str(), "rb"));
    if (!f) {
        return false;
    }
    std::unique_ptr<uint8_t[]> block(new uint8_t[kReadBlock]);
    bytes = 0;
    crc = 0;
    size_t got = 0;
    while ((got = std::fread(block.get(), 1, kReadBlock, f.get())) > 0) {
        crc = Crc32(crc, block.get(), got);
        bytes += got;
    }
    return std::ferror(f.get()) == 0;
}

}  // namespace qkcli
