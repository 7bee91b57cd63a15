// Project files: the engine's settings, sound sources and virtual sources in one archive.
// Objects are written behind a tag of their kind (not by class name), each by its own
// Serialize. Loading reads everything into new lists first and swaps them in only when the
// whole project has been read, so that a damaged file changes nothing.
#include <mutex>

#include "audio/CSOURCE_SOUNDCARD.h"
#include "platform/Archive.h"
#include "render/CQUENDARIC_Object_Source_Sound.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"
#include "sdk/SourceKinds.h"
#include "sources/CSOURCE_AC3.h"
#include "sources/CSOURCE_GAUSS.h"
#include "sources/CSOURCE_HOSTFED.h"
#include "sources/CSOURCE_MP3.h"
#include "sources/CSOURCE_WAVE.h"
#include "world/CVRSoundSource.h"

namespace {
using Guard = std::lock_guard<qk::CEngineLock>;

// Tags of the virtual source kinds.
enum ObjectTag { kTagObjectSource = 1, kTagObjectSound = 2 };

// The fewest bytes an entry of each section takes: a sound source, its tag (a noise source
// writes nothing else); a virtual source, its tag and the fields of the object and the source.
constexpr int64_t kMinSourceBytes = 4;
constexpr int64_t kMinObjectBytes = 4 + 45 + 26;
// Entries a section may claim when the archive can't tell how much is left.
constexpr int32_t kMaxEntries = 1 << 16;

// The kinds and their tags are the table's (sdk/SourceKinds.h).
int32_t sourceTag(const CSOURCE &source) {
    return qk::sources::TagOf(source);
}

std::unique_ptr<CSOURCE> makeSource(int32_t tag) {
    const qk::sources::SSourceKind *kind = qk::sources::KindOfTag(tag);
    if (kind == nullptr) {
        // Read over the previous entry again, as a tag outside the table once did, the
        // rest of the file would be read as nonsense: it is refused instead.
        throw qk::CArchiveException(qk::CArchiveException::badData,
                                    "unknown sound source tag " + std::to_string(tag));
    }
    return kind->pfnMake();
}

std::unique_ptr<CQUENDARIC_Object_Source> makeObject(int32_t tag) {
    if (tag == kTagObjectSource) {
        return std::make_unique<CQUENDARIC_Object_Source>();
    }
    if (tag == kTagObjectSound) {
        return std::make_unique<CQUENDARIC_Object_Source_Sound>();
    }
    throw qk::CArchiveException(qk::CArchiveException::badData,
                                "unknown virtual source tag " + std::to_string(tag));
}

// A section's version and count. A count that the rest of the archive can't hold is refused
// before anything is made for it.
int32_t readCount(qk::CArchive &ar, int64_t iMinBytes) {
    float fVersion = 0.0f;
    int32_t count = 0;
    ar >> fVersion >> count;
    const int64_t remaining = ar.Remaining();
    const int64_t most = remaining >= 0 ? remaining / iMinBytes : kMaxEntries;
    if (count < 0 || count > most) {
        throw qk::CArchiveException(qk::CArchiveException::badData,
                                    "entry count " + std::to_string(count) + " out of range");
    }
    return count;
}
}  // namespace

void CQUENDARIK_PROCESSOR::Serialize(qk::CArchive &ar) {
    Guard guard(m_csEngine);
    if (ar.IsLoading()) {
        SProject project = ReadProject(ar);
        CommitProject(project);
        return;
    }
    m_Parameters.Serialize(ar);
    Serialize_Sources(ar);
    Serialize_3DSinks(ar);
    Serialize_3DSources(ar);
    ar << 1.0f;  // the end mark
}

void CQUENDARIK_PROCESSOR::Serialize_Sources(qk::CArchive &ar) {
    Guard guard(m_csEngine);
    if (ar.IsStoring()) {
        StoreSources(ar);
        return;
    }
    auto sources = ReadSources(ar);
    InstallSources(sources);
    BindSounds();
}

// Listeners aren't kept in a project: a project opened in an engine without one stays silent
// until a listener is added.
void CQUENDARIK_PROCESSOR::Serialize_3DSinks(qk::CArchive &) {}

void CQUENDARIK_PROCESSOR::Serialize_3DSources(qk::CArchive &ar) {
    Guard guard(m_csEngine);
    if (ar.IsStoring()) {
        Store3DSources(ar);
        return;
    }
    SProject project;
    project.objects = Read3DSources(ar);
    CommitProject(project);
}

void CQUENDARIK_PROCESSOR::StoreSources(qk::CArchive &ar) {
    ar << 1.0f << static_cast<int32_t>(m_listSources.size());
    for (auto &source : m_listSources) {
        ar << sourceTag(*source);
        source->Serialize(ar);
    }
}

void CQUENDARIK_PROCESSOR::Store3DSources(qk::CArchive &ar) {
    // What the host last wrote is what is kept: moves still waiting for a block are taken
    // first, and each object takes its world entry's position.
    TakeMoves();
    ar << 1.0f << static_cast<int32_t>(m_list3DSources.size());
    for (auto &object : m_list3DSources) {
        const bool bSound = dynamic_cast<CQUENDARIC_Object_Source_Sound *>(object.get()) != nullptr;
        ar << static_cast<int32_t>(bSound ? kTagObjectSound : kTagObjectSource);
        if (object->m_pVRSource != nullptr) {
            object->m_position = object->m_pVRSource->m_position;
        }
        object->Serialize(ar);
    }
}

std::vector<std::unique_ptr<CSOURCE>> CQUENDARIK_PROCESSOR::ReadSources(qk::CArchive &ar) {
    const int32_t count = readCount(ar, kMinSourceBytes);
    std::vector<std::unique_ptr<CSOURCE>> sources;
    for (int32_t i = 0; i < count; ++i) {
        int32_t tag = 0;
        ar >> tag;
        std::unique_ptr<CSOURCE> source = makeSource(tag);
        source->Serialize(ar);
        sources.push_back(std::move(source));
    }
    return sources;
}

std::vector<std::unique_ptr<CQUENDARIC_Object_Source>> CQUENDARIK_PROCESSOR::Read3DSources(
    qk::CArchive &ar) {
    const int32_t count = readCount(ar, kMinObjectBytes);
    std::vector<std::unique_ptr<CQUENDARIC_Object_Source>> objects;
    for (int32_t i = 0; i < count; ++i) {
        int32_t tag = 0;
        ar >> tag;
        std::unique_ptr<CQUENDARIC_Object_Source> object = makeObject(tag);
        object->Serialize(ar);
        objects.push_back(std::move(object));
    }
    return objects;
}

CQUENDARIK_PROCESSOR::SProject CQUENDARIK_PROCESSOR::ReadProject(qk::CArchive &ar) {
    SProject project;
    project.settings = CQUENDARIC_PARAMETERS::ReadStored(ar);
    project.sources = ReadSources(ar);
    project.objects = Read3DSources(ar);
    float fEnd = 0.0f;
    ar >> fEnd;  // the end mark; its value isn't looked at
    return project;
}

void CQUENDARIK_PROCESSOR::CommitProject(SProject &project) {
    Guard guard(m_csEngine);
    // The old objects go before the sounds they point at.
    RemoveAll3DSources();
    m_Context.m_World.ClearVRSources();
    std::string strProjectHRTF, strProjectHRTF_CTC;
    if (project.settings != nullptr) {
        // The project's sets are asked for, as a host would, and the sets in force stay
        // named as they are until the block path has loaded the new ones.
        {
            std::lock_guard<std::recursive_mutex> strings(m_Parameters.m_csStrings);
            std::string strInUse = m_Parameters.m_strHRTF;
            std::string strInUseCTC = m_Parameters.m_strHRTF_CTC;
            m_Parameters.ApplyStored(*project.settings);
            strProjectHRTF = m_Parameters.m_strHRTF;
            strProjectHRTF_CTC = m_Parameters.m_strHRTF_CTC;
            m_Parameters.m_strHRTF = std::move(strInUse);
            m_Parameters.m_strHRTF_CTC = std::move(strInUseCTC);
        }
        m_Parameters.m_iWorldChanged = 1;
        InstallSources(project.sources);
    }
    auto &entries = m_Context.m_World.m_VRSources;
    for (auto &object : project.objects) {
        entries.push_back(std::make_unique<CVRSoundSource>());
        CVRSoundSource *pEntry = entries.back().get();
        pEntry->m_position = object->m_position;
        pEntry->m_iEnable = object->m_iEnable;
        object->m_pVRSource = pEntry;
        object->m_pParameters = &m_Parameters;
        object->m_pResources = &m_Context;
        object->m_pSink = m_pCurrentSink;
        m_list3DSources.push_back(std::move(object));
    }
    project.objects.clear();
    BindSounds();
    RefreshMoves();
    if (project.settings != nullptr) {
        SetHRTF(strProjectHRTF);
        SetHRTFCTC(strProjectHRTF_CTC);
    }
}

void CQUENDARIK_PROCESSOR::InstallSources(std::vector<std::unique_ptr<CSOURCE>> &sources) {
    RemoveAllSources();
    m_listSources = std::move(sources);
    sources.clear();
    for (auto &source : m_listSources) {
        // A file source plays the file it names, and converts rates the engine's way, as one
        // added by name does.
        if (auto *file = dynamic_cast<CSOURCE_FILE *>(source.get())) {
            file->SetFile(file->m_strFile);
            file->m_iResampleQuality = m_iFileResampling.load();
            file->m_iExactEnd = m_iFileEnd.load();
        }
    }
}

// Each virtual source plays the sound with the id it keeps; the last match counts, and none
// leaves it silent.
void CQUENDARIK_PROCESSOR::BindSounds() {
    for (auto &object : m_list3DSources) {
        object->m_pSSS_Source = nullptr;
        for (auto &source : m_listSources) {
            if (source->m_iID == object->m_iSSS_SourceID) {
                object->m_pSSS_Source = source.get();
            }
        }
    }
}
