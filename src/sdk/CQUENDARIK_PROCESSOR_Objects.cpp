// The engine's virtual sources and listeners: adding, removing, finding and moving them. The
// engine's lists and the world's lists of entries change together, under the engine lock.
#include <algorithm>
#include <mutex>

#include "platform/Report.h"
#include "render/CQUENDARIC_Object_Source_Sound.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"
#include "sdk/EngineObjects.h"
#include "sdk/Messages.h"

namespace {
using Guard = std::lock_guard<qk::CEngineLock>;

// Takes one entry out of a list of owned entries, by identity; the entry is deleted.
template <typename T>
void eraseEntry(std::vector<std::unique_ptr<T>> &list, const T *pEntry) {
    auto it = std::find_if(list.begin(), list.end(),
                           [pEntry](const std::unique_ptr<T> &p) { return p.get() == pEntry; });
    if (it != list.end()) {
        list.erase(it);
    }
}

// Takes one entry out of a list of owned entries, by identity, and gives it to the caller.
template <typename T>
std::unique_ptr<T> takeEntry(std::vector<std::unique_ptr<T>> &list, const T *pEntry) {
    std::unique_ptr<T> taken;
    auto it = std::find_if(list.begin(), list.end(),
                           [pEntry](const std::unique_ptr<T> &p) { return p.get() == pEntry; });
    if (it != list.end()) {
        taken = std::move(*it);
        list.erase(it);
    }
    return taken;
}

// The first entry of a list of owned objects with that id, or null.
template <typename T>
T *findById(const std::vector<std::unique_ptr<T>> &list, int iID) {
    for (const auto &object : list) {
        if (object->m_iID == iID) {
            return object.get();
        }
    }
    return nullptr;
}

// Ties a new sound object in: a world entry of its own (returned), the engine's current
// listener, and the sound of that id. No early exit: with two sounds of one id the later one
// is bound.
CVRSoundSource *tieIn(CQUENDARIK_PROCESSOR &engine, CQUENDARIC_Object_Source_Sound &object,
                      int iSoundID, int iAudioLink) {
    auto &entries = engine.m_Context.m_World.m_VRSources;
    entries.push_back(std::make_unique<CVRSoundSource>());
    object.m_i3DSourceWavID = object.m_iID;
    object.m_pVRSource = entries.back().get();
    object.m_iAudioLink = iAudioLink;
    object.m_pSink = engine.m_pCurrentSink;
    for (auto &source : engine.m_listSources) {
        if (source->m_iID == iSoundID) {
            object.m_pSSS_Source = source.get();
            object.m_iSSS_SourceID = iSoundID;
        }
    }
    return object.m_pVRSource;
}
}  // namespace

// --- Virtual sources

int CQUENDARIK_PROCESSOR::Add3DSource_Sound(int &iID, int iSoundID, int iAudioLink, float x,
                                            float y, float z, const std::string &strName) {
    Guard guard(m_csEngine);
    const C3Point point(x, y, z, 0);
    auto pObject =
        std::make_unique<CQUENDARIC_Object_Source_Sound>(&m_Parameters, &m_Context, point, strName);
    tieIn(*this, *pObject, iSoundID, iAudioLink)->m_position = point;
    iID = pObject->m_iID;
    m_list3DSources.push_back(std::move(pObject));
    RefreshMoves();
    return 0;
}

int CQUENDARIK_PROCESSOR::Add3DSource_Sound(int &iID, int iSoundID, int iAudioLink) {
    Guard guard(m_csEngine);
    auto pObject = std::make_unique<CQUENDARIC_Object_Source_Sound>();
    pObject->m_pParameters = &m_Parameters;
    pObject->m_pResources = &m_Context;
    tieIn(*this, *pObject, iSoundID, iAudioLink);
    iID = pObject->m_iID;
    m_list3DSources.push_back(std::move(pObject));
    RefreshMoves();
    return 0;
}

// The object is found by its mark; its own world entry goes with it, so that both lists stay
// in step even when a caller has let them drift.
int CQUENDARIK_PROCESSOR::Remove3DSourceSound(int iID) {
    Guard guard(m_csEngine);
    CQUENDARIC_Object_Source *pObject = Get3DSourceFromID(iID);
    if (pObject == nullptr) {
        return -1;
    }
    pObject->m_iRemoveMark = 1;
    auto it = std::find_if(m_list3DSources.begin(), m_list3DSources.end(),
                           [](const auto &p) { return p->m_iRemoveMark != 0; });
    CVRSoundSource *pEntry = (*it)->m_pVRSource;
    // Out of the move directory before it is deleted: a host may be moving it right now.
    const std::unique_ptr<CQUENDARIC_Object_Source> leaving = std::move(*it);
    m_list3DSources.erase(it);
    RefreshMoves();
    eraseEntry(m_Context.m_World.m_VRSources, pEntry);
    m_Context.m_pSFM_ORMS->RemoveModel(iID);  // its room model goes with it
    return 0;
}

int CQUENDARIK_PROCESSOR::RemoveAll3DSources() {
    Guard guard(m_csEngine);
    const auto leaving = std::move(m_list3DSources);
    m_list3DSources.clear();
    RefreshMoves();
    for (const auto &object : leaving) {
        m_Context.m_pSFM_ORMS->RemoveModel(object->m_iID);
    }
    return 0;
}

void CQUENDARIK_PROCESSOR::RefreshMoves() {
    m_Moves.Rebuild(m_list3DSources, m_list3DSinks);
}

void CQUENDARIK_PROCESSOR::TakeMoves() {
    TakeListenerMoves();
    for (auto &object : m_list3DSources) {
        object->TakeMove();
    }
}

void CQUENDARIK_PROCESSOR::TakeListenerMoves() {
    CPoseSlot::Pose pose{};
    for (auto &sink : m_list3DSinks) {
        if (sink->m_PoseRequest.Take(pose)) {
            const C3Point position(pose[0], pose[1], pose[2], 0);
            const C3Point lookAt(pose[3], pose[4], pose[5], 0);
            sink->Move_LookAt(position, lookAt);
            if (sink->m_pClient != nullptr) {
                sink->m_pClient->m_position = position;
                sink->m_pClient->m_lookAt = lookAt;
            }
        }
    }
}

CQUENDARIC_Object_Source *CQUENDARIK_PROCESSOR::Get3DSourceFromID(int iID) {
    Guard guard(m_csEngine);
    return findById(m_list3DSources, iID);
}

int CQUENDARIK_PROCESSOR::Get3DSource_ID(int iID, int &iOut) {
    return qk::WithSource(*this, iID, [&](const CQUENDARIC_Object_Source &object) {
        iOut = object.m_iID;
        return 0;
    });
}

int CQUENDARIK_PROCESSOR::Get3DSource_Name(int iID, std::string &strName) {
    return qk::WithSource(*this, iID, [&](const CQUENDARIC_Object_Source &object) {
        strName = object.m_strDescription;
        return 0;
    });
}

int CQUENDARIK_PROCESSOR::Set3DSource_Enable(int iID, int iEnable) {
    return qk::WithSource(*this, iID, [&](CQUENDARIC_Object_Source &object) {
        object.m_iEnable = iEnable;
        if (object.m_pVRSource != nullptr) {
            object.m_pVRSource->m_iEnable = iEnable;
        }
        return 0;
    });
}

int CQUENDARIK_PROCESSOR::Set3DSource_Description(int iID, const std::string &strDescription) {
    return qk::WithSource(*this, iID, [&](CQUENDARIC_Object_Source &object) {
        object.m_strDescription = strDescription;
        if (object.m_pDraw != nullptr) {
            object.m_pDraw->m_strDescription = strDescription;
        }
        return 0;
    });
}

int CQUENDARIK_PROCESSOR::Set3DSource_SelectedChannelPlaylist(int iID, int iAudioLink) {
    return qk::WithSource(*this, iID, [&](CQUENDARIC_Object_Source &object) {
        object.m_iAudioLink = iAudioLink;
        return 0;
    });
}

int CQUENDARIK_PROCESSOR::Set3DSource_Position(int iID, float x, float y, float z) {
    return m_Moves.PublishSource(iID, {x, y, z, 0.0f, 0.0f, 0.0f}) ? 0 : -1;
}

int CQUENDARIK_PROCESSOR::Get3DSource_Position(int iID, float &x, float &y, float &z) {
    Guard guard(m_csEngine);
    TakeMoves();  // a move the host left is seen at once
    return qk::WithSource(*this, iID, [&](const CQUENDARIC_Object_Source &object) {
        x = object.m_position.x;
        y = object.m_position.y;
        z = object.m_position.z;
        return 0;
    });
}

int CQUENDARIK_PROCESSOR::Update3DSource_Position(int iID) {
    Guard guard(m_csEngine);
    TakeMoves();  // a move the host left is seen at once
    return qk::WithSource(*this, iID, [&](CQUENDARIC_Object_Source &object) {
        if (object.m_pVRSource == nullptr) {
            return -2;
        }
        object.Move(object.m_pVRSource->m_position);
        return 0;
    });
}

int CQUENDARIK_PROCESSOR::Get3DSource_Binaural_Position(int iID, float &fDistance, float &fAzimuth,
                                                        float &fElevation) {
    Guard guard(m_csEngine);
    TakeMoves();  // a move the host left is seen at once
    return qk::WithSource(*this, iID, [&](const CQUENDARIC_Object_Source &object) {
        fDistance = object.m_fDistance;
        fAzimuth = object.m_fAzimuth;
        fElevation = object.m_fElevation;
        return 0;
    });
}

int CQUENDARIK_PROCESSOR::GetVRSource(int iID, void *&pVRSource) {
    return qk::WithSource(*this, iID, [&](CQUENDARIC_Object_Source &object) {
        if (object.m_pVRSource == nullptr) {
            return -2;
        }
        pVRSource = object.m_pVRSource;
        return 0;
    });
}

int CQUENDARIK_PROCESSOR::Get3DSource_Binaural_IR(int iID, float *&pfLeft, float *&pfRight,
                                                  int &iLength) {
    return qk::WithSource(*this, iID, [&](CQUENDARIC_Object_Source &object) {
        object.SettleBIR();
        pfLeft = object.m_pfBIRLeft;
        pfRight = object.m_pfBIRRight;
        iLength = object.m_iBIRLength;
        return 0;
    });
}

int CQUENDARIK_PROCESSOR::Get3DSource_3DSourceWavID(int iID, int &iWavID) {
    Guard guard(m_csEngine);
    if (const CQUENDARIC_Object_Source *pObject = Get3DSourceFromID(iID)) {
        iWavID = pObject->m_i3DSourceWavID;
    }
    return 0;
}

int CQUENDARIK_PROCESSOR::Set3DSource_3DSourceWavID(int iID, int iWavID) {
    Guard guard(m_csEngine);
    if (CQUENDARIC_Object_Source *pObject = Get3DSourceFromID(iID)) {
        pObject->m_i3DSourceWavID = iWavID;
    }
    return 0;
}

// --- Listeners

int CQUENDARIK_PROCESSOR::Add3DListener(int &iID) {
    Guard guard(m_csEngine);
    auto pSink = std::make_unique<CQUENDARIC_Object_Sink>();
    iID = pSink->m_iID;
    m_pCurrentSink = pSink.get();
    auto &clients = m_Context.m_World.m_VRClients;
    clients.push_back(std::make_unique<CVRClient>());
    CVRClient *pClient = clients.back().get();
    pSink->m_pClient = pClient;
    pClient->m_position = pSink->m_position;
    pClient->m_lookAt = pSink->m_lookAt;
    m_list3DSinks.push_back(std::move(pSink));
    RefreshMoves();
    return 0;
}

// Finishes what a listener's removal needs, so that nothing points at it afterwards: its
// entries go, the last listener left becomes the current one, and sources that were told
// this listener are told that one.
int CQUENDARIK_PROCESSOR::Remove3DListener(int iID) {
    Guard guard(m_csEngine);
    CQUENDARIC_Object_Sink *pSink = Get3DSinkFromID(iID);
    if (pSink == nullptr) {
        return -1;
    }
    if (m_pCurrentSink == pSink) {
        m_pCurrentSink = nullptr;
        for (auto &other : m_list3DSinks) {
            if (other.get() != pSink) {
                m_pCurrentSink = other.get();
            }
        }
    }
    for (auto &object : m_list3DSources) {
        if (object->m_pSink == pSink) {
            object->m_pSink = m_pCurrentSink;
        }
    }
    const CVRClient *pClient = pSink->m_pClient;
    const auto leaving =
        takeEntry(m_list3DSinks, static_cast<const CQUENDARIC_Object_Sink *>(pSink));
    RefreshMoves();
    eraseEntry(m_Context.m_World.m_VRClients, pClient);
    qk::Report("TODO: Remove3DListener", kCaption, qk::Severity::Info);
    return 0;
}

int CQUENDARIK_PROCESSOR::RemoveAll3DListeners() {
    Guard guard(m_csEngine);
    for (auto &object : m_list3DSources) {
        object->m_pSink = nullptr;
    }
    m_pCurrentSink = nullptr;
    const auto leaving = std::move(m_list3DSinks);
    m_list3DSinks.clear();
    RefreshMoves();
    return 0;
}

CQUENDARIC_Object_Sink *CQUENDARIK_PROCESSOR::Get3DSinkFromID(int iID) {
    Guard guard(m_csEngine);
    return findById(m_list3DSinks, iID);
}

CQUENDARIC_Object_Sink *CQUENDARIK_PROCESSOR::GetSink() {
    Guard guard(m_csEngine);
    for (auto &sink : m_list3DSinks) {
        if (sink->m_iEnable != 0) {
            return sink.get();
        }
    }
    return nullptr;
}

float *CQUENDARIK_PROCESSOR::GetSinkData(int) {
    Guard guard(m_csEngine);
    CQUENDARIC_Object_Sink *pSink = GetSink();
    return pSink != nullptr ? pSink->m_pfData.get() : nullptr;
}

int CQUENDARIK_PROCESSOR::Set3DListener_Position_LookAt(int iID, float x, float y, float z,
                                                        float lx, float ly, float lz) {
    return m_Moves.PublishSink(iID, {x, y, z, lx, ly, lz}) ? 0 : -1;
}

int CQUENDARIK_PROCESSOR::Get3DListener_Position_LookAt(int iID, float &x, float &y, float &z,
                                                        float &lx, float &ly, float &lz) {
    Guard guard(m_csEngine);
    TakeMoves();  // a move the host left is seen at once
    return qk::WithSink(*this, iID, [&](const CQUENDARIC_Object_Sink &sink) {
        const C3Point &position =
            sink.m_pClient != nullptr ? sink.m_pClient->m_position : sink.m_position;
        const C3Point &lookAt =
            sink.m_pClient != nullptr ? sink.m_pClient->m_lookAt : sink.m_lookAt;
        x = position.x;
        y = position.y;
        z = position.z;
        lx = lookAt.x;
        ly = lookAt.y;
        lz = lookAt.z;
        return 0;
    });
}

int CQUENDARIK_PROCESSOR::Update3DListener_Position(int iID) {
    Guard guard(m_csEngine);
    TakeMoves();  // a move the host left is seen at once
    return qk::WithSink(*this, iID, [&](CQUENDARIC_Object_Sink &sink) {
        if (sink.m_pClient == nullptr) {
            return -2;
        }
        sink.Move_LookAt(sink.m_pClient->m_position, sink.m_pClient->m_lookAt);
        return 0;
    });
}
