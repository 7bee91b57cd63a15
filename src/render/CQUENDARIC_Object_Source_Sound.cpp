#include "render/CQUENDARIC_Object_Source_Sound.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "field/CSFM_ISM_ORMS.h"
#include "field/CSFM_PCIRS.h"
#include "platform/Archive.h"
#include "platform/Report.h"
#include "render/BlockMath.h"
#include "settings/CQUENDARIC_PARAMETERS.h"
#include "settings/CRenderResources.h"
#include "sources/CSOURCE.h"
#include "world/CVRSoundSource.h"

QK_IMPLEMENT_SERIAL(CQUENDARIC_Object_Source_Sound)

namespace {
constexpr const char *kCaption = "Quendarik";
constexpr int kObjectBits = 16;  // the object works at 16 bits whatever the engine's format

void copyFloats(const float *pfSource, float *pfDest, int n) {
    std::memcpy(pfDest, pfSource, sizeof(float) * static_cast<size_t>(n));
}

void zeroFloats(float *pf, int n) {
    std::memset(pf, 0, sizeof(float) * static_cast<size_t>(n));
}

}  // namespace

CQUENDARIC_Object_Source_Sound::CQUENDARIC_Object_Source_Sound() = default;

CQUENDARIC_Object_Source_Sound::CQUENDARIC_Object_Source_Sound(CQUENDARIC_PARAMETERS *pParameters,
                                                               C3Point position,
                                                               const std::string &strName)
    : CQUENDARIC_Object_Source_Sound(pParameters, nullptr, position, strName) {}

CQUENDARIC_Object_Source_Sound::CQUENDARIC_Object_Source_Sound(CQUENDARIC_PARAMETERS *pParameters,
                                                               CRenderResources *pResources,
                                                               C3Point position,
                                                               const std::string &strName) {
    m_pParameters = pParameters;
    m_pResources = pResources;
    m_pDraw = std::make_unique<CDrawElement>();
    m_strDescription = strName;
    m_pDraw->m_strDescription = strName;
    m_position = position;
    Move(position);  // no listener yet: the angles stay 0
    if (pParameters != nullptr) {
        m_iBlock = pParameters->m_iBlockLength;
        m_iRate = pParameters->m_iSampleRate;
        m_iBits = pParameters->m_iBits;
        m_HRTF.m_pHelper = HRTFSet();
    }
}

CQUENDARIC_Object_Source_Sound::~CQUENDARIC_Object_Source_Sound() {
    Terminate();
}

void CQUENDARIC_Object_Source_Sound::Serialize(qk::CArchive &ar) {
    CQUENDARIC_Object_Source::Serialize(ar);
    qk::SerializeVersion(ar);
}

void CQUENDARIC_Object_Source_Sound::Initialize(int iBlock, int iRate, int iBits) {
    m_iBlock = iBlock;
    m_iRate = iRate;
    m_iBits = iBits;
    InitializeHRTFVariables();
    m_HRTF._init(iBlock, iRate);
    m_iFilterOrder = 2;
    FreeFilters();
    if (m_pParameters != nullptr) {
        m_iPO = m_pParameters->m_iPO;
        float *pfCoefs = nullptr;
        m_pParameters->GetLPCoefs(pfCoefs, m_fLowCorner);
        ippsIIRInitAlloc_32f(&m_pIIRLow, pfCoefs, m_iFilterOrder, nullptr);
        m_pParameters->GetHPCoefs(pfCoefs, m_fHighCorner);
        ippsIIRInitAlloc_32f(&m_pIIRHigh, pfCoefs, m_iFilterOrder, nullptr);
        ippsFree(pfCoefs);
    }
    m_pfScratch1.AllocateZeroed(iBlock);
    m_pfScratch2.AllocateZeroed(iBlock);
    m_pfScratch3.AllocateZeroed(iBlock);
    m_pfMono.AllocateZeroed(iBlock);
    m_iMotionCounter = 0;
    m_fMotionBase = 0.0f;
    m_fMotionAzimuth = -1.0f;
    m_iInitialized = 1;
}

void CQUENDARIC_Object_Source_Sound::Terminate() {
    if (m_iInitialized == 0) {
        return;
    }
    SettleBlock();  // before the convolver's block goes; the mono block is cleared anyway
    m_iMonoHeld = 0;
    m_pfMono.Reset();
    SettleBIR();  // while the convolver still holds the response
    m_HRTF._quit();
    Terminate_LatePart(&m_ReverbL, &m_ReverbR);
    FreeFilters();
    m_pfScratch1.Reset();
    m_pfScratch2.Reset();
    m_pfScratch3.Reset();
    m_iInitialized = 0;
}

int CQUENDARIC_Object_Source_Sound::_process(int n, int iRate) {
    SettleHeld(n, iRate);
    const int iResult = Prepare(n, iRate);
    m_bPrepared = iResult == 0;
    FinishBlock(n);
    return iResult;
}

int CQUENDARIC_Object_Source_Sound::PrepareBlock(int n, int iRate) {
    SettleHeld(n, iRate);
    m_bPrepared = Prepare(n, iRate) == 0;
    return m_bPrepared ? 0 : -1;
}

int CQUENDARIC_Object_Source_Sound::PrepareBlockInto(int n, int iRate, CFrequencyMix &sums) {
    m_pMixTarget = &sums;
    SettleHeld(n, iRate);
    m_bPrepared = Prepare(n, iRate) == 0;
    m_pMixTarget = nullptr;
    return m_bPrepared ? 0 : -1;
}

void CQUENDARIC_Object_Source_Sound::FinishBlock(int n) {
    if (!m_bPrepared) {
        return;  // the block couldn't be rendered: nothing to add
    }
    m_bPrepared = false;
    if (!m_bMixedInSpectrum) {
        // A plain sum, taken straight from the convolver with the level when it holds the
        // block.
        m_pSink->_adjustDataBuffer(2 * n);
        if (m_iBlockHeld == n) {
            m_HRTF.AddInto(m_pSink->m_pfData, n, m_fBlockGain);
        } else {
            qk::AddBlock(m_pfData, m_pSink->m_pfData, 2 * n);
        }
    }
}

// A block that doesn't render the 3-D path may mix the object's block as the last block left
// it, and route its mono block, and a new format starts from a new convolver: what the
// convolver holds is copied out first.
void CQUENDARIC_Object_Source_Sound::SettleHeld(int n, int iRate) {
    if (m_iBlockHeld == 0 && m_iMonoHeld == 0) {
        return;
    }
    const CQUENDARIC_PARAMETERS *p = m_pParameters;
    if (p != nullptr && p->m_i3DAudio == 1 && n == m_iBlock && iRate == m_iRate &&
        m_iBits == kObjectBits && m_iConvolutionInUse == p->m_iConvolution) {
        return;
    }
    SettleBlock();
    SettleMono();
}

void CQUENDARIC_Object_Source_Sound::SettleBlock() {
    const int n = m_iBlockHeld;
    m_iBlockHeld = 0;
    if (n == 0 || m_HRTF.m_pfData == nullptr || 2 * n > m_HRTF.m_iDataLength ||
        2 * n > m_iDataLength) {
        return;
    }
    if (m_fBlockGain == 1.0f) {
        copyFloats(m_HRTF.m_pfData, m_pfData, 2 * n);
    } else {
        qk::CopyScaled(m_HRTF.m_pfData, m_pfData, 2 * n, m_fBlockGain);
    }
}

void CQUENDARIC_Object_Source_Sound::SettleMono() {
    const int n = m_iMonoHeld;
    m_iMonoHeld = 0;
    const float *pfHeld = n > 0 ? m_HRTF.LastInput(n) : nullptr;
    if (pfHeld != nullptr && m_pfMono != nullptr && n <= m_pfMono.size()) {
        copyFloats(pfHeld, m_pfMono, n);
    }
}

bool CQUENDARIC_Object_Source_Sound::BorrowsMono() const {
    return m_pParameters->m_i3DAudio == 1 && m_pParameters->m_iSplitBands == 0 &&
           m_HRTF.Method() == qk::Convolution::Overlap;
}

int CQUENDARIC_Object_Source_Sound::Prepare(int n, int iRate) {
    if (m_pSink == nullptr || m_pSSS_Source == nullptr || m_pSSS_Source->m_pfData == nullptr ||
        m_pParameters == nullptr) {
        return -1;
    }
    if (n < 1 || n > m_iBufferLength || iRate < 1) {
        return -1;
    }
    const CQUENDARIC_PARAMETERS &p = *m_pParameters;
    _adjustDataBuffer(2 * n);
    if (m_iInitialized == 0) {
        Initialize(n, iRate, kObjectBits);
    } else if (m_iBlock != n || m_iRate != iRate || m_iBits != kObjectBits ||
               m_iConvolutionInUse != p.m_iConvolution) {
        // A new format, or another convolution method, starts the convolution from silence.
        Terminate();
        m_HRTF.ClearHistory();
        Initialize(n, iRate, kObjectBits);
    }
    // The block path may have loaded the set anew or dropped it since the last block.
    m_HRTF.m_pHelper = HRTFSet();

    const int iSelector = ChannelSelector();
    FetchMono(n, iSelector);
    const int i3DAudio = p.m_i3DAudio;
    m_bMixedInSpectrum = false;
    if (i3DAudio == 0) {
        RouteStraight(n, iSelector);
    } else if (i3DAudio != 1) {
        zeroFloats(m_pfData, 2 * n);  // any other value silences the spatial path
    } else {
        if (FollowMoves(iRate)) {
            RebuildResponse(iRate);
        }
        // The level by distance applies to the rendered block; it is taken along with the
        // copy out of the convolver rather than in a pass of its own.
        Render(n, iRate, iSelector, DirectPathLevel());
        HeadMotion(n, iRate);
    }
    m_iRecalculate = 0;
    return 0;
}

int CQUENDARIC_Object_Source_Sound::ChannelSelector() const {
    const int iMode = m_pParameters->m_iChannelMode;
    if (iMode == 2) {
        return m_iAudioLink;
    }
    return iMode == 1 ? m_iChannelSelect : -1;
}

float *CQUENDARIC_Object_Source_Sound::Channel(const CIppBuffer &block, int k, int n) {
    if (block == nullptr || k < 0 ||
        (static_cast<long long>(k) + 1) * n > static_cast<long long>(block.size())) {
        return nullptr;
    }
    return block.get() + static_cast<size_t>(k) * static_cast<size_t>(n);
}

// Selection by the sound's channels and the selector. Whatever it doesn't select leaves
// m_pfMono as the last block left it. A channel taken whole that goes to the whole-filter
// convolver isn't copied: that convolver keeps its input, and m_pfMono is made from there
// only when a later block reads it.
void CQUENDARIC_Object_Source_Sound::FetchMono(int n, int iSelector) {
    const CSOURCE &source = *m_pSSS_Source;
    const int iChannels = source.m_iSource_Channels;
    float *pfMono = m_pfMono;
    m_pfBlockMono = pfMono;
    if (iChannels == 0) {
        // Shown in each block, on purpose: a source that delivers no channels is a fault of
        // the program that feeds it.
        qk::Report("m_pSSS_Source->m_iSource_Channels = 0! Why?", kCaption, qk::Severity::Error);
        SettleMono();
        return;
    }
    if (iChannels < 0 || pfMono == nullptr) {
        SettleMono();
        return;
    }
    float *pfWhole = nullptr;  // a channel taken as it is
    float *pfCh0 = Channel(source.m_pfData, 0, n);
    if (iChannels == 1) {
        pfWhole = pfCh0;
    } else if (iChannels > 2) {
        pfWhole = Channel(source.m_pfData, iSelector, n);
    } else if (const float *pfCh1 = Channel(source.m_pfData, 1, n);
               pfCh0 != nullptr && pfCh1 != nullptr) {
        switch (iSelector) {
            case 0:
                pfWhole = pfCh0;
                break;
            case 1:
                pfWhole = Channel(source.m_pfData, 1, n);
                break;
            case 2:
                m_iMonoHeld = 0;
                ippsAdd_32f(pfCh0, pfCh1, pfMono, n);
                ippsMulC_32f_I(0.5f, pfMono, n);
                return;
            case 3:
                m_iMonoHeld = 0;
                ippsSub_32f(pfCh1, pfCh0, pfMono, n);  // ch0 - ch1
                return;
            case 4:
                m_iMonoHeld = 0;
                ippsSub_32f(pfCh0, pfCh1, pfMono, n);  // ch1 - ch0
                return;
            default:
                break;
        }
    }
    if (pfWhole == nullptr) {
        SettleMono();
        return;
    }
    m_iMonoHeld = 0;
    if (BorrowsMono()) {
        m_pfBlockMono = pfWhole;
    } else {
        copyFloats(pfWhole, pfMono, n);
    }
}

// Without 3-D audio the mono signal goes to one ear or both. A selector that names neither
// leaves the object's block as it stood, and that is what is mixed.
void CQUENDARIC_Object_Source_Sound::RouteStraight(int n, int iSelector) {
    float *pfLeft = m_pfData;
    float *pfRight = pfLeft + n;
    switch (iSelector) {
        case 0:
        case 3:
            copyFloats(m_pfMono, pfLeft, n);
            zeroFloats(pfRight, n);
            break;
        case 1:
        case 4:
            zeroFloats(pfLeft, n);
            copyFloats(m_pfMono, pfRight, n);
            break;
        case 2:
            copyFloats(m_pfMono, pfLeft, n);
            copyFloats(m_pfMono, pfRight, n);
            break;
        default:
            break;
    }
}

// The rebuild test. A position written by the host to the world's entry reaches the object
// here; without one, a rebuild is due when the whole-degree angles differ from the ones the
// convolver was given, the listener moved, or the world, the materials, the rate or the data
// set changed. Moves within a degree thus cost nothing.
bool CQUENDARIC_Object_Source_Sound::FollowMoves(int iRate) {
    const CQUENDARIC_PARAMETERS &p = *m_pParameters;
    const CVRSoundSource *pEntry = m_pVRSource;
    auto entryDiffers = [this, pEntry] {
        return pEntry != nullptr &&
               (pEntry->m_position != m_position || pEntry->m_lookAt != m_lookAt);
    };
    if (!entryDiffers()) {
        const bool bDue = m_fAzimuth != static_cast<float>(m_HRTF.m_iAzimuth) ||
                          m_fElevation != static_cast<float>(m_HRTF.m_iElevation) ||
                          m_pSink->m_iMoved == 1 || p.m_iMaterialChanged == 1 ||
                          m_iRecalculate == 1 || m_iRate != iRate || p.m_iHRTFChanged == 1;
        if (!bDue) {
            return false;
        }
        m_iRate = iRate;
        if (m_pSink->m_iMoved == 1) {
            Move_LookAt(m_position, m_lookAt);  // the angles against the moved listener
        }
    }
    if (entryDiffers()) {
        Move_LookAt(pEntry->m_position, pEntry->m_lookAt);
    }
    return true;
}

// The room models hand in the room's whole binaural response, the pre-computed sets their
// response for the listener's place; the others take the direction's HRTF (and a source
// without a listener takes it too).
void CQUENDARIC_Object_Source_Sound::RebuildResponse(int iRate) {
    const CQUENDARIC_PARAMETERS &p = *m_pParameters;
    const qk::field::SModel &model = qk::field::Model(p.m_iSFM);
    using qk::field::Response;
    if (model.response == Response::Room && m_pSink != nullptr) {
        if (p.m_iHoldIRs == 0) {
            ReInitializeBinauralImpulseResponse();
        }
    } else if (model.response == Response::PreComputed) {
        if (p.m_iHoldIRs == 0) {
            ReInitializeBIR_PCIRS();
        }
    } else {
        if (model.bImagesForLatePart && p.m_iOneReverb == 0 && m_pSink != nullptr &&
            p.m_iHoldIRs == 0) {
            EarlyPartOnly();  // the late part is tuned from this source's images
        }
        ReInitializeHRTF(iRate);
    }
    if (model.late != qk::field::LatePart::None && p.m_iOneReverb == 0) {
        Terminate_LatePart(&m_ReverbL, &m_ReverbR);
        Initialize_LatePart(m_iBlock, m_iRate, &m_ReverbL, &m_ReverbR);
    }
    m_fMotionBase = m_fAzimuth;
    if (p.m_iGraphBIR == 1) {
        DrawGraph(iRate);
    }
}

void CQUENDARIC_Object_Source_Sound::Convolve(float *pfIn, int n, int iRate, float fGain) {
    m_iBlockHeld = 0;
    if (m_HRTF._process(pfIn, n, iRate) != 0 || m_HRTF.m_pfData == nullptr) {
        zeroFloats(m_pfData, 2 * n);
        return;
    }
    m_iBlockHeld = n;
    m_fBlockGain = fGain;
}

// With split bands only the sound's high band passes the HRTF; its low band reaches both ears
// unchanged. A sound that has no bands for the selector renders its mono signal whole.
void CQUENDARIC_Object_Source_Sound::Render(int n, int iRate, int iSelector, float fGain) {
    const CQUENDARIC_PARAMETERS &p = *m_pParameters;
    const qk::field::LatePart late = qk::field::Model(p.m_iSFM).late;
    if (p.m_iOneReverb == 0 && late != qk::field::LatePart::None) {
        RenderWithLatePart(n, iRate, late);
        return;
    }
    if (m_pParameters->m_iSplitBands == 0) {
        // Into the listener's spectrum sums when it mixes in the frequency domain: no inverse
        // transform, no copy and no mix of this object's own.
        CFrequencyMix &mix = m_pMixTarget != nullptr ? *m_pMixTarget : m_pSink->m_Mix;
        float *pfMono = m_pfBlockMono;
        m_bMixedInSpectrum = mix.Active() && m_HRTF.ProcessIntoMix(pfMono, n, mix, fGain) == 0;
        if (!m_bMixedInSpectrum) {
            Convolve(pfMono, n, iRate, fGain);
        }
        if (pfMono != m_pfMono.get()) {
            // A channel rendered as it is: m_pfMono is the convolver's copy, or made now.
            if (m_HRTF.LastInput(n) != nullptr) {
                m_iMonoHeld = n;
            } else {
                copyFloats(pfMono, m_pfMono, n);
            }
        }
        return;
    }
    const CSOURCE &source = *m_pSSS_Source;
    float *pfHigh = Channel(source.m_pfBreakHigh, iSelector, n);
    const float *pfLow = Channel(source.m_pfBreakLow, iSelector, n);
    if (pfHigh == nullptr || pfLow == nullptr) {
        Convolve(m_pfBlockMono, n, iRate, fGain);
        return;
    }
    Convolve(pfHigh, n, iRate, 1.0f);
    SettleBlock();
    qk::AddBlock(pfLow, m_pfData, n);
    qk::AddBlock(pfLow, m_pfData + n, n);
    if (fGain != 1.0f) {
        qk::ScaleBlock(m_pfData, 2 * n, fGain);
    }
}

float CQUENDARIC_Object_Source_Sound::DirectPathLevel() {
    // The room models and the pre-computed sets bring their distance law inside their
    // responses.
    if (!qk::field::Model(m_pParameters->m_iSFM).bLevelByDistance) {
        return 1.0f;
    }
    m_fDistance = GetDistance(m_pSink->m_position, m_position);
    return LevelForDistance();
}

// With head motion on, the direct path's azimuth swings by 6 degrees around the azimuth of
// the last rebuild, about half a cycle a second (the factor 3.14 is the one the swing has
// always had). A swung azimuth isn't whole, so the next block rebuilds and takes it as the
// new centre: the swing builds on itself until the next move.
void CQUENDARIC_Object_Source_Sound::HeadMotion(int n, int iRate) {
    if (m_pParameters->m_iHeadMotion != 1 ||
        !qk::field::Model(m_pParameters->m_iSFM).bLevelByDistance) {
        return;
    }
    ++m_iMotionCounter;
    float fAzimuth =
        static_cast<float>(m_fMotionBase + 6.0 * std::sin(m_iMotionCounter * 3.14 * n / iRate));
    if (fAzimuth < 0.0f) {
        fAzimuth = 360.0f - fAzimuth;  // so -4 gives 364, as it always has
    }
    m_fAzimuth = fAzimuth;
    m_fMotionAzimuth = fAzimuth;
    ReInitializeHRTF(iRate);
}
