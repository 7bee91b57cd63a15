// quendarik bench: renders N sources with no device and tells the real-time factor and the
// cost of one source in one block, beside the raw transform work such a block needs.
#include <fftw3.h>
#include <time.h>
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

// Microseconds of processor time this process has used, all its threads together.
double processorMicros() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_nsec) * 1e-3;
}

// The raw work of one source's block with a response of `taps`: one forward transform of
// the block, a product for each ear and an inverse for each ear, at the transform length
// that holds block + taps - 1 samples. With `sets` sources each has buffers of its own, as
// in the engine, so that the reference pays the same trips to memory. Round() tells the
// microseconds per source of one round of it.
class RawTransforms {
  public:
    RawTransforms(int block, int taps, int sets) : m_sets(sets) {
        while (m_length < block + taps - 1) {
            m_length *= 2;
        }
        m_bins = m_length / 2 + 1;
        m_data.resize(static_cast<size_t>(sets));
        for (Set &d : m_data) {
            d.time = fftwf_alloc_real(static_cast<size_t>(m_length));
            d.spectrum = fftwf_alloc_complex(static_cast<size_t>(m_bins));
            std::fill(d.time, d.time + m_length, 0.5f);
            for (auto &ear : d.ears) {
                ear = fftwf_alloc_complex(static_cast<size_t>(m_bins));
                for (int k = 0; k < m_bins; ++k) {
                    ear[k][0] = 0.3f;
                    ear[k][1] = -0.2f;
                }
            }
        }
        m_product = fftwf_alloc_complex(static_cast<size_t>(m_bins));
        m_out = fftwf_alloc_real(static_cast<size_t>(m_length));
        m_forward =
            fftwf_plan_dft_r2c_1d(m_length, m_data[0].time, m_data[0].spectrum, FFTW_ESTIMATE);
        m_inverse = fftwf_plan_dft_c2r_1d(m_length, m_product, m_out, FFTW_ESTIMATE);
    }
    ~RawTransforms() {
        fftwf_destroy_plan(m_forward);
        fftwf_destroy_plan(m_inverse);
        for (Set &d : m_data) {
            fftwf_free(d.time);
            fftwf_free(d.spectrum);
            fftwf_free(d.ears[0]);
            fftwf_free(d.ears[1]);
        }
        fftwf_free(m_product);
        fftwf_free(m_out);
    }
    RawTransforms(const RawTransforms &) = delete;
    RawTransforms &operator=(const RawTransforms &) = delete;

    int Length() const { return m_length; }
    // The wall time of one round, per source; the processor time, per source, to cpu.
    double Round(double &cpu) {
        const float scale = 1.0f / static_cast<float>(m_length);
        const int reps = std::max(m_sets, 2000000 / m_length);
        const double cpuStart = processorMicros();
        const auto start = Clock::now();
        for (int r = 0; r < reps; ++r) {
            Set &d = m_data[static_cast<size_t>(r % m_sets)];
            fftwf_execute_dft_r2c(m_forward, d.time, d.spectrum);
            for (auto *ear : d.ears) {
                for (int k = 0; k < m_bins; ++k) {
                    m_product[k][0] =
                        (d.spectrum[k][0] * ear[k][0] - d.spectrum[k][1] * ear[k][1]) * scale;
                    m_product[k][1] =
                        (d.spectrum[k][0] * ear[k][1] + d.spectrum[k][1] * ear[k][0]) * scale;
                }
                fftwf_execute_dft_c2r(m_inverse, m_product, m_out);
            }
        }
        const double wall = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
        cpu = (processorMicros() - cpuStart) / reps;
        return wall / reps;
    }

  private:
    struct Set {
        float *time;
        fftwf_complex *spectrum;
        fftwf_complex *ears[2];
    };
    int m_sets;
    int m_length = 1;
    int m_bins = 1;
    std::vector<Set> m_data;
    fftwf_complex *m_product = nullptr;
    float *m_out = nullptr;
    fftwf_plan m_forward = nullptr;
    fftwf_plan m_inverse = nullptr;
};

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const size_t m = v.size() / 2;
    return v.size() % 2 == 1 ? v[m] : 0.5 * (v[m - 1] + v[m]);
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
    // The raw work of the method in use: the whole-filter transform of block + taps, or, for
    // the partitioned method, that of each partition (a response of one partition). With as
    // many sets of buffers as sources (the trips to memory the engine pays), and with one set
    // that stays in cache (the limit of a per-source path).
    const int partition = scene.block <= 512 || scene.block % 512 != 0 ? scene.block : 512;
    const bool partitioned = scene.convolution == 1;
    const int rawBlock = partitioned ? partition : scene.block;
    const int rawTaps = partitioned ? partition + 1 : taps;
    const double rawTimes = partitioned ? static_cast<double>(scene.block / partition) : 1.0;
    RawTransforms raw(rawBlock, rawTaps, sources);
    RawTransforms inCache(rawBlock, rawTaps, 1);
    // The machine may be shared: the blocks are rendered in slices, and a round of each
    // reference follows every slice, so that the two see the same load. The figures are the
    // whole run's mean, as before, and the best slice against the best round, and the median
    // over the slices of each slice against the rounds that follow it.
    const long slices = std::min<long>(16, blocks - 1);
    std::vector<double> sliceMicros, rawRounds, inCacheRounds, sliceRatios, cpuRatios;
    double cpuTotal = 0.0;
    double cpuInCache = 1e30;
    double wall = 0.0;
    // A long run is also a soak: the resident memory after the first minute of audio and at
    // the end tell whether anything grows.
    const long minute = static_cast<long>(60.0 * HostedRender::kRate / scene.block);
    long rssMinute = 0;
    long b = 1;
    for (long slice = 0; slice < slices; ++slice) {
        const long end = 1 + (blocks - 1) * (slice + 1) / slices;
        const long count = end - b;
        const double cpuStart = processorMicros();
        const auto start = Clock::now();
        for (; b < end; ++b) {
            render.Block(static_cast<double>(b) * scene.block / HostedRender::kRate);
            if (b == minute) {
                rssMinute = residentKilobytes();
            }
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        const double cpu = (processorMicros() - cpuStart) / static_cast<double>(count) / sources;
        wall += seconds;
        cpuTotal += cpu * static_cast<double>(count);
        const double perSource = seconds * 1e6 / static_cast<double>(count) / sources;
        sliceMicros.push_back(perSource);
        double unused = 0.0;
        double roundCpu = 0.0;
        rawRounds.push_back(raw.Round(unused) * rawTimes);
        inCacheRounds.push_back(inCache.Round(roundCpu) * rawTimes);
        roundCpu *= rawTimes;
        cpuInCache = std::min(cpuInCache, roundCpu);
        sliceRatios.push_back(perSource / inCacheRounds.back());
        cpuRatios.push_back(cpu / roundCpu);
    }
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
    const double rawBest = *std::min_element(rawRounds.begin(), rawRounds.end());
    const double inCacheBest = *std::min_element(inCacheRounds.begin(), inCacheRounds.end());
    const double sliceBest = *std::min_element(sliceMicros.begin(), sliceMicros.end());
    std::printf(
        "sources %d%s, block %d, %d thread%s, %s convolution, %.1f s of audio in %.3f s: "
        "real-time factor %.1f\n",
        sources, scene.moveAll ? " moving" : "", scene.block, threads, threads == 1 ? "" : "s",
        partitioned ? "partitioned" : "whole-filter", audio, wall, audio / wall);
    std::printf(
        "per source per block: %.1f us; raw transforms (N = %d, %d taps): %.1f us; "
        "ratio %.2f; in-cache limit proxy %.1f us, ratio %.2f\n",
        perSource, inCache.Length(), partitioned ? partition : taps, rawBest, perSource / rawBest,
        inCacheBest, perSource / inCacheBest);
    std::printf(
        "best of %ld slices: %.1f us per source, ratio %.2f to the in-cache proxy; median of "
        "the slices' ratios %.2f\n",
        slices, sliceBest, sliceBest / inCacheBest, median(sliceRatios));
    // Processor time leaves out the time the machine gave to other processes; with more than
    // one thread it counts every thread's.
    const double cpuPerSource = cpuTotal / static_cast<double>(blocks - 1);
    std::printf(
        "processor time: %.1f us per source per block; in-cache proxy %.1f us, ratio %.2f; "
        "median of the slices' ratios %.2f\n",
        cpuPerSource, cpuInCache, cpuPerSource / cpuInCache, median(cpuRatios));
    return 0;
}

}  // namespace qkcli
