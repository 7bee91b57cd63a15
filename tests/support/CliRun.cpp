#include "support/CliRun.h"

#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "support/WaveWriter.h"

namespace qktest {
#ifdef QK_TEST_CLI
namespace {
std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}
}  // namespace
#endif

CliResult RunCli(const std::string &arguments, const std::string &environment, int iTimeout) {
    CliResult result;
#ifdef QK_TEST_CLI
    const std::string out = ScratchPath("cli_out.txt");
    const std::string err = ScratchPath("cli_err.txt");
    const std::string command = "env " + environment + " timeout " + std::to_string(iTimeout) +
                                " " + QK_TEST_CLI + " " + arguments + " > " + out + " 2> " + err;
    const auto start = std::chrono::steady_clock::now();
    const int status = std::system(command.c_str());
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = slurp(out);
    result.err = slurp(err);
    std::remove(out.c_str());
    std::remove(err.c_str());
#else
    (void)arguments;
    (void)environment;
    (void)iTimeout;
#endif
    return result;
}

int CountLines(const std::string &text) {
    std::istringstream lines(text);
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
        count += line.find_first_not_of(" \t\r") != std::string::npos ? 1 : 0;
    }
    return count;
}

std::string DefaultHrtfSet() {
    return std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";
}

bool HaveDefaultHrtfSet() {
    return std::ifstream(DefaultHrtfSet()).good();
}

}  // namespace qktest
