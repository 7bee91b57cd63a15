// A scene file set up in the library and rendered block by block through the hosted road:
// the program feeds the sources, moves what moves and asks for each block. Used by render and
// play of a scene file and by the JACK client's render thread; only the facade is used.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "scene_controls.h"
#include "scene_file.h"

namespace qkcli {

// The longest period the live client takes; buffers are made for it once.
constexpr int kMaxLivePeriod = 4096;

class SceneEngine {
  public:
    // iRate and iBlock: the format of every block. With bLiveInputs, jack and capture sources
    // are fed from LiveInput (the JACK client's input ports); without, the library's capture
    // source serves capture and jack sources are silent. iDevice: the library's output device
    // (-2 none, -1 the default device, which then paces the blocks).
    SceneEngine(const SceneFile &scene, int iRate, int iBlock, bool bLiveInputs, int iDevice);
    SceneEngine(const SceneEngine &) = delete;
    SceneEngine &operator=(const SceneEngine &) = delete;

    // Sets the library up; false, with error set to one line, when it can't be.
    bool Setup(std::string &error);
    // Starts recording the output to a file (the library's wave sink).
    void Record(const std::string &path);
    void StopRecording();

    // A new block length for the blocks to come, up to the larger of the first one and
    // kMaxLivePeriod (the buffers are made for that); false, and nothing changed, beyond.
    bool SetBlockLength(int iBlock);

    // The sources that take live input, in scene order, and the buffer (full scale 1) that
    // each is fed from at the next block: room for the longest block.
    const std::vector<int> &LiveSources() const { return m_liveSources; }
    float *LiveInput(size_t i) { return m_liveInputs[i].data(); }

    // Feeds the sources, takes the remote control's changes, moves what has a trajectory to
    // time t (s from the start) and makes one block. The library's result (-1: no block).
    int Block(double t);
    // The last block: iBlock left floats, then iBlock right, in 16-bit scale.
    const float *Output();
    // What the remote control writes (its sources are the scene's, in order).
    SceneControls &Controls() { return m_controls; }
    CQKSDK &Sdk() { return m_sdk; }
    int Rate() const { return m_iRate; }
    int BlockLength() const { return m_iBlock; }

  private:
    bool SetupRoom(std::string &error);
    bool AddSource(const SourceEntry &entry, std::string &error);
    void FeedSources();
    void ApplyControls(double t);

    CQKSDK m_sdk;
    SceneFile m_scene;
    SceneControls m_controls;
    int m_iRate;
    int m_iBlock;
    int m_iCapacity;  // frames the buffers hold
    bool m_bLiveInputs;
    int m_iDevice;
    int m_iListener = 0;
    std::vector<int> m_soundIds;   // per scene source
    std::vector<int> m_objectIds;  // per scene source
    std::vector<int> m_inputOf;    // per scene source: its live input, or -1
    std::vector<int> m_liveSources;
    std::vector<std::vector<float>> m_liveInputs;
    std::vector<float> m_feed;             // one block of what a fed source gets
    std::vector<float> m_noiseTable;       // unit-rms Gaussian noise, read round and round
    std::vector<size_t> m_noiseAt;         // per source
    std::vector<uint32_t> m_seenPosition;  // per source: the last remote position taken
    std::vector<int> m_muted;              // per source: the enable state last set
    std::vector<bool> m_remoteMoved;       // per source: the remote control has moved it
    uint32_t m_seenListener = 0;
    bool m_bListenerRemote = false;
    Pose m_listenerAt;  // the listener's pose at the last block
    int m_iOrder = -1;
    std::vector<double> m_nextMove;  // s: when each object's trajectory moves it next
};

// The name a source's JACK input port takes: its name with anything but letters, digits, '-'
// and '_' made '_'.
std::string PortName(const SourceEntry &entry);

}  // namespace qkcli
