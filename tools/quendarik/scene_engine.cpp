#include "scene_engine.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

namespace qkcli {
namespace {
constexpr float kFullScale = 32768.0f;  // the engine's blocks are in 16-bit scale
constexpr int kNoiseSeconds = 2;

int onMessage(unsigned long, const char *text, const char *caption, int severity) {
    std::fprintf(stderr, "[%s] %s\n", caption, text);
    return severity == QK_MSG_QUESTION ? QK_ANSWER_NO : QK_ANSWER_OK;
}

bool endsWith(const std::string &s, const std::string &tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

float dbToGain(float db) {
    return std::pow(10.0f, db / 20.0f);
}
}  // namespace

std::string PortName(const SourceEntry &entry) {
    std::string name = entry.name;
    for (char &c : name) {
        const bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                          (c >= '0' && c <= '9') || c == '-' || c == '_';
        c = keep ? c : '_';
    }
    return name.substr(0, 64);
}

SceneEngine::SceneEngine(const SceneFile &scene, int iRate, int iBlock, bool bLiveInputs,
                         int iDevice)
    : m_scene(scene),
      m_controls(static_cast<int>(scene.sources.size())),
      m_iRate(iRate),
      m_iBlock(iBlock),
      m_iCapacity(std::max(iBlock, kMaxLivePeriod)),
      m_bLiveInputs(bLiveInputs),
      m_iDevice(iDevice) {}

bool SceneEngine::SetupRoom(std::string &error) {
    switch (m_scene.room) {
        case RoomKind::None:
            m_sdk.qk_Wrld_None();
            break;
        case RoomKind::Preset:
            m_sdk.qk_Wrld_Preset(m_scene.preset);
            break;
        case RoomKind::ShoeBox:
            m_sdk.qk_Wrld_ShoeBox(m_scene.box[0], m_scene.box[1], m_scene.box[2]);
            break;
        case RoomKind::World:
            if (endsWith(m_scene.world, ".qkworld")) {
                if (m_sdk.qk_Wrld_Set_File_Full(m_scene.world.c_str()) != 0) {
                    error = m_scene.world + ": the world can't be loaded";
                    return false;
                }
            } else {
                m_sdk.qk_Wrld_Import(m_scene.world.c_str());  // its result is always -1
            }
            break;
    }
    const int model = m_scene.model >= 0 ? m_scene.model : (m_scene.room != RoomKind::None);
    m_sdk.qk_SFM_Set(model);
    m_sdk.qk_Siml_Set_SpecularOrder(m_scene.order);
    if (m_scene.reverbDry >= 0.0f) {
        m_sdk.qk_Siml_Set_ReverbDryLevel(m_scene.reverbDry);
    }
    // In a room an unplaced listener stands with its ears 1.2 m above the floor.
    if (m_scene.room != RoomKind::None && !m_scene.listenerGiven) {
        m_scene.listener.z = 1.2f;
    }
    return true;
}

bool SceneEngine::AddSource(const SourceEntry &entry, std::string &error) {
    int sound = 0;
    int input = -1;
    const bool live =
        entry.kind == SourceKind::Jack || (entry.kind == SourceKind::Capture && m_bLiveInputs);
    if (entry.kind == SourceKind::File) {
        if (m_sdk.qk_Ssrc_Add_File(sound, entry.file.c_str()) != 0) {
            error = m_scene.path + ":" + std::to_string(entry.line) + ": " + entry.file +
                    ": not a wave, MP3 or AC-3 file";
            return false;
        }
    } else if (entry.kind == SourceKind::Capture && !live) {
        // The capture source doesn't give its id back: it is the one after the source added
        // just before it, so a silent fed source goes first to tell it.
        int before = 0;
        m_sdk.qk_Ssrc_Add_WMP(before);
        int unused = 0;
        m_sdk.qk_Ssrc_Add_SoundCard(unused, -1);
        sound = before + 1;
    } else {
        m_sdk.qk_Ssrc_Add_WMP(sound);  // fed by the program: noise or live input
        if (live) {
            input = static_cast<int>(m_liveInputs.size());
            m_liveInputs.emplace_back(static_cast<size_t>(m_iCapacity), 0.0f);
            m_liveSources.push_back(static_cast<int>(m_soundIds.size()));
        }
    }
    int object = 0;
    m_sdk.qk_Vsrc_Add(object, sound, 0, entry.pose.x, entry.pose.y, entry.pose.z,
                      entry.name.c_str());
    if (entry.mute) {
        m_sdk.qk_Vsrc_Set_Enable(object, 0);
    }
    m_soundIds.push_back(sound);
    m_objectIds.push_back(object);
    m_inputOf.push_back(input);
    return true;
}

bool SceneEngine::Setup(std::string &error) {
    m_sdk.qk_Appl_Register_On_Message(&onMessage, 0);
    m_sdk.qk_Asnk_Set(m_iDevice);
    if (!SetupRoom(error)) {
        return false;
    }
    m_sdk.qk_Siml_Set_PO(1);           // headphones
    m_sdk.qk_Siml_Set_Convolution(1);  // partitioned: the whole response at any period
    m_sdk.qk_Siml_Set_FileResampling(1);
    if (!m_scene.hrtf.empty()) {
        std::string path = m_scene.hrtf;
        if (!m_scene.hrtfIsPath) {
            // A name is looked for in the folder of the default set (qk_HRTF_Set would spell
            // the folder in capitals, which a case-sensitive file system tells apart).
            char current[512] = {0};
            m_sdk.qk_HRTF_Get_Full(current);
            const std::string folder(current);
            const size_t slash = folder.find_last_of('/');
            path = (slash == std::string::npos ? std::string() : folder.substr(0, slash + 1)) +
                   m_scene.hrtf;
        }
        m_sdk.qk_HRTF_Set_Full(path.c_str());
    }
    m_sdk.qk_Vrcv_Add(m_iListener);
    for (size_t i = 0; i < m_scene.sources.size(); ++i) {
        SourceEntry &entry = m_scene.sources[i];
        m_controls.sources[i].gain.store(entry.gain, std::memory_order_relaxed);
        m_controls.sources[i].mute.store(entry.mute ? 1 : 0, std::memory_order_relaxed);
        if (!AddSource(entry, error)) {
            return false;
        }
    }
    m_muted.assign(m_scene.sources.size(), 0);
    for (size_t i = 0; i < m_scene.sources.size(); ++i) {
        m_muted[i] = m_scene.sources[i].mute ? 1 : 0;
    }
    m_seenPosition.assign(m_scene.sources.size(), 0);
    m_remoteMoved.assign(m_scene.sources.size(), false);
    const size_t objects = m_scene.sources.size() + 1;
    m_nextMove.resize(objects);
    for (size_t k = 0; k < objects; ++k) {
        m_nextMove[k] =
            m_scene.moveRate > 0.0 ? double(k) / (double(objects) * m_scene.moveRate) : 0.0;
    }
    m_noiseAt.resize(m_scene.sources.size());
    std::mt19937 rng(1973);
    std::normal_distribution<float> normal(0.0f, 1.0f);
    m_noiseTable.resize(static_cast<size_t>(kNoiseSeconds) * static_cast<size_t>(m_iRate));
    for (float &v : m_noiseTable) {
        v = normal(rng);
    }
    for (size_t i = 0; i < m_noiseAt.size(); ++i) {
        m_noiseAt[i] = (i * 7919u * 61u) % m_noiseTable.size();  // sources sound apart
    }
    m_feed.resize(static_cast<size_t>(m_iCapacity));
    ApplyControls(0.0);
    return true;
}

void SceneEngine::Record(const std::string &path) {
    m_sdk.qk_Save_Wave_Start(path);
}

void SceneEngine::StopRecording() {
    m_sdk.qk_Save_Wave_Stop();
}

void SceneEngine::FeedSources() {
    const int n = m_iBlock;
    for (size_t i = 0; i < m_scene.sources.size(); ++i) {
        const SourceEntry &entry = m_scene.sources[i];
        const float gain = dbToGain(m_controls.sources[i].gain.load(std::memory_order_relaxed));
        if (entry.kind == SourceKind::File ||
            (entry.kind == SourceKind::Capture && m_inputOf[i] < 0)) {
            // The library's own sources read their file or device on this thread.
            m_sdk.qk_Ssrc_Gen_Samples_1P(m_soundIds[i], nullptr, n, 16, 2, m_iRate);
            continue;
        }
        if (m_inputOf[i] >= 0) {
            const float *in = m_liveInputs[static_cast<size_t>(m_inputOf[i])].data();
            for (int k = 0; k < n; ++k) {
                m_feed[static_cast<size_t>(k)] = in[k] * kFullScale * gain;
            }
        } else if (entry.kind == SourceKind::Noise) {
            const float scale = kFullScale * dbToGain(entry.level) * gain;
            size_t at = m_noiseAt[i];
            for (int k = 0; k < n; ++k) {
                m_feed[static_cast<size_t>(k)] = m_noiseTable[at] * scale;
                at = at + 1 < m_noiseTable.size() ? at + 1 : 0;
            }
            m_noiseAt[i] = at;
        } else {
            std::fill(m_feed.begin(), m_feed.begin() + n, 0.0f);  // jack, with no server
        }
        m_sdk.qk_Ssrc_Gen_Samples_1P(m_soundIds[i], m_feed.data(), n, 16, 1, m_iRate);
    }
}

void SceneEngine::ApplyControls(double t) {
    // Trajectories move their objects moveRate times a second, since a move costs a rebuild;
    // each object in its own turn (the listener first), so that a block takes a share of the
    // rebuilds rather than all of them at once.
    const auto due = [&](size_t k) {
        if (m_scene.moveRate <= 0.0) {
            return true;
        }
        if (t < m_nextMove[k]) {
            return false;
        }
        m_nextMove[k] = std::max(m_nextMove[k] + 1.0 / m_scene.moveRate, t);
        return true;
    };
    const bool listenerDue = due(0);
    Pose listener =
        m_scene.listenerTrajectory.Empty() ? m_scene.listener : m_scene.listenerTrajectory.At(t);
    float remote[6];
    if (m_controls.listener.ReadNew(m_seenListener, remote)) {
        m_bListenerRemote = true;
        m_scene.listener = Pose{remote[0], remote[1], remote[2], remote[3], remote[4], remote[5]};
    }
    if (m_bListenerRemote) {
        listener = m_scene.listener;
    } else if (!listenerDue && !m_scene.listenerTrajectory.Empty()) {
        listener = m_listenerAt;  // where the trajectory put it last
    }
    m_listenerAt = listener;
    float look[3];
    LookAtPoint(listener, look);
    m_sdk.qk_Vrcv_Set_Position_LookAt(m_iListener, listener.x, listener.y, listener.z, look[0],
                                      look[1], look[2]);
    for (size_t i = 0; i < m_objectIds.size(); ++i) {
        SourceControls &control = m_controls.sources[i];
        float place[3];
        if (control.position.ReadNew(m_seenPosition[i], place)) {
            m_remoteMoved[i] = true;
            m_sdk.qk_Vsrc_Set_Position(m_objectIds[i], place[0], place[1], place[2]);
        } else if (!m_remoteMoved[i] && !m_scene.sources[i].trajectory.Empty() && due(i + 1)) {
            const Pose p = m_scene.sources[i].trajectory.At(t);
            m_sdk.qk_Vsrc_Set_Position(m_objectIds[i], p.x, p.y, p.z);
        }
        const int mute = control.mute.load(std::memory_order_relaxed);
        if (mute != m_muted[i]) {
            m_muted[i] = mute;
            m_sdk.qk_Vsrc_Set_Enable(m_objectIds[i], mute != 0 ? 0 : 1);
        }
    }
    const int order = m_controls.order.load(std::memory_order_relaxed);
    if (order >= 0 && order != m_iOrder) {
        m_iOrder = order;
        m_sdk.qk_Siml_Set_SpecularOrder(order);
    }
}

bool SceneEngine::SetBlockLength(int iBlock) {
    if (iBlock < 1 || iBlock > m_iCapacity) {
        return false;
    }
    m_iBlock = iBlock;
    return true;
}

int SceneEngine::Block(double t) {
    FeedSources();
    ApplyControls(t);
    return m_sdk.qk_Siml_Process_WinAmp(m_iBlock, 16, 2, m_iRate);
}

const float *SceneEngine::Output() {
    float *data = nullptr;
    m_sdk.qk_Vrcv_Get_Data(m_iListener, data);
    return data;
}

}  // namespace qkcli
