// A file source for RIFF WAVE files, PCM of 8 or 16 bits in one or two channels. The engine makes
// one for a file name whose last three characters name the kind; decoding joins with the decoder of
// this kind.
#pragma once

#include "sources/CSOURCE_FILE.h"

class CSOURCE_WAVE : public CSOURCE_FILE {
    QK_DECLARE_SERIAL(CSOURCE_WAVE)

  public:
    CSOURCE_WAVE();

    void Serialize(qk::CArchive &ar) override;
};
