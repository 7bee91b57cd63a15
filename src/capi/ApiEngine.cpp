#include "capi/ApiEngine.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "capi/ApiErrors.h"

namespace {
// A host queue holds this many of the engine's blocks, and at least kMinQueue frames.
constexpr int kQueueBlocks = 4;
constexpr int kMinQueue = 4096;

bool endsWithNoCase(const std::string &text, const char *pcEnd) {
    const size_t n = std::strlen(pcEnd);
    return text.size() >= n && strncasecmp(text.c_str() + text.size() - n, pcEnd, n) == 0;
}

// QK_OK when the file opens for reading, else QK_E_FILE with the system's reason.
int checkReadable(const char *pcPath, const char *pcWhat) {
    std::FILE *file = std::fopen(pcPath, "rb");
    if (file == nullptr) {
        return qkc::Fail(QK_E_FILE, "%s %s can't be opened: %s", pcWhat, pcPath,
                         std::strerror(errno));
    }
    std::fclose(file);
    return QK_OK;
}

// A name of its own in the temporary folder for a set imported from a SOFA file.
std::string importedSetPath() {
    static std::atomic<unsigned> s_uiCount{0};
    const std::string name = "quendarik-sofa-" + std::to_string(::getpid()) + "-" +
                             std::to_string(s_uiCount.fetch_add(1)) + ".qkhrtf";
    std::error_code ec;
    std::filesystem::path folder = std::filesystem::temp_directory_path(ec);
    if (ec) {
        folder = "/tmp";
    }
    return (folder / name).string();
}
}  // namespace

qk_engine::qk_engine(int iRateIn, int iBlockIn) : iRate(iRateIn), iBlock(iBlockIn) {
    qkc::InstallReportHandler(sdk);
    sdk.qk_Asnk_Set(-2);    // no device: the host takes every block itself
    sdk.qk_Siml_Set_PO(1);  // headphones: no cross-talk cancellation
    sdk.qk_Vrcv_Add(iListener);
    char path[512] = "";
    sdk.qk_HRTF_Get_Full(path);
    m_strDefaultHRTF = path;
    m_feed.assign(QK_MAX_FRAMES, 0.0f);
    m_iQueueFrames = std::max(kMinQueue, kQueueBlocks * iBlock);
}

int qk_engine::AddHost(int &iID) {
    HostQueue queue;
    queue.samples.assign(static_cast<size_t>(m_iQueueFrames), 0.0f);
    std::lock_guard<std::mutex> guard(m_lock);
    // The facade's planar float source: one channel is pushed, at the engine's rate.
    sdk.qk_Ssrc_Add_WMP(iID);
    queue.iID = iID;
    m_hosts.push_back(std::move(queue));
    return QK_OK;
}

int qk_engine::AddFile(const char *pcPath, int &iID) {
    if (const int r = checkReadable(pcPath, "the sound file"); r != QK_OK) {
        return r;
    }
    qkc::CReportWatch watch;
    std::lock_guard<std::mutex> guard(m_lock);
    if (sdk.qk_Ssrc_Add_File(iID, pcPath) != 0) {
        const char *said = watch.Said();
        return qkc::Fail(QK_E_FILE, "%s can't be played: %s", pcPath,
                         *said != '\0' ? said : "not a WAV, MP3 or AC-3 file");
    }
    m_files.push_back(iID);
    return QK_OK;
}

int qk_engine::AddNoise(float fRms, int &iID) {
    std::lock_guard<std::mutex> guard(m_lock);
    sdk.qk_Ssrc_Add_WMP(iID);
    NoiseSource noise;
    noise.iID = iID;
    noise.fRms = fRms;
    // A fixed seed for each id, so that a scene renders the same every time.
    noise.uiState = 0x9E3779B97F4A7C15ull * static_cast<uint64_t>(iID + 1) | 1u;
    m_noises.push_back(noise);
    return QK_OK;
}

bool qk_engine::HasSource(int iID) {
    std::lock_guard<std::mutex> guard(m_lock);
    auto has = [iID](const auto &s) { return s.iID == iID; };
    return std::any_of(m_hosts.begin(), m_hosts.end(), has) ||
           std::any_of(m_noises.begin(), m_noises.end(), has) ||
           std::find(m_files.begin(), m_files.end(), iID) != m_files.end();
}

int qk_engine::Push(int iID, const float *pfMono, int iFrames) {
    std::lock_guard<std::mutex> guard(m_lock);
    for (HostQueue &queue : m_hosts) {
        if (queue.iID != iID) {
            continue;
        }
        if (iFrames > m_iQueueFrames - queue.iQueued) {
            return qkc::Fail(QK_E_FULL,
                             "host source %d holds %d of its %d frames: %d more don't fit", iID,
                             queue.iQueued, m_iQueueFrames, iFrames);
        }
        // Queued in the facade's scale, so that a render hands the queue's front over as it is.
        float *to = queue.samples.data() + queue.iQueued;
        for (int i = 0; i < iFrames; ++i) {
            to[i] = pfMono[i] * kScale;
        }
        queue.iQueued += iFrames;
        return QK_OK;
    }
    return qkc::Fail(QK_E_NOT_FOUND, "no host source %d in this engine", iID);
}

int qk_engine::LoadSet(const std::string &strPath, const char *pcShownAs) {
    qkc::CReportWatch watch;
    sdk.qk_HRTF_Set_Full(strPath.c_str());
    if (sdk.qk_HRTF_Load() != 0) {
        const char *said = watch.Said();
        return qkc::Fail(QK_E_FILE, "the HRTF set %s can't be used: %s", pcShownAs,
                         *said != '\0' ? said : "not a set with measurements");
    }
    return QK_OK;
}

int qk_engine::SetHRTF(const char *pcPath) {
    if (pcPath == nullptr) {
        return LoadSet(m_strDefaultHRTF, m_strDefaultHRTF.c_str());
    }
    if (const int r = checkReadable(pcPath, "the HRTF set"); r != QK_OK) {
        return r;
    }
    if (!endsWithNoCase(pcPath, ".sofa")) {
        return LoadSet(pcPath, pcPath);
    }
    // A SOFA file is made into a set in the temporary folder; once loaded the engine holds
    // it in memory and the file goes.
    const std::string set = importedSetPath();
    qkc::CReportWatch watch;
    if (sdk.qk_HRTF_Import(pcPath, set.c_str()) != 0) {
        const char *said = watch.Said();
        return qkc::Fail(QK_E_FILE, "%s can't be made into an HRTF set: %s", pcPath,
                         *said != '\0' ? said : "not a SOFA file of impulse responses");
    }
    const int result = LoadSet(set, pcPath);
    std::remove(set.c_str());
    return result;
}

int qk_engine::LoadWorld(const char *pcPath) {
    if (const int r = checkReadable(pcPath, "the world"); r != QK_OK) {
        return r;
    }
    qkc::CReportWatch watch;
    // An archive is chosen by its name, as the library names them; anything else is text.
    // The text import's result says nothing (it is always -1): the planes tell.
    if (endsWithNoCase(pcPath, ".qkworld")) {
        sdk.qk_Wrld_Set_File_Full(pcPath);
    } else {
        sdk.qk_Wrld_Import(pcPath);
    }
    int planes = 0;
    sdk.qk_Wrld_Get_PlaneCount(planes);
    if (planes == 0) {
        const char *said = watch.Said();
        return qkc::Fail(QK_E_FILE, "the world %s describes no room: %s", pcPath,
                         *said != '\0' ? said : "no plane was made from it");
    }
    return QK_OK;
}

void qk_engine::FillNoise(NoiseSource &noise, float *pfOut, int iFrames) {
    // Box-Muller on xorshift64*: two normal values from two uniform ones in (0, 1].
    auto uniform = [&noise] {
        noise.uiState ^= noise.uiState >> 12;
        noise.uiState ^= noise.uiState << 25;
        noise.uiState ^= noise.uiState >> 27;
        const uint64_t bits = (noise.uiState * 0x2545F4914F6CDD1Dull) >> 11;
        return (static_cast<double>(bits) + 1.0) * (1.0 / 9007199254740992.0);
    };
    const double level = static_cast<double>(noise.fRms) * kScale;
    for (int i = 0; i < iFrames; i += 2) {
        const double radius = std::sqrt(-2.0 * std::log(uniform())) * level;
        const double angle = 6.283185307179586 * uniform();
        pfOut[i] = static_cast<float>(radius * std::cos(angle));
        if (i + 1 < iFrames) {
            pfOut[i + 1] = static_cast<float>(radius * std::sin(angle));
        }
    }
}

void qk_engine::FeedSources(int iFrames) {
    std::lock_guard<std::mutex> guard(m_lock);
    float *feed = m_feed.data();
    for (HostQueue &queue : m_hosts) {
        const int take = std::min(iFrames, queue.iQueued);
        float *front = queue.samples.data();
        if (take < iFrames) {
            // Short of samples: what there is, then silence, through the block buffer.
            std::copy(front, front + take, feed);
            std::fill(feed + take, feed + iFrames, 0.0f);
            front = feed;
        }
        sdk.qk_Ssrc_Gen_Samples_1P(queue.iID, front, iFrames, 32, 1, iRate);
        std::copy(queue.samples.begin() + take, queue.samples.begin() + queue.iQueued,
                  queue.samples.begin());
        queue.iQueued -= take;
    }
    for (NoiseSource &noise : m_noises) {
        FillNoise(noise, feed, iFrames);
        sdk.qk_Ssrc_Gen_Samples_1P(noise.iID, feed, iFrames, 32, 1, iRate);
    }
    // A file source reads its next block itself when it is pulled without samples.
    for (int id : m_files) {
        sdk.qk_Ssrc_Gen_Samples_1P(id, nullptr, iFrames, 16, 2, iRate);
    }
}

int qk_engine::Render(float *pfLeft, float *pfRight, int iFrames) {
    FeedSources(iFrames);
    qkc::CReportWatch watch;
    const int result = sdk.qk_Siml_Process_WinAmp(iFrames, 16, 2, iRate);
    float *block = nullptr;
    if (result >= 0) {
        sdk.qk_Vrcv_Get_Data(iListener, block);
    }
    if (block == nullptr) {
        std::fill(pfLeft, pfLeft + iFrames, 0.0f);
        std::fill(pfRight, pfRight + iFrames, 0.0f);
        char path[512] = "";
        sdk.qk_HRTF_Get_Full(path);
        const char *said = watch.Said();
        return qkc::Fail(QK_E_HRTF, "no block was made: the HRTF set %s isn't loaded%s%s", path,
                         *said != '\0' ? ": " : "", said);
    }
    const float unscale = 1.0f / kScale;
    for (int i = 0; i < iFrames; ++i) {
        pfLeft[i] = block[i] * unscale;
        pfRight[i] = block[iFrames + i] * unscale;
    }
    return QK_OK;
}

int qk_engine::CopyResponse(int iVsource, bool bBinaural, float **ppfFirst, float **ppfSecond,
                            int *piFrames) {
    sdk.qk_Enter_CS();
    float *first = nullptr;
    float *second = nullptr;
    int length = 0;
    const int found = bBinaural ? sdk.qk_Vsrc_Get_BIR(iVsource, first, second, length)
                                : sdk.qk_Vsrc_Get_Echogram(iVsource, first, length);
    int result = QK_OK;
    if (found != 0) {
        result = qkc::Fail(QK_E_NOT_FOUND, "no virtual source %d in this engine", iVsource);
    } else if (first == nullptr || length < 1 || (bBinaural && second == nullptr)) {
        result = qkc::Fail(QK_E_STATE,
                           "virtual source %d has no %s yet: render a block after placing it "
                           "(free field makes no echogram)",
                           iVsource, bBinaural ? "room response" : "echogram");
    } else {
        const size_t bytes = sizeof(float) * static_cast<size_t>(length);
        float *copyFirst = static_cast<float *>(std::malloc(bytes));
        float *copySecond = bBinaural ? static_cast<float *>(std::malloc(bytes)) : nullptr;
        if (copyFirst == nullptr || (bBinaural && copySecond == nullptr)) {
            std::free(copyFirst);
            std::free(copySecond);
            result = qkc::Fail(QK_E_MEMORY, "no memory for a response of %d frames", length);
        } else {
            std::memcpy(copyFirst, first, bytes);
            if (bBinaural) {
                std::memcpy(copySecond, second, bytes);
                *ppfSecond = copySecond;
            }
            *ppfFirst = copyFirst;
            *piFrames = length;
        }
    }
    sdk.qk_Leave_CS();
    return result;
}
