#include "audio/AlsaErrors.h"

#include <alsa/asoundlib.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <mutex>

#include "platform/Report.h"

namespace qk {

void AlsaErrorText(const std::string &strText);

namespace {
thread_local CAlsaErrorCapture *t_pCapture = nullptr;

// The texts reported lately: a text that comes back at every call (a device tried again and
// again) is reported once. Kept short; the oldest goes first.
constexpr size_t kRemembered = 16;
std::mutex g_reportedMutex;
std::deque<std::string> g_reported;

void alsaHandler(const char *, int, const char *, int iErr, const char *pcFormat, ...) {
    char text[512];
    va_list args;
    va_start(args, pcFormat);
    std::vsnprintf(text, sizeof text, pcFormat, args);
    va_end(args);
    std::string line(text);
    if (iErr != 0) {
        line += std::string(" (") + snd_strerror(iErr) + ")";
    }
    AlsaErrorText(line);
}
}  // namespace

void AlsaErrorText(const std::string &strText) {
    if (t_pCapture != nullptr) {
        std::string &gathered = t_pCapture->m_strText;
        gathered += gathered.empty() ? strText : "; " + strText;
        return;
    }
    {
        std::lock_guard<std::mutex> guard(g_reportedMutex);
        if (std::find(g_reported.begin(), g_reported.end(), strText) != g_reported.end()) {
            return;
        }
        if (g_reported.size() == kRemembered) {
            g_reported.pop_front();
        }
        g_reported.push_back(strText);
    }
    Report("ALSA: " + strText, "Quendarik", Severity::Warning);
}

void InstallAlsaErrorHandler() {
    static std::once_flag once;
    std::call_once(once, [] { snd_lib_error_set_handler(&alsaHandler); });
}

CAlsaErrorCapture::CAlsaErrorCapture() : m_pOuter(t_pCapture) {
    InstallAlsaErrorHandler();
    t_pCapture = this;
}

CAlsaErrorCapture::~CAlsaErrorCapture() {
    t_pCapture = m_pOuter;
}

}  // namespace qk
