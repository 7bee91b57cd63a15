// What the engine context hands a rendering object besides its settings: the HRTF set in use,
// the room model and the pre-computed set. Each is looked up when asked, since a set that is
// loaded anew replaces the one before; an object that holds a set's pointer takes it again
// when the engine says the set changed. Null where there is none.
#pragma once

class CHELPER_HRTF;
class CSFM_ISM_ORMS;
class CSFM_PCIRS;

class CRenderResources {
  public:
    virtual ~CRenderResources() = default;
    virtual CHELPER_HRTF *HRTF() const = 0;
    virtual CSFM_ISM_ORMS *RoomModel() const = 0;
    virtual CSFM_PCIRS *PreComputed() const = 0;
};
