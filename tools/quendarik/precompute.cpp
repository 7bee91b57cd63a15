// quendarik precompute: response sets for the pre-computed model. For every source and every
// listener place of a grid, the image model's binaural response is written as a 16-bit stereo
// wave file named by the geometry, into one folder, with every core at work. A set may be
// split into shards that separate machines make at once (a Slurm array, a Kubernetes Indexed
// Job); each shard leaves a manifest of its files, and --verify checks a merged folder
// against them. The size of the job is worked out before anything is computed, and a job
// that doesn't fit the target's file system is refused unless --force.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "SetFileCheck.h"
#include "SetVerify.h"
#include "SetWorker.h"
#include "ShardManifest.h"
#include "ShardPlan.h"
#include "commands.h"
#include "jobsize.h"
#include "platform/FileReplace.h"
#include "platform/Paths.h"
#include "platform/Report.h"

namespace qkcli {
namespace {
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
constexpr int kMaxThreads = 256;
constexpr int kMaxOrder = 20;
constexpr int kSamples = 3;                    // responses measured for the size of a file
constexpr double kProgressLineSeconds = 10.0;  // between lines when stderr is no terminal

struct Options {
    SetRecipe recipe;
    GridAxis x, y;
    float z = 0.0f;
    bool grid = false;
    std::vector<C3Point> sources;
    std::string out;
    int threads = 0;
    ShardSpec shard;
    bool resume = false;
    bool force = false;
    std::string verify;
};

void usage() {
    std::fprintf(
        stderr,
        "usage: quendarik precompute (--world FILE.txt|FILE.qkworld | --room W D H)\n"
        "         --listener-grid X0:X1:STEP Y0:Y1:STEP Z --source X Y Z [--source ...]\n"
        "         --out FOLDER [--hrtf SET] [--order N] [--threads T]\n"
        "         [--shard K/N | --shard auto/N] [--resume] [--force]\n"
        "       quendarik precompute --verify FOLDER\n"
        "For each source (numbered 1, 2, ... in the order given: the numbers a host gives\n"
        "its virtual sources with qk_Vsrc_Set_3DSourceWavID) and each listener place of\n"
        "the grid (looking along +y), the image model's binaural response is written to\n"
        "FOLDER as a wave file named by the geometry, for the pre-computed model (4).\n"
        "  --shard K/N   make only the K-th of N parts of the set (K counts from 0); the\n"
        "                split is fixed by the grid and the sources alone. auto/N takes K\n"
        "                from JOB_COMPLETION_INDEX or SLURM_ARRAY_TASK_ID.\n"
        "  --resume      keep the files already whole (a shard that was stopped goes on)\n"
        "  --force       start even when the set looks bigger than the free space\n"
        "  --verify      check a merged set against its shards' manifests\n"
        "Each shard writes shard-K-of-N.manifest.jsonl: one JSON line per file with its\n"
        "name, source, place, bytes and CRC-32.\n");
}

int quiet(unsigned long, const char *text, const char *caption, int) {
    std::fprintf(stderr, "\nquendarik: %s: %s\n", caption, text);
    return qk::kAnswerNo;
}

// The one line for a bad option; parsing then stops.
bool refuse(const std::string &option, const std::string &why) {
    std::fprintf(stderr, "quendarik: precompute: %s %s\n", option.c_str(), why.c_str());
    return false;
}

// count finite numbers of option, from argv[at].
bool numbers(int argc, char **argv, int at, int count, float *out, const std::string &option,
             const char *what) {
    if (at + count > argc) {
        return refuse(option, std::string("wants ") + what);
    }
    for (int i = 0; i < count; ++i) {
        char *end = nullptr;
        out[i] = std::strtof(argv[at + i], &end);
        if (end == argv[at + i] || *end != '\0' || !std::isfinite(out[i])) {
            return refuse(option, std::string("wants ") + what + ", not '" + argv[at + i] + "'");
        }
    }
    return true;
}

bool wholeNumber(int argc, char **argv, int at, int low, int high, int &value) {
    float v = 0.0f;
    const std::string what =
        "a whole number from " + std::to_string(low) + " to " + std::to_string(high);
    if (!numbers(argc, argv, at, 1, &v, argv[at - 1], what.c_str())) {
        return false;
    }
    if (v != std::floor(v) || v < static_cast<float>(low) || v > static_cast<float>(high)) {
        return refuse(argv[at - 1], "wants " + what + ", not '" + argv[at] + "'");
    }
    value = static_cast<int>(v);
    return true;
}

bool text(int argc, char **argv, int at, std::string &value) {
    if (at >= argc) {
        return refuse(argv[at - 1], "wants a value");
    }
    value = argv[at];
    return true;
}

bool gridOption(int argc, char **argv, int at, Options &o) {
    if (at + 3 > argc) {
        return refuse("--listener-grid", "wants X0:X1:STEP Y0:Y1:STEP Z");
    }
    std::string error;
    if (!ParseGridAxis(argv[at], o.x, error) || !ParseGridAxis(argv[at + 1], o.y, error)) {
        return refuse("--listener-grid", error);
    }
    o.grid = true;
    return numbers(argc, argv, at + 2, 1, &o.z, "--listener-grid", "a height Z in metres");
}

// One option at argv[i]; i is moved past its values. False after the line saying what's wrong.
bool option(int argc, char **argv, int &i, Options &o) {
    const std::string opt = argv[i];
    float v[3];
    std::string error;
    if (opt == "--world") {
        o.recipe.world.resize(1);
        return text(argc, argv, ++i, o.recipe.world[0]);
    }
    if (opt == "--room") {
        if (!numbers(argc, argv, i + 1, 3, v, opt, "three lengths W D H in metres")) {
            return false;
        }
        if (!(v[0] > 0.0f && v[1] > 0.0f && v[2] > 0.0f)) {
            return refuse(opt, "wants lengths above 0");
        }
        o.recipe.world = {"--room", argv[i + 1], argv[i + 2], argv[i + 3]};
        i += 3;
        return true;
    }
    if (opt == "--listener-grid") {
        i += 3;
        return gridOption(argc, argv, i - 2, o);
    }
    if (opt == "--source") {
        i += 3;
        return numbers(argc, argv, i - 2, 3, v, opt, "a position X Y Z in metres") &&
               (o.sources.emplace_back(v[0], v[1], v[2], 0), true);
    }
    if (opt == "--shard") {
        std::string value;
        return text(argc, argv, ++i, value) &&
               (ParseShard(value, o.shard, error,
                           [](const char *name) -> const char * { return std::getenv(name); }) ||
                refuse(opt, error));
    }
    if (opt == "--order") {
        return wholeNumber(argc, argv, ++i, 0, kMaxOrder, o.recipe.order);
    }
    if (opt == "--threads") {
        return wholeNumber(argc, argv, ++i, 1, kMaxThreads, o.threads);
    }
    if (opt == "--out" || opt == "--hrtf" || opt == "--verify") {
        std::string &target = opt == "--out" ? o.out : opt == "--hrtf" ? o.recipe.hrtf : o.verify;
        return text(argc, argv, ++i, target);
    }
    if (opt == "--resume" || opt == "--force") {
        (opt == "--resume" ? o.resume : o.force) = true;
        return true;
    }
    return refuse(opt, "is no option of precompute (quendarik precompute --help lists them)");
}

// 0: go on; otherwise the exit code.
int parse(int argc, char **argv, Options &o) {
    for (int i = 0; i < argc; ++i) {
        const std::string opt = argv[i];
        if (opt == "--help" || opt == "-h") {
            usage();
            return -1;
        }
        if (!option(argc, argv, i, o)) {
            return 2;
        }
    }
    if (!o.verify.empty()) {
        return 0;
    }
    const char *missing = o.recipe.world.empty() ? "--world FILE or --room W D H"
                          : !o.grid              ? "--listener-grid"
                          : o.sources.empty()    ? "--source"
                          : o.out.empty()        ? "--out"
                                                 : nullptr;
    if (missing != nullptr) {
        std::fprintf(stderr, "quendarik: precompute: %s is missing (--help lists the options)\n",
                     missing);
        return 2;
    }
    return 0;
}

// The size of the shard's job against the free space of the folder's file system: false,
// after one line with the figures, when it doesn't fit and isn't forced.
bool jobFits(const ShardPlan &plan, const Options &o, SetWorker &worker) {
    uint64_t largest = 0;
    for (int k = 0; k < kSamples && plan.Count() > 0; ++k) {
        const uint64_t i = plan.Count() > 1 ? plan.Count() - 1 : 0;
        std::vector<float> block;
        int frames = 0;
        if (worker.Compute(plan.At(i * static_cast<uint64_t>(k) / (kSamples - 1)), block, frames)) {
            largest = std::max<uint64_t>(largest, static_cast<uint64_t>(frames));
        }
    }
    const double each = static_cast<double>(kSetFileHeaderBytes + largest * kSetFileFrameBytes);
    const double need = each * static_cast<double>(plan.Count());
    const double free = FreeBytes(o.out);
    const bool unknown = free < 0.0;
    std::fprintf(
        stderr, "quendarik: %llu responses in the set, %llu in this shard, about %s each: %s; %s\n",
        static_cast<unsigned long long>(plan.Total()),
        static_cast<unsigned long long>(plan.Count()), FormatBytes(each).c_str(),
        FormatBytes(need).c_str(),
        unknown ? "free space unknown" : (FormatBytes(free) + " free").c_str());
    if (unknown) {
        return true;  // a file system that can't tell; the writes will say when it is full
    }
    if (need <= free || o.force) {
        return true;
    }
    std::fprintf(stderr,
                 "quendarik: precompute: %llu responses of about %s need %s, but %s has %s "
                 "free (a coarser grid, more shards, or --force)\n",
                 static_cast<unsigned long long>(plan.Count()), FormatBytes(each).c_str(),
                 FormatBytes(need).c_str(), o.out.c_str(), FormatBytes(free).c_str());
    return false;
}

// Temporary files a stopped run left beside the responses and the manifest, by the name of
// the file they were to become.
using Temporaries = std::map<std::string, std::vector<fs::path>>;

Temporaries staleTemporaries(const std::string &folder) {
    Temporaries found;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        const std::string name = it->path().filename().string();
        const size_t dot = name.rfind('.');
        const std::string stem = dot != std::string::npos ? name.substr(0, dot) : "";
        if ((stem.size() > 4 && stem.compare(stem.size() - 4, 4, ".wav") == 0) ||
            IsManifestFileName(stem)) {
            found[stem].push_back(it->path());
        }
    }
    return found;
}

class Progress {
  public:
    Progress(const ShardSpec &shard, uint64_t total)
        : m_shard(shard), m_total(total), m_start(Clock::now()), m_tty(isatty(2) != 0) {}

    void Show(uint64_t done, uint64_t computed, bool last) {
        const double seconds = std::chrono::duration<double>(Clock::now() - m_start).count();
        if (!m_tty && !last && seconds - m_lastLine < kProgressLineSeconds) {
            return;
        }
        m_lastLine = seconds;
        const double rate = seconds > 0.0 ? static_cast<double>(computed) / seconds : 0.0;
        char left[48] = "";
        if (rate > 0.0) {
            const double remaining = static_cast<double>(m_total - done) / rate;
            if (remaining < 3600.0) {
                std::snprintf(left, sizeof left, ", %.0f s left", remaining);
            } else {
                std::snprintf(left, sizeof left, ", %.1f h left", remaining / 3600.0);
            }
        }
        std::fprintf(
            stderr, "%s  shard %u of %u: %llu / %llu files, %.1f a second%s%s", m_tty ? "\r" : "",
            m_shard.index, m_shard.count, static_cast<unsigned long long>(done),
            static_cast<unsigned long long>(m_total), rate, left, m_tty && !last ? "   " : "\n");
        std::fflush(stderr);
    }

  private:
    ShardSpec m_shard;
    uint64_t m_total;
    Clock::time_point m_start;
    bool m_tty;
    double m_lastLine = -kProgressLineSeconds;
};

// Every worker takes the shard's next response until none is left.
struct Shared {
    std::atomic<uint64_t> next{0}, done{0}, computed{0}, failed{0};
};

// Removes the temporary files left for the file of that name.
void removeStale(const Temporaries &stale, const std::string &name) {
    const auto temps = stale.find(name);
    if (temps != stale.end()) {
        for (const fs::path &temp : temps->second) {
            std::error_code ec;
            fs::remove(temp, ec);
        }
    }
}

void work(const Options &o, const ShardPlan &plan, const Temporaries &stale, Shared &shared) {
    SetWorker worker(o.recipe);
    for (uint64_t i = shared.next++; i < plan.Count(); i = shared.next++) {
        const SetJob job = plan.At(i);
        const std::string name = SetFileName(job);
        removeStale(stale, name);
        if (o.resume && SetFileWhole(qk::JoinPath(o.out, name))) {
            ++shared.done;
            continue;
        }
        const bool ok = worker.Write(job, o.out);
        shared.failed += ok ? 0 : 1;
        ++shared.computed;
        ++shared.done;
    }
}

// The shard's manifest, from the files as they lie on the disk, in the shard's order.
bool writeManifest(const ShardPlan &plan, const std::string &folder) {
    const std::string path =
        qk::JoinPath(folder, ManifestFileName(plan.Shard().index, plan.Shard().count));
    const std::string temp = qk::MakeTempBeside(path);
    std::FILE *f = temp.empty() ? nullptr : std::fopen(temp.c_str(), "wb");
    bool ok =
        f != nullptr &&
        std::fputs(ManifestHeadLine({plan.Shard().index, plan.Shard().count, plan.Count()}).c_str(),
                   f) >= 0;
    for (uint64_t i = 0; ok && i < plan.Count(); ++i) {
        const SetJob job = plan.At(i);
        ManifestEntry entry;
        entry.name = SetFileName(job);
        entry.source = job.sourceId;
        entry.place[0] = job.listener.x;
        entry.place[1] = job.listener.y;
        entry.place[2] = job.listener.z;
        ok = FileDigest(qk::JoinPath(folder, entry.name), entry.bytes, entry.crc32) &&
             std::fputs(ManifestEntryLine(entry).c_str(), f) >= 0;
    }
    ok = f != nullptr && std::fclose(f) == 0 && ok;
    std::string error;
    ok = ok && qk::CommitTemp(temp, path, error);
    if (!ok) {
        std::fprintf(stderr, "quendarik: the manifest %s can't be written%s%s\n", path.c_str(),
                     error.empty() ? "" : ": ", error.c_str());
        if (!temp.empty()) {
            std::remove(temp.c_str());
        }
    }
    return ok;
}

// Every core makes the shard's responses; false, after a line, when some could not be made.
bool makeShard(const Options &o, const ShardPlan &plan, const Temporaries &stale) {
    const int threads = o.threads > 0
                            ? o.threads
                            : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    Shared shared;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back(work, std::cref(o), std::cref(plan), std::cref(stale),
                             std::ref(shared));
    }
    Progress progress(o.shard, plan.Count());
    while (shared.done < plan.Count()) {
        progress.Show(shared.done, shared.computed, false);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    for (std::thread &w : workers) {
        w.join();
    }
    progress.Show(shared.done, shared.computed, true);
    if (shared.failed > 0) {
        std::fprintf(stderr, "quendarik: %llu of %llu responses could not be made or written\n",
                     static_cast<unsigned long long>(shared.failed.load()),
                     static_cast<unsigned long long>(plan.Count()));
        return false;
    }
    return true;
}

int verify(const std::string &folder) {
    const VerifyCount count = VerifySet(folder, stdout);
    if (count.problems > 0) {
        std::fprintf(stderr, "quendarik: %llu problems in %s\n",
                     static_cast<unsigned long long>(count.problems), folder.c_str());
        return 1;
    }
    std::printf("%s: %llu files of %llu manifests are whole\n", folder.c_str(),
                static_cast<unsigned long long>(count.files),
                static_cast<unsigned long long>(count.manifests));
    return 0;
}
}  // namespace

int RunPrecompute(int argc, char **argv) {
    qk::SetReportHandler(&quiet, 0);
    Options o;
    const int parsed = parse(argc, argv, o);
    if (parsed != 0) {
        return parsed < 0 ? 0 : parsed;
    }
    if (!o.verify.empty()) {
        return verify(o.verify);
    }
    if (o.recipe.hrtf.empty()) {
        o.recipe.hrtf = qk::ResolveDataPath(
            qk::JoinPath(qk::CommonFolder(), "TORVELLAN/Common/QKHRTF/VORLAN1_16s_DFE.qkhrtf"));
    }
    if (SetResponses(o.sources.size(), o.x.Count(), o.y.Count()) > kMaxResponses) {
        std::fprintf(stderr,
                     "quendarik: precompute: the grid and sources make more than %llu "
                     "responses\n",
                     static_cast<unsigned long long>(kMaxResponses));
        return 2;
    }
    if (!RecipeWorldLoads(o.recipe)) {
        std::fprintf(stderr, "quendarik: the world can't be made\n");
        return 1;
    }
    std::error_code ec;
    const bool made = !fs::exists(o.out, ec) && fs::create_directories(o.out, ec);
    if (!fs::is_directory(o.out, ec)) {
        std::fprintf(stderr, "quendarik: the folder %s can't be made\n", o.out.c_str());
        return 1;
    }
    const ShardPlan plan(o.x, o.y, o.z, o.sources, o.shard);
    {
        SetWorker sampler(o.recipe);
        if (!sampler.Ready()) {
            std::fprintf(stderr, "quendarik: the HRTF set %s can't be read\n",
                         o.recipe.hrtf.c_str());
            return 1;
        }
        if (!jobFits(plan, o, sampler)) {
            if (made) {
                fs::remove(o.out, ec);  // the folder this run made, still empty
            }
            return 1;
        }
    }
    const Temporaries stale = o.resume ? staleTemporaries(o.out) : Temporaries();
    if (!makeShard(o, plan, stale)) {
        return 1;
    }
    removeStale(stale, ManifestFileName(o.shard.index, o.shard.count));
    if (!writeManifest(plan, o.out)) {
        return 1;
    }
    std::printf("Wrote %llu responses to %s (shard %u of %u)\n",
                static_cast<unsigned long long>(plan.Count()), o.out.c_str(), o.shard.index,
                o.shard.count);
    return 0;
}

}  // namespace qkcli
