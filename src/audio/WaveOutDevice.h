// The wave output layer under the playback ring: a device that plays queued byte buffers
// gaplessly in order and tells, for each, when the device is done with it. Two kinds exist:
// ALSA PCM devices, and the built-in clocked "virtual" device that consumes buffers at the
// real-time rate of their format without any sound system.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "audio/BufferQueue.h"

struct WaveOutFormat {
    int iChannels = 0;
    int iSampleRate = 0;
    int iBits = 0;  // 8 (unsigned), 16, 24 or 32 (signed little-endian)
    int BlockAlign() const { return iBits / 8 * iChannels; }
};

class CWaveOutDevice {
  public:
    // Called on the device's own thread once the device is done with a buffer, with the
    // index it was queued with.
    using DoneFn = std::function<void(int iIndex)>;

    // A derived class closes the device in its own destructor, while its back end still
    // exists.
    virtual ~CWaveOutDevice();

    // The device for a device number: -1 the default (the ALSA PCM named by QK_ALSA_DEVICE,
    // else "default"), 0..n-1 the ALSA PCM devices in the order ALSA lists them. The name
    // "virtual" selects the clocked device. Null for a number with no device.
    static std::unique_ptr<CWaveOutDevice> Create(int iDevice);
    static std::unique_ptr<CWaveOutDevice> CreateByName(const std::string &strName);
    // The PCM name a device number stands for; empty when there is none.
    static std::string DeviceName(int iDevice);

    // 0 when the device is open for the format; non-zero otherwise.
    int Open(const WaveOutFormat &format, DoneFn onDone);
    // Queues a buffer; the bytes must stay valid until its DoneFn call. 0, or non-zero when
    // the device isn't open.
    int Write(const uint8_t *pbData, size_t iBytes, int iIndex);
    // Stops at once: every queued buffer is reported done. 0, or non-zero when not open.
    int Reset();
    // Resets and closes. 0, or non-zero when not open.
    int Close();
    bool IsOpen() const { return m_bOpen; }
    // Why the last Open failed, in words for the user; empty after a good open.
    const std::string &Error() const { return m_strError; }

  protected:
    CWaveOutDevice() = default;
    virtual int OpenBackend(const WaveOutFormat &format) = 0;
    // Plays one buffer; returns when the device has taken it. m_bStopping asks it to end soon.
    virtual void PlayBackend(const uint8_t *pbData, size_t iBytes) = 0;
    // Throws away what the device still holds.
    virtual void DropBackend() = 0;
    virtual void CloseBackend() = 0;

    WaveOutFormat m_format;
    std::atomic<bool> m_bStopping{false};
    std::string m_strError;  // set by OpenBackend when it fails

  private:
    qk::CBufferQueue<const uint8_t> m_queue;
    bool m_bOpen = false;
    DoneFn m_onDone;
};
