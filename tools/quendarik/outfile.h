// A file the program writes: made under a temporary name in the folder of its place, and put
// in place by a rename once it is whole, so that a failed or stopped run leaves no half file
// and an old file of that name stays until the new one is complete.
#pragma once

#include <string>

namespace qkcli {

class OutputFile {
  public:
    explicit OutputFile(std::string strPath);
    // Removes the temporary file unless it was put in place.
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    // Makes the temporary file (empty), which proves that the folder takes files; false, with
    // the system's reason in strReason, when it can't be made.
    bool Open(std::string &strReason);
    // The name to write to until Commit.
    const std::string &Temporary() const { return m_strTemporary; }
    const std::string &Path() const { return m_strPath; }
    // Renames the temporary file to the path; false, with the reason, when that fails (the
    // temporary file is then removed).
    bool Commit(std::string &strReason);

  private:
    std::string m_strPath;
    std::string m_strTemporary;
    bool m_bCommitted = false;
};

// Opens out, telling a failure on standard error in one line: "quendarik COMMAND: can't
// write PATH: REASON".
bool OpenOutput(const char *pcCommand, OutputFile &out);
// Commits out, telling a failure the same way.
bool CommitOutput(const char *pcCommand, OutputFile &out);

}  // namespace qkcli
