// One measured head-related impulse response set in memory, and the .qkhrtf file it comes
// from. A set answers two questions: the left and right responses for one direction at a
// sample rate, and a whole binaural impulse response for a list of reflections.
//
// The set is shared by pointer between the settings object, the virtual sources, the HRTF
// services and the sound field models. It has no lock: calls on one set are serialised by the
// caller, because every lookup records the sample rate it was asked for.
#pragma once

#include <cstdint>
#include <istream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "binaural/CHRTFFilterBank.h"
#include "dsp/IppBuffer.h"
#include "platform/Archive.h"
#include "platform/Object.h"

class CHELPER_HRTF : public qk::CObject {
    QK_DECLARE_SERIAL(CHELPER_HRTF)

  public:
    // The direction grid: whole degrees, azimuth 0..359, elevation -90..90. Entry
    // [azimuth][elevation + 90] of a table sits at azimuth * 181 + elevation + 90.
    static constexpr int kAzimuths = 360;
    static constexpr int kElevations = 181;
    static constexpr int kDirections = kAzimuths * kElevations;  // 65,160

    // Sizes of the fixed text fields, terminating zero included.
    static constexpr int kDescriptionSize = 256;
    static constexpr int kTypeSize = 4;
    static constexpr int kEarsSize = 6;
    static constexpr int kDataTypeSize = 4;

    // The plain constructor leaves the set empty, version 1.0, two channels.
    CHELPER_HRTF();
    // Loads the named file at once (see ReadWrite).
    explicit CHELPER_HRTF(const std::string &strFileName);
    ~CHELPER_HRTF() override;
    CHELPER_HRTF(const CHELPER_HRTF &) = delete;
    CHELPER_HRTF &operator=(const CHELPER_HRTF &) = delete;

    // Storing writes version 1.0, file rate, channels, measurements and file taps; loading
    // reads the version and nothing more, on purpose: an archive records which set was in
    // use, the data stay in the .qkhrtf file.
    void Serialize(qk::CArchive &ar) override;

    // iWrite 0 loads, 1 stores. With m_pStream set a load reads that stream and a store is
    // ignored. Returns 0 on success, -1 when nothing was loaded or stored (empty name, a file
    // that can't be opened, a bad file). A bad file is reported with the caption "FAILURE"
    // and leaves the set without samples.
    virtual int ReadWrite(int iWrite, const std::string &strFileName);
    // Frees the samples.
    virtual void Clear();

    // The responses for one direction (degrees, truncated towards zero; azimuth wrapped into
    // 0..359, elevation clamped to -90..90) at iSampleRate Hz. pfLeft and pfRight are freed
    // when non-null and replaced by new arrays (ippsMalloc_32f, owned by the caller) of
    // iLength floats. Returns 1 on success, 0 when the set has no measurement for the
    // direction, and 1 with zeroed arrays when m_szEars is none of "BOTH", "LEFT", "RIGHT".
    virtual int GetHRTF(float *&pfLeft, float *&pfRight, int &iLength, float fAzimuth,
                        float fElevation, int iSampleRate);
    // A reflection list given by path lengths in metres (delay = length * 1000 / 343 ms),
    // each with gain 1 and no filter. Returns what the reflection-list GetHRTF returns.
    virtual int GetHRTFForPaths(float *&pfLeft, float *&pfRight, int &iLength,
                                const float *pfAzimuths, const float *pfElevations,
                                const float *pfPathLengths, int iCount, int iPowerOfTwo,
                                int iSampleRate);
    // Renders a reflection list into one binaural impulse response. Each reflection i adds
    // the response of its direction, convolved with its own filter when pfFilterCoefs and
    // piFilterLengths are given (the filters lie one after the other in pfFilterCoefs) and
    // scaled by pfGains[i], at sample trunc(delay ms / 1000 * rate). A reflection whose
    // direction has no measurement is skipped, and so is its filter's place: the next
    // reflection reads the coefficients the skipped one would have used. iPowerOfTwo 1
    // raises the length to a power of two. Returns 1.
    virtual int GetHRTF(float *&pfLeft, float *&pfRight, int &iLength, const float *pfAzimuths,
                        const float *pfElevations, const float *pfDelaysMs, const float *pfGains,
                        const float *pfFilterCoefs, const int *piFilterLengths, int iCount,
                        int iPowerOfTwo, int iSampleRate);
    // The same response as the reflection-list GetHRTF (iPowerOfTwo 0), made for a room
    // model's hundreds of reflections: at the set's own rate the stored responses are read in
    // place, nothing is allocated but the result, each filter tap adds the response once in
    // a vectorised multiply-add, and the set isn't changed, so calls may run side by side. At
    // another rate this is GetHRTF. Returns 1.
    int RenderReflections(float *&pfLeft, float *&pfRight, int &iLength, const float *pfAzimuths,
                          const float *pfElevations, const float *pfDelaysMs, const float *pfGains,
                          const float *pfFilterCoefs, const int *piFilterLengths, int iCount,
                          int iSampleRate);
    // The three layouts of the measurements; called through GetHRTF only, with a normalised
    // direction and buffers of m_iFileTaps floats.
    virtual int GetHRTF_BOTH(float *&pfLeft, float *&pfRight, int &iLength, int iAzimuth,
                             int iElevation, int iSampleRate);
    virtual int GetHRTF_LEFT(float *&pfLeft, float *&pfRight, int &iLength, int iAzimuth,
                             int iElevation, int iSampleRate);
    virtual int GetHRTF_RIGHT(float *&pfLeft, float *&pfRight, int &iLength, int iAzimuth,
                              int iElevation, int iSampleRate);

    // Brings m_iTaps up to date for m_iSampleRate: the file's taps at the file's rate, else
    // the length of one real resampling of the response at azimuth 0, elevation 0.
    void UpdateTaps();

    // The file form on any byte source. Read takes the named-file path of ReadWrite (the
    // sample type word decides how samples are read); Write produces the bytes of a store.
    // Both return 0 on success, -1 on failure (reported as ReadWrite does).
    int Read(qk::CArchiveStream &source);
    int Write(qk::CArchiveStream &sink);

    // Index of a direction in the tables; azimuth 0..359, elevation -90..90.
    static int TableIndex(int iAzimuth, int iElevation) {
        return iAzimuth * kElevations + iElevation + 90;
    }
    // Floats held in m_pfData.
    int DataLength() const { return m_pfData.size(); }

    // The response slots (slot k starts at float k * m_iFileTaps) GetHRTF would give for a
    // direction at the file's own rate: false when the direction has no measurement.
    bool ResponseSlots(float fAzimuth, float fElevation, int &iLeft, int &iRight) const;
    // The spectra of all the set's responses for partitions of iPartition taps, made on the
    // first call for that length and kept while the set's samples stay; any thread. Null when
    // the set is empty or the table too large.
    std::shared_ptr<const CHRTFFilterBank> Spectra(int iPartition) const;
    // Counts the changes of the samples (each load, each clear), so that a holder of a table
    // of Spectra knows when to ask again. Changed on the engine's thread only.
    unsigned SamplesGeneration() const { return m_uSamplesGeneration; }

    float m_fVersion = 1.0f;
    char m_szDescription[kDescriptionSize] = {};
    char m_szType[kTypeSize] = {'F', 'I', 'R', 0};
    char m_szEars[kEarsSize] = {'B', 'O', 'T', 'H', 0, 0};
    CIppBuffer m_pfData;    // all responses, measurements * channels * file taps floats
    int m_iFileRate = 0;    // Hz, rate of the stored responses
    int m_iSampleRate = 0;  // Hz, rate last asked for
    int m_iChannels = 2;    // stored channels per measurement
    int m_iMeasurements = 0;
    int m_iFileTaps = 0;  // samples in one stored response
    int m_iTaps = 0;      // samples in one response at m_iSampleRate
    char m_szDataType[kDataTypeSize] = {'3', '2', 'f', 0};
    std::vector<int32_t> m_aiTableA;    // loaded and stored unchanged; read by nothing
    std::vector<int32_t> m_aiLookup;    // measurement per direction, -1 for none
    std::istream *m_pStream = nullptr;  // not owned: read instead of the named file

  private:
    mutable std::mutex m_spectraMutex;
    mutable std::shared_ptr<const CHRTFFilterBank> m_pSpectra;  // the table made last
    mutable const float *m_pfSpectraOf = nullptr;               // the samples it was made of
    unsigned m_uSamplesGeneration = 0;

    // Forgets the spectra table; before the samples change.
    void DropSpectra();
    int Load(const std::string &strFileName);
    int Store(const std::string &strFileName);
    int ReadFrom(qk::CArchiveStream &source, bool bFromStream);
    // The stored response that starts at response slot iSlot (slot k starts at float
    // k * m_iFileTaps), or null when the samples don't hold it.
    const float *Response(int64_t iSlot) const;
    // The measurement the lookup table names for a normalised direction, or -1 when it names
    // none or one the set doesn't hold.
    int LookupMeasurement(int iAzimuth, int iElevation) const;
    // Puts one stored response into pfOut, which holds m_iFileTaps floats: a copy at the
    // file's rate, else a resampled array that replaces it (iLength becomes its length).
    void FetchResponse(const float *pfSource, float *&pfOut, int &iLength);
    void Resample(const float *pfSource, float *&pfOut, int &iLength);
};
