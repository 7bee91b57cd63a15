// The ways a source's convolver may work, chosen once when the setting changes and handed
// down as a type, so that the block path tests an enumerator and not a word.
#pragma once

#include <string>

namespace qk {

enum class Convolution {
    Overlap,      // the whole-filter fast convolver ("OVERLAP", the default)
    Fir,          // a direct FIR per ear ("FIR")
    Partitioned,  // the uniformly partitioned convolver ("PARTITIONED")
};

// The method a word names; any word but "FIR" and "PARTITIONED" is the default.
inline Convolution ConvolutionOfWord(const std::string &strWord) {
    if (strWord == "FIR") {
        return Convolution::Fir;
    }
    return strWord == "PARTITIONED" ? Convolution::Partitioned : Convolution::Overlap;
}

inline const char *WordOf(Convolution method) {
    switch (method) {
        case Convolution::Fir:
            return "FIR";
        case Convolution::Partitioned:
            return "PARTITIONED";
        default:
            return "OVERLAP";
    }
}

// The facade's setting (qk_Siml_Set_Convolution): 1 partitioned, anything else the default.
inline Convolution ConvolutionOfSetting(int iSetting) {
    return iSetting == 1 ? Convolution::Partitioned : Convolution::Overlap;
}

}  // namespace qk
