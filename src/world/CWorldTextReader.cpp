#include "world/CWorldTextReader.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/Paths.h"
#include "platform/Report.h"
#include "world/CDSC_World.h"
#include "world/Code4.h"
#include "world/FileBytes.h"
#include "world/MaterialTables.h"
#include "world/VRText.h"

namespace {
constexpr int kMaterialFields = 8;

// A position in a line and the small steps the parsers take.
class Cursor {
  public:
    explicit Cursor(std::string text) : m_s(std::move(text)) {}
    void SkipBlanks() {
        while (m_p < m_s.size() && m_s[m_p] == ' ') {
            ++m_p;
        }
    }
    // The characters up to (not including) any of stops, or to the end.
    std::string Until(std::string_view stops) {
        const size_t begin = m_p;
        while (m_p < m_s.size() && stops.find(m_s[m_p]) == std::string_view::npos) {
            ++m_p;
        }
        return m_s.substr(begin, m_p - begin);
    }
    // Moves past the next c; false (not moved) when there is none.
    bool Find(char c) {
        const size_t at = m_s.find(c, m_p);
        if (at == std::string::npos) {
            return false;
        }
        m_p = at + 1;
        return true;
    }
    // Moves past the next '/', or failing that the next '\'.
    bool FindSeparator() { return Find('/') || Find('\\'); }
    bool AtEnd() const { return m_p >= m_s.size(); }
    char Peek() const { return m_p < m_s.size() ? m_s[m_p] : '\0'; }
    void Advance() { ++m_p; }
    std::string Rest() const { return m_p < m_s.size() ? m_s.substr(m_p) : std::string(); }

  private:
    std::string m_s;
    size_t m_p = 0;
};

std::string trimmed(const std::string &text) {
    return vrtext::TrimBlanks(text);
}

std::string withoutChars(std::string text, std::string_view chars) {
    text.erase(std::remove_if(text.begin(), text.end(),
                              [chars](char c) { return chars.find(c) != std::string_view::npos; }),
               text.end());
    return text;
}

// The line as every parser starts it: trimmed; false when empty or a comment.
bool parserStart(const std::string &line, std::string &out) {
    out = trimmed(line);
    return !out.empty() && out[0] != ';';
}

// Removes the letters of the keyword from the left, as a set, in capitals only: "GLOBALLOGO"
// loses "LOGO" too, and a keyword written in small letters stays in front of the name.
std::string removeKeyword(const std::string &text, const char *keyword) {
    const size_t first = text.find_first_not_of(keyword);
    return first == std::string::npos ? std::string() : text.substr(first);
}

// A keyword line read from its first word after the keyword; nothing for an empty line or a
// comment.
std::optional<Cursor> afterKeyword(const std::string &line, const char *keyword) {
    std::string text;
    if (!parserStart(line, text)) {
        return std::nullopt;
    }
    Cursor c(removeKeyword(text, keyword));
    c.SkipBlanks();
    return c;
}

bool startsWith(const std::string &text, const char *prefix) {
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

void splitCorners(const std::string &list, CVRPlane &plane) {
    Cursor c(list);
    while (!c.AtEnd()) {
        c.SkipBlanks();
        const std::string id = c.Until(" ");
        if (!id.empty()) {
            plane.InsertPoint(id);
        }
    }
}

// One of the eight absorption fields: it ends at a blank, '<', '>', ':' or ';'. An empty
// piece before '<' is not a field and '>' is passed over, so "<35>" is the field 35.
bool readMaterialField(Cursor &c, std::string &field) {
    while (!c.AtEnd()) {
        c.SkipBlanks();
        if (c.AtEnd() || c.Peek() == ';') {
            return false;
        }
        field = c.Until(" <>:;");
        const char stop = c.Peek();
        if (stop == '<') {
            c.Advance();
            continue;  // a field ending at '<' doesn't count
        }
        if (stop == '>' || stop == ':') {
            c.Advance();
        }
        if (!field.empty()) {
            return true;
        }
    }
    return false;
}

void readMaterialFields(Cursor &c, std::string (&fields)[kMaterialFields]) {
    for (std::string &field : fields) {
        if (!readMaterialField(c, field)) {
            return;
        }
    }
}
}  // namespace

// The lines of a file or a text: tabs become blanks, line ends go, and a line longer than
// kMaxLineLength comes in pieces.
class CWorldTextReader::Lines {
  public:
    explicit Lines(const std::string &text) : m_text(text) {}
    bool Next(std::string &line) {
        if (m_p >= m_text.size()) {
            return false;
        }
        size_t end = m_text.find('\n', m_p);
        size_t next = end == std::string::npos ? m_text.size() : end + 1;
        if (end == std::string::npos) {
            end = m_text.size();
        }
        if (end - m_p > kMaxLineLength) {
            end = m_p + kMaxLineLength;
            next = end;
        }
        line.assign(m_text, m_p, end - m_p);
        m_p = next;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        std::replace(line.begin(), line.end(), '\t', ' ');
        return true;
    }

  private:
    const std::string &m_text;
    size_t m_p = 0;
};

int CWorldTextReader::Read(const std::string &strPath, CDSC_World *pWorld, CDSC_Scene *pScene,
                           size_t iLimit, size_t *pBytes) {
    const size_t limit = std::min(iLimit, kMaxFileBytes);
    std::vector<uint8_t> bytes;
    uint64_t fileSize = 0;
    if (!qk::files::ReadBytes(strPath, limit + 1, bytes, fileSize)) {
        return 1;
    }
    if (fileSize > limit) {
        qk::Report("World file '" + strPath + "' is too large to be a world.", "World",
                   qk::Severity::Error);
        return 1;
    }
    if (pBytes != nullptr) {
        *pBytes = bytes.size();
    }
    ReadText(std::string(bytes.begin(), bytes.end()), pWorld, pScene);
    return 0;
}

void CWorldTextReader::ReadText(const std::string &strText, CDSC_World *pWorld,
                                CDSC_Scene *pScene) {
    if (pWorld == nullptr || pScene == nullptr) {
        return;
    }
    Lines lines(strText);
    ReadLines(lines, pWorld, pScene);
}

void CWorldTextReader::ReadLines(Lines &lines, CDSC_World *pWorld, CDSC_Scene *pScene) {
    std::string line;
    while (lines.Next(line)) {
        Classify(line, pWorld, pScene);
        // A keyword line that opens a section reaches that section's parser too, where it
        // has no valid form.
        if (m_iState == 4) {
            ParseCorner(line, pScene);
        } else if (m_iState == 5) {
            ParsePlane(line, lines, pScene);
        } else if (m_iState == 3) {
            ParseMaterial(line);
        }
    }
}

void CWorldTextReader::Classify(const std::string &line, CDSC_World *pWorld, CDSC_Scene *pScene) {
    const std::string copy = qk::ToUpper(trimmed(line));
    if (copy.size() < 2 || copy[0] == ';') {
        return;
    }
    for (const char *keyword : {"GLOBAL", "GETGLOBAL", "LOCAL", "GETLOCAL"}) {
        if (startsWith(copy, keyword)) {
            ParseConstant(line, keyword, pWorld);
            m_iState = 2;
            return;
        }
    }
    if (startsWith(copy, "ABS")) {
        m_iState = 3;
    } else if (startsWith(copy, "CORNERS")) {
        m_iState = 4;
    } else if (startsWith(copy, "PLANES")) {
        m_iState = 5;
    } else if (startsWith(copy, "INCLUDE") || startsWith(copy, "#I")) {
        ParseInclude(line, startsWith(copy, "INCLUDE") ? "INCLUDE" : "#I", pScene);
        m_iState = 5;
    } else if (startsWith(copy, "OBJECT")) {
        pScene->m_iObject = 1;
        m_iState = 6;
    } else if (startsWith(copy, "FROMBACK")) {
        pScene->m_iFromBack = 1;
        m_iState = 6;
    } else if (startsWith(copy, "FROMFRONT")) {
        pScene->m_iFromBack = 0;
        m_iState = 6;
    } else if (startsWith(copy, "OFFSETPL")) {
        ParseOffset(line, "OFFSETPL", pScene);
        m_iState = 7;
    } else if (startsWith(copy, "OFFSETCO")) {
        ParseOffset(line, "OFFSETCO", pScene);
        m_iState = 8;
    } else if (startsWith(copy, "MIRROR")) {
        ParseMirror(line, pScene);
        m_iState = 9;
    } else if (startsWith(copy, "TRANSLATE")) {
        m_iState = 10;
    } else if (startsWith(copy, "ROTATE")) {
        m_iState = 11;
    } else if (startsWith(copy, "COPY")) {
        m_iState = 12;
    } else if (startsWith(copy, "ORIGIN")) {
        m_iState = 13;
    }
}

void CWorldTextReader::ParseConstant(const std::string &line, const char *keyword,
                                     CDSC_World *pWorld) {
    std::string text;
    if (!parserStart(line, text)) {
        return;
    }
    text = trimmed(removeKeyword(text, keyword));
    Cursor c(text);
    std::string name = c.Until("=");
    c.SkipBlanks();
    c.Find('=');
    c.SkipBlanks();
    std::string value = c.Until(";");
    c.SkipBlanks();
    c.Find(';');
    c.SkipBlanks();
    std::string description = c.Rest();
    name = withoutChars(name, " ");
    value = withoutChars(value, " ");
    description.erase(0, std::min(description.size(), description.find_first_not_of(' ')));
    pWorld->InsertConstant(name, value, description, 1);
}

void CWorldTextReader::ParseCorner(const std::string &line, CDSC_Scene *pScene) {
    std::string text;
    if (!parserStart(line, text)) {
        return;
    }
    Cursor c(text);
    const std::string id = c.Until(" ");
    int open = 0;
    int close = 0;
    std::string tokens[3];
    for (std::string &token : tokens) {
        c.SkipBlanks();
        while (!c.AtEnd()) {
            const char ch = c.Peek();
            // A blank ends the token only outside parentheses, and never inside the reserved
            // functions, whose ids stand apart by blanks.
            if (ch == ' ' && open == close && token.find("lock") == std::string::npos &&
                token.find("cut") == std::string::npos) {
                break;
            }
            open += ch == '(';
            close += ch == ')';
            token += ch;
            c.Advance();
        }
        token = trimmed(withoutChars(token, " ;"));
    }
    const int iID = vrtext::ToInt(id);
    if (!id.empty() && !tokens[0].empty() && !tokens[1].empty() && !tokens[2].empty()) {
        pScene->InsertPoint(iID, tokens[0], tokens[1], tokens[2]);
    } else if (!id.empty() && !tokens[0].empty()) {
        pScene->InsertPoint(iID, tokens[0]);
    }
}

void CWorldTextReader::ParsePlane(const std::string &line, Lines &lines, CDSC_Scene *pScene) {
    std::string text;
    if (!parserStart(line, text)) {
        return;
    }
    Cursor c(text);
    if (!c.Find('[')) {
        return;
    }
    c.SkipBlanks();
    const std::string id = c.Until(" ");
    c.SkipBlanks();
    c.Until(" ");  // the kind, which nothing reads
    if (!c.FindSeparator()) {
        return;
    }
    c.SkipBlanks();
    const std::string corners = trimmed(c.Until("/\\"));
    if (!c.FindSeparator()) {
        return;
    }
    c.SkipBlanks();
    const std::string material = c.Until(" ]");
    const bool closed = c.Find(']');
    const std::string image = closed ? trimmed(c.Until(";")) : std::string();

    CVRPlane *plane = nullptr;
    pScene->InsertPlane(plane, vrtext::ToInt(id), std::string(), material);
    plane->m_strImage = image;
    splitCorners(corners, *plane);
    if (closed) {
        return;
    }
    // A group: sub-planes, one a line, until a line that also holds "]".
    std::string next;
    while (lines.Next(next)) {
        Cursor g(next);
        if (!g.Find('(')) {
            return;
        }
        g.SkipBlanks();
        g.Until(" ");  // the sub-plane's id: sub-planes are all numbered 0
        if (!g.FindSeparator()) {
            return;
        }
        const std::string subCorners = trimmed(g.Until("/\\"));
        if (!g.FindSeparator()) {
            return;
        }
        g.Until(" )");
        if (!g.Find(')')) {
            return;
        }
        CVRPlane *sub = nullptr;
        pScene->InsertPlane(sub, 0, std::string(), std::string());
        splitCorners(subCorners, *sub);
        if (g.Find(']')) {
            return;
        }
    }
}

void CWorldTextReader::ParseInclude(const std::string &line, const char *keyword,
                                    CDSC_Scene *pScene) {
    std::optional<Cursor> c = afterKeyword(line, keyword);
    if (!c) {
        return;
    }
    const std::string name = c->Until(" ;");
    if (!name.empty()) {
        pScene->m_Includes.push_back(name);
    }
}

void CWorldTextReader::ParseOffset(const std::string &line, const char *keyword,
                                   CDSC_Scene *pScene) {
    std::optional<Cursor> c = afterKeyword(line, keyword);
    if (!c) {
        return;
    }
    const std::string number = c->Until(" ;");
    if (number.empty()) {
        return;
    }
    if (std::strcmp(keyword, "OFFSETPL") == 0) {
        pScene->m_iOffsetPlanes = 1;
        pScene->m_iOffsetPlanesBy = vrtext::ToInt(number);
    } else {
        pScene->m_iOffsetCorners = 1;
        pScene->m_iOffsetCornersBy = vrtext::ToInt(number);
    }
}

void CWorldTextReader::ParseMirror(const std::string &line, CDSC_Scene *pScene) {
    std::optional<Cursor> c = afterKeyword(line, "MIRROR");
    if (!c) {
        return;
    }
    const std::string corners = c->Until(" ;");
    c->SkipBlanks();
    const std::string planes = c->Until(" ;");
    if (!corners.empty() && !planes.empty()) {
        pScene->m_iMirror = 1;
        pScene->m_iMirrorCorners = vrtext::ToInt(corners);
        pScene->m_iMirrorPlanes = vrtext::ToInt(planes);
    }
}

void CWorldTextReader::ParseMaterial(const std::string &line) {
    std::optional<Cursor> c = afterKeyword(line, "ABS");
    if (!c) {
        return;
    }
    const std::string name = c->Until(" ;");
    if (name.empty()) {
        return;
    }
    c->SkipBlanks();
    if (c->Until(" ") != "=") {
        return;
    }
    // The numbers are read to be dropped: a material line only asks whether the material
    // should be added, and neither answer adds it.
    std::string absorption[kMaterialFields];
    std::string scattering[kMaterialFields];
    readMaterialFields(*c, absorption);
    c->SkipBlanks();
    c->Until(" ;");
    readMaterialFields(*c, scattering);

    using namespace qk::table;
    Code4 code;
    code4initLow(&code);
    const std::string path = MaterialTables::MaterialsPath();
    Data4 *d4 = d4open(&code, path);
    if (d4 == nullptr) {
        return;
    }
    const std::string key = qk::ToUpper(name);
    // This tag is not one of those the tables are made with, so on them the seek never
    // succeeds; that is how the question has always come to be asked.
    d4tagSelect(d4, d4tag(d4, "TAG_MNAME"));
    const bool found = d4seek(d4, key.c_str()) == r4success;
    if (!found) {
        d4tagSelect(d4, nullptr);
        d4bottom(d4);
        f4ptr(d4field(d4, "ID"));
    }
    d4close(d4);
    code4initUndo(&code);
    if (!found) {
        qk::Report("Material: '" + key + "' was not found in local database: '" + path +
                       ".dbf'.\nWould you like to insert it in the database?",
                   "World", qk::Severity::Question);
    }
}
