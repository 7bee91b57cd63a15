#include "session.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <utility>

#include <unistd.h>

#include "audio/CAudio_Playback.h"
#include "audio/WaveOutDevice.h"
#include "platform/Paths.h"
#include "sources/WaveFile.h"
#include "world/CDSC_World.h"

namespace qkcli {
namespace {
constexpr double kPi = 3.14159265358979323846;
// Zero-mean noise at a tenth of 16-bit full scale (rms), so that several sources and a
// near listener stay below clipping.
constexpr float kNoiseRms = 3276.8f;

// Loads a world text or a .qkworld archive into the engine. The import of a text returns -1
// whatever happens, so success is judged by the file being readable and by the planes the
// world holds afterwards; what the import finds wrong in the text it reports itself.
bool loadWorld(CQKSDK &sdk, const std::string &strWorld) {
    std::error_code ec;
    const std::string path = std::filesystem::absolute(strWorld, ec).string();
    std::ifstream probe(path, std::ios::binary);
    if (ec || !probe) {
        std::fprintf(stderr, "quendarik: the world %s can't be read: %s\n", strWorld.c_str(),
                     std::strerror(errno));
        return false;
    }
    probe.close();
    const bool archive = path.size() > 8 && qk::ToUpper(path.substr(path.size() - 8)) == ".QKWORLD";
    if (archive) {
        if (sdk.qk_Wrld_Set_File_Full(path.c_str()) != 0) {
            std::fprintf(stderr, "quendarik: the world %s can't be used\n", strWorld.c_str());
            return false;
        }
        return true;
    }
    sdk.qk_Wrld_Import(path.c_str());
    void *pWorld = nullptr;
    sdk.qk_Enter_CS();
    sdk.qk_Wrld_Get(pWorld);
    const size_t planes =
        pWorld != nullptr ? static_cast<const CDSC_World *>(pWorld)->m_Planes.size() : 0;
    sdk.qk_Leave_CS();
    if (planes == 0) {
        std::fprintf(stderr, "quendarik: the world %s holds no plane to reflect from\n",
                     strWorld.c_str());
        return false;
    }
    return true;
}

int onMessage(unsigned long, const char *text, const char *caption, int severity) {
    std::fprintf(stderr, "\n[%s] %s\n", caption, text);
    return severity == QK_MSG_QUESTION ? QK_ANSWER_NO : QK_ANSWER_OK;
}
}  // namespace

bool ChooseRoom(CQKSDK &sdk, Scene &scene) {
    if (!scene.HasRoom()) {
        sdk.qk_SFM_Set(0);
        return true;
    }
    if (!scene.world.empty()) {
        if (!loadWorld(sdk, scene.world)) {
            return false;
        }
    } else if (scene.room[0] > 0.0f) {
        sdk.qk_Wrld_ShoeBox(scene.room[0], scene.room[1], scene.room[2]);
    } else {
        sdk.qk_Wrld_Preset(scene.preset);
    }
    sdk.qk_SFM_Set(scene.model);
    sdk.qk_Siml_Set_SpecularOrder(scene.order);
    if (!scene.listenerGiven) {
        scene.listener[2] = 1.2f;  // ears above the floor, looking ahead level
        scene.listener[5] = 1.2f;
    }
    return true;
}

std::string DescribeRoom(const Scene &scene) {
    char text[160];
    if (!scene.HasRoom()) {
        return "free field";
    }
    if (!scene.world.empty()) {
        std::snprintf(text, sizeof text, "the world %s", scene.world.c_str());
    } else if (scene.room[0] > 0.0f) {
        std::snprintf(text, sizeof text, "a %g x %g x %g m room", scene.room[0], scene.room[1],
                      scene.room[2]);
    } else {
        std::snprintf(text, sizeof text, "preset room %d", scene.preset);
    }
    static const char *const kModels[] = {"", "", ", with the late reverb",
                                          ", one HRTF and the late reverb"};
    return std::string(text) + ", reflections to order " + std::to_string(scene.order) +
           kModels[std::clamp(scene.model, 0, 3)];
}

void ChooseOutput(CQKSDK &sdk, const Scene &scene) {
    if (scene.speakers > 0.0f) {
        sdk.qk_Siml_Set_PO(2);  // loudspeakers: the binaural mix goes through the canceller
        sdk.qkSimSetCrossTalkAzimuth(static_cast<int>(scene.speakers));
    } else {
        sdk.qk_Siml_Set_PO(1);  // headphones: no cross-talk cancellation
    }
    if (scene.reverbDry >= 0.0f) {
        sdk.qk_Siml_Set_ReverbDryLevel(scene.reverbDry);
    }
}

std::string DescribeOutput(const Scene &scene) {
    if (scene.speakers <= 0.0f) {
        return "headphones (binaural, no cross-talk cancellation)";
    }
    char text[128];
    std::snprintf(text, sizeof text,
                  "two loudspeakers at +-%g degrees (through the cross-talk canceller)",
                  static_cast<double>(scene.speakers));
    return text;
}

void ChooseMethods(CQKSDK &sdk, const Scene &scene, int iEngineRate) {
    sdk.qk_Siml_Set_FileEnd(1);
    sdk.qk_Siml_Set_Convolution(scene.convolution);
    sdk.qk_Siml_Set_Threads(scene.threads);
    sdk.qk_Siml_Set_FileResampling(scene.zeroStuffing ? 0 : 1);
    if (!scene.zeroStuffing) {
        return;
    }
    std::vector<std::string> told;
    for (const SceneSource &source : scene.sources) {
        HMMIO hmmio = nullptr;
        WAVEFORMATEX *format = nullptr;
        MMCKINFO riff{};
        if (source.file.empty() || std::find(told.begin(), told.end(), source.file) != told.end() ||
            WaveOpenFile(source.file.c_str(), &hmmio, &format, &riff) != 0) {
            continue;
        }
        const int rate = static_cast<int>(format->nSamplesPerSec);
        WaveCloseReadFile(&hmmio, &format);
        if (rate != iEngineRate) {
            told.push_back(source.file);
            std::fprintf(stderr,
                         "quendarik: %s is at %d Hz and is not converted to %d Hz "
                         "(--zero-stuffing): it plays at the wrong speed and pitch\n",
                         source.file.c_str(), rate, iEngineRate);
        }
    }
}

HostedRender::HostedRender(Scene sceneIn) : m_scene(std::move(sceneIn)) {
    const Scene &scene = m_scene;
    m_sdk.qk_Appl_Register_On_Message(&onMessage, 0);
    m_sdk.qk_Asnk_Set(-2);  // no device: blocks come as fast as they are made
    if (!ChooseRoom(m_sdk, m_scene)) {
        return;
    }
    ChooseOutput(m_sdk, scene);
    if (!scene.hrtf.empty()) {
        m_sdk.qk_HRTF_Set_Full(scene.hrtf.c_str());
    }
    ChooseMethods(m_sdk, scene, kRate);
    m_sdk.qk_Vrcv_Add(m_iListener);
    const float *l = scene.listener;
    m_sdk.qk_Vrcv_Set_Position_LookAt(m_iListener, l[0], l[1], l[2], l[3], l[4], l[5]);
    for (const SceneSource &source : scene.sources) {
        int sound = 0;
        if (scene.shareSound && !m_soundIds.empty()) {
            sound = m_soundIds.front();
        } else if (source.file.empty()) {
            m_sdk.qk_Ssrc_Add_WMP(sound);
        } else if (m_sdk.qk_Ssrc_Add_File(sound, source.file.c_str()) != 0) {
            std::fprintf(stderr, "quendarik: can't use %s\n", source.file.c_str());
            return;
        }
        int object = 0;
        m_sdk.qk_Vsrc_Add(object, sound, 0, source.x, source.y, source.z, "source");
        m_soundIds.push_back(sound);
        m_objectIds.push_back(object);
    }
    if (m_soundIds.empty()) {
        std::fprintf(stderr, "quendarik: the scene has no source (--source or --noise)\n");
        return;
    }
    // Two seconds of zero-mean Gaussian noise, read round and round.
    std::mt19937 rng(1973);
    std::normal_distribution<float> normal(0.0f, kNoiseRms);
    m_noiseTable.resize(2 * kRate);
    for (float &v : m_noiseTable) {
        v = normal(rng);
    }
    m_noise.resize(static_cast<size_t>(scene.block));
    if (!scene.out.empty()) {
        m_sdk.qk_Save_Wave_Start(scene.out);
    }
    m_bReady = true;
}

void HostedRender::FillNoise() {
    for (float &v : m_noise) {
        v = m_noiseTable[m_noiseAt];
        m_noiseAt = m_noiseAt + 1 < m_noiseTable.size() ? m_noiseAt + 1 : 0;
    }
}

int HostedRender::Block(double t) {
    const int n = m_scene.block;
    FillNoise();
    for (size_t i = 0; i < m_soundIds.size(); ++i) {
        if (i > 0 && m_soundIds[i] == m_soundIds[0]) {
            continue;  // a shared sound is fed once
        }
        if (m_scene.sources[i].file.empty()) {
            m_sdk.qk_Ssrc_Gen_Samples_1P(m_soundIds[i], m_noise.data(), n, 16, 1, kRate);
        } else {
            m_sdk.qk_Ssrc_Gen_Samples_1P(m_soundIds[i], nullptr, n, 16, 2, kRate);
        }
    }
    if (m_scene.moveAll) {
        // As a game moves its sources: each a hundredth of a radian further every block, so
        // that every block rebuilds every source's response.
        const double step = 0.01 * t * kRate / n;
        for (size_t i = 0; i < m_objectIds.size(); ++i) {
            const SceneSource &s = m_scene.sources[i];
            const double angle = std::atan2(-s.x, s.y) + step;
            const double radius = std::hypot(s.x, s.y);
            m_sdk.qk_Vsrc_Set_Position(m_objectIds[i],
                                       static_cast<float>(-radius * std::sin(angle)),
                                       static_cast<float>(radius * std::cos(angle)), s.z);
        }
    }
    if (m_scene.circleSource >= 0 &&
        static_cast<size_t>(m_scene.circleSource) < m_objectIds.size()) {
        // Anticlockwise seen from above, starting straight ahead (+y).
        const double angle = 2.0 * kPi * t / m_scene.circlePeriod;
        const float x = -m_scene.circleRadius * static_cast<float>(std::sin(angle));
        const float y = m_scene.circleRadius * static_cast<float>(std::cos(angle));
        m_sdk.qk_Vsrc_Set_Position(m_objectIds[static_cast<size_t>(m_scene.circleSource)],
                                   m_scene.listener[0] + x, m_scene.listener[1] + y,
                                   m_scene.listener[2]);
    }
    return m_sdk.qk_Siml_Process_WinAmp(n, 16, 2, kRate);
}

const float *HostedRender::Output() {
    float *data = nullptr;
    m_sdk.qk_Vrcv_Get_Data(m_iListener, data);
    return data;
}

bool PlayWaveFile(const std::string &path) {
    HMMIO hmmio = nullptr;
    WAVEFORMATEX *format = nullptr;
    MMCKINFO riff{};
    MMCKINFO data{};
    if (WaveOpenFile(path.c_str(), &hmmio, &format, &riff) != 0) {
        return false;
    }
    const WaveOutFormat wanted{format->nChannels, static_cast<int>(format->nSamplesPerSec),
                               format->wBitsPerSample};
    // Only try the ring when the default device opens at all.
    auto probe = CWaveOutDevice::Create(-1);
    if (probe == nullptr || probe->Open(wanted, [](int) {}) != 0 ||
        WaveStartDataRead(&hmmio, &data, &riff) != 0) {
        WaveCloseReadFile(&hmmio, &format);
        return false;
    }
    probe->Close();
    CAudio_Playback playback;
    const int frames = 4096;
    std::vector<uint8_t> bytes(static_cast<size_t>(frames) * format->nBlockAlign);
    uint32_t got = 0;
    double played = 0.0;
    const double total = static_cast<double>(data.cksize) / format->nAvgBytesPerSec;
    while (WaveReadFile(hmmio, static_cast<uint32_t>(bytes.size()), bytes.data(), &data, &got) ==
               0 &&
           got > 0) {
        const int n = static_cast<int>(got / format->nBlockAlign);
        playback._process(-1, format->nChannels, format->wBitsPerSample,
                          static_cast<int>(format->nSamplesPerSec), bytes.data(), n, 1);
        played += static_cast<double>(n) / format->nSamplesPerSec;
        Progress(played, total);
    }
    ProgressEnd(total);
    // The last buffers in the ring sound out before the device closes.
    std::this_thread::sleep_for(std::chrono::duration<double>(
        static_cast<double>(CAudio_Playback::kBuffers) * frames / format->nSamplesPerSec));
    playback._quit();
    WaveCloseReadFile(&hmmio, &format);
    return true;
}

namespace {
int g_lastPercent = -1;  // the percent last drawn; -1 when no bar is open
bool g_barOpen = false;  // a bar was asked for and hasn't been finished
}  // namespace

void Progress(double done, double total) {
    const int width = 40;
    const double share = total > 0 ? std::min(1.0, done / total) : 1.0;
    const int percent = static_cast<int>(share * 100.0);
    g_barOpen = percent < 100;
    // Redrawn once a percent; into a log (no terminal) only the finished bar is written.
    if (percent == g_lastPercent || (!isatty(2) && percent < 100)) {
        return;
    }
    g_lastPercent = percent >= 100 ? -1 : percent;
    const int filled = static_cast<int>(share * width);
    std::fprintf(stderr, "\r  [%s%s] %5.1f / %.1f s",
                 std::string(static_cast<size_t>(filled), '#').c_str(),
                 std::string(static_cast<size_t>(width - filled), '.').c_str(), done, total);
    if (percent >= 100) {
        std::fprintf(stderr, "\n");
    }
    std::fflush(stderr);
}

void ProgressEnd(double total) {
    // A bar whose last step fell short of the total (blocks don't divide it) is finished here,
    // so that what is printed next starts on a line of its own.
    if (g_barOpen) {
        Progress(total, total);
    }
}

}  // namespace qkcli
