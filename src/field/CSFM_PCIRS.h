// Binaural responses computed earlier and kept as wave files, one file a pair of listener and
// source positions, read back instead of computed. The file name tells the geometry: fourteen
// fields separated by '_' (listener id; listener position x, y, z; listener look-at x, y, z;
// source id; source position x, y, z; source look-at x, y, z), ids whole, coordinates in
// centimetres. A response is chosen by the listener's position alone: the first record of the
// source within half a metre of it (the radius stands for the grid the set was made on).
#pragma once

#include <string>
#include <vector>

#include "field/CSFM.h"

// One file of a set: its geometry and, when loaded, its samples.
class CPCIR : public qk::CObject {
  public:
    std::string m_sFileName;  // the name; the full path with ".wav" once samples are read
    int m_iListenerID = 0;
    C3Point m_ListenerPos;  // metres
    C3Point m_ListenerLookAt;
    int m_iSourceID = 0;  // the sort key; matches a virtual source's number in a set
    C3Point m_SourcePos;
    C3Point m_SourceLookAt;
    // Channel-planar: m_iSamples of the first channel, then of the second; scaled to +-1.
    std::vector<float> m_pfSamples;
    int m_iChannels = 0;  // of the wave file
    int m_iBits = 0;      // 8 or 16
    int m_iSamples = 0;   // per channel
};

class CSFM_PCIRS : public CSFM {
    QK_DECLARE_SERIAL(CSFM_PCIRS)

  public:
    // Files longer than this (frames a channel) are taken as records without samples.
    static constexpr int kMaxFrames = 1 << 22;

    // Stores the folder and adds a record for each "*.wav" in it (in the order the folder
    // gives), then sorts the records by source id. Records already held stay. 0.
    int init(const std::string &strDirectory);
    // The response for a listener at listenerPos and the source numbered iSourceID: the first
    // record of that source within 0.5 m of the listener, else the last record of all,
    // whatever its source. The pair is copied into pfLeft and pfRight (freed first when set,
    // ippsMalloc_32f), iLength frames each; a mono record's right ear is silent. Beyond 1 m the
    // pair is scaled by 1 / d for the source's distance d, when m_bDistanceGain is 1. The
    // other points and the rate take no part. 0; -1 with no record at all.
    int GetBIR(float *&pfLeft, float *&pfRight, int &iLength, C3Point sourcePos,
               C3Point sourceLookAt, C3Point listenerPos, C3Point listenerLookAt, int iSampleRate,
               int iSourceID);
    // Sorts the records by source id and counts the distinct ids.
    int GetNumberOf3DSources();

    std::string m_sDirectory;  // folder of the set
    int m_bLoadSamples = 1;    // 1: read each file's samples at init
    int m_bDistanceGain = 1;   // 1: GetBIR applies the 1 / d law
    std::vector<CPCIR> m_Positions;

  private:
    // Adds the record of one file, named without its extension.
    void GetPositions(const std::string &strName);
    void LoadSamples(CPCIR &record);
};
