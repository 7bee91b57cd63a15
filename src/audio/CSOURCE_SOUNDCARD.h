// Live input from a capture device as a sound source: 2 channels of 16 bits at 44100 Hz from
// the default capture device, whatever the engine's own format. It lives with the devices
// because it owns one. Each block waits for the device (a live input paces the engine), and
// the first block of a run is silence while the device starts.
#pragma once

#include <string>

#include "audio/CAudio_Record.h"
#include "sources/CSOURCE.h"

class CSOURCE_SOUNDCARD : public CSOURCE {
    QK_DECLARE_SERIAL(CSOURCE_SOUNDCARD)

  public:
    // Starts the capture object's thread.
    CSOURCE_SOUNDCARD();
    ~CSOURCE_SOUNDCARD() override;

    void Serialize(qk::CArchive &ar) override;

    // Opens the default capture device and sets 2 channels, so that a virtual source linked
    // to this source renders it. A device that doesn't open is reported once; the source is
    // then silent. Returns 0.
    int _init(int iBlockLength, int iSampleRate) override;
    // The next iLength frames of the device, planar stereo (channel 1 at element iLength), in
    // the 16-bit integer scale. Returns 0 although the block is full.
    int _process_1P(void *pData, int iLength, int iBits, int iChannels, int iSampleRate) override;
    // Frees the block and closes the device. Returns 0.
    int _quit() override;

    CAudio_Record m_Capture;

  private:
    std::string m_strReported;  // the failure last reported
};
