// A file source for MPEG audio (MP3, and layers 1 and 2). The file is decoded by libmpg123
// block by block into the planar integer scale of the source base (16-bit: -32768..32767),
// in the file's one or two channels. It loops at the end of the file, skipping the "Offset"
// frames at the start and at each wrap, and a file at another rate than the engine's is
// converted by libsamplerate with a state kept from block to block, so that blocks join
// without a seam.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sources/CSOURCE_FILE.h"
#include "sources/Mp3Decoder.h"
#include "sources/WaveFile.h"

typedef struct SRC_STATE_tag SRC_STATE;

class CSOURCE_MP3 : public CSOURCE_FILE {
    QK_DECLARE_SERIAL(CSOURCE_MP3)

  public:
    CSOURCE_MP3();
    ~CSOURCE_MP3() override;

    void Serialize(qk::CArchive &ar) override;

    // Opens m_strFile, skips m_iOffset frames and makes the buffers. 0, or -1 when the file
    // doesn't open as MPEG audio (reported once for each file name). With no file name the
    // source runs silent.
    int _init(int iBlockLength, int iSampleRate) override;
    // Unused by the engine; returns 0.
    int _process(int iLength, int iChannels, int &iResult) override;
    // The next iLength frames at iSampleRate, planar with a stride of iLength, in the file's
    // channels. Returns iLength, 0 when disabled (the file position stands still), -1 when no
    // file is open or the block can't be made (longer than m_iBufferLength, or a rate the
    // converter can't reach).
    int _process_1P(void *pData, int iLength, int iBits, int iChannels, int iSampleRate) override;
    int _quit() override;
    // Moves the decoding position by iFrames of the file; 1 when done, 0 when not.
    int StepFordward(int iFrames) override;
    int StepBackwards(int iFrames) override;
    // 0 when the file decodes as MPEG audio (its format is then taken), -1 when not.
    int CheckFileName(const std::string &strFileName) override;
    // For pcPath empty or null the file in use, else the file named: its title (from the ID3
    // tag, else the file name behind the last separator) into pcTitle, at most
    // kInfoTextLength - 1 bytes and a closing zero, and its length in ms into piLength (0
    // when it can't be read). Either output may be null.
    void GetFileInfo(char *pcPath, char *pcTitle, int *piLength) override;

    // Interleaved PCM bytes to planar floats, as the wave source converts them.
    static void ct_ConvertBytesToArrayOfData(const unsigned char *pbIn, float *pfOut, int iFrames,
                                             int iStride, const WAVEFORMATEX *pFormat);
    static void ct_ConvertBytesToArrayOfData2(const unsigned char *pbIn, float *pfOut, int iFrames,
                                              int iStride, unsigned short nChannels,
                                              unsigned long nSamplesPerSec,
                                              unsigned short wBitsPerSample);

    // Room a title is given in GetFileInfo, with its closing zero.
    static constexpr int kInfoTextLength = 260;

    // Two words kept free in the object, as they have always been.
    int m_iReserved1 = 0;
    int m_iReserved2 = 0;

  private:
    // Decodes iFrames frames into m_pbInput, starting again behind the offset at the end of
    // the file. Fewer come back only when the file has nothing to play.
    int DecodeLooping(int iFrames);
    bool Rewind();
    // Fills iLength frames at the engine's rate through the converter; false when the rate
    // can't be reached.
    bool FillConverted(int iLength, int iSampleRate);
    void ResetConverter();

    std::vector<int16_t> m_pbInput;  // decoded frames, interleaved
    std::vector<float> m_pbOutput;   // converted frames, interleaved
    CMp3Decoder m_decoder;

    struct ConverterDeleter {
        void operator()(SRC_STATE *pState) const;
    };
    std::unique_ptr<SRC_STATE, ConverterDeleter> m_pConverter;
    int m_iConverterRate = 0;      // the engine rate the converter was made for
    std::vector<float> m_pending;  // decoded frames, interleaved floats, not yet converted
    int m_iPendingAt = 0;
    int m_iPendingFrames = 0;
};
