// Objects through their archive form, as bytes in memory.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/Archive.h"
#include "platform/Object.h"

namespace qktest {

// The bytes an object stores.
inline std::vector<uint8_t> StoreBytes(qk::CObject &object) {
    qk::CMemoryStream out;
    qk::CArchive ar(out, qk::CArchive::store);
    object.Serialize(ar);
    return out.Bytes();
}

// Loads an object from bytes; what is left of them.
inline int64_t LoadBytes(qk::CObject &object, const std::vector<uint8_t> &bytes) {
    qk::CMemoryStream in(bytes.data(), bytes.size());
    qk::CArchive ar(in, qk::CArchive::load);
    object.Serialize(ar);
    return ar.Remaining();
}

}  // namespace qktest
