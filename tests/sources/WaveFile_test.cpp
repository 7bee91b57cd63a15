#include "sources/WaveFile.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/RiffBytes.h"
#include "support/WaveWriter.h"

using qktest::Bytes;

namespace {
// Writes the bytes through the layer as one data chunk, in pieces of the given size.
void writeWave(const std::string &path, const WAVEFORMATEX &format, const Bytes &data, size_t piece,
               uint32_t samples) {
    HMMIO h = nullptr;
    MMCKINFO ck;
    MMCKINFO riff;
    MMIOINFO info;
    ASSERT_EQ(WaveCreateFile(path.c_str(), &h, &format, &ck, &riff), 0);
    ASSERT_EQ(WaveStartDataWrite(&h, &ck, &info), 0);
    for (size_t at = 0; at < data.size(); at += piece) {
        const auto n = static_cast<uint32_t>(std::min(piece, data.size() - at));
        uint32_t written = 0;
        ASSERT_EQ(WaveWriteFile(h, n, data.data() + at, &ck, &written, &info), 0);
        ASSERT_EQ(written, n);
    }
    ASSERT_EQ(WaveCloseWriteFile(&h, &ck, &riff, &info, samples), 0);
    EXPECT_EQ(h, nullptr);
}

// What a reader gets: the result of opening, the format, and every data byte read in pieces.
struct ReadBack {
    int openResult = -1;
    int startResult = -1;
    WAVEFORMATEX format{};
    uint32_t riffSize = 0;
    uint32_t declaredData = 0;
    Bytes data;
};

ReadBack readHandle(int openResult, HMMIO h, WAVEFORMATEX *pwfx, MMCKINFO &riff, size_t piece) {
    ReadBack r;
    r.openResult = openResult;
    if (openResult != 0) {
        EXPECT_EQ(h, nullptr);
        EXPECT_EQ(pwfx, nullptr);
        return r;
    }
    r.format = *pwfx;
    r.riffSize = riff.cksize;
    MMCKINFO data;
    r.startResult = WaveStartDataRead(&h, &data, &riff);
    if (r.startResult == 0) {
        r.declaredData = data.cksize;
        std::vector<uint8_t> buffer(piece);
        uint32_t got = 0;
        do {
            EXPECT_EQ(WaveReadFile(h, static_cast<uint32_t>(piece), buffer.data(), &data, &got), 0);
            r.data.insert(r.data.end(), buffer.begin(), buffer.begin() + got);
        } while (got > 0);
        EXPECT_EQ(data.cksize, 0u);
    }
    WaveCloseReadFile(&h, &pwfx);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(pwfx, nullptr);
    return r;
}

// Opens the file at `path`, or the bytes when they are given, and reads it back.
ReadBack readBack(const std::string &path, const Bytes *bytes = nullptr, size_t piece = 777) {
    HMMIO h = nullptr;
    WAVEFORMATEX *pwfx = nullptr;
    MMCKINFO riff;
    const int result = bytes ? WaveOpenMemory(bytes->data(), bytes->size(), &h, &pwfx, &riff)
                             : WaveOpenFile(path.c_str(), &h, &pwfx, &riff);
    return readHandle(result, h, pwfx, riff, piece);
}
ReadBack readMemory(const Bytes &bytes, size_t piece = 777) {
    return readBack("", &bytes, piece);
}

Bytes withFormat(const Bytes &format, int64_t declared = -1) {
    Bytes chunks;
    qktest::AppendChunk(chunks, "fmt ", format, declared);
    return qktest::RiffWave(chunks);
}

Bytes pattern(size_t n) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) {
        b[i] = static_cast<uint8_t>((i * 7 + i / 251) & 0xFF);
    }
    return b;
}
}  // namespace

TEST(WaveFile, WrittenFileHasTheRiffLayoutAndReadsBack) {
    // An odd length that crosses the file buffer twice.
    const std::string path = qktest::ScratchPath("layout.wav");
    const Bytes data = pattern(20001);
    writeWave(path, WAVEFORMATEX{WAVE_FORMAT_PCM, 2, 44100, 176400, 4, 16, 0}, data, 3000, 1234);

    const Bytes file = qktest::ReadFileBytes(path);
    ASSERT_EQ(file.size(), 12u + (8 + 16) + (8 + 4) + (8 + 20001 + 1));
    EXPECT_EQ(std::string(file.begin(), file.begin() + 4), "RIFF");
    EXPECT_EQ(qktest::LE32(file, 4), file.size() - 8);
    EXPECT_EQ(std::string(file.begin() + 8, file.begin() + 12), "WAVE");
    const auto chunks = qktest::ChunksOf(file);
    ASSERT_EQ(chunks.size(), 3u);
    EXPECT_EQ(chunks[0].id, "fmt ");
    EXPECT_EQ(Bytes(file.begin() + chunks[0].dataOffset, file.begin() + chunks[0].dataOffset + 16),
              qktest::PcmFormat(2, 44100, 16));
    EXPECT_EQ(chunks[1].id, "fact");
    EXPECT_EQ(qktest::LE32(file, chunks[1].dataOffset), 1234u);
    EXPECT_EQ(chunks[2].id, "data");
    EXPECT_EQ(chunks[2].size, 20001u);
    EXPECT_EQ(file.back(), 0);  // pad byte

    for (size_t piece : {size_t{1}, size_t{777}, size_t{65536}}) {
        const ReadBack r = readBack(path, nullptr, piece);
        ASSERT_EQ(r.openResult, 0);
        EXPECT_EQ(r.format.nBlockAlign, 4);
        EXPECT_EQ(r.riffSize, file.size() - 8);
        EXPECT_EQ(r.data, data) << "piece " << piece;
    }
    std::remove(path.c_str());
}

TEST(WaveFile, ReadsAFileMadeByAnotherProgram) {
    const std::string path = qktest::ScratchPath("sox.wav");
    if (std::system(("sox -q -r 8000 -n -c 2 -b 16 -e signed-integer " + path +
                     " synth 80s sine 440 2>/dev/null")
                        .c_str()) != 0) {
        GTEST_SKIP() << "sox is not installed";
    }
    const ReadBack r = readBack(path);
    ASSERT_EQ(r.startResult, 0);
    EXPECT_EQ(r.format.nBlockAlign, 4);
    EXPECT_EQ(r.format.nSamplesPerSec, 8000u);
    EXPECT_EQ(r.data.size(), 80u * 4);
    std::remove(path.c_str());
}

TEST(WaveFile, BrokenAndForeignFilesGiveTheirCodesWithoutLeaking) {
    Bytes noFormat;
    qktest::AppendChunk(noFormat, "data", Bytes(8, 0));
    Bytes extraPastChunk = qktest::PcmFormat(1, 44100, 32);  // tag 3, 40 extra bytes in 20
    extraPastChunk[0] = 3;
    extraPastChunk.insert(extraPastChunk.end(), {40, 0, 1, 2});

    struct Case {
        const char *name;
        Bytes bytes;
        int code;
    };
    const std::vector<Case> cases = {
        {"empty", {}, MMIOERR_CHUNKNOTFOUND},
        {"text", Bytes{'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd', '!'}, ER_NOTWAVEFILE},
        {"riff of another form", Bytes{'R', 'I', 'F', 'F', 4, 0, 0, 0, 'A', 'V', 'I', ' '},
         ER_NOTWAVEFILE},
        {"header cut short", Bytes{'R', 'I', 'F', 'F', 4, 0}, MMIOERR_CHUNKNOTFOUND},
        {"no format", qktest::RiffWave(noFormat), MMIOERR_CHUNKNOTFOUND},
        {"format under 16 bytes", withFormat(Bytes(14, 1)), ER_NOTWAVEFILE},
        {"format cut short", withFormat(Bytes(10, 1), 16), ER_CORRUPTWAVEFILE},
        {"no channels", withFormat(qktest::PcmFormat(0, 44100, 16)), ER_NOTWAVEFILE},
        {"no bytes per frame", withFormat(qktest::PcmFormat(1, 44100, 2)), ER_NOTWAVEFILE},
        {"absurd rate", withFormat(qktest::PcmFormat(1, 2000000, 16)), ER_NOTWAVEFILE},
        {"extra bytes past the chunk", withFormat(extraPastChunk), ER_NOTWAVEFILE},
    };
    const int filesBefore = qktest::OpenFileCount();
    for (const Case &c : cases) {
        EXPECT_EQ(readMemory(c.bytes).openResult, c.code) << c.name << " (memory)";
        const std::string path = qktest::ScratchPath("broken.wav");
        qktest::WriteFileBytes(path, c.bytes);
        EXPECT_EQ(readBack(path).openResult, c.code) << c.name << " (file)";
        std::remove(path.c_str());
    }
    EXPECT_EQ(readBack(qktest::ScratchPath("does-not-exist.wav")).openResult, ER_CANNOTOPEN);
    EXPECT_EQ(qktest::OpenFileCount(), filesBefore);
}

TEST(WaveFile, FindsDataBehindOtherChunksAndClampsDeclaredSizesToTheBytesThatRemain) {
    Bytes chunks;
    qktest::AppendChunk(chunks, "LIST", Bytes{'I', 'N', 'F', 'O', 'x'});  // odd: padded
    qktest::AppendChunk(chunks, "fmt ", qktest::PcmFormat(1, 8000, 8));
    qktest::AppendChunk(chunks, "junk", Bytes(3, 9));
    qktest::AppendChunk(chunks, "data", pattern(100), 1000000);
    const Bytes file = qktest::RiffWave(chunks, 0xFFFFFFFF);
    const ReadBack r = readMemory(file, 64);
    ASSERT_EQ(r.startResult, 0);
    EXPECT_EQ(r.format.nSamplesPerSec, 8000u);
    EXPECT_EQ(r.riffSize, file.size() - 8);
    EXPECT_EQ(r.declaredData, 100u);
    EXPECT_EQ(r.data, pattern(100));
}

TEST(WaveFile, FormatsOtherThanPcmKeepTheirExtraBytes) {
    // Extensible format: 22 extra bytes.
    Bytes format = qktest::PcmFormat(2, 48000, 24);
    format[0] = 0xFE;
    format[1] = 0xFF;
    format.push_back(22);
    format.push_back(0);
    const Bytes extra = pattern(22);
    format.insert(format.end(), extra.begin(), extra.end());
    const Bytes file = withFormat(format);
    HMMIO h = nullptr;
    WAVEFORMATEX *pwfx = nullptr;
    MMCKINFO riff;
    ASSERT_EQ(WaveOpenMemory(file.data(), file.size(), &h, &pwfx, &riff), 0);
    EXPECT_EQ(pwfx->wFormatTag, 0xFFFE);
    ASSERT_EQ(pwfx->cbSize, 22);
    EXPECT_EQ(Bytes(WaveFormatExtra(pwfx), WaveFormatExtra(pwfx) + 22), extra);
    WaveCloseReadFile(&h, &pwfx);
}
