#include "world/CVRPoint.h"

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "platform/Archive.h"
#include "world/CDSC_Scene.h"
#include "world/CDSC_World.h"
#include "world/VRText.h"

QK_IMPLEMENT_SERIAL(CVRPoint)

namespace {
constexpr int kNotFound = 204;
constexpr int kInError = 203;
constexpr int kMalformed = -1;
constexpr int kCutIds = 5;
constexpr int kLockIds = 3;

bool holdsReference(const std::string &text) {
    for (const char *ref : {"x(", "X(", "y(", "Y(", "z(", "Z("}) {
        if (text.find(ref) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// The first of "x(", "y(", "z(" in the text, or npos.
size_t firstLowerReference(const std::string &text) {
    size_t first = std::string::npos;
    for (const char *ref : {"x(", "y(", "z("}) {
        first = std::min(first, text.find(ref));
    }
    return first;
}
}  // namespace

CVRPoint::CVRPoint(CDSC_World *pWorld, CDSC_Scene *pScene, int iID, const std::string &strX,
                   const std::string &strY, const std::string &strZ)
    : m_pWorld(pWorld), m_pScene(pScene), m_iID(iID), m_strX(strX), m_strY(strY), m_strZ(strZ) {}

CVRPoint::CVRPoint(CDSC_World *pWorld, CDSC_Scene *pScene, int iID, const std::string &strFunction)
    : m_pWorld(pWorld), m_pScene(pScene), m_iID(iID), m_strFunction(strFunction) {}

CVRPoint &CVRPoint::operator=(const CVRPoint &other) {
    C3Point::operator=(other);
    m_pWorld = other.m_pWorld;
    m_pScene = other.m_pScene;
    m_iID = other.m_iID;
    m_iWorldID = other.m_iWorldID;
    m_strX = other.m_strX;
    m_strY = other.m_strY;
    m_strZ = other.m_strZ;
    m_strFunction = other.m_strFunction;
    return *this;
}

void CVRPoint::FixIDs() {
    long long id = m_iID;
    if (m_pScene != nullptr) {
        if (m_pScene->m_iMirror != 0) {
            id += m_pScene->m_iMirrorCorners;
        }
        if (m_pScene->m_iOffsetCorners != 0) {
            id += m_pScene->m_iOffsetCornersBy;
        }
    }
    m_iWorldID = static_cast<int>(std::clamp<long long>(id, INT_MIN, INT_MAX));
}

int CVRPoint::GenerateAll() {
    FixIDs();
    if (!m_strFunction.empty()) {
        float fDropped = 0.0f;
        return GenerateFunction(m_strFunction, fDropped);
    }
    int result = GenerateX();
    if (result == 0) {
        result = GenerateY();
    }
    if (result == 0) {
        result = GenerateZ();
    }
    return result;
}

int CVRPoint::GenerateValue(const std::string &expr, float &out) {
    if (expr.empty()) {
        return 0;
    }
    if (vrtext::BooleanWord(expr, out)) {
        return 0;
    }
    if (m_pWorld == nullptr) {
        return kInError;  // no parser to read it with
    }
    std::string text = vrtext::CommasToPoints(expr);
    unsigned short errPos = 0;
    std::string errText;
    out = static_cast<float>(m_pWorld->m_parser.Calculation(text, 0.0, errPos, errText));
    if (errPos == 0 && text.size() > 1) {
        return 0;
    }
    const int result = SubstituteReferences(text);
    if (result != 0) {
        return result;
    }
    vrtext::SubstituteConstants(*m_pWorld, text);
    if (CheckIfStringIsFunction(text)) {
        return GenerateFunction(text, out);
    }
    out = static_cast<float>(m_pWorld->m_parser.Calculation(text, 0.0, errPos, errText));
    return errPos != 0 ? kInError : 0;
}

int CVRPoint::SubstituteReferences(std::string &text) const {
    while (text.size() > 1 && holdsReference(text)) {
        // Only the lower-case forms name a corner; upper-case ones alone can't be resolved.
        const size_t at = firstLowerReference(text);
        if (at == std::string::npos) {
            return kNotFound;
        }
        const size_t open = at + 1;
        const size_t close = text.find(')', open + 1);
        std::string id = text.substr(
            open + 1, close == std::string::npos ? std::string::npos : close - open - 1);
        const bool world = id.find('_') != std::string::npos;
        id.erase(std::remove(id.begin(), id.end(), '_'), id.end());
        CVRPoint found;
        if (m_pWorld == nullptr ||
            m_pWorld->FindVRPoint(m_pScene, (world ? "_" : "") + id, found) == 0) {
            return kNotFound;
        }
        const std::string number = std::to_string(vrtext::ToInt(id));
        const std::string mark = world ? "(_" : "(";
        const std::string before = text;
        const char axes[3] = {'x', 'y', 'z'};
        const float values[3] = {found.x, found.y, found.z};
        for (int a = 0; a < 3; ++a) {
            if (text.find(std::string(1, axes[a]) + "(") != std::string::npos) {
                vrtext::ReplaceAll(text, axes[a] + mark + number + ")",
                                   vrtext::FormatValue(values[a]));
            }
        }
        // A reference written otherwise than the corner's number ("x(03)", "x( 3)") can't be
        // replaced and would be met again for ever.
        if (text == before) {
            return kNotFound;
        }
    }
    return 0;
}

bool CVRPoint::CheckIfStringIsFunction(const std::string &text) {
    return text.find("lock") != std::string::npos;
}

int CVRPoint::ReadIds(const std::string &text, size_t from, int count, std::string *ids) {
    size_t at = text.find('(', from);
    if (at == std::string::npos) {
        return kMalformed;
    }
    ++at;
    for (int i = 0; i < count; ++i) {
        while (at < text.size() && text[at] == ' ') {
            ++at;
        }
        const size_t end = std::min(text.find_first_of(" )", at), text.size());
        ids[i] = text.substr(at, end - at);
        if (ids[i].empty()) {
            return kMalformed;
        }
        at = end;
    }
    return 0;
}

int CVRPoint::LookUp(const std::string &id) const {
    CVRPoint found;
    if (m_pWorld == nullptr || m_pWorld->FindVRPoint(m_pScene, id, found) == 0) {
        return kNotFound;
    }
    return 0;
}

int CVRPoint::GenerateFunction(const std::string &expr, float & /*out*/) {
    const std::string text = vrtext::TrimBlanks(expr);
    if (text.empty()) {
        return kMalformed;
    }
    // The count ids after a function's name, where the name is in the text, must read and
    // be known corners.
    const auto checkIds = [&](const std::string &name, int count) {
        const size_t at = text.find(name);
        if (at == std::string::npos) {
            return 0;
        }
        std::vector<std::string> ids(static_cast<size_t>(count));
        if (ReadIds(text, at + name.size(), count, ids.data()) != 0) {
            return kMalformed;
        }
        for (const std::string &id : ids) {
            if (LookUp(id) != 0) {
                return kNotFound;
            }
        }
        return 0;
    };
    const int cut = checkIds("cut", kCutIds);
    return cut != 0 ? cut : checkIds("lock", kLockIds);
}

void CVRPoint::Serialize(qk::CArchive &ar) {
    C3Point::Serialize(ar);
    if (ar.IsStoring()) {
        ar << 1.0f << static_cast<int32_t>(m_iID) << static_cast<int32_t>(m_iWorldID) << m_strX
           << m_strY << m_strZ;
    } else {
        float fVersion = 0.0f;
        int32_t iID = 0;
        int32_t iWorldID = 0;
        ar >> fVersion >> iID >> iWorldID >> m_strX >> m_strY >> m_strZ;
        m_iID = iID;
        m_iWorldID = iWorldID;
    }
}
