#include "scene_overrides.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace qkcli {
namespace {
constexpr double kDegree = 3.14159265358979323846 / 180.0;

// Reads count numbers behind argv[at] into out, each within [lo, hi]; says what is wrong.
bool numbers(int argc, char **argv, int at, int count, double lo, double hi, double *out) {
    const char *option = argv[at];
    if (at + count >= argc) {
        std::fprintf(stderr, "quendarik: %s wants %d number%s\n", option, count,
                     count > 1 ? "s" : "");
        return false;
    }
    for (int i = 0; i < count; ++i) {
        const char *text = argv[at + 1 + i];
        char *end = nullptr;
        out[i] = std::strtod(text, &end);
        if (end == text || *end != '\0' || !std::isfinite(out[i])) {
            std::fprintf(stderr, "quendarik: %s: '%s' is not a number\n", option, text);
            return false;
        }
        if (out[i] < lo || out[i] > hi) {
            std::fprintf(stderr, "quendarik: %s: %s is not within %g to %g\n", option, text, lo,
                         hi);
            return false;
        }
    }
    return true;
}

bool whole(int argc, char **argv, int at, double lo, double hi, int &out) {
    double v = 0.0;
    if (!numbers(argc, argv, at, 1, lo, hi, &v)) {
        return false;
    }
    if (v != std::floor(v)) {
        std::fprintf(stderr, "quendarik: %s: %s is not a whole number\n", argv[at], argv[at + 1]);
        return false;
    }
    out = static_cast<int>(v);
    return true;
}

bool text(int argc, char **argv, int at, std::string &out) {
    if (at + 1 >= argc) {
        std::fprintf(stderr, "quendarik: %s wants a value\n", argv[at]);
        return false;
    }
    out = argv[at + 1];
    return true;
}

// The listener placed at a point and looking at another, as a pose.
void placeListener(const double *v, SceneFile &scene) {
    const double dx = v[3] - v[0], dy = v[4] - v[1], dz = v[5] - v[2];
    scene.listener.x = static_cast<float>(v[0]);
    scene.listener.y = static_cast<float>(v[1]);
    scene.listener.z = static_cast<float>(v[2]);
    scene.listener.yaw = static_cast<float>(std::atan2(-dx, dy) / kDegree);
    scene.listener.pitch = static_cast<float>(std::atan2(dz, std::hypot(dx, dy)) / kDegree);
    scene.listener.roll = 0.0f;
    scene.listenerGiven = true;
    scene.listenerTrajectory = Trajectory{};
}

// One room option; `used` is how many words it took behind the option.
bool roomOption(int argc, char **argv, int i, SceneFile &scene, int &used) {
    const std::string opt = argv[i];
    double v[3];
    if (opt == "--room") {
        if (!numbers(argc, argv, i, 3, 0.01, kMaxCoordinate, v)) {
            return false;
        }
        scene.room = RoomKind::ShoeBox;
        for (int k = 0; k < 3; ++k) {
            scene.box[k] = static_cast<float>(v[k]);
        }
        used = 3;
        return true;
    }
    if (opt == "--preset") {
        scene.room = RoomKind::Preset;
        used = 1;
        return whole(argc, argv, i, 1, 6, scene.preset);
    }
    used = 1;
    if (!text(argc, argv, i, scene.world)) {
        return false;
    }
    std::error_code ec;
    if (!std::filesystem::is_regular_file(scene.world, ec)) {
        std::fprintf(stderr, "quendarik: --world: %s: no such file\n", scene.world.c_str());
        return false;
    }
    scene.room = RoomKind::World;
    return true;
}
}  // namespace

bool ApplySceneOptions(int argc, char **argv, SceneFile &scene, LiveOptions &live) {
    for (int i = 0; i < argc; ++i) {
        const std::string opt = argv[i];
        double v[6];
        int used = 1;
        bool ok = true;
        if (opt == "--out") {
            ok = text(argc, argv, i, scene.outFile);
        } else if (opt == "--seconds") {
            ok = numbers(argc, argv, i, 1, 0.001, kMaxSceneSeconds, v);
            scene.seconds = live.seconds = ok ? v[0] : scene.seconds;
        } else if (opt == "--block") {
            ok = whole(argc, argv, i, 16, 32768, scene.block);
        } else if (opt == "--rate") {
            ok = whole(argc, argv, i, 8000, 192000, scene.rate);
        } else if (opt == "--hrtf") {
            ok = text(argc, argv, i, scene.hrtf);
            scene.hrtfIsPath = scene.hrtf.find('/') != std::string::npos;
        } else if (opt == "--order") {
            ok = whole(argc, argv, i, 0, 30, scene.order);
        } else if (opt == "--model") {
            ok = whole(argc, argv, i, 0, 3, scene.model);
        } else if (opt == "--reverb") {
            ok = numbers(argc, argv, i, 1, 0.0, 1.0, v);
            scene.reverbDry = ok ? static_cast<float>(v[0]) : scene.reverbDry;
        } else if (opt == "--room" || opt == "--preset" || opt == "--world") {
            ok = roomOption(argc, argv, i, scene, used);
        } else if (opt == "--listener") {
            ok = numbers(argc, argv, i, 6, -kMaxCoordinate, kMaxCoordinate, v);
            used = 6;
            if (ok) {
                placeListener(v, scene);
            }
        } else if (opt == "--move-rate") {
            ok = numbers(argc, argv, i, 1, 0.0, 1000.0, v);
            scene.moveRate = ok ? v[0] : scene.moveRate;
        } else if (opt == "--osc") {
            ok = whole(argc, argv, i, 0, 65535, live.osc);
        } else if (opt == "--client") {
            ok = text(argc, argv, i, live.client);
        } else if (opt == "--ahead") {
            ok = whole(argc, argv, i, 1, 8, live.ahead);
        } else if (opt == "--connect") {
            live.connect = true;
            used = 0;
        } else {
            std::fprintf(stderr, "quendarik: unknown option '%s'\n", opt.c_str());
            return false;
        }
        if (!ok) {
            return false;
        }
        i += used;
    }
    if (scene.model > 0 && scene.room == RoomKind::None) {
        std::fprintf(stderr, "quendarik: --model %d needs a room\n", scene.model);
        return false;
    }
    return true;
}

}  // namespace qkcli
