// A common folder of its own for one test: QK_COMMON_ROOT points to a new, empty folder for
// the lifetime of the object and is put back afterwards, so tests that make or break the
// material tables don't meet each other.
#pragma once

#include <string>

namespace qktest {

class ScopedCommonRoot {
  public:
    explicit ScopedCommonRoot(const std::string &name);
    ~ScopedCommonRoot();
    ScopedCommonRoot(const ScopedCommonRoot &) = delete;
    ScopedCommonRoot &operator=(const ScopedCommonRoot &) = delete;

    const std::string &Path() const { return m_path; }
    // <root>/TORVELLAN/Common/Databases/<name>
    std::string Database(const std::string &name) const;

  private:
    std::string m_path;
    std::string m_previous;
};

}  // namespace qktest
