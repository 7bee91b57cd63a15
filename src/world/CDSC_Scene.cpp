#include "world/CDSC_Scene.h"

#include <algorithm>

#include "platform/Archive.h"
#include "platform/Paths.h"
#include "platform/Report.h"
#include "world/CDSC_World.h"
#include "world/CWorldTextReader.h"
#include "world/ObjectList.h"

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

struct CDSC_Scene::ImportLimits {
    size_t scenes = 0;
    size_t bytesLeft = kMaxImportBytes;
    bool reported = false;
};

void CDSC_Scene::Import(CDSC_World *pWorld, const std::string &strPath,
                        const std::string &strDescription, int iMain) {
    ImportLimits limits;
    ImportFile(pWorld, strPath, strDescription, iMain, 0, limits);
}

bool CDSC_Scene::ImportFile(CDSC_World *pWorld, const std::string &strPath,
                            const std::string &strDescription, int iMain, int iDepth,
                            ImportLimits &limits) {
    if (pWorld == nullptr || !qk::IsAbsolutePath(strPath)) {
        return false;
    }
    if (iDepth > kMaxIncludeDepth || limits.scenes >= kMaxScenes) {
        if (!limits.reported) {
            qk::Report("World file '" + strPath + "' is not read: includes nest deeper than " +
                           std::to_string(kMaxIncludeDepth) + " or make more than " +
                           std::to_string(kMaxScenes) + " scenes.",
                       "World", qk::Severity::Error);
            limits.reported = true;
        }
        return true;  // told once above
    }
    auto scene = std::make_unique<CDSC_Scene>(pWorld, strPath, strDescription, iMain);
    CWorldTextReader reader;
    size_t bytes = 0;
    if (reader.Read(qk::JoinPath(scene->m_strFolder, scene->m_strName), pWorld, scene.get(),
                    limits.bytesLeft, &bytes) != 0) {
        return false;
    }
    limits.bytesLeft -= bytes;
    ++limits.scenes;
    CDSC_Scene *read = scene.get();
    pWorld->InsertScene(scene.release());
    const std::vector<std::string> includes = read->m_Includes;
    const std::string folder = read->m_strFolder;
    for (std::string name : includes) {
        // Names written on another system separate their folders with backslashes.
        if (!qk::IsAbsolutePath(name)) {
            std::replace(name.begin(), name.end(), '\\', '/');
        }
        const std::string path = qk::IsAbsolutePath(name) ? name : qk::JoinPath(folder, name);
        if (!ImportFile(pWorld, path, std::string(), 0, iDepth + 1, limits)) {
            qk::Report("World file '" + path + "', included by '" + strPath +
                           "', can't be read: its planes are left out.",
                       "World", qk::Severity::Warning);
        }
    }
    return true;
}

int CDSC_Scene::Generate() {
    const int points = GeneratePoints();
    const int surfaces = GenerateSurfaces();
    return points != 0 ? points : surfaces;
}

int CDSC_Scene::GenerateSurfaces() {
    for (auto &plane : m_Planes) {
        plane->m_Points.clear();
        plane->RemoveAll();
        plane->m_strPointIDs.clear();
        for (const std::string &id : plane->m_PointIDs) {
            auto corner = std::make_unique<CVRPoint>();
            // A leading "_" names a corner of the world's list, any other id one of this scene.
            const int found = m_pWorld == nullptr ? 0 : m_pWorld->FindVRPoint(this, id, *corner);
            if (found == 0) {
                continue;
            }
            plane->Add(static_cast<const C3Point &>(*corner));
            plane->m_Points.push_back(std::move(corner));
            plane->m_strPointIDs += id + " ";
        }
        plane->m_strPointIDs.erase(plane->m_strPointIDs.find_last_not_of(' ') + 1);
        if (plane->CalculatePlaneCoefficients() == 0) {
            return 202;
        }
        const float sign = m_iFromBack == 1 ? 1.0f : -1.0f;
        m_Normal.x = sign * plane->A;
        m_Normal.y = sign * plane->B;
        m_Normal.z = sign * plane->C;
    }
    return 0;
}

void CDSC_Scene::Serialize(qk::CArchive &ar) {
    qk::CObject::Serialize(ar);
    SerializeObjectList(ar, m_Points, {"CVRPoint"});
    SerializeObjectList(ar, m_Planes, {"CVRPlane"});
    SerializeObjectList(ar, m_Third, {});
    if (ar.IsStoring()) {
        ar << m_strName << m_strDescription << static_cast<int32_t>(m_iMain) << m_strFolder;
        for (int v : {m_iObject, m_iMirror, m_iOffsetCorners, m_iOffsetPlanes, m_iFromBack,
                      m_iOffsetCornersBy, m_iOffsetPlanesBy, m_iMirrorCorners, m_iMirrorPlanes}) {
            ar << static_cast<int32_t>(v);
        }
        return;
    }
    int32_t iMain = 0;
    ar >> m_strName >> m_strDescription >> iMain >> m_strFolder;
    m_iMain = iMain;
    for (int *v : {&m_iObject, &m_iMirror, &m_iOffsetCorners, &m_iOffsetPlanes, &m_iFromBack,
                   &m_iOffsetCornersBy, &m_iOffsetPlanesBy, &m_iMirrorCorners, &m_iMirrorPlanes}) {
        int32_t value = 0;
        ar >> value;
        *v = value;
    }
    for (auto &point : m_Points) {
        point->m_pScene = this;
        point->m_pWorld = m_pWorld;
    }
}
