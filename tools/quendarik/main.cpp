// The quendarik command-line program: one subcommand a job.
#include <cstdio>
#include <cstring>
#include <string>

#include "commands.h"

namespace {
void usage() {
    std::printf(
        "usage: quendarik COMMAND [ARGS]\n"
        "commands:\n"
        "  demo    run a small host through the library and tell what the engine did\n"
        "  hrtf    make HRTF sets from SOFA files and describe them (quendarik hrtf for more)\n");
}
}  // namespace

int main(int argc, char **argv) {
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
        usage();
        return argc < 2 ? 2 : 0;
    }
    const std::string command = argv[1];
    if (command == "demo") {
        return qkcli::RunDemo(argc - 2, argv + 2);
    }
    if (command == "hrtf") {
        return qkcli::RunHrtf(argc - 2, argv + 2);
    }
    std::fprintf(stderr, "quendarik: unknown command '%s'\n", command.c_str());
    usage();
    return 2;
}
