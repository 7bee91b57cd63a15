// The archive form of a list of strings: a 32-bit count, then each string.
#pragma once

#include <string>
#include <vector>

namespace qk {
class CArchive;
}

// Loading replaces the list. A count that the bytes left can't hold (each string takes at
// least one byte) is refused with an archive error before anything is read.
void SerializeStringList(qk::CArchive &ar, std::vector<std::string> &list);
