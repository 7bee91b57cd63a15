#include "sourcecheck.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/Paths.h"
#include "sources/Ac3Stream.h"
#include "sources/CSOURCE_MP3.h"
#include "sources/WaveFile.h"

namespace qkcli {
namespace {
std::string waveProblem(const std::string &strPath) {
    HMMIO hmmio = nullptr;
    WAVEFORMATEX *format = nullptr;
    MMCKINFO riff{};
    MMCKINFO data{};
    const int opened = WaveOpenFile(strPath.c_str(), &hmmio, &format, &riff);
    if (opened != 0) {
        return opened == ER_CORRUPTWAVEFILE ? "its format chunk is cut short"
                                            : "it is not a RIFF WAVE file with a format chunk";
    }
    std::string problem;
    const int bits = format->wBitsPerSample;
    const int channels = format->nChannels;
    if (format->wFormatTag != WAVE_FORMAT_PCM || (bits != 8 && bits != 16) ||
        (channels != 1 && channels != 2)) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "format %d, %d bits in %d channels: only 8- or 16-bit PCM in one or two "
                      "channels plays",
                      format->wFormatTag, bits, channels);
        problem = text;
    } else if (WaveStartDataRead(&hmmio, &data, &riff) != 0) {
        problem = "it has no data chunk";
    } else if (data.cksize < format->nBlockAlign) {
        problem = "it holds no sound (its data chunk is empty)";
    }
    WaveCloseReadFile(&hmmio, &format);
    return problem;
}
}  // namespace

std::string WhySourceFails(const std::string &strPath) {
    std::error_code ec;
    if (std::filesystem::is_directory(strPath, ec)) {
        return "it is a folder";
    }
    std::ifstream probe(strPath, std::ios::binary);
    char first = 0;
    if (!probe || !probe.read(&first, 1)) {
        return probe ? "it is empty" : std::strerror(errno);
    }
    probe.close();
    const std::string kind =
        strPath.size() >= 3 ? qk::ToUpper(strPath.substr(strPath.size() - 3)) : std::string();
    if (kind == "WAV") {
        return waveProblem(strPath);
    }
    if (kind == "AC3") {
        long frames = 0;
        int rate = 0;
        return CAc3Stream::Scan(strPath, frames, rate) && frames > 0 ? std::string()
                                                                     : "no AC-3 frame found";
    }
    if (kind == "MP3") {
        CSOURCE_MP3 mp3;
        return mp3.CheckFileName(strPath) == 0 ? std::string() : "not an MPEG audio file";
    }
    return "only WAV, MP3 and AC-3 files play";
}

bool CheckSourceFiles(const char *pcCommand, const Scene &scene) {
    for (const SceneSource &source : scene.sources) {
        if (source.file.empty()) {
            continue;
        }
        const std::string why = WhySourceFails(source.file);
        if (!why.empty()) {
            std::fprintf(stderr, "quendarik %s: %s: %s\n", pcCommand, source.file.c_str(),
                         why.c_str());
            return false;
        }
    }
    return true;
}

}  // namespace qkcli
