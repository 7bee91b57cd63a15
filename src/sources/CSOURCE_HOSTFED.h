// The sources a host plug-in shell pushes its samples into, one class per layout a host kind
// hands its plug-ins. Each takes the block on the host's thread and keeps the sample scale
// as given (16-bit integers stay in the integer scale). The host follows each push with the
// rendering call for that block.
#pragma once

#include "sources/CSOURCE.h"

// Signed 16-bit samples interleaved by frame. The buffer grows to what the block needs.
class CSOURCE_WINAMP : public CSOURCE {
    QK_DECLARE_SERIAL(CSOURCE_WINAMP)

  public:
    void Serialize(qk::CArchive &ar) override;
    int _process_1P(void *pData, int iLength, int iBits, int iChannels, int iSampleRate) override;
};

// Floats interleaved by frame.
class CSOURCE_DXi2 : public CSOURCE {
    QK_DECLARE_SERIAL(CSOURCE_DXi2)

  public:
    void Serialize(qk::CArchive &ar) override;
    int _process_1P(void *pData, int iLength, int iBits, int iChannels, int iSampleRate) override;
};

// Planar floats, channel k at element k * iLength.
class CSOURCE_WMP : public CSOURCE {
    QK_DECLARE_SERIAL(CSOURCE_WMP)

  public:
    void Serialize(qk::CArchive &ar) override;
    int _process_1P(void *pData, int iLength, int iBits, int iChannels, int iSampleRate) override;
};

// One float block for each of exactly two channels, whatever iChannels says.
class CSOURCE_VST : public CSOURCE {
    QK_DECLARE_SERIAL(CSOURCE_VST)

  public:
    void Serialize(qk::CArchive &ar) override;
    int _process_2P(void **ppData, int iLength, int iBits, int iChannels, int iSampleRate) override;
};
