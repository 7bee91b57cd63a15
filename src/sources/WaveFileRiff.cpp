#include "sources/WaveFileRiff.h"

#include <sys/types.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {
uint32_t readLE32(const char *p) {
    const auto *b = reinterpret_cast<const uint8_t *>(p);
    return static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 |
           static_cast<uint32_t>(b[2]) << 16 | static_cast<uint32_t>(b[3]) << 24;
}

void writeLE32(char *p, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        p[i] = static_cast<char>((v >> (8 * i)) & 0xFF);
    }
}

// Largest position a RIFF file can use.
constexpr int64_t kMaxPosition = 0xFFFFFFFFLL;
}  // namespace

// A file (or bytes in memory) behind one buffer. The buffer holds the file's bytes from
// m_bufOffset: m_endRead of them are valid, m_next is the position within it, m_dirty says
// that it must be written back before it is refilled.
struct CMmioFile {
    std::FILE *m_pFile = nullptr;
    const char *m_pMemory = nullptr;
    bool m_bWritable = false;
    int64_t m_diskSize = 0;

    std::vector<char> m_buffer = std::vector<char>(kMmioBufferSize);
    bool m_bLoaded = false;
    int64_t m_pos = 0;  // the position while the buffer is not loaded
    int64_t m_bufOffset = 0;
    int64_t m_next = 0;
    int64_t m_endRead = 0;
    bool m_dirty = false;

    ~CMmioFile() {
        if (m_pFile != nullptr) {
            std::fclose(m_pFile);
        }
    }

    int64_t Position() const { return m_bLoaded ? m_bufOffset + m_next : m_pos; }
    int64_t Size() const {
        return m_bLoaded ? std::max(m_diskSize, m_bufOffset + m_endRead) : m_diskSize;
    }

    // Reads up to n bytes at offset from the file or memory itself.
    int64_t ReadAt(int64_t offset, char *dst, int64_t n) const {
        if (offset < 0 || offset >= m_diskSize || n <= 0) {
            return 0;
        }
        const int64_t count = std::min(n, m_diskSize - offset);
        if (m_pMemory != nullptr) {
            std::memcpy(dst, m_pMemory + offset, static_cast<size_t>(count));
            return count;
        }
        if (fseeko(m_pFile, static_cast<off_t>(offset), SEEK_SET) != 0) {
            return 0;
        }
        return static_cast<int64_t>(std::fread(dst, 1, static_cast<size_t>(count), m_pFile));
    }

    bool Flush() {
        if (!m_bLoaded || !m_dirty) {
            return true;
        }
        const int64_t count = std::max(m_endRead, m_next);
        if (m_pFile == nullptr || fseeko(m_pFile, static_cast<off_t>(m_bufOffset), SEEK_SET) != 0 ||
            std::fwrite(m_buffer.data(), 1, static_cast<size_t>(count), m_pFile) !=
                static_cast<size_t>(count)) {
            return false;
        }
        m_diskSize = std::max(m_diskSize, m_bufOffset + count);
        m_dirty = false;
        return true;
    }

    // Fills the buffer with the bytes from offset on (none beyond the end).
    void Load(int64_t offset) {
        m_bufOffset = std::max<int64_t>(offset, 0);
        m_endRead = ReadAt(m_bufOffset, m_buffer.data(), kMmioBufferSize);
        m_next = 0;
        m_dirty = false;
        m_bLoaded = true;
    }

    void EnsureLoaded() {
        if (!m_bLoaded) {
            Load(m_pos);
        }
    }

    // Moves on to a fresh buffer at the present position.
    bool Refill() {
        const int64_t at = Position();
        if (!Flush()) {
            return false;
        }
        Load(at);
        return true;
    }

    long Read(char *dst, long n) {
        long total = 0;
        EnsureLoaded();
        while (total < n) {
            int64_t available = m_endRead - m_next;
            if (available <= 0) {
                if (!Refill()) {
                    return total > 0 ? total : -1;
                }
                available = m_endRead;
                if (available == 0) {
                    break;
                }
            }
            const int64_t count = std::min<int64_t>(available, n - total);
            std::memcpy(dst + total, m_buffer.data() + m_next, static_cast<size_t>(count));
            m_next += count;
            total += static_cast<long>(count);
        }
        return total;
    }

    long Write(const char *src, long n) {
        if (!m_bWritable) {
            return -1;
        }
        long total = 0;
        EnsureLoaded();
        while (total < n) {
            if (m_next >= kMmioBufferSize && !Refill()) {
                return -1;
            }
            if (m_bufOffset + m_next >= kMaxPosition) {
                return -1;
            }
            const int64_t count = std::min<int64_t>(kMmioBufferSize - m_next, n - total);
            std::memcpy(m_buffer.data() + m_next, src + total, static_cast<size_t>(count));
            m_next += count;
            m_endRead = std::max(m_endRead, m_next);
            m_dirty = true;
            total += static_cast<long>(count);
        }
        return total;
    }

    long Seek(long offset, int origin) {
        int64_t base = 0;
        if (origin == SEEK_CUR) {
            base = Position();
        } else if (origin == SEEK_END) {
            base = Size();
        } else if (origin != SEEK_SET) {
            return -1;
        }
        const int64_t target = base + offset;
        if (target < 0 || target > kMaxPosition) {
            return -1;
        }
        if (m_bLoaded && target >= m_bufOffset && target <= m_bufOffset + m_endRead) {
            m_next = target - m_bufOffset;  // inside the buffer: keep it
        } else {
            if (!Flush()) {
                return -1;
            }
            m_bLoaded = false;
            m_pos = target;
        }
        return static_cast<long>(target);
    }

    bool Owns(const MMIOINFO &info) const { return info.pchBuffer == m_buffer.data(); }

    void GetInfo(MMIOINFO &info) {
        EnsureLoaded();
        info.dwFlags = m_dirty ? MMIO_DIRTY : 0;
        info.pchBuffer = m_buffer.data();
        info.pchNext = m_buffer.data() + m_next;
        info.pchEndRead = m_buffer.data() + m_endRead;
        info.pchEndWrite = m_buffer.data() + (m_bWritable ? kMmioBufferSize : m_endRead);
        info.lBufOffset = static_cast<long>(m_bufOffset);
        info.lDiskOffset = static_cast<long>(m_bufOffset + m_endRead);
        info.hmmio = this;
    }

    // Takes back where the caller's pchNext got to. A pointer moved outside the buffer (a
    // step over many bytes) becomes a plain change of position.
    bool SetInfo(const MMIOINFO &info) {
        EnsureLoaded();
        const int64_t offset = static_cast<int64_t>(reinterpret_cast<intptr_t>(info.pchNext) -
                                                    reinterpret_cast<intptr_t>(m_buffer.data()));
        if (offset >= 0 && offset <= kMmioBufferSize) {
            m_next = offset;
            if ((info.dwFlags & MMIO_DIRTY) != 0 && m_bWritable) {
                m_dirty = true;
                m_endRead = std::max(m_endRead, m_next);
            }
            return true;
        }
        const int64_t target = std::clamp<int64_t>(m_bufOffset + offset, 0, kMaxPosition);
        if (!Flush()) {
            return false;
        }
        m_bLoaded = false;
        m_pos = target;
        return true;
    }
};

HMMIO mmioOpen(const char *pszFileName, MMIOINFO *pmmioinfo, uint32_t dwOpenFlags) {
    if (pmmioinfo != nullptr) {
        pmmioinfo->wErrorRet = 0;
    }
    const bool create = (dwOpenFlags & MMIO_CREATE) != 0;
    const bool writable = (dwOpenFlags & (MMIO_WRITE | MMIO_READWRITE)) != 0;
    const char *mode = create ? "w+b" : (writable ? "r+b" : "rb");
    std::FILE *file = pszFileName != nullptr ? std::fopen(pszFileName, mode) : nullptr;
    if (file == nullptr) {
        if (pmmioinfo != nullptr) {
            pmmioinfo->wErrorRet = create ? MMIOERR_CANNOTOPEN : MMIOERR_FILENOTFOUND;
        }
        return nullptr;
    }
    auto *handle = new CMmioFile;
    handle->m_pFile = file;
    handle->m_bWritable = writable || create;
    if (fseeko(file, 0, SEEK_END) == 0) {
        handle->m_diskSize = static_cast<int64_t>(ftello(file));
    }
    return handle;
}

HMMIO mmioOpenMemory(const void *pData, size_t size) {
    auto *handle = new CMmioFile;
    static const char empty = 0;
    handle->m_pMemory = pData != nullptr ? static_cast<const char *>(pData) : &empty;
    handle->m_diskSize =
        pData != nullptr ? static_cast<int64_t>(std::min<size_t>(size, kMaxPosition)) : 0;
    return handle;
}

int mmioClose(HMMIO hmmio, uint32_t) {
    if (hmmio == nullptr) {
        return MMIOERR_INVALIDFILE;
    }
    const bool flushed = hmmio->Flush();
    bool closed = true;
    if (hmmio->m_pFile != nullptr) {
        closed = std::fclose(hmmio->m_pFile) == 0;
        hmmio->m_pFile = nullptr;
    }
    delete hmmio;
    return flushed && closed ? 0 : MMIOERR_CANNOTWRITE;
}

long mmioRead(HMMIO hmmio, char *pch, long cch) {
    if (hmmio == nullptr || pch == nullptr || cch < 0) {
        return -1;
    }
    return hmmio->Read(pch, cch);
}

long mmioWrite(HMMIO hmmio, const char *pch, long cch) {
    if (hmmio == nullptr || pch == nullptr || cch < 0) {
        return -1;
    }
    return hmmio->Write(pch, cch);
}

long mmioSeek(HMMIO hmmio, long lOffset, int iOrigin) {
    return hmmio != nullptr ? hmmio->Seek(lOffset, iOrigin) : -1;
}

namespace {
bool matches(const MMCKINFO &wanted, FOURCC id, FOURCC type, uint32_t flags) {
    if ((flags & MMIO_FINDRIFF) != 0) {
        return id == FOURCC_RIFF && type == wanted.fccType;
    }
    if ((flags & MMIO_FINDLIST) != 0) {
        return id == FOURCC_LIST && type == wanted.fccType;
    }
    if ((flags & MMIO_FINDCHUNK) != 0) {
        return id == wanted.ckid;
    }
    return true;
}
}  // namespace

int mmioDescend(HMMIO hmmio, MMCKINFO *pmmcki, const MMCKINFO *pmmckiParent, uint32_t fuDescend) {
    if (hmmio == nullptr || pmmcki == nullptr) {
        return MMIOERR_INVALIDFILE;
    }
    int64_t end = hmmio->Size();
    if (pmmckiParent != nullptr) {
        end = std::min<int64_t>(
            end, static_cast<int64_t>(pmmckiParent->dwDataOffset) + pmmckiParent->cksize);
    }
    // Each round moves on by at least a header, so the walk ends at the end of the parent.
    for (;;) {
        const int64_t at = hmmio->Position();
        char header[8];
        if (at + 8 > end || hmmio->Read(header, 8) != 8) {
            return MMIOERR_CHUNKNOTFOUND;
        }
        const FOURCC id = readLE32(header);
        const uint32_t size = readLE32(header + 4);
        FOURCC type = 0;
        if (id == FOURCC_RIFF || id == FOURCC_LIST) {
            if (at + 12 > end || hmmio->Read(header, 4) != 4) {
                return MMIOERR_CHUNKNOTFOUND;
            }
            type = readLE32(header);
        }
        if (matches(*pmmcki, id, type, fuDescend)) {
            pmmcki->ckid = id;
            pmmcki->cksize = size;
            pmmcki->fccType = type;
            pmmcki->dwDataOffset = static_cast<uint32_t>(at + 8);
            pmmcki->dwFlags = 0;
            return 0;
        }
        const int64_t next = at + 8 + size + (size & 1);
        if (next + 8 > end || hmmio->Seek(static_cast<long>(next), SEEK_SET) < 0) {
            return MMIOERR_CHUNKNOTFOUND;
        }
    }
}

int mmioAscend(HMMIO hmmio, MMCKINFO *pmmcki, uint32_t) {
    if (hmmio == nullptr || pmmcki == nullptr) {
        return MMIOERR_INVALIDFILE;
    }
    const int64_t start = pmmcki->dwDataOffset;
    if ((pmmcki->dwFlags & MMIO_DIRTY) == 0) {
        const int64_t end = start + pmmcki->cksize + (pmmcki->cksize & 1);
        return hmmio->Seek(static_cast<long>(std::min(end, kMaxPosition)), SEEK_SET) < 0
                   ? MMIOERR_CANNOTSEEK
                   : 0;
    }
    const int64_t size = hmmio->Position() - start;
    if (size < 0 || size > kMaxPosition) {
        return MMIOERR_CANNOTSEEK;
    }
    if (size != pmmcki->cksize) {
        char field[4];
        writeLE32(field, static_cast<uint32_t>(size));
        if (hmmio->Seek(static_cast<long>(start - 4), SEEK_SET) < 0 ||
            hmmio->Write(field, 4) != 4) {
            return MMIOERR_CANNOTWRITE;
        }
        pmmcki->cksize = static_cast<uint32_t>(size);
    }
    if (hmmio->Seek(static_cast<long>(start + size), SEEK_SET) < 0) {
        return MMIOERR_CANNOTSEEK;
    }
    if ((size & 1) != 0) {
        const char pad = 0;
        if (hmmio->Write(&pad, 1) != 1) {
            return MMIOERR_CANNOTWRITE;
        }
    }
    pmmcki->dwFlags &= ~MMIO_DIRTY;
    return 0;
}

int mmioCreateChunk(HMMIO hmmio, MMCKINFO *pmmcki, uint32_t fuCreate) {
    if (hmmio == nullptr || pmmcki == nullptr) {
        return MMIOERR_INVALIDFILE;
    }
    const int64_t at = hmmio->Position();
    if ((fuCreate & MMIO_CREATERIFF) != 0) {
        pmmcki->ckid = FOURCC_RIFF;
    } else if ((fuCreate & MMIO_CREATELIST) != 0) {
        pmmcki->ckid = FOURCC_LIST;
    }
    const bool hasType = pmmcki->ckid == FOURCC_RIFF || pmmcki->ckid == FOURCC_LIST;
    char header[12];
    writeLE32(header, pmmcki->ckid);
    writeLE32(header + 4, pmmcki->cksize);
    writeLE32(header + 8, pmmcki->fccType);
    const long length = hasType ? 12 : 8;
    if (hmmio->Write(header, length) != length) {
        return MMIOERR_CANNOTWRITE;
    }
    pmmcki->dwDataOffset = static_cast<uint32_t>(at + 8);
    pmmcki->dwFlags = MMIO_DIRTY;
    return 0;
}

int mmioGetInfo(HMMIO hmmio, MMIOINFO *pmmioinfo, uint32_t) {
    if (hmmio == nullptr || pmmioinfo == nullptr) {
        return MMIOERR_INVALIDFILE;
    }
    hmmio->GetInfo(*pmmioinfo);
    return 0;
}

int mmioSetInfo(HMMIO hmmio, const MMIOINFO *pmmioinfo, uint32_t) {
    if (hmmio == nullptr || pmmioinfo == nullptr || !hmmio->Owns(*pmmioinfo)) {
        return MMIOERR_INVALIDFILE;
    }
    return hmmio->SetInfo(*pmmioinfo) ? 0 : MMIOERR_CANNOTWRITE;
}

int mmioAdvance(HMMIO hmmio, MMIOINFO *pmmioinfo, uint32_t fuAdvance) {
    if (hmmio == nullptr) {
        return MMIOERR_INVALIDFILE;
    }
    if (fuAdvance == MMIO_WRITE && !hmmio->m_bWritable) {
        return MMIOERR_CANNOTWRITE;
    }
    if (pmmioinfo != nullptr) {
        if (!hmmio->Owns(*pmmioinfo)) {
            return MMIOERR_INVALIDFILE;
        }
        if (!hmmio->SetInfo(*pmmioinfo)) {
            return MMIOERR_CANNOTWRITE;
        }
    }
    if (!hmmio->Refill()) {
        return fuAdvance == MMIO_WRITE ? MMIOERR_CANNOTWRITE : MMIOERR_CANNOTREAD;
    }
    if (pmmioinfo != nullptr) {
        hmmio->GetInfo(*pmmioinfo);
    }
    return 0;
}
