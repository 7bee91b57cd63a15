// quendarik bench: renders N sources with no device and tells the real-time factor and the
// cost of one source in one block, beside the raw transform work such a block needs.
#include <fftw3.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "commands.h"
#include "platform/WorkerPool.h"
#include "session.h"

namespace qkcli {
namespace {
using Clock = std::chrono::steady_clock;

// The raw work of one source's block with a response of `taps`: one forward transform of
// the block, a product for each ear and an inverse for each ear, at the transform length
// that holds block + taps - 1 samples. With `sets` sources each has buffers of its own, as
// in the engine, so that the reference pays the same trips to memory. Microseconds per
// source, the best of several rounds.
double rawTransformMicros(int block, int taps, int sets, int &length) {
    length = 1;
    while (length < block + taps - 1) {
        length *= 2;
    }
    const int bins = length / 2 + 1;
    struct Set {
        float *time;
        fftwf_complex *spectrum;
        fftwf_complex *ears[2];
    };
    std::vector<Set> data(static_cast<size_t>(sets));
    for (Set &d : data) {
        d.time = fftwf_alloc_real(static_cast<size_t>(length));
        d.spectrum = fftwf_alloc_complex(static_cast<size_t>(bins));
        std::fill(d.time, d.time + length, 0.5f);
        for (auto &ear : d.ears) {
            ear = fftwf_alloc_complex(static_cast<size_t>(bins));
            for (int k = 0; k < bins; ++k) {
                ear[k][0] = 0.3f;
                ear[k][1] = -0.2f;
            }
        }
    }
    fftwf_complex *product = fftwf_alloc_complex(static_cast<size_t>(bins));
    float *out = fftwf_alloc_real(static_cast<size_t>(length));
    const fftwf_plan forward =
        fftwf_plan_dft_r2c_1d(length, data[0].time, data[0].spectrum, FFTW_ESTIMATE);
    const fftwf_plan inverse = fftwf_plan_dft_c2r_1d(length, product, out, FFTW_ESTIMATE);
    double best = 1e30;
    const float scale = 1.0f / static_cast<float>(length);
    for (int round = 0; round < 5; ++round) {
        const int reps = std::max(sets, 2000000 / length);
        const auto start = Clock::now();
        for (int r = 0; r < reps; ++r) {
            Set &d = data[static_cast<size_t>(r % sets)];
            fftwf_execute_dft_r2c(forward, d.time, d.spectrum);
            for (auto *ear : d.ears) {
                for (int k = 0; k < bins; ++k) {
                    product[k][0] =
                        (d.spectrum[k][0] * ear[k][0] - d.spectrum[k][1] * ear[k][1]) * scale;
                    product[k][1] =
                        (d.spectrum[k][0] * ear[k][1] + d.spectrum[k][1] * ear[k][0]) * scale;
                }
                fftwf_execute_dft_c2r(inverse, product, out);
            }
        }
        const double us = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
        best = std::min(best, us / reps);
    }
    fftwf_destroy_plan(forward);
    fftwf_destroy_plan(inverse);
    for (Set &d : data) {
        fftwf_free(d.time);
        fftwf_free(d.spectrum);
        fftwf_free(d.ears[0]);
        fftwf_free(d.ears[1]);
    }
    fftwf_free(product);
    fftwf_free(out);
    return best;
}
// Resident memory of this process, from /proc/self/statm.
long residentKilobytes() {
    long pages = 0;
    long resident = 0;
    if (std::FILE *f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) {
            resident = 0;
        }
        std::fclose(f);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}
}  // namespace

int RunBench(int argc, char **argv) {
    Scene scene;
    int sources = 1;
    int taps = 512;
    bool moves = false;
    std::vector<std::string> rest;
    if (!ParseScene(argc, argv, scene, &rest)) {
        return 2;
    }
    for (size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == "--moves") {
            moves = true;
        } else if (rest[i] == "--moving") {
            scene.moveAll = true;
        } else if (rest[i] == "--sources" && i + 1 < rest.size()) {
            sources = std::atoi(rest[++i].c_str());
        } else if (rest[i] == "--taps" && i + 1 < rest.size()) {
            taps = std::atoi(rest[++i].c_str());
        } else {
            std::fprintf(stderr,
                         "usage: quendarik bench [--sources N] [--block B] [--seconds S] "
                         "[--taps T] [--moving] [--convolution partitioned|overlap]\n"
                         "       [--threads T]\n"
                         "       quendarik bench --moves [--block B] [--seconds S]\n");
            return 2;
        }
    }
    if (moves) {
        // Blocks of 512 and 8192 unless one is named; two seconds each unless told.
        const bool named = std::find(argv, argv + argc, std::string("--block")) != argv + argc;
        const bool timed = std::find(argv, argv + argc, std::string("--seconds")) != argv + argc;
        if (!timed) {
            scene.seconds = 2.0;
        }
        return RunBenchMoves(scene,
                             named ? std::vector<int>{scene.block} : std::vector<int>{512, 8192});
    }
    if (sources < 1 || sources > 4096 || taps < 1) {
        std::fprintf(stderr, "quendarik bench: --sources 1..4096, --taps > 0\n");
        return 2;
    }
    // Sources on a ring around the listener, all playing program-made noise.
    scene.sources.clear();
    for (int i = 0; i < sources; ++i) {
        const double angle = 2.0 * 3.14159265358979 * i / sources;
        scene.sources.push_back(SceneSource{"", static_cast<float>(-2.0 * std::sin(angle)),
                                            static_cast<float>(2.0 * std::cos(angle)), 0.0f});
    }
    scene.shareSound = true;  // the cost measured is the sources', not the feeding of them
    HostedRender render(scene);
    if (!render.Ready()) {
        return 1;
    }
    const long blocks =
        std::max(2L, static_cast<long>(scene.seconds * HostedRender::kRate / scene.block));
    // The first block builds every response; it isn't the steady state.
    if (render.Block(0.0) < 0) {
        std::fprintf(stderr, "quendarik bench: no block was made (no HRTF set?)\n");
        return 1;
    }
    const auto start = Clock::now();
    // A long run is also a soak: the resident memory after the first minute of audio and at
    // the end tell whether anything grows.
    const long minute = static_cast<long>(60.0 * HostedRender::kRate / scene.block);
    long rssMinute = 0;
    for (long b = 1; b < blocks; ++b) {
        render.Block(static_cast<double>(b) * scene.block / HostedRender::kRate);
        if (b == minute) {
            rssMinute = residentKilobytes();
        }
    }
    const double wall = std::chrono::duration<double>(Clock::now() - start).count();
    const int threads = scene.threads > 0 ? scene.threads : qk::CWorkerPool::DefaultThreads();
    if (rssMinute > 0) {
        const long rssEnd = residentKilobytes();
        std::printf(
            "resident memory: %ld KB after the first minute of audio, %ld KB at the end "
            "(%+.2f %%)\n",
            rssMinute, rssEnd, 100.0 * (rssEnd - rssMinute) / rssMinute);
    }
    const double audio = static_cast<double>(blocks - 1) * scene.block / HostedRender::kRate;
    const double perSource = wall * 1e6 / static_cast<double>(blocks - 1) / sources;
    int length = 0;
    // The raw work of the method in use: the whole-filter transform of block + taps, or, for
    // the partitioned method, that of each partition (a response of one partition).
    const int partition = scene.block <= 512 || scene.block % 512 != 0 ? scene.block : 512;
    // With as many sets of buffers as sources (the trips to memory the engine pays), and with
    // one set that stays in cache (the limit of a per-source path).
    auto rawWork = [&](int sets) {
        return scene.convolution == 1 ? rawTransformMicros(partition, partition + 1, sets, length) *
                                            (scene.block / partition)
                                      : rawTransformMicros(scene.block, taps, sets, length);
    };
    const double raw = rawWork(sources);
    const double inCache = rawWork(1);
    std::printf(
        "sources %d%s, block %d, %d thread%s, %s convolution, %.1f s of audio in %.3f s: "
        "real-time factor %.1f\n",
        sources, scene.moveAll ? " moving" : "", scene.block, threads, threads == 1 ? "" : "s",
        scene.convolution == 1 ? "partitioned" : "whole-filter", audio, wall, audio / wall);
    std::printf(
        "per source per block: %.1f us; raw transforms (N = %d, %d taps): %.1f us; "
        "ratio %.2f; in-cache limit proxy %.1f us, ratio %.2f\n",
        perSource, length, scene.convolution == 1 ? partition : taps, raw, perSource / raw, inCache,
        perSource / inCache);
    return 0;
}

}  // namespace qkcli
