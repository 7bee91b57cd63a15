#include "audio/WaveOutDevice.h"

CWaveOutDevice::~CWaveOutDevice() = default;

int CWaveOutDevice::Open(const WaveOutFormat &format, DoneFn onDone) {
    if (m_bOpen || format.iChannels < 1 || format.iSampleRate < 1 || format.BlockAlign() < 1) {
        m_strError = m_bOpen ? "already open" : "a format no device plays";
        return -1;
    }
    m_format = format;
    m_bStopping = false;
    m_strError.clear();
    if (OpenBackend(format) != 0) {
        if (m_strError.empty()) {
            m_strError = "the device refused the format";
        }
        return -1;
    }
    m_onDone = std::move(onDone);
    m_bOpen = true;
    m_queue.Start(nullptr, [this](const qk::CBufferQueue<const uint8_t>::Buffer &buffer) {
        PlayBackend(buffer.pbData, buffer.iBytes);
        m_onDone(buffer.iIndex);
    });
    return 0;
}

int CWaveOutDevice::Write(const uint8_t *pbData, size_t iBytes, int iIndex) {
    if (!m_bOpen) {
        return -1;
    }
    m_queue.Push({pbData, iBytes, iIndex});
    return 0;
}

int CWaveOutDevice::Reset() {
    if (!m_bOpen) {
        return -1;
    }
    m_bStopping = true;
    // The buffer being played ends soon (the device is asked to stop); the drain waits for it
    // so that no byte is read after the reset.
    const auto dropped = m_queue.Drain([this] {
        DropBackend();
        m_bStopping = false;
    });
    for (const auto &buffer : dropped) {
        m_onDone(buffer.iIndex);
    }
    return 0;
}

int CWaveOutDevice::Close() {
    if (!m_bOpen) {
        return -1;
    }
    Reset();
    m_queue.Stop();
    CloseBackend();
    m_bOpen = false;
    return 0;
}
