// The clocked device: takes each buffer for exactly as long as it would sound at its
// format's rate, so that a ring of buffers on it runs at real time with no sound system.
#pragma once

#include <chrono>

#include "audio/WaveOutDevice.h"

class CVirtualWaveOut : public CWaveOutDevice {
  public:
    ~CVirtualWaveOut() override { Close(); }

  protected:
    int OpenBackend(const WaveOutFormat &format) override;
    void PlayBackend(const uint8_t *pbData, size_t iBytes) override;
    void DropBackend() override;
    void CloseBackend() override {}

  private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point m_end;  // when the buffers handed over so far have all sounded
};
