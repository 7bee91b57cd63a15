// The .qkhrtf file: magic, header, two direction tables of 65,160 ints, samples; little-endian
// and without padding. The reader never trusts the header: every count is checked against
// named limits and against the bytes that remain before anything is allocated.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "binaural/CHELPER_HRTF.h"
#include "platform/Report.h"

namespace {
constexpr const char *kCaption = "FAILURE";
constexpr char kMagic[] = "QUENDARIK-HRTF";
constexpr size_t kMagicSize = sizeof(kMagic);  // 15, with the terminating zero
constexpr size_t kTableBytes = CHELPER_HRTF::kDirections * 4;

// Limits on what a header may declare. Sets in use have two channels, a few hundred taps and
// rates of 44,100 or 48,000 Hz.
constexpr int kMaxChannels = 2;
constexpr int kMaxTaps = 1 << 16;
constexpr int kMinRate = 1000;
constexpr int kMaxRate = 768000;
// A source that can't tell its size is read into memory up to this many bytes.
constexpr size_t kMaxUnsizedBytes = size_t{1} << 28;

// Header fields between the magic and the tables, as they stand in the file.
struct Header {
    float fVersion = 0.0f;
    char szDescription[CHELPER_HRTF::kDescriptionSize] = {};
    char szType[CHELPER_HRTF::kTypeSize] = {};
    char szEars[CHELPER_HRTF::kEarsSize] = {};
    int32_t iChannels = 0;
    int32_t iRate = 0;
    int32_t iTaps = 0;
    char szDataType[CHELPER_HRTF::kDataTypeSize] = {};
    int32_t iMeasurements = 0;
};
constexpr size_t kHeaderBytes = 4 + CHELPER_HRTF::kDescriptionSize + CHELPER_HRTF::kTypeSize +
                                CHELPER_HRTF::kEarsSize + 4 + 4 + 4 + CHELPER_HRTF::kDataTypeSize +
                                4;  // 290

uint32_t le32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
int32_t leInt(const uint8_t *p) {
    const uint32_t u = le32(p);
    int32_t v;
    std::memcpy(&v, &u, 4);
    return v;
}
float leFloat(const uint8_t *p) {
    const uint32_t u = le32(p);
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}
void putLE32(std::vector<uint8_t> &out, uint32_t u) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<uint8_t>(u >> (8 * i)));
    }
}
void putInt(std::vector<uint8_t> &out, int32_t v) {
    uint32_t u;
    std::memcpy(&u, &v, 4);
    putLE32(out, u);
}
void putFloat(std::vector<uint8_t> &out, float f) {
    uint32_t u;
    std::memcpy(&u, &f, 4);
    putLE32(out, u);
}
void putText(std::vector<uint8_t> &out, const char *text, size_t size) {
    // The field's last byte is always the terminating zero.
    for (size_t i = 0; i + 1 < size; ++i) {
        out.push_back(static_cast<uint8_t>(text[i]));
    }
    out.push_back(0);
}

// Reads exactly n bytes; false when the source ends first.
bool readExactly(qk::CArchiveStream &source, void *buffer, size_t n) {
    return n == 0 || source.Read(buffer, n) == n;
}

void copyText(char *dest, const uint8_t *src, size_t size) {
    std::memcpy(dest, src, size);
    dest[size - 1] = 0;
}

Header parseHeader(const uint8_t *p) {
    Header h;
    h.fVersion = leFloat(p);
    p += 4;
    copyText(h.szDescription, p, sizeof(h.szDescription));
    p += sizeof(h.szDescription);
    copyText(h.szType, p, sizeof(h.szType));
    p += sizeof(h.szType);
    copyText(h.szEars, p, sizeof(h.szEars));
    p += sizeof(h.szEars);
    h.iChannels = leInt(p);
    h.iRate = leInt(p + 4);
    h.iTaps = leInt(p + 8);
    p += 12;
    copyText(h.szDataType, p, sizeof(h.szDataType));
    p += sizeof(h.szDataType);
    h.iMeasurements = leInt(p);
    return h;
}

// What is wrong with the counts of a header, or null when they are usable.
const char *checkCounts(int32_t iChannels, int32_t iRate, int32_t iTaps, int32_t iMeasurements) {
    if (iChannels < 1 || iChannels > kMaxChannels) {
        return "channels out of range";
    }
    if (iRate < kMinRate || iRate > kMaxRate) {
        return "sample rate out of range";
    }
    if (iTaps < 1 || iTaps > kMaxTaps) {
        return "taps out of range";
    }
    if (iMeasurements < 1) {
        return "no measurements";
    }
    return nullptr;
}

void readTable(const uint8_t *p, std::vector<int32_t> &table) {
    table.resize(CHELPER_HRTF::kDirections);
    for (size_t i = 0; i < table.size(); ++i) {
        table[i] = leInt(p + 4 * i);
    }
}

int16_t toShort(float f) {
    // Truncation of sample * 32768, saturated: a full-scale 1.0 can't be held in 16 bits.
    const float fScaled = f * 32768.0f;
    if (!(fScaled > -32768.0f)) {
        return std::isnan(fScaled) ? 0 : std::numeric_limits<int16_t>::min();
    }
    if (fScaled >= 32767.0f) {
        return std::numeric_limits<int16_t>::max();
    }
    return static_cast<int16_t>(fScaled);
}

// Reads a source whose size is unknown into memory, up to kMaxUnsizedBytes.
std::vector<uint8_t> slurp(qk::CArchiveStream &source) {
    std::vector<uint8_t> bytes;
    uint8_t chunk[65536];
    size_t n;
    while (bytes.size() <= kMaxUnsizedBytes && (n = source.Read(chunk, sizeof(chunk))) > 0) {
        bytes.insert(bytes.end(), chunk, chunk + n);
    }
    return bytes;
}

// A std::istream as a byte source; Remaining is taken from the stream's end.
class IStreamSource : public qk::CArchiveStream {
  public:
    explicit IStreamSource(std::istream &in) : m_in(in) {}
    size_t Read(void *buffer, size_t n) override {
        m_in.read(static_cast<char *>(buffer), static_cast<std::streamsize>(n));
        return static_cast<size_t>(m_in.gcount());
    }
    bool Write(const void *, size_t) override { return false; }
    int64_t Remaining() const override {
        const std::streampos pos = m_in.tellg();
        if (pos < 0) {
            return -1;
        }
        m_in.seekg(0, std::ios::end);
        const std::streampos end = m_in.tellg();
        m_in.seekg(pos);
        return end < 0 ? -1 : static_cast<int64_t>(end - pos);
    }

  private:
    std::istream &m_in;
};

// Everything a file holds, checked: the header, the raw tables and the raw samples.
struct FileContents {
    Header header;
    bool bShort = false;      // samples are 16-bit integers
    bool bKnownType = false;  // the sample type word is one the reader knows
    int64_t iSamples = 0;
    std::vector<uint8_t> abTables;
    std::vector<uint8_t> abSamples;  // empty for an unknown sample type
};

// Reads and checks a whole file; returns what is wrong with it, or an empty text. Nothing is
// allocated for tables or samples before the bytes that remain are known to hold them.
std::string readWhole(qk::CArchiveStream &source, bool bFromStream, FileContents &file) {
    char szMagic[kMagicSize + 1] = {};
    if (!readExactly(source, szMagic, kMagicSize) || std::strcmp(szMagic, kMagic) != 0) {
        return "Invalid QKHRTF file";
    }
    uint8_t abHeader[kHeaderBytes];
    if (!readExactly(source, abHeader, kHeaderBytes)) {
        return "Invalid QKHRTF file: it ends inside the header";
    }
    const Header &h = file.header = parseHeader(abHeader);
    if (const char *pcProblem = checkCounts(h.iChannels, h.iRate, h.iTaps, h.iMeasurements)) {
        return std::string("Invalid QKHRTF file: ") + pcProblem;
    }
    // From a stream the samples are floats whatever the word says.
    file.bShort = !bFromStream && std::strcmp(h.szDataType, "16s") == 0;
    file.bKnownType = bFromStream || file.bShort || std::strcmp(h.szDataType, "32f") == 0;
    file.iSamples = static_cast<int64_t>(h.iMeasurements) * h.iChannels * h.iTaps;
    const int64_t iSampleBytes = file.iSamples * (file.bShort ? 2 : 4);
    const int64_t iAfterTables = source.Remaining() - static_cast<int64_t>(2 * kTableBytes);
    if (iAfterTables < 0) {
        return "Invalid QKHRTF file: it ends inside the direction tables";
    }
    if (file.bKnownType &&
        (iAfterTables < iSampleBytes || file.iSamples > std::numeric_limits<int>::max())) {
        return "Invalid QKHRTF file: it holds fewer samples than its header declares";
    }
    file.abTables.resize(2 * kTableBytes);
    if (!readExactly(source, file.abTables.data(), file.abTables.size())) {
        return "Invalid QKHRTF file: it ends inside the direction tables";
    }
    if (file.bKnownType) {
        file.abSamples.resize(static_cast<size_t>(iSampleBytes));
        if (!readExactly(source, file.abSamples.data(), file.abSamples.size())) {
            return "Invalid QKHRTF file: it holds fewer samples than its header declares";
        }
    }
    return std::string();
}

// "16s": v / 32768; "32f": the floats as they are.
void decodeSamples(const FileContents &file, float *pf) {
    const uint8_t *p = file.abSamples.data();
    for (int64_t i = 0; i < file.iSamples; ++i) {
        if (file.bShort) {
            const auto v = static_cast<int16_t>(static_cast<uint16_t>(p[2 * i]) |
                                                (static_cast<uint16_t>(p[2 * i + 1]) << 8));
            pf[i] = static_cast<float>(v) * (1.0f / 32768.0f);
        } else {
            pf[i] = leFloat(p + 4 * i);
        }
    }
}
}  // namespace

int CHELPER_HRTF::Load(const std::string &strFileName) {
    if (m_pStream != nullptr) {
        m_pStream->clear();
        m_pStream->seekg(0);  // the stream is read from its start every time
        IStreamSource source(*m_pStream);
        return ReadFrom(source, true);
    }
    qk::CFileStream file;
    if (!file.Open(strFileName, false)) {
        return -1;  // the caller has looked for the file and says so itself
    }
    return ReadFrom(file, false);
}

int CHELPER_HRTF::Read(qk::CArchiveStream &source) {
    return ReadFrom(source, false);
}

// The named-file and the stream form differ on purpose: from a stream the rate goes to the
// file rate alone (the caller has set the rate it wants), and the samples are always floats,
// whatever the type word says.
int CHELPER_HRTF::ReadFrom(qk::CArchiveStream &source, bool bFromStream) {
    if (source.Remaining() < 0) {
        const std::vector<uint8_t> bytes = slurp(source);
        qk::CMemoryStream memory(bytes.data(), bytes.size());
        return ReadFrom(memory, bFromStream);
    }
    DropSpectra();  // made of the samples that go now
    m_pfData.Reset();
    FileContents file;
    const std::string strProblem = readWhole(source, bFromStream, file);
    if (!strProblem.empty()) {
        qk::Report(strProblem, kCaption, qk::Severity::Error);
        return -1;
    }

    // The file is whole: the header and the tables take effect.
    const Header &h = file.header;
    m_fVersion = h.fVersion;
    std::memcpy(m_szDescription, h.szDescription, sizeof(m_szDescription));
    std::memcpy(m_szType, h.szType, sizeof(m_szType));
    std::memcpy(m_szEars, h.szEars, sizeof(m_szEars));
    m_iChannels = h.iChannels;
    m_iFileRate = h.iRate;
    if (!bFromStream) {
        m_iSampleRate = h.iRate;
    }
    m_iFileTaps = h.iTaps;
    m_iTaps = h.iTaps;
    std::memcpy(m_szDataType, h.szDataType, sizeof(m_szDataType));
    m_iMeasurements = h.iMeasurements;
    readTable(file.abTables.data(), m_aiTableA);
    readTable(file.abTables.data() + kTableBytes, m_aiLookup);
    if (!file.bKnownType) {
        qk::Report("Invalid data type of QKHRTF file", kCaption, qk::Severity::Error);
        return -1;
    }
    m_pfData.Allocate(static_cast<int>(file.iSamples));
    decodeSamples(file, m_pfData.get());
    return 0;
}

// The rate and taps written are the ones in force (m_iSampleRate, m_iTaps). The samples
// written are exactly as many as the header declares: what the set holds, then zeros.
int CHELPER_HRTF::Write(qk::CArchiveStream &sink) {
    std::strcpy(m_szType, "FIR");
    if (const char *pcProblem = checkCounts(m_iChannels, m_iSampleRate, m_iTaps, m_iMeasurements)) {
        qk::Report(std::string("Invalid QKHRTF header: ") + pcProblem, kCaption,
                   qk::Severity::Error);
        return -1;
    }
    std::vector<uint8_t> out;
    out.reserve(kMagicSize + kHeaderBytes + 2 * kTableBytes);
    out.insert(out.end(), kMagic, kMagic + kMagicSize);
    putFloat(out, m_fVersion);
    putText(out, m_szDescription, sizeof(m_szDescription));
    putText(out, m_szType, sizeof(m_szType));
    putText(out, m_szEars, sizeof(m_szEars));
    putInt(out, m_iChannels);
    putInt(out, m_iSampleRate);
    putInt(out, m_iTaps);
    putText(out, m_szDataType, sizeof(m_szDataType));
    putInt(out, m_iMeasurements);
    for (const std::vector<int32_t> *table : {&m_aiTableA, &m_aiLookup}) {
        for (size_t i = 0; i < static_cast<size_t>(kDirections); ++i) {
            putInt(out, i < table->size() ? (*table)[i] : -1);
        }
    }

    const bool bShort = std::strcmp(m_szDataType, "16s") == 0;
    if (!bShort && std::strcmp(m_szDataType, "32f") != 0) {
        sink.Write(out.data(), out.size());
        qk::Report("Invalid data type of QKHRTF file", kCaption, qk::Severity::Error);
        return -1;
    }
    const int64_t iSamples = static_cast<int64_t>(m_iMeasurements) * m_iChannels * m_iTaps;
    out.reserve(out.size() + static_cast<size_t>(iSamples) * (bShort ? 2 : 4));
    const float *pf = m_pfData.get();
    for (int64_t i = 0; i < iSamples; ++i) {
        const float f = i < DataLength() ? pf[i] : 0.0f;
        if (bShort) {
            const auto u = static_cast<uint16_t>(toShort(f));
            out.push_back(static_cast<uint8_t>(u));
            out.push_back(static_cast<uint8_t>(u >> 8));
        } else {
            putFloat(out, f);
        }
    }
    return sink.Write(out.data(), out.size()) ? 0 : -1;
}

// Writes through a temporary beside the target, so that a failed write leaves the file
// that was there as it was.
int CHELPER_HRTF::Store(const std::string &strFileName) {
    qk::CMemoryStream memory;
    const int iResult = Write(memory);
    if (memory.Bytes().empty()) {
        return -1;
    }
    const std::string strTemp = strFileName + ".part";
    qk::CFileStream file;
    if (!file.Open(strTemp, true)) {
        qk::Report("Can't write the QKHRTF file " + strFileName, kCaption, qk::Severity::Error);
        return -1;
    }
    const bool bWritten = file.Write(memory.Bytes().data(), memory.Bytes().size());
    if (!file.Close() || !bWritten || std::rename(strTemp.c_str(), strFileName.c_str()) != 0) {
        std::remove(strTemp.c_str());
        qk::Report("Can't write the QKHRTF file " + strFileName, kCaption, qk::Severity::Error);
        return -1;
    }
    return iResult;
}
