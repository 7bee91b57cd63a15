#include "sources/WaveFile.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr FOURCC kWave = mmioFOURCC('W', 'A', 'V', 'E');
constexpr FOURCC kFmt = mmioFOURCC('f', 'm', 't', ' ');
constexpr FOURCC kFact = mmioFOURCC('f', 'a', 'c', 't');
constexpr FOURCC kData = mmioFOURCC('d', 'a', 't', 'a');
constexpr long kPcmFormatBytes = 16;  // the format record without cbSize

uint16_t le16(const uint8_t *p) {
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}
uint32_t le32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}
void put16(uint8_t *p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v & 0xFF);
    p[1] = static_cast<uint8_t>(v >> 8);
}
void put32(uint8_t *p, uint32_t v) {
    put16(p, static_cast<uint16_t>(v & 0xFFFF));
    put16(p + 2, static_cast<uint16_t>(v >> 16));
}

// Limits a chunk's declared size to the bytes between its data and the end of the file.
void clampToFile(HMMIO h, MMCKINFO &ck) {
    const long here = mmioSeek(h, 0, SEEK_CUR);
    const long size = mmioSeek(h, 0, SEEK_END);
    mmioSeek(h, here, SEEK_SET);
    const long remaining = std::max(0L, size - static_cast<long>(ck.dwDataOffset));
    ck.cksize = static_cast<uint32_t>(std::min<long>(ck.cksize, remaining));
}

bool formatWithinLimits(const WAVEFORMATEX &f) {
    return f.nChannels >= 1 && f.nChannels <= kWaveMaxChannels && f.nSamplesPerSec >= 1 &&
           f.nSamplesPerSec <= kWaveMaxSampleRate && f.nBlockAlign >= 1 &&
           f.wBitsPerSample <= kWaveMaxBits;
}

// Reads "fmt " of an open file into a new record (malloc, 18 + extra bytes).
int readFormat(HMMIO h, MMCKINFO &riff, WAVEFORMATEX *&pwfx) {
    if (int error = mmioDescend(h, &riff, nullptr, 0)) {
        return error;
    }
    if (riff.ckid != FOURCC_RIFF || riff.fccType != kWave) {
        return ER_NOTWAVEFILE;
    }
    clampToFile(h, riff);
    MMCKINFO fmt;
    fmt.ckid = kFmt;
    if (int error = mmioDescend(h, &fmt, &riff, MMIO_FINDCHUNK)) {
        return error;
    }
    if (fmt.cksize < kPcmFormatBytes) {
        return ER_NOTWAVEFILE;
    }
    uint8_t head[kPcmFormatBytes + 2] = {};
    if (mmioRead(h, reinterpret_cast<char *>(head), kPcmFormatBytes) != kPcmFormatBytes) {
        return ER_CORRUPTWAVEFILE;
    }
    clampToFile(h, fmt);
    // A format other than PCM carries its extra size, when the chunk has room for one.
    uint16_t extra = 0;
    if (le16(head) != WAVE_FORMAT_PCM && fmt.cksize >= kPcmFormatBytes + 2) {
        if (mmioRead(h, reinterpret_cast<char *>(head + kPcmFormatBytes), 2) != 2) {
            return ER_CORRUPTWAVEFILE;
        }
        extra = le16(head + kPcmFormatBytes);
        if (extra > fmt.cksize - (kPcmFormatBytes + 2)) {
            return ER_NOTWAVEFILE;  // the extra bytes would run past the chunk
        }
    }
    WAVEFORMATEX f{le16(head),      le16(head + 2),  le32(head + 4), le32(head + 8),
                   le16(head + 12), le16(head + 14), extra};
    if (!formatWithinLimits(f)) {
        return ER_NOTWAVEFILE;
    }
    pwfx = static_cast<WAVEFORMATEX *>(std::malloc(sizeof(WAVEFORMATEX) + extra));
    if (pwfx == nullptr) {
        return ER_MEM;
    }
    *pwfx = f;
    char *extraBytes = reinterpret_cast<char *>(pwfx) + sizeof(WAVEFORMATEX);
    if (extra > 0 && mmioRead(h, extraBytes, extra) != extra) {
        return ER_NOTWAVEFILE;
    }
    return mmioAscend(h, &fmt, 0);
}

int openWave(HMMIO h, HMMIO *phmmioIn, WAVEFORMATEX **ppwfxInfo, MMCKINFO *pckInRIFF) {
    if (phmmioIn == nullptr || ppwfxInfo == nullptr || pckInRIFF == nullptr) {
        mmioClose(h, 0);
        return ER_CANNOTOPEN;
    }
    *phmmioIn = nullptr;
    *ppwfxInfo = nullptr;
    if (h == nullptr) {
        return ER_CANNOTOPEN;
    }
    WAVEFORMATEX *pwfx = nullptr;
    if (int error = readFormat(h, *pckInRIFF, pwfx)) {
        std::free(pwfx);
        mmioClose(h, 0);
        return error;
    }
    *phmmioIn = h;
    *ppwfxInfo = pwfx;
    return 0;
}

}  // namespace

int WaveOpenFile(const char *pszFileName, HMMIO *phmmioIn, WAVEFORMATEX **ppwfxInfo,
                 MMCKINFO *pckInRIFF) {
    HMMIO h = pszFileName != nullptr ? mmioOpen(pszFileName, nullptr, MMIO_ALLOCBUF | MMIO_READ)
                                     : nullptr;
    return openWave(h, phmmioIn, ppwfxInfo, pckInRIFF);
}

int WaveOpenMemory(const void *pData, size_t size, HMMIO *phmmioIn, WAVEFORMATEX **ppwfxInfo,
                   MMCKINFO *pckInRIFF) {
    return openWave(mmioOpenMemory(pData, size), phmmioIn, ppwfxInfo, pckInRIFF);
}

int WaveStartDataRead(HMMIO *phmmioIn, MMCKINFO *pckIn, MMCKINFO *pckInRIFF) {
    if (phmmioIn == nullptr || *phmmioIn == nullptr || pckIn == nullptr || pckInRIFF == nullptr) {
        return MMIOERR_INVALIDFILE;
    }
    HMMIO h = *phmmioIn;
    if (mmioSeek(h, static_cast<long>(pckInRIFF->dwDataOffset) + 4, SEEK_SET) == -1) {
        return MMIOERR_CANNOTSEEK;
    }
    pckIn->ckid = kData;
    if (int error = mmioDescend(h, pckIn, pckInRIFF, MMIO_FINDCHUNK)) {
        return error;
    }
    clampToFile(h, *pckIn);
    return 0;
}

uint32_t WaveDeclaredDataSize(HMMIO hmmioIn, const MMCKINFO *pckIn) {
    if (hmmioIn == nullptr || pckIn == nullptr || pckIn->dwDataOffset < 4) {
        return 0;
    }
    const long here = mmioSeek(hmmioIn, 0, SEEK_CUR);
    uint8_t size[4] = {};
    const bool read =
        mmioSeek(hmmioIn, static_cast<long>(pckIn->dwDataOffset) - 4, SEEK_SET) != -1 &&
        mmioRead(hmmioIn, reinterpret_cast<char *>(size), 4) == 4;
    mmioSeek(hmmioIn, here, SEEK_SET);
    return read ? static_cast<uint32_t>(size[0] | (size[1] << 8) | (size[2] << 16) |
                                        (static_cast<uint32_t>(size[3]) << 24))
                : 0;
}

int WaveReadFile(HMMIO hmmioIn, uint32_t cbRead, uint8_t *pbDest, MMCKINFO *pckIn,
                 uint32_t *cbActualRead) {
    if (cbActualRead != nullptr) {
        *cbActualRead = 0;
    }
    if (hmmioIn == nullptr || pckIn == nullptr || cbActualRead == nullptr) {
        return MMIOERR_INVALIDFILE;
    }
    if (pbDest == nullptr) {
        return cbRead == 0 ? 0 : MMIOERR_CANNOTREAD;
    }
    MMIOINFO info;
    if (int error = mmioGetInfo(hmmioIn, &info, 0)) {
        return error;
    }
    const uint32_t wanted = std::min(cbRead, pckIn->cksize);
    uint32_t copied = 0;
    int error = 0;
    // Whole runs of the buffer at a time; a refill happens only when it is used up.
    while (copied < wanted) {
        if (info.pchNext >= info.pchEndRead) {
            if ((error = mmioAdvance(hmmioIn, &info, MMIO_READ)) != 0) {
                break;
            }
            if (info.pchNext >= info.pchEndRead) {
                error = ER_CANNOTREAD;
                break;
            }
        }
        const uint32_t run = std::min<uint32_t>(
            static_cast<uint32_t>(info.pchEndRead - info.pchNext), wanted - copied);
        std::memcpy(pbDest + copied, info.pchNext, run);
        info.pchNext += run;
        copied += run;
    }
    pckIn->cksize -= copied;
    *cbActualRead = copied;
    const int setError = mmioSetInfo(hmmioIn, &info, 0);
    return error != 0 ? error : setError;
}

int WaveCloseReadFile(HMMIO *phmmio, WAVEFORMATEX **ppwfxSrc) {
    if (ppwfxSrc != nullptr) {
        std::free(*ppwfxSrc);
        *ppwfxSrc = nullptr;
    }
    if (phmmio != nullptr && *phmmio != nullptr) {
        mmioClose(*phmmio, 0);
        *phmmio = nullptr;
    }
    return 0;
}

namespace {
// The format as it is stored: 16 bytes for PCM, else the record and its extra bytes.
std::string storedFormat(const WAVEFORMATEX &f) {
    const bool pcm = f.wFormatTag == WAVE_FORMAT_PCM;
    std::string bytes(pcm ? kPcmFormatBytes : sizeof(WAVEFORMATEX) + f.cbSize, '\0');
    auto *p = reinterpret_cast<uint8_t *>(&bytes[0]);
    put16(p, f.wFormatTag);
    put16(p + 2, f.nChannels);
    put32(p + 4, f.nSamplesPerSec);
    put32(p + 8, f.nAvgBytesPerSec);
    put16(p + 12, f.nBlockAlign);
    put16(p + 14, f.wBitsPerSample);
    if (!pcm) {
        put16(p + 16, f.cbSize);
        std::memcpy(p + sizeof(WAVEFORMATEX), WaveFormatExtra(&f), f.cbSize);
    }
    return bytes;
}

int writeHeader(HMMIO h, const WAVEFORMATEX &format, MMCKINFO &ck, MMCKINFO &riff) {
    riff.fccType = kWave;
    riff.cksize = 0;
    if (int error = mmioCreateChunk(h, &riff, MMIO_CREATERIFF)) {
        return error;
    }
    ck.ckid = kFmt;
    ck.cksize = kPcmFormatBytes;
    if (int error = mmioCreateChunk(h, &ck, 0)) {
        return error;
    }
    const std::string stored = storedFormat(format);
    const long length = static_cast<long>(stored.size());
    if (mmioWrite(h, stored.data(), length) != length) {
        return ER_CANNOTWRITE;
    }
    if (int error = mmioAscend(h, &ck, 0)) {
        return error;
    }
    ck.ckid = kFact;
    ck.cksize = 0;
    if (mmioCreateChunk(h, &ck, 0) != 0) {
        return ER_CANNOTWRITE;
    }
    const char unknownCount[4] = {'\xFF', '\xFF', '\xFF', '\xFF'};
    if (mmioWrite(h, unknownCount, 4) != 4 || mmioAscend(h, &ck, 0) != 0) {
        return ER_CANNOTWRITE;
    }
    return 0;
}
}  // namespace

int WaveCreateFile(const char *pszFileName, HMMIO *phmmioOut, const WAVEFORMATEX *pwfxDest,
                   MMCKINFO *pckOut, MMCKINFO *pckOutRIFF) {
    if (phmmioOut == nullptr) {
        return ER_CANNOTWRITE;
    }
    *phmmioOut = nullptr;
    if (pszFileName == nullptr || pwfxDest == nullptr || pckOut == nullptr ||
        pckOutRIFF == nullptr) {
        return ER_CANNOTWRITE;
    }
    HMMIO h = mmioOpen(pszFileName, nullptr, MMIO_ALLOCBUF | MMIO_READWRITE | MMIO_CREATE);
    if (h == nullptr) {
        return ER_CANNOTWRITE;
    }
    if (int error = writeHeader(h, *pwfxDest, *pckOut, *pckOutRIFF)) {
        mmioClose(h, 0);
        std::remove(pszFileName);
        return error;
    }
    *phmmioOut = h;
    return 0;
}

int WaveStartDataWrite(HMMIO *phmmioOut, MMCKINFO *pckOut, MMIOINFO *pmmioinfoOut) {
    if (phmmioOut == nullptr || *phmmioOut == nullptr || pckOut == nullptr ||
        pmmioinfoOut == nullptr) {
        return MMIOERR_INVALIDFILE;
    }
    pckOut->ckid = kData;
    pckOut->cksize = 0;
    if (int error = mmioCreateChunk(*phmmioOut, pckOut, 0)) {
        return error;
    }
    return mmioGetInfo(*phmmioOut, pmmioinfoOut, 0);
}

int WaveWriteFile(HMMIO hmmioOut, uint32_t cbWrite, const uint8_t *pbSrc, MMCKINFO *,
                  uint32_t *cbActualWrite, MMIOINFO *pmmioinfoOut) {
    if (cbActualWrite != nullptr) {
        *cbActualWrite = 0;
    }
    if (hmmioOut == nullptr || pmmioinfoOut == nullptr || cbActualWrite == nullptr ||
        pmmioinfoOut->pchBuffer == nullptr) {
        return MMIOERR_INVALIDFILE;
    }
    if (pbSrc == nullptr) {
        return cbWrite == 0 ? 0 : ER_CANNOTWRITE;
    }
    MMIOINFO &info = *pmmioinfoOut;
    while (*cbActualWrite < cbWrite) {
        if (info.pchNext >= info.pchEndWrite) {
            info.dwFlags |= MMIO_DIRTY;
            if (int error = mmioAdvance(hmmioOut, &info, MMIO_WRITE)) {
                return error;
            }
        }
        const uint32_t run = std::min<uint32_t>(
            static_cast<uint32_t>(info.pchEndWrite - info.pchNext), cbWrite - *cbActualWrite);
        std::memcpy(info.pchNext, pbSrc + *cbActualWrite, run);
        info.pchNext += run;
        *cbActualWrite += run;
    }
    return 0;
}

int WaveCloseWriteFile(HMMIO *phmmioOut, MMCKINFO *pckOut, MMCKINFO *pckOutRIFF,
                       MMIOINFO *pmmioinfoOut, uint32_t cSamples) {
    if (phmmioOut == nullptr || *phmmioOut == nullptr) {
        return 0;
    }
    HMMIO h = *phmmioOut;
    int error = 0;
    if (pmmioinfoOut != nullptr && pmmioinfoOut->pchBuffer != nullptr) {
        pmmioinfoOut->dwFlags |= MMIO_DIRTY;
        error = mmioSetInfo(h, pmmioinfoOut, 0);
        *pmmioinfoOut = MMIOINFO{};
    }
    if (error == 0 && pckOut != nullptr && pckOutRIFF != nullptr) {
        error = mmioAscend(h, pckOut, 0);
        if (error == 0) {
            error = mmioAscend(h, pckOutRIFF, 0);
        }
        if (error == 0) {
            mmioSeek(h, 0, SEEK_SET);
            error = mmioDescend(h, pckOutRIFF, nullptr, 0);
        }
        if (error == 0) {
            pckOut->ckid = kFact;
            if (mmioDescend(h, pckOut, pckOutRIFF, MMIO_FINDCHUNK) == 0) {
                uint8_t count[4];
                put32(count, cSamples);
                mmioWrite(h, reinterpret_cast<const char *>(count), 4);
                mmioAscend(h, pckOut, 0);
            }
            error = mmioAscend(h, pckOutRIFF, 0);
        }
    }
    const int closeError = mmioClose(h, 0);
    *phmmioOut = nullptr;
    return error != 0 ? error : closeError;
}

namespace {
// Truncation toward zero to a 32-bit integer; beyond that range the value saturates and NaN
// gives 0, where a plain conversion would be undefined.
int32_t truncateToInt32(float v) {
    if (!(v == v)) {
        return 0;
    }
    if (v >= 2147483648.0f) {
        return INT32_MAX;
    }
    if (v <= -2147483648.0f) {
        return INT32_MIN;
    }
    return static_cast<int32_t>(v);
}
}  // namespace

void ConvertArrayOfDataToBytes(unsigned char *pbOut, const float *pfIn, long iLength,
                               const WAVEFORMATEX *pFormat) {
    if (pbOut == nullptr || pfIn == nullptr || pFormat == nullptr || iLength < 1) {
        return;
    }
    const int channels = pFormat->nChannels;
    const int bytes = pFormat->wBitsPerSample / 8;
    if ((channels != 1 && channels != 2) ||
        (pFormat->wBitsPerSample != 8 && pFormat->wBitsPerSample != 16)) {
        return;
    }
    unsigned char *out = pbOut;
    for (long i = 0; i < iLength; ++i) {
        for (int c = 0; c < channels; ++c) {
            const auto v = static_cast<uint32_t>(truncateToInt32(pfIn[c * iLength + i]));
            *out++ = static_cast<unsigned char>(v & 0xFF);
            if (bytes == 2) {
                *out++ = static_cast<unsigned char>((v >> 8) & 0xFF);
            }
        }
    }
}
