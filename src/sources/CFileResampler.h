// The band-limited rate conversion a file source may use instead of the integer zero-stuffing
// of the source base: one libsamplerate converter for the source, kept across blocks, so that
// the joins between blocks are seamless. The source reads its file in chunks at the file's
// rate and pushes them in; each block pulls exactly one block at the engine's rate.
#pragma once

#include <vector>

typedef struct SRC_STATE_tag SRC_STATE;

class CFileResampler {
  public:
    CFileResampler() = default;
    ~CFileResampler();
    CFileResampler(const CFileResampler &) = delete;
    CFileResampler &operator=(const CFileResampler &) = delete;

    // Makes the converter for iChannels (1 or 2) from iInRate to iOutRate in Hz, for blocks of
    // up to iMaxBlock frames; nothing is kept from before. False when it can't be made.
    bool Start(int iChannels, int iInRate, int iOutRate, int iMaxBlock);
    // True when started for exactly these channels and rates.
    bool Matches(int iChannels, int iInRate, int iOutRate) const;
    void Stop();

    // Frames at the file's rate that make one block of iOutFrames (rounded up).
    int ChunkFor(int iOutFrames) const;
    // Converts iFrames planar frames (channel k at pfIn + k * iStride) onto the waiting output.
    void Push(const float *pfIn, int iFrames, int iStride);
    // Output frames waiting.
    int Available() const { return (m_iWritten - m_iRead) / m_iChannels; }
    // Takes iFrames waiting frames, planar (channel k at pfOut + k * iStride); fewer waiting
    // leaves the rest of the block as it was.
    void Pull(float *pfOut, int iFrames, int iStride);

  private:
    SRC_STATE *m_pState = nullptr;
    int m_iChannels = 1;
    int m_iInRate = 0;
    int m_iOutRate = 0;
    double m_dRatio = 1.0;     // output frames per input frame
    std::vector<float> m_in;   // one chunk, interleaved
    std::vector<float> m_out;  // waiting output, interleaved, from m_iRead to m_iWritten
    int m_iRead = 0;           // floats
    int m_iWritten = 0;        // floats
};
