#include "sources/CSOURCE_AC3.h"

QK_IMPLEMENT_SERIAL(CSOURCE_AC3)

CSOURCE_AC3::CSOURCE_AC3() {
    m_iInitialized = 0;
    m_iStarted = 0;
}

void CSOURCE_AC3::Serialize(qk::CArchive &ar) {
    CSOURCE_FILE::Serialize(ar);
    qk::SerializeVersion(ar);
}
