#include "sources/CSOURCE_MP3.h"

QK_IMPLEMENT_SERIAL(CSOURCE_MP3)

CSOURCE_MP3::CSOURCE_MP3() {
    m_iInitialized = 0;
    m_iStarted = 0;
}

void CSOURCE_MP3::Serialize(qk::CArchive &ar) {
    CSOURCE_FILE::Serialize(ar);
    qk::SerializeVersion(ar);
}
