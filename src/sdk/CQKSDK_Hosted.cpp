// The facade's operations for hosts that drive the engine block by block and want answers at
// once: loading the requested HRTF set now, importing a SOFA file as a set, and a source's
// echogram beside its binaural response.
#include <cstdio>
#include <mutex>
#include <string>

#include "binaural/SofaImport.h"
#include "platform/FileReplace.h"
#include "platform/Report.h"
#include "quendarik/CQKSDK.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"
#include "sdk/EngineObjects.h"

int CQKSDK::qk_HRTF_Load() {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    CQUENDARIC_PARAMETERS &p = m_pProcessor->m_Parameters;
    CEngineContext &context = m_pProcessor->m_Context;
    if (p.HRTFRequestPending() || context.m_pHRTF == nullptr) {
        // What the block path does on a new request: the canceller designs itself again and
        // every source rebuilds its response at the next block.
        m_pProcessor->m_CrossTalk.m_iInitialized = 0;
        context.SetHRTF();
        p.m_iHRTFChanged = 1;
    }
    return context.m_pHRTF != nullptr && context.m_pHRTF->m_iMeasurements > 0 ? 0 : -1;
}

int CQKSDK::qk_HRTF_Import(const char *pcSofa, const char *pcOut) {
    if (pcSofa == nullptr || pcOut == nullptr || *pcOut == '\0') {
        return -1;
    }
    CHELPER_HRTF set;
    std::string error;
    if (qk::ImportSofa(pcSofa, qk::SofaImportOptions{}, set, error) != 0) {
        qk::Report(error, "FAILURE", qk::Severity::Error);  // the sentence names the file
        return -1;
    }
    const std::string temp = qk::MakeTempBeside(pcOut);
    if (temp.empty()) {
        qk::Report(std::string(pcOut) + " can't be written", "FAILURE", qk::Severity::Error);
        return -1;
    }
    if (set.ReadWrite(1, temp) != 0) {
        std::remove(temp.c_str());
        return -1;  // the set's writer has said why
    }
    if (!qk::CommitTemp(temp, pcOut, error)) {
        qk::Report(std::string(pcOut) + ": " + error, "FAILURE", qk::Severity::Error);
        return -1;
    }
    return 0;
}

int CQKSDK::qk_Vsrc_Get_Echogram(int iID, float *&pfData, int &iLength) {
    return qk::WithSource(*m_pProcessor, iID, [&](CQUENDARIC_Object_Source &object) {
        pfData = object.m_pfMonoIR;
        iLength = pfData != nullptr ? object.m_iMonoIRLength : 0;
        return 0;
    });
}

int CQKSDK::qk_Wrld_Get_PlaneCount(int &iCount) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    iCount = static_cast<int>(m_pProcessor->m_Context.m_World.m_Planes.size());
    return 0;
}
