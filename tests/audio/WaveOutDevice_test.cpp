#include "audio/WaveOutDevice.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <vector>

namespace {
using Clock = std::chrono::steady_clock;

struct DoneLog {
    std::mutex mutex;
    std::vector<int> indices;
    void operator()(int i) {
        std::lock_guard<std::mutex> guard(mutex);
        indices.push_back(i);
    }
    size_t count() {
        std::lock_guard<std::mutex> guard(mutex);
        return indices.size();
    }
};
}  // namespace

TEST(WaveOutDevice, DeviceNumbersMapToNames) {
    const char *old = std::getenv("QK_ALSA_DEVICE");
    const std::string saved = old != nullptr ? old : "";
    setenv("QK_ALSA_DEVICE", "virtual", 1);
    EXPECT_EQ(CWaveOutDevice::DeviceName(-1), "virtual");
    unsetenv("QK_ALSA_DEVICE");
    EXPECT_EQ(CWaveOutDevice::DeviceName(-1), "default");
    EXPECT_EQ(CWaveOutDevice::DeviceName(-2), "");
    EXPECT_EQ(CWaveOutDevice::Create(100000), nullptr);
    if (old != nullptr) {
        setenv("QK_ALSA_DEVICE", saved.c_str(), 1);
    }
}

TEST(WaveOutDevice, TheVirtualDeviceTakesBuffersInOrderAtTheRealTimeRate) {
    auto device = CWaveOutDevice::CreateByName("virtual");
    DoneLog log;
    ASSERT_EQ(device->Open(WaveOutFormat{2, 8000, 16}, std::ref(log)), 0);
    EXPECT_NE(device->Open(WaveOutFormat{2, 8000, 16}, std::ref(log)), 0);  // already open
    std::vector<uint8_t> tenth(800 * 4);  // 0.1 s at 8000 Hz, 16-bit stereo
    const auto start = Clock::now();
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(device->Write(tenth.data(), tenth.size(), i), 0);
    }
    while (log.count() < 4 && Clock::now() - start < std::chrono::seconds(5)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    EXPECT_GE(seconds, 0.39);
    EXPECT_LT(seconds, 1.5);
    EXPECT_EQ(log.indices, (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(device->Close(), 0);
    EXPECT_NE(device->Close(), 0);
    EXPECT_NE(device->Write(tenth.data(), tenth.size(), 9), 0);
}

TEST(WaveOutDevice, AResetReportsEveryQueuedBufferDoneAtOnce) {
    auto device = CWaveOutDevice::CreateByName("virtual");
    DoneLog log;
    ASSERT_EQ(device->Open(WaveOutFormat{1, 1000, 16}, std::ref(log)), 0);
    std::vector<uint8_t> second(2000);  // one second each
    for (int i = 0; i < 6; ++i) {
        device->Write(second.data(), second.size(), i);
    }
    const auto start = Clock::now();
    EXPECT_EQ(device->Reset(), 0);
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_EQ(log.count(), 6u);
    EXPECT_NE(
        CWaveOutDevice::CreateByName("virtual")->Open(WaveOutFormat{0, 1000, 16}, std::ref(log)),
        0);
}

TEST(WaveOutDevice, AnAlsaDeviceThatDoesNotExistFailsToOpen) {
    auto device = CWaveOutDevice::CreateByName("no_such_pcm_device");
    DoneLog log;
    EXPECT_NE(device->Open(WaveOutFormat{2, 44100, 16}, std::ref(log)), 0);
    EXPECT_FALSE(device->IsOpen());
}
