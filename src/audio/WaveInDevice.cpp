#include "audio/WaveInDevice.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <thread>

CWaveInDevice::~CWaveInDevice() = default;

int CWaveInDevice::Open(const WaveOutFormat &format, DoneFn onDone) {
    if (m_bOpen || format.iChannels < 1 || format.iSampleRate < 1 || format.BlockAlign() < 1) {
        return -1;
    }
    m_format = format;
    m_bStopping = false;
    m_bFailed = false;
    if (OpenBackend(format) != 0) {
        return -1;
    }
    m_onDone = std::move(onDone);
    m_bStarted = false;
    m_bOpen = true;
    m_queue.Start([this] { return m_bStarted && !m_bFailed; },
                  [this](const Queue::Buffer &buffer) { Fill(buffer); });
    return 0;
}

int CWaveInDevice::AddBuffer(uint8_t *pbData, size_t iBytes, int iIndex) {
    if (!m_bOpen || pbData == nullptr) {
        return -1;
    }
    m_queue.Push(Queue::Buffer{pbData, iBytes, iIndex});
    return 0;
}

int CWaveInDevice::Start() {
    if (!m_bOpen) {
        return -1;
    }
    m_queue.Update([this] {
        if (!m_bStarted) {
            StartBackend();
        }
        m_bStarted = true;
    });
    return 0;
}

int CWaveInDevice::Reset() {
    if (!m_bOpen) {
        return -1;
    }
    m_bStopping = true;
    // The buffer being filled ends soon; the drain waits for it so that no byte is written
    // after the reset. The queued ones are given back without a call.
    m_queue.Drain([this] {
        m_bStarted = false;
        m_bStopping = false;
    });
    return 0;
}

int CWaveInDevice::Close() {
    if (!m_bOpen) {
        return -1;
    }
    Reset();
    m_queue.Stop();
    CloseBackend();
    m_bOpen = false;
    return 0;
}

void CWaveInDevice::Fill(const Queue::Buffer &buffer) {
    if (!FillBackend(buffer.pbData, buffer.iBytes)) {
        m_bFailed = true;  // nothing more is filled; the buffers left stay queued
    } else if (!m_bStopping) {
        m_onDone(buffer.iIndex);
    }
}

int CVirtualWaveIn::OpenBackend(const WaveOutFormat &format) {
    if (format.iBits != 8 && format.iBits != 16 && format.iBits != 24 && format.iBits != 32) {
        return -1;
    }
    m_dPhase = 0.0;
    m_dRecorded = 0.0;
    return 0;
}

void CVirtualWaveIn::StartBackend() {
    m_end = Clock::now();
}

bool CVirtualWaveIn::FillBackend(uint8_t *pbData, size_t iBytes) {
    const int channels = m_format.iChannels;
    const int bytes = m_format.iBits / 8;
    const size_t frames = iBytes / static_cast<size_t>(m_format.BlockAlign());
    m_dRecorded += static_cast<double>(frames) / m_format.iSampleRate;
    if (m_dLifeSeconds > 0.0 && m_dRecorded > m_dLifeSeconds) {
        return false;  // unplugged
    }
    const double step = 2.0 * M_PI * kToneHz / m_format.iSampleRate;
    const double full = std::ldexp(1.0, m_format.iBits - 1);
    uint8_t *at = pbData;
    for (size_t i = 0; i < frames; ++i) {
        const double value = 0.5 * std::sin(m_dPhase);
        m_dPhase = std::fmod(m_dPhase + step, 2.0 * M_PI);
        // 8 bits are unsigned around 128; the others signed, little-endian.
        const int64_t sample = m_format.iBits == 8 ? static_cast<int64_t>(128.0 + value * 127.0)
                                                   : static_cast<int64_t>(value * (full - 1.0));
        for (int k = 0; k < channels; ++k) {
            for (int b = 0; b < bytes; ++b) {
                *at++ = static_cast<uint8_t>((static_cast<uint64_t>(sample) >> (8 * b)) & 0xFF);
            }
        }
    }
    const auto duration = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(static_cast<double>(frames) / m_format.iSampleRate));
    // Gapless: a buffer is recorded right after the one before, or from now when none was
    // queued (what came meanwhile was lost, as on a real input).
    m_end = std::max(m_end, Clock::now()) + duration;
    while (!m_bStopping && Clock::now() < m_end) {
        std::this_thread::sleep_until(std::min(m_end, Clock::now() + std::chrono::milliseconds(5)));
    }
    return true;
}
