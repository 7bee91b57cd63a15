// The 2-D companion of C3Point, used for screen projection only.
#pragma once

#include "platform/Object.h"

class C2Point : public qk::CObject {
    QK_DECLARE_SERIAL(C2Point)

  public:
    C2Point() = default;
    C2Point(float fx, float fy) : x(fx), y(fy) {}
    C2Point(const C2Point &other) : qk::CObject(), x(other.x), y(other.y) {}
    C2Point &operator=(const C2Point &other) {
        x = other.x;
        y = other.y;
        return *this;
    }

    // Archives only the object version: a point is made again from what describes it.
    void Serialize(qk::CArchive &ar) override;

    float x = 0.0f;  // horizontal
    float y = 0.0f;  // vertical
};
