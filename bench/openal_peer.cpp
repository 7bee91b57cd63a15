// The peer to compare with: OpenAL Soft's HRTF mixer (Debian's libopenal), rendering the same
// scene as `quendarik bench` offline through its loopback device: N sources of noise on a
// ring 2 m around the listener, 44.1 kHz stereo, blocks of B frames, optionally every source
// moving a little every block. Prints the real-time factor and the microseconds per source
// per block in the same words as quendarik bench.
#include <AL/al.h>
#include <AL/alc.h>
#include <AL/alext.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {
constexpr int kRate = 44100;
constexpr double kPi = 3.14159265358979323846;

struct Options {
    int sources = 64;
    int block = 512;
    double seconds = 10.0;
    bool moving = false;
};

bool parse(int argc, char **argv, Options &o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--moving") {
            o.moving = true;
        } else if (a == "--sources" && i + 1 < argc) {
            o.sources = std::atoi(argv[++i]);
        } else if (a == "--block" && i + 1 < argc) {
            o.block = std::atoi(argv[++i]);
        } else if (a == "--seconds" && i + 1 < argc) {
            o.seconds = std::atof(argv[++i]);
        } else {
            return false;
        }
    }
    return o.sources > 0 && o.sources <= 4096 && o.block >= 16 && o.seconds > 0;
}

template <typename T>
T loadProc(ALCdevice *device, const char *name) {
    return reinterpret_cast<T>(alcGetProcAddress(device, name));
}
}  // namespace

int main(int argc, char **argv) {
    Options o;
    if (!parse(argc, argv, o)) {
        std::fprintf(stderr,
                     "usage: openal_peer [--sources N] [--block B] [--seconds S] [--moving]\n");
        return 2;
    }
    if (!alcIsExtensionPresent(nullptr, "ALC_SOFT_loopback")) {
        std::fprintf(stderr, "openal_peer: this OpenAL has no loopback device\n");
        return 1;
    }
    auto openLoopback = loadProc<LPALCLOOPBACKOPENDEVICESOFT>(nullptr, "alcLoopbackOpenDeviceSOFT");
    ALCdevice *device = openLoopback(nullptr);
    auto render = loadProc<LPALCRENDERSAMPLESSOFT>(device, "alcRenderSamplesSOFT");
    const ALCint attributes[] = {ALC_FORMAT_CHANNELS_SOFT,
                                 ALC_STEREO_SOFT,
                                 ALC_FORMAT_TYPE_SOFT,
                                 ALC_FLOAT_SOFT,
                                 ALC_FREQUENCY,
                                 kRate,
                                 ALC_HRTF_SOFT,
                                 ALC_TRUE,
                                 ALC_MONO_SOURCES,
                                 o.sources,
                                 0};
    ALCcontext *context = alcCreateContext(device, attributes);
    if (context == nullptr || !alcMakeContextCurrent(context)) {
        std::fprintf(stderr, "openal_peer: no context\n");
        return 1;
    }
    ALCint hrtf = 0;
    alcGetIntegerv(device, ALC_HRTF_SOFT, 1, &hrtf);

    // Two seconds of noise at a tenth of full scale, looped by every source.
    std::mt19937 rng(1973);
    std::normal_distribution<float> normal(0.0f, 0.1f);
    std::vector<float> noise(2 * kRate);
    for (float &v : noise) {
        v = normal(rng);
    }
    ALuint buffer = 0;
    alGenBuffers(1, &buffer);
    alBufferData(buffer, AL_FORMAT_MONO_FLOAT32, noise.data(),
                 static_cast<ALsizei>(noise.size() * sizeof(float)), kRate);
    std::vector<ALuint> sources(static_cast<size_t>(o.sources));
    alGenSources(o.sources, sources.data());
    for (int i = 0; i < o.sources; ++i) {
        const double angle = 2.0 * kPi * i / o.sources;
        alSourcei(sources[static_cast<size_t>(i)], AL_BUFFER, static_cast<ALint>(buffer));
        alSourcei(sources[static_cast<size_t>(i)], AL_LOOPING, AL_TRUE);
        alSource3f(sources[static_cast<size_t>(i)], AL_POSITION,
                   static_cast<float>(-2.0 * std::sin(angle)), 0.0f,
                   static_cast<float>(-2.0 * std::cos(angle)));
        alSourcePlay(sources[static_cast<size_t>(i)]);
    }
    if (alGetError() != AL_NO_ERROR) {
        std::fprintf(stderr, "openal_peer: the sources could not be made\n");
        return 1;
    }
    std::vector<float> out(2 * static_cast<size_t>(o.block));
    const long blocks = std::max(2L, static_cast<long>(o.seconds * kRate / o.block));
    render(device, out.data(), o.block);  // the first block sets everything up
    const auto start = std::chrono::steady_clock::now();
    for (long b = 1; b < blocks; ++b) {
        if (o.moving) {
            for (int i = 0; i < o.sources; ++i) {
                const double angle = 2.0 * kPi * i / o.sources + 0.01 * b;
                alSource3f(sources[static_cast<size_t>(i)], AL_POSITION,
                           static_cast<float>(-2.0 * std::sin(angle)), 0.0f,
                           static_cast<float>(-2.0 * std::cos(angle)));
            }
        }
        render(device, out.data(), o.block);
    }
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double audio = static_cast<double>(blocks - 1) * o.block / kRate;
    std::printf(
        "OpenAL Soft (HRTF %s): sources %d%s, block %d, %.1f s of audio in %.3f s: "
        "real-time factor %.1f\n",
        hrtf != 0 ? "on" : "OFF", o.sources, o.moving ? " moving" : "", o.block, audio, wall,
        audio / wall);
    std::printf("per source per block: %.1f us\n",
                wall * 1e6 / static_cast<double>(blocks - 1) / o.sources);
    alDeleteSources(o.sources, sources.data());
    alDeleteBuffers(1, &buffer);
    alcMakeContextCurrent(nullptr);
    alcDestroyContext(context);
    alcCloseDevice(device);
    return 0;
}
