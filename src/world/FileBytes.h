// Whole-file reads with a size limit, and writes that replace a file only once the new one
// is complete (a temporary file beside it, then a rename).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qk::files {

// The first at most limit bytes of the file; the file's full size goes to fileSize. False
// when it can't be opened.
bool ReadBytes(const std::string &path, size_t limit, std::vector<uint8_t> &out,
               uint64_t &fileSize);

// Writes the bytes to path through "path.qktmp"; false, with path untouched, on failure.
bool ReplaceFile(const std::string &path, const std::vector<uint8_t> &bytes);

bool Exists(const std::string &path);

}  // namespace qk::files
