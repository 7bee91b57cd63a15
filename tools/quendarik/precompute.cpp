// quendarik precompute: response sets for the pre-computed model. For every source and every
// listener place of a grid, the image model's binaural response is written as a 16-bit stereo
// wave file named by the geometry, into one folder, with every core at work (each worker has
// its own world, data set and model) and each file written under a temporary name and
// renamed, so that a set never holds half a file.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "binaural/CHELPER_HRTF.h"
#include "commands.h"
#include "dsp/IppBuffer.h"
#include "field/CSFM_ISM.h"
#include "platform/FileReplace.h"
#include "platform/Paths.h"
#include "platform/Report.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"
#include "world/CDSC_World.h"

namespace qkcli {
namespace {
constexpr int kRate = 44100;
constexpr float kTemperature = 25.0f;  // degrees Celsius, the settings' default
constexpr int kMaterialTaps = 32;
constexpr long kMaxPlaces = 1000000;  // grid points a run may ask for

struct Axis {
    float from = 0.0f, to = 0.0f, step = 1.0f;
    std::vector<float> Values() const {
        std::vector<float> values;
        // A little slack, so that a last point the steps reach in floats isn't lost.
        for (long i = 0; from + i * step <= to + step * 1e-3f && i < kMaxPlaces; ++i) {
            values.push_back(from + static_cast<float>(i) * step);
        }
        return values;
    }
};

struct Job {
    int sourceId;
    C3Point source;
    C3Point listener;
};

struct Options {
    std::vector<std::string> world;  // the arguments naming the world
    Axis x, y;
    float z = 0.0f;
    std::vector<C3Point> sources;
    std::string out;
    std::string hrtf;
    int order = 1;
    int threads = 0;
};

void usage() {
    std::fprintf(
        stderr,
        "usage: quendarik precompute (--world FILE.txt|FILE.qkworld | --room W D H)\n"
        "         --listener-grid X0:X1:STEP Y0:Y1:STEP Z --source X Y Z [--source ...]\n"
        "         --out FOLDER [--hrtf SET] [--order N] [--threads T]\n"
        "For each source (numbered 1, 2, ... in the order given: the numbers a host gives\n"
        "its virtual sources with qk_Vsrc_Set_3DSourceWavID) and each listener place of\n"
        "the grid (looking along +y), the image model's binaural response is written to\n"
        "FOLDER as a wave file named by the geometry, for the pre-computed model (4).\n");
}

int quiet(unsigned long, const char *text, const char *caption, int) {
    std::fprintf(stderr, "\nquendarik: %s: %s\n", caption, text);
    return qk::kAnswerNo;
}

bool parseAxis(const std::string &text, Axis &axis) {
    float v[3];
    if (std::sscanf(text.c_str(), "%f:%f:%f", &v[0], &v[1], &v[2]) != 3 || !(v[2] > 0.0f) ||
        v[1] < v[0]) {
        return false;
    }
    axis = Axis{v[0], v[1], v[2]};
    return true;
}

bool parseFloats(int argc, char **argv, int at, int count, float *out) {
    for (int i = 0; i < count; ++i) {
        char *end = nullptr;
        if (at + i >= argc) {
            return false;
        }
        out[i] = std::strtof(argv[at + i], &end);
        if (end == argv[at + i] || *end != '\0') {
            return false;
        }
    }
    return true;
}

bool parse(int argc, char **argv, Options &o) {
    for (int i = 0; i < argc; ++i) {
        const std::string opt = argv[i];
        float v[3];
        if (opt == "--world" && i + 1 < argc) {
            o.world = {argv[++i]};
        } else if (opt == "--room" && i + 3 < argc) {
            o.world = {"--room", argv[i + 1], argv[i + 2], argv[i + 3]};
            i += 3;
        } else if (opt == "--listener-grid" && i + 3 < argc && parseAxis(argv[i + 1], o.x) &&
                   parseAxis(argv[i + 2], o.y) && parseFloats(argc, argv, i + 3, 1, &o.z)) {
            i += 3;
        } else if (opt == "--source" && parseFloats(argc, argv, i + 1, 3, v)) {
            o.sources.emplace_back(v[0], v[1], v[2], 0);
            i += 3;
        } else if (opt == "--out" && i + 1 < argc) {
            o.out = argv[++i];
        } else if (opt == "--hrtf" && i + 1 < argc) {
            o.hrtf = argv[++i];
        } else if (opt == "--order" && parseFloats(argc, argv, i + 1, 1, v) && v[0] >= 0 &&
                   v[0] <= 20) {
            o.order = static_cast<int>(v[0]);
            ++i;
        } else if (opt == "--threads" && parseFloats(argc, argv, i + 1, 1, v) && v[0] >= 1 &&
                   v[0] <= 64) {
            o.threads = static_cast<int>(v[0]);
            ++i;
        } else {
            std::fprintf(stderr, "quendarik: unknown or incomplete option '%s'\n", opt.c_str());
            return false;
        }
    }
    return !o.world.empty() && !o.sources.empty() && !o.out.empty();
}

// The world of the options, generated; false when it can't be made.
bool makeWorld(const Options &o, CDSC_World &world) {
    std::vector<char *> args;
    for (const std::string &a : o.world) {
        args.push_back(const_cast<char *>(a.c_str()));
    }
    std::string what;
    return LoadWorld(static_cast<int>(args.size()), args.data(), world, what) &&
           world.Generate() == 0;
}

// The model a worker computes with, on its own world.
std::unique_ptr<CSFM> makeModel(CDSC_World &world, qk::table::Code4 &code) {
    auto model = std::make_unique<CSFM_ISM>(&world);
    model->m_pCode4 = &code;
    return model;
}

// One worker: its own material session, world, data set and model, taking jobs until none is
// left. Files that can't be written are counted as failed.
void work(const Options &o, const std::string &hrtf, const std::vector<Job> &jobs,
          std::atomic<size_t> &next, std::atomic<size_t> &done, std::atomic<size_t> &failed) {
    qk::table::Code4 code;
    qk::table::code4initLow(&code);
    {
        CDSC_World world;
        world.m_pCode4 = &code;
        CHELPER_HRTF set;
        const bool ready = makeWorld(o, world) && set.ReadWrite(0, hrtf) == 0;
        set.m_iSampleRate = kRate;
        const std::unique_ptr<CSFM> model = makeModel(world, code);
        for (size_t i = next++; i < jobs.size(); i = next++) {
            const Job &job = jobs[i];
            float *mono = nullptr, *left = nullptr, *right = nullptr;
            int monoLength = 0, length = 0;
            float peakLeft = 0.0f, peakRight = 0.0f;
            const C3Point lookAt(job.listener.x, job.listener.y + 1.0f, job.listener.z, 0);
            if (ready) {
                model->GetBinauralImpulseResponse(&set, mono, monoLength, left, right, length,
                                                  job.source, C3Point(), job.listener, lookAt, hrtf,
                                                  o.order, kTemperature, kRate, peakLeft, peakRight,
                                                  0, 1, kMaterialTaps, job.sourceId);
            }
            bool ok = false;
            if (length > 0 && left != nullptr && right != nullptr) {
                std::vector<float> block(left, left + length);
                block.insert(block.end(), right, right + length);
                const std::string path = qk::JoinPath(
                    o.out, CQUENDARIK_PROCESSOR::PreComputedName(
                               0, job.listener, lookAt, job.sourceId, job.source, C3Point()));
                const std::string temp = qk::MakeTempBeside(path);
                std::string error;
                ok = !temp.empty() &&
                     CQUENDARIK_PROCESSOR::SaveAsWave(temp, block.data(), length, 2, 16, kRate) ==
                         0 &&
                     qk::CommitTemp(temp, path, error);
                if (!ok && !temp.empty()) {
                    std::remove(temp.c_str());
                }
            }
            FreeIppArray(mono);
            FreeIppArray(left);
            FreeIppArray(right);
            failed += ok ? 0 : 1;
            ++done;
        }
    }
    qk::table::code4initUndo(&code);
}

void progress(size_t done, size_t total) {
    const int width = 40;
    const int filled = total > 0 ? static_cast<int>(width * done / total) : width;
    std::fprintf(stderr, "\r  [%s%s] %zu / %zu files", std::string(filled, '#').c_str(),
                 std::string(width - filled, '.').c_str(), done, total);
    std::fflush(stderr);
}
}  // namespace

int RunPrecompute(int argc, char **argv) {
    qk::SetReportHandler(&quiet, 0);
    Options o;
    if (!parse(argc, argv, o)) {
        usage();
        return 2;
    }
    const std::string hrtf =
        !o.hrtf.empty()
            ? o.hrtf
            : qk::ResolveDataPath(qk::JoinPath(qk::CommonFolder(),
                                               "TORVELLAN/Common/QKHRTF/VORLAN1_16s_DFE.qkhrtf"));
    {
        // Once here, before any worker: the world must load and generate, and the material
        // tables a world makes when they are missing are made by this thread alone.
        qk::table::Code4 code;
        qk::table::code4initLow(&code);
        CDSC_World world;
        world.m_pCode4 = &code;
        const bool ok = makeWorld(o, world);
        qk::table::code4initUndo(&code);
        if (!ok) {
            std::fprintf(stderr, "quendarik: the world can't be made\n");
            return 1;
        }
    }
    std::error_code ec;
    std::filesystem::create_directories(o.out, ec);
    std::vector<Job> jobs;
    for (size_t s = 0; s < o.sources.size(); ++s) {
        for (float y : o.y.Values()) {
            for (float x : o.x.Values()) {
                jobs.push_back({static_cast<int>(s) + 1, o.sources[s], C3Point(x, y, o.z, 0)});
            }
        }
    }
    const int threads = o.threads > 0
                            ? o.threads
                            : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    std::atomic<size_t> next{0}, done{0}, failed{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back(work, std::cref(o), std::cref(hrtf), std::cref(jobs), std::ref(next),
                             std::ref(done), std::ref(failed));
    }
    while (done < jobs.size()) {
        progress(done, jobs.size());
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    for (std::thread &w : workers) {
        w.join();
    }
    progress(done, jobs.size());
    std::fprintf(stderr, "\n");
    if (failed > 0) {
        std::fprintf(stderr, "quendarik: %zu of %zu responses could not be made or written\n",
                     failed.load(), jobs.size());
        return 1;
    }
    std::printf("Wrote %zu responses to %s\n", jobs.size(), o.out.c_str());
    return 0;
}

}  // namespace qkcli
