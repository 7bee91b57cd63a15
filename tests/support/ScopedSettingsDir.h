// A settings folder of its own for one test: QK_SETTINGS_DIR points to a new, empty folder
// for the lifetime of the object and is put back afterwards.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qktest {

class ScopedSettingsDir {
  public:
    explicit ScopedSettingsDir(const std::string &name);
    ~ScopedSettingsDir();
    ScopedSettingsDir(const ScopedSettingsDir &) = delete;
    ScopedSettingsDir &operator=(const ScopedSettingsDir &) = delete;

    const std::string &Path() const { return m_path; }
    std::string File(const std::string &name) const { return m_path + "/" + name; }
    // Names of the files in the folder, sorted.
    std::vector<std::string> Files() const;

  private:
    std::string m_path;
    std::string m_previous;
    bool m_hadPrevious = false;
};

std::vector<uint8_t> ReadBytes(const std::string &path);
void WriteBytes(const std::string &path, const std::vector<uint8_t> &bytes);

}  // namespace qktest
