// Checks on the files of a pre-computed set: whether a response file is whole, judged from its
// header and size, and the CRC-32 that manifests keep of each file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qkcli {

// Bytes of the header of a response file as the program writes it ("RIFF" ... "WAVE", a
// 16-byte "fmt ", a 4-byte "fact" and the "data" chunk's own 8 bytes), and of each frame.
constexpr uint64_t kSetFileHeaderBytes = 56;
constexpr uint64_t kSetFileFrameBytes = 4;  // two channels of 16 bits

// Bytes of a response file read to judge its header; the chunks before "data" must lie there.
constexpr size_t kSetFileHeadRead = 256;

// The CRC-32 of IEEE 802.3 (zlib's crc32, `crc32` of the shell), continued from crc (0 for
// new data).
uint32_t Crc32(uint32_t crc, const uint8_t *pbData, size_t size);

// True when the first bytes of a file of fileSize bytes (head holds min(headSize, fileSize)
// of them) are those of a whole response file: RIFF WAVE whose sizes agree with the file's,
// 16-bit stereo PCM at 44100 Hz, and a "data" chunk that ends where the file ends.
bool SetFileHeaderWhole(const uint8_t *pbHead, size_t headSize, uint64_t fileSize);

// The same, for a file on disk; false when it can't be read.
bool SetFileWhole(const std::string &path);

// Size and CRC-32 of a file; false when it can't be read.
bool FileDigest(const std::string &path, uint64_t &bytes, uint32_t &crc);

}  // namespace qkcli
