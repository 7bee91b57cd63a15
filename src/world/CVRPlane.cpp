#include "world/CVRPlane.h"

#include "platform/Archive.h"
#include "world/StringList.h"

QK_IMPLEMENT_SERIAL(CVRPlane)

CVRPlane::CVRPlane(const CVRPlane &other) : CPolygon(other) {
    CopyFields(other);
}

CVRPlane &CVRPlane::operator=(const CVRPlane &other) {
    if (this != &other) {
        CPolygon::operator=(other);
        CopyFields(other);
    }
    return *this;
}

void CVRPlane::CopyFields(const CVRPlane &other) {
    m_Material = other.m_Material;
    m_iID = other.m_iID;
    m_iVisible = other.m_iVisible;
    m_strDescription = other.m_strDescription;
    m_strName = other.m_strName;
    m_strPointIDs = other.m_strPointIDs;
    m_strImage = other.m_strImage;
    m_strMaterial = other.m_strMaterial;
    m_fMinX = other.m_fMinX;
    m_fMinY = other.m_fMinY;
    m_fMinZ = other.m_fMinZ;
    m_fMaxX = other.m_fMaxX;
    m_fMaxY = other.m_fMaxY;
    m_fMaxZ = other.m_fMaxZ;
    m_fColorR = other.m_fColorR;
    m_fColorG = other.m_fColorG;
    m_fColorB = other.m_fColorB;
    m_iReserved1 = other.m_iReserved1;
    m_iReserved2 = other.m_iReserved2;
}

void CVRPlane::Serialize(qk::CArchive &ar) {
    CPolygon::Serialize(ar);
    SerializeStringList(ar, m_PointIDs);
    if (ar.IsStoring()) {
        ar << 1.0f << static_cast<int32_t>(m_iID) << m_strName << m_strDescription
           << static_cast<int32_t>(m_iVisible) << m_strPointIDs << m_strImage << m_strMaterial;
    } else {
        float fVersion = 0.0f;
        int32_t iID = 0;
        int32_t iVisible = 0;
        ar >> fVersion >> iID >> m_strName >> m_strDescription >> iVisible >> m_strPointIDs >>
            m_strImage >> m_strMaterial;
        m_iID = iID;
        m_iVisible = iVisible;
    }
}
