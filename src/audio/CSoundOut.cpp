#include "audio/CSoundOut.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/Report.h"

namespace {
// Device results, with the values the platform's wave output used.
constexpr unsigned kBadDeviceId = 2;
constexpr unsigned kInvalidHandle = 5;
constexpr unsigned kBadFormat = 32;

const char *errorText(unsigned uResult) {
    switch (uResult) {
        case kBadDeviceId:
            return "There is no device with that number.";
        case kInvalidHandle:
            return "The device isn't open.";
        case kBadFormat:
            return "The device can't play this format.";
        default:
            return "Unknown device error.";
    }
}
}  // namespace

CSoundBase::CSoundBase() {
    m_wfx.wFormatTag = WAVE_FORMAT_PCM;
    m_wfx.nChannels = 2;
    m_wfx.nSamplesPerSec = 44100;
    m_wfx.wBitsPerSample = 16;
    m_wfx.cbSize = 0;
    Update();
}

void CSoundBase::SetBitsPerSample(int iBits) {
    m_wfx.wBitsPerSample = static_cast<uint16_t>(iBits);
    Update();
}

void CSoundBase::SetSamplesPerSecond(int iRate) {
    m_wfx.nSamplesPerSec = static_cast<uint32_t>(iRate);
    Update();
}

void CSoundBase::SetNumberOfChannels(int iChannels) {
    m_wfx.nChannels = static_cast<uint16_t>(iChannels);
    Update();
}

void CSoundBase::Update() {
    m_wfx.nAvgBytesPerSec = static_cast<uint32_t>(m_wfx.wBitsPerSample / 8) * m_wfx.nSamplesPerSec;
    m_wfx.nBlockAlign = static_cast<uint16_t>(m_wfx.nChannels * (m_wfx.wBitsPerSample / 8));
}

CSoundBuffer::CSoundBuffer(unsigned long ulSize, bool bOwned) : size(ulSize), owned(bOwned) {
    auto *memory = static_cast<uint8_t *>(std::calloc(ulSize > 0 ? ulSize : 1, 1));
    data = memory;
    if (bOwned && memory != nullptr) {
        m_keeper.reset(memory, [](uint8_t *p) { std::free(p); });
    }
}

CSoundBuffer::CSoundBuffer(void *pData, unsigned long ulSize) : data(pData), size(ulSize) {}

void CSoundBuffer::Erase() {
    if (data != nullptr) {
        std::memset(data, 0, size);
    }
}

void CSoundBuffer::Free(void *pData) {
    std::free(pData);
}

CSoundOut::CSoundOut() {
    CreateThread(false);
}

CSoundOut::~CSoundOut() {
    if (m_bPlaying) {
        Stop();
    }
    // The buffers that came back are posted ahead of the quit message; the thread frees them
    // and closes the device before it ends.
    PostThreadMessage(qk::kMsgQuit, 0, 0);
    Join();
    CloseDevice();
    std::lock_guard<std::mutex> guard(m_csHeaders);
    for (auto &entry : m_headers) {
        CSoundBuffer::Free(entry.second->pData);
    }
    m_headers.clear();
}

void CSoundOut::waveOutErrorMsg(unsigned int uResult, const char *pcWhere) {
    char text[160];
    std::snprintf(text, sizeof text, "WAVEOUT:%x:%.100s %s", uResult, errorText(uResult),
                  pcWhere != nullptr ? pcWhere : "");
    qk::Report(text, "Quendarik", qk::Severity::Error);
}

bool CSoundOut::Start(int iDevice, int iPrime, const WAVEFORMATEX *pFormat) {
    if (m_bPlaying || m_pfnGetData == nullptr || m_pUser == nullptr || m_bDeviceOpen) {
        return false;
    }
    if (pFormat != nullptr) {
        m_wfx = *pFormat;
        m_wfx.cbSize = 0;
    }
    m_hWaveOut = CWaveOutDevice::Create(iDevice);
    if (m_hWaveOut == nullptr) {
        waveOutErrorMsg(kBadDeviceId, "in start()");
        return false;
    }
    const WaveOutFormat format{m_wfx.nChannels, static_cast<int>(m_wfx.nSamplesPerSec),
                               m_wfx.wBitsPerSample};
    // Completions come to this object's thread as messages.
    if (m_hWaveOut->Open(format, [this](int iId) {
            PostThreadMessage(MM_WOM_DONE, 0, static_cast<intptr_t>(iId));
        }) != 0) {
        m_hWaveOut.reset();
        waveOutErrorMsg(kBadFormat, "in start()");
        return false;
    }
    m_bDeviceOpen = true;
    m_bPlaying = true;
    if (iPrime == 1) {
        const unsigned long bytes = static_cast<unsigned long>(m_wfx.nBlockAlign) *
                                    static_cast<unsigned long>(m_iBufferSize);
        for (int i = 0; i < 3; ++i) {
            CSoundBuffer buffer(bytes, false);
            const unsigned long filled = m_pfnGetData(&buffer, m_pUser);
            Queue(static_cast<uint8_t *>(buffer.data), filled < bytes ? filled : bytes, bytes);
        }
    }
    return true;
}

int CSoundOut::AddOutputBufferToQueue(CSoundBuffer *pBuffer) {
    return Queue(static_cast<uint8_t *>(pBuffer->data), pBuffer->size, pBuffer->size);
}

int CSoundOut::Queue(uint8_t *pbData, unsigned long ulLength, unsigned long ulCapacity) {
    const int before = m_iQueued;
    if (m_hWaveOut == nullptr || !m_bDeviceOpen) {
        waveOutErrorMsg(kInvalidHandle, "in AddOutputBufferToQueue()");
        return before;
    }
    auto header = std::make_unique<Header>();
    header->pData = pbData;
    header->ulLength = ulLength;
    header->ulCapacity = ulCapacity;
    int id = 0;
    {
        std::lock_guard<std::mutex> guard(m_csHeaders);
        id = m_iNextHeader++;
        m_headers[id] = std::move(header);
    }
    // Counted before the write, whose completion may come at once.
    ++m_iQueued;
    if (m_hWaveOut->Write(pbData, ulLength, id) != 0) {
        --m_iQueued;
        std::lock_guard<std::mutex> guard(m_csHeaders);
        m_headers.erase(id);
        waveOutErrorMsg(kInvalidHandle, "in AddOutputBufferToQueue()");
    }
    return before;
}

void CSoundOut::OnThreadMessage(const qk::ThreadMessage &msg) {
    if (msg.message == MM_WOM_DONE) {
        OnMM_WOM_DONE(static_cast<unsigned>(msg.wParam), static_cast<long>(msg.lParam));
    }
}

void CSoundOut::OnMM_WOM_DONE(unsigned int, long lParam) {
    std::unique_ptr<Header> header;
    {
        std::lock_guard<std::mutex> guard(m_csHeaders);
        auto it = m_headers.find(static_cast<int>(lParam));
        if (it == m_headers.end()) {
            waveOutErrorMsg(kInvalidHandle, "in OnWOM_DONE()");
            return;
        }
        header = std::move(it->second);
        m_headers.erase(it);
    }
    --m_iQueued;
    if (m_bPlaying) {
        // The memory goes round again, at the size it was made with.
        CSoundBuffer buffer(header->pData, header->ulCapacity);
        const unsigned long filled = m_pfnGetData(&buffer, m_pUser);
        if (filled > 0) {
            Queue(header->pData, filled < header->ulCapacity ? filled : header->ulCapacity,
                  header->ulCapacity);
            return;  // the old header goes; the memory is queued again
        }
        Stop();
    }
    CSoundBuffer::Free(header->pData);
    if (m_iQueued == 0 && !m_bPlaying) {
        CloseDevice();
    }
}

void CSoundOut::Stop() {
    // Once, also when the caller and the thread (a fill that gave nothing) stop together.
    if (!m_bPlaying.exchange(false)) {
        return;
    }
    if (m_hWaveOut == nullptr || m_hWaveOut->Reset() != 0) {
        waveOutErrorMsg(kInvalidHandle, "in stop()");
    }
}

void CSoundOut::CloseDevice() {
    if (m_hWaveOut != nullptr && m_bDeviceOpen) {
        if (m_hWaveOut->Close() != 0) {
            waveOutErrorMsg(kInvalidHandle, "in stop()");
        }
        m_bDeviceOpen = false;
    }
}
