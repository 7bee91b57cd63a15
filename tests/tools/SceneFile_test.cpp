// Scene files and trajectories: what a good file gives, the one line a bad file gets, and
// where a moving object is at a time.
#ifdef QK_TEST_LIVE
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "scene_file.h"
#include "trajectory.h"

namespace {
using qkcli::Interpolation;
using qkcli::Keyframe;
using qkcli::Pose;
using qkcli::SceneFile;
using qkcli::Trajectory;

constexpr float kTight = 1e-4f;  // float arithmetic on metres and degrees

bool read(const std::string &text, SceneFile &scene, std::string &error) {
    return qkcli::ReadSceneText(text, "scene.yaml", "/base", false, scene, error);
}

TEST(SceneFile, ReadsEveryPartOfAScene) {
    const std::string text = R"(
rate: 48000
block: 256
seconds: 2.5
room: {shoebox: [5, 4, 3]}
model: 2
order: 3
reverb: 0.6
hrtf: sets/mine.qkhrtf
output: {kind: jack, connect: true, client: qk}
osc: {port: 9100}
move_rate: 25
listener:
  position: [0, 0, 1.7]
  yaw: 90
  trajectory:
    keys:
      - {time: 0}
      - {time: 2, position: [1, 0, 1.7], pitch: 10}
sources:
  - {name: voice, file: voice.wav, position: [1, 2, 3], gain: -6, mute: yes}
  - {noise: -30, trajectory: {interpolation: smooth, loop: true, keys: [{time: 0}, {time: 1, position: [0, 2, 0]}]}}
  - {jack: true, connect: "system:capture_2"}
)";
    SceneFile scene;
    std::string error;
    ASSERT_TRUE(read(text, scene, error)) << error;
    EXPECT_EQ(scene.rate, 48000);
    EXPECT_EQ(scene.block, 256);
    EXPECT_DOUBLE_EQ(scene.seconds, 2.5);
    EXPECT_EQ(scene.room, qkcli::RoomKind::ShoeBox);
    EXPECT_FLOAT_EQ(scene.box[1], 4.0f);
    EXPECT_EQ(scene.model, 2);
    EXPECT_EQ(scene.order, 3);
    EXPECT_FLOAT_EQ(scene.reverbDry, 0.6f);
    EXPECT_TRUE(scene.hrtfIsPath);
    EXPECT_EQ(scene.hrtf, "/base/sets/mine.qkhrtf");
    EXPECT_EQ(scene.output, qkcli::OutputKind::Jack);
    EXPECT_TRUE(scene.connect);
    EXPECT_EQ(scene.client, "qk");
    EXPECT_EQ(scene.oscPort, 9100);
    EXPECT_DOUBLE_EQ(scene.moveRate, 25.0);
    // A key without a value keeps the one before it; the first key the listener's own.
    ASSERT_EQ(scene.listenerTrajectory.keys.size(), 2u);
    EXPECT_FLOAT_EQ(scene.listenerTrajectory.keys[0].pose.z, 1.7f);
    EXPECT_FLOAT_EQ(scene.listenerTrajectory.keys[0].pose.yaw, 90.0f);
    EXPECT_FLOAT_EQ(scene.listenerTrajectory.keys[1].pose.yaw, 90.0f);
    EXPECT_FLOAT_EQ(scene.listenerTrajectory.keys[1].pose.pitch, 10.0f);
    ASSERT_EQ(scene.sources.size(), 3u);
    EXPECT_EQ(scene.sources[0].kind, qkcli::SourceKind::File);
    EXPECT_EQ(scene.sources[0].file, "/base/voice.wav");
    EXPECT_TRUE(scene.sources[0].mute);
    EXPECT_FLOAT_EQ(scene.sources[0].gain, -6.0f);
    EXPECT_EQ(scene.sources[1].name, "source 2");
    EXPECT_FLOAT_EQ(scene.sources[1].level, -30.0f);
    EXPECT_TRUE(scene.sources[1].trajectory.loop);
    EXPECT_EQ(scene.sources[1].trajectory.interpolation, Interpolation::Smooth);
    EXPECT_EQ(scene.sources[2].kind, qkcli::SourceKind::Jack);
    EXPECT_EQ(scene.sources[2].connect, "system:capture_2");
}

TEST(SceneFile, ABadFileGetsOneLineWithItsLineAndKey) {
    struct Case {
        const char *text;
        const char *expected;
    };
    const std::vector<Case> cases = {
        {"order: 2\nspeed: 3\n", "scene.yaml:2: speed: unknown key"},
        {"order: 2\norder: 3\n", "scene.yaml:2: order: given twice"},
        {"order: two\n", "scene.yaml:1: order: should be a number, not 'two'"},
        {"order: 2.5\n", "scene.yaml:1: order: should be a whole number"},
        {"order: 31\n", "scene.yaml:1: order: should be from 0 to 30, not 31"},
        {"seconds: .nan\n", "scene.yaml:1: seconds: should be a number"},
        {"room: {shoebox: [5, 5]}\n", "scene.yaml:1: room.shoebox: should be a list of three"},
        {"room: {shoebox: [5, 0, 3]}\n", "room.shoebox: width, depth and height"},
        {"room: {preset: 2, shoebox: [1, 1, 1]}\n", "room: should give one of"},
        {"model: 1\n", "scene.yaml:1: model: a room model needs a room"},
        {"sources:\n  - {noise: -20}\n  - {noise: -20, file: a.wav}\n",
         "scene.yaml:3: sources[1]: should give one of file, noise, capture or jack"},
        {"sources:\n  - noise: -20\n    position: [0, 1, x]\n",
         "scene.yaml:3: sources[0].position: should be a number, not 'x'"},
        {"sources:\n  - jack: false\n", "sources[0].jack: should be true"},
        {"sources: {noise: 1}\n", "scene.yaml:1: sources: should be a list of sources"},
        {"listener:\n  trajectory:\n    keys:\n      - {time: 1}\n      - {time: 1}\n",
         "scene.yaml:5: listener.trajectory.keys[1].time: should be later than the key before"},
        {"listener:\n  trajectory: {keys: [{position: [0, 0, 0]}]}\n",
         "listener.trajectory.keys[0].time: missing"},
        {"sources:\n  - noise: -3\n    trajectory: {keys: [{time: 0, yaw: 3}]}\n",
         "scene.yaml:3: sources[0].trajectory.keys[0].yaw: unknown key"},
        {"output: {kind: speakers}\n", "scene.yaml:1: output.kind: should be file, alsa or jack"},
        {"listener: {position: [0, 0, 0]\n", "scene.yaml:2: syntax:"},
        {"[1, 2]\n", "scene.yaml:1: : should be a map of keys"},
    };
    for (const Case &c : cases) {
        SceneFile scene;
        std::string error;
        EXPECT_FALSE(read(c.text, scene, error)) << c.text;
        EXPECT_NE(error.find(c.expected), std::string::npos) << c.text << "\ngave: " << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
}

TEST(SceneFile, NamedFilesMustExistAndCountsAreBounded) {
    SceneFile scene;
    std::string error;
    EXPECT_FALSE(qkcli::ReadSceneText("sources:\n  - {file: nowhere.wav}\n", "s.yaml",
                                      "/nonexistent-dir", true, scene, error));
    EXPECT_NE(error.find("s.yaml:2: sources[0].file: no such file: "
                         "/nonexistent-dir/nowhere.wav"),
              std::string::npos)
        << error;
    std::string many = "sources:\n";
    for (int i = 0; i <= qkcli::kMaxSceneSources; ++i) {
        many += "  - {noise: -20}\n";
    }
    EXPECT_FALSE(read(many, scene, error));
    EXPECT_NE(error.find("more than 256 sources"), std::string::npos) << error;
    EXPECT_FALSE(qkcli::ReadSceneFile("/nonexistent-dir/x.yaml", scene, error));
    EXPECT_EQ(error, "/nonexistent-dir/x.yaml: can't be read");
    EXPECT_FALSE(read("", scene, error));
    EXPECT_EQ(error, "scene.yaml: empty scene");
}

Trajectory path(Interpolation how, bool loop) {
    Trajectory t;
    t.interpolation = how;
    t.loop = loop;
    const float xs[] = {0.0f, 2.0f, 2.0f, 0.0f};
    for (int i = 0; i < 4; ++i) {
        Keyframe k;
        k.time = i;
        k.pose.x = xs[i];
        k.pose.yaw = 90.0f * i;
        t.keys.push_back(k);
    }
    return t;
}

TEST(Trajectory, LinearSmoothAndLooping) {
    const Trajectory linear = path(Interpolation::Linear, false);
    EXPECT_NEAR(linear.At(0.25).x, 0.5f, kTight);
    EXPECT_NEAR(linear.At(0.25).yaw, 22.5f, kTight);
    EXPECT_NEAR(linear.At(1.5).x, 2.0f, kTight);
    EXPECT_NEAR(linear.At(-3.0).x, 0.0f, kTight);     // before the first key: the first pose
    EXPECT_NEAR(linear.At(9.0).yaw, 270.0f, kTight);  // after the last: the last

    // Through every key, and between them the Catmull-Rom value worked by hand. On [0, 1]
    // (p0 = 0, the first key repeated, p1 = 0, p2 = 2, p3 = 2) at u = 0.5:
    // 0.5 * (0 + 2 * 0.5 + 6 * 0.25 - 4 * 0.125) = 1. On [1, 2] (0, 2, 2, 0):
    // 0.5 * (4 + 2 * 0.5 - 2 * 0.25 + 0) = 2.25, above both keys.
    const Trajectory smooth = path(Interpolation::Smooth, false);
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(smooth.At(i).x, linear.At(i).x, kTight);
    }
    EXPECT_NEAR(smooth.At(0.5).x, 1.0f, kTight);
    EXPECT_NEAR(smooth.At(1.5).x, 2.25f, kTight);

    const Trajectory loop = path(Interpolation::Linear, true);
    EXPECT_NEAR(loop.At(3.25).x, linear.At(0.25).x, kTight);
    EXPECT_NEAR(loop.At(7.5).x, linear.At(1.5).x, kTight);
    EXPECT_NEAR(Trajectory{}.At(1.0).x, 0.0f, kTight);
}

TEST(Trajectory, HeadTurnsAsLookAtAndQuaternion) {
    float look[3];
    Pose pose;
    pose.x = 1.0f;
    pose.yaw = 90.0f;  // looks along -x
    qkcli::LookAtPoint(pose, look);
    EXPECT_NEAR(look[0], 0.0f, kTight);
    EXPECT_NEAR(look[1], 0.0f, kTight);
    pose.yaw = 0.0f;
    pose.pitch = 90.0f;
    qkcli::LookAtPoint(pose, look);
    EXPECT_NEAR(look[2], 1.0f, kTight);

    float yaw = 0, pitch = 0, roll = 0;
    const float h = std::sqrt(0.5f);
    qkcli::QuaternionToAngles(1, 0, 0, 0, yaw, pitch, roll);
    EXPECT_NEAR(yaw, 0.0f, kTight);
    qkcli::QuaternionToAngles(h, 0, 0, h, yaw, pitch, roll);  // 90 degrees about +z
    EXPECT_NEAR(yaw, 90.0f, 1e-3f);
    EXPECT_NEAR(pitch, 0.0f, 1e-3f);
    qkcli::QuaternionToAngles(0, 0, 0, 2, yaw, pitch, roll);  // not unit: normalised
    EXPECT_NEAR(std::fabs(yaw), 180.0f, 1e-3f);
    qkcli::QuaternionToAngles(h, h, 0, 0, yaw, pitch, roll);  // 90 degrees about +x: up
    EXPECT_NEAR(pitch, 90.0f, 1e-2f);
    qkcli::QuaternionToAngles(0, 0, 0, 0, yaw, pitch, roll);  // no rotation at all
    EXPECT_EQ(yaw, 0.0f);
}
}  // namespace
#endif
