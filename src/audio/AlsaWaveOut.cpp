#include "audio/AlsaWaveOut.h"

#include <alsa/asoundlib.h>

#include "audio/AlsaPcm.h"

namespace {
// The device's own buffer: short enough for a prompt reset, long enough not to run dry
// between the ring's buffers.
constexpr unsigned kLatencyMicroseconds = 100000;

}  // namespace

CAlsaWaveOut::~CAlsaWaveOut() {
    Close();
}

int CAlsaWaveOut::OpenBackend(const WaveOutFormat &format) {
    return qk::OpenAlsaPcm(m_pcm, m_strName, SND_PCM_STREAM_PLAYBACK, 0, format,
                           kLatencyMicroseconds, m_strError);
}

void CAlsaWaveOut::PlayBackend(const uint8_t *pbData, size_t iBytes) {
    const size_t frameBytes = static_cast<size_t>(m_format.BlockAlign());
    snd_pcm_uframes_t left = iBytes / frameBytes;
    const uint8_t *at = pbData;
    while (left > 0 && !m_bStopping) {
        const snd_pcm_sframes_t written = snd_pcm_writei(m_pcm, at, left);
        if (written < 0) {
            // An underrun or a suspend: recover and go on; anything else ends this buffer.
            if (snd_pcm_recover(m_pcm, static_cast<int>(written), 1) < 0) {
                return;
            }
            continue;
        }
        left -= static_cast<snd_pcm_uframes_t>(written);
        at += static_cast<size_t>(written) * frameBytes;
    }
}

void CAlsaWaveOut::DropBackend() {
    if (m_pcm != nullptr) {
        snd_pcm_drop(m_pcm);
        snd_pcm_prepare(m_pcm);
    }
}

void CAlsaWaveOut::CloseBackend() {
    if (m_pcm != nullptr) {
        snd_pcm_drain(m_pcm);
        snd_pcm_close(m_pcm);
        m_pcm = nullptr;
    }
}
