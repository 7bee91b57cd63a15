#include "render/CQUENDARIC_Object.h"

#include <cstring>
#include <vector>

#include "platform/Archive.h"

QK_IMPLEMENT_SERIAL(CQUENDARIC_Object)

int CQUENDARIC_Object::m_iObjectCounter = 0;

CQUENDARIC_Object::CQUENDARIC_Object() : m_iID(++m_iObjectCounter) {}

CQUENDARIC_Object::~CQUENDARIC_Object() = default;

void CQUENDARIC_Object::Serialize(qk::CArchive &ar) {
    if (ar.IsStoring()) {
        ar << 1.0f << m_strDescription << static_cast<int32_t>(m_iEnable)
           << static_cast<int32_t>(m_iID) << m_position.x << m_position.y << m_position.z
           << m_fAzimuth << m_fElevation << m_fDistance << m_fObjectLevel
           << static_cast<int32_t>(m_iObjectFlag);
        return;
    }
    float fVersion = 0.0f;
    std::string strDescription;
    int32_t iEnable = 0;
    int32_t iID = 0;
    float x = 0.0f, y = 0.0f, z = 0.0f;
    float fAzimuth = 0.0f, fElevation = 0.0f, fDistance = 0.0f, fLevel = 0.0f;
    int32_t iFlag = 0;
    ar >> fVersion >> strDescription >> iEnable >> iID >> x >> y >> z >> fAzimuth >> fElevation >>
        fDistance >> fLevel >> iFlag;
    // Everything is read before anything changes: a short archive leaves the object whole.
    m_strDescription = strDescription;
    m_iEnable = iEnable;
    m_iID = iID;
    m_position = C3Point(x, y, z, 0);
    m_fAzimuth = fAzimuth;
    m_fElevation = fElevation;
    m_fDistance = fDistance;
    m_fObjectLevel = fLevel;
    m_iObjectFlag = iFlag;
}

void CQUENDARIC_Object::Move(C3Point position) {
    m_position = position;
    m_iMoved = 1;
}

void CQUENDARIC_Object::Move(CSize size) {
    if (m_pDraw != nullptr) {
        m_pDraw->Move(size);
    }
    m_iMoved = 1;
}

void CQUENDARIC_Object::LookAt(C3Point lookAt) {
    m_lookAt = lookAt;
    m_iMoved = 1;
}

void CQUENDARIC_Object::Move_LookAt(C3Point position, C3Point lookAt) {
    if (position != m_position || lookAt != m_lookAt) {
        m_position = position;
        m_lookAt = lookAt;
        m_iMoved = 1;
    }
}

void CQUENDARIC_Object::SetDescription(const std::string &strDescription) {
    m_strDescription = strDescription;
    if (m_pDraw != nullptr) {
        m_pDraw->m_strDescription = strDescription;
    }
}

int CQUENDARIC_Object::_adjustDataBuffer(int iLength) {
    if (iLength < 1) {
        return 0;
    }
    if (m_pfData == nullptr) {
        m_pfData.AllocateZeroed(iLength);
        m_iDataLength = m_pfData.size();
    } else if (m_iDataLength < iLength) {
        std::vector<float> old(m_pfData.get(), m_pfData.get() + m_iDataLength);
        m_pfData.AllocateZeroed(iLength);
        std::memcpy(m_pfData.get(), old.data(), sizeof(float) * old.size());
        m_iDataLength = m_pfData.size();
    }
    return 0;
}
