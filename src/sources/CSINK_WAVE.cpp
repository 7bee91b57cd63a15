#include "sources/CSINK_WAVE.h"

#include <cstdio>

#include "platform/Report.h"

QK_IMPLEMENT_SERIAL(CSINK_WAVE)

namespace {
constexpr const char *kCaption = "Quendarik";
}  // namespace

CSINK_WAVE::~CSINK_WAVE() {
    closeFile();
}

void CSINK_WAVE::Serialize(qk::CArchive &ar) {
    CSSS::Serialize(ar);
    if (ar.IsStoring()) {
        ar << 1.0f << m_strSinkFile << static_cast<int32_t>(m_iChannels)
           << static_cast<int32_t>(m_iBits) << static_cast<int32_t>(m_iSampleRate);
    } else {
        float version = 0.0f;
        int32_t channels = 0;
        int32_t bits = 0;
        int32_t rate = 0;
        ar >> version >> m_strSinkFile >> channels >> bits >> rate;
        m_iChannels = channels;
        m_iBits = bits;
        m_iSampleRate = rate;
    }
}

void CSINK_WAVE::closeFile() {
    const int bytesPerSample = m_wfx.wBitsPerSample / 8;
    const unsigned int samples = bytesPerSample > 0 ? m_nWritten / bytesPerSample : 0;
    WaveCloseWriteFile(&m_hmmio, &m_ckData, &m_ckRiff, &m_mmioinfo, samples);
    m_mmioinfo = MMIOINFO{};
}

int CSINK_WAVE::_init(int, int iChannels, int iBits, int iSampleRate) {
    m_iInitialized = 0;
    m_iFailed = 0;
    closeFile();
    if (iChannels < 1 || iChannels > kWaveMaxChannels || iBits < 1 || iBits > kWaveMaxBits ||
        iSampleRate < 1 || static_cast<uint32_t>(iSampleRate) > kWaveMaxSampleRate) {
        m_iFailed = 1;
        return -1;
    }
    m_wfx = PcmWaveFormat(iChannels, iSampleRate, iBits);
    MakeStr(m_strSinkFile);
    if (m_strSinkFile.empty()) {
        m_iFailed = 1;
        return -1;
    }
    if (WaveCreateFile(m_pcFileName.get(), &m_hmmio, &m_wfx, &m_ckData, &m_ckRiff) != 0) {
        m_iFailed = 1;
        return -1;
    }
    if (WaveStartDataWrite(&m_hmmio, &m_ckData, &m_mmioinfo) != 0) {
        closeFile();
        std::remove(m_pcFileName.get());
        m_iFailed = 1;
        return -1;
    }
    m_nWritten = 0;
    m_iInitialized = 1;
    return 0;
}

int CSINK_WAVE::_process(float *pfData, int iLength, int iChannels) {
    if (m_iInitialized == 0 || m_hmmio == nullptr) {
        return -1;
    }
    // The conversion reads the file's channel count of channels from the block.
    if (pfData == nullptr || iLength < 1 || iLength > m_iBufferLength ||
        iChannels < m_wfx.nChannels) {
        return -1;
    }
    const size_t bytes = static_cast<size_t>(m_wfx.nBlockAlign) * static_cast<size_t>(iLength);
    if (m_bytes.size() < bytes) {
        m_bytes.resize(bytes);
    }
    ConvertArrayOfDataToBytes(m_bytes.data(), pfData, iLength, &m_wfx);
    uint32_t written = 0;
    if (WaveWriteFile(m_hmmio, static_cast<uint32_t>(bytes), m_bytes.data(), &m_ckData, &written,
                      &m_mmioinfo) != 0) {
        qk::Report("Failure writing data to file", kCaption, qk::Severity::Error);
    }
    return 0;
}

int CSINK_WAVE::_quit() {
    m_iInitialized = 0;
    if (!m_strSinkFile.empty()) {
        closeFile();
    }
    return 0;
}
