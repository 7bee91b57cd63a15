// Records every text the library reports while it lives, answering questions as told.
#pragma once

#include <string>
#include <vector>

#include "platform/Report.h"

namespace qktest {

class ReportRecorder {
  public:
    struct Entry {
        std::string text;
        std::string caption;
        int severity;
    };
    explicit ReportRecorder(int answer = qk::kAnswerNo) : m_answer(answer) {
        qk::SetReportHandler(&ReportRecorder::Record, reinterpret_cast<unsigned long>(this));
    }
    ~ReportRecorder() { qk::SetReportHandler(nullptr, 0); }
    ReportRecorder(const ReportRecorder &) = delete;
    ReportRecorder &operator=(const ReportRecorder &) = delete;

    std::vector<Entry> entries;

    std::vector<std::string> Texts() const {
        std::vector<std::string> texts;
        for (const Entry &e : entries) {
            texts.push_back(e.text);
        }
        return texts;
    }
    // Whether any text so far holds the phrase.
    bool Told(const std::string &part) const {
        for (const Entry &e : entries) {
            if (e.text.find(part) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

  private:
    static int Record(unsigned long user, const char *text, const char *caption, int severity) {
        auto *self = reinterpret_cast<ReportRecorder *>(user);
        self->entries.push_back({text, caption, severity});
        return self->m_answer;
    }
    int m_answer;
};

}  // namespace qktest
