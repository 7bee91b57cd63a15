// A listener: where all virtual sources are mixed. A new one stands at the origin and looks
// along +y. The engine's block path clears its block, lets each source add to it, and clears
// m_iMoved at the end of the block.
#pragma once

#include "binaural/CFrequencyMix.h"
#include "render/CQUENDARIC_Object.h"

class CVRClient;

class CQUENDARIC_Object_Sink : public CQUENDARIC_Object {
    QK_DECLARE_SERIAL(CQUENDARIC_Object_Sink)

  public:
    CQUENDARIC_Object_Sink();

    // The base data and nothing more.
    void Serialize(qk::CArchive &ar) override;

    CVRClient *m_pClient = nullptr;  // the listener's entry in the world; owned by the world
    // The block in the frequency domain, for the sources that convolve partitioned: begun and
    // finished by the engine around the sources of a block.
    CFrequencyMix m_Mix;
};
