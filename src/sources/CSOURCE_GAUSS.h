// Gaussian noise, the simplest real source: a large positive level with noise riding on it.
#pragma once

#include <atomic>

#include "sources/CSOURCE.h"

class CSOURCE_GAUSS : public CSOURCE {
    QK_DECLARE_SERIAL(CSOURCE_GAUSS)

  public:
    CSOURCE_GAUSS() = default;

    // Stores nothing: a noise source keeps no id and no enable flag in an archive.
    void Serialize(qk::CArchive &ar) override;

    // One mono block (m_iSource_Channels = 1) in each of iChannels planes: mean 5, deviation
    // 1, scaled so that each plane's largest sample is exactly 2^(iBits - 1) * 0.98.
    // Returns 0 although the block is full.
    int _process_1P(void *pData, int iLength, int iBits, int iChannels, int iSampleRate) override;

    // Shared by all noise sources, so the order of their calls changes their samples.
    static std::atomic<unsigned int> s_uiGaussSeed;
};
