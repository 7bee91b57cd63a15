// The archive form of a list of objects: a 32-bit count, then per element its class name and
// its own Serialize. Loading accepts only the class names given, so that an archive can't
// make an object of another kind (or nest worlds in scenes without end), and refuses a count
// that the bytes left can't hold before anything is made.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "platform/Archive.h"
#include "platform/Object.h"

template <class T>
void SerializeObjectList(qk::CArchive &ar, std::vector<std::unique_ptr<T>> &list,
                         std::initializer_list<const char *> allowed) {
    if (ar.IsStoring()) {
        ar << static_cast<uint32_t>(list.size());
        for (auto &element : list) {
            ar.WriteObject(*element);
        }
        return;
    }
    uint32_t count = 0;
    ar >> count;
    const int64_t remaining = ar.Remaining();
    if (remaining >= 0 && count > static_cast<uint64_t>(remaining) / 2) {
        throw qk::CArchiveException(qk::CArchiveException::badData,
                                    "more objects than bytes left in the archive");
    }
    std::vector<std::unique_ptr<T>> loaded;
    for (uint32_t i = 0; i < count; ++i) {
        std::string name;
        ar >> name;
        bool known = false;
        for (const char *a : allowed) {
            known = known || name == a;
        }
        std::unique_ptr<qk::CObject> object = known ? qk::ClassRegistry::Create(name) : nullptr;
        T *element = dynamic_cast<T *>(object.get());
        if (element == nullptr) {
            throw qk::CArchiveException(qk::CArchiveException::badClass,
                                        "unexpected class in archive: " + name);
        }
        object.release();
        loaded.emplace_back(element);
        element->Serialize(ar);
    }
    list = std::move(loaded);
}
