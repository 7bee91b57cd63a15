#include "audio/WaveOutDevice.h"

#include <alsa/asoundlib.h>

#include <cstdlib>
#include <vector>

#include "audio/AlsaErrors.h"
#include "audio/AlsaWaveOut.h"
#include "audio/VirtualWaveOut.h"

CWaveOutDevice::~CWaveOutDevice() = default;

std::string CWaveOutDevice::DeviceName(int iDevice) {
    if (iDevice == -1) {
        const char *name = std::getenv("QK_ALSA_DEVICE");
        return name != nullptr && *name != '\0' ? name : "default";
    }
    if (iDevice < 0) {
        return std::string();
    }
    // The playback-capable PCMs in the order ALSA lists them.
    std::vector<std::string> names;
    void **hints = nullptr;
    // Listing the devices makes ALSA complain of every card it looks for and doesn't find:
    // those texts are not failures of anything asked for, and are dropped.
    qk::CAlsaErrorCapture quiet;
    if (snd_device_name_hint(-1, "pcm", &hints) == 0 && hints != nullptr) {
        for (void **hint = hints; *hint != nullptr; ++hint) {
            char *name = snd_device_name_get_hint(*hint, "NAME");
            char *ioid = snd_device_name_get_hint(*hint, "IOID");
            if (name != nullptr && (ioid == nullptr || std::string(ioid) == "Output")) {
                names.emplace_back(name);
            }
            std::free(name);
            std::free(ioid);
        }
        snd_device_name_free_hint(hints);
    }
    return static_cast<size_t>(iDevice) < names.size() ? names[static_cast<size_t>(iDevice)]
                                                       : std::string();
}

std::unique_ptr<CWaveOutDevice> CWaveOutDevice::Create(int iDevice) {
    const std::string name = DeviceName(iDevice);
    return name.empty() ? nullptr : CreateByName(name);
}

std::unique_ptr<CWaveOutDevice> CWaveOutDevice::CreateByName(const std::string &strName) {
    if (strName == "virtual") {
        return std::make_unique<CVirtualWaveOut>();
    }
    qk::InstallAlsaErrorHandler();  // ALSA's texts never go to standard error
    return std::make_unique<CAlsaWaveOut>(strName);
}

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
    m_bQuit = false;
    m_bOpen = true;
    m_thread = std::thread([this] { DeviceThread(); });
    return 0;
}

int CWaveOutDevice::Write(const uint8_t *pbData, size_t iBytes, int iIndex) {
    if (!m_bOpen) {
        return -1;
    }
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_queue.push_back(Pending{pbData, iBytes, iIndex});
    }
    m_cv.notify_all();
    return 0;
}

int CWaveOutDevice::Reset() {
    if (!m_bOpen) {
        return -1;
    }
    std::deque<Pending> dropped;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_bStopping = true;
        dropped.swap(m_queue);
        // The buffer being played ends soon (the device is asked to stop); wait for it so
        // that no byte is read after the reset.
        m_cv.wait(lock, [this] { return !m_bPlaying; });
        DropBackend();
        m_bStopping = false;
    }
    for (const Pending &pending : dropped) {
        m_onDone(pending.iIndex);
    }
    return 0;
}

int CWaveOutDevice::Close() {
    if (!m_bOpen) {
        return -1;
    }
    Reset();
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_bQuit = true;
    }
    m_cv.notify_all();
    m_thread.join();
    CloseBackend();
    m_bOpen = false;
    return 0;
}

void CWaveOutDevice::DeviceThread() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_cv.wait(lock, [this] { return m_bQuit || !m_queue.empty(); });
        if (m_bQuit) {
            return;
        }
        const Pending pending = m_queue.front();
        m_queue.pop_front();
        m_bPlaying = true;
        lock.unlock();
        PlayBackend(pending.pbData, pending.iBytes);
        m_onDone(pending.iIndex);
        lock.lock();
        m_bPlaying = false;
        m_cv.notify_all();
    }
}
