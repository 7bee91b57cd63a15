#include "sources/Ac3Settings.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "platform/Paths.h"

const char *const kAc3OutputModes[kAc3OutputModeCount] = {"1/0 - mono",
                                                          "2/0 - stereo",
                                                          "3/0 - 3 front",
                                                          "2/1 - surround",
                                                          "3/1 - surround",
                                                          "2/2 - quadro",
                                                          "3/2 - 5 channels",
                                                          "1/0+SW 1.1 mono",
                                                          "2/0+SW 2.1 stereo",
                                                          "3/0+SW 3.1 front",
                                                          "2/1+SW 3.1 surround",
                                                          "3/1+SW 4.1 surround",
                                                          "2/2+SW 4.1 quadro",
                                                          "3/2+SW 5.1 channels",
                                                          "Dolby Surround/ProLogic",
                                                          "Dolby ProLogic II",
                                                          "SPDIF"};

const char *const kAc3StreamModes[kAc3StreamModeCount] = {
    "1+1 - Dual mono",       "1/0 - mono",           "2/0 - stereo",       "3/0 - 3 front",
    "2/1 - surround",        "3/1 - surround",       "2/2 - quadro",       "3/2 - 5 channels",
    "1+1+LFE Dual mono+LFE", "1/0+LFE 1.1 mono",     "2/0+LFE 2.1 stereo", "3/0+LFE 3.1 front",
    "2/1+LFE 3.1 surround",  "3/1+LFE 4.1 surround", "2/2+LFE 4.1 quadro", "3/2+LFE 5.1 channels",
    "Dolby Surround",        "Dolby Surround + LFE"};

const char *const CAc3Settings::kSpeakerNames[kSpeakers] = {"L", "C", "R", "SL", "SR", "LFE"};

namespace {
std::string trim(const std::string &text) {
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) {
        return std::string();
    }
    const size_t last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

// A number with nothing behind it, within [lo, hi].
bool number(const std::string &text, double lo, double hi, double &out) {
    if (text.empty()) {
        return false;
    }
    char *end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0' || !std::isfinite(value) || value < lo || value > hi) {
        return false;
    }
    out = value;
    return true;
}

int speakerIndex(const std::string &name) {
    for (int i = 0; i < CAc3Settings::kSpeakers; ++i) {
        if (name == CAc3Settings::kSpeakerNames[i]) {
            return i;
        }
    }
    return -1;
}
}  // namespace

CAc3Settings::CAc3Settings() {
    for (int i = 0; i < kSpeakers; ++i) {
        matrix[static_cast<size_t>(i)][static_cast<size_t>(i)] = 1.0;
    }
}

void CAc3Settings::Parse(const std::string &strText) {
    std::string group;
    size_t start = 0;
    while (start < strText.size()) {
        size_t end = strText.find('\n', start);
        if (end == std::string::npos) {
            end = strText.size();
        }
        std::string line = strText.substr(start, end - start);
        start = end + 1;
        const size_t comment = line.find_first_of(";#");
        line = trim(comment == std::string::npos ? line : line.substr(0, comment));
        if (line.empty()) {
            continue;
        }
        if (line.front() == '[') {
            const size_t close = line.find(']');
            const std::string section =
                close == std::string::npos ? std::string() : trim(line.substr(1, close - 1));
            const size_t slash = section.find('/');
            // Only the "_default" preset of each group is read.
            group = slash != std::string::npos && trim(section.substr(slash + 1)) == "_default"
                        ? trim(section.substr(0, slash))
                        : std::string();
            continue;
        }
        const size_t equals = line.find('=');
        if (group.empty() || equals == std::string::npos) {
            continue;
        }
        const std::string key = trim(line.substr(0, equals));
        const std::string text = trim(line.substr(equals + 1));
        double v = 0.0;
        if (group == "preset") {
            if (key == "mode" && number(text, 0, kAc3OutputModeCount - 1, v)) {
                iMode = static_cast<int>(v);
            } else if (key == "format" && number(text, 0, 4, v) && v != 1 && v == std::floor(v)) {
                iFormat = static_cast<int>(v);
            } else if (key == "master" && number(text, 0.0, 100.0, v)) {
                dMaster = v;
            } else if (key == "lfelev" && number(text, 0.0, 100.0, v)) {
                dLfeLevel = v;
            } else if (key == "dynrng" && number(text, 0, 1, v)) {
                bDynamicRange = v != 0.0;
            } else if (key == "normalize" && number(text, 0, 1, v)) {
                bNormalize = v != 0.0;
            } else if (key == "matrix" && number(text, 0, 1, v)) {
                iMatrixOn = static_cast<int>(v);
            } else if (key == "delay_on" && number(text, 0, 1, v)) {
                iDelayOn = static_cast<int>(v);
            } else if (key == "eq_on" && number(text, 0, 1, v)) {
                iEqualizerOn = static_cast<int>(v);
            }
        } else if (group == "matrix") {
            const size_t under = key.find('_');
            const int out = under == std::string::npos ? -1 : speakerIndex(key.substr(0, under));
            const int in = under == std::string::npos ? -1 : speakerIndex(key.substr(under + 1));
            if (out >= 0 && in >= 0 && number(text, -100.0, 100.0, v)) {
                matrix[static_cast<size_t>(out)][static_cast<size_t>(in)] = v;
            }
        } else if (group == "delay") {
            const int speaker = speakerIndex(key);
            if (speaker >= 0 && number(text, 0.0, 1000.0, v)) {
                delayMs[static_cast<size_t>(speaker)] = v;
            }
        } else if (group == "equalizer") {
            if (key.size() == 5 && key.compare(0, 4, "eq9_") == 0 && key[4] >= '0' &&
                key[4] <= '8' && number(text, -60.0, 60.0, v)) {
                equalizerDb[static_cast<size_t>(key[4] - '0')] = v;
            }
        }
    }
}

bool CAc3Settings::Load(const std::string &strPath) {
    std::ifstream in(strPath, std::ios::binary);
    if (!in) {
        return false;
    }
    std::vector<char> bytes(kMaxFileBytes);
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    Parse(std::string(bytes.data(), static_cast<size_t>(in.gcount())));
    return true;
}

std::string CAc3Settings::DefaultPath() {
    return qk::JoinPath(qk::SettingsFolder(), "ac3.ini");
}
