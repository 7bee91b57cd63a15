#include "world/C2Point.h"

#include "platform/Archive.h"

QK_IMPLEMENT_SERIAL(C2Point)

void C2Point::Serialize(qk::CArchive &ar) {
    qk::CObject::Serialize(ar);
    qk::SerializeVersion(ar);
}
