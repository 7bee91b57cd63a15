// A file source for MP3 files. The engine makes one for a file name whose last three
// characters name the kind; decoding joins with the decoder of this kind.
#pragma once

#include "sources/CSOURCE_FILE.h"

class CSOURCE_MP3 : public CSOURCE_FILE {
    QK_DECLARE_SERIAL(CSOURCE_MP3)

  public:
    CSOURCE_MP3();

    void Serialize(qk::CArchive &ar) override;
};
