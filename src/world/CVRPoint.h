// A corner of a scene: a C3Point whose coordinates are generated from one expression per
// axis, or a reserved function text ("cut", "lock") that is checked but computes nothing.
//
// An expression may read the coordinates of a corner generated before it: "x(3)" is the x of
// corner 3 of the same scene, "x(_3)" that of world corner 3. Each reference enters the
// text with three decimals before the formula is read.
#pragma once

#include <string>

#include "world/C3Point.h"

class CDSC_World;
class CDSC_Scene;

class CVRPoint : public C3Point {
    QK_DECLARE_SERIAL(CVRPoint)

  public:
    CVRPoint() = default;
    CVRPoint(CDSC_World *pWorld, CDSC_Scene *pScene, int iID, const std::string &strX,
             const std::string &strY, const std::string &strZ);
    CVRPoint(CDSC_World *pWorld, CDSC_Scene *pScene, int iID, const std::string &strFunction);
    CVRPoint(const CVRPoint &other) = default;
    CVRPoint &operator=(const CVRPoint &other);

    // Numbers the corner in the world, then generates the function text when there is one
    // (x, y, z stay as they are), else x, y and z in turn. 0; 203 an expression in error;
    // 204 a corner reference that isn't found; -1 a malformed function text.
    int GenerateAll();
    int GenerateX() { return GenerateValue(m_strX, x); }
    int GenerateY() { return GenerateValue(m_strY, y); }
    int GenerateZ() { return GenerateValue(m_strZ, z); }
    int GenerateValue(const std::string &expr, float &out);
    // "cut(a b c d e)" and "lock(a b c)": the named corners must exist; nothing is computed
    // and out is left as it stands. 0, -1 when malformed, 204 when a corner is missing.
    int GenerateFunction(const std::string &expr, float &out);

    // C3Point's version, then version, id, world id and the three expressions. The function
    // text is not archived.
    void Serialize(qk::CArchive &ar) override;

    CDSC_World *m_pWorld = nullptr;  // not owned
    CDSC_Scene *m_pScene = nullptr;  // the owning scene; not owned
    int m_iID = 0;                   // corner id in its scene
    int m_iWorldID = 0;              // id in the world's list, made by FixIDs
    std::string m_strX;
    std::string m_strY;
    std::string m_strZ;
    std::string m_strFunction;  // when not empty it replaces the three expressions

  private:
    static bool CheckIfStringIsFunction(const std::string &text);
    // The world id: the scene id moved by the scene's MIRROR and OFFSETCO numbers.
    void FixIDs();
    // Replaces every corner reference by its coordinate; 0, or 204.
    int SubstituteReferences(std::string &text) const;
    // Reads count blank-separated ids behind the first "(" after from; 0 or -1.
    static int ReadIds(const std::string &text, size_t from, int count, std::string *ids);
    int LookUp(const std::string &id) const;
};
