// The room model the settings own: a manager of image models, one per virtual source, so
// that each source keeps its own cached images. In shared mode all sources share the images
// of the first model, which are then images of the listener (the caller's source and
// listener exchanged): the list is made once when the listener moves, and each source pays
// only for validation.
//
// Calls may come from the engine's workers at once: the manager serves one at a time.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "field/CSFM_ISM.h"

class CSFM_ISM_ORMS : public CSFM_ISM {
    QK_DECLARE_SERIAL(CSFM_ISM_ORMS)

  public:
    CSFM_ISM_ORMS() = default;
    explicit CSFM_ISM_ORMS(CDSC_World *pWorld) : CSFM_ISM(pWorld) {}

    // The source's own model (made on its first call) answers; its six early delays, its
    // image counts and its echogram's length are copied here whatever the result. -1 when
    // no model could be made.
    int GetBinauralImpulseResponse(CHELPER_HRTF *pHRTF, float *&pfMono, int &iMonoLength,
                                   float *&pfLeft, float *&pfRight, int &iLength, C3Point sourcePos,
                                   C3Point sourceLookAt, C3Point listenerPos,
                                   C3Point listenerLookAt, std::string strHRTFFile, int iOrder,
                                   float fTemperature, int iSampleRate, float &fPeakLeft,
                                   float &fPeakRight, int iUnused, int iRecalculate,
                                   int iFilterTaps, int iSourceIndex) override;
    float GetRT60() override;

    // Frees the model of a virtual source that is removed; a model that shares its images
    // goes back to its own.
    void RemoveModel(int iSourceIndex);
    // The model of a source, or null; for the source's late part and for reports.
    const CSFM_ISM *Model(int iSourceIndex) const;
    size_t ModelCount() const { return m_Models.size(); }

    int m_iORMS = 0;        // 1: shared mode; copied from the settings before each call
    int m_iInfo = 0;        // 1: report timings; copied from the settings before each call
    int m_iLastLength = 0;  // echogram length of the source served last
    std::vector<std::unique_ptr<CSFM_ISM>> m_Models;  // in order of first request

  private:
    std::mutex m_csModels;
};
