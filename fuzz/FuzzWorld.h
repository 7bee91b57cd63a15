// What the world targets share: the materials table set-up that every world they make looks
// its materials up in.
#pragma once

#include "platform/Report.h"
#include "world/CDSC_World.h"

namespace fuzz {

inline int answerNo(unsigned long, const char *, const char *, int) {
    return qk::kAnswerNo;
}

// The set-up, made on the first call and kept for the process. The first call also has every
// message answered No, so that none waits for a user.
inline qk::table::Code4 *worldTables() {
    static qk::table::Code4 *code = [] {
        qk::SetReportHandler(&answerNo, 0);
        auto *c = new qk::table::Code4;
        qk::table::code4initLow(c);
        return c;
    }();
    return code;
}

}  // namespace fuzz
