// The acoustic description of a room: named constants, scenes of corners and planes, and
// after generation flat lists of all corners and all planes, which is what the sound field
// models read. It has no lock of its own: callers serialise it under the engine's lock.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Object.h"
#include "world/C3Point.h"
#include "world/CDSC_Scene.h"
#include "world/CHELPER_FormulaParser.h"
#include "world/CVRClient.h"
#include "world/CVRConstant.h"
#include "world/CVRPlane.h"
#include "world/CVRPoint.h"
#include "world/CVRSoundSource.h"
#include "world/Code4.h"

class CDSC_World : public qk::CObject {
    QK_DECLARE_SERIAL(CDSC_World)

  public:
    // Makes the material tables below the common folder when they are missing.
    CDSC_World();
    static constexpr double kMaxVolumeCells = 1.0e6;

    CDSC_World(const CDSC_World &) = delete;
    CDSC_World &operator=(const CDSC_World &) = delete;
    ~CDSC_World() override = default;

    // ClearPlanes, ClearVRSources, ClearVRClients.
    virtual void Clear();
    // Deletes all constants and scenes and empties the flat lists: the reset before a new
    // world is loaded.
    virtual void ClearPlanes();
    virtual void ClearVRSources();
    virtual void ClearVRClients();

    int InsertConstant(CVRConstant *pConstant);  // takes ownership; 0
    int InsertConstant(const std::string &strName, const std::string &strValue,
                       const std::string &strDescription, int iFlag);
    int RemoveConstant(CVRConstant *pConstant);  // deletes it; 0
    int UpdateConstant(CVRConstant *) { return 0; }
    // The first constant of exactly that name takes the value and is generated again; 0
    // whether or not one was found.
    int UpdateConstant(const std::string &strName, const std::string &strValue);
    int InsertScene(CDSC_Scene *pScene);  // takes ownership; 0
    // A new scene bound to this world, not a main scene; 0.
    int InsertScene(CDSC_Scene *&pOut, const std::string &strName,
                    const std::string &strDescription);
    // Deletes it, after taking its corners and planes out of the flat lists; 0.
    int RemoveScene(CDSC_Scene *pScene);
    int UpdateScene(CDSC_Scene *) { return 0; }

    // Turns every expression into numbers: the constants, then each scene's corners and
    // planes in list order, fetching each plane's material; fills the flat lists, the
    // bounding box, centre, extent and the volume. 0; 201 a world with neither constants nor
    // scenes; -1 without a material session; 202, 203, 204 (or -1) from the first scene or
    // constant in error, with the flat lists then empty.
    int Generate();
    // 1 when p is on or on the positive side of every plane of the flat list.
    int IsPointInsize(C3Point p) const;
    // The plane's coefficients from its material name, and the material's image name; -1
    // without a material session, else 0.
    int UpdateMaterialForPlane(CVRPlane *pPlane);

    // Scenes, constants, the flat lists, version and the three scales. Loading reads
    // everything before it replaces the world, then generates; an archive that can't be read
    // is reported ("Cannot serialize CDSC_World object.") and leaves the world as it was.
    void Serialize(qk::CArchive &ar) override;

    // Generates each constant in list order, so a constant can use the ones before it.
    // Stops at the first in error with its result; 0 when all went well.
    int GenerateConstants();

    // A name starting with "_" (all of them stripped) is a world id in the flat list of all
    // corners; any other a scene id in pScene's corners. There is no fallback from one to the
    // other. Copies the corner to out: 1 found, 0 not.
    int FindVRPoint(CDSC_Scene *pScene, const std::string &strName, CVRPoint &out) const;
    int FindVRPointFromWorldList(const std::string &strName, CVRPoint &out) const;
    int FindVRPointFromSceneList(CDSC_Scene *pScene, const std::string &strName,
                                 CVRPoint &out) const;

    CHELPER_FormulaParser m_parser;        // the one evaluator of the world's expressions
    C3Point m_centre;                      // centre of the bounding box
    qk::table::Code4 *m_pCode4 = nullptr;  // the material session; not owned
    float m_fMaxMid = 0.0f;
    float m_fScaleX = 1.0f;  // archived, read by no generation step
    float m_fScaleY = 1.0f;
    float m_fScaleZ = 1.0f;
    float m_fXMax = 0.0f;  // bounding box of all corners of all planes
    float m_fXMin = 0.0f;
    float m_fYMax = 0.0f;
    float m_fYMin = 0.0f;
    float m_fZMax = 0.0f;
    float m_fZMin = 0.0f;
    float m_fExtent = 0.0f;
    // Cubic metres, by counting cells of 1 m; in a room of more than kMaxVolumeCells such cells
    // the cells of the axis with the most are made twice as wide, as often as needed.
    float m_fVolume = 0.0f;
    std::vector<std::unique_ptr<CDSC_Scene>> m_Scenes;         // owned
    std::vector<std::unique_ptr<CVRConstant>> m_Constants;     // owned
    std::vector<CVRPoint *> m_Points;                          // all corners; not owned
    std::vector<CVRPlane *> m_Planes;                          // all planes; not owned
    std::vector<std::unique_ptr<CVRSoundSource>> m_VRSources;  // owned
    std::vector<std::unique_ptr<CVRClient>> m_VRClients;       // owned

  private:
    float CountVolume() const;
    void LoadFrom(qk::CArchive &ar);
};
