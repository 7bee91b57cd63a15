// What a sound field model provides, and the registry that maps the facade's model numbers
// (qk_SFM_Set) to models. The block path asks the entry of the model in force, never the
// number: which response a source convolves with, whether a late part follows it, whether
// materials and the image model's shared mode concern it, and whether the direct path takes
// its level from the distance.
//
// A model's response comes from one of three providers:
// - the direction's HRTF from the set in use (CHELPER_HRTF, through the source's convolver),
// - the room's binaural response from the engine context's image model (CSFM_ISM_ORMS, a
//   CSFM: GetBinauralImpulseResponse for the source's and listener's poses), or
// - the pre-computed set's response for the listener's place (CSFM_PCIRS).
// The late part's parameters (reverberation time, the first six image delays, the onset)
// come from the room model too (CSFM::GetRT60, CSFM_ISM_ORMS::EarlyDelays).
//
// A new model is a file pair in field/ for its provider (when none of the three fits: a class
// derived from CSFM, made and owned by the engine context) and one line in the table of
// SoundFieldModel.cpp.
#pragma once

namespace qk::field {

// Where a model's response comes from.
enum class Response {
    Direction,    // one HRTF for the direction
    Room,         // the image model's binaural response of the room
    PreComputed,  // the pre-computed set's response for the listener's place
};

// The late part a source adds itself when the engine's global pair isn't in use ("ONEREVERB"
// off).
enum class LatePart {
    None,
    DryAndWet,  // the early response, and each ear's reverb fed by it, mixed by the dry level
    WetOnly,    // the direction's HRTF, then each ear's reverb, whose output alone is heard
};

struct SModel {
    int iNumber;         // the facade's model number
    const char *pcName;  // for reports and the program's help
    Response response;
    LatePart late;
    // The direct path's level follows the distance (1 / d), and head motion may swing it.
    bool bLevelByDistance;
    // Materials shape the response: a changed material is made anew and rebuilds the sources.
    bool bMaterials;
    // The image model's shared mode ("ORMS") applies: sources rebuild in list order.
    bool bSharedImages;
    // With "ONEREVERB" on, the engine's global reverb pair adds the late part to the mix.
    bool bGlobalLatePart;
    // The response is a direction's, but the late part is tuned from this source's images,
    // which are made (without a binaural response) at each rebuild.
    bool bImagesForLatePart;
};

// The entry of a model number. A number no entry has gives the entry of an unknown model:
// the direction's HRTF and nothing else, as such numbers have always rendered.
const SModel &Model(int iNumber);

// Each registered entry, in number order; for listings.
int ModelCount();
const SModel &ModelAt(int iIndex);

}  // namespace qk::field
