// Writing a file so that it is either replaced whole or left as it was: the new bytes go to a
// temporary file in the same folder, which is renamed over the old one only when every byte
// is on the disk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qk {

// Replaces (or creates) path with bytes. False, with the system's reason in strError, when
// anything fails; the old file is then untouched and no temporary file is left behind.
bool ReplaceFile(const std::string &path, const std::vector<uint8_t> &bytes, std::string &strError);

// A new, empty file beside path (path + ".XXXXXX", made unique), for a writer that needs a
// name of its own; empty when it can't be made. The caller renames or removes it.
std::string MakeTempBeside(const std::string &path);

// Renames from over to; false, with the reason in strError, when that fails (from is then
// removed).
bool CommitTemp(const std::string &from, const std::string &to, std::string &strError);

}  // namespace qk
