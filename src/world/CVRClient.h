// A listener's entry in a world: where the host last put it and where it looks.
#pragma once

#include "platform/Object.h"
#include "world/C3Point.h"

class CVRClient : public qk::CObject {
  public:
    const char *GetRuntimeClassName() const override { return "CVRClient"; }

    // Nothing is made from expressions here; 0.
    int Generate() { return 0; }

    int m_iEnable = 1;
    C3Point m_position;  // metres
    C3Point m_lookAt;    // a point looked at, not a direction
};
