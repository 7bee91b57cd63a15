#include "audio/AlsaPcm.h"

#include <cstdlib>

#include "audio/AlsaErrors.h"

namespace qk {

namespace {
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

int OpenAlsaPcm(snd_pcm_t *&pcm, const std::string &strName, snd_pcm_stream_t stream, int iMode,
                const WaveOutFormat &format, unsigned uLatencyMicroseconds, std::string &strError) {
    pcm = nullptr;
    const snd_pcm_format_t alsa = alsaFormat(format.iBits);
    if (alsa == SND_PCM_FORMAT_UNKNOWN) {
        strError = std::to_string(format.iBits) + "-bit samples are not supported";
        return -1;
    }
    CAlsaErrorCapture capture;
    int err = snd_pcm_open(&pcm, strName.c_str(), stream, iMode);
    if (err >= 0) {
        err = snd_pcm_set_params(
            pcm, alsa, SND_PCM_ACCESS_RW_INTERLEAVED, static_cast<unsigned>(format.iChannels),
            static_cast<unsigned>(format.iSampleRate), 1, uLatencyMicroseconds);
        if (err < 0) {
            snd_pcm_close(pcm);
        }
    }
    if (err < 0) {
        pcm = nullptr;
        strError = snd_strerror(err);
        if (!capture.Text().empty()) {
            strError += " (" + capture.Text() + ")";
        }
        return -1;
    }
    return 0;
}

std::vector<std::string> AlsaPcmNames(const char *pszDirection) {
    std::vector<std::string> names;
    void **hints = nullptr;
    // Listing the devices makes ALSA complain of every card it looks for and doesn't find:
    // those texts are not failures of anything asked for, and are dropped.
    CAlsaErrorCapture quiet;
    if (snd_device_name_hint(-1, "pcm", &hints) == 0 && hints != nullptr) {
        for (void **hint = hints; *hint != nullptr; ++hint) {
            char *name = snd_device_name_get_hint(*hint, "NAME");
            char *ioid = snd_device_name_get_hint(*hint, "IOID");
            if (name != nullptr && (ioid == nullptr || std::string(ioid) == pszDirection)) {
                names.emplace_back(name);
            }
            std::free(name);
            std::free(ioid);
        }
        snd_device_name_free_hint(hints);
    }
    return names;
}

std::string AlsaPcmName(int iDevice, const char *pszVariable, const char *pszDirection) {
    if (iDevice == -1) {
        const char *name = std::getenv(pszVariable);
        return name != nullptr && *name != '\0' ? name : "default";
    }
    if (iDevice < 0) {
        return std::string();
    }
    const std::vector<std::string> names = AlsaPcmNames(pszDirection);
    return static_cast<size_t>(iDevice) < names.size() ? names[static_cast<size_t>(iDevice)]
                                                       : std::string();
}

}  // namespace qk
