// Plays the engine's blocks on a wave output device through a ring of six buffers. Each
// buffer has an event that is set while the buffer is free; the engine waits for the next
// buffer's event, which is the back-pressure that paces it to real time.
#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "audio/WaveOutDevice.h"
#include "platform/Event.h"
#include "platform/Relaxed.h"
#include "sources/WaveFile.h"

class CAudio_Playback {
  public:
    static constexpr int kBuffers = 6;
    static constexpr int kBufferSamples = 32768;  // largest block in frames
    static constexpr unsigned kWaitMs = 5000;     // longest wait for a free buffer
    // While a device stays unopened, the next try comes this much later at the soonest, so
    // that a device plugged in later is found without a try at every block.
    static constexpr uint32_t kRetryMs = 2000;

    CAudio_Playback();
    ~CAudio_Playback();
    CAudio_Playback(const CAudio_Playback &) = delete;
    CAudio_Playback &operator=(const CAudio_Playback &) = delete;

    // Plays one block of iLength frames. iRaw 0: pData is planar floats in the engine's
    // integer scale (channel 1 at element iLength); otherwise interleaved bytes already in the
    // device's format. The first block, and any block with another device or format, opens
    // the device. Returns 0, or -1 when no buffer came free within kWaitMs (the block is
    // dropped) or the block can't be played at all. A device that doesn't open is reported
    // once through the message function (and once more when it opens later); while none is
    // open the block is dropped at once, and the open is tried again every kRetryMs.
    int _process(int iDevice, int iChannels, int iBits, int iSampleRate, const void *pData,
                 int iLength, int iRaw);

    // Closes the device: every buffer is free again. -1 when none is open.
    int _quit();

    int GetDevice() const { return m_iDevice; }
    const WAVEFORMATEX &GetFormat() const { return m_wfx; }
    bool IsOpen() const { return m_hWaveOut != nullptr; }
    // How often a device has been opened (a diagnostic count).
    int GetOpenCount() const { return m_iOpens; }
    // The buffer the last block went to, -1 before the first.
    int GetCurrent() const { return m_iCurrent; }

  private:
    struct Header {
        const uint8_t *pData = nullptr;
        size_t iLength = 0;
        unsigned uFlags = 0;  // kDone once the device has finished with the buffer
        int iUser = 0;        // the buffer's index
    };
    static constexpr unsigned kDone = 1;

    int _init(int iDevice, int iChannels, int iBits, int iSampleRate);
    // Opens for a new device or format at once; the same one that failed before only when
    // kRetryMs have passed since the last try.
    void OpenIfDue(int iDevice, int iChannels, int iBits, int iSampleRate);
    // The device finished buffer iIndex: it is cleared (so a buffer played twice by accident
    // is silence) and its event set.
    void OnBufferDone(int iIndex);

    int m_iDevice = -1;
    std::mutex m_csLock;  // guards open, close and completion
    WAVEFORMATEX m_wfx{};
    int m_iResult = 0;
    std::unique_ptr<CWaveOutDevice> m_hWaveOut;
    std::array<Header, kBuffers> m_pHeaders{};
    std::vector<uint8_t> m_pbRing;
    std::vector<uint8_t> m_pbConvert;
    int m_iBuffers = kBuffers;
    int m_iBufferSamples = kBufferSamples;
    std::array<qk::CEvent, kBuffers> m_phEvents;
    int m_iCurrent = -1;
    int m_iOpens = 0;
    uint32_t m_uLastTry = 0;        // tick of the last failed open
    std::string m_strReportedName;  // the device whose failure was reported; empty: none
    // Frames of the block last given to _process; the device thread's completion clears as
    // many bytes of the finished buffer.
    qk::Relaxed<int> m_iBlockLength = 0;
};
