// quendarik render and play of a scene file, run as a user runs them.
#if defined(QK_TEST_LIVE) && defined(QK_TEST_CLI)
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {
namespace fs = std::filesystem;

struct CliRun {
    std::string output;
    int code = -1;
};

CliRun run(const std::string &arguments) {
    CliRun result;
    FILE *pipe = ::popen((std::string(QK_TEST_CLI) + " " + arguments + " 2>&1").c_str(), "r");
    char buffer[512];
    while (pipe != nullptr && std::fgets(buffer, sizeof buffer, pipe) != nullptr) {
        result.output += buffer;
    }
    const int status = pipe != nullptr ? ::pclose(pipe) : -1;
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string defaultSet() {
    return std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";
}

// Rate and frames of a 16-bit stereo WAV file: the format chunk's rate, the data chunk's size.
bool waveFormat(const std::string &path, uint32_t &rate, uint32_t &frames) {
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const auto word = [&](size_t at) {
        uint32_t v = 0;
        for (int i = 3; i >= 0; --i) {
            v = (v << 8) | static_cast<uint8_t>(bytes[at + size_t(i)]);
        }
        return v;
    };
    const size_t fmt = bytes.find("fmt ");
    const size_t data = bytes.find("data");
    if (fmt == std::string::npos || data == std::string::npos || data + 8 > bytes.size()) {
        return false;
    }
    rate = word(fmt + 12);
    frames = word(data + 4) / 4;
    return true;
}

struct Folder {
    Folder() {
        path = fs::temp_directory_path() / ("qk-scenecli-" + std::to_string(::getpid()));
        fs::create_directories(path);
    }
    ~Folder() {
        std::error_code ec;
        fs::remove_all(path, ec);
    }
    std::string Write(const std::string &name, const std::string &text) const {
        std::ofstream(path / name) << text;
        return (path / name).string();
    }
    fs::path path;
};

TEST(SceneCli, RendersTheExampleScenesWithOptionsOverridingTheFile) {
    if (!std::ifstream(defaultSet())) {
        GTEST_SKIP() << "needs the default HRTF set";
    }
    Folder folder;
    const std::string scenes = std::string(QK_TEST_SOURCE_ROOT) + "/data/scenes/";
    for (const char *name : {"circle_shoebox", "lshape_passby", "hall_walk"}) {
        const std::string out = (folder.path / (std::string(name) + ".wav")).string();
        const CliRun r = run("render " + scenes + name + ".yaml --out " + out +
                             " --seconds 0.25 --rate 48000 --block 512 --hrtf " + defaultSet());
        ASSERT_EQ(r.code, 0) << name << "\n" << r.output;
        uint32_t rate = 0, frames = 0;
        ASSERT_TRUE(waveFormat(out, rate, frames)) << name;
        EXPECT_EQ(rate, 48000u) << name;
        EXPECT_EQ(frames, 24u * 512u) << name;  // 0.25 s in whole blocks
        EXPECT_FALSE(fs::exists(out + ".part")) << name;
    }
}

TEST(SceneCli, ABadSceneOrOptionStopsWithOneLine) {
    Folder folder;
    const std::string bad =
        folder.Write("bad.yaml", "seconds: 1\nsources:\n  - {noise: -20, position: [0, 1]}\n");
    CliRun r = run("render " + bad + " --out " + (folder.path / "x.wav").string());
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.output, "quendarik: " + bad +
                            ":3: sources[0].position: should be a list of three numbers "
                            "[x, y, z] in metres\n");
    EXPECT_FALSE(fs::exists(folder.path / "x.wav"));

    const std::string good = folder.Write("good.yaml", "sources:\n  - {noise: -20}\n");
    r = run("play " + good + " --order many");
    EXPECT_EQ(r.code, 2);
    EXPECT_EQ(r.output, "quendarik: --order: 'many' is not a number\n");
    r = run("render " + good + " --loudness 3");
    EXPECT_EQ(r.code, 2);
    EXPECT_EQ(r.output, "quendarik: unknown option '--loudness'\n");
    r = run("render " + good);
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.output.find("give --out"), std::string::npos) << r.output;
    r = run("live " + (folder.path / "missing.yaml").string());
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.output.find("missing.yaml: can't be read"), std::string::npos) << r.output;
}
}  // namespace
#endif
