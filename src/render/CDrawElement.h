// What a scene view draws for a rendering object. The views themselves are not part of the
// library; an object keeps the element's description and its offset on the screen so that a
// host's view finds them there.
#pragma once

#include <string>

// A move on the screen, in pixels.
struct CSize {
    int cx = 0;
    int cy = 0;
};

class CDrawElement {
  public:
    virtual ~CDrawElement() = default;

    // Shifts the element by the size.
    virtual void Move(CSize size) {
        m_offset.cx += size.cx;
        m_offset.cy += size.cy;
    }

    std::string m_strDescription;
    CSize m_offset;  // pixels moved since the element was made
};
