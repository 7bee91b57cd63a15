// quendarik precompute in shards, run as a cluster runs it: separate processes at once, one of
// them killed and resumed, a merged folder checked against the manifests; and the job-size
// check that refuses a grid the disk can't hold before anything is computed.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/HrtfSets.h"
#include "support/ScopedSettingsDir.h"
#include "support/WaveWriter.h"

extern char **environ;

#ifdef QK_TEST_CLI
namespace {
namespace fs = std::filesystem;
const std::string kDefaultSet = std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";

// A small set: 5 x 3 places, two sources, first-order reflections: 30 responses.
std::vector<std::string> setArguments(const std::string &out) {
    return {"precompute", "--room",   "5",         "5",        "3",   "--listener-grid",
            "-1:1:0.5",   "0:1:0.5",  "1.2",       "--source", "1",   "2",
            "1.2",        "--source", "-1",        "1.5",      "1.5", "--order",
            "1",          "--hrtf",   kDefaultSet, "--out",    out};
}

std::vector<std::string> with(std::vector<std::string> args, std::vector<std::string> more) {
    args.insert(args.end(), more.begin(), more.end());
    return args;
}

// Starts the program with args (and extra NAME=VALUE variables), its standard error to errFile.
pid_t start(const std::vector<std::string> &args, const std::string &errFile,
            const std::vector<std::string> &variables = {}) {
    std::vector<std::string> all = {QK_TEST_CLI};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &a : all) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    std::vector<std::string> env(variables);
    std::vector<char *> envp;
    for (char **e = environ; *e != nullptr; ++e) {
        envp.push_back(*e);
    }
    for (std::string &v : env) {
        envp.push_back(v.data());
    }
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    pid_t pid = -1;
    const int failed = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    return failed == 0 ? pid : -1;
}

int finish(pid_t pid) {
    int status = 0;
    if (pid <= 0 || waitpid(pid, &status, 0) != pid) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

struct Outcome {
    int code;
    std::string err;
};

Outcome run(const std::vector<std::string> &args, const std::vector<std::string> &variables = {}) {
    const std::string err = qktest::ScratchPath("sharded_set.err");
    const int code = finish(start(args, err, variables));
    Outcome outcome{code, slurp(err)};
    fs::remove(err);
    return outcome;
}

// The responses of a folder, by name.
std::map<std::string, std::string> responses(const std::string &folder) {
    std::map<std::string, std::string> files;
    for (const auto &entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == ".wav") {
            files[entry.path().filename().string()] = slurp(entry.path().string());
        }
    }
    return files;
}

// Responses in a folder, without reading them.
size_t count(const std::string &folder) {
    size_t n = 0;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        n += it->path().extension() == ".wav" ? 1 : 0;
    }
    return n;
}

size_t lines(const std::string &text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

class ShardedSet : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        if (!fs::exists(kDefaultSet)) {
            return;
        }
        s_root = new qktest::ScopedCommonRoot("sharded_set");
        s_settings = new qktest::ScopedSettingsDir("sharded_set");
        s_whole = qktest::ScratchPath("sharded_whole");
        fs::remove_all(s_whole);
        // One run of the whole set: the reference, and the maker of the material tables that
        // the shards then only read.
        s_code = run(with(setArguments(s_whole), {"--threads", "2"})).code;
    }
    static void TearDownTestSuite() {
        if (!s_whole.empty()) {
            fs::remove_all(s_whole);
        }
        delete s_settings;
        delete s_root;
    }
    void SetUp() override {
        if (!fs::exists(kDefaultSet)) {
            GTEST_SKIP() << "the build's default HRTF set is missing";
        }
        ASSERT_EQ(s_code, 0);
        ASSERT_EQ(responses(s_whole).size(), 30u);
    }

    static qktest::ScopedCommonRoot *s_root;
    static qktest::ScopedSettingsDir *s_settings;
    static std::string s_whole;
    static int s_code;
};
qktest::ScopedCommonRoot *ShardedSet::s_root = nullptr;
qktest::ScopedSettingsDir *ShardedSet::s_settings = nullptr;
std::string ShardedSet::s_whole;
int ShardedSet::s_code = -1;

TEST_F(ShardedSet, FourShardsAtOnceMakeTheFilesOfOneRun) {
    const std::string folder = qktest::ScratchPath("sharded_four");
    fs::remove_all(folder);
    fs::create_directories(folder);
    std::vector<pid_t> shards;
    std::vector<std::string> errs;
    for (int k = 0; k < 4; ++k) {
        errs.push_back(qktest::ScratchPath("shard.err"));
        // Shards 2 and 3 take their number from the schedulers' variables.
        const std::string shard = k < 2 ? std::to_string(k) + "/4" : "auto/4";
        const std::vector<std::string> variables =
            k == 2   ? std::vector<std::string>{"JOB_COMPLETION_INDEX=2"}
            : k == 3 ? std::vector<std::string>{"SLURM_ARRAY_TASK_ID=3"}
                     : std::vector<std::string>{};
        shards.push_back(start(with(setArguments(folder), {"--shard", shard, "--threads", "1"}),
                               errs.back(), variables));
    }
    for (size_t k = 0; k < shards.size(); ++k) {
        EXPECT_EQ(finish(shards[k]), 0) << slurp(errs[k]);
        fs::remove(errs[k]);
    }
    EXPECT_EQ(responses(folder), responses(s_whole));
    for (int k = 0; k < 4; ++k) {
        const std::string manifest =
            slurp(folder + "/shard-" + std::to_string(k) + "-of-4.manifest.jsonl");
        EXPECT_EQ(lines(manifest), k < 2 ? 9u : 8u) << "30 responses dealt round 4 shards";
    }
    EXPECT_EQ(run({"precompute", "--verify", folder}).code, 0);
    EXPECT_EQ(run({"precompute", "--verify", s_whole}).code, 0);
    fs::remove_all(folder);
}

TEST_F(ShardedSet, KilledShardResumesToTheSameFiles) {
    const std::string folder = qktest::ScratchPath("sharded_killed");
    fs::remove_all(folder);
    fs::create_directories(folder);
    const std::string err = qktest::ScratchPath("killed.err");
    // Killed the moment its third response is whole, as a scheduler's kill would stop it.
    const pid_t pid =
        start(with(setArguments(folder), {"--threads", "1"}), err, {"QK_PRECOMPUTE_KILL_AFTER=3"});
    ASSERT_GT(pid, 0);
    finish(pid);
    fs::remove(err);
    const auto before = responses(folder);
    ASSERT_FALSE(before.empty());
    ASSERT_EQ(before.size(), 3u);
    EXPECT_FALSE(fs::exists(folder + "/shard-0-of-1.manifest.jsonl"));

    // What else a stop or a broken disk can leave: temporary files, and a response cut short.
    const auto whole = responses(s_whole);
    auto cut = std::find_if(whole.begin(), whole.end(),
                            [&](const auto &file) { return before.count(file.first) == 0; });
    std::ofstream(folder + "/" + cut->first + ".Ab12Cd") << cut->second.substr(0, 100);
    std::ofstream(folder + "/shard-0-of-1.manifest.jsonl.Ef34Gh") << "{\"manifest\"";
    std::ofstream(folder + "/" + cut->first) << cut->second.substr(0, cut->second.size() - 2);
    const std::string kept = folder + "/" + before.begin()->first;
    const auto keptTime = fs::last_write_time(kept);

    ASSERT_EQ(run(with(setArguments(folder), {"--resume", "--threads", "2"})).code, 0);
    EXPECT_EQ(responses(folder), whole);
    EXPECT_EQ(fs::last_write_time(kept), keptTime) << "a whole file is kept, not made again";
    for (const auto &entry : fs::directory_iterator(folder)) {
        const std::string ext = entry.path().extension().string();
        EXPECT_TRUE(ext == ".wav" || ext == ".jsonl") << entry.path() << " is left over";
    }
    EXPECT_EQ(slurp(folder + "/shard-0-of-1.manifest.jsonl"),
              slurp(s_whole + "/shard-0-of-1.manifest.jsonl"));
    fs::remove_all(folder);
}

TEST_F(ShardedSet, VerifyNamesEveryMissingTruncatedOrAlteredFile) {
    const std::string folder = qktest::ScratchPath("sharded_verify");
    fs::remove_all(folder);
    fs::copy(s_whole, folder);
    // The manifest of a second shard, as if the set had been made in two: its counterpart is
    // missing.
    fs::copy(folder + "/shard-0-of-1.manifest.jsonl", folder + "/shard-1-of-2.manifest.jsonl");
    const auto files = responses(folder);
    auto it = files.begin();
    const std::string removed = it->first, truncated = (++it)->first, altered = (++it)->first;
    fs::remove(folder + "/" + removed);
    fs::resize_file(folder + "/" + truncated, fs::file_size(folder + "/" + truncated) - 1);
    {
        std::fstream f(folder + "/" + altered, std::ios::in | std::ios::out | std::ios::binary);
        f.seekp(200);
        f.put('\x5a');
    }
    const std::string out = qktest::ScratchPath("verify.out");
    const int code = std::system(
        (std::string(QK_TEST_CLI) + " precompute --verify " + folder + " > " + out + " 2>/dev/null")
            .c_str());
    const std::string report = slurp(out);
    fs::remove(out);
    EXPECT_NE(code, 0);
    EXPECT_NE(report.find("missing: " + removed + "\n"), std::string::npos) << report;
    EXPECT_NE(report.find("truncated: " + truncated + " ("), std::string::npos) << report;
    EXPECT_NE(report.find("altered: " + altered + " ("), std::string::npos) << report;
    EXPECT_NE(report.find("unreadable manifest: shard-1-of-2.manifest.jsonl"), std::string::npos)
        << report;

    // A manifest that isn't one is named with its line; a folder without one is refused.
    fs::remove(folder + "/shard-1-of-2.manifest.jsonl");
    std::ofstream(folder + "/shard-0-of-1.manifest.jsonl", std::ios::app) << "{\"name\":1}\n";
    EXPECT_NE(run({"precompute", "--verify", folder}).code, 0);
    fs::remove_all(folder);
    fs::create_directories(folder);
    EXPECT_NE(run({"precompute", "--verify", folder}).code, 0);
    fs::remove_all(folder);
}

TEST_F(ShardedSet, BadShardsAndNumbersAreRefusedInOneLine) {
    const std::string folder = qktest::ScratchPath("sharded_refused");
    const std::vector<std::vector<std::string>> cases = {{"--shard", "5/4"},
                                                         {"--shard", "0/0"},
                                                         {"--shard", "4/4"},
                                                         {"--shard", "-1/4"},
                                                         {"--shard", "auto/4"},
                                                         {"--shard", "1/x"},
                                                         {"--order", "1.5"},
                                                         {"--threads", "0"},
                                                         {"--source", "1", "nan", "0"},
                                                         {"--listener-grid", "0:1:0", "0:1:1", "1"},
                                                         {"--room", "5", "-5", "3"}};
    for (const auto &extra : cases) {
        const Outcome outcome = run(with(setArguments(folder), extra));
        EXPECT_EQ(outcome.code, 2) << extra[0] << " " << extra[1];
        EXPECT_EQ(lines(outcome.err), 1u) << outcome.err;
        EXPECT_NE(outcome.err.find(extra[0] + " "), std::string::npos) << outcome.err;
    }
    EXPECT_FALSE(fs::exists(folder));
}

TEST_F(ShardedSet, AGridBiggerThanTheDiskIsRefusedUnlessForced) {
    // About 10^12 places, the first ones in the room: a grid like this once took all memory
    // before a file was written.
    const std::string folder = qktest::ScratchPath("sharded_huge");
    fs::remove_all(folder);
    std::vector<std::string> huge = setArguments(folder);
    huge[6] = "-2:1000:0.001";
    huge[7] = "-2:1000:0.001";
    const Outcome refused = run(huge);
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(lines(refused.err), 2u) << "the size, then the refusal: " << refused.err;
    EXPECT_NE(refused.err.find("000 responses of about"), std::string::npos) << refused.err;
    EXPECT_NE(refused.err.find("free (a coarser grid"), std::string::npos) << refused.err;
    EXPECT_FALSE(fs::exists(folder)) << "a refused job leaves nothing behind";

    // Forced, it starts at once and its memory doesn't grow with the grid.
    const std::string err = qktest::ScratchPath("huge.err");
    const pid_t pid = start(with(huge, {"--force", "--threads", "1"}), err);
    ASSERT_GT(pid, 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (count(folder) < 3 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const std::string status = slurp("/proc/" + std::to_string(pid) + "/status");
    kill(pid, SIGKILL);
    finish(pid);
    fs::remove(err);
    EXPECT_GE(responses(folder).size(), 3u);
    const size_t rss = status.find("VmRSS:");
    ASSERT_NE(rss, std::string::npos);
    EXPECT_LT(std::stol(status.substr(rss + 6)), 200L * 1024) << "kB resident";
    fs::remove_all(folder);
}
}  // namespace
#endif
