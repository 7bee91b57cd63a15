#include "sources/CSOURCE_WAVE.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/Report.h"

QK_IMPLEMENT_SERIAL(CSOURCE_WAVE)

namespace {
// Source frames one block may ask for: a file at up to 16 times the engine's rate.
constexpr int kMaxRateRatio = 16;
}  // namespace

CSOURCE_WAVE::CSOURCE_WAVE() {
    m_iInitialized = 0;
    m_iStarted = 0;
}

CSOURCE_WAVE::~CSOURCE_WAVE() {
    WaveCloseReadFile(&m_hmmio, &m_pwfx);
}

void CSOURCE_WAVE::Serialize(qk::CArchive &ar) {
    CSOURCE_FILE::Serialize(ar);
    qk::SerializeVersion(ar);
}

uint32_t CSOURCE_WAVE::Read(uint8_t *pbDest, uint32_t iBytes) {
    uint32_t got = 0;
    if (m_hmmio == nullptr || iBytes == 0) {
        return 0;
    }
    WaveReadFile(m_hmmio, iBytes, pbDest, &m_ckData, &got);
    return got;
}

uint64_t CSOURCE_WAVE::ReadOffset(uint8_t *pbKeep, uint32_t iKeep) {
    if (m_iOffset <= 0 || m_pwfx == nullptr) {
        return 0;
    }
    // Read in pieces: an absurd offset costs reading, never a huge allocation. The first
    // iKeep bytes land in pbKeep, the rest are dropped.
    const uint64_t total =
        static_cast<uint64_t>(m_pwfx->nBlockAlign) * static_cast<uint64_t>(m_iOffset);
    uint64_t done = 0;
    uint8_t scratch[4096];
    while (done < total) {
        uint8_t *into = done < iKeep ? pbKeep + done : scratch;
        const uint64_t room = done < iKeep ? iKeep - done : sizeof scratch;
        const uint32_t piece = static_cast<uint32_t>(std::min(total - done, room));
        const uint32_t got = Read(into, piece);
        done += got;
        if (got != piece) {
            break;
        }
    }
    return done;
}

bool CSOURCE_WAVE::SkipOffset() {
    return m_pwfx == nullptr || m_iOffset <= 0 ||
           ReadOffset(nullptr, 0) ==
               static_cast<uint64_t>(m_pwfx->nBlockAlign) * static_cast<uint64_t>(m_iOffset);
}

int CSOURCE_WAVE::_init(int, int) {
    m_iInitialized = 1;
    m_iLoop = 1;  // a wave source always loops
    WaveCloseReadFile(&m_hmmio, &m_pwfx);
    m_resampler.Stop();  // a new file starts with a converter of its own
    if (m_strFile.empty() && m_pFileData == nullptr) {
        m_pfData.AllocateZeroed(2 * m_iBufferLength);
        m_iStarted = 1;
        return 0;  // no file: silence
    }
    if (m_pFileData != nullptr) {
        // A wave held in memory has no size to go with it here; it isn't played.
        Fail("CANNOT_CREATE_TEMP_WAVE_FILE");
        return -1;
    }
    MakeStr(m_strFile);
    if (WaveOpenFile(m_pcFileName.get(), &m_hmmio, &m_pwfx, &m_ckRiff) != 0) {
        Fail("PROBLEM_OPENING_WAVE_FILE");
        return -1;
    }
    m_iSource_Channels = m_pwfx->nChannels;
    m_iSource_Bits = m_pwfx->wBitsPerSample;
    m_iSource_SampleRate = static_cast<int>(m_pwfx->nSamplesPerSec);
    // The RIFF size over the frame size: a little more than the true frame count.
    m_iSource_Length =
        m_pwfx->nBlockAlign != 0 ? static_cast<int>(m_ckRiff.cksize / m_pwfx->nBlockAlign) : 0;
    if (WaveStartDataRead(&m_hmmio, &m_ckData, &m_ckRiff) != 0) {
        Fail("CANNOT_START_READ_FROM_WAVE_FILE");
        WaveCloseReadFile(&m_hmmio, &m_pwfx);
        return -1;
    }
    WarnIfCut();
    if (!SkipOffset()) {
        Fail("CANNOT_READ_FROM_WAVE_FILE");
        WaveCloseReadFile(&m_hmmio, &m_pwfx);
        return -1;
    }
    m_strReported.clear();
    m_pfData.AllocateZeroed(2 * m_iBufferLength);
    m_iStarted = 1;
    return 0;
}

void CSOURCE_WAVE::WarnIfCut() {
    const uint32_t declared = WaveDeclaredDataSize(m_hmmio, &m_ckData);
    // 0xFFFFFFFF is what writers of a stream put there when they can't know the size.
    if (declared <= m_ckData.cksize || declared == 0xFFFFFFFFu || m_strWarned == m_strFile) {
        return;
    }
    m_strWarned = m_strFile;
    const double rate = static_cast<double>(m_pwfx->nAvgBytesPerSec);
    char text[256];
    std::snprintf(text, sizeof text,
                  ": the file is cut short: its data chunk holds %u of the %u bytes its header "
                  "gives (%.0f of %.0f ms); what it holds plays.",
                  m_ckData.cksize, declared, rate > 0 ? 1000.0 * m_ckData.cksize / rate : 0.0,
                  rate > 0 ? 1000.0 * declared / rate : 0.0);
    qk::Report(m_strFile + text, "Quendarik", qk::Severity::Warning);
}

bool CSOURCE_WAVE::Reopen() {
    WaveCloseReadFile(&m_hmmio, &m_pwfx);
    if (WaveOpenFile(m_pcFileName.get(), &m_hmmio, &m_pwfx, &m_ckRiff) != 0) {
        return false;
    }
    if (WaveStartDataRead(&m_hmmio, &m_ckData, &m_ckRiff) != 0) {
        WaveCloseReadFile(&m_hmmio, &m_pwfx);
        return false;
    }
    return true;
}

// Fills the byte block, wrapping at the end of the file. Returns the bytes of the last read,
// which start at the returned position in m_bytes through `from`: only those frames are
// converted, so a block that wraps holds the fresh frames from the start of the file and the
// rest keeps the samples of the block before.
int CSOURCE_WAVE::ReadLooping(int iRead) {
    const uint32_t want = static_cast<uint32_t>(m_pwfx->nBlockAlign) * static_cast<uint32_t>(iRead);
    if (m_iExactEnd != 0) {
        ReadContinuous(iRead);  // the end of the file followed by its start, no gap
        return static_cast<int>(want);
    }
    const WAVEFORMATEX format = *m_pwfx;
    uint32_t pos = 0;
    uint32_t got = 0;
    uint32_t from = 0;
    int wrapsWithoutData = 0;
    while (pos < want) {
        from = pos;
        got = Read(m_bytes.data() + pos, want - pos);
        if (got < want - pos) {
            // The end of the file, also when it ends exactly on a block: start again at the
            // offset. A file with nothing to play after its offset ends the block instead.
            wrapsWithoutData = got > 0 ? 0 : wrapsWithoutData + 1;
            if (wrapsWithoutData > 1) {
                got = 0;
                break;
            }
            pos += got;
            if (!Reopen()) {
                got = 0;
                break;
            }
            // The offset's frames are read to the start of the block, as far as it holds
            // them, and the rest of the offset is skipped: the file goes on behind it.
            from = 0;
            got = static_cast<uint32_t>(std::min<uint64_t>(ReadOffset(m_bytes.data(), want), want));
        }
        pos += got;
    }
    ConvertBytesToArrayOfData(m_bytes.data() + from, m_pfData,
                              static_cast<int>(got / format.nBlockAlign), iRead, &format);
    return static_cast<int>(got);
}

int CSOURCE_WAVE::_process_1P(void *, int iLength, int, int, int iSampleRate) {
    if (m_iEnable == 0) {
        return 0;
    }
    const std::string request = GetFileRequest();
    if (m_iInitialized == 0 || m_strFile != request || m_pwfx == nullptr) {
        m_strFile = request;
        _init(iLength, iSampleRate);
    }
    if (m_pwfx == nullptr) {
        return -1;
    }
    if (m_iResampleQuality != 0 && m_iSource_SampleRate != iSampleRate && iSampleRate > 0 &&
        m_iStarted != 0) {
        return ProcessConverted(iLength, iSampleRate);
    }
    int iRead = iLength;
    if (m_iSource_SampleRate != iSampleRate && iSampleRate != 0) {
        iRead =
            static_cast<int>(static_cast<int64_t>(iLength) * m_iSource_SampleRate / iSampleRate);
    }
    if (iLength < 1 || iLength > m_iBufferLength || iRead < 1 || iRead > kMaxRateRatio * iLength) {
        return -1;
    }
    // Room for the block at its stride, and for what the rate change makes of it.
    const int factor = iRead / iLength;
    const int floats =
        std::max({2 * m_iBufferLength, m_iSource_Channels * iRead, iRead * std::max(factor, 1)});
    if (m_pfData.size() < floats) {
        m_pfData.AllocateZeroed(floats);
    }
    const size_t bytes = static_cast<size_t>(m_pwfx->nBlockAlign) * static_cast<size_t>(iRead);
    if (m_bytes.size() < bytes) {
        m_bytes.resize(bytes);
    }

    int got = 0;
    if (m_iStarted == 0) {
        std::memset(m_pfData.get(), 0,
                    sizeof(float) * static_cast<size_t>(iRead * m_iSource_Channels));
    } else {
        got = ReadLooping(iRead);
    }
    if (m_iSource_SampleRate != iSampleRate && got != 0) {
        m_resampleIn.assign(m_pfData.get(), m_pfData.get() + iRead);
        int outLength = iLength;
        Resample(m_resampleIn.data(), iRead, m_pfData, outLength);
        iRead = outLength;
    }
    ApplyGain(iRead);
    return iRead;
}

void CSOURCE_WAVE::ApplyGain(int iFrames) {
    if (m_fGain_dB != 0.0f) {
        const float gain = std::pow(10.0f, m_fGain_dB / 20.0f);
        const int count = std::min(iFrames * m_iSource_Channels, m_pfData.size());
        for (int i = 0; i < count; ++i) {
            m_pfData[i] *= gain;
        }
    }
}

void CSOURCE_WAVE::ReadContinuous(int iFrames) {
    const WAVEFORMATEX format = *m_pwfx;
    const uint32_t want =
        static_cast<uint32_t>(format.nBlockAlign) * static_cast<uint32_t>(iFrames);
    uint32_t pos = 0;
    int wrapsWithoutData = 0;
    while (pos < want) {
        const uint32_t got = Read(m_bytes.data() + pos, want - pos);
        pos += got;
        if (pos < want) {
            // The end of the file: on at the offset. A file with nothing to play after its
            // offset gives silence for the rest.
            wrapsWithoutData = got > 0 ? 0 : wrapsWithoutData + 1;
            if (wrapsWithoutData > 1 || !Reopen() || !SkipOffset()) {
                std::memset(m_bytes.data() + pos, format.wBitsPerSample == 8 ? 0x80 : 0,
                            want - pos);
                break;
            }
        }
    }
    ConvertBytesToArrayOfData(m_bytes.data(), m_pfData, iFrames, iFrames, &format);
}

int CSOURCE_WAVE::ProcessConverted(int iLength, int iSampleRate) {
    const int channels = m_iSource_Channels;
    if (iLength < 1 || iLength > m_iBufferLength ||
        (!m_resampler.Matches(channels, m_iSource_SampleRate, iSampleRate) &&
         !m_resampler.Start(channels, m_iSource_SampleRate, iSampleRate, m_iBufferLength))) {
        return -1;
    }
    const int chunk = m_resampler.ChunkFor(iLength);
    // Grown when the first block comes, never in the steady state.
    const int floats = std::max(2 * m_iBufferLength, channels * chunk);
    if (m_pfData.size() < floats) {
        m_pfData.AllocateZeroed(floats);
    }
    const size_t bytes = static_cast<size_t>(m_pwfx->nBlockAlign) * static_cast<size_t>(chunk);
    if (m_bytes.size() < bytes) {
        m_bytes.resize(bytes);
    }
    // The converter holds back a few frames at first; later one chunk a block, now and then
    // none or two.
    for (int round = 0; round < 8 && m_resampler.Available() < iLength; ++round) {
        ReadContinuous(chunk);
        m_resampler.Push(m_pfData, chunk, chunk);
    }
    m_resampler.Pull(m_pfData, iLength, iLength);
    ApplyGain(iLength);
    return iLength;
}

int CSOURCE_WAVE::_quit() {
    m_resampler.Stop();
    m_iInitialized = 0;
    m_iStarted = 0;
    m_pfData.Reset();
    WaveCloseReadFile(&m_hmmio, &m_pwfx);
    return 0;
}

int CSOURCE_WAVE::StepFordward(int iFrames) {
    if (m_hmmio == nullptr || m_pwfx == nullptr) {
        return 0;
    }
    return mmioSeek(m_hmmio, static_cast<long>(m_pwfx->nBlockAlign) * iFrames, SEEK_CUR) < 0 ? 0
                                                                                             : 1;
}

int CSOURCE_WAVE::StepBackwards(int iFrames) {
    if (m_hmmio == nullptr || m_pwfx == nullptr) {
        return 0;
    }
    return mmioSeek(m_hmmio, -static_cast<long>(m_pwfx->nBlockAlign) * iFrames, SEEK_CUR) < 0 ? 0
                                                                                              : 1;
}

int CSOURCE_WAVE::CheckFileName(const std::string &strFileName) {
    HMMIO hmmio = nullptr;
    WAVEFORMATEX *pwfx = nullptr;
    MMCKINFO riff{};
    if (WaveOpenFile(strFileName.c_str(), &hmmio, &pwfx, &riff) != 0) {
        return -1;
    }
    m_iSource_Channels = pwfx->nChannels;
    m_iSource_Bits = pwfx->wBitsPerSample;
    m_iSource_SampleRate = static_cast<int>(pwfx->nSamplesPerSec);
    m_iSource_Length =
        pwfx->nBlockAlign != 0 ? static_cast<int>(riff.cksize / pwfx->nBlockAlign) : 0;
    WaveCloseReadFile(&hmmio, &pwfx);
    return 0;
}

void CSOURCE_WAVE::ConvertBytesToArrayOfData(const unsigned char *pbIn, float *pfOut, int iFrames,
                                             int iStride, const WAVEFORMATEX *pFormat) {
    if (pbIn == nullptr || pfOut == nullptr || pFormat == nullptr || iFrames < 1) {
        return;
    }
    const int channels = pFormat->nChannels;
    const int bits = pFormat->wBitsPerSample;
    if ((bits != 8 && bits != 16) || (channels != 1 && channels != 2)) {
        return;
    }
    const int step = pFormat->nBlockAlign;
    for (int k = 0; k < channels; ++k) {
        float *out = pfOut + k * iStride;
        const unsigned char *in = pbIn + k * (bits / 8);
        for (int i = 0; i < iFrames; ++i, in += step) {
            out[i] = bits == 8 ? static_cast<float>(in[0])
                               : static_cast<float>(static_cast<int16_t>(in[0] | (in[1] << 8)));
        }
    }
}
