// A file source for AC-3 (A/52) streams. A reader thread decodes the file into frames of 256
// samples in up to six channels (see CAc3Stream), which this source gathers into the
// engine's blocks: it takes as many frames as cover the block, and what a frame holds past
// the block's end waits in a spill buffer to open the next block. The output layout, sample
// format and levels come from ac3.ini (see CAc3Settings), read at each _init.
//
// Two things are as they have always been and must stay: the channel stride of m_pfData is
// 256 x m_iFramesPerBlock, not the block length (the two agree when the block length is a
// multiple of 256); and the stream plays at its own rate, with no conversion to the engine's.
// The stream doesn't loop: at its end the rest of each block keeps its old samples (silence
// instead when the engine asks for exact ends, m_iExactEnd).
#pragma once

#include <string>
#include <vector>

#include "sources/Ac3Settings.h"
#include "sources/Ac3Stream.h"
#include "sources/CSOURCE_FILE.h"

// The wanted speaker layout: an index of kAc3OutputModes and its channel count.
struct AC3Speakers {
    explicit AC3Speakers(int iChannels = 2);
    static AC3Speakers FromMode(int iMode);
    int iMode = 1;
    int iChannels = 2;
};

class CSOURCE_AC3 : public CSOURCE_FILE {
    QK_DECLARE_SERIAL(CSOURCE_AC3)

  public:
    // Output sample formats, by number: name, full-scale factor and m_iSource_Bits.
    struct Format {
        int iNumber;
        const char *pcName;
        double dScale;
        int iBits;
    };
    static const Format kFormats[4];

    CSOURCE_AC3();
    ~CSOURCE_AC3() override;

    void Serialize(qk::CArchive &ar) override;

    // Reads ac3.ini, opens m_strFile (when set) and starts its reader. 0, or -1 when the file
    // has no AC-3 frame (reported once for each file name). Also without a file:
    // m_iSource_Channels is the layout's count and m_pfData is made and zeroed.
    int _init(int iBlockLength, int iSampleRate) override;
    // Gathers the block; returns iLength, 0 when disabled, -1 for a block longer than
    // m_iBufferLength.
    int _process_1P(void *pData, int iLength, int iBits, int iChannels, int iSampleRate) override;
    int _quit() override;
    // Stepping isn't offered: 0.
    int StepFordward(int iFrames) override;
    int StepBackwards(int iFrames) override;
    // Accepts any name: 0.
    int CheckFileName(const std::string &strFileName) override;
    // For pcPath empty or null the file in use, else the file named: its name behind the last
    // separator into pcTitle (at most kInfoTextLength - 1 bytes and a zero) and its length in
    // ms into piLength (0 when it has no frame). Either output may be null.
    void GetFileInfo(char *pcPath, char *pcTitle, int *piLength) override;

    // Writes one frame in the output format into pbOut (interleaved) and each sample as a
    // float to its place in m_pfData, or, past iLength, to the spill buffer.
    void fill_buf(unsigned char *pbOut, double const (*pFrame)[6][256], AC3Speakers speakers,
                  int iLength);

    static constexpr int kInfoTextLength = 260;

    std::vector<float> m_pfSpill;  // 6 x 256: samples of the last frame past the block
    int m_iSpillCount = 0;         // samples waiting in each channel
    int m_iFrames = 0;             // frames written into the present block
    int m_iFramesPerBlock = 0;
    AC3Speakers m_speakers{2};
    int m_iFormat = 0;
    std::vector<unsigned char> m_pbFrame;  // m_iBufferLength x 48 bytes
    double m_dScale = 32767.0;

  private:
    // Zeroes samples iFrom to iLength - 1 of every channel of the block: what an ended stream
    // left unfilled, when ends are exact.
    void SilenceFrom(int iFrom, int iLength);

    CAc3Stream m_stream;
    CAc3Settings m_settings;
    int m_iSpillStart = 0;  // spilled samples that open the present block
};
