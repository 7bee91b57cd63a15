// quendarik render --project FILE: a saved project rendered to a WAV file by the engine's own
// play loop, with no device, so that the engine pulls its sources itself as in live play.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include "commands.h"
#include "jobsize.h"
#include "outfile.h"
#include "session.h"
#include "sources/CSINK_WAVE.h"

namespace qkcli {
namespace {
constexpr int kWaitSeconds = 10;  // longest the program waits for the engine's next block
constexpr int kRate = 44100;      // real-time play is always at this rate

int onMessage(unsigned long, const char *text, const char *caption, int severity) {
    std::fprintf(stderr, "\n[%s] %s\n", caption, text);
    return severity == QK_MSG_QUESTION ? QK_ANSWER_NO : QK_ANSWER_OK;
}

// What the values callback writes, on the engine's thread.
struct Recording {
    CSINK_WAVE sink;
    double seconds = 0.0;
    long wanted = 1;  // blocks to keep; known from the first block's length
    long blocks = 0;
    int frames = 0;
    bool failed = false;
    std::mutex lock;
    std::condition_variable done;
};

void onValues(unsigned long user, float *left, float *, int frames, int bits, int channels,
              int rate, float) {
    auto *rec = reinterpret_cast<Recording *>(user);
    std::lock_guard<std::mutex> guard(rec->lock);
    if (rec->blocks >= rec->wanted || rec->failed) {
        return;
    }
    if (rec->blocks == 0) {
        rec->frames = frames;
        rec->wanted = std::max(1L, static_cast<long>(rec->seconds * rate / frames));
        rec->failed = rec->sink._init(frames, channels, bits, rate) != 0;
    }
    if (!rec->failed) {
        rec->sink._process(left, frames, channels);  // the block is planar from left
        ++rec->blocks;
    }
    rec->done.notify_all();
}

// The world the project's settings name: a world file, or a room by its number.
void chooseWorld(CQKSDK &sdk) {
    int model = 0;
    sdk.qk_Wrld_Get_Model(model);
    char file[4096] = {};
    sdk.qk_Wrld_Get_File_Full(file);
    if (model == 3 && file[0] != '\0') {
        sdk.qk_Wrld_Set_File_Full(file);
    } else {
        sdk.qk_Wrld_Preset(model);
    }
    // A project doesn't keep the numbers of its virtual sources in a response set: they are
    // numbered 1, 2, ... in their order, as quendarik precompute numbers its sources.
    int number = 0;
    int id = 0;
    for (int r = sdk.qk_Vsrc_Get_First(); r == 0 && sdk.qk_Vsrc_Get_Next(id) == 0;) {
        sdk.qk_Vsrc_Set_3DSourceWavID(id, ++number);
    }
    int sfm = 0;
    sdk.qk_SFM_Get(sfm);
    std::string dir;
    sdk.qk_SFM_Get_DirPreComputedWav(dir);
    if (sfm == 4) {
        sdk.qk_SFM_Set_DirPreComputedWav(dir.c_str());  // reads the project's set
    }
}
}  // namespace

int RenderProject(const std::string &project, const Scene &scene, int iBlock) {
    // Real-time play makes 16-bit stereo at 44100 Hz; the last block may run past the time.
    char what[96];
    std::snprintf(what, sizeof what, "%g s of 16-bit stereo at %d Hz", scene.seconds, kRate);
    OutputFile out(scene.out);
    if (!CheckJob("render",
                  JobSize{what, scene.out, WaveFileBytes(scene.seconds, kRate, 2, 16), true},
                  scene.force) ||
        !OpenOutput("render", out)) {
        return 1;
    }
    CQKSDK sdk;
    sdk.qk_Appl_Register_On_Message(&onMessage, 0);
    if (sdk.qk_File_Open(project.c_str(), nullptr) != 0) {
        return 1;
    }
    chooseWorld(sdk);
    if (!scene.hrtf.empty()) {
        sdk.qk_HRTF_Set_Full(scene.hrtf.c_str());
    }
    sdk.qk_Siml_Set_FileEnd(1);  // files end exactly, as in every render of the program
    sdk.qk_Asnk_Set(-2);         // no device: blocks come as fast as they are made
    sdk.qk_Save_Wave_Stop();     // the program writes the file; a recording the project asks for
    if (iBlock > 0) {
        sdk.qkSimSetBlockLength(iBlock);
    }
    int listener = 0;
    sdk.qk_Vrcv_Add(listener);
    const float *l = scene.listener;
    sdk.qk_Vrcv_Set_Position_LookAt(listener, l[0], l[1], l[2], l[3], l[4], l[5]);

    Recording rec;
    rec.sink.m_strSinkFile = out.Temporary();
    rec.seconds = scene.seconds;
    sdk.qk_Appl_Register_On_Values(reinterpret_cast<unsigned long>(&onValues),
                                   reinterpret_cast<unsigned long>(&rec));
    sdk.qkPlay();
    bool ok = true;
    {
        std::unique_lock<std::mutex> guard(rec.lock);
        while (!rec.failed && rec.blocks < rec.wanted) {
            const long seen = rec.blocks;
            if (!rec.done.wait_for(guard, std::chrono::seconds(kWaitSeconds),
                                   [&] { return rec.blocks != seen || rec.failed; })) {
                std::fprintf(stderr, "\nquendarik render: no block was made (no HRTF set?)\n");
                ok = false;
                break;
            }
            Progress(static_cast<double>(rec.blocks) * rec.frames / kRate, scene.seconds);
        }
        if (ok && rec.failed) {
            std::fprintf(stderr, "\nquendarik render: can't write %s\n", scene.out.c_str());
            ok = false;
        }
    }
    sdk.qkStop();
    sdk.qk_Appl_UnRegister_On_Values();
    rec.sink._quit();
    if (!ok) {
        return 1;
    }
    ProgressEnd(scene.seconds);
    if (!CommitOutput("render", out)) {
        return 1;
    }
    std::printf("Wrote %s\n", scene.out.c_str());
    return 0;
}

}  // namespace qkcli
