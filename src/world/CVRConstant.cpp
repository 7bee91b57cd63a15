#include "world/CVRConstant.h"

#include "platform/Archive.h"
#include "world/CDSC_World.h"
#include "world/VRText.h"

QK_IMPLEMENT_SERIAL(CVRConstant)

CVRConstant::CVRConstant(CDSC_World *pWorld, const std::string &strName,
                         const std::string &strValue, const std::string &strDescription, int iFlag)
    : m_pWorld(pWorld),
      m_strName(strName),
      m_strValue(strValue),
      m_strDescription(strDescription),
      m_iFlag(iFlag) {}

int CVRConstant::Generate() {
    return GenerateValue(m_strValue, m_fValue);
}

int CVRConstant::GenerateValue(const std::string &expr, float &out) {
    if (expr.empty() || expr.front() == '"' || expr.back() == '"') {
        return 0;
    }
    if (vrtext::BooleanWord(expr, out)) {
        return 0;
    }
    if (m_pWorld == nullptr) {
        return 203;  // no parser to read it with
    }
    std::string text = vrtext::CommasToPoints(expr);
    unsigned short errPos = 0;
    std::string errText;
    out = static_cast<float>(m_pWorld->m_parser.Calculation(text, 0.0, errPos, errText));
    // A text of one character is always substituted: it may be a constant's name.
    if (errPos == 0 && text.size() > 1) {
        return 0;
    }
    vrtext::SubstituteConstants(*m_pWorld, text);
    vrtext::ReplaceAll(text, "sqrt", "sqr");
    out = static_cast<float>(m_pWorld->m_parser.Calculation(text, 0.0, errPos, errText));
    return errPos != 0 ? 203 : 0;
}

void CVRConstant::Serialize(qk::CArchive &ar) {
    qk::CObject::Serialize(ar);
    if (ar.IsStoring()) {
        ar << 1.0f << m_strName << m_strValue << m_fValue << m_strDescription
           << static_cast<int32_t>(m_iFlag);
    } else {
        float fVersion = 0.0f;
        int32_t iFlag = 0;
        ar >> fVersion >> m_strName >> m_strValue >> m_fValue >> m_strDescription >> iFlag;
        m_iFlag = iFlag;
    }
}
