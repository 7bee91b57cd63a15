// A whole scene read from a YAML file: the room and model, the HRTF set, the output, the
// listener and the sources, each fixed or on a trajectory. docs/scenes.md describes the keys.
#pragma once

#include <string>
#include <vector>

#include "trajectory.h"

namespace qkcli {

// Bounds on what a file may ask for, checked before anything is sized by it.
constexpr int kMaxSceneSources = 256;
constexpr int kMaxKeyframes = 100000;
constexpr float kMaxCoordinate = 10000.0f;  // metres
constexpr double kMaxSceneSeconds = 86400.0;

enum class SourceKind { File, Noise, Capture, Jack };
enum class RoomKind { None, Preset, ShoeBox, World };
enum class OutputKind { File, Alsa, Jack };

struct SourceEntry {
    std::string name;  // for messages and JACK port names; "source N" when not given
    SourceKind kind = SourceKind::Noise;
    std::string file;      // File: a wave, MP3 or AC-3 file (made absolute)
    std::string connect;   // Jack, Capture: a port to connect to the source's input, if any
    float level = -20.0f;  // Noise: rms in dB of full scale
    float gain = 0.0f;     // dB, on what the program feeds (noise and live inputs)
    bool mute = false;
    Pose pose;
    Trajectory trajectory;
    int line = 0;  // where the source starts in the file
};

struct SceneFile {
    std::string path;  // the file read, for messages
    int rate = 44100;  // Hz, for render and play; live takes the server's
    int block = 1024;  // frames, for render and play; live takes the server's period
    double seconds = 10.0;
    RoomKind room = RoomKind::None;
    int preset = 0;
    float box[3] = {0.0f, 0.0f, 0.0f};
    std::string world;  // a world text or .qkworld file (made absolute)
    int model = -1;     // -1: 1 in a room, free field without
    int order = 2;
    float reverbDry = -1.0f;  // below 0: the library's own
    std::string hrtf;         // a name in the HRTF folder, or a path
    bool hrtfIsPath = false;
    OutputKind output = OutputKind::File;
    std::string outFile;               // File
    std::string device;                // Alsa: the PCM's name; empty the default
    bool connect = false;              // Jack: connect the outputs to the system's playback ports
    std::string client = "quendarik";  // Jack: the client's name
    int oscPort = 0;                   // 0: no OSC server
    // Times a second the trajectories move their objects (each move rebuilds the object's
    // responses at the next block); 0: at every block.
    double moveRate = 50.0;
    Pose listener;
    bool listenerGiven = false;
    Trajectory listenerTrajectory;
    std::vector<SourceEntry> sources;
};

// Reads a scene from YAML text. fileName names it in messages; relative paths are taken from
// baseDir. With checkFiles, named files must exist. False with error set to one line,
// "FILE:LINE: KEY: what is wrong", on the first problem; the scene is then unusable.
bool ReadSceneText(const std::string &text, const std::string &fileName, const std::string &baseDir,
                   bool checkFiles, SceneFile &scene, std::string &error);
// Reads a scene file; a file that can't be read is "FILE: can't be read".
bool ReadSceneFile(const std::string &path, SceneFile &scene, std::string &error);

// Whether an argument names a scene file rather than an option (ends in .yaml or .yml).
bool IsSceneFileName(const std::string &arg);

}  // namespace qkcli
