// An AC-3 (A/52) stream read from a file or from memory and decoded by liba52 on a reader
// thread of its own into a queue of blocks of 256 samples in up to six channels, arranged in
// the order of a chosen output layout. Frames whose CRC is wrong, or that the decoder
// refuses, give silence for their 1536 samples, so that the stream keeps its time.
#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class CAc3Stream {
  public:
    static constexpr int kBlockSamples = 256;
    static constexpr int kMaxChannels = 6;
    static constexpr int kBlocksPerFrame = 6;
    // The longest frame: 640 kbit/s at 32000 Hz.
    static constexpr int kMaxFrameBytes = 3840;
    // Bytes searched for the first frame before a stream is refused.
    static constexpr size_t kSearchLimit = 65536;
    using Block = double[kMaxChannels][kBlockSamples];

    struct Info {
        int iSampleRate = 0;
        int iBitRate = 0;     // bit/s
        int iStreamMode = 0;  // index of kAc3StreamModes
        int iChannels = 0;    // coded channels, the LFE included
    };

    CAc3Stream() = default;
    ~CAc3Stream();
    CAc3Stream(const CAc3Stream &) = delete;
    CAc3Stream &operator=(const CAc3Stream &) = delete;

    // Finds the first frame within kSearchLimit bytes and reads the stream's information.
    // False (and closed) when there is none.
    bool OpenFile(const std::string &strPath);
    // The same on bytes that must outlive the stream.
    bool OpenMemory(const uint8_t *pbData, size_t iSize);
    const Info &GetInfo() const { return m_info; }

    // Starts decoding into output layout iMode (an index of kAc3OutputModes; others give
    // 2/0) at dLevel (1.0: full scale is 1.0), with the stream's dynamic range compression or
    // without, the LFE channel at dLfeLevel, and with the level of a down-mix lowered so that
    // it can't clip when bNormalize. False when the stream isn't open.
    bool Start(int iMode, double dLevel, bool bDynamicRange, double dLfeLevel, bool bNormalize);
    // The next block: LayoutChannels(iMode) channels in the layout's order. Waits until the
    // reader has it; false at the end of the stream.
    bool Next(Block &block);
    // Ends the reader and closes the stream.
    void Close();

    // Channels of an output layout (1 to 6).
    static int LayoutChannels(int iMode);
    // Frames and rate of a whole stream, counted by walking its frames; false when no frame
    // is found.
    static bool Scan(const std::string &strPath, long &iFrames, int &iSampleRate);
    // True when the CRC of a whole frame (its second CRC word covers all of it) is right.
    static bool FrameCrcOk(const uint8_t *pbFrame, int iBytes);

  private:
    struct Slot {
        Block samples;
    };
    struct Input {
        int fd = -1;
        const uint8_t *pbData = nullptr;
        size_t iSize = 0;
        size_t iPos = 0;
        size_t Read(uint8_t *pbDest, size_t iBytes);
    };
    // Reads the next frame into pbFrame (kMaxFrameBytes): searches the sync word, at most
    // iSearch bytes; its length, or 0 at the end. m_window holds bytes read ahead.
    int ReadFrame(uint8_t *pbFrame, size_t iSearch);
    bool Begin();
    void Reader();
    void DecodeFrame(void *pState, uint8_t *pbFrame, int iBytes, std::vector<Slot> &out);
    // Waits for room, then appends; false when asked to stop.
    bool Push(const Block &block);

    Input m_input;
    std::vector<uint8_t> m_window;  // bytes read but not yet used
    size_t m_iWindowAt = 0;
    Info m_info;

    int m_iMode = 1;
    double m_dLevel = 1.0;
    bool m_bDynamicRange = true;
    double m_dLfeLevel = 1.0;
    bool m_bNormalize = false;

    static constexpr int kQueueBlocks = 4 * kBlocksPerFrame;
    std::vector<Slot> m_queue;  // a ring
    int m_iHead = 0;
    int m_iCount = 0;
    bool m_bEnded = false;
    bool m_bStop = false;
    std::mutex m_mutex;
    std::condition_variable m_frameReady;  // a block came, or the end
    std::condition_variable m_roomReady;   // a block was taken, or stop
    std::thread m_reader;
};
