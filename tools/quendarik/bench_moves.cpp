// quendarik bench --moves: how long a host's move of a virtual source takes while the engine
// renders 64 sources, measured on the host's side of the call.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>
#include <vector>

#include "commands.h"
#include "session.h"

namespace qkcli {
namespace {
using Clock = std::chrono::steady_clock;
constexpr int kSources = 64;
constexpr double kPi = 3.14159265358979323846;

// A host at 1 kHz: each millisecond it moves every source a little further round the
// listener and turns the listener, timing each call, for `seconds` of rendering at `block`.
bool measureMoves(const Scene &base, int block, double seconds) {
    Scene scene = base;
    scene.block = block;
    scene.sources.clear();
    for (int i = 0; i < kSources; ++i) {
        const double angle = 2.0 * kPi * i / kSources;
        scene.sources.push_back(SceneSource{"", static_cast<float>(-2.0 * std::sin(angle)),
                                            static_cast<float>(2.0 * std::cos(angle)), 0.0f});
    }
    scene.shareSound = true;
    HostedRender render(scene);
    if (!render.Ready() || render.Block(0.0) < 0) {
        std::fprintf(stderr, "quendarik bench: no block was made (no HRTF set?)\n");
        return false;
    }
    std::atomic<bool> stop{false};
    std::atomic<long> blocks{0};
    std::thread audio([&] {  // the host's audio thread asks for blocks without a pause
        for (long b = 1; !stop; ++b) {
            render.Block(static_cast<double>(b) * block / HostedRender::kRate);
            ++blocks;
        }
    });
    CQKSDK &sdk = render.Sdk();
    const std::vector<int> &ids = render.ObjectIds();
    const int listener = render.ListenerId();
    std::vector<double> micros;
    micros.reserve(static_cast<size_t>(seconds * 1000.0 * (kSources + 1)) + 1024);
    const auto start = Clock::now();
    auto tick = start;
    for (int step = 0; Clock::now() - start < std::chrono::duration<double>(seconds); ++step) {
        const double turn = 0.001 * step;
        for (size_t i = 0; i < ids.size(); ++i) {
            const double angle = 2.0 * kPi * static_cast<double>(i) / kSources + turn;
            const auto t0 = Clock::now();
            sdk.qk_Vsrc_Set_Position(ids[i], static_cast<float>(-2.0 * std::sin(angle)),
                                     static_cast<float>(2.0 * std::cos(angle)), 0.0f);
            micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
        }
        const auto t0 = Clock::now();
        sdk.qk_Vrcv_Set_Position_LookAt(listener, 0.0f, 0.0f, 0.0f,
                                        static_cast<float>(-std::sin(turn)),
                                        static_cast<float>(std::cos(turn)), 0.0f);
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
        tick += std::chrono::milliseconds(1);
        std::this_thread::sleep_until(tick);
    }
    stop = true;
    audio.join();
    std::sort(micros.begin(), micros.end());
    auto at = [&](double share) {
        return micros[std::min(micros.size() - 1, static_cast<size_t>(share * micros.size()))];
    };
    std::printf(
        "block %d, %d sources, %ld blocks, %zu moves: host move latency: p50 %.2f us, "
        "p99 %.2f us, max %.2f us\n",
        block, kSources, blocks.load(), micros.size(), at(0.5), at(0.99), micros.back());
    return true;
}
}  // namespace

int RunBenchMoves(const Scene &scene, const std::vector<int> &blocks) {
    for (int block : blocks) {
        if (!measureMoves(scene, block, scene.seconds)) {
            return 1;
        }
    }
    return 0;
}

}  // namespace qkcli
