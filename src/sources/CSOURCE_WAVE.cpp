#include "sources/CSOURCE_WAVE.h"

QK_IMPLEMENT_SERIAL(CSOURCE_WAVE)

CSOURCE_WAVE::CSOURCE_WAVE() {
    m_iInitialized = 0;
    m_iStarted = 0;
}

void CSOURCE_WAVE::Serialize(qk::CArchive &ar) {
    CSOURCE_FILE::Serialize(ar);
    if (ar.IsStoring()) {
        ar << 1.0f;
    } else {
        float version = 0.0f;
        ar >> version;
    }
}
