#include "audio/CAudio_Playback.h"

#include <cstring>

#include "platform/Clock.h"
#include "platform/Report.h"

CAudio_Playback::CAudio_Playback()
    : m_phEvents{qk::CEvent(true, true), qk::CEvent(true, true), qk::CEvent(true, true),
                 qk::CEvent(true, true), qk::CEvent(true, true), qk::CEvent(true, true)} {}

CAudio_Playback::~CAudio_Playback() {
    _quit();
}

int CAudio_Playback::_init(int iDevice, int iChannels, int iBits, int iSampleRate) {
    m_iDevice = iDevice;
    m_wfx = PcmWaveFormat(iChannels, iSampleRate, iBits);
    m_iCurrent = -1;

    const std::string name = CWaveOutDevice::DeviceName(iDevice);
    m_hWaveOut = name.empty() ? nullptr : CWaveOutDevice::CreateByName(name);
    const WaveOutFormat format{iChannels, iSampleRate, iBits};
    if (m_hWaveOut == nullptr ||
        m_hWaveOut->Open(format, [this](int iIndex) { OnBufferDone(iIndex); }) != 0) {
        const std::string shown = name.empty() ? "number " + std::to_string(iDevice) : name;
        if (m_strReportedName != shown) {
            m_strReportedName = shown;
            const std::string reason =
                m_hWaveOut == nullptr ? "there is no such device" : m_hWaveOut->Error();
            qk::Report("the audio device " + shown + " could not be opened: " + reason, "Quendarik",
                       qk::Severity::Warning);
        }
        m_hWaveOut.reset();
        m_iResult = -1;
        m_uLastTry = qk::GetTickCount();
        return -1;
    }
    if (!m_strReportedName.empty()) {
        m_strReportedName.clear();
        qk::Report("the audio device " + name + " is open", "Quendarik", qk::Severity::Info);
    }
    ++m_iOpens;
    const size_t align = m_wfx.nBlockAlign;
    m_pbRing.assign(static_cast<size_t>(kBuffers) * kBufferSamples * align, 0);
    m_pbConvert.assign(static_cast<size_t>(kBufferSamples) * align, 0);
    return 0;
}

int CAudio_Playback::_quit() {
    if (m_hWaveOut == nullptr) {
        return -1;
    }
    m_iResult = m_hWaveOut->Reset();
    {
        std::lock_guard<std::mutex> guard(m_csLock);
        for (int i = 0; i < kBuffers; ++i) {
            m_phEvents[static_cast<size_t>(i)].SetEvent();
            m_pHeaders[static_cast<size_t>(i)] = Header{};
        }
    }
    m_iResult = m_hWaveOut->Close();
    m_hWaveOut.reset();
    return 0;
}

void CAudio_Playback::OnBufferDone(int iIndex) {
    std::lock_guard<std::mutex> guard(m_csLock);
    if (iIndex < 0 || iIndex >= kBuffers) {
        return;
    }
    Header &header = m_pHeaders[static_cast<size_t>(iIndex)];
    header.uFlags |= kDone;
    const size_t bytes = static_cast<size_t>(m_iBlockLength.load()) * m_wfx.nBlockAlign;
    const size_t at = static_cast<size_t>(iIndex) * bytes;
    if (at + bytes <= m_pbRing.size()) {
        std::memset(m_pbRing.data() + at, 0, bytes);
    }
    header = Header{};
    m_phEvents[static_cast<size_t>(iIndex)].SetEvent();
}

void CAudio_Playback::OpenIfDue(int iDevice, int iChannels, int iBits, int iSampleRate) {
    const bool bSame = iChannels == m_wfx.nChannels &&
                       static_cast<uint32_t>(iSampleRate) == m_wfx.nSamplesPerSec &&
                       iBits == m_wfx.wBitsPerSample && iDevice == m_iDevice;
    if (bSame && m_hWaveOut != nullptr) {
        return;
    }
    if (bSame && m_iResult == -1 && qk::GetTickCount() - m_uLastTry < kRetryMs) {
        return;  // tried a moment ago
    }
    // Not under m_csLock: closing waits for the device thread, whose completions take it.
    // Once closed no completion runs, so the ring can be replaced.
    _quit();
    _init(iDevice, iChannels, iBits, iSampleRate);
}

int CAudio_Playback::_process(int iDevice, int iChannels, int iBits, int iSampleRate,
                              const void *pData, int iLength, int iRaw) {
    // Blocks beyond the ring's capacity, and formats no device plays, are refused.
    if (pData == nullptr || iLength < 1 || iLength > m_iBufferSamples || iChannels < 1 ||
        iChannels > 8 || iSampleRate < 1 ||
        (iBits != 8 && iBits != 16 && iBits != 24 && iBits != 32)) {
        return -1;
    }
    OpenIfDue(iDevice, iChannels, iBits, iSampleRate);
    if (m_hWaveOut == nullptr) {
        return -1;  // the device didn't open
    }
    m_iBlockLength = iLength;
    m_iCurrent = m_iCurrent + 1 > m_iBuffers - 1 ? 0 : m_iCurrent + 1;
    qk::CEvent &event = m_phEvents[static_cast<size_t>(m_iCurrent)];
    if (!event.Lock(kWaitMs)) {
        return -1;  // dropped; the next block tries the following buffer
    }
    event.ResetEvent();

    const size_t bytes = static_cast<size_t>(iLength) * m_wfx.nBlockAlign;
    uint8_t *buffer = m_pbRing.data() + static_cast<size_t>(m_iCurrent) * bytes;
    if (iRaw == 0) {
        ConvertArrayOfDataToBytes(m_pbConvert.data(), static_cast<const float *>(pData), iLength,
                                  &m_wfx);
        std::memcpy(buffer, m_pbConvert.data(), bytes);
        std::memset(m_pbConvert.data(), 0, bytes);
    } else {
        std::memcpy(buffer, pData, bytes);
    }
    {
        std::lock_guard<std::mutex> guard(m_csLock);
        m_pHeaders[static_cast<size_t>(m_iCurrent)] = Header{buffer, bytes, 0, m_iCurrent};
    }
    m_hWaveOut->Write(buffer, bytes, m_iCurrent);
    return 0;
}
