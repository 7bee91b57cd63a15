// Folders of their own for one test: a variable the library reads points to a new, empty
// folder for the lifetime of the object and is put back afterwards.
#pragma once

#include <string>
#include <vector>

namespace qktest {

class ScopedFolder {
  public:
    ScopedFolder(const char *variable, const std::string &name);
    ~ScopedFolder();
    ScopedFolder(const ScopedFolder &) = delete;
    ScopedFolder &operator=(const ScopedFolder &) = delete;

    const std::string &Path() const { return m_path; }
    std::string File(const std::string &name) const { return m_path + "/" + name; }
    // Names of the files in the folder, sorted.
    std::vector<std::string> Files() const;

  private:
    const char *m_variable;
    std::string m_path;
    std::string m_previous;
    bool m_hadPrevious = false;
};

// QK_SETTINGS_DIR: the settings files.
class ScopedSettingsDir : public ScopedFolder {
  public:
    explicit ScopedSettingsDir(const std::string &name)
        : ScopedFolder("QK_SETTINGS_DIR", "settings_" + name) {}
};

// QK_COMMON_ROOT: the common folder, so that tests that make or break the material tables
// don't meet each other.
class ScopedCommonRoot : public ScopedFolder {
  public:
    explicit ScopedCommonRoot(const std::string &name)
        : ScopedFolder("QK_COMMON_ROOT", "common_" + name) {}
    // <root>/TORVELLAN/Common/Databases/<name>
    std::string Database(const std::string &name) const {
        return Path() + "/TORVELLAN/Common/Databases/" + name;
    }
};

}  // namespace qktest
