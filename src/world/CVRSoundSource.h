// A virtual source's entry in a world: the place a host may move it to through the world.
#pragma once

#include "platform/Object.h"
#include "world/C3Point.h"

class CVRSoundSource : public qk::CObject {
  public:
    const char *GetRuntimeClassName() const override { return "CVRSoundSource"; }

    // Nothing is made from expressions here; 0.
    int Generate() { return 0; }

    int m_iEnable = 1;
    C3Point m_position;  // metres
    C3Point m_lookAt;    // a point looked at, not a direction
};
