// quendarik live SCENE, and render and play of a scene file: the scene's sources, trajectories
// and room through the library's hosted road, to a file, the default device or JACK, steered
// over OSC.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

#include "commands.h"
#include "jack_client.h"
#include "osc_server.h"
#include "scene_engine.h"
#include "scene_file.h"
#include "scene_overrides.h"
#include "session.h"

namespace qkcli {
namespace {
std::atomic<bool> g_stop{false};

void onSignal(int) {
    g_stop.store(true);
}

void liveUsage() {
    std::fprintf(stderr,
                 "usage: quendarik live SCENE.yaml [--osc PORT] [--client NAME] [--connect]\n"
                 "         [--ahead N] [--seconds S] [--hrtf SET] [--order N] [--model N]\n"
                 "         [--room W D H | --preset N | --world FILE] [--reverb DRY]\n"
                 "         [--listener X Y Z LX LY LZ]\n"
                 "Renders the scene as a JACK client (out_left, out_right, and an input port\n"
                 "in_NAME for each jack or capture source) at the server's rate and period,\n"
                 "until Ctrl-C or --seconds. --connect joins the outputs to the system's\n"
                 "playback ports; --ahead makes N blocks ahead of the server (default 1: the\n"
                 "least latency). --osc listens for OSC on a UDP port (see the README).\n"
                 "Options override the scene file.\n");
}

// Reads the scene and applies the options behind it; exit code 0 to go on.
int loadScene(int argc, char **argv, SceneFile &scene, LiveOptions &options) {
    std::string error;
    if (!ReadSceneFile(argv[0], scene, error)) {
        std::fprintf(stderr, "quendarik: %s\n", error.c_str());
        return 1;
    }
    return ApplySceneOptions(argc - 1, argv + 1, scene, options) ? 0 : 2;
}

// The OSC server the options or the scene ask for (none: null), reading on a thread of its
// own or (bOwnThread false) when polled.
std::unique_ptr<OscServer> startOsc(SceneControls &controls, const SceneFile &scene,
                                    const LiveOptions &options, bool bOwnThread, bool &failed) {
    failed = false;
    const int port = options.osc >= 0 ? options.osc : scene.oscPort;
    if (options.osc < 0 && scene.oscPort == 0) {
        return nullptr;
    }
    auto server = std::make_unique<OscServer>(controls, scene, [](const std::string &line) {
        std::fprintf(stderr, "quendarik: %s\n", line.c_str());
    });
    std::string error;
    if (!server->Start(port, bOwnThread, error)) {
        std::fprintf(stderr, "quendarik: %s\n", error.c_str());
        failed = true;
        return nullptr;
    }
    std::printf("OSC on UDP port %d\n", server->Port());
    return server;
}

int runLiveScene(const SceneFile &scene, const LiveOptions &options) {
    JackOptions jack;
    jack.client = options.client.empty() ? scene.client : options.client;
    jack.connect = options.connect || scene.connect;
    jack.ahead = options.ahead;
    JackLive client(scene, jack);
    std::string error;
    bool oscFailed = false;
    if (!client.Open(error)) {
        std::fprintf(stderr, "quendarik live: %s\n", error.c_str());
        return 1;
    }
    // The render thread reads the OSC messages itself, just before each block.
    const auto osc = startOsc(client.Controls(), scene, options, false, oscFailed);
    if (oscFailed) {
        return 1;
    }
    if (!client.Run(osc.get(), error)) {
        std::fprintf(stderr, "quendarik live: %s\n", error.c_str());
        return 1;
    }
    std::printf("JACK client %s: %d Hz, %d frames a period, %zu sources\n", client.Name().c_str(),
                client.Rate(), client.Period(), scene.sources.size());
    std::fflush(stdout);
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    const auto start = std::chrono::steady_clock::now();
    long toldXruns = 0, toldLate = 0;
    while (!g_stop.load() && !client.ShutDown()) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        // Once a second at most: what went wrong since the last report.
        const long xruns = client.Xruns(), late = client.LateBlocks();
        if (xruns != toldXruns || late != toldLate) {
            std::fprintf(stderr, "quendarik live: %ld xruns, %ld late blocks so far\n", xruns,
                         late);
            toldXruns = xruns;
            toldLate = late;
        }
        const double t =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (options.seconds > 0.0 && t >= options.seconds) {
            break;
        }
    }
    if (client.ShutDown()) {
        std::fprintf(stderr, "quendarik live: the JACK server went away\n");
    }
    client.Stop();
    return client.ShutDown() ? 1 : 0;
}
}  // namespace

int RunLive(int argc, char **argv) {
    if (argc < 1 || !IsSceneFileName(argv[0])) {
        liveUsage();
        return 2;
    }
    SceneFile scene;
    LiveOptions options;
    const int code = loadScene(argc, argv, scene, options);
    return code != 0 ? code : runLiveScene(scene, options);
}

int RunSceneRender(int argc, char **argv) {
    SceneFile scene;
    LiveOptions options;
    const int code = loadScene(argc, argv, scene, options);
    if (code != 0) {
        return code;
    }
    if (scene.outFile.empty()) {
        std::fprintf(stderr, "quendarik render: %s names no output file: give --out FILE.wav\n",
                     argv[0]);
        return 2;
    }
    SceneEngine engine(scene, scene.rate, scene.block, false, -2);
    std::string error;
    if (!engine.Setup(error)) {
        std::fprintf(stderr, "quendarik render: %s\n", error.c_str());
        return 1;
    }
    // The file appears under its own name only when it is whole.
    const std::string part = scene.outFile + ".part";
    engine.Record(part);
    std::printf("Rendering %s to %s\n", argv[0], scene.outFile.c_str());
    std::fflush(stdout);
    const long blocks = static_cast<long>(std::ceil(scene.seconds * scene.rate / scene.block));
    for (long b = 0; b < blocks; ++b) {
        const double t = static_cast<double>(b) * scene.block / scene.rate;
        if (engine.Block(t) < 0) {
            std::fprintf(stderr, "\nquendarik render: no block was made (no HRTF set?)\n");
            engine.StopRecording();
            std::remove(part.c_str());
            return 1;
        }
        Progress(std::min(scene.seconds, t + double(scene.block) / scene.rate), scene.seconds);
    }
    ProgressEnd(scene.seconds);
    engine.StopRecording();
    std::error_code ec;
    std::filesystem::rename(part, scene.outFile, ec);
    if (ec) {
        std::fprintf(stderr, "quendarik render: %s: %s\n", scene.outFile.c_str(),
                     ec.message().c_str());
        return 1;
    }
    std::printf("Wrote %s\n", scene.outFile.c_str());
    return 0;
}

int RunScenePlay(int argc, char **argv) {
    SceneFile scene;
    LiveOptions options;
    const int code = loadScene(argc, argv, scene, options);
    if (code != 0) {
        return code;
    }
    if (scene.output == OutputKind::Jack) {
        return runLiveScene(scene, options);
    }
    if (!scene.device.empty()) {
        ::setenv("QK_ALSA_DEVICE", scene.device.c_str(), 1);
    }
    SceneEngine engine(scene, scene.rate, scene.block, false, -1);
    std::string error;
    if (!engine.Setup(error)) {
        std::fprintf(stderr, "quendarik play: %s\n", error.c_str());
        return 1;
    }
    bool oscFailed = false;
    const auto osc = startOsc(engine.Controls(), scene, options, true, oscFailed);
    if (oscFailed) {
        return 1;
    }
    std::printf("Playing %s\n", argv[0]);
    std::fflush(stdout);
    std::signal(SIGINT, onSignal);
    const long blocks = static_cast<long>(std::ceil(scene.seconds * scene.rate / scene.block));
    // The device's wait for a free buffer paces each block.
    for (long b = 0; b < blocks && !g_stop.load(); ++b) {
        const double t = static_cast<double>(b) * scene.block / scene.rate;
        engine.Block(t);
        Progress(std::min(scene.seconds, t + double(scene.block) / scene.rate), scene.seconds);
    }
    ProgressEnd(scene.seconds);
    return 0;
}

}  // namespace qkcli
