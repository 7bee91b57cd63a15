#include "world/StringList.h"

#include <cstdint>

#include "platform/Archive.h"

void SerializeStringList(qk::CArchive &ar, std::vector<std::string> &list) {
    if (ar.IsStoring()) {
        ar << static_cast<uint32_t>(list.size());
        for (const std::string &s : list) {
            ar << s;
        }
        return;
    }
    uint32_t count = 0;
    ar >> count;
    const int64_t remaining = ar.Remaining();
    if (remaining >= 0 && count > static_cast<uint64_t>(remaining)) {
        throw qk::CArchiveException(qk::CArchiveException::badData,
                                    "more strings than bytes left in the archive");
    }
    std::vector<std::string> loaded;
    for (uint32_t i = 0; i < count; ++i) {
        std::string s;
        ar >> s;
        loaded.push_back(std::move(s));
    }
    list = std::move(loaded);
}
