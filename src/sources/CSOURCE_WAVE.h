// Streams a RIFF WAVE file (PCM of 8 or 16 bits, one or two channels) block by block into its
// sample buffer, looping at the end of the file. The samples keep the integer scale of the
// file: 16-bit gives -32768..32767, 8-bit the unsigned bytes 0..255 (silence at 128). A file
// whose data chunk is shorter than its header says is played as far as it goes, with one
// warning.
#pragma once

#include <vector>

#include "sources/CFileResampler.h"
#include "sources/CSOURCE_FILE.h"
#include "sources/WaveFile.h"

class CSOURCE_WAVE : public CSOURCE_FILE {
    QK_DECLARE_SERIAL(CSOURCE_WAVE)

  public:
    CSOURCE_WAVE();
    ~CSOURCE_WAVE() override;

    void Serialize(qk::CArchive &ar) override;

    // Opens m_strFile, skips m_iOffset frames and makes the buffer. 0, or -1 when the file
    // can't be opened or read (reported once for each file name).
    int _init(int iBlockLength, int iSampleRate) override;
    // Reads the next block: iLength frames at iSampleRate, or as many source frames as cover
    // that time at the file's rate (iLength * file rate / iSampleRate, whole frames), wrapping
    // to the start (and the offset) at the end of the file. Returns the frames in m_pfData,
    // 0 when disabled (the file position stands still), -1 when no file is open.
    int _process_1P(void *pData, int iLength, int iBits, int iChannels, int iSampleRate) override;
    int _quit() override;
    // Moves the read position by iFrames; 1 when done, 0 when not.
    int StepFordward(int iFrames) override;
    int StepBackwards(int iFrames) override;
    // 0 when the file opens as a wave file (its format is then taken), -1 when not.
    int CheckFileName(const std::string &strFileName) override;

    // Interleaved PCM bytes (8 or 16 bits, 1 or 2 channels) to planar floats in the integer
    // scale, the second channel at pfOut[iStride]. Other formats leave pfOut alone.
    static void ConvertBytesToArrayOfData(const unsigned char *pbIn, float *pfOut, int iFrames,
                                          int iStride, const WAVEFORMATEX *pFormat);

  private:
    // Warns once for each file name when the data chunk holds fewer bytes than the header
    // gives (a file cut short): the source plays what is there.
    void WarnIfCut();
    // Closes the file and opens it again at the start of its data; false when that fails.
    bool Reopen();
    // Reads the offset's bytes in pieces, the first iKeep of them to pbKeep; the bytes read.
    uint64_t ReadOffset(uint8_t *pbKeep, uint32_t iKeep);
    // Reads and discards the offset's bytes; false when fewer came.
    bool SkipOffset();
    // Reads up to iBytes from the data chunk; the count read.
    uint32_t Read(uint8_t *pbDest, uint32_t iBytes);
    int ReadLooping(int iRead);
    // Fills iFrames frames, planar at a stride of iFrames, with the file's next frames in
    // order, going on at the offset after the end: the reading for the band-limited
    // conversion, which wants the file as it is.
    void ReadContinuous(int iFrames);
    // A block through the converter: exactly iLength frames at iSampleRate.
    int ProcessConverted(int iLength, int iSampleRate);
    void ApplyGain(int iFrames);

    HMMIO m_hmmio = nullptr;
    WAVEFORMATEX *m_pwfx = nullptr;  // owned by the wave file layer
    MMCKINFO m_ckRiff{};
    MMCKINFO m_ckData{};           // its size counts down as data is read
    std::vector<uint8_t> m_bytes;  // one block of file bytes; grows, never per block
    std::vector<float> m_resampleIn;
    CFileResampler m_resampler;
    std::string m_strWarned;  // the file last warned of as cut short
};
