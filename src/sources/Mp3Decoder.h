// MPEG audio (layers 1 to 3) decoded by libmpg123 from a file or from bytes in memory, as
// interleaved 16-bit frames at the stream's own rate and channel count.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

struct mpg123_handle_struct;

class CMp3Decoder {
  public:
    CMp3Decoder() = default;
    ~CMp3Decoder();
    CMp3Decoder(const CMp3Decoder &) = delete;
    CMp3Decoder &operator=(const CMp3Decoder &) = delete;

    // Opens the stream and decodes its first frame as a test. False (and closed) when the
    // bytes are not MPEG audio that decodes: no file, no frame header, a format the library
    // can't give as 16-bit samples, or a first frame that yields nothing.
    bool OpenFile(const std::string &strPath);
    // The same on bytes that must outlive the decoder.
    bool OpenMemory(const uint8_t *pbData, size_t iSize);
    void Close();
    bool IsOpen() const { return m_pHandle != nullptr; }

    int Channels() const { return m_iChannels; }      // 1 or 2
    int SampleRate() const { return m_iSampleRate; }  // Hz
    // Frames in the stream: exact after a scan of the whole stream (bScan), else the
    // library's estimate. -1 when unknown.
    long LengthFrames(bool bScan);
    // The title of the ID3v2 tag, else of the ID3v1 tag, else empty. Read after a scan.
    std::string Title();

    // Decodes up to iFrames frames into pOut (iFrames x Channels() samples). Returns the
    // frames written; 0 at the end of the stream, after an error that ends it, or when the
    // format changes inside the stream (what follows is not the same stream).
    int Read(int16_t *pOut, int iFrames);
    // Moves to a frame, counted from the start (iWhence SEEK_SET) or from the present place
    // (SEEK_CUR). False when the stream can't go there.
    bool Seek(long iFrame, int iWhence);

    // True when the bytes start, behind an ID3v2 tag and at most kJunkLimit bytes of junk,
    // with an MPEG audio frame header that is followed by a second one of the same stream (or
    // by the end of the bytes). iTagEnd is where the bytes begin in the whole stream, whose
    // size is iTotal. Foreign files pass libmpg123's own search now and then, because it
    // takes any sync it finds far into the bytes.
    static bool LooksLikeMpegAudio(const uint8_t *pbData, size_t iSize, size_t iTagEnd,
                                   size_t iTotal);
    // The bytes of an ID3v2 tag that the header pbData (10 bytes) announces, 0 for none.
    static size_t Id3v2Size(const uint8_t *pbHeader, size_t iSize);
    static constexpr size_t kJunkLimit = 4096;

    // Where the bytes come from: a file descriptor, or memory.
    struct Input {
        int fd = -1;
        const uint8_t *pbData = nullptr;
        size_t iSize = 0;
        size_t iPos = 0;
    };

  private:
    bool Start();

    mpg123_handle_struct *m_pHandle = nullptr;
    Input m_input;
    int m_iChannels = 0;
    int m_iSampleRate = 0;
};
