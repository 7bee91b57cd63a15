#include "world/C2Point.h"

#include "platform/Archive.h"

QK_IMPLEMENT_SERIAL(C2Point)

void C2Point::Serialize(qk::CArchive &ar) {
    qk::CObject::Serialize(ar);
    if (ar.IsStoring()) {
        ar << 1.0f;
    } else {
        float fVersion = 0.0f;
        ar >> fVersion;
    }
}
