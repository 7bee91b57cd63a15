#include "render/CQUENDARIC_Object_Sink_Listener.h"

QK_IMPLEMENT_SERIAL(CQUENDARIC_Object_Sink_Listener)

CQUENDARIC_Object_Sink_Listener::CQUENDARIC_Object_Sink_Listener() {
    m_pParameters = nullptr;
    m_strDescription.clear();
    m_position = C3Point(0.0, 0.0, 0.0, 0);
    m_pDraw.reset();
}

CQUENDARIC_Object_Sink_Listener::CQUENDARIC_Object_Sink_Listener(CQUENDARIC_PARAMETERS *pParameters,
                                                                 C3Point position) {
    m_pParameters = pParameters;
    m_position = position;
}

void CQUENDARIC_Object_Sink_Listener::Serialize(qk::CArchive &ar) {
    CQUENDARIC_Object_Sink::Serialize(ar);
}
