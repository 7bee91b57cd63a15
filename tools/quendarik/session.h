// A scene described on the command line, and its rendering through the library's public
// interface: the hosted road, where the program feeds the sources and asks for each block.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "quendarik/CQKSDK.h"

namespace qkcli {

struct SceneSource {
    std::string file;  // a WAV file; empty: noise made by the program
    float x = 0.0f;
    float y = 1.0f;
    float z = 0.0f;
};

struct Scene {
    std::vector<SceneSource> sources;
    float listener[6] = {0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f};  // position, then look-at point
    double seconds = 10.0;
    int block = 1024;       // frames
    std::string out;        // WAV file to write; empty: none
    std::string hrtf;       // HRTF set; empty: the default set
    int circleSource = -1;  // this source circles the listener, once every circlePeriod s
    double circlePeriod = 5.0;
    float circleRadius = 2.0f;
    bool shareSound = false;    // every virtual source plays the first source's sound
    bool zeroStuffing = false;  // files at another rate keep the library's default conversion
    int convolution = 1;        // 1 partitioned, 0 the library's default whole-filter method
    bool moveAll = false;       // every source moves a little round the listener every block
    int threads = 0;            // threads rendering the sources; 0: the library's default
    float speakers = 0.0f;      // > 0: two loudspeakers at +-speakers degrees, via the canceller
    float reverbDry = -1.0f;    // the late part's dry level, 0..1; below 0 the library's own
    // The room: a world file (text or .qkworld), a shoe box W x D x H (x across and y ahead
    // centred on 0, z up from the floor), or a preset 1..6; none of them: free field.
    std::string world;
    float room[3] = {0.0f, 0.0f, 0.0f};
    int preset = 0;
    int order = 2;  // reflection order of the image model
    int model = 1;  // 1 early part, 2 with the late reverb, 3 one HRTF and the reverb
    bool listenerGiven = false;
    bool force = false;  // --force: write even when the file system looks too full
    bool HasRoom() const { return !world.empty() || room[0] > 0.0f || preset > 0; }
};

// Sets up the scene's room and the image model, or free field; false, with a message, when
// the world file can't be used. In a room the listener stands at 1.2 m unless placed.
bool ChooseRoom(CQKSDK &sdk, Scene &scene);
// The room in words, for the programs' first line: "free field" or "a 5 x 5 x 3 m room,
// reflections to order 2".
std::string DescribeRoom(const Scene &scene);

// Headphones, or loudspeakers through the canceller, and the late part's dry level, as the
// scene asks.
void ChooseOutput(CQKSDK &sdk, const Scene &scene);
// What ChooseOutput renders for, in words: "headphones (binaural, no cross-talk
// cancellation)" or "two loudspeakers at +-30 degrees (through the cross-talk canceller)".
std::string DescribeOutput(const Scene &scene);

// Chooses the scene's convolution method, and how its files at another rate are converted
// (band-limited unless --zero-stuffing); without conversion it says once for each such file
// what it will sound like. Files end exactly: an AC-3 file that has ended is silent, and a
// wave file loops without a gap.
void ChooseMethods(CQKSDK &sdk, const Scene &scene, int iEngineRate);

// Parses the scene options shared by render, play, ir, bench and demo; false, after one line
// that names the option and what it wants, on a missing or bad value, or on an unknown option
// when rest is null (else unknown words go to rest). Options: --source FILE X Y Z, --noise X Y Z,
// --listener X Y Z LX LY LZ, --seconds S, --block N, --out FILE, --hrtf FILE, --zero-stuffing,
// --convolution partitioned|overlap, --speakers [AZ] (default 30), --reverb DRY, --world FILE,
// --room W D H, --preset N, --order N, --model 1|2|3.
bool ParseScene(int argc, char **argv, Scene &scene, std::vector<std::string> *rest = nullptr);

// The library set up for a scene: a listener, one sound source and one virtual source per
// scene source, no output device.
class HostedRender {
  public:
    static constexpr int kRate = 44100;

    explicit HostedRender(Scene scene);
    // False, with a message, when the scene can't be rendered.
    bool Ready() const { return m_bReady; }
    // Feeds the sources, moves a circling source to time t (s) and makes one block. Returns
    // the library's result (0: a block was made).
    int Block(double t);
    // The listener's last block: n left floats, then n right, in 16-bit scale.
    const float *Output();
    CQKSDK &Sdk() { return m_sdk; }
    // The virtual sources, in the scene's order, and the listener.
    const std::vector<int> &ObjectIds() const { return m_objectIds; }
    int ListenerId() const { return m_iListener; }

  private:
    void FillNoise();

    CQKSDK m_sdk;
    Scene m_scene;
    int m_iListener = 0;
    std::vector<int> m_soundIds;
    std::vector<int> m_objectIds;
    std::vector<float> m_noiseTable;  // made once; blocks are read from it at a moving place
    std::vector<float> m_noise;
    size_t m_noiseAt = 0;
    bool m_bReady = false;
};

// Renders a saved project (its sources, virtual sources, settings and the world they name) to
// scene.out for scene.seconds, heard by a listener at scene.listener, by the engine's own play
// loop; iBlock frames a block, or the project's block length when 0. The program's exit code.
int RenderProject(const std::string &project, const Scene &scene, int iBlock);

// Plays a WAV file on the default device; false when no device could be opened.
bool PlayWaveFile(const std::string &path);

// Draws a progress bar on standard error.
void Progress(double done, double total);
// Draws the finished bar and ends its line.
void ProgressEnd(double total);

// quendarik bench --moves: the latency of a host's moves while 64 sources render, at each of
// the block lengths.
int RunBenchMoves(const Scene &scene, const std::vector<int> &blocks);

}  // namespace qkcli
