// Opening an ALSA PCM for the wave devices, playback and capture alike.
#pragma once

#include <alsa/asoundlib.h>

#include <string>
#include <vector>

#include "audio/WaveOutDevice.h"

namespace qk {

// Opens strName for interleaved samples of the format (8-bit unsigned, 16, 24 or 32-bit
// signed little-endian), with a device buffer of uLatencyMicroseconds. 0 with pcm open, or -1
// with pcm null and the reason in strError; ALSA's own texts about the open are part of the
// reason instead of lines on standard error.
int OpenAlsaPcm(snd_pcm_t *&pcm, const std::string &strName, snd_pcm_stream_t stream, int iMode,
                const WaveOutFormat &format, unsigned uLatencyMicroseconds, std::string &strError);

// The names of the PCMs ALSA lists for pszDirection ("Input" or "Output"), in ALSA's order;
// those that do not say which way they go count for both.
std::vector<std::string> AlsaPcmNames(const char *pszDirection);
// The PCM a device number stands for: -1 the one named by the environment variable
// pszVariable, else "default"; 0..n-1 those AlsaPcmNames lists; empty for any other number.
std::string AlsaPcmName(int iDevice, const char *pszVariable, const char *pszDirection);

}  // namespace qk
