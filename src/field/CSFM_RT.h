// The place kept for a ray-tracing model beside the image model. It walks the directions of
// a sphere around the source and the world's planes without tracing anything, and gives no
// impulse response: its response calls are the base's and fail.
#pragma once

#include "field/CSFM.h"
#include "world/CVRPoint.h"

class CSFM_RT : public CSFM {
    QK_DECLARE_SERIAL(CSFM_RT)

  public:
    CSFM_RT() = default;
    explicit CSFM_RT(CDSC_World *pWorld) : CSFM(pWorld) {}

    // -1 without a world (the points stay), else 0 after the walk.
    int CalculateRays(C3Point source, C3Point listener);

    CVRPoint m_Source;
    CVRPoint m_Listener;
};
