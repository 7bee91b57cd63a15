#include "sources/Mp3Decoder.h"

#include <fcntl.h>
#include <mpg123.h>
#include <unistd.h>

#include <cstring>
#include <mutex>
#include <vector>

namespace {
// A stream whose first frame isn't found within this many bytes of junk is not MPEG audio.
constexpr long kResyncLimit = 16384;
// Frames decoded by the test in OpenFile/OpenMemory: one frame of layer 2 or 3 at most.
constexpr int kProbeFrames = 1152;

// The longest frame: layer 2 of MPEG 2.5 at 160 kbit/s and 8000 Hz, 144 x 160000 / 8000
// bytes and a padding byte.
constexpr size_t kMaxFrameBytes = 2881;

struct FrameHeader {
    int version = 0;  // 3 MPEG 1, 2 MPEG 2, 0 MPEG 2.5
    int layer = 0;    // 1, 2 or 3
    int rate = 0;     // Hz
    size_t bytes = 0;
};

// Reads the four bytes at p as a frame header; false for anything a decoder can't use, free
// format included (its frame length isn't in the header).
bool parseHeader(const uint8_t *p, FrameHeader &header) {
    if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) {
        return false;
    }
    const int version = (p[1] >> 3) & 3;
    const int layerBits = (p[1] >> 1) & 3;
    const int bitrateIndex = (p[2] >> 4) & 15;
    const int rateIndex = (p[2] >> 2) & 3;
    const int padding = (p[2] >> 1) & 1;
    if (version == 1 || layerBits == 0 || bitrateIndex == 0 || bitrateIndex == 15 ||
        rateIndex == 3) {
        return false;
    }
    static const int kBitrates[5][15] = {
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},  // 1, L1
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},     // 1, L2
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},      // 1, L3
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},     // 2, L1
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},          // 2, L2/L3
    };
    static const int kRates[4][3] = {
        {11025, 12000, 8000}, {0, 0, 0}, {22050, 24000, 16000}, {44100, 48000, 32000}};
    const int layer = 4 - layerBits;
    const int table = version == 3 ? layer - 1 : (layer == 1 ? 3 : 4);
    const long bitrate = kBitrates[table][bitrateIndex] * 1000L;
    const int rate = kRates[version][rateIndex];
    long bytes = 0;
    if (layer == 1) {
        bytes = (12 * bitrate / rate + padding) * 4;
    } else if (layer == 3 && version != 3) {
        bytes = 72 * bitrate / rate + padding;
    } else {
        bytes = 144 * bitrate / rate + padding;
    }
    header.version = version;
    header.layer = layer;
    header.rate = rate;
    header.bytes = static_cast<size_t>(bytes);
    return bytes > 4;
}

void initLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { mpg123_init(); });
}

mpg123_ssize_t readInput(void *pInput, void *pDest, size_t iBytes) {
    auto *input = static_cast<CMp3Decoder::Input *>(pInput);
    if (input->fd >= 0) {
        return ::read(input->fd, pDest, iBytes);
    }
    const size_t left = input->iSize - input->iPos;
    const size_t count = iBytes < left ? iBytes : left;
    if (count > 0) {
        std::memcpy(pDest, input->pbData + input->iPos, count);
    }
    input->iPos += count;
    return static_cast<mpg123_ssize_t>(count);
}

off_t seekInput(void *pInput, off_t iOffset, int iWhence) {
    auto *input = static_cast<CMp3Decoder::Input *>(pInput);
    if (input->fd >= 0) {
        return ::lseek(input->fd, iOffset, iWhence);
    }
    off_t base = 0;
    if (iWhence == SEEK_CUR) {
        base = static_cast<off_t>(input->iPos);
    } else if (iWhence == SEEK_END) {
        base = static_cast<off_t>(input->iSize);
    } else if (iWhence != SEEK_SET) {
        return -1;
    }
    // Checked before adding, so that no offset the library passes can overflow.
    if ((iOffset < 0 && -iOffset > base) ||
        (iOffset > 0 && iOffset > static_cast<off_t>(input->iSize) - base)) {
        return -1;
    }
    input->iPos = static_cast<size_t>(base + iOffset);
    return static_cast<off_t>(input->iPos);
}
}  // namespace

size_t CMp3Decoder::Id3v2Size(const uint8_t *pbHeader, size_t iSize) {
    if (iSize < 10 || pbHeader[0] != 'I' || pbHeader[1] != 'D' || pbHeader[2] != '3') {
        return 0;
    }
    // Four 7-bit bytes; a byte with its high bit set makes the tag invalid.
    size_t size = 0;
    for (int i = 6; i < 10; ++i) {
        if ((pbHeader[i] & 0x80) != 0) {
            return 0;
        }
        size = (size << 7) | pbHeader[i];
    }
    const bool footer = (pbHeader[5] & 0x10) != 0;
    return 10 + size + (footer ? 10 : 0);
}

bool CMp3Decoder::LooksLikeMpegAudio(const uint8_t *pbData, size_t iSize, size_t iTagEnd,
                                     size_t iTotal) {
    for (size_t at = 0; at <= kJunkLimit && at + 4 <= iSize; ++at) {
        FrameHeader first;
        if (!parseHeader(pbData + at, first)) {
            continue;
        }
        const size_t next = at + first.bytes;
        if (iTagEnd + next == iTotal) {
            return true;  // a stream of one frame
        }
        FrameHeader second;
        if (next + 4 <= iSize && parseHeader(pbData + next, second) &&
            second.version == first.version && second.layer == first.layer &&
            second.rate == first.rate) {
            return true;
        }
    }
    return false;
}

CMp3Decoder::~CMp3Decoder() {
    Close();
}

void CMp3Decoder::Close() {
    if (m_pHandle != nullptr) {
        mpg123_close(m_pHandle);
        mpg123_delete(m_pHandle);
        m_pHandle = nullptr;
    }
    if (m_input.fd >= 0) {
        ::close(m_input.fd);
    }
    m_input = Input{};
    m_iChannels = 0;
    m_iSampleRate = 0;
}

bool CMp3Decoder::OpenFile(const std::string &strPath) {
    Close();
    m_input.fd = ::open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_input.fd < 0) {
        return false;
    }
    return Start();
}

bool CMp3Decoder::OpenMemory(const uint8_t *pbData, size_t iSize) {
    Close();
    m_input.pbData = pbData;
    m_input.iSize = pbData != nullptr ? iSize : 0;
    return Start();
}

bool CMp3Decoder::Start() {
    initLibrary();
    // The total size, the tag, and the bytes where the first frames must be.
    const off_t total = seekInput(&m_input, 0, SEEK_END);
    uint8_t head[10] = {};
    if (total < 0 || seekInput(&m_input, 0, SEEK_SET) != 0 ||
        readInput(&m_input, head, sizeof head) < 0) {
        Close();
        return false;
    }
    const size_t tagEnd = Id3v2Size(head, sizeof head);
    std::vector<uint8_t> start(kJunkLimit + 2 * kMaxFrameBytes + 8);
    size_t got = 0;
    if (tagEnd < static_cast<size_t>(total) &&
        seekInput(&m_input, static_cast<off_t>(tagEnd), SEEK_SET) >= 0) {
        while (got < start.size()) {
            const mpg123_ssize_t n = readInput(&m_input, start.data() + got, start.size() - got);
            if (n <= 0) {
                break;
            }
            got += static_cast<size_t>(n);
        }
    }
    if (!LooksLikeMpegAudio(start.data(), got, tagEnd, static_cast<size_t>(total)) ||
        seekInput(&m_input, 0, SEEK_SET) != 0) {
        Close();
        return false;
    }
    m_pHandle = mpg123_new(nullptr, nullptr);
    if (m_pHandle == nullptr) {
        Close();
        return false;
    }
    // Quiet, and a change of format inside the stream ends it rather than joining two streams.
    mpg123_param(m_pHandle, MPG123_ADD_FLAGS, MPG123_QUIET | MPG123_NO_FRANKENSTEIN, 0.0);
    mpg123_param(m_pHandle, MPG123_RESYNC_LIMIT, kResyncLimit, 0.0);
    // Every rate the library knows, in one or two channels, always as 16-bit samples.
    mpg123_format_none(m_pHandle);
    const long *rates = nullptr;
    size_t count = 0;
    mpg123_rates(&rates, &count);
    for (size_t i = 0; i < count; ++i) {
        mpg123_format(m_pHandle, rates[i], MPG123_MONO | MPG123_STEREO, MPG123_ENC_SIGNED_16);
    }
    long rate = 0;
    int channels = 0;
    int encoding = 0;
    if (mpg123_replace_reader_handle(m_pHandle, readInput, seekInput, nullptr) != MPG123_OK ||
        mpg123_open_handle(m_pHandle, &m_input) != MPG123_OK ||
        mpg123_getformat(m_pHandle, &rate, &channels, &encoding) != MPG123_OK ||
        encoding != MPG123_ENC_SIGNED_16 || (channels != 1 && channels != 2) || rate < 1) {
        Close();
        return false;
    }
    m_iChannels = channels;
    m_iSampleRate = static_cast<int>(rate);
    // One frame must decode: a header alone, found in foreign bytes, is not enough.
    std::vector<int16_t> probe(static_cast<size_t>(kProbeFrames) * 2);
    if (Read(probe.data(), kProbeFrames) < 1 || !Seek(0, SEEK_SET)) {
        Close();
        return false;
    }
    return true;
}

long CMp3Decoder::LengthFrames(bool bScan) {
    if (m_pHandle == nullptr) {
        return -1;
    }
    if (bScan) {
        const off_t at = mpg123_tell(m_pHandle);
        mpg123_scan(m_pHandle);
        mpg123_seek(m_pHandle, at < 0 ? 0 : at, SEEK_SET);
    }
    const off_t length = mpg123_length(m_pHandle);
    return length < 0 ? -1 : static_cast<long>(length);
}

std::string CMp3Decoder::Title() {
    if (m_pHandle == nullptr) {
        return std::string();
    }
    mpg123_id3v1 *v1 = nullptr;
    mpg123_id3v2 *v2 = nullptr;
    if (mpg123_id3(m_pHandle, &v1, &v2) != MPG123_OK) {
        return std::string();
    }
    if (v2 != nullptr && v2->title != nullptr && v2->title->p != nullptr && v2->title->fill > 1) {
        // fill counts the closing zero; the text is UTF-8.
        return std::string(v2->title->p, strnlen(v2->title->p, v2->title->fill));
    }
    if (v1 != nullptr) {
        // Thirty bytes, padded with zeros or blanks, not always ended by a zero.
        std::string title(v1->title, strnlen(v1->title, sizeof v1->title));
        while (!title.empty() && title.back() == ' ') {
            title.pop_back();
        }
        return title;
    }
    return std::string();
}

int CMp3Decoder::Read(int16_t *pOut, int iFrames) {
    if (m_pHandle == nullptr || pOut == nullptr || iFrames < 1) {
        return 0;
    }
    const size_t frameBytes = sizeof(int16_t) * static_cast<size_t>(m_iChannels);
    const size_t want = frameBytes * static_cast<size_t>(iFrames);
    auto *dest = reinterpret_cast<unsigned char *>(pOut);
    size_t got = 0;
    int formats = 0;
    while (got < want) {
        size_t done = 0;
        const int result = mpg123_read(m_pHandle, dest + got, want - got, &done);
        got += done;
        if (result == MPG123_NEW_FORMAT) {
            long rate = 0;
            int channels = 0;
            int encoding = 0;
            mpg123_getformat(m_pHandle, &rate, &channels, &encoding);
            if (rate != m_iSampleRate || channels != m_iChannels || ++formats > 4) {
                break;
            }
            continue;
        }
        if (result != MPG123_OK || done == 0) {
            // MPG123_DONE at the end; an error ends the stream too.
            break;
        }
    }
    return static_cast<int>(got / frameBytes);
}

bool CMp3Decoder::Seek(long iFrame, int iWhence) {
    if (m_pHandle == nullptr || (iWhence != SEEK_SET && iWhence != SEEK_CUR)) {
        return false;
    }
    return mpg123_seek(m_pHandle, iFrame, iWhence) >= 0;
}
