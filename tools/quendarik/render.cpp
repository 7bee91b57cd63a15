// quendarik render and quendarik play: a scene from the command line, to a WAV file as fast
// as it can be made, or live on the default device.
#include <chrono>
#include <cstdio>
#include <thread>

#include "commands.h"
#include "session.h"

namespace qkcli {
namespace {
void sceneUsage(const char *command) {
    std::fprintf(
        stderr,
        "usage: quendarik %s [--source FILE.wav X Y Z]... [--noise X Y Z]...\n"
        "         [--listener X Y Z LX LY LZ] [--seconds S] [--block N] [--hrtf SET]\n"
        "         [--zero-stuffing] [--convolution partitioned|overlap]\n"
        "         [--speakers [AZ]] [--reverb DRY]\n"
        "         [--room W D H | --preset N | --world FILE] [--order N]%s\n"
        "   or: quendarik render --project FILE --out FILE.wav [--listener ...]\n"
        "         [--seconds S] [--block N] [--hrtf SET]\n"
        "Positions in metres: x across, y ahead, z up; the listener looks at the point\n"
        "LX LY LZ. Without a room only the direct sound is rendered (one HRTF by\n"
        "direction, level by distance). In a room (a shoe box centred on x = y = 0\n"
        "with its floor at z = 0, a preset 1..6, or a world file) every source is heard\n"
        "with its reflections up to --order (default 2), each through the HRTF of its\n"
        "own direction and the filters of the walls it met; the listener stands at\n"
        "1.2 m unless placed. Files at another rate than 44100 Hz are converted band-limited;\n"
        "--zero-stuffing keeps the library's default integer zero-stuffing instead.\n"
        "Sources convolve partitioned (the whole response at any block length);\n"
        "--convolution overlap takes the library's default whole-filter method.\n"
        "--speakers renders for two loudspeakers at +-AZ degrees (default 30) through\n"
        "the cross-talk canceller; --reverb sets the late part's dry level (0 to 1).\n",
        command, std::string(command) == "render" ? " --out FILE.wav" : "");
}
}  // namespace

int RunRender(int argc, char **argv) {
    Scene scene;
    std::vector<std::string> rest;
    const bool parsed = ParseScene(argc, argv, scene, &rest);
    if (parsed && rest.size() == 2 && rest[0] == "--project" && !scene.out.empty() &&
        scene.sources.empty()) {
        int block = 0;
        for (int i = 0; i + 1 < argc; ++i) {
            if (std::string(argv[i]) == "--block") {
                block = scene.block;
            }
        }
        return RenderProject(rest[1], scene, block);
    }
    if (!parsed || !rest.empty() || scene.out.empty() || scene.sources.empty()) {
        sceneUsage("render");
        return 2;
    }
    std::printf("Rendering in %s\n", DescribeRoom(scene).c_str());
    std::fflush(stdout);
    HostedRender render(scene);
    if (!render.Ready()) {
        return 1;
    }
    const long blocks = static_cast<long>(scene.seconds * HostedRender::kRate / scene.block);
    for (long b = 0; b < blocks; ++b) {
        const double t = static_cast<double>(b) * scene.block / HostedRender::kRate;
        if (render.Block(t) < 0) {
            std::fprintf(stderr, "\nquendarik render: no block was made (no HRTF set?)\n");
            return 1;
        }
        Progress(t + static_cast<double>(scene.block) / HostedRender::kRate, scene.seconds);
    }
    ProgressEnd(scene.seconds);
    render.Sdk().qk_Save_Wave_Stop();
    std::printf("Wrote %s\n", scene.out.c_str());
    return 0;
}

int RunPlay(int argc, char **argv) {
    Scene scene;
    if (!ParseScene(argc, argv, scene) || scene.sources.empty()) {
        sceneUsage("play");
        return 2;
    }
    CQKSDK sdk;
    if (!ChooseRoom(sdk, scene)) {
        return 1;
    }
    std::printf("Playing in %s\n", DescribeRoom(scene).c_str());
    ChooseOutput(sdk, scene);
    if (!scene.hrtf.empty()) {
        sdk.qk_HRTF_Set_Full(scene.hrtf.c_str());
    }
    ChooseMethods(sdk, scene, HostedRender::kRate);
    int listener = 0;
    sdk.qk_Vrcv_Add(listener);
    const float *l = scene.listener;
    sdk.qk_Vrcv_Set_Position_LookAt(listener, l[0], l[1], l[2], l[3], l[4], l[5]);
    for (const SceneSource &source : scene.sources) {
        int sound = 0;
        // Live play pulls its sources itself: program-made noise is the engine's own here.
        const int result = source.file.empty() ? sdk.qk_Ssrc_Add_Gauss(sound)
                                               : sdk.qk_Ssrc_Add_File(sound, source.file.c_str());
        if (result != 0) {
            return 1;
        }
        int object = 0;
        sdk.qk_Vsrc_Add(object, sound, 0, source.x, source.y, source.z, "source");
    }
    sdk.qkSimSetBlockLength(scene.block);
    sdk.qkPlay();
    const auto start = std::chrono::steady_clock::now();
    for (double t = 0.0; t < scene.seconds;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        t = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        Progress(t, scene.seconds);
    }
    sdk.qkStop();
    return 0;
}

}  // namespace qkcli
