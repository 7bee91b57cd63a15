// Plays a tone through the sound output helper: the fill function below is asked for each
// buffer in turn, on the helper's own thread, until it gives 0 bytes.
//
//   tone [SECONDS [HZ]]     (QK_ALSA_DEVICE picks the device; "virtual" needs no sound system)
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "audio/CSoundOut.h"

namespace {
struct Tone {
    double hz = 440.0;
    double phase = 0.0;
    long framesLeft = 0;
    int rate = 44100;
    std::atomic<bool> done{false};
};

// Stereo 16-bit frames of the tone at a quarter of full scale; 0 bytes once it has all gone.
unsigned long fillTone(CSoundBuffer *pBuffer, void *pUser) {
    auto *tone = static_cast<Tone *>(pUser);
    auto *out = static_cast<int16_t *>(pBuffer->data);
    const long frames = static_cast<long>(pBuffer->size / 4);
    const long count = frames < tone->framesLeft ? frames : tone->framesLeft;
    for (long i = 0; i < count; ++i) {
        const auto value = static_cast<int16_t>(8192.0 * std::sin(tone->phase));
        out[2 * i] = out[2 * i + 1] = value;
        tone->phase = std::fmod(tone->phase + 2.0 * M_PI * tone->hz / tone->rate, 2.0 * M_PI);
    }
    tone->framesLeft -= count;
    if (count == 0) {
        tone->done = true;
    }
    return static_cast<unsigned long>(count) * 4;
}
}  // namespace

int main(int argc, char **argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 2.0;
    Tone tone;
    tone.hz = argc > 2 ? std::atof(argv[2]) : 440.0;
    tone.framesLeft = static_cast<long>(seconds * tone.rate);

    CSoundOut out;  // 16 bits, 44100 Hz, stereo
    out.SetBufferSize(4410);
    out.m_pfnGetData = &fillTone;
    out.m_pUser = &tone;
    if (!out.Start(-1, 1, nullptr)) {
        std::fprintf(stderr, "tone: the output device didn't open\n");
        return 1;
    }
    while (!tone.done || out.IsDeviceOpen()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::printf("tone: %.1f s of %.0f Hz played\n", seconds, tone.hz);
    return 0;
}
