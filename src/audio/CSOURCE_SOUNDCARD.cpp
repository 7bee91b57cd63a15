#include "audio/CSOURCE_SOUNDCARD.h"

#include <algorithm>

#include "platform/Report.h"

QK_IMPLEMENT_SERIAL(CSOURCE_SOUNDCARD)

namespace {
constexpr int kChannels = 2;
constexpr int kBits = 16;
constexpr int kSampleRate = 44100;
}  // namespace

CSOURCE_SOUNDCARD::CSOURCE_SOUNDCARD() {
    m_Capture.CreateThread(false);
}

CSOURCE_SOUNDCARD::~CSOURCE_SOUNDCARD() {
    m_Capture.TerminateSoundCapture();
    m_Capture.EndThread();
}

void CSOURCE_SOUNDCARD::Serialize(qk::CArchive &ar) {
    CSOURCE::Serialize(ar);
    qk::SerializeVersion(ar);
}

int CSOURCE_SOUNDCARD::_init(int, int) {
    std::string error;
    if (m_Capture.InitializeSoundCapture(-1, 0, 0, 0, 1152, 4, kChannels, kBits, kSampleRate,
                                         error) == 0) {
        // Every run tries again; the same failure is told once.
        if (m_strReported != error) {
            m_strReported = error;
            qk::Report("No capture device (" + error + "): the sound card input is silent.",
                       "Quendarik", qk::Severity::Warning);
        }
    } else {
        m_strReported.clear();
    }
    m_iSource_Channels = kChannels;
    m_iSource_Bits = kBits;
    m_iSource_SampleRate = kSampleRate;
    return 0;
}

int CSOURCE_SOUNDCARD::_process_1P(void *, int iLength, int, int iChannels, int) {
    if (m_pfData == nullptr) {
        // Zeroed, so that a block the device doesn't fill is silence; room for the two
        // captured planes whatever the engine's channel count.
        m_pfData.AllocateZeroed(m_iBufferLength * std::max(iChannels, kChannels));
    }
    if (iLength >= 1 && iLength <= m_iBufferLength) {
        m_Capture.GetNextSamplesSoundCapture(m_pfData, iLength, 0);
    }
    return 0;
}

int CSOURCE_SOUNDCARD::_quit() {
    m_pfData.Reset();
    m_Capture.TerminateSoundCapture();
    return 0;
}
