// A loadable module (shared object) and the look-up of its entries.
#pragma once

#include <string>

namespace qk {

class CModule {
  public:
    CModule() = default;
    ~CModule();
    CModule(const CModule &) = delete;
    CModule &operator=(const CModule &) = delete;

    // Loads the module from the library path; false when it is not there.
    bool Load(const std::string &name);
    bool IsLoaded() const { return m_handle != nullptr; }
    // The address of an entry, or null.
    void *Symbol(const std::string &name) const;
    // The file the module was loaded from, empty when none.
    std::string Path() const;
    void Unload();

  private:
    void *m_handle = nullptr;
};

}  // namespace qk
