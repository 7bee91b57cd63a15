#include "audio/VirtualWaveOut.h"

#include <thread>

int CVirtualWaveOut::OpenBackend(const WaveOutFormat &) {
    m_end = Clock::now();
    return 0;
}

void CVirtualWaveOut::PlayBackend(const uint8_t *, size_t iBytes) {
    const double frames = static_cast<double>(iBytes) / m_format.BlockAlign();
    const auto duration = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(frames / m_format.iSampleRate));
    // Gapless: a buffer starts where the last ended, or now if the device ran dry.
    m_end = std::max(m_end, Clock::now()) + duration;
    // Sleeps in short steps, so that a reset is answered within a few milliseconds.
    while (!m_bStopping && Clock::now() < m_end) {
        std::this_thread::sleep_until(std::min(m_end, Clock::now() + std::chrono::milliseconds(5)));
    }
}

void CVirtualWaveOut::DropBackend() {
    m_end = Clock::now();
}
