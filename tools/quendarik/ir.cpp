// quendarik ir: one source's binaural room response as a WAV file (32-bit float, left and
// right) and its graph as an SVG file, for a room, a source and a listener.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "commands.h"
#include "jobsize.h"
#include "outfile.h"
#include "session.h"
#include "sourcecheck.h"

namespace qkcli {
namespace {
void usage() {
    std::fprintf(stdout,
                 "usage: quendarik ir (--room W D H | --preset N | --world FILE) [--order N]\n"
                 "         --noise X Y Z [--listener X Y Z LX LY LZ] [--hrtf SET]\n"
                 "         --out FILE.wav [--svg FILE.svg] [--force]\n"
                 "Writes the binaural impulse response from the source to the listener's ears:\n"
                 "the direct sound and each reflection up to the order, through the HRTF of its\n"
                 "direction and the filters of the walls it met. The SVG draws left, right and\n"
                 "the echogram in dB against one time axis (default: the WAV's name with\n"
                 ".svg). Both files are written whole or not at all; --force writes even when\n"
                 "the file system looks too full.\n");
}

void put32(std::ofstream &out, uint32_t v) {
    const char bytes[4] = {static_cast<char>(v), static_cast<char>(v >> 8),
                           static_cast<char>(v >> 16), static_cast<char>(v >> 24)};
    out.write(bytes, 4);
}

void put16(std::ofstream &out, uint16_t v) {
    const char bytes[2] = {static_cast<char>(v), static_cast<char>(v >> 8)};
    out.write(bytes, 2);
}

// A stereo WAV of 32-bit floats, interleaved.
bool writeFloatWave(const std::string &path, const float *left, const float *right, int n,
                    int rate) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    const uint32_t data = static_cast<uint32_t>(n) * 8u;
    out.write("RIFF", 4);
    put32(out, 36 + data);
    out.write("WAVEfmt ", 8);
    put32(out, 16);
    put16(out, 3);  // IEEE float
    put16(out, 2);
    put32(out, static_cast<uint32_t>(rate));
    put32(out, static_cast<uint32_t>(rate) * 8u);
    put16(out, 8);
    put16(out, 32);
    out.write("data", 4);
    put32(out, data);
    for (int i = 0; i < n; ++i) {
        out.write(reinterpret_cast<const char *>(&left[i]), 4);
        out.write(reinterpret_cast<const char *>(&right[i]), 4);
    }
    return out.good();
}

// Reads the options behind the scene's: --svg FILE. False, after one line, for anything else.
bool parseIrOptions(const std::vector<std::string> &rest, std::string &svg) {
    for (size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == "--svg" && i + 1 < rest.size()) {
            svg = rest[++i];
        } else {
            std::fprintf(stderr, "quendarik ir: unknown or incomplete option '%s'\n",
                         rest[i].c_str());
            return false;
        }
    }
    return true;
}

// Writes the response and its graph (the first one drawn in the scratch folder) through
// temporary names; the exit code.
int writeResponse(const Scene &scene, const std::string &wave, const std::string &svg,
                  const float *left, const float *right, int length,
                  const std::filesystem::path &scratch) {
    const double bytes = kWaveHeaderBytes + 8.0 * length;
    OutputFile waveOut(wave);
    OutputFile svgOut(svg);
    if (!CheckJob("ir", JobSize{"a response of 2 x 32-bit floats", wave, bytes, true},
                  scene.force) ||
        !OpenOutput("ir", waveOut) || !OpenOutput("ir", svgOut)) {
        return 1;
    }
    if (!writeFloatWave(waveOut.Temporary(), left, right, length, HostedRender::kRate)) {
        std::fprintf(stderr, "quendarik ir: can't write %s\n", wave.c_str());
        return 1;
    }
    std::vector<std::filesystem::path> graphs;
    for (const auto &entry : std::filesystem::directory_iterator(scratch)) {
        graphs.push_back(entry.path());
    }
    std::sort(graphs.begin(), graphs.end());
    std::error_code ec;
    const bool drawn =
        !graphs.empty() &&
        std::filesystem::copy_file(graphs.front(), svgOut.Temporary(),
                                   std::filesystem::copy_options::overwrite_existing, ec);
    if (!drawn) {
        std::fprintf(stderr, "quendarik ir: the graph for %s wasn't drawn\n", svg.c_str());
        return 1;
    }
    if (!CommitOutput("ir", waveOut) || !CommitOutput("ir", svgOut)) {
        return 1;
    }
    std::printf("Wrote %s (%d samples, %.1f ms, in %s)\nWrote %s\n", wave.c_str(), length,
                1000.0 * length / HostedRender::kRate, DescribeRoom(scene).c_str(), svg.c_str());
    return 0;
}

// Renders one block so that the room model builds the response (drawn into scratch), and
// writes it; the exit code.
int renderResponse(const Scene &scene, const std::string &wave, const std::string &svg,
                   const std::filesystem::path &scratch) {
    HostedRender render(scene);
    if (!render.Ready()) {
        return 1;
    }
    CQKSDK &sdk = render.Sdk();
    sdk.qk_Research_Set_STRING("GRAPH_DIR", scratch.string().c_str());
    sdk.qk_Research_Set_BOOL("GRAPH_BIR", 1);
    if (render.Block(0.0) < 0) {
        std::fprintf(stderr, "quendarik ir: no block was made (no HRTF set?)\n");
        return 1;
    }
    float *left = nullptr;
    float *right = nullptr;
    int length = 0;
    sdk.qk_Vsrc_Get_BIR(render.ObjectIds().front(), left, right, length);
    if (left == nullptr || right == nullptr || length < 1) {
        std::fprintf(stderr, "quendarik ir: the room model gave no response\n");
        return 1;
    }
    return writeResponse(scene, wave, svg, left, right, length, scratch);
}
}  // namespace

int RunIr(int argc, char **argv) {
    Scene scene;
    std::vector<std::string> rest;
    if (argc == 0 || std::find(argv, argv + argc, std::string("--help")) != argv + argc) {
        usage();
        return argc == 0 ? 2 : 0;
    }
    std::string svg;
    if (!ParseScene(argc, argv, scene, &rest) || !parseIrOptions(rest, svg)) {
        return 2;
    }
    if (!scene.HasRoom() || scene.sources.size() != 1 || scene.out.empty()) {
        std::fprintf(stderr,
                     "quendarik ir: a room (--room, --preset or --world), one source and --out "
                     "are needed\n");
        return 2;
    }
    if (!CheckSourceFiles("ir", scene)) {
        return 1;
    }
    if (svg.empty()) {
        svg = std::filesystem::path(scene.out).replace_extension(".svg").string();
    }
    // The render itself records nothing: --out names the response's file.
    const std::string wave = scene.out;
    scene.out.clear();
    scene.block = 256;
    // The graph of the first rebuild is drawn in a scratch folder and taken from there.
    const std::filesystem::path scratch =
        std::filesystem::temp_directory_path() / ("quendarik-ir-" + std::to_string(::getpid()));
    std::filesystem::create_directories(scratch);
    const int result = renderResponse(scene, wave, svg, scratch);
    std::filesystem::remove_all(scratch);
    return result;
}

}  // namespace qkcli
