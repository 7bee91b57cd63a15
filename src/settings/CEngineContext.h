// The engine context: the world, the material session, the room models and the HRTF sets,
// owned in one place and handed to each rendering object as the few things it needs
// (CRenderResources). The settings say what is wanted (the paths of the sets, the model
// number); the context holds what is in force. Everything here is used on the engine's
// thread, or under the engine lock.
#pragma once

#include <memory>
#include <string>

#include "binaural/CHELPER_HRTF.h"
#include "field/CSFM_ISM_ORMS.h"
#include "field/CSFM_PCIRS.h"
#include "settings/CQUENDARIC_PARAMETERS.h"
#include "settings/CRenderResources.h"
#include "world/CDSC_World.h"
#include "world/Code4.h"

class CEngineContext : public CRenderResources {
  public:
    explicit CEngineContext(CQUENDARIC_PARAMETERS &settings);
    ~CEngineContext() override;
    CEngineContext(const CEngineContext &) = delete;
    CEngineContext &operator=(const CEngineContext &) = delete;

    CQUENDARIC_PARAMETERS &Settings() const { return m_Settings; }

    // Bring the data set in use in line with the settings' request, on the engine's thread.
    // A request that differs from the path in force replaces it (an empty request takes the
    // path in force instead); the set is then loaded anew from that file. -1 with no set left
    // for an empty path, a file that can't be opened (reported as "QKHRTF file not found",
    // caption "FAILURE") or a file that doesn't load; 0 otherwise, after the canceller's set
    // has been brought in line too. Objects holding the old set's pointer must take it again.
    // A file that failed is neither read nor reported again until it changes.
    int SetHRTF();
    // The same for the canceller's set, with no report: a failure gives -1 in silence.
    int SetHRTF_CTC();

    CHELPER_HRTF *HRTF() const override { return m_pHRTF.get(); }
    CSFM_ISM_ORMS *RoomModel() const override { return m_pSFM_ORMS.get(); }
    CSFM_PCIRS *PreComputed() const override { return m_pSFM_PCIRS.get(); }

    CDSC_World m_World;  // the world the models read
    // The material session, handed to the world (and the room models) by pointer.
    qk::table::Code4 m_Code4;
    // The room model of the virtual sources, one image model per source inside, on m_World.
    std::unique_ptr<CSFM_ISM_ORMS> m_pSFM_ORMS;
    // The pre-computed set of model 4, read from the settings' m_strDirPreComputedWav.
    std::unique_ptr<CSFM_PCIRS> m_pSFM_PCIRS = std::make_unique<CSFM_PCIRS>();
    std::unique_ptr<CHELPER_HRTF> m_pHRTF;      // the set in use; null until the first load
    std::unique_ptr<CHELPER_HRTF> m_pHRTF_CTC;  // the canceller's set
    // The file (and its size and time) whose load failed last, for each set.
    std::string m_strFailedHRTF;
    std::string m_strFailedHRTF_CTC;

  private:
    CQUENDARIC_PARAMETERS &m_Settings;
};
