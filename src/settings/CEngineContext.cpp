#include "settings/CEngineContext.h"

#include <sys/stat.h>

#include <cstdio>

#include "platform/Paths.h"
#include "platform/Report.h"

namespace {
// The path a request settles on: a request that differs from the path in force replaces it;
// an empty request is given the path in force instead.
std::string settlePath(std::string &strInUse, std::string &strRequest) {
    if (strInUse != strRequest) {
        if (!strRequest.empty()) {
            strInUse = strRequest;
        } else {
            strRequest = strInUse;
        }
    }
    return strInUse;
}

// What a file was like when it last failed to load: the same path in the same state fails the
// same way, so it isn't read (nor reported) again until it changes.
std::string fileState(const std::string &strFile) {
    struct stat st {};
    if (::stat(strFile.c_str(), &st) != 0) {
        return strFile + "|missing";
    }
    return strFile + "|" + std::to_string(st.st_size) + "|" + std::to_string(st.st_mtim.tv_sec) +
           "." + std::to_string(st.st_mtim.tv_nsec);
}

// Loads a set from its file into pSet (made when missing). With bCheckFile the file is first
// opened on its own, and a missing one is reported. A failed load drops the set. strFailed
// holds the state of the file that failed last: the engine asks again at every block while a
// request stands, and a file that hasn't changed since it failed is neither read nor reported.
int loadSet(std::unique_ptr<CHELPER_HRTF> &pSet, const std::string &strPath, bool bCheckFile,
            int iSampleRate, std::string &strFailed) {
    // The set in use stays made, and empty, without a path; the canceller's goes on to the
    // load, which fails and drops it.
    if (bCheckFile && strPath.empty()) {
        if (pSet == nullptr) {
            pSet = std::make_unique<CHELPER_HRTF>();
        }
        return -1;
    }
    const std::string file = qk::ResolveDataPath(strPath);
    const std::string state = fileState(file);
    if (state == strFailed) {
        pSet.reset();
        return -1;
    }
    if (pSet == nullptr) {
        pSet = std::make_unique<CHELPER_HRTF>();
    }
    if (bCheckFile) {
        std::FILE *test = std::fopen(file.c_str(), "rb");
        if (test == nullptr) {
            qk::Report("QKHRTF file not found", "FAILURE", qk::Severity::Error);
            pSet.reset();
            strFailed = state;
            return -1;
        }
        std::fclose(test);
    }
    pSet->Clear();
    pSet->m_pStream = nullptr;
    if (pSet->ReadWrite(0, file) != 0) {
        pSet.reset();
        strFailed = state;
        return -1;
    }
    strFailed.clear();
    pSet->m_iSampleRate = iSampleRate;
    return 0;
}

}  // namespace

CEngineContext::CEngineContext(CQUENDARIC_PARAMETERS &settings) : m_Settings(settings) {
    qk::table::code4initLow(&m_Code4);
    m_World.m_pCode4 = &m_Code4;
    m_pSFM_ORMS = std::make_unique<CSFM_ISM_ORMS>(&m_World);
    m_pSFM_ORMS->m_pCode4 = &m_Code4;
}

CEngineContext::~CEngineContext() {
    qk::table::code4initUndo(&m_Code4);
}

int CEngineContext::SetHRTF() {
    std::string path;
    {
        std::lock_guard<std::recursive_mutex> guard(m_Settings.m_csStrings);
        path = settlePath(m_Settings.m_strHRTF, m_Settings.m_strHRTFRequest);
    }
    if (loadSet(m_pHRTF, path, true, m_Settings.m_iSampleRate, m_strFailedHRTF) != 0) {
        return -1;
    }
    SetHRTF_CTC();
    return 0;
}

int CEngineContext::SetHRTF_CTC() {
    std::string path;
    {
        std::lock_guard<std::recursive_mutex> guard(m_Settings.m_csStrings);
        path = settlePath(m_Settings.m_strHRTF_CTC, m_Settings.m_strHRTFRequest_CTC);
    }
    return loadSet(m_pHRTF_CTC, path, false, m_Settings.m_iSampleRate, m_strFailedHRTF_CTC);
}
