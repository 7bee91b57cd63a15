// The C interface's failures in words: each thread's last failure, and the texts the library
// reports while a call runs, so that a failed call can say what the library said.
#pragma once

#include <cstdint>

#include "quendarik/quendarik.h"

class CQKSDK;

namespace qkc {

// Sets this thread's last failure (printf-style) and returns code, for `return Fail(...)`.
int Fail(int code, const char *format, ...) __attribute__((format(printf, 2, 3)));
// This thread's last failure; "" when none yet.
const char *LastError();

// Installs the C interface's handler of the library's reports through a facade (the first
// call in the process does; the handler then serves every engine).
void InstallReportHandler(CQKSDK &sdk);
// The host's handler, to which every report is passed on; null: standard error. Takes
// effect whenever an engine has been made.
void SetMessageHandler(qk_message_fn fn, void *user);

// Notes how many warnings and errors the library has reported when it is made; Said() then
// gives the last one reported since (on any thread), or "" when there was none.
class CReportWatch {
  public:
    CReportWatch();
    const char *Said();

  private:
    uint64_t m_uiStart;
    char m_acText[512];
};

}  // namespace qkc
