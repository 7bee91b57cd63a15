// The wave file layer: RIFF WAVE files read and written through the buffered RIFF layer.
// The reading group serves the wave source, the writing group the wave sink and the audio
// helpers. Every operation returns 0 or one of the codes below; a code of the RIFF layer
// (MMIOERR_...) passes through unchanged.
//
// A file as written: "RIFF" size "WAVE", "fmt " (16 bytes for PCM), "fact" (a 32-bit sample
// count, first 0xFFFFFFFF and patched on closing), "data" (frames, channels interleaved).
#pragma once

#include <cstddef>
#include <cstdint>

#include "sources/WaveFileRiff.h"

#pragma pack(push, 1)
// The format record, laid out as in the file. On writing the tag is 1 (PCM) and cbSize 0; a
// record read from a file is followed in memory by its cbSize extra bytes.
struct WAVEFORMATEX {
    uint16_t wFormatTag;
    uint16_t nChannels;
    uint32_t nSamplesPerSec;
    uint32_t nAvgBytesPerSec;
    uint16_t nBlockAlign;  // bytes per frame
    uint16_t wBitsPerSample;
    uint16_t cbSize;  // extra bytes after the record
};
#pragma pack(pop)
static_assert(sizeof(WAVEFORMATEX) == 18, "the format record is 18 bytes");

constexpr uint16_t WAVE_FORMAT_PCM = 1;

enum : int {
    ER_MEM = 0xE000,              // no memory for the format
    ER_CANNOTOPEN = 0xE100,       // cannot open the file
    ER_NOTWAVEFILE = 0xE101,      // not a RIFF WAVE file, or its "fmt " is bad
    ER_CORRUPTWAVEFILE = 0xE102,  // short read of the format
    ER_CANNOTREAD = 0xE103,       // read past the end of the file
    ER_CANNOTWRITE = 0xE104,      // cannot write
};

// Formats outside these limits are refused as bad (ER_NOTWAVEFILE) before anything is sized
// from them; the sink refuses to write them.
constexpr int kWaveMaxChannels = 256;
constexpr uint32_t kWaveMaxSampleRate = 1000000;  // Hz
constexpr int kWaveMaxBits = 64;

// The record of integer PCM with the given layout: whole bytes a sample (iBits / 8, as the
// devices and the sink count them), no extra bytes.
inline WAVEFORMATEX PcmWaveFormat(int iChannels, int iSampleRate, int iBits) {
    WAVEFORMATEX wfx{};
    wfx.wFormatTag = WAVE_FORMAT_PCM;
    wfx.nChannels = static_cast<uint16_t>(iChannels);
    wfx.nSamplesPerSec = static_cast<uint32_t>(iSampleRate);
    wfx.wBitsPerSample = static_cast<uint16_t>(iBits);
    wfx.nBlockAlign = static_cast<uint16_t>(iBits / 8 * iChannels);
    wfx.nAvgBytesPerSec = wfx.nBlockAlign * wfx.nSamplesPerSec;
    wfx.cbSize = 0;
    return wfx;
}

// The extra bytes that follow a format record read from a file.
inline const uint8_t *WaveFormatExtra(const WAVEFORMATEX *pwfx) {
    return reinterpret_cast<const uint8_t *>(pwfx) + sizeof(WAVEFORMATEX);
}

// ---- Reading ------------------------------------------------------------------------------

// Opens a wave file and reads its format. On success *phmmioIn is the open handle,
// *ppwfxInfo the format (released by WaveCloseReadFile) and *pckInRIFF the RIFF chunk, its
// size clamped to the bytes the file holds. On failure both are null and the file is closed.
int WaveOpenFile(const char *pszFileName, HMMIO *phmmioIn, WAVEFORMATEX **ppwfxInfo,
                 MMCKINFO *pckInRIFF);
// The same on a wave file held in memory (the bytes must outlive the handle).
int WaveOpenMemory(const void *pData, size_t size, HMMIO *phmmioIn, WAVEFORMATEX **ppwfxInfo,
                   MMCKINFO *pckInRIFF);
// Goes to the first chunk inside RIFF and descends to "data". pckIn's size is clamped to the
// bytes that remain in the file.
int WaveStartDataRead(HMMIO *phmmioIn, MMCKINFO *pckIn, MMCKINFO *pckInRIFF);
// The size the file's header gives the "data" chunk that WaveStartDataRead found, before the
// clamp to the file's bytes; call it before the first read (the read position is kept).
// 0 when it can't be read.
uint32_t WaveDeclaredDataSize(HMMIO hmmioIn, const MMCKINFO *pckIn);
// Copies at most cbRead bytes, and no more than the "data" chunk still holds, into pbDest;
// *cbActualRead says how many, and the chunk's size counts down by as many.
int WaveReadFile(HMMIO hmmioIn, uint32_t cbRead, uint8_t *pbDest, MMCKINFO *pckIn,
                 uint32_t *cbActualRead);
// Releases the format and closes the file; either may be null. Both are nulled.
int WaveCloseReadFile(HMMIO *phmmio, WAVEFORMATEX **ppwfxSrc);

// ---- Writing ------------------------------------------------------------------------------

// Creates the file and writes everything up to the "data" chunk. The format is written as 16
// bytes for PCM, else as the record and the cbSize extra bytes that follow it in memory.
// On failure the handle is null and the half-made file is removed.
int WaveCreateFile(const char *pszFileName, HMMIO *phmmioOut, const WAVEFORMATEX *pwfxDest,
                   MMCKINFO *pckOut, MMCKINFO *pckOutRIFF);
// Creates the "data" chunk and takes over the file's buffer into *pmmioinfoOut.
int WaveStartDataWrite(HMMIO *phmmioOut, MMCKINFO *pckOut, MMIOINFO *pmmioinfoOut);
// Stores cbWrite bytes through the buffer taken over; a system call happens only when the
// buffer is full. *cbActualWrite counts the bytes stored.
int WaveWriteFile(HMMIO hmmioOut, uint32_t cbWrite, const uint8_t *pbSrc, MMCKINFO *pckOut,
                  uint32_t *cbActualWrite, MMIOINFO *pmmioinfoOut);
// Gives the buffer back, fixes the sizes of "data" and RIFF, writes cSamples into "fact" and
// closes. A null handle returns 0 at once.
int WaveCloseWriteFile(HMMIO *phmmioOut, MMCKINFO *pckOut, MMCKINFO *pckOutRIFF,
                       MMIOINFO *pmmioinfoOut, uint32_t cSamples);

// ---- Samples ------------------------------------------------------------------------------

// Planar floats (channel 1 from element iLength) to interleaved integers for PCM of 8 or 16
// bits in 1 or 2 channels. Each sample is truncated toward zero to a 32-bit integer (values
// beyond that range saturate, NaN gives 0) and only its low byte, or low two bytes low first,
// is stored: no clipping, no rounding, no offset of 128 for 8 bits, so values out of range
// wrap. Any other format leaves pbOut as it was.
void ConvertArrayOfDataToBytes(unsigned char *pbOut, const float *pfIn, long iLength,
                               const WAVEFORMATEX *pFormat);
