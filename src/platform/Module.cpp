#include "platform/Module.h"

#include <dlfcn.h>
#include <link.h>

namespace qk {

CModule::~CModule() {
    Unload();
}

bool CModule::Load(const std::string &name) {
    Unload();
    m_handle = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
    return m_handle != nullptr;
}

void *CModule::Symbol(const std::string &name) const {
    return m_handle != nullptr ? dlsym(m_handle, name.c_str()) : nullptr;
}

std::string CModule::Path() const {
    if (m_handle == nullptr) {
        return std::string();
    }
    link_map *map = nullptr;
    if (dlinfo(m_handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr || map->l_name == nullptr) {
        return std::string();
    }
    return map->l_name;
}

void CModule::Unload() {
    if (m_handle != nullptr) {
        dlclose(m_handle);
        m_handle = nullptr;
    }
}

}  // namespace qk
