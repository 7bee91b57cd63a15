// The wave input layer under capture: a device that fills queued byte buffers in order, once
// started, and tells for each when it is full. Two kinds exist: ALSA capture PCMs, and the
// built-in clocked "virtual" input, which fills each buffer with a test tone in the time the
// buffer lasts at its format's rate, without any sound system.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "audio/BufferQueue.h"
#include "audio/WaveOutDevice.h"

class CWaveInDevice {
  public:
    // Called on the device's own thread when buffer iIndex is full.
    using DoneFn = std::function<void(int iIndex)>;

    virtual ~CWaveInDevice();

    // The device for a device number: -1 the default (the ALSA PCM named by
    // QK_ALSA_CAPTURE_DEVICE, else "default"), 0..n-1 the ALSA capture PCMs in the order ALSA
    // lists them. The name "virtual" selects the clocked input; "virtual:S" is the same input
    // unplugged after S seconds of recording, for tests of a device that goes away. Null for
    // a number with no device.
    static std::unique_ptr<CWaveInDevice> Create(int iDevice);
    static std::unique_ptr<CWaveInDevice> CreateByName(const std::string &strName);
    static std::string DeviceName(int iDevice);
    // How many capture PCMs ALSA lists.
    static int DeviceCount();

    // 0 when the device is open for the format; non-zero otherwise. Nothing is filled until
    // Start.
    int Open(const WaveOutFormat &format, DoneFn onDone);
    // Queues a buffer to be filled; the bytes must stay valid until its DoneFn call, or
    // until Reset or Close. 0, or non-zero when the device isn't open.
    int AddBuffer(uint8_t *pbData, size_t iBytes, int iIndex);
    int Start();
    // Stops filling: every queued buffer is given back unfilled and without a DoneFn call.
    int Reset();
    // Resets and closes. 0, or non-zero when not open.
    int Close();
    bool IsOpen() const { return m_bOpen; }
    // True once the device has stopped delivering for good (it was unplugged, or its server
    // went away). Its buffers then stay queued.
    bool HasFailed() const { return m_bFailed; }

  protected:
    CWaveInDevice() = default;
    virtual int OpenBackend(const WaveOutFormat &format) = 0;
    virtual void StartBackend() {}
    // Fills a buffer; returns when it is full, when m_bStopping asks it to end, or when the
    // device fails (then with false).
    virtual bool FillBackend(uint8_t *pbData, size_t iBytes) = 0;
    virtual void CloseBackend() = 0;

    WaveOutFormat m_format;
    std::atomic<bool> m_bStopping{false};

  private:
    using Queue = qk::CBufferQueue<uint8_t>;
    void Fill(const Queue::Buffer &buffer);

    Queue m_queue;
    bool m_bStarted = false;  // guarded by the queue's lock
    bool m_bOpen = false;
    std::atomic<bool> m_bFailed{false};
    DoneFn m_onDone;
};

// The clocked input: a 1 kHz tone at half of full scale in every channel, phase-continuous
// from buffer to buffer, each buffer ready when its time has passed since the start.
class CVirtualWaveIn : public CWaveInDevice {
  public:
    static constexpr double kToneHz = 1000.0;
    // dLifeSeconds: recorded time after which the device fails as if unplugged; 0 for never.
    explicit CVirtualWaveIn(double dLifeSeconds = 0.0) : m_dLifeSeconds(dLifeSeconds) {}
    ~CVirtualWaveIn() override { Close(); }

  protected:
    int OpenBackend(const WaveOutFormat &format) override;
    void StartBackend() override;
    bool FillBackend(uint8_t *pbData, size_t iBytes) override;
    void CloseBackend() override {}

  private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point m_end;  // when the buffers filled so far have all been "recorded"
    double m_dPhase = 0.0;
    const double m_dLifeSeconds;
    double m_dRecorded = 0.0;  // seconds filled so far
};
