#include "audio/AlsaWaveIn.h"

#include <alsa/asoundlib.h>

#include <cerrno>

#include "audio/AlsaPcm.h"

namespace {
// The device's own buffer, as for output.
constexpr unsigned kLatencyMicroseconds = 100000;
// How long one wait for data lasts before the stop request is looked at again, ms.
constexpr int kPollMs = 50;
// Errors in a row after which the device counts as gone.
constexpr int kMaxErrors = 8;
}  // namespace

CAlsaWaveIn::~CAlsaWaveIn() {
    Close();
}

int CAlsaWaveIn::OpenBackend(const WaveOutFormat &format) {
    // Non-blocking, so that a device that stops delivering can't hold the thread for ever.
    std::string strError;
    return qk::OpenAlsaPcm(m_pcm, m_strName, SND_PCM_STREAM_CAPTURE, SND_PCM_NONBLOCK, format,
                           kLatencyMicroseconds, strError);
}

bool CAlsaWaveIn::FillBackend(uint8_t *pbData, size_t iBytes) {
    const size_t frameBytes = static_cast<size_t>(m_format.BlockAlign());
    snd_pcm_uframes_t left = iBytes / frameBytes;
    uint8_t *at = pbData;
    int errors = 0;
    while (left > 0 && !m_bStopping) {
        const snd_pcm_sframes_t got = snd_pcm_readi(m_pcm, at, left);
        if (got == -EAGAIN || got == 0) {
            if (snd_pcm_state(m_pcm) == SND_PCM_STATE_DISCONNECTED) {
                return false;
            }
            const int waited = snd_pcm_wait(m_pcm, kPollMs);
            if (waited < 0 && (++errors > kMaxErrors || snd_pcm_recover(m_pcm, waited, 1) < 0)) {
                return false;
            }
            continue;
        }
        if (got < 0) {
            // An overrun or a suspend: recover and go on. A device that keeps failing is gone.
            if (++errors > kMaxErrors || snd_pcm_recover(m_pcm, static_cast<int>(got), 1) < 0) {
                return false;
            }
            continue;
        }
        errors = 0;
        left -= static_cast<snd_pcm_uframes_t>(got);
        at += static_cast<size_t>(got) * frameBytes;
    }
    return true;
}

void CAlsaWaveIn::CloseBackend() {
    if (m_pcm != nullptr) {
        snd_pcm_drop(m_pcm);
        snd_pcm_close(m_pcm);
        m_pcm = nullptr;
    }
}
