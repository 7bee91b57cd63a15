// A named value of a world, given as an expression.
#pragma once

#include <string>

#include "platform/Object.h"

class CDSC_World;

class CVRConstant : public qk::CObject {
    QK_DECLARE_SERIAL(CVRConstant)

  public:
    CVRConstant() = default;
    CVRConstant(CDSC_World *pWorld, const std::string &strName, const std::string &strValue,
                const std::string &strDescription, int iFlag);
    CVRConstant(const CVRConstant &other) = default;
    CVRConstant &operator=(const CVRConstant &other) = default;

    // m_fValue from m_strValue: 0, or 203 when the expression is in error.
    int Generate();
    // An expression to a number, with the world's constants put in where the text alone
    // doesn't parse. Empty and quoted texts leave out alone; "TRUE"/"true" and
    // "FALSE"/"false" give 1 and 0; a decimal comma is a point; "sqrt" is the parser's
    // "sqr". A constant enters with three decimals, and only constants standing earlier in
    // the world's list have their value yet.
    int GenerateValue(const std::string &expr, float &out);

    // Version, name, value text, value, description, flag.
    void Serialize(qk::CArchive &ar) override;

    CDSC_World *m_pWorld = nullptr;  // set before each generation; not owned
    std::string m_strName;           // as used in expressions, exact case
    std::string m_strValue;          // the expression
    float m_fValue = 0.0f;           // valid after Generate
    std::string m_strDescription;
    int m_iFlag = 1;  // a display flag, kept and archived
};
