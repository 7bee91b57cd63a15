// The MP3 and AC-3 test files of tests/data/codecs and what their tests compare them with.
#pragma once

#include <string>
#include <vector>

namespace qktest {

// A file of tests/data/codecs.
std::string CodecFile(const std::string &name);

// The channels of a 16-bit PCM wave file, each as floats in the integer scale.
std::vector<std::vector<float>> WaveChannels(const std::string &path);

// The largest normalised correlation of `decoded` against `reference` over the lags 0 to
// maxLag (decoded[i + lag] against reference[i]), on the first `length` samples of the
// reference.
double BestCorrelation(const std::vector<float> &decoded, const std::vector<float> &reference,
                       int length, int maxLag, int *bestLag = nullptr);

}  // namespace qktest
