// The .qkhrtf reader on arbitrary bytes, in both of its forms (named file: the sample type
// word decides; stream: always floats), followed by lookups that follow whatever the tables
// of an accepted file say.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "binaural/CHELPER_HRTF.h"
#include "platform/Archive.h"
#include "platform/Report.h"

namespace {
int quiet(unsigned long, const char *, const char *, int) {
    return qk::kAnswerNo;
}

void lookups(CHELPER_HRTF &set) {
    float *left = nullptr;
    float *right = nullptr;
    int length = 0;
    const float directions[][2] = {{0, 0}, {90, 0}, {359, -90}, {180, 90}, {-725, 91}};
    for (const auto &d : directions) {
        set.GetHRTF(left, right, length, d[0], d[1], set.m_iFileRate);
    }
    // One lookup through the resampler, kept short.
    if (set.m_iFileTaps <= 1024) {
        set.GetHRTF(left, right, length, 45.0f, 10.0f, set.m_iFileRate / 2 + 1);
    }
    ippsFree(left);
    ippsFree(right);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    qk::SetReportHandler(&quiet, 0);
    {
        CHELPER_HRTF set;
        qk::CMemoryStream in(data, size);
        if (set.Read(in) == 0) {
            lookups(set);
        }
    }
    {
        CHELPER_HRTF set;
        std::istringstream stream(std::string(reinterpret_cast<const char *>(data), size));
        set.m_pStream = &stream;
        if (set.ReadWrite(0, std::string()) == 0) {
            lookups(set);
        }
    }
    return 0;
}
