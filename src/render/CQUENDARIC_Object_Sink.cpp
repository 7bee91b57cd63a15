#include "render/CQUENDARIC_Object_Sink.h"

QK_IMPLEMENT_SERIAL(CQUENDARIC_Object_Sink)

CQUENDARIC_Object_Sink::CQUENDARIC_Object_Sink() {
    m_lookAt = C3Point(0.0, 1.0, 0.0, 0);
}

void CQUENDARIC_Object_Sink::Serialize(qk::CArchive &ar) {
    CQUENDARIC_Object::Serialize(ar);
}
