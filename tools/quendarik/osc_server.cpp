#include "osc_server.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "trajectory.h"

namespace qkcli {
namespace {
constexpr size_t kMaxToldAddresses = 1000;  // a flood of new addresses is reported so far only

void onLoError(int num, const char *msg, const char *where) {
    (void)num;
    (void)msg;
    (void)where;  // Start reports a port that can't be taken; the rest is the sender's problem
}
}  // namespace

OscServer::OscServer(SceneControls &controls, const SceneFile &scene,
                     std::function<void(const std::string &)> report)
    : m_controls(controls), m_report(std::move(report)) {
    for (const SourceEntry &source : scene.sources) {
        m_fedSources.push_back(source.kind == SourceKind::File ? 0 : 1);
    }
    const Pose &l = scene.listener;
    const float pose[6] = {l.x, l.y, l.z, l.yaw, l.pitch, l.roll};
    std::memcpy(m_pose, pose, sizeof m_pose);
}

OscServer::~OscServer() {
    Stop();
}

bool OscServer::Start(int iPort, bool bOwnThread, std::string &error) {
    const std::string port = iPort > 0 ? std::to_string(iPort) : std::string();
    m_server = lo_server_new_with_proto(port.empty() ? nullptr : port.c_str(), LO_UDP, &onLoError);
    if (m_server == nullptr) {
        error = "the OSC port " + port + " can't be opened (taken?)";
        return false;
    }
    m_iPort = lo_server_get_port(m_server);
    lo_server_add_method(m_server, nullptr, nullptr, &OscServer::OnMessage, this);
    if (bOwnThread) {
        m_bRunning.store(true);
        m_thread = std::thread([this] {
            while (m_bRunning.load(std::memory_order_relaxed)) {
                lo_server_recv_noblock(m_server, 50);  // ms; then the flag is looked at again
            }
        });
    }
    return true;
}

void OscServer::Poll() {
    if (m_server == nullptr) {
        return;
    }
    for (int i = 0; i < 1000 && lo_server_recv_noblock(m_server, 0) > 0; ++i) {
    }
}

void OscServer::Stop() {
    if (m_bRunning.exchange(false)) {
        m_thread.join();
    }
    if (m_server != nullptr) {
        lo_server_free(m_server);
        m_server = nullptr;
    }
}

int OscServer::OnMessage(const char *path, const char *types, lo_arg **argv, int argc, lo_message,
                         void *user) {
    static_cast<OscServer *>(user)->Handle(path, types, argv, argc);
    return 0;  // handled: no other method is tried
}

bool OscServer::Numbers(const char *types, lo_arg **argv, int argc, int count, float *out) const {
    if (argc != count || types == nullptr || static_cast<int>(std::strlen(types)) != count) {
        return false;
    }
    for (int i = 0; i < count; ++i) {
        // liblo points into the packet, where arguments are aligned to 4 bytes only: its union
        // wants 8, so each value is copied out rather than read through the union.
        double v = 0.0;
        switch (types[i]) {
            case LO_FLOAT: {
                float f = 0.0f;
                std::memcpy(&f, argv[i], sizeof f);
                v = f;
                break;
            }
            case LO_DOUBLE:
                std::memcpy(&v, argv[i], sizeof v);
                break;
            case LO_INT32: {
                int32_t n = 0;
                std::memcpy(&n, argv[i], sizeof n);
                v = n;
                break;
            }
            default:
                return false;
        }
        if (!std::isfinite(v)) {
            return false;
        }
        out[i] = static_cast<float>(v);
    }
    return true;
}

int OscServer::Refuse(const char *path, const std::string &why) {
    if (m_told.size() < kMaxToldAddresses && m_told.insert(path).second) {
        m_report(std::string("OSC ") + path + ": " + why + " (ignored)");
    }
    return 1;
}

int OscServer::SourceMessage(const std::string &path, const char *types, lo_arg **argv, int argc) {
    // /source/N/what
    const size_t slash = path.find('/', 8);
    const std::string number = path.substr(8, slash == std::string::npos ? slash : slash - 8);
    const std::string what = slash == std::string::npos ? "" : path.substr(slash + 1);
    char *end = nullptr;
    const long n = std::strtol(number.c_str(), &end, 10);
    if (number.empty() || *end != '\0' || n < 1 || n > m_controls.count) {
        return Refuse(path.c_str(), "no source " + number + " (sources count from 1 to " +
                                        std::to_string(m_controls.count) + ")");
    }
    SourceControls &source = m_controls.sources[static_cast<size_t>(n - 1)];
    float v[3];
    if (what == "position") {
        if (!Numbers(types, argv, argc, 3, v) || std::fabs(v[0]) > kMaxCoordinate ||
            std::fabs(v[1]) > kMaxCoordinate || std::fabs(v[2]) > kMaxCoordinate) {
            return Refuse(path.c_str(), "wants x y z in metres");
        }
        source.position.Write({v[0], v[1], v[2]});
    } else if (what == "gain") {
        if (!Numbers(types, argv, argc, 1, v) || v[0] < -120.0f || v[0] > 40.0f) {
            return Refuse(path.c_str(), "wants one gain in dB, -120 to 40");
        }
        if (m_fedSources[static_cast<size_t>(n - 1)] == 0) {
            return Refuse(path.c_str(), "a file source plays at its file's level");
        }
        source.gain.store(v[0], std::memory_order_relaxed);
    } else if (what == "mute") {
        if (!Numbers(types, argv, argc, 1, v) || (v[0] != 0.0f && v[0] != 1.0f)) {
            return Refuse(path.c_str(), "wants 0 or 1");
        }
        source.mute.store(v[0] != 0.0f ? 1 : 0, std::memory_order_relaxed);
    } else {
        return Refuse(path.c_str(), "unknown address");
    }
    return 0;
}

int OscServer::Handle(const char *path, const char *types, lo_arg **argv, int argc) {
    const std::string address = path != nullptr ? path : "";
    float v[6];
    int result = 0;
    if (address == "/listener/pose") {
        if (!Numbers(types, argv, argc, 6, v) || std::fabs(v[0]) > kMaxCoordinate ||
            std::fabs(v[1]) > kMaxCoordinate || std::fabs(v[2]) > kMaxCoordinate) {
            return Refuse(path, "wants x y z (m) yaw pitch roll (degrees)");
        }
        std::memcpy(m_pose, v, sizeof m_pose);
        m_controls.listener.Write({v[0], v[1], v[2], v[3], v[4], v[5]});
    } else if (address == "/listener/quaternion") {
        if (!Numbers(types, argv, argc, 4, v)) {
            return Refuse(path, "wants w x y z");
        }
        QuaternionToAngles(v[0], v[1], v[2], v[3], m_pose[3], m_pose[4], m_pose[5]);
        m_controls.listener.Write(
            {m_pose[0], m_pose[1], m_pose[2], m_pose[3], m_pose[4], m_pose[5]});
    } else if (address.compare(0, 8, "/source/") == 0) {
        result = SourceMessage(address, types, argv, argc);
    } else if (address == "/scene/order") {
        if (!Numbers(types, argv, argc, 1, v) || v[0] < 0.0f || v[0] > 30.0f ||
            v[0] != std::floor(v[0])) {
            return Refuse(path, "wants a whole order from 0 to 30");
        }
        m_controls.order.store(static_cast<int>(v[0]), std::memory_order_relaxed);
    } else {
        return Refuse(path != nullptr ? path : "(none)", "unknown address");
    }
    if (result == 0) {
        m_taken.fetch_add(1, std::memory_order_relaxed);
    }
    return result;
}

}  // namespace qkcli
