// The OSC remote control, sent real UDP packets on loopback.
#ifdef QK_TEST_LIVE
#include <gtest/gtest.h>

#include <lo/lo.h>

#include <chrono>
#include <cmath>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "osc_server.h"
#include "scene_controls.h"
#include "scene_file.h"

namespace {
using namespace std::chrono_literals;

struct Fixture {
    Fixture() : controls(2) {
        scene.listener.x = 1.0f;
        scene.listener.z = 1.5f;
        scene.sources.resize(2);
        scene.sources[0].kind = qkcli::SourceKind::File;
        server = std::make_unique<qkcli::OscServer>(controls, scene, [this](const std::string &l) {
            std::lock_guard<std::mutex> lock(mutex);
            reports.push_back(l);
        });
    }
    std::vector<std::string> Reports() {
        std::lock_guard<std::mutex> lock(mutex);
        return reports;
    }
    // Waits until the server has taken `count` messages in all, or a second has passed.
    bool WaitTaken(long count) {
        for (int i = 0; i < 200 && server->Taken() < count; ++i) {
            std::this_thread::sleep_for(5ms);
        }
        return server->Taken() >= count;
    }
    qkcli::SceneFile scene;
    qkcli::SceneControls controls;
    std::unique_ptr<qkcli::OscServer> server;
    std::mutex mutex;
    std::vector<std::string> reports;
};

TEST(OscServer, MovesTurnsAndSettingsReachTheControls) {
    Fixture f;
    std::string error;
    ASSERT_TRUE(f.server->Start(0, true, error)) << error;
    lo_address to = lo_address_new("127.0.0.1", std::to_string(f.server->Port()).c_str());
    lo_send(to, "/source/2/position", "fff", 1.0f, 2.0f, 3.0f);
    lo_send(to, "/source/2/gain", "i", -12);
    lo_send(to, "/source/1/mute", "d", 1.0);
    lo_send(to, "/scene/order", "i", 3);
    lo_send(to, "/listener/quaternion", "ffff", 0.0f, 0.0f, 0.0f, 1.0f);  // turned round
    ASSERT_TRUE(f.WaitTaken(5));
    uint32_t seen = 0;
    float place[3];
    ASSERT_TRUE(f.controls.sources[1].position.ReadNew(seen, place));
    EXPECT_EQ(place[2], 3.0f);
    EXPECT_FALSE(f.controls.sources[1].position.ReadNew(seen, place));  // taken once
    EXPECT_EQ(f.controls.sources[1].gain.load(), -12.0f);
    EXPECT_EQ(f.controls.sources[0].mute.load(), 1);
    EXPECT_EQ(f.controls.order.load(), 3);
    // A quaternion turns the head and keeps the listener where the scene put it.
    float pose[6];
    uint32_t seenListener = 0;
    ASSERT_TRUE(f.controls.listener.ReadNew(seenListener, pose));
    EXPECT_EQ(pose[0], 1.0f);
    EXPECT_EQ(pose[2], 1.5f);
    EXPECT_NEAR(std::fabs(pose[3]), 180.0f, 1e-3f);
    lo_send(to, "/listener/pose", "ffffff", 0.5f, 0.0f, 1.2f, 45.0f, 0.0f, 0.0f);
    ASSERT_TRUE(f.WaitTaken(6));
    ASSERT_TRUE(f.controls.listener.ReadNew(seenListener, pose));
    EXPECT_EQ(pose[3], 45.0f);
    EXPECT_TRUE(f.Reports().empty());
    lo_address_free(to);
}

TEST(OscServer, WrongMessagesAreReportedOncePerAddressAndIgnored) {
    Fixture f;
    std::string error;
    // Read by polling, as the JACK client's render thread reads them.
    ASSERT_TRUE(f.server->Start(0, false, error)) << error;
    lo_address to = lo_address_new("127.0.0.1", std::to_string(f.server->Port()).c_str());
    for (int i = 0; i < 3; ++i) {
        lo_send(to, "/nowhere", "i", 1);
        lo_send(to, "/source/3/position", "fff", 0.0f, 0.0f, 0.0f);  // two sources only
        lo_send(to, "/source/2/position", "ff", 0.0f, 0.0f);         // one number short
        lo_send(to, "/source/1/gain", "f", -6.0f);                   // a file source
        lo_send(to, "/source/2/mute", "s", "yes");
        lo_send(to, "/scene/order", "f", 2.5f);
        lo_send(to, "/listener/pose", "ffffff", 1e9f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f);
    }
    lo_send(to, "/source/2/gain", "f", -3.0f);  // a good one behind them all
    for (int i = 0; i < 200 && f.server->Taken() < 1; ++i) {
        f.server->Poll();
        std::this_thread::sleep_for(5ms);
    }
    ASSERT_EQ(f.server->Taken(), 1);
    const std::vector<std::string> reports = f.Reports();
    ASSERT_EQ(reports.size(), 7u);
    EXPECT_EQ(reports[0], "OSC /nowhere: unknown address (ignored)");
    EXPECT_NE(reports[1].find("no source 3"), std::string::npos) << reports[1];
    EXPECT_NE(reports[3].find("file's level"), std::string::npos) << reports[3];
    EXPECT_EQ(f.controls.sources[1].gain.load(), -3.0f);
    uint32_t seen = 0;
    float place[3];
    EXPECT_FALSE(f.controls.sources[1].position.ReadNew(seen, place));
    EXPECT_EQ(f.controls.order.load(), -1);
    lo_address_free(to);
}

TEST(OscServer, APortInUseIsRefused) {
    Fixture a;
    Fixture b;
    std::string error;
    ASSERT_TRUE(a.server->Start(0, false, error)) << error;
    EXPECT_FALSE(b.server->Start(a.server->Port(), false, error));
    EXPECT_NE(error.find(std::to_string(a.server->Port())), std::string::npos) << error;
}
}  // namespace
#endif
