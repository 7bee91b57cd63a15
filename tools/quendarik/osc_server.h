// The scene's remote control over OSC (UDP), as head trackers and scene editors send it:
//
//   /listener/pose x y z yaw pitch roll   metres and degrees (yaw 0 looks along +y, 90 left)
//   /listener/quaternion w x y z          the head's turn as a unit quaternion in the scene's
//                                         axes (identity looks along +y); the place stays
//   /source/N/position x y z              metres; N counts the scene's sources from 1
//   /source/N/gain dB                     on noise and live inputs (files play as they are)
//   /source/N/mute 0|1
//   /scene/order n                        the reflection order, 0 to 30
//
// Numbers may come as int32, float or double. A move stops the object's trajectory. Each
// message is handed to the render thread without a lock (SceneControls) and takes effect at
// its next block. An unknown address or wrong arguments are reported once per address and
// otherwise ignored.
//
// The messages are read either by a thread of the server's own, or by the render thread
// itself (Poll, just before each block): then a message waits for no other thread to be
// scheduled, which on a busy machine can take longer than a period.
#pragma once

#include <lo/lo.h>

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "jack_client.h"
#include "scene_controls.h"
#include "scene_file.h"

namespace qkcli {

class OscServer : public BlockHook {
  public:
    // Reports go to `report` (one line each), on the server's thread.
    OscServer(SceneControls &controls, const SceneFile &scene,
              std::function<void(const std::string &)> report);
    ~OscServer() override;
    OscServer(const OscServer &) = delete;
    OscServer &operator=(const OscServer &) = delete;

    // Listens on the UDP port (0: one the system picks), with a thread of its own to read the
    // messages or (bOwnThread false) for Poll; false with error set.
    bool Start(int iPort, bool bOwnThread, std::string &error);
    // Handles every message waiting (a thousand at most), without waiting for any.
    void Poll();
    void BeforeBlock() override { Poll(); }
    void Stop();
    int Port() const { return m_iPort; }
    // Handles one message as the server's thread does: 0 taken, 1 refused (and reported once).
    int Handle(const char *path, const char *types, lo_arg **argv, int argc);
    // Messages taken so far.
    long Taken() const { return m_taken.load(std::memory_order_relaxed); }

  private:
    static int OnMessage(const char *path, const char *types, lo_arg **argv, int argc,
                         lo_message msg, void *user);
    bool Numbers(const char *types, lo_arg **argv, int argc, int count, float *out) const;
    int Refuse(const char *path, const std::string &why);
    int SourceMessage(const std::string &path, const char *types, lo_arg **argv, int argc);

    SceneControls &m_controls;
    std::vector<int> m_fedSources;  // per source: 1 when its gain can change (not a file)
    std::function<void(const std::string &)> m_report;
    lo_server m_server = nullptr;
    std::thread m_thread;
    std::atomic<bool> m_bRunning{false};
    int m_iPort = 0;
    float m_pose[6] = {0, 0, 0, 0, 0, 0};  // the listener's last pose, kept for quaternions
    std::set<std::string> m_told;          // addresses already reported
    std::atomic<long> m_taken{0};
};

}  // namespace qkcli
