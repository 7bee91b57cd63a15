// The facade's Vsrc and Vrcv families and the engine's lists of virtual sources and
// listeners behind them.
#include <gtest/gtest.h>

#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "render/CQUENDARIC_Object_Source_Sound.h"
#include "support/HrtfSets.h"
#include "support/ScopedSettingsDir.h"
#include "support/SdkAccess.h"
#include "support/SignalReference.h"

namespace {
constexpr int kUnknown = 987654;

class Objects : public testing::Test {
  protected:
    CQUENDARIK_PROCESSOR &Engine() { return CQKSDKTestAccess::Engine(sdk); }
    CDSC_World &World() { return Engine().m_Parameters.m_World; }
    CQUENDARIC_Object_Source *Source(int id) { return Engine().Get3DSourceFromID(id); }
    // Each object's world entry is the entry at its own place in the world's list.
    void ExpectInStep() {
        auto &objects = Engine().m_list3DSources;
        ASSERT_EQ(objects.size(), World().m_VRSources.size());
        for (size_t i = 0; i < objects.size(); ++i) {
            EXPECT_EQ(objects[i]->m_pVRSource, World().m_VRSources[i].get()) << i;
        }
        auto &sinks = Engine().m_list3DSinks;
        ASSERT_EQ(sinks.size(), World().m_VRClients.size());
        for (size_t i = 0; i < sinks.size(); ++i) {
            EXPECT_EQ(sinks[i]->m_pClient, World().m_VRClients[i].get()) << i;
        }
    }
    std::vector<int> Enumerate() {
        std::vector<int> ids;
        int id = 0;
        if (sdk.qk_Vsrc_Get_First() == 0) {
            while (sdk.qk_Vsrc_Get_Next(id) == 0) {
                ids.push_back(id);
            }
            EXPECT_EQ(id, -1);
        }
        return ids;
    }

    qktest::ScopedSettingsDir dir{"objects"};
    CQKSDK sdk;
};
}  // namespace

TEST_F(Objects, UnknownIdsGiveTheirOwnResults) {
    float f = 5.0f, *pf = nullptr, *pf2 = nullptr;
    int i = 77;
    void *pv = nullptr;
    std::string name = "kept";
    char buffer[16] = "kept";
    EXPECT_EQ(sdk.qk_Vsrc_Remove(kUnknown), 0);
    EXPECT_EQ(sdk.qk_Vsrc_Set_Position(kUnknown, 1, 2, 3), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Get_Position(kUnknown, f, f, f), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Upd_Position(kUnknown), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Get_Binaural_Position(kUnknown, f, f, f), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Get_Enable(kUnknown, i), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Set_Enable(kUnknown, 0), 0);
    EXPECT_EQ(sdk.qk_Vsrc_Get_AudioLink(kUnknown, i), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Set_AudioLink(kUnknown, 2), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Get_Description(kUnknown, buffer), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Set_Description(kUnknown, "x"), -1);
    EXPECT_EQ(sdk.qk_Vsrc_OGL_Get_VRSource(kUnknown, pv), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Get_BIR(kUnknown, pf, pf2, i), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Get_ID(kUnknown, i), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Get_Name(kUnknown, name), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Set_3DSourceWavID(kUnknown, 3), 0);
    EXPECT_EQ(sdk.qk_Vsrc_Get_3DSourceWavID(kUnknown, i), 0);
    EXPECT_EQ(i, 77);  // left alone
    EXPECT_EQ(name, "kept");
    EXPECT_STREQ(buffer, "kept");
    EXPECT_EQ(pv, nullptr);

    EXPECT_EQ(sdk.qk_Vrcv_Set_Position_LookAt(kUnknown, 0, 0, 0, 0, 1, 0), -1);
    EXPECT_EQ(sdk.qk_Vrcv_Get_Position_LookAt(kUnknown, f, f, f, f, f, f), -1);
    EXPECT_EQ(sdk.qk_Vrcv_Upd_Position(kUnknown), -1);
    pf = &f;
    EXPECT_EQ(sdk.qk_Vrcv_Get_Data(kUnknown, pf), 0);  // no listener: no block
    EXPECT_EQ(pf, nullptr);
    EXPECT_EQ(Engine().Remove3DListener(kUnknown), -1);

    EXPECT_EQ(sdk.qk_Vsrc_Get_First(), -1);
    i = 5;
    EXPECT_EQ(sdk.qk_Vsrc_Get_Next(i), -1);
    EXPECT_EQ(i, -1);
}

TEST_F(Objects, AddingAndRemovingKeepsTheWorldInStep) {
    int listener = 0;
    sdk.qk_Vrcv_Add(listener);
    std::vector<int> ids(4);
    for (int k = 0; k < 4; ++k) {
        ASSERT_EQ(sdk.qk_Vsrc_Add(ids[static_cast<size_t>(k)], 0, k, static_cast<float>(k), 1, 0,
                                  ("source " + std::to_string(k)).c_str()),
                  0);
    }
    EXPECT_EQ(ids[1], ids[0] + 1);
    EXPECT_EQ(Enumerate(), ids);
    ExpectInStep();
    int wav = 0;
    sdk.qk_Vsrc_Get_3DSourceWavID(ids[2], wav);
    EXPECT_EQ(wav, ids[2]);
    EXPECT_EQ(Source(ids[2])->m_iAudioLink, 2);
    EXPECT_EQ(Source(ids[2])->m_pSink, Engine().m_pCurrentSink);
    EXPECT_EQ(World().m_VRSources[2]->m_position.x, 2.0f);

    // The middle one, then the last one of the list.
    EXPECT_EQ(sdk.qk_Vsrc_Remove(ids[1]), 0);
    ExpectInStep();
    EXPECT_EQ(sdk.qk_Vsrc_Remove(ids[3]), 0);
    ExpectInStep();
    EXPECT_EQ(Enumerate(), (std::vector<int>{ids[0], ids[2]}));
    EXPECT_EQ(World().m_VRSources[1]->m_position.x, 2.0f);

    // Removing all leaves the world's entries to the caller.
    Engine().RemoveAll3DSources();
    EXPECT_TRUE(Engine().m_list3DSources.empty());
    EXPECT_EQ(World().m_VRSources.size(), 2u);
}

// A virtual source plays the later of two sounds that share an id, and nothing for an id no
// sound has.
TEST_F(Objects, SoundBinding) {
    int gauss = 0;
    sdk.qk_Ssrc_Add_Gauss(gauss);
    auto twin = std::make_unique<CSOURCE>();
    twin->m_iID = gauss;
    CSOURCE *later = twin.get();
    Engine().AddSource(std::move(twin));
    int bound = 0, unbound = 0;
    sdk.qk_Vsrc_Add(bound, gauss, 0, 0, 1, 0, "bound");
    sdk.qk_Vsrc_Add(unbound, kUnknown, 0, 0, 1, 0, "unbound");
    EXPECT_EQ(Source(bound)->m_pSSS_Source, later);
    EXPECT_EQ(Source(bound)->m_iSSS_SourceID, gauss);
    EXPECT_EQ(Source(unbound)->m_pSSS_Source, nullptr);

    int older = 0;
    Engine().Add3DSource_Sound(older, gauss, 4);
    CQUENDARIC_Object_Source *pOlder = Source(older);
    EXPECT_EQ(pOlder->m_pSSS_Source, later);
    EXPECT_EQ(pOlder->m_pParameters, &Engine().m_Parameters);
    EXPECT_EQ(pOlder->m_iAudioLink, 4);
    EXPECT_EQ(pOlder->m_pDraw, nullptr);
    ExpectInStep();
}

TEST_F(Objects, PositionsAndAngles) {
    int early = 0;
    sdk.qk_Vsrc_Add(early, 0, 0, 1, 0, 0, "before any listener");
    EXPECT_EQ(sdk.qk_Vsrc_Set_Position(early, 2, 0, 0), 0);
    void *pv = nullptr;
    ASSERT_EQ(sdk.qk_Vsrc_OGL_Get_VRSource(early, pv), 0);
    auto *entry = static_cast<CVRSoundSource *>(pv);
    EXPECT_EQ(entry->m_position.x, 2.0f);  // the entry moves, the object can't yet
    float x = 0, y = 0, z = 0;
    sdk.qk_Vsrc_Get_Position(early, x, y, z);
    EXPECT_EQ(x, 1.0f);

    int listener = 0, id = 0;
    sdk.qk_Vrcv_Add(listener);
    sdk.qk_Vsrc_Add(id, 0, 0, 1, 0, 0, "right");
    float d = -1, a = -1, e = -1;
    sdk.qk_Vsrc_Get_Binaural_Position(id, d, a, e);
    EXPECT_EQ(a, 0.0f);  // made before it was told the listener
    EXPECT_EQ(sdk.qk_Vsrc_Set_Position(id, 1, 0, 0), 0);
    sdk.qk_Vsrc_Get_Binaural_Position(id, d, a, e);
    EXPECT_EQ(d, 1.0f);
    EXPECT_EQ(a, 270.0f);
    EXPECT_EQ(e, 0.0f);
    ASSERT_EQ(sdk.qk_Vsrc_OGL_Get_VRSource(id, pv), 0);
    static_cast<CVRSoundSource *>(pv)->m_position = C3Point(0.0, 0.0, 3.0, 0);
    EXPECT_EQ(sdk.qk_Vsrc_Upd_Position(id), 0);
    sdk.qk_Vsrc_Get_Binaural_Position(id, d, a, e);
    EXPECT_EQ(d, 3.0f);
    EXPECT_EQ(e, 90.0f);
    Source(id)->m_pVRSource = nullptr;
    EXPECT_EQ(sdk.qk_Vsrc_Upd_Position(id), -2);
    EXPECT_EQ(sdk.qk_Vsrc_OGL_Get_VRSource(id, pv), -2);
}

// The facade's description is the object's alone; the engine's reaches its draw element too.
// Enabling reaches the world entry.
TEST_F(Objects, DescriptionAndEnable) {
    int id = 0;
    sdk.qk_Vsrc_Add(id, 0, 1, 0, 1, 0, "made");
    EXPECT_EQ(sdk.qk_Vsrc_Set_Description(id, "renamed"), 0);
    char buffer[64] = {};
    ASSERT_EQ(sdk.qk_Vsrc_Get_Description(id, buffer), 0);
    EXPECT_STREQ(buffer, "renamed");
    EXPECT_EQ(Source(id)->m_pDraw->m_strDescription, "made");
    EXPECT_EQ(Engine().Set3DSource_Description(id, "both"), 0);
    EXPECT_EQ(Source(id)->m_pDraw->m_strDescription, "both");
    sdk.qk_Vsrc_Set_Enable(id, 0);
    EXPECT_EQ(Source(id)->m_pVRSource->m_iEnable, 0);
}

TEST_F(Objects, ListenersAndTheirWorldEntries) {
    int first = 0, second = 0;
    sdk.qk_Vrcv_Add(first);
    sdk.qk_Vrcv_Add(second);
    EXPECT_EQ(Engine().m_pCurrentSink, Engine().Get3DSinkFromID(second));
    ExpectInStep();
    float v[6];
    ASSERT_EQ(sdk.qk_Vrcv_Get_Position_LookAt(first, v[0], v[1], v[2], v[3], v[4], v[5]), 0);
    EXPECT_EQ(v[4], 1.0f);  // looking along +y

    EXPECT_EQ(sdk.qk_Vrcv_Set_Position_LookAt(first, 1, 2, 3, 4, 5, 6), 0);
    sdk.qk_Vrcv_Get_Position_LookAt(first, v[0], v[1], v[2], v[3], v[4], v[5]);
    EXPECT_EQ(v[0], 1.0f);
    EXPECT_EQ(v[5], 6.0f);
    CQUENDARIC_Object_Sink *pFirst = Engine().Get3DSinkFromID(first);
    EXPECT_EQ(pFirst->m_position.y, 2.0f);
    // A host that moves the world entry makes the listener follow on request.
    pFirst->m_iMoved = 0;
    pFirst->m_pClient->m_lookAt = C3Point(0.0, -1.0, 0.0, 0);
    EXPECT_EQ(sdk.qk_Vrcv_Upd_Position(first), 0);
    EXPECT_EQ(pFirst->m_lookAt.y, -1.0f);
    EXPECT_EQ(pFirst->m_iMoved, 1);

    // The first enabled listener renders, whatever id is asked for.
    Engine().Get3DSinkFromID(first)->_adjustDataBuffer(8);
    Engine().Get3DSinkFromID(second)->_adjustDataBuffer(8);
    float *pf = nullptr;
    sdk.qk_Vrcv_Get_Data(second, pf);
    EXPECT_EQ(pf, pFirst->m_pfData.get());
    pFirst->m_iEnable = 0;
    sdk.qk_Vrcv_Get_Data(first, pf);
    EXPECT_EQ(pf, Engine().Get3DSinkFromID(second)->m_pfData.get());

    // Removing the current listener hands its sources to the one left.
    int id = 0;
    sdk.qk_Vsrc_Add(id, 0, 0, 0, 1, 0, "told the second");
    qktest::ReportCatcher reports;
    EXPECT_EQ(Engine().Remove3DListener(second), 0);
    ASSERT_EQ(reports.texts.size(), 1u);
    EXPECT_EQ(reports.texts[0], "TODO: Remove3DListener");
    ExpectInStep();
    EXPECT_EQ(Engine().m_pCurrentSink, pFirst);
    EXPECT_EQ(Source(id)->m_pSink, pFirst);
    pFirst->m_pClient = nullptr;
    EXPECT_EQ(sdk.qk_Vrcv_Upd_Position(first), -2);
    Engine().RemoveAll3DListeners();
    EXPECT_EQ(Source(id)->m_pSink, nullptr);
    EXPECT_EQ(Engine().GetSink(), nullptr);
}

// The engine's block path, reduced to the steps that concern the objects: a host-fed stereo
// sound, a listener, a virtual source to the right, and two blocks.
TEST_F(Objects, BlockPathRendersThroughTheEngineLists) {
    const int n = 256;
    CQUENDARIK_PROCESSOR &engine = Engine();
    engine.m_Parameters.m_pHRTF = qktest::MakeSet(2, 1, "BOTH", 44100);
    CHELPER_HRTF &set = *engine.m_Parameters.m_pHRTF;
    const float gains[4] = {0.5f, 0.5f, 0.25f, 1.0f};
    std::copy(gains, gains + 4, set.m_pfData.get());
    qktest::FillLookup(set, 0);
    set.m_aiLookup[static_cast<size_t>(CHELPER_HRTF::TableIndex(270, 0))] = 1;

    int sound = 0, listener = 0, id = 0, silent = 0;
    sdk.qk_Ssrc_Add_WMP(sound);
    sdk.qk_Vrcv_Add(listener);
    sdk.qk_Vsrc_Add(id, sound, 1, 1, 0, 0, "right");
    sdk.qk_Vsrc_Add(silent, sound, 0, 0, 1, 0, "disabled");
    sdk.qk_Vsrc_Set_Enable(silent, 0);
    std::vector<float> block = qktest::Noise(2 * n, 61);
    for (int b = 0; b < 2; ++b) {
        sdk.qk_Ssrc_Gen_Samples_1P(sound, block.data(), n, 16, 2, 44100);
        std::lock_guard<qk::CEngineLock> guard(engine.m_csEngine);
        CQUENDARIC_Object_Sink *sink = engine.GetSink();
        ASSERT_NE(sink, nullptr);
        sink->_adjustDataBuffer(2 * n);
        std::fill(sink->m_pfData.get(), sink->m_pfData.get() + 2 * n, 0.0f);
        for (auto &object : engine.m_list3DSources) {
            if (object->m_iEnable != 0) {
                object->m_pSink = sink;
                object->m_iRecalculate = engine.m_Parameters.m_iWorldChanged;
                object->_process(n, 44100);
            }
        }
        sink->m_iMoved = 0;
        engine.m_Parameters.m_iWorldChanged = 0;
    }
    float *pf = nullptr;
    sdk.qk_Vrcv_Get_Data(listener, pf);
    ASSERT_NE(pf, nullptr);
    for (int i = 0; i < n; ++i) {
        const float ch1 = block[static_cast<size_t>(n + i)];
        ASSERT_NEAR(pf[i], 0.25f * ch1, 1e-5f) << i;
        ASSERT_NEAR(pf[n + i], 1.0f * ch1, 1e-5f) << i;
    }
    float *pfLeft = nullptr, *pfRight = nullptr;
    int length = 0;
    ASSERT_EQ(sdk.qk_Vsrc_Get_BIR(id, pfLeft, pfRight, length), 0);
    ASSERT_EQ(length, 1);
    EXPECT_EQ(pfLeft[0], 0.25f);
    EXPECT_EQ(pfRight[0], 1.0f);
    EXPECT_EQ(Source(silent)->m_iInitialized, 0);
}
