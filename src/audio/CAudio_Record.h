// Reads a wave input device through a ring of four buffers and hands out blocks of samples,
// waiting until the next buffer is full. The first four buffers are large (32768 frames);
// each is given back to the device at the size of the block asked for, so that after the
// first round the delay falls to four blocks. Used by the capture source.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio/WaveInDevice.h"
#include "platform/Event.h"
#include "platform/Thread.h"
#include "sources/WaveFile.h"

class CAudio_Record : public qk::CWinThread {
  public:
    // Device messages of the callback.
    static constexpr unsigned WIM_OPEN = 0x3BE;
    static constexpr unsigned WIM_CLOSE = 0x3BF;
    static constexpr unsigned WIM_DATA = 0x3C0;
    static constexpr int kBuffers = 4;
    static constexpr int kBufferFrames = 32768;
    // How long a buffer may be late before its block is given as silence, ms.
    static constexpr unsigned kStallMs = 2000;

    CAudio_Record();
    ~CAudio_Record() override;

    // The thread only exists: device events arrive on the device's own thread.
    bool InitInstance() override { return true; }

    // Opens device iDevice (-1 the default, see CWaveInDevice::Create) for PCM of iChannels,
    // iBits (8, 16, 24 or 32) and iSampleRate, and queues four buffers of 32768 frames; the
    // device starts with the first block asked for. The arguments in the middle have no
    // effect. Returns 1, or 0 with the failing step's name in strError ("waveInOpen",
    // "waveInPrepareHeader", "waveInAddBuffer"). A default device that doesn't open is tried
    // again once for each capture device there is, and the set-up goes on whatever the
    // outcome (then to fail at "waveInPrepareHeader").
    int InitializeSoundCapture(int iDevice, unsigned long, unsigned long, unsigned long, int, int,
                               int iChannels, int iBits, int iSampleRate, std::string &strError);
    // The next block of iLength frames (0: a whole buffer). iRaw 0: planar floats in the
    // integer scale into pOut, channel 1 at element iLength (8 or 16 bits, 1 or 2 channels);
    // otherwise the device's interleaved bytes. The first call of a run starts the device and
    // clears only iLength bytes of pOut. Later calls wait for the next buffer: a buffer late
    // by kStallMs gives a block of silence and one reported message, and while the device
    // stays silent each block waits no longer than it lasts, so play keeps real time. Does
    // nothing before InitializeSoundCapture, or for a block longer than a buffer.
    void GetNextSamplesSoundCapture(void *pOut, int iLength, int iRaw);
    // Stops and closes the device and frees the buffers. The events stay.
    void TerminateSoundCapture();

    // The device's callback: counts a full buffer and sets its event on WIM_DATA; any other
    // message is ignored. dwInstance is the object.
    static void waveInProc(void *hWaveIn, unsigned uMsg, uintptr_t dwInstance, uintptr_t,
                           uintptr_t);

    // Posts the quit message to the thread and waits for it to end.
    void EndThread();

    bool IsActive() const { return m_iActive == 1; }
    int GetBufferFrames() const { return m_iBufferFrames; }
    const WAVEFORMATEX &GetFormat() const { return m_wfx; }
    // Full buffers the device has reported since the start, less one.
    int GetDoneCount() const { return m_iDone; }

  private:
    struct Header {
        uint8_t *pData = nullptr;
        size_t iLength = 0;
        bool bPrepared = false;
    };
    int PrepareHeader(int i);
    void UnprepareHeader(int i);
    int AddBuffer(int i);
    // The wait for buffer i: its own length and kStallMs, or one block while the device is
    // silent.
    unsigned WaitMs(int i, int iLength) const;
    void Silence(void *pOut, int iLength, int iRaw) const;

    std::array<qk::CEvent, kBuffers> m_phEvents;  // one auto-reset event a buffer
    std::atomic<int> m_iDone{-1};
    WAVEFORMATEX m_wfx{};
    std::unique_ptr<CWaveInDevice> m_hWaveIn;
    int m_iBufferBytes = 0;
    std::array<Header, kBuffers> m_pHeaders{};
    std::vector<uint8_t> m_pbBuffers;
    int m_iBuffers = kBuffers;
    int m_iBufferFrames = 1024;
    int m_iRead = -1;  // blocks handed out, less one
    int m_iChannels = 2;
    int m_iSampleRate = 44100;
    int m_iBits = 16;
    int m_iActive = 0;
    bool m_bStalled = false;  // the last wait ran out
};
