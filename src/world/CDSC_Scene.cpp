#include "world/CDSC_Scene.h"

#include "platform/Paths.h"
#include "world/CDSC_World.h"

QK_IMPLEMENT_SERIAL(CDSC_Scene)

namespace {
constexpr size_t kTextReserve = 256;
}  // namespace

CDSC_Scene::CDSC_Scene() {
    m_strName.reserve(kTextReserve);
    m_strDescription.reserve(kTextReserve);
    m_strFolder.reserve(kTextReserve);
}

CDSC_Scene::CDSC_Scene(CDSC_World *pWorld, const std::string &strPath,
                       const std::string &strDescription, int iMain)
    : m_pWorld(pWorld), m_strName(strPath), m_strDescription(strDescription), m_iMain(iMain) {
    if (qk::IsAbsolutePath(strPath)) {
        m_strFolder = qk::FolderPart(strPath);
        m_strName = qk::FileNamePart(strPath);
    }
    m_strName.reserve(kTextReserve);
    m_strDescription.reserve(kTextReserve);
    m_strFolder.reserve(kTextReserve);
}

CDSC_Scene::CDSC_Scene(const CDSC_Scene &other) : qk::CObject() {
    CopyFields(other);
}

CDSC_Scene &CDSC_Scene::operator=(const CDSC_Scene &other) {
    if (this != &other) {
        CopyFields(other);
    }
    return *this;
}

void CDSC_Scene::CopyFields(const CDSC_Scene &other) {
    m_pWorld = other.m_pWorld;
    m_Includes = other.m_Includes;
    m_strName = other.m_strName;
    m_strDescription = other.m_strDescription;
    m_iMain = other.m_iMain;
    m_strFolder = other.m_strFolder;
    for (int i = 0; i < 3; ++i) {
        m_fScale[i] = other.m_fScale[i];
    }
    m_iObject = other.m_iObject;
    m_iMirror = other.m_iMirror;
    m_iOffsetCorners = other.m_iOffsetCorners;
    m_iOffsetPlanes = other.m_iOffsetPlanes;
    m_iOffsetCornersBy = other.m_iOffsetCornersBy;
    m_iOffsetPlanesBy = other.m_iOffsetPlanesBy;
    m_iMirrorCorners = other.m_iMirrorCorners;
    m_iMirrorPlanes = other.m_iMirrorPlanes;
    m_iFromBack = other.m_iFromBack;
    m_Normal = other.m_Normal;
}

void CDSC_Scene::Clear() {
    m_Points.clear();
    m_Includes.clear();
    m_Planes.clear();
}

int CDSC_Scene::InsertPoint(CVRPoint *pPoint) {
    if (pPoint != nullptr) {
        m_Points.emplace_back(pPoint);
    }
    return 0;
}

int CDSC_Scene::InsertPoint(int iID, const std::string &strX, const std::string &strY,
                            const std::string &strZ) {
    m_Points.push_back(std::make_unique<CVRPoint>(m_pWorld, this, iID, strX, strY, strZ));
    return 0;
}

int CDSC_Scene::InsertPoint(int iID, const std::string &strFunction) {
    m_Points.push_back(std::make_unique<CVRPoint>(m_pWorld, this, iID, strFunction));
    return 0;
}

int CDSC_Scene::InsertPlane(CVRPlane *&pOut, int iID, const std::string &strName,
                            const std::string &strMaterial) {
    auto plane = std::make_unique<CVRPlane>(iID);
    plane->m_strName = strName;
    plane->m_strMaterial = strMaterial;
    pOut = plane.get();
    m_Planes.push_back(std::move(plane));
    return 0;
}

int CDSC_Scene::GeneratePoints() {
    if (m_pWorld == nullptr) {
        return 201;  // nothing done: there is no world to number the corners in
    }
    for (auto &point : m_Points) {
        point->m_pWorld = m_pWorld;
        const int result = point->GenerateAll();
        if (result != 0) {
            return result;
        }
        m_pWorld->m_Points.push_back(point.get());
    }
    return 0;
}
