// Runs the quendarik program as a user does, for the tests of its commands (built with
// QK_TEST_CLI, the program's path).
#pragma once

#include <string>

namespace qktest {

struct CliResult {
    int code = -1;       // the exit code; 124 when it ran past its time
    std::string out;     // standard output
    std::string err;     // standard error
    double seconds = 0;  // how long it ran
};

// Runs "quendarik ARGUMENTS" through the shell, with the given variables set ("A=1 B=2") and
// at most iTimeout seconds.
CliResult RunCli(const std::string &arguments, const std::string &environment = "",
                 int iTimeout = 60);

// The lines of a text that hold more than blanks.
int CountLines(const std::string &text);

// The default HRTF set the build made, and whether it is there.
std::string DefaultHrtfSet();
bool HaveDefaultHrtfSet();

}  // namespace qktest
