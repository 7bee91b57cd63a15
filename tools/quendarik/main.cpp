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
        "  demo    render noise circling the listener in a room to demo.wav, then play it\n"
        "  render  render a scene to a WAV file (quendarik render for its options)\n"
        "  play    play a scene live on the default device\n"
        "  live    render a scene file as a JACK client, steered over OSC\n"
        "          (render, play and live take a scene file: quendarik render SCENE.yaml)\n"
        "  ir      write one source's binaural room response as WAV and SVG files\n"
        "  bench   render with no device and tell the cost of each source\n"
        "  hrtf    make HRTF sets from SOFA files and describe them (quendarik hrtf for more)\n"
        "  precompute  write response sets over a grid of listener places (for model 4)\n"
        "  world   describe a room (planes, materials, volume, RT60) or store it as .qkworld\n"
        "  materials  list the rows of the materials table\n");
}
}  // namespace

int main(int argc, char **argv) {
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
        usage();
        return argc < 2 ? 2 : 0;
    }
    const std::string command = argv[1];
    const bool sceneFile = argc > 2 && qkcli::IsSceneFileName(argv[2]);
    if (command == "demo") {
        return qkcli::RunDemo(argc - 2, argv + 2);
    }
    if (command == "render") {
        if (sceneFile) {
            return qkcli::RunSceneRender(argc - 2, argv + 2);
        }
        return qkcli::RunRender(argc - 2, argv + 2);
    }
    if (command == "play") {
        if (sceneFile) {
            return qkcli::RunScenePlay(argc - 2, argv + 2);
        }
        return qkcli::RunPlay(argc - 2, argv + 2);
    }
    if (command == "live") {
        return qkcli::RunLive(argc - 2, argv + 2);
    }
    if (command == "ir") {
        return qkcli::RunIr(argc - 2, argv + 2);
    }
    if (command == "bench") {
        return qkcli::RunBench(argc - 2, argv + 2);
    }
    if (command == "hrtf") {
        return qkcli::RunHrtf(argc - 2, argv + 2);
    }
    if (command == "precompute") {
        return qkcli::RunPrecompute(argc - 2, argv + 2);
    }
    if (command == "world") {
        return qkcli::RunWorld(argc - 2, argv + 2);
    }
    if (command == "materials") {
        return qkcli::RunMaterials(argc - 2, argv + 2);
    }
    std::fprintf(stderr, "quendarik: unknown command '%s'\n", command.c_str());
    usage();
    return 2;
}
