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
#include "session.h"

namespace qkcli {
namespace {
void usage() {
    std::fprintf(stderr,
                 "usage: quendarik ir (--room W D H | --preset N | --world FILE) [--order N]\n"
                 "         --noise X Y Z [--listener X Y Z LX LY LZ] [--hrtf SET]\n"
                 "         --out FILE.wav [--svg FILE.svg]\n"
                 "Writes the binaural impulse response from the source to the listener's ears:\n"
                 "the direct sound and each reflection up to the order, through the HRTF of its\n"
                 "direction and the filters of the walls it met. The SVG draws left, right and\n"
                 "the echogram in dB (default: the WAV's name with .svg).\n");
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
}  // namespace

int RunIr(int argc, char **argv) {
    Scene scene;
    std::vector<std::string> rest;
    if (!ParseScene(argc, argv, scene, &rest)) {
        usage();
        return 2;
    }
    std::string svg;
    for (size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == "--svg" && i + 1 < rest.size()) {
            svg = rest[++i];
        } else {
            std::fprintf(stderr, "quendarik ir: unknown option '%s'\n", rest[i].c_str());
            usage();
            return 2;
        }
    }
    if (!scene.HasRoom() || scene.sources.size() != 1 || scene.out.empty()) {
        usage();
        return 2;
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
    int result = 1;
    {
        HostedRender render(scene);
        if (!render.Ready()) {
            std::filesystem::remove_all(scratch);
            return 1;
        }
        CQKSDK &sdk = render.Sdk();
        sdk.qk_Research_Set_STRING("GRAPH_DIR", scratch.string().c_str());
        sdk.qk_Research_Set_BOOL("GRAPH_BIR", 1);
        if (render.Block(0.0) < 0) {
            std::fprintf(stderr, "quendarik ir: no block was made (no HRTF set?)\n");
        } else {
            float *left = nullptr;
            float *right = nullptr;
            int length = 0;
            sdk.qk_Vsrc_Get_BIR(render.ObjectIds().front(), left, right, length);
            if (left == nullptr || right == nullptr || length < 1) {
                std::fprintf(stderr, "quendarik ir: the room model gave no response\n");
            } else if (!writeFloatWave(wave, left, right, length, HostedRender::kRate)) {
                std::fprintf(stderr, "quendarik ir: can't write %s\n", wave.c_str());
            } else {
                std::printf("Wrote %s (%d samples, %.1f ms, in %s)\n", wave.c_str(), length,
                            1000.0 * length / HostedRender::kRate, DescribeRoom(scene).c_str());
                result = 0;
            }
        }
    }
    // The first graph drawn is this response's.
    std::vector<std::filesystem::path> graphs;
    for (const auto &entry : std::filesystem::directory_iterator(scratch)) {
        graphs.push_back(entry.path());
    }
    std::sort(graphs.begin(), graphs.end());
    if (result == 0 && !graphs.empty()) {
        std::filesystem::copy_file(graphs.front(), svg,
                                   std::filesystem::copy_options::overwrite_existing);
        std::printf("Wrote %s\n", svg.c_str());
    }
    std::filesystem::remove_all(scratch);
    return result;
}

}  // namespace qkcli
