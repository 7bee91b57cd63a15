#include "support/HrtfSets.h"

#include <unistd.h>

#include <cstring>

#include <gtest/gtest.h>

#include "platform/Archive.h"
#include "platform/Report.h"

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

void FillLookup(CHELPER_HRTF &set, int m) {
    set.m_aiLookup.assign(CHELPER_HRTF::kDirections, m);
}

std::string TempPath(const std::string &name) {
    return testing::TempDir() + "qk" + std::to_string(getpid()) + "_" + name;
}

std::vector<uint8_t> StoreToBytes(CHELPER_HRTF &set) {
    qk::CMemoryStream out;
    set.Write(out);
    return out.Bytes();
}

namespace {
ReportCatcher *g_pCatcher = nullptr;

int catchReport(unsigned long, const char *text, const char *caption, int) {
    if (g_pCatcher != nullptr) {
        g_pCatcher->texts.emplace_back(text);
        g_pCatcher->captions.emplace_back(caption);
    }
    return qk::kAnswerNo;
}
}  // namespace

ReportCatcher::ReportCatcher() {
    g_pCatcher = this;
    qk::SetReportHandler(&catchReport, 0);
}

ReportCatcher::~ReportCatcher() {
    qk::SetReportHandler(nullptr, 0);
    g_pCatcher = nullptr;
}

}  // namespace qktest
