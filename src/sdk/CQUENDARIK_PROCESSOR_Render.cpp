// One block of the render path: follow the changes of settings, render every enabled virtual
// source into the listener's block, post-process it and hand it to the recording sink, the
// host's callback and the output device.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>

#include "field/SoundFieldModel.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"

namespace {
// 10^(g / 10): the law of the output gain and the limiter (not 20 dB a decade; a gain of 6
// multiplies by about 4). The two fit together.
float gainFactor(float fGain_dB) {
    return std::pow(10.0f, fGain_dB / 10.0f);
}
}  // namespace

int CQUENDARIK_PROCESSOR::_processWinAmp(int iLength, int iBits, int iChannels, int iSampleRate) {
    // A block the buffers can't hold, or no block at all, makes nothing.
    if (iLength < 1 || iLength > m_iScratchLength || iChannels < 1 || iSampleRate < 1) {
        return -1;
    }
    const int b = iBits == 0 ? 16 : iBits;
    float *block = nullptr;
    {
        std::lock_guard<qk::CEngineLock> guard(m_csEngine);
        block = RenderBlock(iLength, iBits, b, iChannels, iSampleRate);
        if (block == nullptr) {
            return -1;
        }
    }
    // Outside the lock, so that the device's wait doesn't hold the host out.
    const int sink = m_Parameters.m_iAudioSink;
    if (sink == -2) {
        return 0;
    }
    m_Playback._process(sink, iChannels, b, iSampleRate, block, iLength, 0);
    return 1;
}

float *CQUENDARIK_PROCESSOR::RenderBlock(int n, int iBits, int b, int iChannels, int iRate) {
    CQUENDARIC_PARAMETERS &p = m_Parameters;
    TakeListenerMoves();  // the sources' moves are taken where they render
    if (p.m_iSaveWave == 1 && m_SinkWave.m_iInitialized == 0) {
        m_SinkWave._init(n, iChannels, b, iRate);
    }
    const int sink = p.m_iAudioSink;
    if (sink != -2) {
        const WAVEFORMATEX &format = m_Playback.GetFormat();
        if (format.nSamplesPerSec != static_cast<uint32_t>(iRate) || format.wBitsPerSample != b ||
            m_Playback.GetDevice() != sink) {
            p.m_iWorldChanged = 1;
        }
    }
    FollowHRTFRequests();
    if (m_Context.m_pHRTF == nullptr) {
        return nullptr;  // retried, and reported, at every block
    }
    CQUENDARIC_Object_Sink *listener = GetSink();
    if (listener == nullptr) {
        return nullptr;
    }
    CheckForMaterialChanges(iRate);
    float *block = RenderObjects(*listener, n, iRate);
    PostProcess(block, n, iRate, iBits);
    FinishBlock(*listener);
    if (p.m_iSaveWave == 1 && m_SinkWave.m_iInitialized == 1) {
        m_SinkWave._process(block, n, iChannels);
    }
    const OnValuesFn callback = m_pfnOnValues;
    const unsigned long user = m_dwOnValuesUser;
    // A zero user word silently disables the callback.
    if (callback != nullptr && user != 0) {
        callback(user, block, block + n, n, iBits, iChannels, iRate, p.m_fGain);
    }
    return block;
}

float *CQUENDARIK_PROCESSOR::RenderObjects(CQUENDARIC_Object_Sink &listener, int n, int iRate) {
    listener._adjustDataBuffer(2 * n);
    std::fill(listener.m_pfData.get(), listener.m_pfData.get() + 2 * n, 0.0f);
    const int recalculate = m_Parameters.m_iWorldChanged == 1 ? 1 : 0;
    // A listener moved through its world entry moves here.
    if (listener.m_pClient != nullptr && (listener.m_position != listener.m_pClient->m_position ||
                                          listener.m_lookAt != listener.m_pClient->m_lookAt)) {
        listener.Move_LookAt(listener.m_pClient->m_position, listener.m_pClient->m_lookAt);
    }
    // Sources that convolve partitioned add their spectra to the listener's sums, which are
    // transformed back once for all of them.
    const bool bFrequencyMix = m_Parameters.m_iConvolution == 1 && listener.m_Mix.Begin(n);
    // In the room model's shared mode the first source's model makes the images the others
    // validate, so the sources rebuild one after the other in list order.
    const bool bShared =
        m_Parameters.m_iORMS == 1 && qk::field::Model(m_Parameters.m_iSFM).bSharedImages;
    // Sources mixed in the frequency domain are always summed by groups, so that the sums
    // come out the same whatever the thread count, one thread included.
    if (!bShared && (bFrequencyMix || Workers().Threads() > 1)) {
        for (auto &object : m_list3DSources) {
            if (object->m_iEnable != 0) {
                object->m_pSink = &listener;
                object->m_iRecalculate = recalculate;
            } else {
                object->TakeMove();  // an enabled one takes its own on the thread rendering it
            }
        }
        RenderObjectsInPhases(listener, n, iRate, bFrequencyMix);
    } else {
        for (auto &object : m_list3DSources) {
            object->TakeMove();
            if (object->m_iEnable == 0) {
                continue;
            }
            object->m_pSink = &listener;
            object->m_iRecalculate = recalculate;
            object->_process(n, iRate);  // adds itself to the listener's block
        }
    }
    if (bFrequencyMix) {
        listener.m_Mix.Finish(listener.m_pfData.get());
    }
    return listener.m_pfData.get();
}

qk::CWorkerPool &CQUENDARIK_PROCESSOR::Workers() {
    const int threads = m_Parameters.m_iThreads;
    const int wanted = threads > 0 ? threads : m_iDefaultThreads;
    if (m_pWorkers == nullptr || m_pWorkers->Threads() != std::min(wanted, 64)) {
        m_pWorkers = std::make_unique<qk::CWorkerPool>(wanted);
    }
    return *m_pWorkers;
}

namespace {
// Sources of a block summed together into a group's own spectrum sums, in list order, by one
// thread while their spectra are still in its cache. The groups' sums are added into the
// listener's in group order. There are about one group for every kGroup sources, at most
// kGroups, so that few sums are added. The groups shrink along the list (the first holds about
// twice the average, the last a few sources), so that the threads taking the last ones finish
// close together. Both depend on the source count alone, so the order of every addition is the
// same whatever the thread count.
constexpr size_t kGroup = 16;
constexpr size_t kGroups = 16;

size_t groupCount(size_t objects) {
    const size_t size = std::max(kGroup, (objects + kGroups - 1) / kGroups);
    return (objects + size - 1) / size;
}

// The first source of group g of `groups`: the sources after it are the list's, times the
// square of the share of the groups left.
size_t groupStart(size_t objects, size_t groups, size_t g) {
    const size_t left = groups - std::min(g, groups);
    return objects - (objects * left * left + groups * groups - 1) / (groups * groups);
}

struct PhaseWork {
    std::vector<CQUENDARIC_Object_Source *> *objects;
    std::vector<std::unique_ptr<CFrequencyMix>> *groups;
    CFrequencyMix *mix;
    int n;
    int iRate;
    size_t groupCount;
    // A group's sums are added into the listener's as soon as it and every group before it
    // are rendered, by whichever thread finds them so, while its sums are likely still in
    // that thread's cache. One thread adds at a time (it holds `adding`), always in group
    // order: the sums come out the same as when one thread does everything.
    std::array<std::atomic<bool>, kGroups> rendered{};
    std::atomic<bool> adding{false};
    size_t added = 0;  // groups in the listener's sums; by the thread holding `adding`
};

void prepareObject(void *context, int i) {
    const PhaseWork &work = *static_cast<const PhaseWork *>(context);
    CQUENDARIC_Object_Source *object = (*work.objects)[static_cast<size_t>(i)];
    object->TakeMove();
    if (object->RendersInPhases()) {
        object->PrepareBlock(work.n, work.iRate);
    }
}

// Adds every group rendered in order since the last one added. A thread that finds another
// adding leaves its group to it: the one adding looks again after it lets go, so a group
// rendered meanwhile is never left behind.
void addRenderedGroups(PhaseWork &work) {
    for (;;) {
        bool expected = false;
        if (!work.adding.compare_exchange_strong(expected, true)) {
            return;
        }
        size_t g = work.added;
        for (; g < work.groupCount && work.rendered[g].load(); ++g) {
            if (g > 0) {  // the first group rendered straight into the listener's sums
                work.mix->Take(*(*work.groups)[g]);
            }
        }
        work.added = g;
        work.adding.store(false);
        if (g >= work.groupCount || !work.rendered[g].load()) {
            return;
        }
    }
}

void renderGroup(void *context, int g) {
    PhaseWork &work = *static_cast<PhaseWork *>(context);
    // The first group goes straight into the listener's sums, which start at zero: the same
    // bits as a sum of its own added to them.
    CFrequencyMix &sums = g == 0 ? *work.mix : *(*work.groups)[static_cast<size_t>(g)];
    const size_t objects = work.objects->size();
    const size_t begin = groupStart(objects, work.groupCount, static_cast<size_t>(g));
    const size_t end = groupStart(objects, work.groupCount, static_cast<size_t>(g) + 1);
    // The moves first, in one pass: the hosts' writes are fetched together rather than one
    // at a time between the sources' work.
    for (size_t i = begin; i < end; ++i) {
        (*work.objects)[i]->TakeMove();
    }
    for (size_t i = begin; i < end; ++i) {
        CQUENDARIC_Object_Source *object = (*work.objects)[i];
        if (object->RendersInPhases()) {
            object->PrepareBlockInto(work.n, work.iRate, sums);
        }
    }
    work.rendered[static_cast<size_t>(g)].store(true);
    addRenderedGroups(work);
}
}  // namespace

void CQUENDARIK_PROCESSOR::RenderObjectsInPhases(CQUENDARIC_Object_Sink &listener, int n, int iRate,
                                                 bool bFrequencyMix) {
    m_blockObjects.clear();
    for (auto &object : m_list3DSources) {
        if (object->m_iEnable != 0) {
            m_blockObjects.push_back(object.get());
        }
    }
    // Workers may fetch responses from the data set: its rate is set here, once, not by each.
    if (CHELPER_HRTF *set = m_Context.m_pHRTF.get(); set != nullptr) {
        if (set->m_iSampleRate != iRate) {
            set->m_iSampleRate = iRate;
        }
    }
    qk::CWorkerPool &workers = Workers();
    PhaseWork work{&m_blockObjects, &m_groupMixes, &listener.m_Mix, n, iRate, 0};
    if (!bFrequencyMix) {
        workers.Run(static_cast<int>(m_blockObjects.size()), &prepareObject, &work);
    } else {
        work.groupCount = groupCount(m_blockObjects.size());
        while (m_groupMixes.size() < work.groupCount) {
            m_groupMixes.push_back(std::make_unique<CFrequencyMix>());
        }
        for (size_t g = 1; g < work.groupCount; ++g) {
            m_groupMixes[g]->Begin(n);  // allocates only for a new block length
        }
        workers.Run(static_cast<int>(work.groupCount), &renderGroup, &work);
    }
    FinishObjects(n, iRate);
}

void CQUENDARIK_PROCESSOR::FinishObjects(int n, int iRate) {
    for (CQUENDARIC_Object_Source *object : m_blockObjects) {
        if (object->RendersInPhases()) {
            object->FinishBlock(n);
        } else {
            object->_process(n, iRate);
        }
    }
}

void CQUENDARIK_PROCESSOR::FinishBlock(CQUENDARIC_Object_Sink &listener) {
    CQUENDARIC_PARAMETERS &p = m_Parameters;
    listener.m_iMoved = 0;
    p.m_iMaterialChanged = 0;
    p.m_iHRTFChanged = 0;
    if (p.m_iWorldChanged == 1) {
        p.m_fGain = 0.0f;
    }
    p.m_iWorldChanged = 0;
}

void CQUENDARIK_PROCESSOR::FollowHRTFRequests() {
    CQUENDARIC_PARAMETERS &p = m_Parameters;
    if (p.HRTFRequestPending() || m_iTestHRTF == 1 || m_Context.m_pHRTF == nullptr) {
        m_CrossTalk.m_iInitialized = 0;
        if (m_iTestHRTF == 1) {
            // The requested set is equalised first and its result requested instead.
            if (m_HRTFConverter.ConvertDFE(p.GetHRTFRequest()) == 0) {
                p.SetHRTFRequest(m_HRTFConverter.m_sOutputName);
            }
            m_iTestHRTF = 0;
        }
        m_Context.SetHRTF();
        p.m_iHRTFChanged = 1;
    }
    if (p.HRTFRequestPendingCTC() || m_Context.m_pHRTF_CTC == nullptr) {
        m_CrossTalk.m_iInitialized = 0;
        // A canceller's set that failed to load is looked for again once a second, not at
        // every block: each look is a walk of the folders and a few allocations. A new
        // request is taken at once.
        const auto now = std::chrono::steady_clock::now();
        if (p.HRTFRequestPendingCTC() || now >= m_nextCTCLook) {
            m_nextCTCLook = m_Context.SetHRTF_CTC() == 0 ? now : now + std::chrono::seconds(1);
        }
    }
}

int CQUENDARIK_PROCESSOR::PostProcess(float *pfBlock, int n, int iRate, int iBits) {
    CQUENDARIC_PARAMETERS &p = m_Parameters;
    if (qk::field::Model(p.m_iSFM).bGlobalLatePart && p.m_iOneReverb == 1 && p.m_i3DAudio == 1) {
        Reverb_Process(m_ReverbL, m_ReverbR, pfBlock, pfBlock, n, iRate);
    }
    CrossTalk(pfBlock, n, iRate, iBits);
    if (p.m_i3DAudio == 1 && p.m_iPostEQ == 2) {
        // Only 2 is "on". The services design themselves anew when gain or corner change.
        const float rate = static_cast<float>(iRate);
        m_FilterLowL._process(pfBlock, n, p.m_fGain_LSF, p.m_fFrequency_LSF, rate);
        m_FilterHighL._process(pfBlock, n, p.m_fGain_HSF, p.m_fFrequency_HSF, rate);
        m_FilterLowR._process(pfBlock + n, n, p.m_fGain_LSF, p.m_fFrequency_LSF, rate);
        m_FilterHighR._process(pfBlock + n, n, p.m_fGain_HSF, p.m_fFrequency_HSF, rate);
    }
    CheckAutomaticLimiter(pfBlock, n, iRate, iBits);
    const float gain = gainFactor(p.m_fGain);
    for (int i = 0; i < 2 * n; ++i) {
        pfBlock[i] *= gain;
    }
    return 0;
}

int CQUENDARIK_PROCESSOR::CheckAutomaticLimiter(float *pfBlock, int n, int, int iBits) {
    const float fullScale =
        iBits == 0 || iBits == 32 ? 1.0f : static_cast<float>(std::ldexp(1.0, iBits - 1));
    if (m_Parameters.m_iAGC != 1) {
        return 0;
    }
    const float gain = gainFactor(m_Parameters.m_fGain);
    float peakLeft = 0.0f;
    float peakRight = 0.0f;
    for (int i = 0; i < n; ++i) {
        m_pfScratch[i] = std::fabs(pfBlock[i] * gain);
        m_pfScratch[n + i] = std::fabs(pfBlock[n + i] * gain);
        peakLeft = std::max(peakLeft, m_pfScratch[i]);
        peakRight = std::max(peakRight, m_pfScratch[n + i]);
    }
    // Turned down so that this block comes out at 0.95 of full scale; it never comes back up
    // by itself.
    if (peakLeft > fullScale || peakRight > fullScale) {
        const float m = std::max(peakLeft, peakRight);
        m_Parameters.m_fGain = m_Parameters.m_fGain - 10.0f * std::log10(m / (0.95f * fullScale));
    }
    return 0;
}

int CQUENDARIK_PROCESSOR::CheckForMaterialChanges(int iSampleRate) {
    if (!qk::field::Model(m_Parameters.m_iSFM).bMaterials) {
        return 0;
    }
    // One material a block: each change rebuilds every object, so several are spread out.
    for (CVRPlane *plane : m_Context.m_World.m_Planes) {
        if (plane->m_strMaterial != plane->m_Material.m_strName) {
            plane->m_Material.MakeFilter(plane->m_strMaterial, static_cast<float>(iSampleRate), 0,
                                         &m_Context.m_Code4, m_Parameters.m_iMaterialCoeffs);
            m_Parameters.m_iMaterialChanged = 1;
            return 0;
        }
    }
    return 0;
}
