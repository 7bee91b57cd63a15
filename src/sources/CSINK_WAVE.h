// The recording sink: writes the blocks the engine renders into a RIFF WAVE file of PCM
// samples. The engine opens it with _init at the first block after recording is asked for,
// hands it every finished block with _process, and closes it with _quit.
#pragma once

#include <string>
#include <vector>

#include "core/CSSS.h"
#include "sources/WaveFile.h"

class CSINK_WAVE : public CSSS {
    QK_DECLARE_SERIAL(CSINK_WAVE)

  public:
    CSINK_WAVE() = default;
    // Closes a file still open, so that it is left complete.
    ~CSINK_WAVE() override;

    // After the base: version 1.0, m_strSinkFile, m_iChannels, m_iBits, m_iSampleRate.
    void Serialize(qk::CArchive &ar) override;

    using CSSS::_init;
    using CSSS::_process;

    // Opens m_strSinkFile for iChannels (1..kWaveMaxChannels) of iBits (1..kWaveMaxBits) at
    // iSampleRate Hz (1..kWaveMaxSampleRate); iUnused is the engine's block length. Only 8 or
    // 16 bits in 1 or 2 channels get samples; other formats get a header and silence. The
    // three fields m_iChannels, m_iBits, m_iSampleRate are left alone. 0, or -1 with
    // m_iFailed set when the name is empty, the format is out of range or the file can't be
    // made. A file still open from an earlier _init is closed first.
    virtual int _init(int iUnused, int iChannels, int iBits, int iSampleRate);

    // Appends one planar block of iLength frames (1..m_iBufferLength); pfData holds at least
    // the file's channel count of channels, iLength apart. -1 when no file is open or the block
    // can't be taken; a write that fails is reported and the block is lost, the file stays open.
    int _process(float *pfData, int iLength, int iChannels) override;

    // Closes the file when a name is set. "fact" gets m_nWritten / (bits / 8), which is 0:
    // readers go by the "data" chunk. Returns 0.
    int _quit() override;

    static void ConvertArrayOfDataToBytes(unsigned char *pbOut, float *pfIn, long iLength,
                                          WAVEFORMATEX *pFormat) {
        ::ConvertArrayOfDataToBytes(pbOut, pfIn, iLength, pFormat);
    }

    int m_iChannels = 1;  // stored with the sink; _init takes its own arguments
    int m_iBits = 16;
    int m_iSampleRate = 44100;
    std::string m_strSinkFile;  // file to write
    WAVEFORMATEX m_wfx{};       // format of the open file
    MMIOINFO m_mmioinfo{};      // the file's buffer, taken over between blocks
    // Bytes written as far as _quit is told. Blocks don't add to it, so "fact" holds 0.
    unsigned int m_nWritten = 0;
    HMMIO m_hmmio = nullptr;
    MMCKINFO m_ckData{};
    MMCKINFO m_ckRiff{};

  private:
    void closeFile();

    std::vector<unsigned char> m_bytes;  // one block of samples as stored; grows, never shrinks
};
