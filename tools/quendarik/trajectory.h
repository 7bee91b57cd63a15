// Where a scene object is at a time: a fixed pose, or keyframes joined by straight lines or by
// a smooth curve through them, played once or round and round.
#pragma once

#include <vector>

namespace qkcli {

// A place in metres (x across, y ahead, z up) and a head's turn in degrees: yaw 0 looks along
// +y and grows anticlockwise seen from above (90 looks along -x, to the left), pitch grows
// upwards, roll grows to the right ear down. Sources use the place only.
struct Pose {
    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;
    float yaw = 0.0f;
    float pitch = 0.0f;
    float roll = 0.0f;
};

struct Keyframe {
    double time = 0.0;  // seconds from the start of play, strictly rising along the list
    Pose pose;
};

enum class Interpolation { Linear, Smooth };

class Trajectory {
  public:
    std::vector<Keyframe> keys;  // empty: no trajectory
    Interpolation interpolation = Interpolation::Linear;
    // Looping plays the keys from the first key's time to the last's again and again; a
    // closed path repeats its first key at the end.
    bool loop = false;

    bool Empty() const { return keys.empty(); }
    // The pose at time t (s). Before the first key the first pose holds, after the last the
    // last (unless looping). Smooth interpolation is a Catmull-Rom curve through the keys,
    // with the ends' neighbours repeated (or, looping, taken from the other end). Every
    // component, angles included, is interpolated as written: a turn written 350 then 10
    // turns back through 180; write 370 for the short way. Allocates nothing.
    Pose At(double t) const;
};

// The point one metre ahead of the pose's head (roll doesn't move it): what a listener's
// look-at takes.
void LookAtPoint(const Pose &pose, float out[3]);

// Yaw and pitch (degrees) of a head turned by the unit quaternion (w, x, y, z), given in the
// scene's axes, whose identity looks along +y; roll about the look direction as well.
void QuaternionToAngles(float w, float x, float y, float z, float &yaw, float &pitch, float &roll);

}  // namespace qkcli
