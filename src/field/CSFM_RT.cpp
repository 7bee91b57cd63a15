#include "field/CSFM_RT.h"

#include "world/CDSC_World.h"

QK_IMPLEMENT_SERIAL(CSFM_RT)

int CSFM_RT::CalculateRays(C3Point source, C3Point listener) {
    if (m_pWorld == nullptr) {
        return -1;
    }
    m_Source.x = source.x;
    m_Source.y = source.y;
    m_Source.z = source.z;
    m_Listener.x = listener.x;
    m_Listener.y = listener.y;
    m_Listener.z = listener.z;
    // One ray end a degree apart, 0.1 m beyond the source's own radius; nothing is traced.
    for (int phi = 1; phi < 360; ++phi) {
        for (int theta = -90; theta < 90; ++theta) {
            const C3Point end(m_Source.r + 0.1, phi + m_Source.phi, theta + m_Source.theta, 1);
            (void)end;
        }
    }
    for (const CVRPlane *pPlane : m_pWorld->m_Planes) {
        (void)pPlane;
    }
    return 0;
}
