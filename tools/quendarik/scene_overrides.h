// Command-line options that override what a scene file says, for render, play and live.
#pragma once

#include <string>

#include "scene_file.h"

namespace qkcli {

struct LiveOptions {
    int osc = -1;          // OSC port; -1: the scene's
    std::string client;    // JACK client name; empty: the scene's
    bool connect = false;  // connect the outputs to the system's playback ports
    int ahead = 1;         // blocks made ahead of the JACK callback
    double seconds = 0.0;  // live: stop after this long; 0: at Ctrl-C
};

// Applies --out FILE, --seconds S, --block N, --rate HZ, --hrtf SET, --order N, --model N,
// --reverb DRY, --room W D H, --preset N, --world FILE, --listener X Y Z LX LY LZ, --osc PORT,
// --client NAME, --connect and --ahead N to the scene. False, with one line on standard error
// naming the option, for an unknown option or a bad value.
bool ApplySceneOptions(int argc, char **argv, SceneFile &scene, LiveOptions &live);

}  // namespace qkcli
