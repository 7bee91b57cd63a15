// quendarik demo: noise circling the listener for twenty seconds, rendered with the default
// HRTF set to demo.wav, then played live when a device can be opened.
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "session.h"

namespace qkcli {

int RunDemo(int argc, char **argv) {
    Scene scene;
    scene.seconds = 20.0;
    scene.out = "demo.wav";
    scene.sources.push_back(SceneSource{"", 0.0f, 2.0f, 0.0f});
    scene.circleSource = 0;
    // The default room: 5 x 5 x 3 m, reflections to the second order.
    scene.room[0] = 5.0f;
    scene.room[1] = 5.0f;
    scene.room[2] = 3.0f;
    scene.order = 2;
    bool live = true;
    std::vector<std::string> rest;
    if (!ParseScene(argc, argv, scene, &rest)) {
        return 2;
    }
    for (const std::string &opt : rest) {
        if (opt == "--no-play") {
            live = false;
        } else {
            std::fprintf(stderr, "quendarik demo: unknown option '%s'\n", opt.c_str());
            return 2;
        }
    }

    std::printf(
        "Rendering %.0f s of noise circling the listener (radius %.1f m, one turn every "
        "%.0f s) in %s, with the direct sound and every reflection heard, to %s\n",
        scene.seconds, scene.circleRadius, scene.circlePeriod, DescribeRoom(scene).c_str(),
        scene.out.c_str());
    std::fflush(stdout);  // before the progress bar on standard error, also into a pipe
    const long blocks = static_cast<long>(scene.seconds * HostedRender::kRate / scene.block);
    {
        HostedRender render(scene);
        if (!render.Ready()) {
            return 1;
        }
        for (long b = 0; b < blocks; ++b) {
            const double t = static_cast<double>(b) * scene.block / HostedRender::kRate;
            if (render.Block(t) < 0) {
                std::fprintf(stderr,
                             "\nquendarik demo: no block was made: is the default HRTF "
                             "set in place? (make demo installs it)\n");
                return 1;
            }
            Progress(t + static_cast<double>(scene.block) / HostedRender::kRate, scene.seconds);
        }
        ProgressEnd(scene.seconds);
        render.Sdk().qk_Save_Wave_Stop();
    }
    std::printf("Wrote %s\n", scene.out.c_str());
    if (live) {
        std::printf("Playing it on the default audio device...\n");
        if (!PlayWaveFile(scene.out)) {
            std::printf("No audio device could be opened; the file is there to listen to.\n");
        }
    }
    return 0;
}

}  // namespace qkcli
