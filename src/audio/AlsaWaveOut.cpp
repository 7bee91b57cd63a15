#include "audio/AlsaWaveOut.h"

#include <alsa/asoundlib.h>

#include "audio/AlsaErrors.h"

namespace {
// The device's own buffer: short enough for a prompt reset, long enough not to run dry
// between the ring's buffers.
constexpr unsigned kLatencyMicroseconds = 100000;

snd_pcm_format_t alsaFormat(int iBits) {
    switch (iBits) {
        case 8:
            return SND_PCM_FORMAT_U8;
        case 16:
            return SND_PCM_FORMAT_S16_LE;
        case 24:
            return SND_PCM_FORMAT_S24_3LE;
        case 32:
            return SND_PCM_FORMAT_S32_LE;
        default:
            return SND_PCM_FORMAT_UNKNOWN;
    }
}
}  // namespace

CAlsaWaveOut::~CAlsaWaveOut() {
    Close();
}

int CAlsaWaveOut::OpenBackend(const WaveOutFormat &format) {
    const snd_pcm_format_t alsa = alsaFormat(format.iBits);
    if (alsa == SND_PCM_FORMAT_UNKNOWN) {
        m_strError = std::to_string(format.iBits) + "-bit samples are not played";
        return -1;
    }
    // ALSA's own texts about this open become part of the reason, not lines on stderr.
    qk::CAlsaErrorCapture capture;
    int err = snd_pcm_open(&m_pcm, m_strName.c_str(), SND_PCM_STREAM_PLAYBACK, 0);
    if (err >= 0) {
        err = snd_pcm_set_params(
            m_pcm, alsa, SND_PCM_ACCESS_RW_INTERLEAVED, static_cast<unsigned>(format.iChannels),
            static_cast<unsigned>(format.iSampleRate), 1, kLatencyMicroseconds);
        if (err < 0) {
            snd_pcm_close(m_pcm);
        }
    }
    if (err < 0) {
        m_pcm = nullptr;
        m_strError = snd_strerror(err);
        if (!capture.Text().empty()) {
            m_strError += " (" + capture.Text() + ")";
        }
        return -1;
    }
    return 0;
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
