#include "field/CSFM_PCIRS.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "dsp/IppBuffer.h"
#include "dsp/ipps.h"
#include "platform/Report.h"
#include "sources/WaveFile.h"

QK_IMPLEMENT_SERIAL(CSFM_PCIRS)

namespace {
constexpr int kFields = 14;
constexpr float kCentimetres = 100.0f;
constexpr float kRadius = 0.5f;  // metres: a record this near the listener is taken

// Whole numbers as atoi reads them, with a value beyond an int held at its limit.
int wholeField(const std::string &text) {
    const long value = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

float metresField(const std::string &text) {
    return static_cast<float>(std::atof(text.c_str()) / kCentimetres);
}

// ".wav" in any case.
bool waveName(const std::string &name) {
    if (name.size() <= 4) {
        return false;
    }
    const char *ext = ".wav";
    for (size_t i = 0; i < 4; ++i) {
        const char c = name[name.size() - 4 + i];
        if (std::tolower(static_cast<unsigned char>(c)) != ext[i]) {
            return false;
        }
    }
    return true;
}
}  // namespace

int CSFM_PCIRS::init(const std::string &strDirectory) {
    m_sDirectory = strDirectory;
    std::error_code error;
    int unreadable = 0;
    std::string first;
    for (std::filesystem::directory_iterator it(strDirectory, error), end; !error && it != end;
         it.increment(error)) {
        const std::string name = it->path().filename().string();
        if (!waveName(name)) {
            continue;
        }
        // An entry whose status can't be had (a link to nothing) is passed over, not the end.
        std::error_code status;
        if (it->is_regular_file(status)) {
            GetPositions(name.substr(0, name.size() - 4));
        } else if (status) {
            if (unreadable++ == 0) {
                first = name;
            }
        }
    }
    if (unreadable > 0) {
        qk::Report("The pre-computed set in " + strDirectory + " leaves out " +
                       std::to_string(unreadable) + " file(s) that can't be read, such as " +
                       first + ".",
                   "Quendarik", qk::Severity::Warning);
    }
    GetNumberOf3DSources();
    return 0;
}

// Each '_' closes a field, and so does the name's last character, which is not taken into
// the field: the last field loses its last digit, and with it a tenth of its value. Sets are
// named for that, and it stays. Fields that a name doesn't have stay 0.
void CSFM_PCIRS::GetPositions(const std::string &strName) {
    CPCIR record;
    record.m_sFileName = strName;
    float values[kFields + 1] = {};
    int field = 0;
    std::string text;
    for (size_t i = 0; i < strName.size(); ++i) {
        const char c = strName[i];
        if (c != '_' && i + 1 != strName.size()) {
            text += c;
            continue;
        }
        ++field;
        if (field == 1) {
            record.m_iListenerID = wholeField(text);
        } else if (field == 8) {
            record.m_iSourceID = wholeField(text);
        } else if (field <= kFields) {
            values[field] = metresField(text);
        }
        text.clear();
    }
    record.m_ListenerPos = C3Point(values[2], values[3], values[4], 0);
    record.m_ListenerLookAt = C3Point(values[5], values[6], values[7], 0);
    record.m_SourcePos = C3Point(values[9], values[10], values[11], 0);
    record.m_SourceLookAt = C3Point(values[12], values[13], values[14], 0);
    if (m_bLoadSamples == 1) {
        record.m_sFileName = m_sDirectory + "/" + strName + ".wav";
        LoadSamples(record);
    }
    m_Positions.push_back(std::move(record));
}

// A file that can't be read leaves the record without samples. 8-bit samples keep their
// offset of 128, as the files were always read.
void CSFM_PCIRS::LoadSamples(CPCIR &record) {
    HMMIO hmmio = nullptr;
    WAVEFORMATEX *format = nullptr;
    MMCKINFO riff{};
    MMCKINFO data{};
    if (WaveOpenFile(record.m_sFileName.c_str(), &hmmio, &format, &riff) != 0) {
        return;
    }
    const int channels = format->nChannels;
    const int bits = format->wBitsPerSample;
    const int align = format->nBlockAlign;
    if ((bits != 8 && bits != 16) || channels < 1 || align != channels * bits / 8 ||
        WaveStartDataRead(&hmmio, &data, &riff) != 0 ||
        data.cksize / static_cast<uint32_t>(align) > static_cast<uint32_t>(kMaxFrames)) {
        WaveCloseReadFile(&hmmio, &format);
        return;
    }
    std::vector<uint8_t> bytes(data.cksize);
    uint32_t got = 0;
    const bool ok = WaveReadFile(hmmio, data.cksize, bytes.data(), &data, &got) == 0;
    WaveCloseReadFile(&hmmio, &format);
    if (!ok) {
        return;
    }
    const int n = static_cast<int>(got / static_cast<uint32_t>(align));
    const float scale = 1.0f / static_cast<float>(1 << (bits - 1));
    record.m_iChannels = channels;
    record.m_iBits = bits;
    record.m_iSamples = n;
    record.m_pfSamples.assign(static_cast<size_t>(n) * static_cast<size_t>(channels), 0.0f);
    for (int i = 0; i < n; ++i) {
        for (int k = 0; k < channels; ++k) {
            const uint8_t *p = bytes.data() + static_cast<size_t>(i) * align + k * bits / 8;
            const float v = bits == 8 ? static_cast<float>(p[0])
                                      : static_cast<float>(static_cast<int16_t>(p[0] | p[1] << 8));
            record.m_pfSamples[static_cast<size_t>(k) * n + i] = v * scale;
        }
    }
}

int CSFM_PCIRS::GetNumberOf3DSources() {
    // Records of one source keep no particular order among themselves, as they never did.
    std::sort(m_Positions.begin(), m_Positions.end(),
              [](const CPCIR &a, const CPCIR &b) { return a.m_iSourceID < b.m_iSourceID; });
    if (m_Positions.empty()) {
        return 0;
    }
    int count = 1;
    for (size_t i = 1; i < m_Positions.size(); ++i) {
        count += m_Positions[i].m_iSourceID != m_Positions[i - 1].m_iSourceID ? 1 : 0;
    }
    return count;
}

int CSFM_PCIRS::GetBIR(float *&pfLeft, float *&pfRight, int &iLength, C3Point sourcePos, C3Point,
                       C3Point listenerPos, C3Point, int, int iSourceID) {
    if (m_Positions.empty()) {
        return -1;
    }
    // No match leaves the last record: there is always some response.
    const CPCIR *chosen = &m_Positions.back();
    for (const CPCIR &record : m_Positions) {
        if (record.m_iSourceID == iSourceID &&
            GetDistance(record.m_ListenerPos, listenerPos) < kRadius) {
            chosen = &record;
            break;
        }
    }
    FreeIppArray(pfLeft);
    FreeIppArray(pfRight);
    const int n = chosen->m_iSamples;
    iLength = n;
    if (n < 1) {
        return 0;
    }
    pfLeft = ippsMalloc_32f(n);
    pfRight = ippsMalloc_32f(n);
    ippsZero_32f(pfRight, n);
    const std::vector<float> &samples = chosen->m_pfSamples;
    std::copy_n(samples.begin(), n, pfLeft);
    if (samples.size() >= 2 * static_cast<size_t>(n)) {
        std::copy_n(samples.begin() + n, n, pfRight);
    }
    const float d = GetDistance(listenerPos, sourcePos);
    if (m_bDistanceGain == 1 && d > 1.0f) {
        const double dB = -20.0 * std::log10(static_cast<double>(d));
        const auto gain = static_cast<float>(std::pow(10.0, dB / 20.0));
        ippsMulC_32f_I(gain, pfLeft, n);
        ippsMulC_32f_I(gain, pfRight, n);
    }
    return 0;
}
