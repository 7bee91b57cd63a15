#include "binaural/CSERVICE.h"

QK_IMPLEMENT_SERIAL(CSERVICE)

void CSERVICE::Serialize(qk::CArchive &ar) {
    CSSS::Serialize(ar);
    if (ar.IsStoring()) {
        ar << 1.0f;
    } else {
        float fVersion = 0.0f;
        ar >> fVersion;
    }
}
