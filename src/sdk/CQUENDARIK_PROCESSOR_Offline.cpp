// Response sets for the pre-computed model, and the wave writing they need.
#include <cmath>
#include <cstdio>
#include <mutex>
#include <vector>

#include "field/CSFM_ISM.h"
#include "platform/FileReplace.h"
#include "platform/Paths.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"
#include "sources/WaveFile.h"

namespace {
using Guard = std::lock_guard<qk::CEngineLock>;
constexpr int kSetRate = 44100;  // sets are made at the rate of real-time play
constexpr int kSetBits = 16;
constexpr int kSetChannels = 2;
constexpr float kCentimetres = 100.0f;
constexpr int kMaxBits = 32;

double cm(float metres) {
    return static_cast<double>(metres * kCentimetres);
}
}  // namespace

std::string CQUENDARIK_PROCESSOR::PreComputedName(int iListenerID, C3Point listenerPos,
                                                  C3Point listenerLookAt, int iSourceID,
                                                  C3Point sourcePos, C3Point sourceLookAt) {
    char name[512];
    std::snprintf(
        name, sizeof name, "%d_%.0f_%.0f_%.0f_%.0f_%.0f_%.0f_%d_%.0f_%.0f_%.0f_%.0f_%.0f_%.0f.wav",
        iListenerID, cm(listenerPos.x), cm(listenerPos.y), cm(listenerPos.z), cm(listenerLookAt.x),
        cm(listenerLookAt.y), cm(listenerLookAt.z), iSourceID, cm(sourcePos.x), cm(sourcePos.y),
        cm(sourcePos.z), cm(sourceLookAt.x), cm(sourceLookAt.y), cm(sourceLookAt.z));
    return name;
}

void CQUENDARIK_PROCESSOR::ConvertFloatToBytesForWav(unsigned char *&pbOut, const float *pfBlock,
                                                     int iFrames, int iChannels, int iBits, int) {
    if (iFrames < 0 || iChannels < 1 || iBits < 1 || iBits > kMaxBits) {
        return;
    }
    const size_t size = static_cast<size_t>(iChannels) * static_cast<size_t>(iBits) *
                        static_cast<size_t>(iFrames) / 8;
    if (pbOut == nullptr) {
        pbOut = new unsigned char[size]();
    }
    WAVEFORMATEX format{};
    format.wFormatTag = WAVE_FORMAT_PCM;
    format.nChannels = static_cast<uint16_t>(iChannels);
    format.wBitsPerSample = static_cast<uint16_t>(iBits);
    ConvertArrayOfDataToBytes(pbOut, pfBlock, iFrames, &format);
}

int CQUENDARIK_PROCESSOR::SaveAsWave(const std::string &strName, float *pfBlock, int iFrames,
                                     int iChannels, int iBits, int iRate) {
    if (iChannels > 2 || iChannels < 1 || iFrames < 0 || iBits < 1 || iBits > kMaxBits ||
        (pfBlock == nullptr && iFrames > 0)) {
        return -1;
    }
    const int samples = iFrames * iChannels;
    const auto scale = static_cast<float>(std::ldexp(1.0, iBits - 1));
    for (int i = 0; i < samples; ++i) {
        pfBlock[i] *= scale;
    }
    std::vector<unsigned char> bytes(static_cast<size_t>(iChannels) * static_cast<size_t>(iBits) *
                                     static_cast<size_t>(iFrames) / 8);
    unsigned char *pb = bytes.data();
    ConvertFloatToBytesForWav(pb, pfBlock, iFrames, iChannels, iBits, iRate);

    WAVEFORMATEX format{};
    format.wFormatTag = WAVE_FORMAT_PCM;
    format.nChannels = static_cast<uint16_t>(iChannels);
    format.nSamplesPerSec = static_cast<uint32_t>(iRate);
    format.wBitsPerSample = static_cast<uint16_t>(iBits);
    format.nBlockAlign = static_cast<uint16_t>(iChannels * iBits / 8);
    format.nAvgBytesPerSec = format.nBlockAlign * format.nSamplesPerSec;
    format.cbSize = 0;
    HMMIO hmmio = nullptr;
    MMCKINFO data{};
    MMCKINFO riff{};
    MMIOINFO info{};
    if (WaveCreateFile(strName.c_str(), &hmmio, &format, &data, &riff) != 0) {
        return -2;
    }
    if (WaveStartDataWrite(&hmmio, &data, &info) != 0) {
        WaveCloseWriteFile(&hmmio, &data, &riff, &info, 0);
        std::remove(strName.c_str());
        return -3;
    }
    uint32_t written = 0;
    const auto count = static_cast<uint32_t>(static_cast<size_t>(iFrames) * format.nBlockAlign);
    const bool ok =
        WaveWriteFile(hmmio, count, bytes.data(), &data, &written, &info) == 0 && written == count;
    WaveCloseWriteFile(&hmmio, &data, &riff, &info, 0);
    return ok ? 0 : -4;
}

std::unique_ptr<CSFM> CQUENDARIK_PROCESSOR::MakePrivateModel() {
    auto model = std::make_unique<CSFM_ISM>(&m_Context.m_World);
    model->m_pCode4 = &m_Context.m_Code4;
    return model;
}

int CQUENDARIK_PROCESSOR::SFM_PreComputeWav() {
    Guard guard(m_csEngine);
    // The responses are for the poses the host last gave, including moves no block has
    // taken yet.
    TakeMoves();
    CQUENDARIC_PARAMETERS &p = m_Parameters;
    m_Context.SetHRTF();
    p.m_iHRTFChanged = 1;
    if (m_Context.m_pHRTF == nullptr) {
        return -1;
    }
    CQUENDARIC_Object_Sink *pListener = GetSink();
    if (pListener == nullptr) {
        return -2;
    }
    pListener->_adjustDataBuffer(2 * m_iScratchLength);
    ippsZero_32f(pListener->m_pfData, 2 * m_iScratchLength);
    std::string folder;
    std::string strHRTF;
    {
        std::lock_guard<std::recursive_mutex> strings(p.m_csStrings);
        folder = p.m_strDirPreComputedWav;
        strHRTF = p.m_strHRTF;
    }
    for (auto &object : m_list3DSources) {
        CQUENDARIC_Object_Source &source = *object;
        source.m_iRecalculate = 1;
        const std::unique_ptr<CSFM> model = MakePrivateModel();
        if (source.m_iEnable == 0) {
            continue;
        }
        source.m_pSink = pListener;
        source.m_iRate = kSetRate;
        source.Move_LookAt(source.m_position, source.m_lookAt);  // the angles, refreshed
        model->GetBinauralImpulseResponse(
            m_Context.m_pHRTF.get(), source.m_pfMonoIR, source.m_iMonoIRLength, source.m_pfBIRLeft,
            source.m_pfBIRRight, source.m_iBIRLength, source.m_position, source.m_lookAt,
            pListener->m_position, pListener->m_lookAt, strHRTF, p.m_iSpecularOrder,
            p.m_fTemperature, kSetRate, source.m_fBIRPeakL, source.m_fBIRPeakR,
            p.m_iMaterialChanged, source.m_iRecalculate, p.m_iMaterialCoeffs, source.m_iID);
        source.m_iRecalculate = 0;
        const int n = source.m_iBIRLength;
        if (n < 1 || source.m_pfBIRLeft == nullptr || source.m_pfBIRRight == nullptr) {
            continue;
        }
        std::vector<float> block(2 * static_cast<size_t>(n));
        std::copy_n(source.m_pfBIRLeft, n, block.begin());
        std::copy_n(source.m_pfBIRRight, n, block.begin() + n);
        const std::string path = qk::JoinPath(
            folder, PreComputedName(pListener->m_iID, pListener->m_position, pListener->m_lookAt,
                                    source.m_iID, source.m_position, source.m_lookAt));
        const std::string temp = qk::MakeTempBeside(path);
        std::string error;
        if (!temp.empty()) {
            if (SaveAsWave(temp, block.data(), n, kSetChannels, kSetBits, kSetRate) == 0) {
                qk::CommitTemp(temp, path, error);
            } else {
                std::remove(temp.c_str());
            }
        }
    }
    return 0;
}
