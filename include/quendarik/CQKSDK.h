// Quendarik: real-time 3-D audio. The one class a host program uses.
//
// Construct a CQKSDK (the engine thread is running when the constructor returns), choose a
// world, add sound sources (qk_Ssrc_Add_*), at least one listener (qk_Vrcv_Add) and virtual
// sources that each play one sound source (qk_Vsrc_Add), then qkPlay. Move things while it
// plays; qkStop; destroy.
//
// Output: by default the library renders for two loudspeakers: the binaural mix goes through
// the cross-talk canceller (qk_Siml_Set_PO(2), the default). For headphones call
// qk_Siml_Set_PO(1), which leaves the binaural mix as it is.
//
// Results: 0 success, -1 not found / not allowed / failed, -2 a second kind of failure where
// an operation says so. Nothing throws. Ids are ints; sound sources and rendering objects
// (virtual sources, listeners) count separately, so their ids may coincide.
//
// Texts for the user (a file that can't be read, an unsupported kind of file) go to the
// handler installed with qk_Appl_Register_On_Message, or to standard error.
//
// Threads: every operation may be called from any host thread. The engine holds its lock for
// the whole calculation of a block, so what takes the lock may wait that long. What never
// waits for a block:
// - moves and turns: qk_Vsrc_Set_Position and qk_Vrcv_Set_Position_LookAt leave the new pose
//   for the engine, which takes it whole at the start of the next block (a block never sees
//   half of a move); they allocate nothing and may be called at any rate from any thread;
// - setters and getters of scalar values (Siml, CTC, the gain and shelves) write and read
//   plain words that the next block reads.
// Everything else takes the engine lock and may wait for the block in progress: adding and
// removing objects, their enable, descriptions and getters (which see the moves left before
// them), files, data sets, models, the output device. A host that wants several changes to land in
// one block brackets them with qk_Enter_CS / qk_Leave_CS: no block starts in between. qkStop and
// the destructor wait for the engine thread and must not be called from the values callback, which
// runs on the engine thread.
//
// Output buffers of char * are written without a length: give them room for 512 characters.
#pragma once

#include <string>

// What the shared library exports: this class and the C interface (quendarik.h); everything
// else in it is hidden.
#ifndef QK_API
#define QK_API __attribute__((visibility("default")))
#endif

namespace qk {
class CObject;
}
class CQUENDARIK_PROCESSOR;

// Severity of a reported text.
enum { QK_MSG_INFO = 0, QK_MSG_WARNING = 1, QK_MSG_ERROR = 2, QK_MSG_QUESTION = 3 };
// Answers to a question (QK_MSG_QUESTION); without a handler every question is answered No.
enum { QK_ANSWER_OK = 1, QK_ANSWER_YES = 6, QK_ANSWER_NO = 7 };

// Receives every text the library shows to its user. Runs on the thread that found the
// problem (possibly the engine thread) and must return promptly.
typedef int (*QK_ON_MESSAGE)(unsigned long user, const char *text, const char *caption,
                             int severity);

// The values callback, passed as an unsigned long: called after every block on the engine
// thread inside the engine lock, with (user word, left, right, frames, bits, channels, rate,
// gain). It must not call qkStop or wait for the engine.
typedef void (*QK_ON_VALUES)(unsigned long user, float *left, float *right, int frames, int bits,
                             int channels, int rate, float gain);

class QK_API CQKSDK {
  public:
    CQKSDK();
    virtual ~CQKSDK();
    CQKSDK(const CQKSDK &) = delete;
    CQKSDK &operator=(const CQKSDK &) = delete;

    // Frame
    int qkInit();
    int qkQuit();
    int qkPlay();
    int qkStop();
    int qkPause();
    int qk_Set_Playback_State(int iState);
    int qk_Get_Playback_State(int &iState);
    int qk_Enter_CS();
    int qk_Leave_CS();
    int qk_Dlg_Settings(int iArg);
    // Project files: the settings, the sound sources and the virtual sources (not the
    // listeners, nor the world, which the settings only name). pExtra, when not null, is the
    // host's own object, written behind the engine's part and read back from there.
    // qk_File_Save writes a new file beside the old one and puts it in place only when all of
    // it is written: on failure the old project stays as it was, the reason is reported, -1.
    // qk_File_Open reads the whole project before it changes anything: a file that can't be
    // opened, is cut short or isn't a project is reported, changes nothing and gives -1.
    // After an open the sound source ids are those of the file; add a listener for sound.
    int qk_File_Open(const char *pcPath, qk::CObject *pExtra);
    int qk_File_Save(const char *pcPath, qk::CObject *pExtra);

    // Appl
    int qk_Appl_Get(char *&pcBuffer);
    int qk_Appl_Set(const char *pcName);
    int qk_Appl_Register_On_Values(unsigned long ulCallback, unsigned long ulUser);
    int qk_Appl_UnRegister_On_Values();
    // Installs the handler of reported texts (null: back to standard error). Process-wide.
    int qk_Appl_Register_On_Message(QK_ON_MESSAGE pfnCallback, unsigned long ulUser);

    // Wrld: the world the room models read. A room is generated (shoe box, trapezium, the
    // presets 0..6), imported from a world text file, or loaded from a .qkworld archive below
    // <common folder>/TORVELLAN/Common/QKWORLD. Dimensions are in metres.
    int qk_Wrld_None();  // no room; model 0
    // 0 none; 1..3 shoe boxes 2x2x2, 6x6x4, 10x10x5; 4..6 trapezia (2,2,1,2), (6,6,4,3.5),
    // (10,10,7,5). Any other number gives -1; the model takes the number in every case.
    int qk_Wrld_Preset(int iPreset);
    int qk_Wrld_ShoeBox(float fWidth, float fDepth, float fHeight);  // model 1
    // Front width, back width, depth, height; model 2.
    int qk_Wrld_Trapezium(float fWidthFront, float fWidthBack, float fDepth, float fHeight);
    // Reads a world text file (an absolute path) and its includes; model 3. Returns -1 always,
    // on success too: hosts look at the world, not at this result.
    int qk_Wrld_Import(const char *pcPath);
    // Loads a .qkworld archive (".qkworld" is added when missing); 0. A file that can't be
    // opened is reported (unless it is the default one), the default room is made, -1.
    int qk_Wrld_Set_File_Full(const char *pcPath);
    int qk_Wrld_Set_File(const char *pcName);  // a name in the QKWORLD folder
    // Makes the 5 x 5 x 3 shoe box and stores it as <name>.qkworld in the QKWORLD folder,
    // then loads it; 0. -1 when that file exists already (the box stays, nothing is stored);
    // -2 when it can't be written (reported).
    int qk_Wrld_Generate_Default(const char *pcName);
    int qk_Wrld_ReInitialize();  // generates the world again from its expressions
    int qk_Wrld_Get_File_Full(char *pcBuffer);
    int qk_Wrld_Get_File(char *pcBuffer);
    int qk_Wrld_Get(void *&pWorld);
    int qk_Wrld_Get_Model(int &iModel);
    // The planes the room models read in the world as it is now generated: 0 in free field or
    // after a world file that described nothing usable.
    int qk_Wrld_Get_PlaneCount(int &iCount);

    // Ssrc: sound sources
    int qk_Ssrc_Add_Gauss(int &iID);
    int qk_Ssrc_Add_File(int &iID, const char *pcPath);
    int qk_Ssrc_File_Set(int &iID, const char *pcPath);
    int qk_Ssrc_File_GetInfo(int &iID, char *pcInfo1, char *pcInfo2, int *piInfo);
    int qk_Ssrc_Add_Winamp(int &iID);
    int qk_Ssrc_Add_VST(int &iID);
    int qk_Ssrc_Add_DXi2(int &iID);
    int qk_Ssrc_Add_WMP(int &iID);
    // Live input from the default capture device ($QK_ALSA_CAPTURE_DEVICE, else ALSA's
    // "default"; "virtual" is a built-in clocked test tone): 2 channels, 16 bits, 44100 Hz.
    // iDevice isn't used. As it always has been, iID isn't written: the source's id is the
    // one after the id of the source added just before it. Returns 0.
    int qk_Ssrc_Add_SoundCard(int &iID, int iDevice);
    int qk_Ssrc_Gen_Samples_1P(int iID, void *pData, int iLength, int iBits, int iChannels,
                               int iSampleRate);
    int qk_Ssrc_Gen_Samples_2P(int iID, void **ppData, int iLength, int iBits, int iChannels,
                               int iSampleRate);
    int qk_Ssrc_Get_Enable(int iID, int &iEnable);
    int qk_Ssrc_Set_Enable(int iID, int iEnable);

    // Asnk: the output device (-1 default, -2 none, 0..n-1 a device)
    int qk_Asnk_Set(int iDevice);
    int qk_Asnk_Get(int &iDevice);

    // Vsrc: virtual sources
    int qk_Vsrc_Add(int &iID, int iSoundID, int iAudioLink, float x, float y, float z,
                    const char *pcName);
    int qk_Vsrc_Remove(int iID);
    int qk_Vsrc_Set_Position(int iID, float x, float y, float z);
    int qk_Vsrc_Get_Position(int iID, float &x, float &y, float &z);
    int qk_Vsrc_Upd_Position(int iID);
    int qk_Vsrc_Get_Binaural_Position(int iID, float &fDistance, float &fAzimuth,
                                      float &fElevation);
    int qk_Vsrc_Get_First();
    int qk_Vsrc_Get_Next(int &iID);
    int qk_Vsrc_Get_Enable(int iID, int &iEnable);
    int qk_Vsrc_Set_Enable(int iID, int iEnable);
    int qk_Vsrc_Get_AudioLink(int iID, int &iAudioLink);
    int qk_Vsrc_Set_AudioLink(int iID, int iAudioLink);
    int qk_Vsrc_Get_Description(int iID, char *pcBuffer);
    int qk_Vsrc_Set_Description(int iID, const char *pcDescription);
    int qk_Vsrc_OGL_Get_VRSource(int iID, void *&pVRSource);
    int qk_Vsrc_Get_BIR(int iID, float *&pfLeft, float *&pfRight, int &iLength);
    // The room model's echogram of the source as its last response was made: one impulse per
    // image at its delay in samples, of the image's distance gain (1/d beyond a metre). Like
    // the binaural response, a pointer into the engine, valid until the source's next
    // rebuild; null and 0 while none was made (free field). 0, -1 for an unknown id.
    int qk_Vsrc_Get_Echogram(int iID, float *&pfData, int &iLength);
    int qk_Vsrc_Get_ID(int iID, int &iOut);
    int qk_Vsrc_Get_Name(int iID, std::string &strName);
    int qk_Vsrc_Get_3DSourceWavID(int iID, int &iWavID);
    int qk_Vsrc_Set_3DSourceWavID(int iID, int iWavID);

    // Vrcv: listeners
    int qk_Vrcv_Add(int &iID);
    int qk_Vrcv_Set_Position_LookAt(int iID, float x, float y, float z, float lx, float ly,
                                    float lz);
    int qk_Vrcv_Get_Data(int iID, float *&pfData);
    int qk_Vrcv_Get_Position_LookAt(int iID, float &x, float &y, float &z, float &lx, float &ly,
                                    float &lz);
    int qk_Vrcv_Upd_Position(int iID);

    // HRTF data sets
    int qk_HRTF_Set_Full(const char *pcPath);
    int qk_HRTF_Get_Full(char *pcBuffer);
    int qk_HRTF_Set(const char *pcName);
    int qk_HRTF_Get(char *pcBuffer);
    int qk_HRTF_CTC_Set_Full(const char *pcPath);
    int qk_HRTF_CTC_Get_Full(char *pcBuffer);
    int qk_HRTF_CTC_Set(const char *pcName);
    int qk_HRTF_CTC_Get(char *pcBuffer);
    int testHRTFSet(int i1, float f2, int i3, int i4, int i5, int i6, int i7);
    // Loads the requested rendering set (and the canceller's) now, under the engine lock, as
    // the next block would otherwise do: 0 when a set with measurements is in place, -1 when
    // the file can't be read or holds none (reported as at a block). Lets a host know at once
    // whether the path it gave is good.
    int qk_HRTF_Load();
    // Makes an HRTF set from a SOFA (AES69) file of free-field impulse responses: every
    // measurement as it was measured, both ears, 32-bit floats, written to pcOut (a .qkhrtf
    // path) under a temporary name and renamed when whole. 0; -1 when the SOFA file can't be
    // used or the set can't be written (reported; an old pcOut stays as it was).
    int qk_HRTF_Import(const char *pcSofa, const char *pcOut);

    // Siml: simulation settings
    int qk_Siml_Set_3DAudio(int iValue);
    int qk_Siml_Get_3DAudio(int &iValue);
    int qk_Siml_Set_CTCIfNot3DAudio(int iValue);
    int qk_Siml_Get_CTCIfNot3DAudio(int &iValue);
    int qk_Siml_Set_ReverbDryLevel(float fValue);
    int qk_Siml_Get_ReverbDryLevel(float &fValue);
    int qk_Siml_Set_AGC(int iValue);
    int qk_Siml_Get_AGC(int &iValue);
    int qk_Siml_Set_SpecularOrder(int iValue);
    int qk_Siml_Get_SpecularOrder(int &iValue);
    int qkSimReflections(int iValue);
    int qkSimSetBlockLength(int iValue);
    // The playback output: 1 headphones (the binaural mix as it is), 2 loudspeakers (the
    // binaural mix through the cross-talk canceller, for speakers at +-qkSimSetCrossTalkAzimuth
    // degrees; the default). Any other value is ignored; 0.
    int qk_Siml_Set_PO(int iValue);
    int qk_Siml_Get_PO(int &iValue);
    int qkSimSetCrossTalkAzimuth(int iAzimuth);
    int qkSimSetCrossTalkElevation(int iElevation);
    int qk_Siml_Set_PostEQ(int iValue);
    int qk_Siml_Get_PostEQ(int &iValue);
    int qk_Siml_Set_Gain(float fValue);
    int qk_Siml_Get_Gain(float &fValue);
    int qk_Siml_Set_Gain_LSF(float fValue);
    int qk_Siml_Get_Gain_LSF(float &fValue);
    int qk_Siml_Set_Frequency_LSF(float fValue);
    int qk_Siml_Get_Frequency_LSF(float &fValue);
    int qk_Siml_Set_Gain_HSF(float fValue);
    int qk_Siml_Get_Gain_HSF(float &fValue);
    int qk_Siml_Set_Frequency_HSF(float fValue);
    int qk_Siml_Get_Frequency_HSF(float &fValue);
    int qk_Siml_Process_WinAmp(int iSamples, int iBits, int iChannels, int iSampleRate);
    // How virtual sources convolve. 0 (the default): the whole-filter method, one transform
    // of block + response length a block; at small blocks a long response is cut (sample j
    // of a block hears it up to lag 2 x block + j). 1: uniformly partitioned, partitions of
    // the block (at most 512 frames), the whole response heard at any block length, and a
    // change of response cross-faded on the same input history. Other values are ignored. A
    // change takes effect at the next block, with a silent history.
    int qk_Siml_Set_Convolution(int iMethod);
    int qk_Siml_Get_Convolution(int &iMethod);
    // Threads that render the virtual sources of a block, the engine's own thread counted
    // (1 to 64; 0, the default: $QK_THREADS, else the machine's cores). The output is the
    // same bit for bit whatever the count. Takes effect at the next block.
    int qk_Siml_Set_Threads(int iThreads);
    int qk_Siml_Get_Threads(int &iThreads);
    // How a file source whose rate differs from the engine's is brought to the engine's rate,
    // for every file source of the engine. 0 (the default): the library's own integer
    // zero-stuffing, which hosts may rely on: unless the rates are whole multiples a file
    // plays at the wrong speed and pitch (a 48 kHz file at 44.1 kHz, a 22.05 kHz file with
    // half-filled blocks). 1: a band-limited
    // conversion (libsamplerate), seamless across blocks, at the right speed and pitch. Takes
    // the engine lock.
    int qk_Siml_Set_FileResampling(int iQuality);
    int qk_Siml_Get_FileResampling(int &iQuality);
    // How the end of a file source is heard, for every file source of the engine. 0 (the
    // default), as the library always has: an AC-3 stream that has ended leaves the rest of
    // each block with the samples it held before (heard as a tone at the block period), and a
    // wave file that wraps round to its start fills only the front of that block with fresh
    // frames and keeps old samples behind them (a click at each wrap; the file's last frames
    // go unheard). 1: exact ends: an ended AC-3 stream is heard as silence, and a wave file
    // goes on from its start (behind its offset) without a gap. Other values are ignored; 0.
    // Takes the engine lock.
    int qk_Siml_Set_FileEnd(int iMode);
    int qk_Siml_Get_FileEnd(int &iMode);
    // Blocks the engine's play loop has made since the last qkPlay (a diagnostic count).
    int qk_Siml_Get_Blocks(int &iBlocks);

    // CTC: cross-talk canceller
    int qk_CTC_Set_TES(float fValue);
    int qk_CTC_Get_TES(float &fValue);
    int qk_CTC_Set_Parameters(float fDistL, float fAzL, float fElL, float fDistR, float fAzR,
                              float fElR);
    int qk_CTC_Get_Parameters(float &fDistL, float &fAzL, float &fElL, float &fDistR, float &fAzR,
                              float &fElR);

    // SFM: sound field model
    int qk_SFM_Set(int iModel);
    int qk_SFM_Get(int &iModel);
    int qk_SFM_Set_Material_Coeffs(int iCount);
    int qk_SFM_Get_Material_Coeffs(int &iCount);
    int qk_SFM_Get_DirPreComputedWav(std::string &strDir);
    int qk_SFM_Set_DirPreComputedWav(const char *pcDir);
    // Writes the image model's binaural response of every enabled virtual source, heard by the
    // listener that renders, into the folder of pre-computed sets as a 16-bit stereo wave file
    // named by the geometry (ids, and positions and look-ats in centimetres). Takes the engine
    // lock for as long as all responses take. 0; -1 with no HRTF set; -2 with no listener.
    int qk_SFM_PreComputeWav();

    // Save_Wave: recording of the output
    int qk_Save_Wave_Start(std::string strName);
    int qk_Save_Wave_Stop();

    // Research switches: "ORMS", "GRAPH_BIR", "INFO", "ONEREVERB" (exact case)
    int qk_Research_Set_BOOL(const char *pcKey, int iValue);
    int qk_Research_Get_BOOL(const char *pcKey, int &iValue);
    int qk_Research_Set_INT(const char *pcKey, int iValue);
    int qk_Research_Get_INT(const char *pcKey, int &iValue);
    // "GRAPH_DIR": the folder where each rebuilt room response is drawn as an SVG file while
    // "GRAPH_BIR" is set (empty: the working folder). -1 for an unknown key or a null value.
    int qk_Research_Set_STRING(const char *pcKey, const char *pcValue);
    int qk_Research_Get_STRING(const char *pcKey, std::string &strValue);

  private:
    friend struct CQKSDKTestAccess;  // lets the library's own tests reach the engine

    long m_posVsrc = -1;  // cursor of qk_Vsrc_Get_First / _Next: index in the engine's list
    void *m_hSettingsModule = nullptr;             // the loaded settings-dialog module
    void *m_pfnDlgSettings = nullptr;              // its entry
    int m_iPlaying = 0;                            // 1 between qkPlay and qkStop
    CQUENDARIK_PROCESSOR *m_pProcessor = nullptr;  // the engine; owned
    int m_iThreaded = 1;                           // 1: the engine runs on its own thread
};
