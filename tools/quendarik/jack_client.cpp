#include "jack_client.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <jack/thread.h>
#include <pthread.h>
#include <sched.h>

namespace qkcli {
namespace {
constexpr float kFromEngine = 1.0f / 32768.0f;  // the engine's 16-bit scale to JACK's +-1
constexpr int kRingSlots = 10;                  // more than the most blocks kept ahead
}  // namespace

JackLive::JackLive(const SceneFile &scene, const JackOptions &options)
    : m_scene(scene), m_options(options) {
    m_options.ahead = std::clamp(m_options.ahead, 1, 8);
    sem_init(&m_wake, 0, 0);
}

JackLive::~JackLive() {
    Stop();
    sem_destroy(&m_wake);
}

bool JackLive::RegisterPorts(std::string &error) {
    const char *names[] = {"out_left", "out_right"};
    for (const char *name : names) {
        jack_port_t *port = jack_port_register(m_client, name, JACK_DEFAULT_AUDIO_TYPE,
                                               JackPortIsOutput | JackPortIsTerminal, 0);
        if (port == nullptr) {
            error = std::string("JACK refused the port ") + name;
            return false;
        }
        m_out.push_back(port);
    }
    for (int index : m_engine->LiveSources()) {
        const std::string name = "in_" + PortName(m_scene.sources[static_cast<size_t>(index)]);
        jack_port_t *port = jack_port_register(m_client, name.c_str(), JACK_DEFAULT_AUDIO_TYPE,
                                               JackPortIsInput | JackPortIsTerminal, 0);
        if (port == nullptr) {
            error = "JACK refused the port " + name + " (two sources of one name?)";
            return false;
        }
        m_in.push_back(port);
    }
    return true;
}

bool JackLive::Open(std::string &error) {
    jack_status_t status{};
    m_client = jack_client_open(m_options.client.c_str(), JackNoStartServer, &status);
    if (m_client == nullptr) {
        error = "no JACK server to connect to (is jackd or PipeWire's JACK running?)";
        return false;
    }
    m_name = jack_get_client_name(m_client);
    m_iRate = static_cast<int>(jack_get_sample_rate(m_client));
    const int period = static_cast<int>(jack_get_buffer_size(m_client));
    if (period < 1 || period > kMaxLivePeriod) {
        error = "the server's period of " + std::to_string(period) + " frames is more than " +
                std::to_string(kMaxLivePeriod);
        return false;
    }
    m_iPeriod.store(period);
    m_engine = std::make_unique<SceneEngine>(m_scene, m_iRate, period, true, -2);
    if (!m_engine->Setup(error) || !RegisterPorts(error)) {
        return false;
    }
    m_outRing = std::make_unique<BlockRing>(kRingSlots, 2, kMaxLivePeriod);
    m_inRing =
        std::make_unique<BlockRing>(kRingSlots, std::max<int>(1, int(m_in.size())), kMaxLivePeriod);
    jack_set_process_callback(m_client, &JackLive::Process, this);
    jack_set_xrun_callback(m_client, &JackLive::OnXrun, this);
    jack_set_buffer_size_callback(m_client, &JackLive::OnBufferSize, this);
    jack_on_shutdown(m_client, &JackLive::OnShutdown, this);
    return true;
}

bool JackLive::Run(BlockHook *hook, std::string &error) {
    m_hook = hook;
    const int period = m_iPeriod.load();
    // The first blocks are made before the server asks for them, so that the first period
    // already has one.
    for (int i = 0; i < m_options.ahead; ++i) {
        RenderOne(period, m_rendered++);
    }
    m_bRunning.store(true);
    m_render = std::thread([this] { RenderLoop(); });
    if (jack_is_realtime(m_client) != 0) {
        // Just below the server's own threads; refused (no rights) it runs as it is.
        sched_param param{};
        param.sched_priority = std::max(1, jack_client_real_time_priority(m_client) - 1);
        pthread_setschedparam(m_render.native_handle(), SCHED_FIFO, &param);
    }
    if (jack_activate(m_client) != 0) {
        error = "JACK didn't activate the client";
        return false;
    }
    Connect();
    return true;
}

void JackLive::Connect() {
    for (size_t i = 0; i < m_in.size(); ++i) {
        const SourceEntry &entry = m_scene.sources[static_cast<size_t>(m_engine->LiveSources()[i])];
        std::string from = entry.connect;
        if (from.empty() && entry.kind == SourceKind::Capture) {
            from = "system:capture_1";  // the sound card's first input
        }
        if (!from.empty() && jack_connect(m_client, from.c_str(), jack_port_name(m_in[i])) != 0) {
            std::fprintf(stderr, "quendarik live: can't connect %s to %s\n", from.c_str(),
                         jack_port_name(m_in[i]));
        }
    }
    if (!m_options.connect) {
        return;
    }
    const char **ports = jack_get_ports(m_client, nullptr, JACK_DEFAULT_AUDIO_TYPE,
                                        JackPortIsPhysical | JackPortIsInput);
    for (size_t i = 0; ports != nullptr && i < m_out.size() && ports[i] != nullptr; ++i) {
        jack_connect(m_client, jack_port_name(m_out[i]), ports[i]);
    }
    if (ports == nullptr || ports[0] == nullptr) {
        std::fprintf(stderr, "quendarik live: the server has no playback ports to connect\n");
    }
    jack_free(ports);
}

void JackLive::Stop() {
    if (m_client != nullptr) {
        jack_deactivate(m_client);
    }
    if (m_bRunning.exchange(false)) {
        sem_post(&m_wake);
        m_render.join();
    }
    if (m_client != nullptr) {
        jack_client_close(m_client);
        m_client = nullptr;
    }
}

int JackLive::Process(jack_nframes_t frames, void *arg) {
    auto *self = static_cast<JackLive *>(arg);
    const int n = static_cast<int>(frames);
    if (!self->m_inRing->Full() && n <= kMaxLivePeriod) {
        float *slot = self->m_inRing->WriteSlot();
        for (size_t i = 0; i < self->m_in.size(); ++i) {
            const auto *in =
                static_cast<const float *>(jack_port_get_buffer(self->m_in[i], frames));
            std::memcpy(slot + i * self->m_inRing->MaxFrames(), in, sizeof(float) * frames);
        }
        self->m_inRing->Publish(n);
    }
    auto *left = static_cast<float *>(jack_port_get_buffer(self->m_out[0], frames));
    auto *right = static_cast<float *>(jack_port_get_buffer(self->m_out[1], frames));
    const uint64_t cycle = self->m_cycle.load(std::memory_order_relaxed);
    BlockRing &ring = *self->m_outRing;
    int made = 0;
    uint64_t tag = 0;
    const float *block = nullptr;
    while (ring.Ready() > 0) {
        block = ring.ReadSlot(made, tag);
        if (tag >= cycle) {
            break;
        }
        ring.Release();  // made too late for its period
        block = nullptr;
    }
    if (block != nullptr && tag == cycle && made == n) {
        std::memcpy(left, block, sizeof(float) * frames);
        std::memcpy(right, block + ring.MaxFrames(), sizeof(float) * frames);
        ring.Release();
    } else {
        std::memset(left, 0, sizeof(float) * frames);
        std::memset(right, 0, sizeof(float) * frames);
        self->m_late.fetch_add(1, std::memory_order_relaxed);
        if (block != nullptr && tag == cycle) {
            ring.Release();  // made for another period length
        }
    }
    self->m_cycle.store(cycle + 1, std::memory_order_release);
    sem_post(&self->m_wake);
    return 0;
}

int JackLive::OnXrun(void *arg) {
    static_cast<JackLive *>(arg)->m_xruns.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

int JackLive::OnBufferSize(jack_nframes_t frames, void *arg) {
    static_cast<JackLive *>(arg)->m_iPeriod.store(static_cast<int>(frames));
    return 0;
}

void JackLive::OnShutdown(void *arg) {
    auto *self = static_cast<JackLive *>(arg);
    self->m_bShutDown.store(true);
    sem_post(&self->m_wake);
}

void JackLive::RenderOne(int iPeriod, uint64_t iCycle) {
    if (!m_engine->SetBlockLength(iPeriod)) {
        m_outRing->Publish(0, iCycle);  // a period too long for the buffers: silence
        return;
    }
    // The input the callback took last period feeds this block; none yet is silence. After a
    // stall only the newest periods of input are kept.
    int got = 0;
    uint64_t tag = 0;
    while (m_inRing->Ready() > static_cast<size_t>(m_options.ahead)) {
        m_inRing->Release();
    }
    const float *in = m_inRing->Ready() > 0 ? m_inRing->ReadSlot(got, tag) : nullptr;
    for (size_t i = 0; i < m_engine->LiveSources().size(); ++i) {
        float *to = m_engine->LiveInput(i);
        if (in != nullptr && got == iPeriod) {
            std::memcpy(to, in + i * m_inRing->MaxFrames(), sizeof(float) * size_t(iPeriod));
        } else {
            std::memset(to, 0, sizeof(float) * size_t(iPeriod));
        }
    }
    if (in != nullptr) {
        m_inRing->Release();
    }
    if (m_hook != nullptr) {
        m_hook->BeforeBlock();
    }
    const double t = static_cast<double>(iCycle) * iPeriod / m_iRate;
    const int result = m_engine->Block(t);
    float *slot = m_outRing->WriteSlot();
    const float *made = result >= 0 ? m_engine->Output() : nullptr;
    for (int k = 0; k < iPeriod; ++k) {
        slot[k] = made != nullptr ? made[k] * kFromEngine : 0.0f;
        slot[m_outRing->MaxFrames() + size_t(k)] =
            made != nullptr ? made[iPeriod + k] * kFromEngine : 0.0f;
    }
    m_outRing->Publish(iPeriod, iCycle);
}

void JackLive::RenderLoop() {
    while (m_bRunning.load(std::memory_order_relaxed)) {
        timespec until{};
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_nsec += 200 * 1000 * 1000;
        if (until.tv_nsec >= 1000000000L) {
            until.tv_sec += 1;
            until.tv_nsec -= 1000000000L;
        }
        if (sem_timedwait(&m_wake, &until) != 0 && errno != ETIMEDOUT && errno != EINTR) {
            break;
        }
        // The blocks of the next `ahead` periods; periods already past are skipped.
        for (;;) {
            const uint64_t served = m_cycle.load(std::memory_order_acquire);
            m_rendered = std::max(m_rendered, served);
            if (!m_bRunning.load(std::memory_order_relaxed) ||
                m_rendered >= served + static_cast<uint64_t>(m_options.ahead) ||
                m_outRing->Full()) {
                break;
            }
            RenderOne(m_iPeriod.load(std::memory_order_relaxed), m_rendered++);
        }
    }
}

}  // namespace qkcli
