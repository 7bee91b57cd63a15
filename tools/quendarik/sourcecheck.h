// The files a scene plays, looked at before anything renders: a file that can't be opened or
// read ends the program with one line naming it and the reason, rather than playing silence.
// (The library itself keeps going with a silent source, as hosts expect of it.)
#pragma once

#include <string>

#include "session.h"

namespace qkcli {

// Empty when the file can be played; otherwise the reason it can't, in a few words.
std::string WhySourceFails(const std::string &strPath);

// Checks every file of the scene; false, after "quendarik COMMAND: FILE: REASON" on standard
// error, at the first one that can't be played.
bool CheckSourceFiles(const char *pcCommand, const Scene &scene);

}  // namespace qkcli
