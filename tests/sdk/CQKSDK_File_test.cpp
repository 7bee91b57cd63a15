#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "audio/CSOURCE_SOUNDCARD.h"
#include "platform/Archive.h"
#include "render/CQUENDARIC_Object_Source_Sound.h"
#include "sources/CSOURCE_AC3.h"
#include "sources/CSOURCE_GAUSS.h"
#include "sources/CSOURCE_HOSTFED.h"
#include "sources/CSOURCE_MP3.h"
#include "sources/CSOURCE_WAVE.h"
#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"
#include "support/RiffBytes.h"
#include "support/ScopedSettingsDir.h"
#include "support/SdkAccess.h"
#include "support/WaveWriter.h"
#include "world/CVRSoundSource.h"

namespace fs = std::filesystem;

namespace {
// What a host keeps behind the engine's part of a project.
class HostNotes : public qk::CObject {
  public:
    void Serialize(qk::CArchive &ar) override {
        if (ar.IsStoring()) {
            if (failHalfWay) {
                ar << iValue;
                throw qk::CArchiveException(qk::CArchiveException::writeFailed, "host failed");
            }
            ar << iValue << strText;
        } else {
            ar >> iValue >> strText;
        }
    }
    int32_t iValue = 0;
    std::string strText;
    bool failHalfWay = false;
};

class ProjectFiles : public testing::Test {
  protected:
    ProjectFiles() : root("project_files"), settings("project_files") {
        folder = qktest::ScratchPath("projects");
        fs::remove_all(folder);
        fs::create_directories(folder);
    }
    ~ProjectFiles() override { fs::remove_all(folder); }
    static CQUENDARIK_PROCESSOR &Engine(CQKSDK &sdk) { return CQKSDKTestAccess::Engine(sdk); }

    // Every kind of sound source, and three virtual sources on two of them.
    void BuildScene(CQKSDK &sdk) {
        int id = 0;
        sdk.qk_Ssrc_Add_Gauss(id);
        sdk.qk_Ssrc_Add_File(wave, "/nowhere/voice.wav");
        sdk.qk_Ssrc_Add_File(id, "/nowhere/song.mp3");
        sdk.qk_Ssrc_Add_File(id, "/nowhere/film.ac3");
        sdk.qk_Ssrc_Add_Winamp(winamp);
        sdk.qk_Ssrc_Add_VST(id);
        sdk.qk_Ssrc_Add_DXi2(id);
        sdk.qk_Ssrc_Add_WMP(id);
        sdk.qk_Ssrc_Add_SoundCard(id, 0);
        sdk.qk_Ssrc_Set_Enable(winamp, 0);
        sdk.qk_Vsrc_Add(objects[0], wave, 2, 1.5f, 2.0f, -0.25f, "voice");
        sdk.qk_Vsrc_Add(objects[1], winamp, 1, -3.0f, 0.5f, 1.0f, "host");
        sdk.qk_Vsrc_Add(objects[2], wave, 0, 0.0f, -4.0f, 0.0f, "");
        sdk.qk_Vsrc_Set_Enable(objects[1], 0);
        sdk.qk_Vsrc_Set_Position(objects[2], 0.0f, -5.0f, 2.0f);  // still waiting for a block
        sdk.qk_Siml_Set_Gain(-6.5f);
        sdk.qk_SFM_Set(2);
        sdk.qk_SFM_Set_DirPreComputedWav("/sets/hall");
    }

    std::string folder;
    qktest::ScopedCommonRoot root;
    qktest::ScopedSettingsDir settings;
    int wave = 0, winamp = 0;
    int objects[3] = {};
};

template <typename T>
bool isKind(const std::unique_ptr<CSOURCE> &p) {
    return dynamic_cast<T *>(p.get()) != nullptr;
}
}  // namespace

TEST_F(ProjectFiles, RoundTripKeepsTheSceneAndGivesTheSameBytes) {
    const std::string first = folder + "/a.qkproject";
    const std::string second = folder + "/b.qkproject";
    HostNotes notes;
    notes.iValue = 77;
    notes.strText = "the host's own";
    {
        CQKSDK a;
        BuildScene(a);
        ASSERT_EQ(a.qk_File_Save(first.c_str(), &notes), 0);
    }
    CQKSDK b;
    HostNotes back;
    ASSERT_EQ(b.qk_File_Open(first.c_str(), &back), 0);
    EXPECT_EQ(back.iValue, 77);
    EXPECT_EQ(back.strText, "the host's own");

    CQUENDARIK_PROCESSOR &engine = Engine(b);
    const auto &sources = engine.m_listSources;
    ASSERT_EQ(sources.size(), 9u);
    EXPECT_TRUE(isKind<CSOURCE_GAUSS>(sources[0]));
    EXPECT_TRUE(isKind<CSOURCE_WAVE>(sources[1]));
    EXPECT_TRUE(isKind<CSOURCE_MP3>(sources[2]));
    EXPECT_TRUE(isKind<CSOURCE_AC3>(sources[3]));
    EXPECT_TRUE(isKind<CSOURCE_WINAMP>(sources[4]));
    EXPECT_TRUE(isKind<CSOURCE_VST>(sources[5]));
    EXPECT_TRUE(isKind<CSOURCE_DXi2>(sources[6]));
    EXPECT_TRUE(isKind<CSOURCE_WMP>(sources[7]));
    EXPECT_TRUE(isKind<CSOURCE_SOUNDCARD>(sources[8]));
    EXPECT_EQ(sources[1]->m_iID, wave);
    EXPECT_EQ(sources[1]->m_strFile, "/nowhere/voice.wav");
    EXPECT_EQ(static_cast<CSOURCE_WAVE &>(*sources[1]).GetFileRequest(), "/nowhere/voice.wav");
    EXPECT_EQ(sources[4]->m_iEnable, 0);

    const auto &objectList = engine.m_list3DSources;
    const auto &entries = engine.m_Context.m_World.m_VRSources;
    ASSERT_EQ(objectList.size(), 3u);
    ASSERT_EQ(entries.size(), 3u);
    const struct {
        const char *name;
        int link, enable;
        float x, y, z;
        CSOURCE *sound;
    } want[] = {{"voice", 2, 1, 1.5f, 2.0f, -0.25f, sources[1].get()},
                {"host", 1, 0, -3.0f, 0.5f, 1.0f, sources[4].get()},
                {"", 0, 1, 0.0f, -5.0f, 2.0f, sources[1].get()}};
    for (int i = 0; i < 3; ++i) {
        const CQUENDARIC_Object_Source &o = *objectList[static_cast<size_t>(i)];
        EXPECT_NE(dynamic_cast<const CQUENDARIC_Object_Source_Sound *>(&o), nullptr);
        EXPECT_EQ(o.m_iID, objects[i]);
        EXPECT_EQ(o.m_strDescription, want[i].name);
        EXPECT_EQ(o.m_iAudioLink, want[i].link);
        EXPECT_EQ(o.m_iEnable, want[i].enable);
        EXPECT_EQ(o.m_pSSS_Source, want[i].sound) << i;
        EXPECT_EQ(o.m_i3DSourceWavID, -1);  // not kept: set again by the host
        EXPECT_EQ(o.m_pVRSource, entries[static_cast<size_t>(i)].get());
        EXPECT_EQ(entries[static_cast<size_t>(i)]->m_iEnable, want[i].enable);
        EXPECT_FLOAT_EQ(o.m_position.x, want[i].x);
        EXPECT_FLOAT_EQ(o.m_position.y, want[i].y);
        EXPECT_FLOAT_EQ(o.m_position.z, want[i].z);
        EXPECT_FLOAT_EQ(o.m_pVRSource->m_position.y, want[i].y);
    }
    float gain = 0.0f;
    b.qk_Siml_Get_Gain(gain);
    EXPECT_FLOAT_EQ(gain, -6.5f);
    int model = 0;
    b.qk_SFM_Get(model);
    EXPECT_EQ(model, 2);
    std::string dir;
    b.qk_SFM_Get_DirPreComputedWav(dir);
    EXPECT_EQ(dir, "/sets/hall");

    // Listeners aren't kept: silent until one is added.
    EXPECT_EQ(engine.GetSink(), nullptr);
    int listener = 0;
    b.qk_Vrcv_Add(listener);
    EXPECT_NE(engine.GetSink(), nullptr);

    ASSERT_EQ(b.qk_File_Save(second.c_str(), &back), 0);
    EXPECT_EQ(qktest::ReadFileBytes(first), qktest::ReadFileBytes(second));
}

TEST_F(ProjectFiles, SectionsTagsAndEndMark) {
    const std::string path = folder + "/wave.qkproject";
    CQKSDK sdk;
    int id = 0;
    sdk.qk_Ssrc_Add_File(id, "/nowhere/a.wav");
    ASSERT_EQ(sdk.qk_File_Save(path.c_str(), nullptr), 0);
    const qktest::Bytes bytes = qktest::ReadFileBytes(path);
    qk::CMemoryStream in(bytes.data(), bytes.size());
    qk::CArchive ar(in, qk::CArchive::load);
    CQUENDARIC_PARAMETERS::ReadStored(ar);
    float version = 0.0f, end = 0.0f;
    int32_t count = 0, tag = 0;
    ar >> version >> count >> tag;
    EXPECT_EQ(version, 1.0f);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(tag, 4);  // a wave source, though it is a source of every base kind too
    Engine(sdk).m_listSources[0]->Serialize(ar);
    ar >> version >> count >> end;  // no listeners; no virtual sources
    EXPECT_EQ(count, 0);
    EXPECT_EQ(end, 1.0f);
    EXPECT_EQ(ar.Remaining(), 0);  // nothing behind the end mark without a host object
}

TEST_F(ProjectFiles, FailedSaveLeavesTheOldProjectAsItWas) {
    const std::string path = folder + "/kept.qkproject";
    CQKSDK sdk;
    BuildScene(sdk);
    ASSERT_EQ(sdk.qk_File_Save(path.c_str(), nullptr), 0);
    const qktest::Bytes before = qktest::ReadFileBytes(path);
    int id = 0;
    sdk.qk_Ssrc_Add_Gauss(id);  // the project now differs from the file

    qktest::ReportRecorder recorder;
    HostNotes failing;
    failing.failHalfWay = true;
    EXPECT_EQ(sdk.qk_File_Save(path.c_str(), &failing), -1);
    EXPECT_EQ(qktest::ReadFileBytes(path), before);

    // A disk that fills up half-way through the file.
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = old;
    small.rlim_cur = before.size() / 2;
    setrlimit(RLIMIT_FSIZE, &small);
    const int result = sdk.qk_File_Save(path.c_str(), nullptr);
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, previous);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(qktest::ReadFileBytes(path), before);
    EXPECT_EQ(recorder.entries.size(), 2u);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1)
        << "no temporary file is left behind";
    EXPECT_EQ(sdk.qk_File_Save((folder + "/no/such/folder/p").c_str(), nullptr), -1);
}

TEST_F(ProjectFiles, DamagedOrForeignFilesChangeNothing) {
    const std::string path = folder + "/whole.qkproject";
    {
        CQKSDK a;
        BuildScene(a);
        ASSERT_EQ(a.qk_File_Save(path.c_str(), nullptr), 0);
    }
    const qktest::Bytes whole = qktest::ReadFileBytes(path);
    CQKSDK b;
    int sound = 0, object = 0;
    b.qk_Ssrc_Add_Winamp(sound);
    b.qk_Vsrc_Add(object, sound, 0, 1.0f, 1.0f, 0.0f, "mine");
    b.qk_Siml_Set_Gain(-1.0f);
    CQUENDARIK_PROCESSOR &engine = Engine(b);
    const CSOURCE *pSound = engine.m_listSources[0].get();
    const CQUENDARIC_Object_Source *pObject = engine.m_list3DSources[0].get();

    qktest::ReportRecorder recorder;
    const std::string cut = folder + "/cut.qkproject";
    std::vector<qktest::Bytes> damaged;
    for (size_t n = 0; n < whole.size(); n += 13) {
        damaged.emplace_back(whole.begin(), whole.begin() + static_cast<long>(n));
    }
    // The sound source count made huge.
    qk::CMemoryStream in(whole.data(), whole.size());
    qk::CArchive ar(in, qk::CArchive::load);
    CQUENDARIC_PARAMETERS::ReadStored(ar);
    const size_t countAt = whole.size() - static_cast<size_t>(ar.Remaining()) + 4;
    damaged.push_back(whole);
    for (size_t k = 0; k < 4; ++k) {
        damaged.back()[countAt + k] = k == 3 ? 0x7F : 0xFF;
    }
    damaged.push_back(qktest::Bytes(whole.size(), 0xFF));  // a foreign file
    for (const qktest::Bytes &bytes : damaged) {
        qktest::WriteFileBytes(cut, bytes);
        ASSERT_EQ(b.qk_File_Open(cut.c_str(), nullptr), -1) << bytes.size();
        ASSERT_EQ(engine.m_listSources.size(), 1u);
        EXPECT_EQ(engine.m_listSources[0].get(), pSound);
        ASSERT_EQ(engine.m_list3DSources.size(), 1u);
        EXPECT_EQ(engine.m_list3DSources[0].get(), pObject);
        EXPECT_EQ(engine.m_Context.m_World.m_VRSources.size(), 1u);
    }
    EXPECT_EQ(recorder.entries.size(), damaged.size());
    float gain = 0.0f;
    b.qk_Siml_Get_Gain(gain);
    EXPECT_FLOAT_EQ(gain, -1.0f);
    EXPECT_EQ(b.qk_File_Open((folder + "/missing").c_str(), nullptr), -1);
    // The lock was let go on every way out: another thread gets it at once.
    bool bTaken = false;
    std::thread([&] {
        bTaken = engine.m_csEngine.try_lock();
        if (bTaken) {
            engine.m_csEngine.unlock();
        }
    }).join();
    EXPECT_TRUE(bTaken);
}

namespace {
// A set whose responses are `taps` long, so that the length tells which file is in use.
std::string WriteSet(const std::string &strPath, int iTaps) {
    auto set = qktest::MakeSet(3, iTaps, "BOTH", 44100);
    qktest::FillLookup(*set, 0);
    const std::vector<uint8_t> bytes = qktest::StoreToBytes(*set);
    std::FILE *file = std::fopen(strPath.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
    return strPath;
}

// Taps of the sets in use after one hosted block: the engine's, then the canceller's.
std::pair<int, int> TapsInUse(CQKSDK &sdk) {
    sdk.qk_Siml_Process_WinAmp(256, 16, 2, 44100);
    const CEngineContext &p = CQKSDKTestAccess::Engine(sdk).m_Context;
    return {p.m_pHRTF != nullptr ? p.m_pHRTF->m_iFileTaps : 0,
            p.m_pHRTF_CTC != nullptr ? p.m_pHRTF_CTC->m_iFileTaps : 0};
}
}  // namespace

// Opening a project asks for its sets as a host would, so that the next block loads them and
// the names reported are those in force; saving stores the names asked for and leaves a
// request that is still waiting to be loaded at the next block.
TEST_F(ProjectFiles, OpeningRequestsTheProjectsSetsAndSavingLeavesARequestStanding) {
    const std::string a = WriteSet(folder + "/a.qkhrtf", 32);
    const std::string b = WriteSet(folder + "/b.qkhrtf", 48);
    const std::string c = WriteSet(folder + "/c.qkhrtf", 40);
    const std::string d = WriteSet(folder + "/d.qkhrtf", 56);
    const std::string withB = folder + "/b.qkproject";
    const std::string withA = folder + "/a.qkproject";
    {
        CQKSDK first;
        first.qk_Asnk_Set(-2);
        first.qk_HRTF_Set_Full(b.c_str());
        first.qk_HRTF_CTC_Set_Full(d.c_str());
        ASSERT_EQ(TapsInUse(first), std::make_pair(48, 56));
        ASSERT_EQ(first.qk_File_Save(withB.c_str(), nullptr), 0);
    }
    CQKSDK sdk;
    sdk.qk_Asnk_Set(-2);
    sdk.qk_HRTF_Set_Full(a.c_str());
    sdk.qk_HRTF_CTC_Set_Full(c.c_str());
    ASSERT_EQ(TapsInUse(sdk), std::make_pair(32, 40));
    ASSERT_EQ(sdk.qk_File_Open(withB.c_str(), nullptr), 0);
    char name[1024] = {};
    char *buffer = name;
    CQKSDKTestAccess::Engine(sdk).GetHRTF(buffer);
    EXPECT_EQ(std::string(name), b);
    EXPECT_EQ(TapsInUse(sdk), std::make_pair(48, 56));

    // A request made and saved before any block: kept in the file, and still loaded after.
    sdk.qk_HRTF_Set_Full(a.c_str());
    ASSERT_EQ(sdk.qk_File_Save(withA.c_str(), nullptr), 0);
    EXPECT_EQ(TapsInUse(sdk).first, 32);
    ASSERT_EQ(sdk.qk_File_Open(withB.c_str(), nullptr), 0);
    ASSERT_EQ(TapsInUse(sdk).first, 48);
    ASSERT_EQ(sdk.qk_File_Open(withA.c_str(), nullptr), 0);
    EXPECT_EQ(TapsInUse(sdk).first, 32);
}
