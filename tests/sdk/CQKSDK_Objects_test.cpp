// The facade's Vsrc and Vrcv families and the engine's lists of virtual sources and
// listeners behind them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"
#include "support/ScopedSettingsDir.h"
#include "support/SdkAccess.h"

namespace {
constexpr int kUnknown = 987654;

class Objects : public testing::Test {
  protected:
    CQUENDARIK_PROCESSOR &Engine() { return CQKSDKTestAccess::Engine(sdk); }
    CDSC_World &World() { return Engine().m_Context.m_World; }
    CQUENDARIC_Object_Source *Source(int id) { return Engine().Get3DSourceFromID(id); }
    // Each object's world entry is the entry at its own place in the world's list.
    void ExpectInStep() {
        auto &objects = Engine().m_list3DSources;
        auto &sinks = Engine().m_list3DSinks;
        ASSERT_EQ(objects.size(), World().m_VRSources.size());
        ASSERT_EQ(sinks.size(), World().m_VRClients.size());
        for (size_t i = 0; i < objects.size(); ++i) {
            EXPECT_EQ(objects[i]->m_pVRSource, World().m_VRSources[i].get()) << i;
        }
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
    EXPECT_EQ(sdk.qk_Vrcv_Set_Position_LookAt(kUnknown, 0, 0, 0, 0, 1, 0), -1);
    EXPECT_EQ(sdk.qk_Vrcv_Get_Position_LookAt(kUnknown, f, f, f, f, f, f), -1);
    EXPECT_EQ(sdk.qk_Vrcv_Upd_Position(kUnknown), -1);
    EXPECT_EQ(Engine().Remove3DListener(kUnknown), -1);
    EXPECT_EQ(sdk.qk_Vsrc_Get_First(), -1);
    EXPECT_EQ(i, 77);  // left alone, the wave id's output among them
    EXPECT_EQ(name, "kept");
    EXPECT_STREQ(buffer, "kept");
    EXPECT_EQ(pv, nullptr);
    pf = &f;
    EXPECT_EQ(sdk.qk_Vrcv_Get_Data(kUnknown, pf), 0);  // no listener: no block
    EXPECT_EQ(pf, nullptr);
    i = 5;
    EXPECT_EQ(sdk.qk_Vsrc_Get_Next(i), -1);  // past the end
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
    EXPECT_EQ(Enumerate(), ids);
    ExpectInStep();
    int wav = 0;
    sdk.qk_Vsrc_Get_3DSourceWavID(ids[2], wav);
    EXPECT_EQ(wav, ids[2]);

    // The middle one, then the last one of the list.
    EXPECT_EQ(sdk.qk_Vsrc_Remove(ids[1]), 0);
    EXPECT_EQ(sdk.qk_Vsrc_Remove(ids[3]), 0);
    ExpectInStep();
    EXPECT_EQ(Enumerate(), (std::vector<int>{ids[0], ids[2]}));
    EXPECT_EQ(World().m_VRSources[1]->m_position.x, 2.0f);

    // A virtual source plays the later of two sounds that share an id, and nothing for an id
    // no sound has.
    int gauss = 0, bound = 0, unbound = 0;
    sdk.qk_Ssrc_Add_Gauss(gauss);
    auto twin = std::make_unique<CSOURCE>();
    twin->m_iID = gauss;
    CSOURCE *later = twin.get();
    Engine().AddSource(std::move(twin));
    sdk.qk_Vsrc_Add(bound, gauss, 0, 0, 1, 0, "bound");
    sdk.qk_Vsrc_Add(unbound, kUnknown, 0, 0, 1, 0, "unbound");
    EXPECT_EQ(Source(bound)->m_pSSS_Source, later);
    EXPECT_EQ(Source(unbound)->m_pSSS_Source, nullptr);
}

TEST_F(Objects, ListenersPositionsAndTheirWorldEntries) {
    int first = 0, second = 0;
    sdk.qk_Vrcv_Add(first);
    sdk.qk_Vrcv_Add(second);
    EXPECT_EQ(Engine().m_pCurrentSink, Engine().Get3DSinkFromID(second));
    CQUENDARIC_Object_Sink *pFirst = Engine().Get3DSinkFromID(first);

    // The first enabled listener renders, whatever id is asked for.
    pFirst->_adjustDataBuffer(8);
    float *pf = nullptr;
    sdk.qk_Vrcv_Get_Data(second, pf);
    EXPECT_EQ(pf, pFirst->m_pfData.get());

    // Removing the current listener hands its sources to the one left.
    int id = 0;
    sdk.qk_Vsrc_Add(id, 0, 0, 0, 1, 0, "told the second");
    float d = -1, a = -1, e = -1;
    EXPECT_EQ(sdk.qk_Vsrc_Set_Position(id, 1, 0, 0), 0);
    sdk.qk_Vsrc_Get_Binaural_Position(id, d, a, e);
    EXPECT_EQ(d, 1.0f);
    EXPECT_EQ(a, 270.0f);  // on the right
    qktest::ReportRecorder reports;
    EXPECT_EQ(Engine().Remove3DListener(second), 0);
    EXPECT_EQ(reports.Texts(), (std::vector<std::string>{"TODO: Remove3DListener"}));
    ExpectInStep();
    EXPECT_EQ(Source(id)->m_pSink, pFirst);
    Engine().RemoveAll3DListeners();
    EXPECT_EQ(Source(id)->m_pSink, nullptr);
    Source(id)->m_pVRSource = nullptr;
    EXPECT_EQ(sdk.qk_Vsrc_Upd_Position(id), -2);
}
