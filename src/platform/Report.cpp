#include "platform/Report.h"

#include <cstdio>
#include <mutex>

namespace qk {
namespace {
std::mutex g_reportMutex;
ReportHandler g_handler = nullptr;
unsigned long g_handlerUser = 0;

const char *severityWord(Severity severity) {
    switch (severity) {
        case Severity::Info:
            return "info";
        case Severity::Warning:
            return "warning";
        case Severity::Error:
            return "error";
        case Severity::Question:
            return "question";
    }
    return "info";
}
}  // namespace

void SetReportHandler(ReportHandler handler, unsigned long user) {
    std::lock_guard<std::mutex> guard(g_reportMutex);
    g_handler = handler;
    g_handlerUser = user;
}

int Report(const std::string &text, const std::string &caption, Severity severity) {
    ReportHandler handler = nullptr;
    unsigned long user = 0;
    {
        // The handler is called outside the mutex, so that it may report again.
        std::lock_guard<std::mutex> guard(g_reportMutex);
        handler = g_handler;
        user = g_handlerUser;
    }
    if (handler != nullptr) {
        const int answer = handler(user, text.c_str(), caption.c_str(), static_cast<int>(severity));
        return severity == Severity::Question ? answer : kAnswerOk;
    }
    std::fprintf(stderr, "quendarik %s: %s%s%s\n", severityWord(severity), caption.c_str(),
                 caption.empty() ? "" : ": ", text.c_str());
    return severity == Severity::Question ? kAnswerNo : kAnswerOk;
}

}  // namespace qk
