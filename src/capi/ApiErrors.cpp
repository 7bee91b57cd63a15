#include "capi/ApiErrors.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "quendarik/CQKSDK.h"

namespace qkc {
namespace {
thread_local char t_acLastError[1024] = "";

// The last warning or error the library reported, and how many it has reported. Written by
// the report handler on whichever thread reports (an engine's own, on its block path too),
// so it is a fixed buffer: nothing allocates there. The mutex is the C interface's own and
// is held for a copy only.
std::mutex g_reportLock;
char g_acLastReport[512] = "";
std::atomic<uint64_t> g_uiReports{0};

std::atomic<qk_message_fn> g_pfnHost{nullptr};
std::atomic<void *> g_pHostUser{nullptr};

int onReport(unsigned long, const char *text, const char *caption, int severity) {
    if (severity == QK_MSG_WARNING || severity == QK_MSG_ERROR) {
        std::lock_guard<std::mutex> guard(g_reportLock);
        std::snprintf(g_acLastReport, sizeof g_acLastReport, "%s", text != nullptr ? text : "");
        g_uiReports.fetch_add(1, std::memory_order_release);
    }
    const qk_message_fn fn = g_pfnHost.load();
    if (fn != nullptr) {
        fn(g_pHostUser.load(), severity, text != nullptr ? text : "");
    } else if (severity != QK_MSG_QUESTION) {
        std::fprintf(stderr, "quendarik: [%s] %s\n", caption != nullptr ? caption : "",
                     text != nullptr ? text : "");
    }
    // A question is never asked of a C host: it is answered No, as without any handler.
    return severity == QK_MSG_QUESTION ? QK_ANSWER_NO : QK_ANSWER_OK;
}
}  // namespace

int Fail(int code, const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(t_acLastError, sizeof t_acLastError, format, args);
    va_end(args);
    return code;
}

const char *LastError() {
    return t_acLastError;
}

void InstallReportHandler(CQKSDK &sdk) {
    static std::once_flag once;
    // The handler is process-wide; the first engine's facade installs it for all.
    std::call_once(once, [&sdk] { sdk.qk_Appl_Register_On_Message(&onReport, 0); });
}

void SetMessageHandler(qk_message_fn fn, void *user) {
    g_pHostUser.store(user);
    g_pfnHost.store(fn);
}

CReportWatch::CReportWatch() : m_uiStart(g_uiReports.load(std::memory_order_acquire)) {
    m_acText[0] = '\0';
}

const char *CReportWatch::Said() {
    if (g_uiReports.load(std::memory_order_acquire) == m_uiStart) {
        return "";
    }
    std::lock_guard<std::mutex> guard(g_reportLock);
    std::snprintf(m_acText, sizeof m_acText, "%s", g_acLastReport);
    return m_acText;
}

}  // namespace qkc
