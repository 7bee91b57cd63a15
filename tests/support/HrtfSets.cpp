#include "support/HrtfSets.h"

#include <unistd.h>

#include <cstring>

#include <gtest/gtest.h>

#include "platform/Archive.h"

namespace qktest {

float Code(int iSlot, int iTap) {
    // Distinct for up to 512 slots of up to 64 taps, within +-1.
    return static_cast<float>((iSlot % 512) * 64 + iTap % 64 - 16384) / 32768.0f;
}

std::unique_ptr<CHELPER_HRTF> MakeSet(int iMeasurements, int iTaps, const char *pcEars, int iRate,
                                      const char *pcDataType) {
    auto set = std::make_unique<CHELPER_HRTF>();
    std::strncpy(set->m_szEars, pcEars, CHELPER_HRTF::kEarsSize - 1);
    std::strncpy(set->m_szDataType, pcDataType, CHELPER_HRTF::kDataTypeSize - 1);
    std::strncpy(set->m_szDescription, "made by the tests", CHELPER_HRTF::kDescriptionSize - 1);
    const bool bBoth = std::strcmp(pcEars, "BOTH") == 0;
    set->m_iChannels = bBoth ? 2 : 1;
    set->m_iMeasurements = iMeasurements;
    set->m_iFileTaps = set->m_iTaps = iTaps;
    set->m_iFileRate = set->m_iSampleRate = iRate;
    const int iSlots = iMeasurements * set->m_iChannels;
    set->m_pfData.Allocate(iSlots * iTaps);
    for (int s = 0; s < iSlots; ++s) {
        for (int k = 0; k < iTaps; ++k) {
            set->m_pfData[s * iTaps + k] = Code(s, k);
        }
    }
    return set;
}

void ExpectSameSet(const CHELPER_HRTF &a, const CHELPER_HRTF &b, bool bSamples) {
    EXPECT_EQ(a.m_fVersion, b.m_fVersion);
    EXPECT_STREQ(a.m_szDescription, b.m_szDescription);
    EXPECT_STREQ(a.m_szEars, b.m_szEars);
    EXPECT_STREQ(a.m_szDataType, b.m_szDataType);
    EXPECT_EQ(a.m_iChannels, b.m_iChannels);
    EXPECT_EQ(a.m_iFileRate, b.m_iFileRate);
    EXPECT_EQ(a.m_iFileTaps, b.m_iFileTaps);
    EXPECT_EQ(a.m_iMeasurements, b.m_iMeasurements);
    EXPECT_EQ(a.m_aiTableA, b.m_aiTableA);
    EXPECT_EQ(a.m_aiLookup, b.m_aiLookup);
    ASSERT_EQ(a.DataLength(), b.DataLength());
    if (bSamples) {
        EXPECT_EQ(std::memcmp(a.m_pfData.get(), b.m_pfData.get(),
                              sizeof(float) * static_cast<size_t>(a.DataLength())),
                  0);
    }
}

void FillLookup(CHELPER_HRTF &set, int m) {
    set.m_aiLookup.assign(CHELPER_HRTF::kDirections, m);
}

std::vector<uint8_t> StoreToBytes(CHELPER_HRTF &set) {
    qk::CMemoryStream out;
    set.Write(out);
    return out.Bytes();
}

}  // namespace qktest
