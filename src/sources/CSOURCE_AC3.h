// A file source for AC-3 streams. The engine makes one for a file name whose last three
// characters name the kind; decoding joins with the decoder of this kind.
#pragma once

#include "sources/CSOURCE_FILE.h"

class CSOURCE_AC3 : public CSOURCE_FILE {
    QK_DECLARE_SERIAL(CSOURCE_AC3)

  public:
    CSOURCE_AC3();

    void Serialize(qk::CArchive &ar) override;
};
