// The reader of world text files: constants, corners, planes, includes and the scene marks,
// as expression text. Nothing is evaluated here and there are no syntax errors: a line that
// doesn't fit is dropped, and what is wrong shows in generation. The one word to the user is
// the question of a material line naming a material the table doesn't have.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class CDSC_World;
class CDSC_Scene;

class CWorldTextReader {
  public:
    // Files larger than this are refused as absurd (a room is a few kilobytes).
    static constexpr size_t kMaxFileBytes = 4u << 20;
    // A longer line is read in pieces of this many characters.
    static constexpr size_t kMaxLineLength = 100000;

    // Reads the file into the scene and the world's constants; its size goes to *pBytes.
    // 0; 1 when the file can't be opened, or (reported) is larger than iLimit bytes or
    // kMaxFileBytes, with nothing inserted.
    int Read(const std::string &strPath, CDSC_World *pWorld, CDSC_Scene *pScene,
             size_t iLimit = kMaxFileBytes, size_t *pBytes = nullptr);
    // The same on text in memory.
    void ReadText(const std::string &strText, CDSC_World *pWorld, CDSC_Scene *pScene);

    int m_iState = 0;  // the section the lines belong to

  private:
    class Lines;
    void ReadLines(Lines &lines, CDSC_World *pWorld, CDSC_Scene *pScene);
    void Classify(const std::string &line, CDSC_World *pWorld, CDSC_Scene *pScene);
    static void ParseConstant(const std::string &line, const char *keyword, CDSC_World *pWorld);
    static void ParseCorner(const std::string &line, CDSC_Scene *pScene);
    static void ParsePlane(const std::string &line, Lines &lines, CDSC_Scene *pScene);
    static void ParseInclude(const std::string &line, const char *keyword, CDSC_Scene *pScene);
    static void ParseOffset(const std::string &line, const char *keyword, CDSC_Scene *pScene);
    static void ParseMirror(const std::string &line, CDSC_Scene *pScene);
    static void ParseMaterial(const std::string &line);
};
