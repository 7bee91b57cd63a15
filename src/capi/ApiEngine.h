// The engine behind the C interface's handle: one facade driven block by block, with the
// sources the C interface feeds itself (host queues and noise) and the file sources it pulls.
// It reaches the library through the facade only.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "quendarik/quendarik.h"

struct qk_engine {
  public:
    // The facade's samples keep the 16-bit scale of the library's sources; the C interface's
    // full scale is 1.0. Host samples are multiplied by this on the way in, and the block is
    // divided by it on the way out, so that file sources and the limiter agree with both.
    static constexpr float kScale = 32768.0f;

    qk_engine(int iRate, int iBlock);
    qk_engine(const qk_engine &) = delete;
    qk_engine &operator=(const qk_engine &) = delete;

    int AddHost(int &iID);
    int AddFile(const char *pcPath, int &iID);
    int AddNoise(float fRms, int &iID);
    int Push(int iID, const float *pfMono, int iFrames);
    bool HasSource(int iID);
    int SetHRTF(const char *pcPath);
    int LoadWorld(const char *pcPath);
    int Render(float *pfLeft, float *pfRight, int iFrames);
    // A copy of the virtual source's binaural response (bBinaural) or echogram, in buffers
    // from malloc, under the engine lock so that no block rebuilds it meanwhile.
    int CopyResponse(int iVsource, bool bBinaural, float **ppfFirst, float **ppfSecond,
                     int *piFrames);

    CQKSDK sdk;
    const int iRate;
    const int iBlock;
    int iListener = 0;

  private:
    // A host source's queue of mono samples, in the facade's scale (times kScale).
    struct HostQueue {
        int iID = 0;
        std::vector<float> samples;  // capacity: the queue's limit, allocated once
        int iQueued = 0;
    };
    // A noise source's generator state (xorshift64*) and level.
    struct NoiseSource {
        int iID = 0;
        float fRms = 0.0f;
        uint64_t uiState = 0;
    };

    int LoadSet(const std::string &strPath, const char *pcShownAs);
    void FeedSources(int iFrames);
    void FillNoise(NoiseSource &noise, float *pfOut, int iFrames);

    std::mutex m_lock;  // the source tables and the queues; the C interface's own
    std::vector<HostQueue> m_hosts;
    std::vector<NoiseSource> m_noises;
    std::vector<int> m_files;
    std::vector<float> m_feed;  // one block for a source, QK_MAX_FRAMES floats
    std::string m_strDefaultHRTF;
    int m_iQueueFrames = 0;
};
