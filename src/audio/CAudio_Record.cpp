#include "audio/CAudio_Record.h"

#include <cstring>

#include "platform/Report.h"
#include "sources/CSOURCE_WAVE.h"

CAudio_Record::CAudio_Record() = default;

CAudio_Record::~CAudio_Record() {
    TerminateSoundCapture();
    EndThread();
}

void CAudio_Record::EndThread() {
    PostThreadMessage(qk::kMsgQuit, 0, 0);
    Join();
}

void CAudio_Record::waveInProc(void *, unsigned uMsg, uintptr_t dwInstance, uintptr_t, uintptr_t) {
    if (uMsg != WIM_DATA || dwInstance == 0) {
        return;
    }
    auto *record = reinterpret_cast<CAudio_Record *>(dwInstance);
    const int done = ++record->m_iDone;
    record->m_phEvents[static_cast<size_t>(done % record->m_iBuffers)].SetEvent();
}

int CAudio_Record::PrepareHeader(int i) {
    Header &header = m_pHeaders[static_cast<size_t>(i)];
    if (m_hWaveIn == nullptr || header.pData == nullptr) {
        return -1;
    }
    header.bPrepared = true;
    return 0;
}

void CAudio_Record::UnprepareHeader(int i) {
    m_pHeaders[static_cast<size_t>(i)].bPrepared = false;
}

int CAudio_Record::AddBuffer(int i) {
    Header &header = m_pHeaders[static_cast<size_t>(i)];
    if (m_hWaveIn == nullptr || !header.bPrepared) {
        return -1;
    }
    return m_hWaveIn->AddBuffer(header.pData, header.iLength, i);
}

int CAudio_Record::InitializeSoundCapture(int iDevice, unsigned long, unsigned long, unsigned long,
                                          int, int, int iChannels, int iBits, int iSampleRate,
                                          std::string &strError) {
    TerminateSoundCapture();
    m_iBufferFrames = kBufferFrames;
    m_iRead = -1;
    m_iChannels = iChannels;
    m_iSampleRate = iSampleRate;
    m_iBits = iBits;
    m_wfx = PcmWaveFormat(iChannels, iSampleRate, iBits);
    m_iDone = -1;
    m_bStalled = false;
    for (qk::CEvent &event : m_phEvents) {
        event.ResetEvent();
    }
    // A format no device could take is refused before anything is sized from it.
    if (iChannels < 1 || iChannels > 8 || iSampleRate < 1 ||
        static_cast<uint32_t>(iSampleRate) > kWaveMaxSampleRate ||
        (iBits != 8 && iBits != 16 && iBits != 24 && iBits != 32)) {
        strError = "waveInOpen";
        return 0;
    }

    const WaveOutFormat format{iChannels, iSampleRate, iBits};
    const auto onDone = [this](int) {
        waveInProc(nullptr, WIM_DATA, reinterpret_cast<uintptr_t>(this), 0, 0);
    };
    auto open = [&](int device) {
        m_hWaveIn = CWaveInDevice::Create(device);
        if (m_hWaveIn != nullptr && m_hWaveIn->Open(format, onDone) == 0) {
            return true;
        }
        m_hWaveIn.reset();
        strError = "waveInOpen";
        return false;
    };
    if (iDevice == -1) {
        if (!open(-1)) {
            const int devices = CWaveInDevice::DeviceCount();
            for (int attempt = 0; attempt < devices && !open(-1); ++attempt) {
            }
        }
    } else if (!open(iDevice)) {
        return 0;
    }

    m_iBufferBytes = m_wfx.nBlockAlign * m_iBufferFrames;
    m_pbBuffers.assign(static_cast<size_t>(m_iBuffers) * static_cast<size_t>(m_iBufferBytes), 0);
    for (int i = 0; i < m_iBuffers; ++i) {
        Header &header = m_pHeaders[static_cast<size_t>(i)];
        header.pData = m_pbBuffers.data() + static_cast<size_t>(i) * m_iBufferBytes;
        header.iLength = static_cast<size_t>(m_iBufferBytes);
        if (PrepareHeader(i) != 0) {
            strError = "waveInPrepareHeader";
            return 0;
        }
        if (AddBuffer(i) != 0) {
            strError = "waveInAddBuffer";
            return 0;
        }
    }
    m_iActive = 1;
    return 1;
}

unsigned CAudio_Record::WaitMs(int i, int iLength) const {
    const double rate = m_wfx.nSamplesPerSec > 0 ? m_wfx.nSamplesPerSec : 1.0;
    if (m_bStalled) {
        return static_cast<unsigned>(iLength * 1000.0 / rate) + 1;
    }
    const double frames = m_pHeaders[static_cast<size_t>(i)].iLength /
                          static_cast<double>(m_wfx.nBlockAlign > 0 ? m_wfx.nBlockAlign : 1);
    return static_cast<unsigned>(frames * 1000.0 / rate) + kStallMs;
}

void CAudio_Record::Silence(void *pOut, int iLength, int iRaw) const {
    const size_t count = static_cast<size_t>(iLength);
    if (iRaw == 0) {
        std::memset(pOut, 0, sizeof(float) * count * m_wfx.nChannels);
    } else {
        // 8-bit silence is 128.
        std::memset(pOut, m_wfx.wBitsPerSample == 8 ? 128 : 0, count * m_wfx.nBlockAlign);
    }
}

void CAudio_Record::GetNextSamplesSoundCapture(void *pOut, int iLength, int iRaw) {
    if (m_iActive != 1 || pOut == nullptr) {
        return;
    }
    if (iLength == 0) {
        iLength = m_iBufferFrames;
    }
    if (iLength < 0 || iLength > m_iBufferFrames) {
        return;  // a block longer than a buffer isn't supported
    }
    m_iRead += 1;
    if (m_iRead == 0) {
        // Bytes, not samples, as it has always been: only the start of the block is cleared.
        std::memset(pOut, 0, static_cast<size_t>(iLength));
        m_hWaveIn->Start();
        return;
    }
    const int i = (m_iRead - 1) % m_iBuffers;
    if (!m_phEvents[static_cast<size_t>(i)].Lock(WaitMs(i, iLength))) {
        // The same buffer is waited for next time, so that the ring stays in step with the
        // device if it comes back.
        m_iRead -= 1;
        Silence(pOut, iLength, iRaw);
        if (!m_bStalled) {
            m_bStalled = true;
            qk::Report(m_hWaveIn->HasFailed()
                           ? "The capture device has gone; its input is silent."
                           : "The capture device has delivered nothing for two seconds; its "
                             "input is silent until it does.",
                       "Quendarik", qk::Severity::Warning);
        }
        return;
    }
    m_bStalled = false;
    UnprepareHeader(i);
    Header &header = m_pHeaders[static_cast<size_t>(i)];
    if (iRaw == 0) {
        CSOURCE_WAVE::ConvertBytesToArrayOfData(header.pData, static_cast<float *>(pOut), iLength,
                                                iLength, &m_wfx);
    } else {
        std::memcpy(pOut, header.pData, static_cast<size_t>(m_wfx.nBlockAlign) * iLength);
    }
    // Given back at the size of this block.
    header.iLength = static_cast<size_t>(m_wfx.nBlockAlign) * static_cast<size_t>(iLength);
    if (PrepareHeader(i) == 0) {
        AddBuffer(i);
    }
}

void CAudio_Record::TerminateSoundCapture() {
    m_iActive = 0;
    if (m_hWaveIn != nullptr) {
        m_hWaveIn->Reset();
        m_hWaveIn->Close();
        m_hWaveIn.reset();
    }
    m_pbBuffers.clear();
    m_pbBuffers.shrink_to_fit();
    m_pHeaders = {};
}
