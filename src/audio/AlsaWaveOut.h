// An ALSA PCM device (hardware, or a plug-in such as "pulse" or "default").
#pragma once

#include <string>

#include "audio/WaveOutDevice.h"

typedef struct _snd_pcm snd_pcm_t;

class CAlsaWaveOut : public CWaveOutDevice {
  public:
    explicit CAlsaWaveOut(std::string strName) : m_strName(std::move(strName)) {}
    ~CAlsaWaveOut() override;

  protected:
    int OpenBackend(const WaveOutFormat &format) override;
    void PlayBackend(const uint8_t *pbData, size_t iBytes) override;
    void DropBackend() override;
    void CloseBackend() override;

  private:
    std::string m_strName;
    snd_pcm_t *m_pcm = nullptr;
};
