// One geometry file's worth of a world: corners and planes with their own numbering. The
// world's text reader fills it with expressions; generation turns them into numbers.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Object.h"
#include "world/C3Point.h"
#include "world/CVRPlane.h"
#include "world/CVRPoint.h"

class CDSC_World;

class CDSC_Scene : public qk::CObject {
    QK_DECLARE_SERIAL(CDSC_Scene)

  public:
    CDSC_Scene();
    // A scene bound to pWorld. An absolute path is split into m_strFolder and m_strName; any
    // other text is the scene's name as it stands.
    CDSC_Scene(CDSC_World *pWorld, const std::string &strPath, const std::string &strDescription,
               int iMain);
    // Fields by value; the lists are not copied.
    CDSC_Scene(const CDSC_Scene &other);
    CDSC_Scene &operator=(const CDSC_Scene &other);
    ~CDSC_Scene() override = default;

    // Deletes the corners, empties the include list, deletes the planes.
    virtual void Clear();

    int InsertPoint(CVRPoint *pPoint);  // takes ownership; 0
    int InsertPoint(int iID, const std::string &strX, const std::string &strY,
                    const std::string &strZ);
    int InsertPoint(int iID, const std::string &strFunction);
    int RemovePoint(CVRPoint *) { return 0; }
    int UpdatePoint(CVRPoint *) { return 0; }
    int InsertPlane(CVRPlane *&pOut, int iID, const std::string &strName,
                    const std::string &strMaterial);

    // Includes nest at most this deep; one import makes at most kMaxScenes scenes and reads
    // at most kMaxImportBytes of text, its includes counted.
    static constexpr int kMaxIncludeDepth = 16;
    static constexpr size_t kMaxScenes = 1024;
    static constexpr size_t kMaxImportBytes = 16u << 20;

    // Reads a world text file into a new scene of pWorld: the scene goes into the world's
    // list once its file is read, then each file it includes (relative to its folder) becomes
    // a further scene the same way. A path that isn't absolute reads nothing, and a file that
    // can't be opened leaves no scene. Files past the limits above are not read, and the
    // first of them is reported, so a file that includes itself ends.
    static void Import(CDSC_World *pWorld, const std::string &strPath,
                       const std::string &strDescription, int iMain);

    // GeneratePoints, then GenerateSurfaces whatever the first gave; the first non-zero
    // result of the two, else 0.
    int Generate();
    // Resolves each plane's corner ids (a leading "_": the world's list, else this scene's),
    // makes its polygon and plane. A missing corner is skipped in silence; a plane left with
    // fewer than three corners gives 202 and stops.
    int GenerateSurfaces();

    // Corners, planes, the third list, then names, flags and numbers.
    void Serialize(qk::CArchive &ar) override;

    // Generates each corner in file order and appends it to the world's list of all
    // corners, so a corner can read corners before it, in this scene or an earlier one.
    // Stops at the first corner in error with its result (the corners before it stay in the
    // world's list); 0 when all went well.
    int GeneratePoints();

    std::vector<std::unique_ptr<CVRPoint>> m_Points;    // owned, file order
    std::vector<std::unique_ptr<CVRPlane>> m_Planes;    // owned, file order
    std::vector<std::unique_ptr<qk::CObject>> m_Third;  // archived, always empty
    CDSC_World *m_pWorld = nullptr;                     // not owned
    std::vector<std::string> m_Includes;                // files named by INCLUDE
    std::string m_strName;  // file name without folder, or a generator's name
    std::string m_strDescription;
    int m_iMain = 1;                         // 1 for a main scene
    std::string m_strFolder;                 // folder of the file
    float m_fScale[3] = {1.0f, 1.0f, 1.0f};  // kept, read by nothing
    int m_iObject = 0;                       // OBJECT
    int m_iMirror = 0;                       // MIRROR
    int m_iOffsetCorners = 0;                // OFFSETCO
    int m_iOffsetPlanes = 0;                 // OFFSETPL
    int m_iOffsetCornersBy = 0;
    int m_iOffsetPlanesBy = 0;
    int m_iMirrorCorners = 0;  // first number of MIRROR
    int m_iMirrorPlanes = 0;   // second number of MIRROR
    int m_iFromBack = 1;       // 1 FROMBACK, 0 FROMFRONT: which way normals point
    C3Point m_Normal;          // normal of the plane generated last

  private:
    struct ImportLimits;
    // Reads one file and what it includes; false when the file can't be read. An include
    // that can't be read is reported, naming the file that includes it.
    static bool ImportFile(CDSC_World *pWorld, const std::string &strPath,
                           const std::string &strDescription, int iMain, int iDepth,
                           ImportLimits &limits);
    void CopyFields(const CDSC_Scene &other);
};
