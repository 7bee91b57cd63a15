#include "render/BlockMath.h"

#include "platform/Vectorize.h"

namespace qk {

QK_VECTORIZE_WIDE void ScaleBlock(float *__restrict pf, int n, float fGain) {
    for (int i = 0; i < n; ++i) {
        pf[i] *= fGain;
    }
}

QK_VECTORIZE_WIDE void CopyScaled(const float *__restrict pfSrc, float *__restrict pfDst, int n,
                                  float fGain) {
    for (int i = 0; i < n; ++i) {
        pfDst[i] = pfSrc[i] * fGain;
    }
}

QK_VECTORIZE_WIDE void AddBlock(const float *__restrict pfSrc, float *__restrict pfDst, int n) {
    for (int i = 0; i < n; ++i) {
        pfDst[i] += pfSrc[i];
    }
}

}  // namespace qk
