// The scene options shared by render, play, ir, bench and demo. A value that is missing or
// out of range is told in one line that names its option and what it wants.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "session.h"

namespace qkcli {
namespace {
// What an option's numbers must be.
struct NumberRule {
    int count;           // numbers behind the option
    double lowest;       // allowed range, inclusive unless told
    double highest;      //
    bool aboveLowest;    // the lowest value itself is refused
    bool whole;          // whole numbers only
    const char *wanted;  // the wording of the one-line complaint
};

const NumberRule kPosition{3, -1e6, 1e6, false, false, "three coordinates in metres (X Y Z)"};
const NumberRule kListener{
    6,     -1e6,  1e6,
    false, false, "six coordinates in metres (X Y Z, then the look-at point LX LY LZ)"};
const NumberRule kRoom{3, 0.0, 1e5, true, false, "three lengths in metres above 0 (W D H)"};
const NumberRule kPreset{1, 1, 6, false, true, "a preset room number from 1 to 6"};
const NumberRule kModel{1, 1, 3, false, true, "a model number from 1 to 3"};
const NumberRule kOrder{1, 0, 30, false, true, "a reflection order from 0 to 30"};
const NumberRule kSeconds{1, 0.0, 1e300, true, false, "a number of seconds above 0"};
const NumberRule kBlock{1, 16, 32768, false, true, "a whole number of frames from 16 to 32768"};
const NumberRule kThreads{1, 1, 64, false, true, "a whole number of threads from 1 to 64"};
const NumberRule kReverb{1, 0.0, 1.0, false, false, "a dry level from 0 to 1"};

bool fits(const NumberRule &rule, double v) {
    return std::isfinite(v) && v >= rule.lowest && v <= rule.highest &&
           !(rule.aboveLowest && v == rule.lowest) && !(rule.whole && v != std::floor(v));
}

// Reads rule.count numbers from argv[at] on into out; false, after one line naming the option,
// when they are missing or break the rule.
bool readNumbers(const std::string &opt, char **argv, int at, int argc, const NumberRule &rule,
                 double *out) {
    for (int k = 0; k < rule.count; ++k) {
        const char *text = at + k < argc ? argv[at + k] : nullptr;
        char *end = nullptr;
        const double v = text != nullptr ? std::strtod(text, &end) : 0.0;
        if (text == nullptr || end == text || *end != '\0' || !fits(rule, v)) {
            if (text == nullptr) {
                std::fprintf(stderr, "quendarik: %s wants %s; too few are given\n", opt.c_str(),
                             rule.wanted);
            } else {
                std::fprintf(stderr, "quendarik: %s wants %s, not '%s'\n", opt.c_str(), rule.wanted,
                             text);
            }
            return false;
        }
        out[k] = v;
    }
    return true;
}

void copyFloats(const double *from, int count, float *to) {
    for (int k = 0; k < count; ++k) {
        to[k] = static_cast<float>(from[k]);
    }
}

// The options that take numbers (and --source, a file and a place). 1: taken, advancing i;
// 0: not one of them; -1: a bad value, told.
int parseNumbered(const std::string &opt, int argc, char **argv, int &i, Scene &scene) {
    double v[6] = {};
    SceneSource source;
    if (opt == "--source") {
        if (i + 1 >= argc) {
            std::fprintf(stderr, "quendarik: --source wants a file and its place (FILE X Y Z)\n");
            return -1;
        }
        if (!readNumbers(opt, argv, i + 2, argc, kPosition, v)) {
            return -1;
        }
        source.file = argv[i + 1];
        copyFloats(v, 3, &source.x);
        scene.sources.push_back(source);
        i += 4;
    } else if (opt == "--noise") {
        if (!readNumbers(opt, argv, i + 1, argc, kPosition, v)) {
            return -1;
        }
        copyFloats(v, 3, &source.x);
        scene.sources.push_back(source);
        i += 3;
    } else if (opt == "--listener") {
        if (!readNumbers(opt, argv, i + 1, argc, kListener, v)) {
            return -1;
        }
        copyFloats(v, 6, scene.listener);
        scene.listenerGiven = true;
        i += 6;
    } else if (opt == "--room") {
        if (!readNumbers(opt, argv, i + 1, argc, kRoom, v)) {
            return -1;
        }
        copyFloats(v, 3, scene.room);
        scene.world.clear();
        scene.preset = 0;
        i += 3;
    } else if (opt == "--preset") {
        if (!readNumbers(opt, argv, i + 1, argc, kPreset, v)) {
            return -1;
        }
        scene.preset = static_cast<int>(v[0]);
        scene.world.clear();
        scene.room[0] = 0.0f;
        i += 1;
    } else {
        return 0;
    }
    return 1;
}

// The options that take one number each; as parseNumbered.
int parseSingle(const std::string &opt, int argc, char **argv, int &i, Scene &scene) {
    struct Single {
        const char *name;
        const NumberRule &rule;
    };
    static const Single kSingles[] = {{"--model", kModel},     {"--order", kOrder},
                                      {"--seconds", kSeconds}, {"--block", kBlock},
                                      {"--threads", kThreads}, {"--reverb", kReverb}};
    const Single *found = std::find_if(std::begin(kSingles), std::end(kSingles),
                                       [&](const Single &s) { return opt == s.name; });
    if (found == std::end(kSingles)) {
        return 0;
    }
    double v = 0.0;
    if (!readNumbers(opt, argv, i + 1, argc, found->rule, &v)) {
        return -1;
    }
    i += 1;
    if (opt == "--model") {
        scene.model = static_cast<int>(v);
    } else if (opt == "--order") {
        scene.order = static_cast<int>(v);
    } else if (opt == "--seconds") {
        scene.seconds = v;
    } else if (opt == "--block") {
        scene.block = static_cast<int>(v);
    } else if (opt == "--threads") {
        scene.threads = static_cast<int>(v);
    } else {
        scene.reverbDry = static_cast<float>(v);
    }
    return 1;
}

// The options that take a word; as parseNumbered.
int parseWorded(const std::string &opt, int argc, char **argv, int &i, Scene &scene) {
    const bool named =
        opt == "--world" || opt == "--out" || opt == "--hrtf" || opt == "--convolution";
    if (!named) {
        return 0;
    }
    if (i + 1 >= argc) {
        std::fprintf(stderr, "quendarik: %s wants a value; none is given\n", opt.c_str());
        return -1;
    }
    const std::string value = argv[++i];
    if (opt == "--world") {
        scene.world = value;
        scene.room[0] = 0.0f;  // the last room given counts
        scene.preset = 0;
    } else if (opt == "--out") {
        scene.out = value;
    } else if (opt == "--hrtf") {
        scene.hrtf = value;
    } else if (value == "partitioned" || value == "overlap") {
        scene.convolution = value == "partitioned" ? 1 : 0;
    } else {
        std::fprintf(stderr, "quendarik: --convolution wants partitioned or overlap, not '%s'\n",
                     value.c_str());
        return -1;
    }
    return 1;
}
}  // namespace

bool ParseScene(int argc, char **argv, Scene &scene, std::vector<std::string> *rest) {
    for (int i = 0; i < argc; ++i) {
        const std::string opt = argv[i];
        int taken = parseNumbered(opt, argc, argv, i, scene);
        taken = taken == 0 ? parseSingle(opt, argc, argv, i, scene) : taken;
        taken = taken == 0 ? parseWorded(opt, argc, argv, i, scene) : taken;
        if (taken < 0) {
            return false;
        }
        if (taken > 0) {
            continue;
        }
        if (opt == "--zero-stuffing") {
            scene.zeroStuffing = true;
        } else if (opt == "--force") {
            scene.force = true;
        } else if (opt == "--speakers") {
            // The angle is optional: a following word that isn't a number is the next option.
            scene.speakers = 30.0f;
            char *end = nullptr;
            const double v = i + 1 < argc ? std::strtod(argv[i + 1], &end) : 0.0;
            if (i + 1 < argc && end != argv[i + 1] && *end == '\0') {
                if (!(v > 0.0 && v < 180.0)) {
                    std::fprintf(stderr,
                                 "quendarik: --speakers wants an angle in degrees between 0 and "
                                 "180, not '%s'\n",
                                 argv[i + 1]);
                    return false;
                }
                scene.speakers = static_cast<float>(v);
                i += 1;
            }
        } else if (rest != nullptr) {
            rest->push_back(opt);
        } else {
            std::fprintf(stderr, "quendarik: unknown option '%s'\n", opt.c_str());
            return false;
        }
    }
    return true;
}

}  // namespace qkcli
