#include "sources/Ac3Stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

extern "C" {
#include <a52dec/a52.h>
}

#include "sources/Ac3Settings.h"

namespace {
// Speaker roles, to move the decoder's channels to the places of the output layout.
enum Role { L, C, R, S, SL, SR, LFE, kNone };

struct Layout {
    int flags;  // asked of the decoder
    int channels;
    Role roles[CAc3Stream::kMaxChannels];
};

// The output layouts in the order of kAc3OutputModes; the LFE ("SW") channel comes last.
// The two Dolby modes are liba52's Dolby Surround down-mix, and SPDIF, which would pass the
// stream through to a receiver, is played as 2/0 here.
const Layout kLayouts[kAc3OutputModeCount] = {
    {A52_MONO, 1, {C}},
    {A52_STEREO, 2, {L, R}},
    {A52_3F, 3, {L, C, R}},
    {A52_2F1R, 3, {L, R, S}},
    {A52_3F1R, 4, {L, C, R, S}},
    {A52_2F2R, 4, {L, R, SL, SR}},
    {A52_3F2R, 5, {L, C, R, SL, SR}},
    {A52_MONO | A52_LFE, 2, {C, LFE}},
    {A52_STEREO | A52_LFE, 3, {L, R, LFE}},
    {A52_3F | A52_LFE, 4, {L, C, R, LFE}},
    {A52_2F1R | A52_LFE, 4, {L, R, S, LFE}},
    {A52_3F1R | A52_LFE, 5, {L, C, R, S, LFE}},
    {A52_2F2R | A52_LFE, 5, {L, R, SL, SR, LFE}},
    {A52_3F2R | A52_LFE, 6, {L, C, R, SL, SR, LFE}},
    {A52_DOLBY, 2, {L, R}},
    {A52_DOLBY, 2, {L, R}},
    {A52_STEREO, 2, {L, R}},
};

const Layout &layout(int iMode) {
    return kLayouts[iMode >= 0 && iMode < kAc3OutputModeCount ? iMode : 1];
}

// The channels liba52 gives for output flags, in its order: the LFE first when there is one.
int decoderRoles(int flags, Role *roles) {
    int n = 0;
    if ((flags & A52_LFE) != 0) {
        roles[n++] = LFE;
    }
    switch (flags & A52_CHANNEL_MASK) {
        case A52_MONO:
        case A52_CHANNEL1:
        case A52_CHANNEL2:
            roles[n++] = C;
            break;
        case A52_3F:
            roles[n++] = L, roles[n++] = C, roles[n++] = R;
            break;
        case A52_2F1R:
            roles[n++] = L, roles[n++] = R, roles[n++] = S;
            break;
        case A52_3F1R:
            roles[n++] = L, roles[n++] = C, roles[n++] = R, roles[n++] = S;
            break;
        case A52_2F2R:
            roles[n++] = L, roles[n++] = R, roles[n++] = SL, roles[n++] = SR;
            break;
        case A52_3F2R:
            roles[n++] = L, roles[n++] = C, roles[n++] = R, roles[n++] = SL, roles[n++] = SR;
            break;
        default:  // A52_CHANNEL (dual mono), A52_STEREO, A52_DOLBY
            roles[n++] = L, roles[n++] = R;
            break;
    }
    return n;
}

// Where a layout's role is found among the decoder's channels: the same role, or the mono
// centre for a left or right, or the one surround for a left or right surround. -1: none.
int sourceOf(Role want, const Role *roles, int n) {
    for (int i = 0; i < n; ++i) {
        if (roles[i] == want) {
            return i;
        }
    }
    for (int i = 0; i < n; ++i) {
        if (((want == L || want == R) && roles[i] == C && n - (roles[0] == LFE) == 1) ||
            ((want == SL || want == SR) && roles[i] == S)) {
            return i;
        }
    }
    return -1;
}

int streamMode(int flags) {
    const bool lfe = (flags & A52_LFE) != 0;
    const int mode = flags & A52_CHANNEL_MASK;
    if (mode == A52_DOLBY) {
        return lfe ? 17 : 16;
    }
    return (mode <= A52_3F2R ? mode : 2) + (lfe ? 8 : 0);
}
}  // namespace

size_t CAc3Stream::Input::Read(uint8_t *pbDest, size_t iBytes) {
    if (fd >= 0) {
        size_t got = 0;
        while (got < iBytes) {
            const ssize_t n = ::read(fd, pbDest + got, iBytes - got);
            if (n <= 0) {
                break;
            }
            got += static_cast<size_t>(n);
        }
        return got;
    }
    const size_t count = std::min(iBytes, iSize - iPos);
    if (count > 0) {
        std::memcpy(pbDest, pbData + iPos, count);
    }
    iPos += count;
    return count;
}

CAc3Stream::~CAc3Stream() {
    Close();
}

void CAc3Stream::Close() {
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_bStop = true;
    }
    m_roomReady.notify_all();
    if (m_reader.joinable()) {
        m_reader.join();
    }
    if (m_input.fd >= 0) {
        ::close(m_input.fd);
    }
    m_input = Input{};
    m_window.clear();
    m_iWindowAt = 0;
    m_info = Info{};
    m_iHead = 0;
    m_iCount = 0;
    m_bEnded = false;
    m_bStop = false;
}

bool CAc3Stream::OpenFile(const std::string &strPath) {
    Close();
    m_input.fd = ::open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    return m_input.fd >= 0 && Begin();
}

bool CAc3Stream::OpenMemory(const uint8_t *pbData, size_t iSize) {
    Close();
    m_input.pbData = pbData;
    m_input.iSize = pbData != nullptr ? iSize : 0;
    return Begin();
}

bool CAc3Stream::Begin() {
    std::vector<uint8_t> frame(kMaxFrameBytes);
    const int bytes = ReadFrame(frame.data(), kSearchLimit);
    int flags = 0, rate = 0, bitrate = 0;
    if (bytes == 0 || a52_syncinfo(frame.data(), &flags, &rate, &bitrate) == 0) {
        Close();
        return false;
    }
    m_info.iSampleRate = rate;
    m_info.iBitRate = bitrate;
    m_info.iStreamMode = streamMode(flags);
    Role roles[kMaxChannels];
    m_info.iChannels = decoderRoles(flags, roles);
    // The frame found is decoded first: it goes back in front of the bytes still to read.
    m_window.insert(m_window.begin() + static_cast<std::ptrdiff_t>(m_iWindowAt), frame.begin(),
                    frame.begin() + bytes);
    return true;
}

int CAc3Stream::ReadFrame(uint8_t *pbFrame, size_t iSearch) {
    size_t searched = 0;
    for (;;) {
        // At least a whole frame ahead, when the bytes have it.
        if (m_window.size() - m_iWindowAt < static_cast<size_t>(kMaxFrameBytes)) {
            m_window.erase(m_window.begin(),
                           m_window.begin() + static_cast<std::ptrdiff_t>(m_iWindowAt));
            m_iWindowAt = 0;
            const size_t have = m_window.size();
            m_window.resize(have + 4 * kMaxFrameBytes);
            m_window.resize(have + m_input.Read(m_window.data() + have, 4 * kMaxFrameBytes));
        }
        const size_t left = m_window.size() - m_iWindowAt;
        if (left < 7) {
            return 0;
        }
        uint8_t *at = m_window.data() + m_iWindowAt;
        int flags = 0, rate = 0, bitrate = 0;
        const int bytes =
            at[0] == 0x0B && at[1] == 0x77 ? a52_syncinfo(at, &flags, &rate, &bitrate) : 0;
        if (bytes >= 7 && bytes <= kMaxFrameBytes) {
            if (static_cast<size_t>(bytes) > left) {
                return 0;  // a frame cut off by the end of the bytes
            }
            std::memcpy(pbFrame, at, static_cast<size_t>(bytes));
            m_iWindowAt += static_cast<size_t>(bytes);
            return bytes;
        }
        ++m_iWindowAt;
        if (++searched > iSearch) {
            return 0;
        }
    }
}

bool CAc3Stream::FrameCrcOk(const uint8_t *pbFrame, int iBytes) {
    // CRC-16 with the polynomial x^16 + x^15 + x^2 + 1 over all but the sync word: a frame
    // whose two CRC words are right gives 0.
    uint16_t crc = 0;
    for (int i = 2; i < iBytes; ++i) {
        crc ^= static_cast<uint16_t>(pbFrame[i] << 8);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x8000) != 0 ? static_cast<uint16_t>((crc << 1) ^ 0x8005)
                                      : static_cast<uint16_t>(crc << 1);
        }
    }
    return crc == 0;
}

int CAc3Stream::LayoutChannels(int iMode) {
    return layout(iMode).channels;
}

bool CAc3Stream::Start(int iMode, double dLevel, bool bDynamicRange, double dLfeLevel,
                       bool bNormalize) {
    if (m_input.fd < 0 && m_input.pbData == nullptr && m_window.empty()) {
        return false;
    }
    if (m_reader.joinable()) {
        return true;
    }
    m_iMode = iMode >= 0 && iMode < kAc3OutputModeCount ? iMode : 1;
    m_dLevel = dLevel;
    m_bDynamicRange = bDynamicRange;
    m_dLfeLevel = dLfeLevel;
    m_bNormalize = bNormalize;
    m_queue.resize(kQueueBlocks);
    m_reader = std::thread([this] { Reader(); });
    return true;
}

void CAc3Stream::DecodeFrame(void *pState, uint8_t *pbFrame, int iBytes, std::vector<Slot> &out) {
    auto *state = static_cast<a52_state_t *>(pState);
    const Layout &want = layout(m_iMode);
    for (Slot &slot : out) {
        std::memset(slot.samples, 0, sizeof slot.samples);
    }
    int flags = want.flags | (m_bNormalize ? A52_ADJUST_LEVEL : 0);
    sample_t level = static_cast<sample_t>(m_dLevel);
    if (!FrameCrcOk(pbFrame, iBytes) || a52_frame(state, pbFrame, &flags, &level, 0) != 0) {
        return;  // silence for the frame
    }
    if (!m_bDynamicRange) {
        a52_dynrng(state, nullptr, nullptr);
    }
    Role roles[kMaxChannels];
    const int n = decoderRoles(flags, roles);
    int from[kMaxChannels];
    for (int c = 0; c < want.channels; ++c) {
        from[c] = sourceOf(want.roles[c], roles, n);
    }
    for (int b = 0; b < kBlocksPerFrame; ++b) {
        if (a52_block(state) != 0) {
            for (int rest = b; rest < kBlocksPerFrame; ++rest) {
                std::memset(out[static_cast<size_t>(rest)].samples, 0, sizeof(Block));
            }
            return;
        }
        const sample_t *samples = a52_samples(state);
        for (int c = 0; c < want.channels; ++c) {
            if (from[c] < 0) {
                continue;
            }
            const double gain = want.roles[c] == LFE ? m_dLfeLevel : 1.0;
            const sample_t *in = samples + from[c] * kBlockSamples;
            double *dest = out[static_cast<size_t>(b)].samples[c];
            for (int i = 0; i < kBlockSamples; ++i) {
                dest[i] = gain * in[i];
            }
        }
    }
}

bool CAc3Stream::Push(const Block &block) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_roomReady.wait(lock, [this] { return m_bStop || m_iCount < kQueueBlocks; });
    if (m_bStop) {
        return false;
    }
    const int at = (m_iHead + m_iCount) % kQueueBlocks;
    std::memcpy(m_queue[static_cast<size_t>(at)].samples, block, sizeof(Block));
    ++m_iCount;
    m_frameReady.notify_all();
    return true;
}

void CAc3Stream::Reader() {
    a52_state_t *state = a52_init(0);
    std::vector<uint8_t> frame(kMaxFrameBytes);
    std::vector<Slot> blocks(kBlocksPerFrame);
    bool going = state != nullptr;
    while (going) {
        // Frames are searched for anywhere in the rest of the stream.
        const int bytes = ReadFrame(frame.data(), SIZE_MAX);
        if (bytes == 0) {
            break;
        }
        DecodeFrame(state, frame.data(), bytes, blocks);
        for (const Slot &slot : blocks) {
            if (!Push(slot.samples)) {
                going = false;
                break;
            }
        }
    }
    if (state != nullptr) {
        a52_free(state);
    }
    std::lock_guard<std::mutex> guard(m_mutex);
    m_bEnded = true;
    m_frameReady.notify_all();
}

bool CAc3Stream::Next(Block &block) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_reader.joinable()) {
        return false;
    }
    m_frameReady.wait(lock, [this] { return m_iCount > 0 || m_bEnded; });
    if (m_iCount == 0) {
        return false;
    }
    std::memcpy(block, m_queue[static_cast<size_t>(m_iHead)].samples, sizeof(Block));
    m_iHead = (m_iHead + 1) % kQueueBlocks;
    --m_iCount;
    m_roomReady.notify_all();
    return true;
}

bool CAc3Stream::Scan(const std::string &strPath, long &iFrames, int &iSampleRate) {
    CAc3Stream stream;
    if (!stream.OpenFile(strPath)) {
        return false;
    }
    iSampleRate = stream.m_info.iSampleRate;
    iFrames = 0;
    std::vector<uint8_t> frame(kMaxFrameBytes);
    while (stream.ReadFrame(frame.data(), SIZE_MAX) > 0) {
        ++iFrames;
    }
    return true;
}
