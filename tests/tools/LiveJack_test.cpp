// quendarik live against a JACK server of the test's own (the dummy driver, under a name no
// other test uses), heard through two test clients: one feeds the scene's input port with a
// tone, the other records the outputs. OSC messages are real UDP packets on loopback.
#if defined(QK_TEST_LIVE) && defined(QK_TEST_CLI)
#include <gtest/gtest.h>

#include <jack/jack.h>
#include <lo/lo.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <filesystem>

namespace {
using namespace std::chrono_literals;

constexpr int kRate = 48000;
constexpr int kPeriod = 256;
constexpr int kMaxPeriods = 40000;  // what the recorder keeps: 213 s at 256 frames
constexpr float kPi = 3.14159265f;

// A folder of the test's own, removed with everything in it.
struct TempDir {
    explicit TempDir(const std::string &tag) {
        std::string pattern = "/tmp/qk-" + tag + ".XXXXXX";
        const char *made = ::mkdtemp(pattern.data());
        dir = made != nullptr ? made : "/tmp";
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
    const std::string &path() const { return dir; }
    std::string dir;
};

std::string defaultSet() {
    return std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";
}

pid_t spawn(const std::vector<std::string> &args, const std::string &log) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        std::vector<char *> argv;
        for (const std::string &a : args) {
            argv.push_back(const_cast<char *>(a.c_str()));
        }
        argv.push_back(nullptr);
        const int fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ::dup2(fd, 1);
        ::dup2(fd, 2);
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
    return pid;
}

void stop(pid_t pid) {
    if (pid > 0) {
        ::kill(pid, SIGTERM);
        int status = 0;
        for (int i = 0; i < 100 && ::waitpid(pid, &status, WNOHANG) == 0; ++i) {
            std::this_thread::sleep_for(20ms);
        }
        if (::waitpid(pid, &status, WNOHANG) == 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
        }
    }
}

std::string readAll(const std::string &path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A jackd of the test's own, stopped by its pid. Without real-time scheduling: the test
// counts periods, not time, and a real-time server on a machine shared with other work was
// seen to stop now and then.
struct Server {
    explicit Server(const std::string &dir) {
        name = "qktest" + std::to_string(::getpid());
        ::setenv("JACK_DEFAULT_SERVER", name.c_str(), 1);
        ::setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
        pid =
            spawn({"jackd", "--no-realtime", "-n", name, "-d", "dummy", "-r", std::to_string(kRate),
                   "-p", std::to_string(kPeriod), "-w", std::to_string(1000000 * kPeriod / kRate)},
                  dir + "/jackd.log");
    }
    ~Server() { stop(pid); }
    std::string name;
    pid_t pid = -1;
};

// Both test clients: a tone into the scene's port, and the scene's outputs recorded as the
// louder ear and the level of the last quarter of each period.
struct Probe {
    static int process(jack_nframes_t n, void *arg) {
        auto *self = static_cast<Probe *>(arg);
        auto *tone = static_cast<float *>(jack_port_get_buffer(self->toneOut, n));
        for (jack_nframes_t k = 0; k < n; ++k) {
            tone[k] = 0.25f * std::sin(2.0f * kPi * 1000.0f * float(self->phase++) / kRate);
        }
        // The message goes out inside a period that the client has not yet served (the
        // feeder runs before it), so that the period it arrives in is known.
        if (self->turnTo.load() >= 0.0f) {
            self->sentUsecs.store(jack_get_time());
            lo_send(self->osc, "/listener/pose", "ffffff", 0.0f, 0.0f, 0.0f, self->turnTo.load(),
                    0.0f, 0.0f);
            self->sentFrame.store(jack_last_frame_time(self->feeder));
            self->turnTo.store(-1.0f);
        }
        return 0;
    }
    static int record(jack_nframes_t n, void *arg) {
        auto *self = static_cast<Probe *>(arg);
        const auto *l = static_cast<const float *>(jack_port_get_buffer(self->inL, n));
        const auto *r = static_cast<const float *>(jack_port_get_buffer(self->inR, n));
        const int at = self->periods.load();
        if (at >= kMaxPeriods) {
            return 0;
        }
        double el = 0, er = 0;
        for (jack_nframes_t k = n - n / 4; k < n; ++k) {
            el += double(l[k]) * l[k];
            er += double(r[k]) * r[k];
        }
        self->left[size_t(at)] = float(el);
        self->right[size_t(at)] = float(er);
        self->frame[size_t(at)] = jack_last_frame_time(self->reader);
        self->usecs[size_t(at)] = jack_get_time();
        self->periods.store(at + 1);
        return 0;
    }
    bool Open() {
        feeder = jack_client_open("qkfeed", JackNoStartServer, nullptr);
        reader = jack_client_open("qkread", JackNoStartServer, nullptr);
        if (feeder == nullptr || reader == nullptr) {
            return false;
        }
        toneOut = jack_port_register(feeder, "tone", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
        inL = jack_port_register(reader, "left", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
        inR = jack_port_register(reader, "right", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
        jack_set_process_callback(feeder, &Probe::process, this);
        jack_set_process_callback(reader, &Probe::record, this);
        return jack_activate(feeder) == 0 && jack_activate(reader) == 0;
    }
    ~Probe() {
        if (osc != nullptr) {
            lo_address_free(osc);
        }
        if (reader != nullptr) {
            jack_client_close(reader);
        }
        if (feeder != nullptr) {
            jack_client_close(feeder);
        }
    }
    jack_client_t *feeder = nullptr;
    jack_client_t *reader = nullptr;
    jack_port_t *toneOut = nullptr;
    jack_port_t *inL = nullptr;
    jack_port_t *inR = nullptr;
    uint64_t phase = 0;
    std::vector<float> left = std::vector<float>(kMaxPeriods);
    std::vector<float> right = std::vector<float>(kMaxPeriods);
    std::vector<jack_nframes_t> frame = std::vector<jack_nframes_t>(kMaxPeriods);
    lo_address osc = nullptr;
    std::atomic<float> turnTo{-1.0f};  // a yaw to send in the next period; below 0 none
    std::atomic<jack_nframes_t> sentFrame{0};
    std::atomic<jack_time_t> sentUsecs{0};
    std::vector<jack_time_t> usecs = std::vector<jack_time_t>(kMaxPeriods);  // when each came
    std::atomic<int> periods{0};
};

bool waitForPort(jack_client_t *client, const std::string &name) {
    for (int i = 0; i < 300; ++i) {
        if (jack_port_by_name(client, name.c_str()) != nullptr) {
            return true;
        }
        std::this_thread::sleep_for(20ms);
    }
    return false;
}

int freeUdpPort() {
    lo_server probe = lo_server_new(nullptr, nullptr);
    const int port = lo_server_get_port(probe);
    lo_server_free(probe);
    return port;
}

// Index of the first recorded period at or after `from` whose left ear is louder (wantLeft)
// or quieter; -1 if none within what was recorded.
int firstTurned(const Probe &p, int from, bool wantLeft) {
    for (int i = from; i < p.periods.load(); ++i) {
        const float l = p.left[size_t(i)], r = p.right[size_t(i)];
        if (l + r > 0.0f && (l > r) == wantLeft) {
            return i;
        }
    }
    return -1;
}

TEST(LiveJack, AHeadTurnOverOscSwapsTheLouderEarWithinTwoPeriods) {
    if (::system("command -v jackd >/dev/null 2>&1") != 0 || !std::ifstream(defaultSet())) {
        GTEST_SKIP() << "needs jackd and the default HRTF set";
    }
    TempDir dir("livejack");
    Server server(dir.path());
    jack_client_t *waiter = nullptr;
    for (int i = 0; i < 250 && waiter == nullptr; ++i) {
        waiter = jack_client_open("qkwait", JackNoStartServer, nullptr);
        if (waiter == nullptr) {
            std::this_thread::sleep_for(20ms);
        }
    }
    ASSERT_NE(waiter, nullptr) << readAll(dir.path() + "/jackd.log");
    const std::string scene = dir.path() + "/tone.yaml";
    std::ofstream(scene) << "hrtf: " << defaultSet() << "\n"
                         << "sources:\n  - {name: tone, jack: true, position: [2, 0, 0]}\n";
    const int osc = freeUdpPort();
    const pid_t live = spawn({QK_TEST_CLI, "live", scene, "--osc", std::to_string(osc), "--client",
                              "qklive", "--seconds", "20"},
                             dir.path() + "/live.log");
    ASSERT_TRUE(waitForPort(waiter, "qklive:in_tone")) << readAll(dir.path() + "/live.log");
    Probe probe;
    probe.osc = lo_address_new("127.0.0.1", std::to_string(osc).c_str());
    ASSERT_TRUE(probe.Open());
    ASSERT_EQ(jack_connect(waiter, "qkfeed:tone", "qklive:in_tone"), 0);
    ASSERT_EQ(jack_connect(waiter, "qklive:out_left", "qkread:left"), 0);
    ASSERT_EQ(jack_connect(waiter, "qklive:out_right", "qkread:right"), 0);
    // Until the tone has come through for a tenth of a second (the first blocks of a busy
    // machine may come late, as silence).
    for (int i = 0, heard = 0; i < 500 && heard < 20; ++i) {
        std::this_thread::sleep_for(10ms);
        const int at = probe.periods.load() - 1;
        heard = at >= 0 && probe.right[size_t(at)] > 0.0f ? heard + 1 : 0;
    }
    // The tone is on the right: the right ear is the louder (at 1 kHz by 5 to 7 dB).
    const int settled = probe.periods.load() - 1;
    ASSERT_GT(settled, 10);
    EXPECT_GT(probe.right[size_t(settled)], 2.0f * probe.left[size_t(settled)]);

    // QK_LIVE_TURNS asks for more turns and prints each one's latency (for measuring).
    const char *asked = std::getenv("QK_LIVE_TURNS");
    const int turns = asked != nullptr ? std::max(4, std::atoi(asked)) : 4;
    int late = 0;  // turns heard later than two periods after their message
    for (int turn = 0; turn < turns; ++turn) {
        const float yaw = turn % 2 == 0 ? 180.0f : 0.0f;
        probe.turnTo.store(yaw);
        std::this_thread::sleep_for(150ms);
        ASSERT_LT(probe.turnTo.load(), 0.0f);
        // The period the message was sent (and arrived) in, as the recorder saw it.
        int sentIn = 0;
        while (sentIn < probe.periods.load() && probe.frame[size_t(sentIn)] < probe.sentFrame) {
            ++sentIn;
        }
        const int turned = firstTurned(probe, sentIn, yaw != 0.0f);
        ASSERT_GE(turned, 0) << "yaw " << yaw;
        // The render thread makes the next period's block as the client serves this one: the
        // message is in it, or at the latest in the one after.
        EXPECT_LE(turned - sentIn, 4) << "yaw " << yaw;
        late += turned - sentIn > 2 ? 1 : 0;
        if (asked != nullptr) {
            std::printf("turn %d: %d periods, %ld us from sending to the recorder\n", turn,
                        turned - sentIn, long(probe.usecs[size_t(turned)] - probe.sentUsecs));
        }
    }
    // A machine busy with other work may stall the server's dummy clock once in a while; a
    // client that takes moves a period late would miss every turn.
    EXPECT_LE(late, std::max(1, turns / 10));
    stop(live);
    jack_client_close(waiter);
    const std::string log = readAll(dir.path() + "/live.log");
    EXPECT_NE(log.find("JACK client qklive: 48000 Hz, 256 frames a period"), std::string::npos)
        << log;
}

TEST(LiveJack, WithoutAServerTheProgramSaysSoAndFails) {
    TempDir dir("livejack_none");
    const std::string scene = dir.path() + "/s.yaml";
    std::ofstream(scene) << "sources:\n  - {noise: -20}\n";
    ::setenv("JACK_DEFAULT_SERVER", "qk-no-such-server", 1);
    const std::string cmd = std::string(QK_TEST_CLI) + " live " + scene + " 2>&1";
    FILE *pipe = ::popen(cmd.c_str(), "r");
    std::string out;
    char buf[512];
    while (pipe != nullptr && std::fgets(buf, sizeof buf, pipe) != nullptr) {
        out += buf;
    }
    const int status = pipe != nullptr ? ::pclose(pipe) : -1;
    EXPECT_NE(WEXITSTATUS(status), 0);
    EXPECT_NE(out.find("no JACK server"), std::string::npos) << out;
}
}  // namespace
#endif
