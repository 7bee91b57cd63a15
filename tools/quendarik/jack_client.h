// The scene as a JACK client: two output ports, an input port for each live source, blocks at
// the server's period and rate.
//
// The library makes a hosted block on its engine thread and the caller waits for it, so the
// process callback never asks for one. A render thread of the program makes the blocks ahead
// and hands them over in a lock-free ring; the callback only copies: its input ports into the
// input ring, the block made for this period out to the output ports, then posts a semaphore
// to wake the render thread (sem_post neither waits nor allocates). The render thread keeps
// the blocks of the next `ahead` periods made (default 1), so the output follows the input and
// the moves by one period more than the server's own latency. Files are read by the render
// thread, never by the callback. A block that isn't ready when its period comes goes out as
// silence and is counted; one that comes later is dropped, and the render thread skips to the
// periods still to come, so that a stall never leaves the output a period further behind.
#pragma once

#include <jack/jack.h>
#include <semaphore.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "block_ring.h"
#include "scene_engine.h"
#include "scene_file.h"

namespace qkcli {

// What the render thread does just before each block (reads the remote control's messages).
class BlockHook {
  public:
    virtual ~BlockHook() = default;
    virtual void BeforeBlock() = 0;
};

struct JackOptions {
    std::string client = "quendarik";
    bool connect = false;  // outputs to the system's playback ports
    int ahead = 1;         // blocks made ahead of the callback, 1 to 8
};

class JackLive {
  public:
    JackLive(const SceneFile &scene, const JackOptions &options);
    ~JackLive();
    JackLive(const JackLive &) = delete;
    JackLive &operator=(const JackLive &) = delete;

    // Opens the client and sets the scene up at the server's rate and period; false with
    // error set to one line.
    bool Open(std::string &error);
    // Starts the render thread, which calls hook (if any) before each block, and activates.
    bool Run(BlockHook *hook, std::string &error);
    // Deactivates, stops the render thread and closes the client.
    void Stop();
    // The server has gone away.
    bool ShutDown() const { return m_bShutDown.load(std::memory_order_relaxed); }

    SceneControls &Controls() { return m_engine->Controls(); }
    int Rate() const { return m_iRate; }
    int Period() const { return m_iPeriod.load(std::memory_order_relaxed); }
    const std::string &Name() const { return m_name; }
    long Xruns() const { return m_xruns.load(std::memory_order_relaxed); }
    // Periods that went out as silence because their block wasn't made in time.
    long LateBlocks() const { return m_late.load(std::memory_order_relaxed); }

  private:
    static int Process(jack_nframes_t frames, void *arg);
    static int OnXrun(void *arg);
    static int OnBufferSize(jack_nframes_t frames, void *arg);
    static void OnShutdown(void *arg);
    void RenderLoop();
    void RenderOne(int iPeriod, uint64_t iCycle);
    bool RegisterPorts(std::string &error);
    void Connect();

    SceneFile m_scene;
    JackOptions m_options;
    BlockHook *m_hook = nullptr;
    jack_client_t *m_client = nullptr;
    std::string m_name;
    std::vector<jack_port_t *> m_out;
    std::vector<jack_port_t *> m_in;  // one per live source
    std::unique_ptr<SceneEngine> m_engine;
    std::unique_ptr<BlockRing> m_outRing;
    std::unique_ptr<BlockRing> m_inRing;
    sem_t m_wake;
    std::thread m_render;
    std::atomic<bool> m_bRunning{false};
    std::atomic<bool> m_bShutDown{false};
    std::atomic<int> m_iPeriod{0};
    std::atomic<uint64_t> m_cycle{0};  // periods the callback has served
    std::atomic<long> m_xruns{0};
    std::atomic<long> m_late{0};
    int m_iRate = 0;
    uint64_t m_rendered = 0;  // the period of the next block to make
};

}  // namespace qkcli
