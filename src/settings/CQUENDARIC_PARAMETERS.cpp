#include "settings/CQUENDARIC_PARAMETERS.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "core/CSSS.h"
#include "platform/Archive.h"
#include "platform/Paths.h"
#include "platform/Report.h"

QK_IMPLEMENT_SERIAL(CQUENDARIC_PARAMETERS)

namespace {
// A settings file is a few hundred bytes; anything near this size is not one.
constexpr long kMaxSettingsFile = 1 << 20;
constexpr size_t kApplicationLetters = 4;  // applications are told apart by these
constexpr const char *kDefaultApplication = "default";
constexpr const char *kSettingsModule = "libmQUENDARIKe.so";

// The file of the settings module when the process has it loaded, else empty.
std::string settingsModulePath() {
    void *handle = dlopen(kSettingsModule, RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) {
        return std::string();
    }
    std::string path;
    link_map *map = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map != nullptr && map->l_name != nullptr) {
        path = map->l_name;
    }
    dlclose(handle);
    return path;
}

bool readWholeFile(const std::string &path, std::vector<uint8_t> &bytes) {
    std::FILE *file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return false;
    }
    bool ok = std::fseek(file, 0, SEEK_END) == 0;
    const long size = ok ? std::ftell(file) : -1;
    ok = ok && size >= 0 && size <= kMaxSettingsFile && std::fseek(file, 0, SEEK_SET) == 0;
    if (ok) {
        bytes.resize(static_cast<size_t>(size));
        ok = std::fread(bytes.data(), 1, bytes.size(), file) == bytes.size();
    }
    std::fclose(file);
    return ok;
}

bool writeAll(int fd, const std::vector<uint8_t> &bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

// Writes a new file beside the old one and renames it over it, so that the old file is
// either replaced whole or left as it was.
void replaceFile(const std::string &path, const std::vector<uint8_t> &bytes) {
    std::string temp = path + ".XXXXXX";
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) {
        return;
    }
    ::fchmod(fd, 0644);
    const bool written = writeAll(fd, bytes) && ::fsync(fd) == 0;
    const bool closed = ::close(fd) == 0;
    if (!written || !closed || std::rename(temp.c_str(), path.c_str()) != 0) {
        ::unlink(temp.c_str());
    }
}
}  // namespace

// The stored fields as plain values, in the order of the stored form.
struct CQUENDARIC_PARAMETERS::Stored {
    int32_t iChannelMode, i3DAudio, iSFM, iReflections, iSpecularOrder;
    float fTemperature;
    int32_t iSettingA, iMaterialCoeffs;
    float fReverbDryLevel, fReverbWetLevel;
    std::string strDirPreComputedWav;
    int32_t iCTCIfNot3DAudio;
    float fTES, fCTCAzimuthL, fCTCElevationL, fCTCDistanceL, fCTCAzimuthR, fCTCElevationR,
        fCTCDistanceR;
    int32_t iCTCFilterMode, iPostEQ, iPO;
    float fGain, fGain_LSF, fGain_HSF, fFrequency_LSF, fFrequency_HSF, fSettingB;
    int32_t iSaveWave;
    std::string strSaveWave;
    int32_t iAGC, iBlockLength, iSampleRate, iBits, iChannels, iSplitBands, iHeadMotion,
        iWorldModel;
    std::string strWorldFile;
    int32_t iAudioSink;
    std::string strHRTF, strHRTF_CTC;
    int32_t iORMS, iGraphBIR, iInfo, iOneReverb;
};

namespace {
template <typename T>
void field(qk::CArchive &ar, T &value) {
    if (ar.IsStoring()) {
        ar << value;
    } else {
        ar >> value;
    }
}
}  // namespace

void CQUENDARIC_PARAMETERS::SerializeStored(qk::CArchive &ar, Stored &v) {
    float fVersion = 1.0f;
    field(ar, fVersion);
    for (int32_t *p : {&v.iChannelMode, &v.i3DAudio, &v.iSFM, &v.iReflections, &v.iSpecularOrder}) {
        field(ar, *p);
    }
    field(ar, v.fTemperature);
    field(ar, v.iSettingA);
    field(ar, v.iMaterialCoeffs);
    field(ar, v.fReverbDryLevel);
    field(ar, v.fReverbWetLevel);
    field(ar, v.strDirPreComputedWav);
    field(ar, v.iCTCIfNot3DAudio);
    for (float *p : {&v.fTES, &v.fCTCAzimuthL, &v.fCTCElevationL, &v.fCTCDistanceL, &v.fCTCAzimuthR,
                     &v.fCTCElevationR, &v.fCTCDistanceR}) {
        field(ar, *p);
    }
    for (int32_t *p : {&v.iCTCFilterMode, &v.iPostEQ, &v.iPO}) {
        field(ar, *p);
    }
    for (float *p : {&v.fGain, &v.fGain_LSF, &v.fGain_HSF, &v.fFrequency_LSF, &v.fFrequency_HSF,
                     &v.fSettingB}) {
        field(ar, *p);
    }
    field(ar, v.iSaveWave);
    field(ar, v.strSaveWave);
    for (int32_t *p : {&v.iAGC, &v.iBlockLength, &v.iSampleRate, &v.iBits, &v.iChannels,
                       &v.iSplitBands, &v.iHeadMotion, &v.iWorldModel}) {
        field(ar, *p);
    }
    field(ar, v.strWorldFile);
    field(ar, v.iAudioSink);
    field(ar, v.strHRTF);
    field(ar, v.strHRTF_CTC);
    for (int32_t *p : {&v.iORMS, &v.iGraphBIR, &v.iInfo, &v.iOneReverb}) {
        field(ar, *p);
    }
}

CQUENDARIC_PARAMETERS::Stored CQUENDARIC_PARAMETERS::Capture() {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    Stored v{};
    v.iChannelMode = m_iChannelMode;
    v.i3DAudio = m_i3DAudio;
    v.iSFM = m_iSFM;
    v.iReflections = m_iReflections;
    v.iSpecularOrder = m_iSpecularOrder;
    v.fTemperature = m_fTemperature;
    v.iSettingA = m_iSettingA;
    v.iMaterialCoeffs = m_iMaterialCoeffs;
    v.fReverbDryLevel = m_fReverbDryLevel;
    v.fReverbWetLevel = m_fReverbWetLevel;
    v.strDirPreComputedWav = m_strDirPreComputedWav;
    v.iCTCIfNot3DAudio = m_iCTCIfNot3DAudio;
    v.fTES = m_fTES;
    v.fCTCAzimuthL = m_fCTCAzimuthL;
    v.fCTCElevationL = m_fCTCElevationL;
    v.fCTCDistanceL = m_fCTCDistanceL;
    v.fCTCAzimuthR = m_fCTCAzimuthR;
    v.fCTCElevationR = m_fCTCElevationR;
    v.fCTCDistanceR = m_fCTCDistanceR;
    v.iCTCFilterMode = m_iCTCFilterMode;
    v.iPostEQ = m_iPostEQ;
    v.iPO = m_iPO;
    v.fGain = m_fGain;
    v.fGain_LSF = m_fGain_LSF;
    v.fGain_HSF = m_fGain_HSF;
    v.fFrequency_LSF = m_fFrequency_LSF;
    v.fFrequency_HSF = m_fFrequency_HSF;
    v.fSettingB = m_fSettingB;
    v.iSaveWave = m_iSaveWave;
    v.strSaveWave = m_strSaveWave;
    v.iAGC = m_iAGC;
    v.iBlockLength = m_iBlockLength;
    v.iSampleRate = m_iSampleRate;
    v.iBits = m_iBits;
    v.iChannels = m_iChannels;
    v.iSplitBands = m_iSplitBands;
    v.iHeadMotion = m_iHeadMotion;
    v.iWorldModel = m_iWorldModel;
    v.strWorldFile = m_strWorldFile;
    v.iAudioSink = m_iAudioSink;
    v.strHRTF = m_strHRTF;
    v.strHRTF_CTC = m_strHRTF_CTC;
    v.iORMS = m_iORMS;
    v.iGraphBIR = m_iGraphBIR;
    v.iInfo = m_iInfo;
    v.iOneReverb = m_iOneReverb;
    return v;
}

void CQUENDARIC_PARAMETERS::Apply(const Stored &v) {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    m_iChannelMode = v.iChannelMode;
    m_i3DAudio = v.i3DAudio;
    m_iSFM = v.iSFM;
    m_iReflections = v.iReflections;
    m_iSpecularOrder = v.iSpecularOrder;
    m_fTemperature = v.fTemperature;
    m_iSettingA = v.iSettingA;
    m_iMaterialCoeffs = v.iMaterialCoeffs;
    m_fReverbDryLevel = v.fReverbDryLevel;
    m_fReverbWetLevel = v.fReverbWetLevel;
    m_strDirPreComputedWav = v.strDirPreComputedWav;
    m_iCTCIfNot3DAudio = v.iCTCIfNot3DAudio;
    m_fTES = v.fTES;
    m_fCTCAzimuthL = v.fCTCAzimuthL;
    m_fCTCElevationL = v.fCTCElevationL;
    m_fCTCDistanceL = v.fCTCDistanceL;
    m_fCTCAzimuthR = v.fCTCAzimuthR;
    m_fCTCElevationR = v.fCTCElevationR;
    m_fCTCDistanceR = v.fCTCDistanceR;
    m_iCTCFilterMode = v.iCTCFilterMode;
    m_iPostEQ = v.iPostEQ;
    m_iPO = v.iPO;
    m_fGain = v.fGain;
    m_fGain_LSF = v.fGain_LSF;
    m_fGain_HSF = v.fGain_HSF;
    m_fFrequency_LSF = v.fFrequency_LSF;
    m_fFrequency_HSF = v.fFrequency_HSF;
    m_fSettingB = v.fSettingB;
    m_iSaveWave = v.iSaveWave;
    m_strSaveWave = v.strSaveWave;
    m_iAGC = v.iAGC;
    m_iBlockLength = v.iBlockLength;
    m_iSampleRate = v.iSampleRate;
    m_iBits = v.iBits;
    m_iChannels = v.iChannels;
    m_iSplitBands = v.iSplitBands;
    m_iHeadMotion = v.iHeadMotion;
    m_iWorldModel = v.iWorldModel;
    m_strWorldFile = v.strWorldFile;
    m_iAudioSink = v.iAudioSink;
    m_strHRTF = v.strHRTF;
    m_strHRTF_CTC = v.strHRTF_CTC;
    m_iORMS = v.iORMS;
    m_iGraphBIR = v.iGraphBIR;
    m_iInfo = v.iInfo;
    m_iOneReverb = v.iOneReverb;
}

CQUENDARIC_PARAMETERS::CQUENDARIC_PARAMETERS() {
    m_fCTCAzimuthR = 360.0f - m_fCTCAzimuthL;
    m_strHRTF.reserve(512);
    m_strHRTF_CTC.reserve(512);
    m_strHRTFRequest.reserve(512);
    m_strHRTFRequest_CTC.reserve(512);
}

CQUENDARIC_PARAMETERS::~CQUENDARIC_PARAMETERS() {
    _write();
}

void CQUENDARIC_PARAMETERS::Serialize(qk::CArchive &ar) {
    qk::CObject::Serialize(ar);
    if (ar.IsStoring()) {
        // The names asked for are kept; a request still waiting stays one, so that the block
        // path loads its set.
        std::lock_guard<std::recursive_mutex> guard(m_csStrings);
        Stored v = Capture();
        if (!m_strHRTFRequest.empty()) {
            v.strHRTF = m_strHRTFRequest;
        }
        if (!m_strHRTFRequest_CTC.empty()) {
            v.strHRTF_CTC = m_strHRTFRequest_CTC;
        }
        SerializeStored(ar, v);
    } else {
        Stored v{};
        SerializeStored(ar, v);
        Apply(v);
    }
}

std::string CQUENDARIC_PARAMETERS::SettingsPath() {
    std::string name;
    {
        std::lock_guard<std::recursive_mutex> guard(m_csStrings);
        if (m_strApplication.empty()) {
            m_strApplication = kDefaultApplication;
        }
        name = m_strApplication;
    }
    if (name.size() >= kApplicationLetters && name != kDefaultApplication) {
        name.resize(kApplicationLetters);
    }
    return qk::JoinPath(qk::SettingsFolder(settingsModulePath()), name + ".qksettings");
}

bool CQUENDARIC_PARAMETERS::LoadSettings(const void *pData, size_t size) {
    qk::CMemoryStream stream(pData, size);
    qk::CArchive ar(stream, qk::CArchive::load);
    Stored v{};
    try {
        SerializeStored(ar, v);
    } catch (const qk::CArchiveException &) {
        return false;
    }
    // Bytes beyond the last field are left unread: a later version may have written more
    // fields, and the version word doesn't tell. Only a file too short for the fields is
    // refused.
    Apply(v);
    return true;
}

std::shared_ptr<CQUENDARIC_PARAMETERS::Stored> CQUENDARIC_PARAMETERS::ReadStored(qk::CArchive &ar) {
    auto v = std::make_shared<Stored>();
    SerializeStored(ar, *v);
    return v;
}

std::vector<uint8_t> CQUENDARIC_PARAMETERS::StoreSettings() {
    qk::CMemoryStream stream;
    qk::CArchive ar(stream, qk::CArchive::store);
    Serialize(ar);
    return stream.Bytes();
}

void CQUENDARIC_PARAMETERS::_read() {
    std::vector<uint8_t> bytes;
    if (readWholeFile(SettingsPath(), bytes)) {
        LoadSettings(bytes.data(), bytes.size());
    }
}

void CQUENDARIC_PARAMETERS::_write() {
    const std::string path = SettingsPath();
    replaceFile(path, StoreSettings());
}

void CQUENDARIC_PARAMETERS::GetLPCoefs(float *&pfCoefs, float fCorner) const {
    CSSS::GetLPCoefs(pfCoefs, fCorner, m_iSampleRate);
}

void CQUENDARIC_PARAMETERS::GetHPCoefs(float *&pfCoefs, float fCorner) const {
    CSSS::GetHPCoefs(pfCoefs, fCorner, m_iSampleRate);
}

int CQUENDARIC_PARAMETERS::OnLoading() {
    int result = OnLoading_QKHRTF();
    if (result == 0) {
        result = OnLoading_WORLD();
    }
    return result;
}

void CQUENDARIC_PARAMETERS::SetHRTFRequest(const std::string &strPath) {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    m_strHRTFRequest = strPath;
}

std::string CQUENDARIC_PARAMETERS::GetHRTFRequest() const {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    return m_strHRTFRequest;
}

void CQUENDARIC_PARAMETERS::SetHRTFRequestCTC(const std::string &strPath) {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    m_strHRTFRequest_CTC = strPath;
}

std::string CQUENDARIC_PARAMETERS::GetHRTFRequestCTC() const {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    return m_strHRTFRequest_CTC;
}

bool CQUENDARIC_PARAMETERS::HRTFRequestPending() const {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    return m_strHRTFRequest != m_strHRTF;
}

bool CQUENDARIC_PARAMETERS::HRTFRequestPendingCTC() const {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    return m_strHRTFRequest_CTC != m_strHRTF_CTC;
}
