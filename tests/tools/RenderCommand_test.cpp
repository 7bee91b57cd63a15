// quendarik render, play and ir, run as a user runs them: world texts, exit codes that tell
// the truth, output files that are whole or absent, jobs sized before they start, the end of
// a file, and the output a scene is rendered for.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/CliRun.h"
#include "support/CodecFiles.h"
#include "support/RiffBytes.h"
#include "support/ScopedSettingsDir.h"
#include "support/WaveWriter.h"

#ifdef QK_TEST_CLI
namespace {
namespace fs = std::filesystem;

// Inside every shipped room: the shoe box (x -2.5..2.5, y -2..2), the L's first wing (x 0..6,
// y 0..3) and the hall (x -5..5, y 0..16).
const char *const kPlaces = "--listener 0.8 0.8 1.2 0.8 2 1.2";
const char *const kNoise = "--noise 2 1.5 1.5";

std::string hrtf() {
    return " --hrtf " + qktest::DefaultHrtfSet();
}

// The world texts of data/worlds that no other file there includes.
std::vector<fs::path> shippedWorlds() {
    const fs::path folder = fs::path(QK_TEST_SOURCE_ROOT) / "data" / "worlds";
    std::vector<fs::path> files;
    std::string texts;
    for (const auto &entry : fs::directory_iterator(folder)) {
        files.push_back(entry.path());
        std::ifstream in(entry.path());
        texts.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    files.erase(std::remove_if(files.begin(), files.end(),
                               [&](const fs::path &f) {
                                   return texts.find("INCLUDE " + f.filename().string()) !=
                                          std::string::npos;
                               }),
                files.end());
    std::sort(files.begin(), files.end());
    return files;
}

// The left channel of a stereo WAV of 32-bit floats.
std::vector<float> floatLeft(const std::string &path) {
    const qktest::Bytes bytes = qktest::ReadFileBytes(path);
    std::vector<float> left;
    for (const qktest::RawChunk &chunk : qktest::ChunksOf(bytes)) {
        if (chunk.id != "data") {
            continue;
        }
        for (size_t at = chunk.dataOffset; at + 8 <= chunk.dataOffset + chunk.size; at += 8) {
            float v = 0.0f;
            std::memcpy(&v, &bytes[at], 4);
            left.push_back(v);
        }
    }
    return left;
}

double energy(const std::vector<float> &v, size_t from, size_t to) {
    double sum = 0.0;
    for (size_t i = from; i < std::min(to, v.size()); ++i) {
        sum += static_cast<double>(v[i]) * v[i];
    }
    return sum;
}

class RenderCommand : public testing::Test {
  protected:
    void SetUp() override {
        if (!qktest::HaveDefaultHrtfSet()) {
            GTEST_SKIP() << "the build's default HRTF set is missing";
        }
        fs::create_directories(folder);
    }
    void TearDown() override { fs::remove_all(folder); }
    std::string File(const std::string &name) const { return (folder / name).string(); }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    qktest::ScopedCommonRoot root{"render_command"};
    qktest::ScopedSettingsDir settings{"render_command"};
    fs::path folder = qktest::ScratchPath("render_command");
};
}  // namespace

TEST_F(RenderCommand, EveryShippedWorldTextRendersWithItsReflections) {
    const std::vector<fs::path> worlds = shippedWorlds();
    ASSERT_GE(worlds.size(), 3u);
    for (const fs::path &world : worlds) {
        SCOPED_TRACE(world.filename().string());
        const qktest::CliResult rendered =
            qktest::RunCli("render --world " + world.string() + " " + kPlaces + " " + kNoise +
                           " --seconds 0.1 --out " + File("world.wav") + hrtf());
        EXPECT_EQ(rendered.code, 0) << rendered.err;
        EXPECT_TRUE(fs::exists(File("world.wav")));

        const qktest::CliResult ir =
            qktest::RunCli("ir --world " + world.string() + " " + kPlaces + " " + kNoise +
                           " --out " + File("world_ir.wav") + hrtf());
        ASSERT_EQ(ir.code, 0) << ir.err;
        // The direct sound (1.4 m, 183 samples) has died away with its 512-tap HRTF by sample
        // 800; what comes after is the rooms' reflections.
        const std::vector<float> left = floatLeft(File("world_ir.wav"));
        ASSERT_GT(left.size(), 1000u);
        EXPECT_GT(energy(left, 800, left.size()), 1e-3 * energy(left, 0, left.size()));
    }
}

TEST_F(RenderCommand, AFileThatCantBeUsedEndsTheRunWithOneLineAndTheOldFileStays) {
    const std::string out = File("kept.wav");
    std::ofstream(out) << "an older file";
    struct Case {
        std::string arguments;
        std::string named;  // what the one line must name
    };
    const Case cases[] = {
        {"--source " + File("nosuch.wav") + " 1 0 0 --out " + out, "No such file"},
        {"--source " + File("kept.wav") + " 1 0 0 --out " + File("other.wav"), "RIFF WAVE"},
        {"--source " + File("x.ogg") + " 1 0 0 --out " + out, "x.ogg"},
        {"--noise 1 0 0 --out /nonexistent/folder/x.wav", "/nonexistent/folder/x.wav"},
        {"--noise 1 0 0 --out " + folder.string(), "folder"},
    };
    std::ofstream(File("x.ogg")) << "OggS";
    for (const Case &c : cases) {
        SCOPED_TRACE(c.arguments);
        const qktest::CliResult r =
            qktest::RunCli("render " + c.arguments + " --seconds 0.1" + hrtf());
        EXPECT_EQ(r.code, 1);
        EXPECT_EQ(qktest::CountLines(r.err), 1) << r.err;
        EXPECT_NE(r.err.find(c.named), std::string::npos) << r.err;
        EXPECT_EQ(r.out.find("Wrote"), std::string::npos) << r.out;
    }
    std::ifstream kept(out);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "an older file");
    // Nothing half made is left behind.
    EXPECT_EQ(Names(), (std::vector<std::string>{"kept.wav", "x.ogg"}));

    const qktest::CliResult good =
        qktest::RunCli("render --noise 1 0 0 --seconds 0.1 --out " + out + hrtf());
    EXPECT_EQ(good.code, 0) << good.err;
    EXPECT_NE(good.out.find("Wrote " + out), std::string::npos);
    EXPECT_EQ(qktest::WaveChannels(out).at(0).size(), 4u * 1024u);  // whole blocks
    EXPECT_EQ(Names(), (std::vector<std::string>{"kept.wav", "x.ogg"}));
}

TEST_F(RenderCommand, AWaveFileCutShortPlaysWithOneWarning) {
    qktest::Bytes samples(2 * 2 * 3000, 0x10);  // 68 ms of stereo
    qktest::Bytes chunks;
    qktest::AppendChunk(chunks, "fmt ", qktest::PcmFormat(2, 44100, 16));
    qktest::AppendChunk(chunks, "data", samples, 4 * 44100);  // the header says 1 s
    qktest::WriteFileBytes(File("cut.wav"), qktest::RiffWave(chunks, 4 + chunks.size()));
    const qktest::CliResult r =
        qktest::RunCli("render --source " + File("cut.wav") + " 1 0 0 --seconds 0.5 --out " +
                       File("cut_out.wav") + hrtf());
    EXPECT_EQ(r.code, 0) << r.err;
    // One line besides the progress bar.
    const size_t bar = r.err.find("  [");
    ASSERT_NE(bar, std::string::npos) << r.err;
    EXPECT_EQ(qktest::CountLines(r.err.substr(0, bar)), 1) << r.err;
    EXPECT_NE(r.err.find("cut.wav: the file is cut short"), std::string::npos) << r.err;
}

TEST_F(RenderCommand, AJobIsSizedFirstAndABadNumberIsOneLineNamingItsOption) {
    const qktest::CliResult big = qktest::RunCli(
        "render --noise 1 0 0 --seconds 1e9 --out " + File("big.wav") + hrtf(), "", 30);
    EXPECT_EQ(big.code, 1);
    EXPECT_LT(big.seconds, 10.0);
    EXPECT_EQ(qktest::CountLines(big.err), 1) << big.err;
    EXPECT_NE(big.err.find("176 TB"), std::string::npos) << big.err;  // 1e9 s x 176400 B/s
    EXPECT_NE(big.err.find("4.29 GB"), std::string::npos) << big.err;
    EXPECT_FALSE(fs::exists(File("big.wav")));

    const std::string out = " --out " + File("x.wav");
    const std::string bad[][2] = {{"render --noise 1 0 0 --seconds abc" + out, "--seconds"},
                                  {"render --noise 1 0 0 --seconds -1" + out, "--seconds"},
                                  {"render --noise 1 0 0 --seconds nan" + out, "--seconds"},
                                  {"render --noise 1 0 0 --block 7" + out, "--block"},
                                  {"render --noise 1 0" + out, "--noise"},
                                  {"render --room 5 x 3 --noise 1 0 0" + out, "--room"},
                                  {"render --noise 1 0 0 --order 2.5" + out, "--order"},
                                  {"play --noise 1 0 0 --seconds inf", "--seconds"},
                                  {"ir --room 5 5 3 --noise 1 0 0 --order -1" + out, "--order"}};
    for (const auto &b : bad) {
        const qktest::CliResult r = qktest::RunCli(b[0]);
        EXPECT_EQ(r.code, 2) << b[0];
        EXPECT_EQ(qktest::CountLines(r.err), 1) << b[0] << ":\n" << r.err;
        EXPECT_NE(r.err.find(b[1]), std::string::npos) << b[0] << ":\n" << r.err;
    }
    EXPECT_TRUE(Names().empty());
}

TEST_F(RenderCommand, AnAc3FileThatHasEndedIsSilent) {
    const std::string out = File("ac3.wav");
    const qktest::CliResult r = qktest::RunCli("render --source " + qktest::CodecFile("src44.ac3") +
                                               " 2 0 0 --seconds 3 --out " + out + hrtf());
    ASSERT_EQ(r.code, 0) << r.err;
    const std::vector<float> left = qktest::WaveChannels(out).at(0);
    ASSERT_GT(left.size(), 3u * 44100u - 2048u);
    // The file holds one second; the last second of the three is silence.
    const double sounding = energy(left, 0, 44100);
    const double after = energy(left, left.size() - 44100, left.size());
    EXPECT_GT(sounding, 0.0);
    EXPECT_LT(after, 1e-6 * sounding)
        << "level after the end: " << 10.0 * std::log10(after / sounding + 1e-30) << " dB";
}

TEST_F(RenderCommand, RenderAndPlaySayWhichOutputTheyRenderFor) {
    const std::string out = " --seconds 0.1 --out " + File("o.wav") + hrtf();
    const qktest::CliResult phones = qktest::RunCli("render --noise 1 0 0" + out);
    EXPECT_NE(phones.out.find("Rendering for headphones"), std::string::npos) << phones.out;
    const qktest::CliResult speakers = qktest::RunCli("render --noise 1 0 0 --speakers 20" + out);
    EXPECT_NE(speakers.out.find("Rendering for two loudspeakers at +-20 degrees"),
              std::string::npos)
        << speakers.out;
    const qktest::CliResult played =
        qktest::RunCli("play --noise 1 0 0 --seconds 0.2" + hrtf(), "QK_ALSA_DEVICE=virtual");
    EXPECT_EQ(played.code, 0) << played.err;
    EXPECT_NE(played.out.find("Playing for headphones"), std::string::npos) << played.out;
}
#endif
