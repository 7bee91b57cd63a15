#include "sources/CSOURCE_GAUSS.h"

#include <cmath>

QK_IMPLEMENT_SERIAL(CSOURCE_GAUSS)

std::atomic<unsigned int> CSOURCE_GAUSS::s_uiGaussSeed{1973};

void CSOURCE_GAUSS::Serialize(qk::CArchive &) {}

int CSOURCE_GAUSS::_process_1P(void *, int iLength, int iBits, int iChannels, int) {
    m_iSource_Channels = 1;
    // Blocks beyond the buffer, or formats that describe no block, are refused.
    if (iLength < 1 || iLength > m_iBufferLength || iChannels < 1 || iChannels > 8 || iBits < 1 ||
        iBits > 32) {
        return -1;
    }
    if (m_pfData == nullptr || m_pfData.size() < m_iBufferLength * iChannels) {
        m_pfData.Allocate(m_iBufferLength * iChannels);
    }
    const float peak = static_cast<float>(std::ldexp(1.0, iBits - 1) * 0.98);
    unsigned int seed = s_uiGaussSeed.load(std::memory_order_relaxed) + 1;
    for (int k = 0; k < iChannels; ++k) {
        float *block = m_pfData + k * iLength;
        ippsRandGauss_Direct_32f(block, iLength, 5.0f, 1.0f, &seed);
        float maximum = 0.0f;
        ippsMax_32f(block, iLength, &maximum);
        const float scale = maximum != 0.0f ? peak / maximum : 0.0f;
        for (int i = 0; i < iLength; ++i) {
            block[i] *= scale;
        }
    }
    s_uiGaussSeed.store(seed, std::memory_order_relaxed);
    return 0;
}
