// The .qkhrtf reader on arbitrary bytes, in both of its forms (named file: the sample type
// word decides; stream: always floats), followed by lookups that follow whatever the tables
// of an accepted file say.
//
// A set's two direction tables take 521,280 bytes whatever its size, which makes whole files
// slow to fuzz. An input that starts with 'C' is therefore a set in short: the 305 bytes of
// the header, a 16-bit count k and k 32-bit table entries, repeated to fill both tables, then
// the samples. Any other input is read as the bytes of a file.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

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

constexpr size_t kHeaderBytes = 305;
constexpr size_t kTableEntries = 65160;

// The file a set in short stands for.
std::vector<uint8_t> expand(const uint8_t *data, size_t size) {
    const size_t header = std::min(size, kHeaderBytes);
    std::vector<uint8_t> file(data, data + header);
    if (size < kHeaderBytes + 2) {
        return file;
    }
    size_t at = kHeaderBytes;
    size_t count = data[at] | static_cast<size_t>(data[at + 1]) << 8;
    at += 2;
    count = std::min(count, (size - at) / 4);
    std::vector<uint8_t> entries(data + at, data + at + 4 * count);
    at += 4 * count;
    if (entries.empty()) {
        entries.assign(4, 0);
    }
    for (int table = 0; table < 2; ++table) {
        for (size_t i = 0; i < kTableEntries; ++i) {
            const uint8_t *entry = entries.data() + 4 * (i % (entries.size() / 4));
            file.insert(file.end(), entry, entry + 4);
        }
    }
    file.insert(file.end(), data + at, data + size);
    return file;
}

void readBoth(const uint8_t *data, size_t size) {
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
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    qk::SetReportHandler(&quiet, 0);
    if (size > 0 && data[0] == 'C') {
        const std::vector<uint8_t> file = expand(data + 1, size - 1);
        readBoth(file.data(), file.size());
        return 0;
    }
    readBoth(data, size);
    return 0;
}
