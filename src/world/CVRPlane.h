// A surface of a scene: a polygon that names its corners by id and its material by name.
// The corners and the polygon are filled by the scene's generation from the ids.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "world/CMATERIAL.h"
#include "world/CPolygon.h"
#include "world/CVRPoint.h"

class CVRPlane : public CPolygon {
    QK_DECLARE_SERIAL(CVRPlane)

  public:
    CVRPlane() = default;
    explicit CVRPlane(int iID) : m_iID(iID) {}
    // Fields and corners; the lists are not copied.
    CVRPlane(const CVRPlane &other);
    CVRPlane &operator=(const CVRPlane &other);
    ~CVRPlane() override = default;

    // Appends a corner id: a decimal id, with a leading "_" for a corner of the world list.
    void InsertPoint(const std::string &strID) { m_PointIDs.push_back(strID); }

    // The polygon's version, the corner ids, version, id, name, description, visibility,
    // joined ids, image and material.
    void Serialize(qk::CArchive &ar) override;

    CMATERIAL m_Material;                                   // coefficients and reflection filter
    std::vector<std::string> m_PointIDs;                    // corner ids as given
    std::vector<std::unique_ptr<CVRPoint>> m_Points;        // resolved corners, copies; owned
    std::vector<std::unique_ptr<qk::CObject>> m_SubPlanes;  // unused
    int m_iID = 0;
    int m_iVisible = 1;
    std::string m_strDescription;
    std::string m_strName;      // such as "floor"
    std::string m_strPointIDs;  // the ids found, joined with blanks
    std::string m_strImage;     // image file for display
    std::string m_strMaterial;  // key of the material look-up
    float m_fMinX = 0.0f;       // the plane's bounding box
    float m_fMinY = 0.0f;
    float m_fMinZ = 0.0f;
    float m_fMaxX = 0.0f;
    float m_fMaxY = 0.0f;
    float m_fMaxZ = 0.0f;
    float m_fColorR = 0.5f;  // display colour
    float m_fColorG = 0.5f;
    float m_fColorB = 0.5f;
    int m_iReserved1 = 0;
    int m_iReserved2 = 0;

  private:
    void CopyFields(const CVRPlane &other);
};
