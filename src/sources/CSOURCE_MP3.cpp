#include "sources/CSOURCE_MP3.h"

#include <samplerate.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/Paths.h"
#include "sources/CSOURCE_WAVE.h"

QK_IMPLEMENT_SERIAL(CSOURCE_MP3)

namespace {
// Frames decoded at a time for the converter.
constexpr int kChunkFrames = 4096;

void copyText(char *pcOut, const std::string &text, int iRoom) {
    if (pcOut == nullptr) {
        return;
    }
    const size_t count = std::min(text.size(), static_cast<size_t>(iRoom - 1));
    std::memcpy(pcOut, text.data(), count);
    pcOut[count] = '\0';
}
}  // namespace

void CSOURCE_MP3::ConverterDeleter::operator()(SRC_STATE *pState) const {
    src_delete(pState);
}

CSOURCE_MP3::CSOURCE_MP3() {
    m_iInitialized = 0;
    m_iStarted = 0;
}

CSOURCE_MP3::~CSOURCE_MP3() = default;

void CSOURCE_MP3::Serialize(qk::CArchive &ar) {
    CSOURCE_FILE::Serialize(ar);
    qk::SerializeVersion(ar);
}

void CSOURCE_MP3::ResetConverter() {
    if (m_pConverter != nullptr) {
        src_reset(m_pConverter.get());
    }
    m_iPendingAt = 0;
    m_iPendingFrames = 0;
}

int CSOURCE_MP3::_init(int, int) {
    m_iInitialized = 1;
    m_iLoop = 1;  // a file source always loops
    m_iStarted = 0;
    m_decoder.Close();
    m_pConverter.reset();
    m_iConverterRate = 0;
    ResetConverter();
    if (m_pfData.size() < 2 * m_iBufferLength) {
        m_pfData.AllocateZeroed(2 * m_iBufferLength);
    }
    if (m_strFile.empty()) {
        m_iStarted = 1;
        return 0;  // no file: silence
    }
    MakeStr(m_strFile);
    if (!m_decoder.OpenFile(m_pcFileName.get())) {
        Fail("not MPEG audio, or it can't be read");
        return -1;
    }
    m_iSource_Channels = m_decoder.Channels();
    m_iSource_Bits = 16;
    m_iSource_SampleRate = m_decoder.SampleRate();
    const long length = m_decoder.LengthFrames(false);
    m_iSource_Length = length < 0 ? 0 : static_cast<int>(std::min<long>(length, 0x7FFFFFFF));
    if (m_iOffset > 0 && !m_decoder.Seek(m_iOffset, SEEK_SET)) {
        Fail("can't skip the offset");
        m_decoder.Close();
        return -1;
    }
    const size_t frames = static_cast<size_t>(std::max(m_iBufferLength, kChunkFrames));
    m_pbInput.assign(frames * 2, 0);
    m_pbOutput.assign(static_cast<size_t>(m_iBufferLength) * 2, 0.0f);
    m_pending.assign(static_cast<size_t>(kChunkFrames) * 2, 0.0f);
    m_strReported.clear();
    m_iStarted = 1;
    return 0;
}

int CSOURCE_MP3::_process(int, int, int &) {
    return 0;
}

bool CSOURCE_MP3::Rewind() {
    return m_decoder.Seek(std::max(m_iOffset, 0), SEEK_SET);
}

int CSOURCE_MP3::DecodeLooping(int iFrames) {
    int done = 0;
    int emptyWraps = 0;
    const int channels = m_decoder.Channels();
    while (done < iFrames) {
        const int got =
            m_decoder.Read(m_pbInput.data() + static_cast<size_t>(done) * channels, iFrames - done);
        if (got > 0) {
            done += got;
            emptyWraps = 0;
            continue;
        }
        // The end of the file, or a fault that ends it: start again behind the offset. A
        // file with nothing to play there ends the block instead of looping for ever.
        if (++emptyWraps > 1 || !Rewind()) {
            break;
        }
    }
    return done;
}

bool CSOURCE_MP3::FillConverted(int iLength, int iSampleRate) {
    const int channels = m_decoder.Channels();
    const double ratio = static_cast<double>(iSampleRate) / m_decoder.SampleRate();
    if (src_is_valid_ratio(ratio) == 0) {
        return false;
    }
    if (m_pConverter == nullptr || m_iConverterRate != iSampleRate) {
        int error = 0;
        m_pConverter.reset(src_new(SRC_SINC_FASTEST, channels, &error));
        m_iConverterRate = iSampleRate;
        m_iPendingAt = 0;
        m_iPendingFrames = 0;
        if (m_pConverter == nullptr) {
            return false;
        }
    }
    int produced = 0;
    while (produced < iLength) {
        if (m_iPendingAt >= m_iPendingFrames) {
            m_iPendingFrames = DecodeLooping(kChunkFrames);
            m_iPendingAt = 0;
            if (m_iPendingFrames == 0) {
                break;
            }
            const size_t count = static_cast<size_t>(m_iPendingFrames) * channels;
            for (size_t i = 0; i < count; ++i) {
                m_pending[i] = m_pbInput[i];
            }
        }
        SRC_DATA data{};
        data.data_in = m_pending.data() + static_cast<size_t>(m_iPendingAt) * channels;
        data.input_frames = m_iPendingFrames - m_iPendingAt;
        data.data_out = m_pbOutput.data() + static_cast<size_t>(produced) * channels;
        data.output_frames = iLength - produced;
        data.src_ratio = ratio;
        data.end_of_input = 0;
        if (src_process(m_pConverter.get(), &data) != 0 ||
            (data.input_frames_used == 0 && data.output_frames_gen == 0)) {
            break;
        }
        m_iPendingAt += static_cast<int>(data.input_frames_used);
        produced += static_cast<int>(data.output_frames_gen);
    }
    // Planar, with silence for what the file couldn't give.
    for (int k = 0; k < channels; ++k) {
        float *out = m_pfData + k * iLength;
        for (int i = 0; i < produced; ++i) {
            out[i] = m_pbOutput[static_cast<size_t>(i) * channels + k];
        }
        std::fill(out + produced, out + iLength, 0.0f);
    }
    return true;
}

int CSOURCE_MP3::_process_1P(void *, int iLength, int, int, int iSampleRate) {
    if (m_iEnable == 0) {
        return 0;
    }
    if (TakeRequest() || m_iInitialized == 0 || (!m_decoder.IsOpen() && !m_strFile.empty())) {
        _init(iLength, iSampleRate);
    }
    if (!m_decoder.IsOpen() || iLength < 1 || iLength > m_iBufferLength || iSampleRate < 1) {
        return -1;
    }
    const int channels = m_decoder.Channels();
    if (m_decoder.SampleRate() == iSampleRate) {
        const int got = DecodeLooping(iLength);
        ct_ConvertBytesToArrayOfData2(reinterpret_cast<const unsigned char *>(m_pbInput.data()),
                                      m_pfData, got, iLength, static_cast<unsigned short>(channels),
                                      static_cast<unsigned long>(m_decoder.SampleRate()), 16);
        for (int k = 0; k < channels; ++k) {
            std::fill(m_pfData + k * iLength + got, m_pfData + (k + 1) * iLength, 0.0f);
        }
    } else if (!FillConverted(iLength, iSampleRate)) {
        std::memset(m_pfData.get(), 0, sizeof(float) * static_cast<size_t>(channels * iLength));
        return -1;
    }
    if (m_fGain_dB != 0.0f) {
        const float gain = std::pow(10.0f, m_fGain_dB / 20.0f);
        for (int i = 0; i < iLength * channels; ++i) {
            m_pfData[i] *= gain;
        }
    }
    return iLength;
}

int CSOURCE_MP3::_quit() {
    m_iInitialized = 0;
    m_iStarted = 0;
    m_pfData.Reset();
    m_decoder.Close();
    m_pConverter.reset();
    m_iConverterRate = 0;
    ResetConverter();
    return 0;
}

int CSOURCE_MP3::StepFordward(int iFrames) {
    if (!m_decoder.Seek(iFrames, SEEK_CUR)) {
        return 0;
    }
    ResetConverter();
    return 1;
}

int CSOURCE_MP3::StepBackwards(int iFrames) {
    return StepFordward(-iFrames);
}

int CSOURCE_MP3::CheckFileName(const std::string &strFileName) {
    CMp3Decoder decoder;
    if (!decoder.OpenFile(strFileName)) {
        return -1;
    }
    m_iSource_Channels = decoder.Channels();
    m_iSource_Bits = 16;
    m_iSource_SampleRate = decoder.SampleRate();
    const long length = decoder.LengthFrames(false);
    m_iSource_Length = length < 0 ? 0 : static_cast<int>(std::min<long>(length, 0x7FFFFFFF));
    return 0;
}

void CSOURCE_MP3::GetFileInfo(char *pcPath, char *pcTitle, int *piLength) {
    const std::string path = pcPath != nullptr && *pcPath != '\0' ? pcPath : m_strFile;
    CMp3Decoder decoder;
    std::string title;
    long ms = 0;
    if (decoder.OpenFile(path)) {
        const long frames = decoder.LengthFrames(true);
        title = decoder.Title();
        if (frames > 0) {
            ms = static_cast<long>(static_cast<long long>(frames) * 1000 / decoder.SampleRate());
        }
    }
    if (title.empty()) {
        title = qk::FileNamePart(path);
    }
    copyText(pcTitle, title, kInfoTextLength);
    if (piLength != nullptr) {
        *piLength = static_cast<int>(std::min<long>(ms, 0x7FFFFFFF));
    }
}

void CSOURCE_MP3::ct_ConvertBytesToArrayOfData(const unsigned char *pbIn, float *pfOut, int iFrames,
                                               int iStride, const WAVEFORMATEX *pFormat) {
    CSOURCE_WAVE::ConvertBytesToArrayOfData(pbIn, pfOut, iFrames, iStride, pFormat);
}

void CSOURCE_MP3::ct_ConvertBytesToArrayOfData2(const unsigned char *pbIn, float *pfOut,
                                                int iFrames, int iStride, unsigned short nChannels,
                                                unsigned long nSamplesPerSec,
                                                unsigned short wBitsPerSample) {
    WAVEFORMATEX format{};
    format.wFormatTag = WAVE_FORMAT_PCM;
    format.nChannels = nChannels;
    format.nSamplesPerSec = static_cast<uint32_t>(nSamplesPerSec);
    format.wBitsPerSample = wBitsPerSample;
    format.nBlockAlign = static_cast<uint16_t>(nChannels * wBitsPerSample / 8);
    format.nAvgBytesPerSec = format.nBlockAlign * format.nSamplesPerSec;
    ct_ConvertBytesToArrayOfData(pbIn, pfOut, iFrames, iStride, &format);
}
