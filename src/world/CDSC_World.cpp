#include "world/CDSC_World.h"

#include <algorithm>

#include "platform/Archive.h"
#include "platform/Report.h"
#include "world/MaterialTables.h"
#include "world/ObjectList.h"
#include "world/VRText.h"

QK_IMPLEMENT_SERIAL(CDSC_World)

CDSC_World::CDSC_World() {
    qk::table::Code4 code;
    qk::table::code4initLow(&code);
    MaterialTables::EnsureDefaults(code);
    qk::table::code4initUndo(&code);
}

void CDSC_World::Serialize(qk::CArchive &ar) {
    try {
        if (ar.IsLoading()) {
            LoadFrom(ar);
            return;
        }
        qk::CObject::Serialize(ar);
        SerializeObjectList(ar, m_Scenes, {"CDSC_Scene"});
        SerializeObjectList(ar, m_Constants, {"CVRConstant"});
        ar << static_cast<uint32_t>(m_Points.size());
        for (CVRPoint *point : m_Points) {
            ar.WriteObject(*point);
        }
        ar << static_cast<uint32_t>(m_Planes.size());
        for (CVRPlane *plane : m_Planes) {
            ar.WriteObject(*plane);
        }
        ar << 1.0f << m_fScaleX << m_fScaleY << m_fScaleZ;
    } catch (const qk::CArchiveException &) {
        qk::Report("Cannot serialize CDSC_World object.", "World", qk::Severity::Error);
    }
}

void CDSC_World::LoadFrom(qk::CArchive &ar) {
    qk::CObject::Serialize(ar);
    std::vector<std::unique_ptr<CDSC_Scene>> scenes;
    std::vector<std::unique_ptr<CVRConstant>> constants;
    // The flat lists were stored with their objects; generation makes them anew.
    std::vector<std::unique_ptr<CVRPoint>> points;
    std::vector<std::unique_ptr<CVRPlane>> planes;
    SerializeObjectList(ar, scenes, {"CDSC_Scene"});
    SerializeObjectList(ar, constants, {"CVRConstant"});
    SerializeObjectList(ar, points, {"CVRPoint"});
    SerializeObjectList(ar, planes, {"CVRPlane"});
    float fVersion = 0.0f;
    float scale[3] = {1.0f, 1.0f, 1.0f};
    ar >> fVersion >> scale[0] >> scale[1] >> scale[2];

    ClearPlanes();
    m_Scenes = std::move(scenes);
    m_Constants = std::move(constants);
    m_fScaleX = scale[0];
    m_fScaleY = scale[1];
    m_fScaleZ = scale[2];
    for (auto &scene : m_Scenes) {
        scene->m_pWorld = this;
        for (auto &point : scene->m_Points) {
            point->m_pWorld = this;
            point->m_pScene = scene.get();
        }
    }
    for (auto &constant : m_Constants) {
        constant->m_pWorld = this;
    }
    // Its result is not the loader's: a world that doesn't generate is still loaded.
    Generate();
}

void CDSC_World::Clear() {
    ClearPlanes();
    ClearVRSources();
    ClearVRClients();
}

void CDSC_World::ClearPlanes() {
    m_Constants.clear();
    m_Scenes.clear();
    m_Points.clear();
    m_Planes.clear();
}

void CDSC_World::ClearVRSources() {
    m_VRSources.clear();
}

void CDSC_World::ClearVRClients() {
    m_VRClients.clear();
}

int CDSC_World::InsertConstant(CVRConstant *pConstant) {
    if (pConstant != nullptr) {
        m_Constants.emplace_back(pConstant);
    }
    return 0;
}

int CDSC_World::InsertConstant(const std::string &strName, const std::string &strValue,
                               const std::string &strDescription, int iFlag) {
    m_Constants.push_back(
        std::make_unique<CVRConstant>(this, strName, strValue, strDescription, iFlag));
    return 0;
}

int CDSC_World::RemoveConstant(CVRConstant *pConstant) {
    auto it = std::find_if(m_Constants.begin(), m_Constants.end(),
                           [pConstant](const auto &c) { return c.get() == pConstant; });
    if (it != m_Constants.end()) {
        m_Constants.erase(it);
    }
    return 0;
}

int CDSC_World::UpdateConstant(const std::string &strName, const std::string &strValue) {
    for (auto &constant : m_Constants) {
        if (constant->m_strName == strName) {
            constant->m_strValue = strValue;
            constant->m_pWorld = this;
            constant->Generate();
            break;
        }
    }
    return 0;
}

int CDSC_World::InsertScene(CDSC_Scene *pScene) {
    if (pScene != nullptr) {
        m_Scenes.emplace_back(pScene);
    }
    return 0;
}

int CDSC_World::InsertScene(CDSC_Scene *&pOut, const std::string &strName,
                            const std::string &strDescription) {
    auto scene = std::make_unique<CDSC_Scene>(this, strName, strDescription, 0);
    pOut = scene.get();
    m_Scenes.push_back(std::move(scene));
    return 0;
}

int CDSC_World::RemoveScene(CDSC_Scene *pScene) {
    auto it = std::find_if(m_Scenes.begin(), m_Scenes.end(),
                           [pScene](const auto &s) { return s.get() == pScene; });
    if (it == m_Scenes.end()) {
        return 0;
    }
    // The flat lists must not keep pointers into the scene that goes.
    for (const auto &point : pScene->m_Points) {
        m_Points.erase(std::remove(m_Points.begin(), m_Points.end(), point.get()), m_Points.end());
    }
    for (const auto &plane : pScene->m_Planes) {
        m_Planes.erase(std::remove(m_Planes.begin(), m_Planes.end(), plane.get()), m_Planes.end());
    }
    m_Scenes.erase(it);
    return 0;
}

int CDSC_World::GenerateConstants() {
    for (auto &constant : m_Constants) {
        constant->m_pWorld = this;
        const int result = constant->Generate();
        if (result != 0) {
            return result;
        }
    }
    return 0;
}

int CDSC_World::FindVRPoint(CDSC_Scene *pScene, const std::string &strName, CVRPoint &out) const {
    if (!strName.empty() && strName[0] == '_') {
        const size_t first = strName.find_first_not_of('_');
        return FindVRPointFromWorldList(
            first == std::string::npos ? std::string() : strName.substr(first), out);
    }
    return FindVRPointFromSceneList(pScene, strName, out);
}

int CDSC_World::FindVRPointFromWorldList(const std::string &strName, CVRPoint &out) const {
    const int id = vrtext::ToInt(strName);
    for (CVRPoint *point : m_Points) {
        if (point->m_iWorldID == id) {
            out = *point;
            return 1;
        }
    }
    return 0;
}

int CDSC_World::FindVRPointFromSceneList(CDSC_Scene *pScene, const std::string &strName,
                                         CVRPoint &out) const {
    if (pScene == nullptr) {
        return 0;
    }
    const int id = vrtext::ToInt(strName);
    for (const auto &point : pScene->m_Points) {
        if (point->m_iID == id) {
            out = *point;
            return 1;
        }
    }
    return 0;
}
