// The base of the services: a CSSS that adds its own version to the archive.
#pragma once

#include "core/CSSS.h"

class CSERVICE : public CSSS {
    QK_DECLARE_SERIAL(CSERVICE)

  public:
    // The base data, then a version float: 1.0 when storing, read and ignored when loading.
    void Serialize(qk::CArchive &ar) override;
};
