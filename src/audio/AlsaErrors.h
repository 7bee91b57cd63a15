// ALSA's library prints its own error lines to standard error unless told otherwise. The
// library installs one handler for the whole process: the texts ALSA gives while a device is
// being opened on this thread are gathered and become part of the one line that reports the
// failure; texts at any other time reach the message handler, each distinct text once (of
// the last few), instead of standard error.
#pragma once

#include <string>

namespace qk {

// Installs the handler; safe to call any number of times, from any thread.
void InstallAlsaErrorHandler();

// While one lives, ALSA's texts on this thread are gathered instead of reported.
class CAlsaErrorCapture {
  public:
    CAlsaErrorCapture();
    ~CAlsaErrorCapture();
    CAlsaErrorCapture(const CAlsaErrorCapture &) = delete;
    CAlsaErrorCapture &operator=(const CAlsaErrorCapture &) = delete;
    // The texts gathered so far, joined by "; ".
    const std::string &Text() const { return m_strText; }

  private:
    friend void AlsaErrorText(const std::string &strText);
    std::string m_strText;
    CAlsaErrorCapture *m_pOuter;
};

}  // namespace qk
