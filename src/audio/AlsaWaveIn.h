// An ALSA capture PCM (hardware, or a plug-in such as "pulse" or "default").
#pragma once

#include <string>

#include "audio/WaveInDevice.h"

typedef struct _snd_pcm snd_pcm_t;

class CAlsaWaveIn : public CWaveInDevice {
  public:
    explicit CAlsaWaveIn(std::string strName) : m_strName(std::move(strName)) {}
    ~CAlsaWaveIn() override;

  protected:
    int OpenBackend(const WaveOutFormat &format) override;
    bool FillBackend(uint8_t *pbData, size_t iBytes) override;
    void CloseBackend() override;

  private:
    std::string m_strName;
    snd_pcm_t *m_pcm = nullptr;
};
