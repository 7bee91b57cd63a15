#include "sources/CFileResampler.h"

#include <samplerate.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace {
// The files a source reads are at most this many times faster or slower than the engine.
constexpr int kMaxRateRatio = 16;
}  // namespace

CFileResampler::~CFileResampler() {
    Stop();
}

void CFileResampler::Stop() {
    if (m_pState != nullptr) {
        src_delete(m_pState);
        m_pState = nullptr;
    }
    m_iRead = m_iWritten = 0;
}

bool CFileResampler::Matches(int iChannels, int iInRate, int iOutRate) const {
    return m_pState != nullptr && iChannels == m_iChannels && iInRate == m_iInRate &&
           iOutRate == m_iOutRate;
}

bool CFileResampler::Start(int iChannels, int iInRate, int iOutRate, int iMaxBlock) {
    Stop();
    if (iChannels < 1 || iChannels > 2 || iInRate < 1 || iOutRate < 1 || iMaxBlock < 1 ||
        iInRate > kMaxRateRatio * iOutRate || iOutRate > kMaxRateRatio * iInRate) {
        return false;
    }
    int error = 0;
    // Medium quality: far below audibility (its stop band is over 120 dB down) at a few
    // per cent of a core for a stereo file.
    m_pState = src_new(SRC_SINC_MEDIUM_QUALITY, iChannels, &error);
    if (m_pState == nullptr) {
        return false;
    }
    m_iChannels = iChannels;
    m_iInRate = iInRate;
    m_iOutRate = iOutRate;
    m_dRatio = static_cast<double>(iOutRate) / iInRate;
    // Made once: a chunk for the largest block, and room for a block waiting plus the output
    // of one more chunk.
    const int chunk = ChunkFor(iMaxBlock);
    m_in.assign(static_cast<size_t>(chunk) * iChannels, 0.0f);
    const int outFrames = 2 * iMaxBlock + static_cast<int>(std::ceil(chunk * m_dRatio)) + 64;
    m_out.assign(static_cast<size_t>(outFrames) * iChannels, 0.0f);
    return true;
}

int CFileResampler::ChunkFor(int iOutFrames) const {
    return std::max(1, static_cast<int>(std::ceil(iOutFrames / m_dRatio)));
}

void CFileResampler::Push(const float *pfIn, int iFrames, int iStride) {
    if (m_pState == nullptr || iFrames < 1) {
        return;
    }
    iFrames = std::min(iFrames, static_cast<int>(m_in.size()) / m_iChannels);
    for (int k = 0; k < m_iChannels; ++k) {
        const float *from = pfIn + static_cast<ptrdiff_t>(k) * iStride;
        for (int i = 0; i < iFrames; ++i) {
            m_in[static_cast<size_t>(i * m_iChannels + k)] = from[i];
        }
    }
    // What was taken moves to the front; then the chunk's output goes behind what waits.
    if (m_iRead > 0) {
        std::memmove(m_out.data(), m_out.data() + m_iRead,
                     sizeof(float) * static_cast<size_t>(m_iWritten - m_iRead));
        m_iWritten -= m_iRead;
        m_iRead = 0;
    }
    SRC_DATA data{};
    data.data_in = m_in.data();
    data.input_frames = iFrames;
    data.src_ratio = m_dRatio;
    data.end_of_input = 0;
    while (data.input_frames > 0) {
        const long room =
            static_cast<long>(m_out.size() - static_cast<size_t>(m_iWritten)) / m_iChannels;
        if (room < 1) {
            break;  // more than a block waits already: the rest of the chunk is dropped
        }
        data.data_out = m_out.data() + m_iWritten;
        data.output_frames = room;
        if (src_process(m_pState, &data) != 0) {
            break;
        }
        m_iWritten += static_cast<int>(data.output_frames_gen) * m_iChannels;
        data.data_in += data.input_frames_used * m_iChannels;
        data.input_frames -= data.input_frames_used;
        if (data.input_frames_used == 0 && data.output_frames_gen == 0) {
            break;
        }
    }
}

void CFileResampler::Pull(float *pfOut, int iFrames, int iStride) {
    const int frames = std::min(iFrames, Available());
    for (int k = 0; k < m_iChannels; ++k) {
        float *to = pfOut + static_cast<ptrdiff_t>(k) * iStride;
        for (int i = 0; i < frames; ++i) {
            to[i] = m_out[static_cast<size_t>(m_iRead + i * m_iChannels + k)];
        }
    }
    m_iRead += frames * m_iChannels;
}
