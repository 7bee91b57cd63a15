#include "sources/CSOURCE_AC3.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/Paths.h"

QK_IMPLEMENT_SERIAL(CSOURCE_AC3)

const CSOURCE_AC3::Format CSOURCE_AC3::kFormats[4] = {
    {0, "PCM 16bit", 32767.0, 16},
    {2, "PCM 24bit", 8388607.0, 24},
    {3, "PCM 32bit", 2147483647.0, 32},
    {4, "PCM Float", 1.0, 0},
};

namespace {
constexpr int kFrame = CAc3Stream::kBlockSamples;

const CSOURCE_AC3::Format &formatOf(int iNumber) {
    for (const CSOURCE_AC3::Format &format : CSOURCE_AC3::kFormats) {
        if (format.iNumber == iNumber) {
            return format;
        }
    }
    return CSOURCE_AC3::kFormats[0];
}
}  // namespace

AC3Speakers::AC3Speakers(int iCount) {
    // The first layout of that many channels, without a subwoofer.
    static const int kModes[7] = {1, 0, 1, 2, 5, 6, 13};
    iMode = kModes[iCount >= 1 && iCount <= 6 ? iCount : 2];
    iChannels = CAc3Stream::LayoutChannels(iMode);
}

AC3Speakers AC3Speakers::FromMode(int iMode) {
    AC3Speakers speakers;
    speakers.iMode = iMode >= 0 && iMode < kAc3OutputModeCount ? iMode : 1;
    speakers.iChannels = CAc3Stream::LayoutChannels(speakers.iMode);
    return speakers;
}

CSOURCE_AC3::CSOURCE_AC3() : m_pfSpill(6 * kFrame, 0.0f) {
    m_iInitialized = 0;
    m_iStarted = 0;
}

CSOURCE_AC3::~CSOURCE_AC3() = default;

void CSOURCE_AC3::Serialize(qk::CArchive &ar) {
    CSOURCE_FILE::Serialize(ar);
    qk::SerializeVersion(ar);
}

int CSOURCE_AC3::_init(int, int) {
    m_iInitialized = 1;
    m_iStarted = 0;
    m_iSpillCount = 0;
    m_iSpillStart = 0;
    m_iFramesPerBlock = 0;
    m_stream.Close();
    m_settings = CAc3Settings();
    m_settings.Load(CAc3Settings::DefaultPath());
    m_speakers = AC3Speakers::FromMode(m_settings.iMode);
    const Format &format = formatOf(m_settings.iFormat);
    m_iFormat = format.iNumber;
    m_dScale = format.dScale;
    m_iSource_Bits = format.iBits;
    int result = 0;
    if (!m_strFile.empty()) {
        if (!m_stream.OpenFile(m_strFile)) {
            Fail("no AC-3 frame found; the file can't be played");
            result = -1;
        } else {
            m_stream.Start(m_speakers.iMode, m_settings.dMaster, m_settings.bDynamicRange,
                           m_settings.dLfeLevel, m_settings.bNormalize);
            m_strReported.clear();
            m_iStarted = 1;
        }
    }
    m_iSource_Channels = m_speakers.iChannels;
    m_iSource_SampleRate = m_stream.GetInfo().iSampleRate;
    // Room for every channel at the widest stride a block can have.
    const int stride = m_iBufferLength + kFrame;
    if (m_pfData.size() < m_iSource_Channels * stride) {
        m_pfData.AllocateZeroed(m_iSource_Channels * stride);
    } else {
        std::memset(m_pfData.get(), 0, sizeof(float) * static_cast<size_t>(m_pfData.size()));
    }
    m_pbFrame.assign(static_cast<size_t>(m_iBufferLength) * 48, 0);
    return result;
}

void CSOURCE_AC3::fill_buf(unsigned char *pbOut, double const (*pFrame)[6][256],
                           AC3Speakers speakers, int iLength) {
    const int channels = speakers.iChannels;
    const int stride = kFrame * m_iFramesPerBlock;
    const int base = m_iSpillStart + m_iFrames * kFrame;
    const double scale = m_dScale;
    for (int pos = 0; pos < kFrame; ++pos) {
        for (int c = 0; c < channels; ++c) {
            const double value = (*pFrame)[c][pos] * scale;
            double kept = value;
            unsigned char *out = pbOut + (static_cast<size_t>(pos) * channels + c) * 4;
            if (m_iFormat == 4) {
                const float f = static_cast<float>(value);
                std::memcpy(out, &f, sizeof f);
            } else {
                // Truncated toward zero, within full scale.
                const double clamped = std::max(-scale, std::min(scale, value));
                const int32_t whole = static_cast<int32_t>(std::isfinite(clamped) ? clamped : 0.0);
                kept = whole;
                const int bytes = m_iSource_Bits / 8;
                out = pbOut + (static_cast<size_t>(pos) * channels + c) * bytes;
                for (int b = 0; b < bytes; ++b) {
                    out[b] = static_cast<unsigned char>((static_cast<uint32_t>(whole) >> (8 * b)) &
                                                        0xFF);
                }
            }
            const int at = base + pos;
            if (at < iLength) {
                m_pfData[c * stride + at] = static_cast<float>(kept);
            } else {
                m_pfSpill[static_cast<size_t>(c * kFrame + (at - iLength))] =
                    static_cast<float>(kept);
            }
        }
        if (base + pos >= iLength) {
            ++m_iSpillCount;
        }
    }
}

int CSOURCE_AC3::_process_1P(void *, int iLength, int, int, int iSampleRate) {
    if (m_iEnable == 0) {
        return 0;
    }
    if (TakeRequest() || m_iInitialized == 0) {
        _init(iLength, iSampleRate);
    }
    if (iLength < 1 || iLength > m_iBufferLength) {
        return -1;
    }
    const int waiting = m_iSpillCount;
    m_iFramesPerBlock = std::max(0, (iLength - waiting + kFrame - 1) / kFrame);
    const int stride = kFrame * m_iFramesPerBlock;
    const int channels = m_speakers.iChannels;
    for (int c = 0; c < channels && waiting > 0; ++c) {
        std::memcpy(m_pfData + c * stride, m_pfSpill.data() + c * kFrame,
                    sizeof(float) * static_cast<size_t>(std::min(waiting, iLength)));
    }
    // Spilled samples beyond this block (a block shorter than what waits) stay waiting.
    if (waiting > iLength) {
        for (int c = 0; c < channels; ++c) {
            float *spill = m_pfSpill.data() + c * kFrame;
            std::memmove(spill, spill + iLength, sizeof(float) * (waiting - iLength));
        }
        m_iSpillCount = waiting - iLength;
        return iLength;
    }
    m_iSpillStart = waiting;
    m_iSpillCount = 0;
    if (m_iStarted == 1) {
        CAc3Stream::Block frame;
        for (m_iFrames = 0; m_iFrames < m_iFramesPerBlock; ++m_iFrames) {
            if (!m_stream.Next(frame)) {
                break;  // the end: the rest keeps its old samples, unless ends are exact
            }
            fill_buf(m_pbFrame.data(), &frame, m_speakers, iLength);
        }
    }
    // Without a file the block stays as _init zeroed it; an ended stream fills it no further.
    if (m_iExactEnd != 0 && m_iStarted == 1 && m_iFrames < m_iFramesPerBlock) {
        SilenceFrom(m_iSpillStart + m_iFrames * kFrame, iLength);
    }
    return iLength;
}

void CSOURCE_AC3::SilenceFrom(int iFrom, int iLength) {
    // The places fill_buf writes a block's samples to: channel c's sample at c x stride + at.
    const int stride = kFrame * m_iFramesPerBlock;
    for (int c = 0; c < m_speakers.iChannels; ++c) {
        for (int at = std::max(iFrom, 0); at < iLength; ++at) {
            const int index = c * stride + at;
            if (index < m_pfData.size()) {
                m_pfData[index] = 0.0f;
            }
        }
    }
}

int CSOURCE_AC3::_quit() {
    m_iInitialized = 0;
    m_iStarted = 0;
    m_pfData.Reset();
    m_stream.Close();
    m_iSpillCount = 0;
    return 0;
}

int CSOURCE_AC3::StepFordward(int) {
    return 0;
}

int CSOURCE_AC3::StepBackwards(int) {
    return 0;
}

int CSOURCE_AC3::CheckFileName(const std::string &) {
    return 0;
}

void CSOURCE_AC3::GetFileInfo(char *pcPath, char *pcTitle, int *piLength) {
    const std::string path = pcPath != nullptr && *pcPath != '\0' ? pcPath : m_strFile;
    long frames = 0;
    int rate = 0;
    long ms = 0;
    if (CAc3Stream::Scan(path, frames, rate) && rate > 0) {
        ms = static_cast<long>(static_cast<long long>(frames) * 1536 * 1000 / rate);
    }
    if (pcTitle != nullptr) {
        const std::string name = qk::FileNamePart(path);
        const size_t count = std::min(name.size(), static_cast<size_t>(kInfoTextLength - 1));
        std::memcpy(pcTitle, name.data(), count);
        pcTitle[count] = '\0';
    }
    if (piLength != nullptr) {
        *piLength = static_cast<int>(std::min<long>(ms, 0x7FFFFFFF));
    }
}
