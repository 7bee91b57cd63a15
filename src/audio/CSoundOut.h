// A small pull-driven wave output for applications, independent of the engine: the
// application gives a function that fills buffers, and the class plays them on a thread of
// its own, asking for the next buffer each time the device gives one back.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "audio/WaveOutDevice.h"
#include "platform/Thread.h"
#include "sources/WaveFile.h"

// A wave format and a buffer size.
class CSoundBase {
  public:
    CSoundBase();
    virtual ~CSoundBase() = default;

    // Each setter recomputes the format: block align = channels x (bits / 8), and average
    // bytes per second = (bits / 8) x rate. That average leaves the channel count out, as it
    // always has; nothing here reads it.
    void SetBitsPerSample(int iBits);
    int GetBitsPerSample() const { return m_wfx.wBitsPerSample; }
    void SetSamplesPerSecond(int iRate);
    int GetSamplesPerSecond() const { return static_cast<int>(m_wfx.nSamplesPerSec); }
    void SetNumberOfChannels(int iChannels);
    int GetNumberOfChannels() const { return m_wfx.nChannels; }
    // Frames a buffer.
    void SetBufferSize(int iFrames) { m_iBufferSize = iFrames; }
    int GetBufferSize() const { return m_iBufferSize; }
    WAVEFORMATEX *GetFormat() { return &m_wfx; }

  protected:
    WAVEFORMATEX m_wfx{};
    int m_iBufferSize = 65536;

  private:
    void Update();
};

// A block of memory: allocated (owned or not), or wrapping memory of someone else. A copy
// refers to the same memory; owned memory is freed when the last buffer referring to it goes.
class CSoundBuffer {
  public:
    CSoundBuffer(unsigned long ulSize, bool bOwned);
    CSoundBuffer(void *pData, unsigned long ulSize);
    virtual ~CSoundBuffer() = default;
    CSoundBuffer(const CSoundBuffer &) = default;
    CSoundBuffer &operator=(const CSoundBuffer &) = default;

    // Clears the bytes.
    void Erase();
    // Frees memory that a buffer allocated without owning it.
    static void Free(void *pData);

    void *data = nullptr;
    unsigned long size = 0;  // bytes
    bool owned = false;

  private:
    std::shared_ptr<uint8_t> m_keeper;  // the owned memory
};

class CSoundOut : public qk::CWinThread, public CSoundBase {
  public:
    // Fills the buffer (at most its size in bytes) and returns the bytes it filled; 0 ends
    // play.
    using GetDataFn = unsigned long (*)(CSoundBuffer *pBuffer, void *pUser);
    static constexpr unsigned MM_WOM_DONE = 0x3BD;

    // Starts the thread.
    CSoundOut();
    ~CSoundOut() override;

    // Opens device iDevice (-1 the default, see CWaveOutDevice::Create) in pFormat (when not
    // null) or the format set, and with iPrime 1 queues three buffers of GetBufferSize()
    // frames from the fill function. False, doing nothing, while playing or when the fill
    // function or the user pointer isn't set; false and a message when the device doesn't
    // open.
    virtual bool Start(int iDevice, int iPrime, const WAVEFORMATEX *pFormat);
    // Ends play: the device is reset, and closes once every buffer is back.
    virtual void Stop();

    // A buffer came back from the device (lParam: its header).
    void OnMM_WOM_DONE(unsigned int wParam, long lParam);
    // Queues the buffer's bytes (which must stay valid until they come back). Returns the
    // buffers queued before.
    int AddOutputBufferToQueue(CSoundBuffer *pBuffer);
    // Reports "WAVEOUT:<code in hex>:<text> <where>".
    static void waveOutErrorMsg(unsigned int uResult, const char *pcWhere);

    bool IsPlaying() const { return m_bPlaying; }
    bool IsDeviceOpen() const { return m_bDeviceOpen; }
    int GetQueued() const { return m_iQueued; }

    GetDataFn m_pfnGetData = nullptr;
    void *m_pUser = nullptr;

  protected:
    void OnThreadMessage(const qk::ThreadMessage &msg) override;

  private:
    struct Header {
        uint8_t *pData = nullptr;
        unsigned long ulLength = 0;    // bytes to play
        unsigned long ulCapacity = 0;  // bytes of the memory
        unsigned uFlags = 0;
    };
    void CloseDevice();
    // Queues iLength bytes of memory that holds iCapacity.
    int Queue(uint8_t *pbData, unsigned long ulLength, unsigned long ulCapacity);

    std::atomic<bool> m_bPlaying{false};
    std::atomic<bool> m_bDeviceOpen{false};
    std::unique_ptr<CWaveOutDevice> m_hWaveOut;
    std::atomic<int> m_iQueued{0};
    std::mutex m_csHeaders;
    std::map<int, std::unique_ptr<Header>> m_headers;  // queued buffers, by id
    int m_iNextHeader = 0;
};
