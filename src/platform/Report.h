// The one reporting function of the library. Every text the system shows to its user (a file
// that can't be read, an unsupported kind of file, a question) goes through QKReport. The host
// may install a handler; without one the text is written as one line to standard error.
// QKReport always returns: nothing waits for a user.
#pragma once

#include <string>

namespace qk {

enum class Severity { Info = 0, Warning = 1, Error = 2, Question = 3 };

// Answers, with the values the Windows-era message boxes used.
constexpr int kAnswerOk = 1;
constexpr int kAnswerYes = 6;
constexpr int kAnswerNo = 7;

// Receives (user word, text, caption, severity) and gives the answer to a question; for
// other severities the answer is ignored.
using ReportHandler = int (*)(unsigned long user, const char *text, const char *caption,
                              int severity);

// Installs (or, with a null handler, removes) the process-wide handler. Thread-safe.
void SetReportHandler(ReportHandler handler, unsigned long user);

// Shows a text. Returns kAnswerOk for info, warning and error; for a question, what the
// handler answered, or kAnswerNo when no handler is installed.
int Report(const std::string &text, const std::string &caption, Severity severity);

}  // namespace qk
