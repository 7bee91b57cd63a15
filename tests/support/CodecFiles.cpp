#include "support/CodecFiles.h"

#include <cmath>
#include <cstdlib>

#include "support/RiffBytes.h"

namespace qktest {

std::string CodecFile(const std::string &name) {
    const char *root = std::getenv("QK_TEST_DATA");
    return std::string(root != nullptr ? root : ".") + "/codecs/" + name;
}

std::vector<std::vector<float>> WaveChannels(const std::string &path) {
    const Bytes bytes = ReadFileBytes(path);
    int channels = 0;
    std::vector<std::vector<float>> out;
    for (const RawChunk &c : ChunksOf(bytes)) {
        if (c.id == "fmt " && c.dataOffset + 16 <= bytes.size()) {
            channels = LE16(bytes, c.dataOffset + 2);
            out.assign(static_cast<size_t>(channels), {});
        }
        if (c.id == "data" && channels > 0) {
            const size_t end = std::min<size_t>(bytes.size(), c.dataOffset + c.size);
            for (size_t at = c.dataOffset; at + 2 * channels <= end; at += 2 * channels) {
                for (int k = 0; k < channels; ++k) {
                    out[static_cast<size_t>(k)].push_back(
                        static_cast<int16_t>(LE16(bytes, at + 2 * static_cast<size_t>(k))));
                }
            }
        }
    }
    return out;
}

double BestCorrelation(const std::vector<float> &decoded, const std::vector<float> &reference,
                       int length, int maxLag, int *bestLag) {
    double best = -2.0;
    for (int lag = 0; lag <= maxLag; ++lag) {
        double xy = 0.0, xx = 0.0, yy = 0.0;
        for (int i = 0; i < length; ++i) {
            const size_t at = static_cast<size_t>(i + lag);
            if (at >= decoded.size() || static_cast<size_t>(i) >= reference.size()) {
                break;
            }
            const double x = decoded[at];
            const double y = reference[static_cast<size_t>(i)];
            xy += x * y;
            xx += x * x;
            yy += y * y;
        }
        const double r = xx > 0.0 && yy > 0.0 ? xy / std::sqrt(xx * yy) : 0.0;
        if (r > best) {
            best = r;
            if (bestLag != nullptr) {
                *bestLag = lag;
            }
        }
    }
    return best;
}

}  // namespace qktest
