// Replays fuzz inputs without libFuzzer: every file named on the command line, or found in a
// folder named there, is passed once to LLVMFuzzerTestOneInput. A crash fails the run.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {
int replayFile(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 1;
}
}  // namespace

int main(int argc, char **argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        std::error_code ec;
        if (std::filesystem::is_directory(arg, ec)) {
            for (const auto &entry : std::filesystem::recursive_directory_iterator(arg)) {
                if (entry.is_regular_file()) {
                    count += replayFile(entry.path());
                }
            }
        } else if (std::filesystem::is_regular_file(arg, ec)) {
            count += replayFile(arg);
        }
    }
    std::printf("replayed %d inputs\n", count);
    return 0;
}
