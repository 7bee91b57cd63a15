#include "core/CSERVICE.h"

QK_IMPLEMENT_SERIAL(CSERVICE)

void CSERVICE::Serialize(qk::CArchive &ar) {
    CSSS::Serialize(ar);
    qk::SerializeVersion(ar);
}
