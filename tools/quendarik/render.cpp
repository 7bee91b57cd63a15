// quendarik render and quendarik play: a scene from the command line, to a WAV file as fast
// as it can be made, or live on the default device.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <thread>

#include "commands.h"
#include "jobsize.h"
#include "outfile.h"
#include "session.h"
#include "sourcecheck.h"
#include "sources/WaveFile.h"

namespace qkcli {
namespace {
void sceneUsage(const char *command) {
    std::printf(
        "usage: quendarik %s [--source FILE.wav X Y Z]... [--noise X Y Z]...\n"
        "         [--listener X Y Z LX LY LZ] [--seconds S] [--block N] [--hrtf SET]\n"
        "         [--zero-stuffing] [--convolution partitioned|overlap]\n"
        "         [--speakers [AZ]] [--reverb DRY]\n"
        "         [--room W D H | --preset N | --world FILE] [--order N]%s\n"
        "   or: quendarik render --project FILE --out FILE.wav [--listener ...]\n"
        "         [--seconds S] [--block N] [--hrtf SET] [--force]\n"
        "Positions in metres: x across, y ahead, z up; the listener looks at the point\n"
        "LX LY LZ. Without a room only the direct sound is rendered (one HRTF by\n"
        "direction, level by distance). In a room (a shoe box centred on x = y = 0\n"
        "with its floor at z = 0, a preset 1..6, or a world file) every source is heard\n"
        "with its reflections up to --order (default 2), each through the HRTF of its\n"
        "own direction and the filters of the walls it met; the listener stands at\n"
        "1.2 m unless placed. Files at another rate than 44100 Hz are converted band-limited;\n"
        "--zero-stuffing keeps the library's default integer zero-stuffing instead.\n"
        "Files end exactly (the library's FileEnd switch, which the program turns on): a\n"
        "wave file loops without a gap and an AC-3 file is silent once it has ended.\n"
        "Sources convolve partitioned (the whole response at any block length);\n"
        "--convolution overlap takes the library's default whole-filter method.\n"
        "The output is for headphones; --speakers renders for two loudspeakers at +-AZ\n"
        "degrees (default 30) through the cross-talk canceller, the library's own default\n"
        "output. --reverb sets the late part's dry level (0 to 1).\n"
        "render refuses a file larger than a WAV file holds (4.29 GB), or than the free\n"
        "room of its file system unless --force is given.\n",
        command, std::string(command) == "render" ? " --out FILE.wav [--force]" : "");
}

bool wantsHelp(int argc, char **argv) {
    for (int i = 0; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            return true;
        }
    }
    return false;
}

// One line for what a scene lacks or has too much of; false when it is complete.
bool sceneIncomplete(const char *command, const Scene &scene,
                     const std::vector<std::string> &rest) {
    if (!rest.empty()) {
        std::fprintf(stderr, "quendarik %s: unknown option '%s' (--help lists them)\n", command,
                     rest.front().c_str());
    } else if (std::string(command) == "render" && scene.out.empty()) {
        std::fprintf(stderr, "quendarik render: --out FILE.wav is needed\n");
    } else if (scene.sources.empty()) {
        std::fprintf(stderr, "quendarik %s: at least one --source or --noise is needed\n", command);
    } else {
        return false;
    }
    return true;
}

// The WAV a render of the scene writes: 16-bit stereo at the engine's rate, whole blocks.
JobSize renderJob(const Scene &scene, double blocks) {
    char what[96];
    std::snprintf(what, sizeof what, "%g s of 16-bit stereo at %d Hz", scene.seconds,
                  HostedRender::kRate);
    return JobSize{
        what, scene.out,
        WaveFileBytes(blocks * scene.block / HostedRender::kRate, HostedRender::kRate, 2, 16),
        true};
}

// True when the recording at path holds the bytes of that many frames of 16-bit stereo.
bool recordingWhole(const std::string &path, double frames, std::string &reason) {
    HMMIO hmmio = nullptr;
    WAVEFORMATEX *format = nullptr;
    MMCKINFO riff{};
    MMCKINFO data{};
    if (WaveOpenFile(path.c_str(), &hmmio, &format, &riff) != 0) {
        reason = "the recording wasn't made";
        return false;
    }
    const bool found = WaveStartDataRead(&hmmio, &data, &riff) == 0;
    WaveCloseReadFile(&hmmio, &format);
    const double wanted = frames * 4.0;
    if (!found || static_cast<double>(data.cksize) != wanted) {
        char text[128];
        std::snprintf(text, sizeof text, "the recording holds %u of the %.0f bytes rendered",
                      found ? data.cksize : 0u, wanted);
        reason = text;
        return false;
    }
    return true;
}

// Renders the scene's blocks into out's temporary file; the exit code.
int renderBlocks(Scene scene, long blocks, OutputFile &out) {
    scene.out = out.Temporary();
    HostedRender render(scene);
    if (!render.Ready()) {
        return 1;
    }
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
    return 0;
}
}  // namespace

int RunRender(int argc, char **argv) {
    Scene scene;
    std::vector<std::string> rest;
    if (argc == 0 || wantsHelp(argc, argv)) {
        sceneUsage("render");
        return argc == 0 ? 2 : 0;
    }
    if (!ParseScene(argc, argv, scene, &rest)) {
        return 2;
    }
    if (rest.size() == 2 && rest[0] == "--project" && !scene.out.empty() && scene.sources.empty()) {
        int block = 0;
        for (int i = 0; i + 1 < argc; ++i) {
            if (std::string(argv[i]) == "--block") {
                block = scene.block;
            }
        }
        return RenderProject(rest[1], scene, block);
    }
    if (sceneIncomplete("render", scene, rest)) {
        return 2;
    }
    // Whole blocks, at least one.
    const double blocks =
        std::max(1.0, std::floor(scene.seconds * HostedRender::kRate / scene.block));
    OutputFile out(scene.out);
    if (!CheckSourceFiles("render", scene) ||
        !CheckJob("render", renderJob(scene, blocks), scene.force) || !OpenOutput("render", out)) {
        return 1;
    }
    std::printf("Rendering for %s in %s\n", DescribeOutput(scene).c_str(),
                DescribeRoom(scene).c_str());
    std::fflush(stdout);
    if (renderBlocks(scene, static_cast<long>(blocks), out) != 0) {
        return 1;
    }
    std::string reason;
    if (!recordingWhole(out.Temporary(), blocks * scene.block, reason)) {
        std::fprintf(stderr, "quendarik render: can't write %s: %s\n", scene.out.c_str(),
                     reason.c_str());
        return 1;
    }
    if (!CommitOutput("render", out)) {
        return 1;
    }
    std::printf("Wrote %s\n", scene.out.c_str());
    return 0;
}

int RunPlay(int argc, char **argv) {
    Scene scene;
    std::vector<std::string> rest;
    if (argc == 0 || wantsHelp(argc, argv)) {
        sceneUsage("play");
        return argc == 0 ? 2 : 0;
    }
    if (!ParseScene(argc, argv, scene, &rest)) {
        return 2;
    }
    if (sceneIncomplete("play", scene, rest)) {
        return 2;
    }
    if (!CheckSourceFiles("play", scene)) {
        return 1;
    }
    CQKSDK sdk;
    if (!ChooseRoom(sdk, scene)) {
        return 1;
    }
    std::printf("Playing for %s in %s\n", DescribeOutput(scene).c_str(),
                DescribeRoom(scene).c_str());
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
