#include "sources/CSOURCE_HOSTFED.h"

#include <cstring>

QK_IMPLEMENT_SERIAL(CSOURCE_WINAMP)
QK_IMPLEMENT_SERIAL(CSOURCE_DXi2)
QK_IMPLEMENT_SERIAL(CSOURCE_WMP)
QK_IMPLEMENT_SERIAL(CSOURCE_VST)

namespace {
// Channels a host may push; more than any host kind gives a plug-in.
constexpr int kMaxChannels = 8;

void serializeVersion(CSOURCE &source, qk::CArchive &ar) {
    source.CSOURCE::Serialize(ar);
    qk::SerializeVersion(ar);
}

// The fixed buffer of the float sources: m_iBufferLength frames a channel, made once.
// False (nothing changes) when the block can't fit it.
bool fixedBufferReady(CSOURCE &source, int iLength, int iChannels) {
    if (iLength < 1 || iLength > source.m_iBufferLength || iChannels < 1 ||
        iChannels > kMaxChannels) {
        return false;
    }
    if (source.m_pfData == nullptr) {
        source.m_pfData.AllocateZeroed(source.m_iBufferLength * iChannels);
    }
    // A later block with more channels than the first gets no room of its own.
    return source.m_pfData.size() >= iLength * iChannels;
}

// Interleaved frames to the planar block, channel k from element k * iLength.
template <typename Sample>
void deinterleave(const Sample *pIn, float *pOut, int iLength, int iChannels) {
    for (int k = 0; k < iChannels; ++k) {
        float *plane = pOut + k * iLength;
        for (int n = 0; n < iLength; ++n) {
            plane[n] = static_cast<float>(pIn[iChannels * n + k]);
        }
    }
}

void splitIfAsked(CSOURCE &source, int iLength, int iSampleRate, int iChannels) {
    if (source.m_iBreak == 1) {
        source.ProcessBreak(iLength, iSampleRate, iChannels, 1000.0f, 1000.0f);
    }
}
}  // namespace

void CSOURCE_WINAMP::Serialize(qk::CArchive &ar) {
    serializeVersion(*this, ar);
}
void CSOURCE_DXi2::Serialize(qk::CArchive &ar) {
    serializeVersion(*this, ar);
}
void CSOURCE_WMP::Serialize(qk::CArchive &ar) {
    serializeVersion(*this, ar);
}
void CSOURCE_VST::Serialize(qk::CArchive &ar) {
    serializeVersion(*this, ar);
}

int CSOURCE_WINAMP::_process_1P(void *pData, int iLength, int, int iChannels, int iSampleRate) {
    if (pData == nullptr || iLength < 1 || iChannels < 1 || iChannels > kMaxChannels ||
        iLength > m_iBufferLength) {
        return -1;
    }
    m_iSource_Channels = iChannels;
    _adjustDataBuffer(iChannels * iLength);
    deinterleave(static_cast<const int16_t *>(pData), m_pfData, iLength, iChannels);
    splitIfAsked(*this, iLength, iSampleRate, iChannels);
    return iLength;
}

int CSOURCE_DXi2::_process_1P(void *pData, int iLength, int, int iChannels, int iSampleRate) {
    if (pData == nullptr || !fixedBufferReady(*this, iLength, iChannels)) {
        return -1;
    }
    m_iSource_Channels = iChannels;
    deinterleave(static_cast<const float *>(pData), m_pfData, iLength, iChannels);
    splitIfAsked(*this, iLength, iSampleRate, iChannels);
    return iLength;
}

int CSOURCE_WMP::_process_1P(void *pData, int iLength, int, int iChannels, int iSampleRate) {
    if (pData == nullptr || !fixedBufferReady(*this, iLength, iChannels)) {
        return -1;
    }
    m_iSource_Channels = iChannels;
    std::memcpy(m_pfData.get(), pData, sizeof(float) * static_cast<size_t>(iChannels * iLength));
    splitIfAsked(*this, iLength, iSampleRate, iChannels);
    return iLength;
}

int CSOURCE_VST::_process_2P(void **ppData, int iLength, int, int iChannels, int iSampleRate) {
    if (ppData == nullptr || ppData[0] == nullptr || ppData[1] == nullptr ||
        !fixedBufferReady(*this, iLength, iChannels < 2 ? 2 : iChannels)) {
        return -1;
    }
    m_iSource_Channels = iChannels;
    const size_t bytes = sizeof(float) * static_cast<size_t>(iLength);
    std::memcpy(m_pfData.get(), ppData[0], bytes);
    std::memcpy(m_pfData.get() + iLength, ppData[1], bytes);
    splitIfAsked(*this, iLength, iSampleRate, iChannels);
    return iLength;
}
