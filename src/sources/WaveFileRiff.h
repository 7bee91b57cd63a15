// Buffered RIFF files: the chunk-walking file interface the wave file layer was written
// against, on plain buffered file operations. A handle reads and writes through one buffer of
// kMmioBufferSize bytes, and callers may work on that buffer directly (mmioGetInfo, move
// pchNext, mmioSetInfo / mmioAdvance) so that a byte loop costs no system call until the
// buffer is exhausted or full. A handle can also read from bytes in memory.
//
// Positions and sizes are in bytes from the start of the file. RIFF chunk headers are a
// four-character id and a 32-bit little-endian size; RIFF and LIST chunks add a form type.
// mmioDescend reports sizes as declared: the wave layer above clamps them to the file.
// A handle is used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>

typedef uint32_t FOURCC;

constexpr FOURCC mmioFOURCC(char c0, char c1, char c2, char c3) {
    return static_cast<FOURCC>(static_cast<uint8_t>(c0)) |
           static_cast<FOURCC>(static_cast<uint8_t>(c1)) << 8 |
           static_cast<FOURCC>(static_cast<uint8_t>(c2)) << 16 |
           static_cast<FOURCC>(static_cast<uint8_t>(c3)) << 24;
}
constexpr FOURCC FOURCC_RIFF = mmioFOURCC('R', 'I', 'F', 'F');
constexpr FOURCC FOURCC_LIST = mmioFOURCC('L', 'I', 'S', 'T');

// Results of the chunk calls, with the values the callers have always seen.
enum : int {
    MMSYSERR_NOERROR = 0,
    MMIOERR_FILENOTFOUND = 257,
    MMIOERR_OUTOFMEMORY = 258,
    MMIOERR_CANNOTOPEN = 259,
    MMIOERR_CANNOTCLOSE = 260,
    MMIOERR_CANNOTREAD = 261,
    MMIOERR_CANNOTWRITE = 262,
    MMIOERR_CANNOTSEEK = 263,
    MMIOERR_CANNOTEXPAND = 264,
    MMIOERR_CHUNKNOTFOUND = 265,
    MMIOERR_INVALIDFILE = 272,
};

// Flags of mmioOpen, mmioAdvance, mmioDescend, mmioCreateChunk and the chunk record.
constexpr uint32_t MMIO_READ = 0x0;
constexpr uint32_t MMIO_WRITE = 0x1;
constexpr uint32_t MMIO_READWRITE = 0x2;
constexpr uint32_t MMIO_CREATE = 0x1000;
constexpr uint32_t MMIO_ALLOCBUF = 0x10000;
constexpr uint32_t MMIO_DIRTY = 0x10000000;
constexpr uint32_t MMIO_FINDCHUNK = 0x10;
constexpr uint32_t MMIO_FINDRIFF = 0x20;
constexpr uint32_t MMIO_FINDLIST = 0x40;
constexpr uint32_t MMIO_CREATERIFF = 0x20;
constexpr uint32_t MMIO_CREATELIST = 0x40;

constexpr int kMmioBufferSize = 8192;

// One chunk: its id, size in bytes of its data, form type (RIFF and LIST only), the file
// offset of its data (for RIFF and LIST, of the form type) and MMIO_DIRTY while it is being
// written.
struct MMCKINFO {
    FOURCC ckid = 0;
    uint32_t cksize = 0;
    FOURCC fccType = 0;
    uint32_t dwDataOffset = 0;
    uint32_t dwFlags = 0;
};

struct CMmioFile;
typedef CMmioFile *HMMIO;

// The state of a handle's buffer, handed out by mmioGetInfo. Between pchBuffer and
// pchEndRead lie bytes of the file from lBufOffset on; a writer stores at pchNext up to
// pchEndWrite, sets MMIO_DIRTY in dwFlags and hands the state back.
struct MMIOINFO {
    uint32_t dwFlags = 0;
    uint32_t wErrorRet = 0;
    char *pchBuffer = nullptr;
    char *pchNext = nullptr;
    char *pchEndRead = nullptr;
    char *pchEndWrite = nullptr;
    long lBufOffset = 0;
    long lDiskOffset = 0;
    HMMIO hmmio = nullptr;
};

// Opens a file: MMIO_READ, MMIO_READWRITE (an existing file) or MMIO_CREATE with either
// (a new, empty file). Null when it cannot be opened; wErrorRet of pmmioinfo, if given, says why.
HMMIO mmioOpen(const char *pszFileName, MMIOINFO *pmmioinfo, uint32_t dwOpenFlags);
// Reads size bytes at pData (not copied; they must outlive the handle).
HMMIO mmioOpenMemory(const void *pData, size_t size);
// Writes what is buffered and closes. 0, or MMIOERR_CANNOTWRITE when buffered data was lost.
int mmioClose(HMMIO hmmio, uint32_t fuClose);

// Bytes read (0 at the end), or -1.
long mmioRead(HMMIO hmmio, char *pch, long cch);
// Bytes written, or -1.
long mmioWrite(HMMIO hmmio, const char *pch, long cch);
// iOrigin is SEEK_SET, SEEK_CUR or SEEK_END. The new position, or -1.
long mmioSeek(HMMIO hmmio, long lOffset, int iOrigin);

// Reads the chunk header at the present position. With MMIO_FINDCHUNK (or FINDRIFF, FINDLIST)
// skips chunks until one with pmmcki's ckid (and fccType) is found, never beyond the end of
// the parent chunk when one is given. On success the position is at the chunk's data (after
// the form type). MMIOERR_CHUNKNOTFOUND when there is no such chunk.
int mmioDescend(HMMIO hmmio, MMCKINFO *pmmcki, const MMCKINFO *pmmckiParent, uint32_t fuDescend);
// Leaves a chunk: a chunk being written gets its size patched when it differs and a pad byte
// when odd; the position moves past the chunk (and its pad byte).
int mmioAscend(HMMIO hmmio, MMCKINFO *pmmcki, uint32_t fuAscend);
// Writes a chunk header at the present position (MMIO_CREATERIFF / MMIO_CREATELIST for those)
// and marks the record MMIO_DIRTY so that mmioAscend fixes its size.
int mmioCreateChunk(HMMIO hmmio, MMCKINFO *pmmcki, uint32_t fuCreate);

// Hands out and takes back the buffer state for direct access.
int mmioGetInfo(HMMIO hmmio, MMIOINFO *pmmioinfo, uint32_t fuInfo);
int mmioSetInfo(HMMIO hmmio, const MMIOINFO *pmmioinfo, uint32_t fuInfo);
// Takes back the state, writes the buffer if dirty, and refills it from the position pchNext
// reached; pmmioinfo is updated. At the end of the file pchNext equals pchEndRead afterwards.
int mmioAdvance(HMMIO hmmio, MMIOINFO *pmmioinfo, uint32_t fuAdvance);
