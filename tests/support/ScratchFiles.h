// Files a test writes to its scratch folder; they are removed when the object goes.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/RiffBytes.h"
#include "support/WaveWriter.h"

namespace qktest {

class ScratchFiles {
  public:
    ScratchFiles() = default;
    ~ScratchFiles() {
        for (const auto &path : paths) {
            std::remove(path.c_str());
        }
    }
    ScratchFiles(const ScratchFiles &) = delete;
    ScratchFiles &operator=(const ScratchFiles &) = delete;

    // Each gives the path of the file it wrote.
    std::string Write(const std::string &name, const Bytes &bytes) {
        paths.push_back(ScratchPath(name));
        WriteFileBytes(paths.back(), bytes);
        return paths.back();
    }
    std::string Wave(const std::string &name, const std::vector<int> &interleaved, int channels,
                     int rate, int bits = 16) {
        paths.push_back(ScratchPath(name));
        EXPECT_TRUE(WriteWave(paths.back(), interleaved, channels, rate, bits));
        return paths.back();
    }

    std::vector<std::string> paths;
};

}  // namespace qktest
