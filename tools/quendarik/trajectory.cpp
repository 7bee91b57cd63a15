#include "trajectory.h"

#include <algorithm>
#include <cmath>

namespace qkcli {
namespace {
constexpr double kDegree = 3.14159265358979323846 / 180.0;

float mix(float a, float b, double u) {
    return static_cast<float>(a + (b - a) * u);
}

// Catmull-Rom through p1 and p2 at u in [0, 1], with the tangents from p0 and p3.
float catmullRom(float p0, float p1, float p2, float p3, double u) {
    const double u2 = u * u;
    const double u3 = u2 * u;
    return static_cast<float>(0.5 * (2.0 * p1 + (-p0 + p2) * u +
                                     (2.0 * p0 - 5.0 * p1 + 4.0 * p2 - p3) * u2 +
                                     (-p0 + 3.0 * p1 - 3.0 * p2 + p3) * u3));
}

Pose linear(const Pose &a, const Pose &b, double u) {
    return Pose{mix(a.x, b.x, u),     mix(a.y, b.y, u),         mix(a.z, b.z, u),
                mix(a.yaw, b.yaw, u), mix(a.pitch, b.pitch, u), mix(a.roll, b.roll, u)};
}

Pose smooth(const Pose &p0, const Pose &p1, const Pose &p2, const Pose &p3, double u) {
    return Pose{catmullRom(p0.x, p1.x, p2.x, p3.x, u),
                catmullRom(p0.y, p1.y, p2.y, p3.y, u),
                catmullRom(p0.z, p1.z, p2.z, p3.z, u),
                catmullRom(p0.yaw, p1.yaw, p2.yaw, p3.yaw, u),
                catmullRom(p0.pitch, p1.pitch, p2.pitch, p3.pitch, u),
                catmullRom(p0.roll, p1.roll, p2.roll, p3.roll, u)};
}
}  // namespace

Pose Trajectory::At(double t) const {
    if (keys.empty()) {
        return Pose{};
    }
    const size_t n = keys.size();
    const double first = keys.front().time;
    const double last = keys.back().time;
    if (n == 1 || !std::isfinite(t)) {
        return keys.front().pose;
    }
    if (loop && last > first) {
        t = first + std::fmod(std::max(0.0, t - first), last - first);
    }
    if (t <= first) {
        return keys.front().pose;
    }
    if (t >= last) {
        return keys.back().pose;
    }
    // The segment [k, k + 1] holding t: the first key later than t, less one.
    const auto later = std::upper_bound(keys.begin(), keys.end(), t,
                                        [](double v, const Keyframe &k) { return v < k.time; });
    const size_t k = static_cast<size_t>(later - keys.begin()) - 1;
    const double span = keys[k + 1].time - keys[k].time;
    const double u = span > 0.0 ? (t - keys[k].time) / span : 0.0;
    if (interpolation == Interpolation::Linear) {
        return linear(keys[k].pose, keys[k + 1].pose, u);
    }
    // A looping path's last key is its first again, so the neighbours across the ends are
    // the second key and the one before the last.
    const bool closed = loop && n > 2;
    const Pose &p0 = k > 0 ? keys[k - 1].pose : (closed ? keys[n - 2].pose : keys[k].pose);
    const Pose &p3 = k + 2 < n ? keys[k + 2].pose : (closed ? keys[1].pose : keys[k + 1].pose);
    return smooth(p0, keys[k].pose, keys[k + 1].pose, p3, u);
}

void LookAtPoint(const Pose &pose, float out[3]) {
    const double yaw = pose.yaw * kDegree;
    const double pitch = pose.pitch * kDegree;
    out[0] = pose.x - static_cast<float>(std::sin(yaw) * std::cos(pitch));
    out[1] = pose.y + static_cast<float>(std::cos(yaw) * std::cos(pitch));
    out[2] = pose.z + static_cast<float>(std::sin(pitch));
}

void QuaternionToAngles(float w, float x, float y, float z, float &yaw, float &pitch, float &roll) {
    const double norm = std::sqrt(double(w) * w + double(x) * x + double(y) * y + double(z) * z);
    if (!(norm > 0.0) || !std::isfinite(norm)) {
        yaw = pitch = roll = 0.0f;
        return;
    }
    const double qw = w / norm, qx = x / norm, qy = y / norm, qz = z / norm;
    // The rotated +y (the look direction) and +x (the right ear).
    const double fx = 2.0 * (qx * qy - qw * qz);
    const double fy = 1.0 - 2.0 * (qx * qx + qz * qz);
    const double fz = 2.0 * (qy * qz + qw * qx);
    const double rz = 2.0 * (qx * qz - qw * qy);
    yaw = static_cast<float>(std::atan2(-fx, fy) / kDegree);
    pitch = static_cast<float>(std::asin(std::clamp(fz, -1.0, 1.0)) / kDegree);
    // The right ear's height against the level it would have with no roll.
    const double level = std::sqrt(std::max(0.0, 1.0 - fz * fz));
    roll = static_cast<float>(std::atan2(-rz, level > 0.0 ? level : 1.0) / kDegree);
}

}  // namespace qkcli
