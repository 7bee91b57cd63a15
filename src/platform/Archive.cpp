#include "platform/Archive.h"

#include <cstring>

#include "platform/Object.h"

namespace qk {

CMemoryStream::CMemoryStream(const void *data, size_t size)
    : m_pData(static_cast<const uint8_t *>(data)), m_size(data != nullptr ? size : 0) {}

size_t CMemoryStream::Read(void *buffer, size_t n) {
    const size_t count = std::min(n, m_size - m_pos);
    if (count > 0) {
        std::memcpy(buffer, m_pData + m_pos, count);
        m_pos += count;
    }
    return count;
}

bool CMemoryStream::Write(const void *buffer, size_t n) {
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    m_written.insert(m_written.end(), bytes, bytes + n);
    return true;
}

int64_t CMemoryStream::Remaining() const {
    return static_cast<int64_t>(m_size - m_pos);
}

CFileStream::~CFileStream() {
    Close();
}

bool CFileStream::Open(const std::string &path, bool bWrite) {
    Close();
    m_pFile = std::fopen(path.c_str(), bWrite ? "wb" : "rb");
    if (m_pFile == nullptr) {
        return false;
    }
    m_size = -1;
    if (!bWrite && std::fseek(m_pFile, 0, SEEK_END) == 0) {
        m_size = std::ftell(m_pFile);
        std::fseek(m_pFile, 0, SEEK_SET);
    }
    return true;
}

bool CFileStream::Close() {
    if (m_pFile == nullptr) {
        return true;
    }
    const bool ok = std::fclose(m_pFile) == 0;
    m_pFile = nullptr;
    return ok;
}

size_t CFileStream::Read(void *buffer, size_t n) {
    return m_pFile != nullptr ? std::fread(buffer, 1, n, m_pFile) : 0;
}

bool CFileStream::Write(const void *buffer, size_t n) {
    return m_pFile != nullptr && std::fwrite(buffer, 1, n, m_pFile) == n;
}

int64_t CFileStream::Remaining() const {
    if (m_pFile == nullptr || m_size < 0) {
        return -1;
    }
    const long pos = std::ftell(m_pFile);
    return pos < 0 ? -1 : m_size - pos;
}

bool CFileStream::Flush() {
    return m_pFile != nullptr && std::fflush(m_pFile) == 0;
}

void CArchive::Read(void *buffer, size_t n) {
    if (n == 0) {
        return;
    }
    if (m_stream.Read(buffer, n) != n) {
        throw CArchiveException(CArchiveException::endOfFile, "read past the end of the archive");
    }
}

void CArchive::Write(const void *buffer, size_t n) {
    if (n > 0 && !m_stream.Write(buffer, n)) {
        throw CArchiveException(CArchiveException::writeFailed, "archive write failed");
    }
}

void CArchive::WriteLE(uint64_t v, int bytes) {
    uint8_t buf[8];
    for (int i = 0; i < bytes; ++i) {
        buf[i] = static_cast<uint8_t>(v >> (8 * i));
    }
    Write(buf, static_cast<size_t>(bytes));
}

uint64_t CArchive::ReadLE(int bytes) {
    uint8_t buf[8] = {};
    Read(buf, static_cast<size_t>(bytes));
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) {
        v |= static_cast<uint64_t>(buf[i]) << (8 * i);
    }
    return v;
}

CArchive &CArchive::operator<<(int32_t v) {
    WriteLE(static_cast<uint32_t>(v), 4);
    return *this;
}
CArchive &CArchive::operator<<(uint32_t v) {
    WriteLE(v, 4);
    return *this;
}
CArchive &CArchive::operator<<(int16_t v) {
    WriteLE(static_cast<uint16_t>(v), 2);
    return *this;
}
CArchive &CArchive::operator<<(uint16_t v) {
    WriteLE(v, 2);
    return *this;
}
CArchive &CArchive::operator<<(uint8_t v) {
    WriteLE(v, 1);
    return *this;
}
CArchive &CArchive::operator<<(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    WriteLE(bits, 4);
    return *this;
}
CArchive &CArchive::operator<<(double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    WriteLE(bits, 8);
    return *this;
}

// The counted form: a byte below 0xFF; or 0xFF and a 16-bit length below 0xFFFF; or 0xFF,
// 0xFFFF and a 32-bit length.
CArchive &CArchive::operator<<(const std::string &s) {
    const size_t n = s.size();
    if (n < 0xFF) {
        WriteLE(n, 1);
    } else if (n < 0xFFFF) {
        WriteLE(0xFF, 1);
        WriteLE(n, 2);
    } else {
        WriteLE(0xFF, 1);
        WriteLE(0xFFFF, 2);
        WriteLE(n, 4);
    }
    Write(s.data(), n);
    return *this;
}

CArchive &CArchive::operator>>(int32_t &v) {
    v = static_cast<int32_t>(static_cast<uint32_t>(ReadLE(4)));
    return *this;
}
CArchive &CArchive::operator>>(uint32_t &v) {
    v = static_cast<uint32_t>(ReadLE(4));
    return *this;
}
CArchive &CArchive::operator>>(int16_t &v) {
    v = static_cast<int16_t>(static_cast<uint16_t>(ReadLE(2)));
    return *this;
}
CArchive &CArchive::operator>>(uint16_t &v) {
    v = static_cast<uint16_t>(ReadLE(2));
    return *this;
}
CArchive &CArchive::operator>>(uint8_t &v) {
    v = static_cast<uint8_t>(ReadLE(1));
    return *this;
}
CArchive &CArchive::operator>>(float &v) {
    const auto bits = static_cast<uint32_t>(ReadLE(4));
    std::memcpy(&v, &bits, sizeof v);
    return *this;
}
CArchive &CArchive::operator>>(double &v) {
    const uint64_t bits = ReadLE(8);
    std::memcpy(&v, &bits, sizeof v);
    return *this;
}

CArchive &CArchive::operator>>(std::string &s) {
    uint64_t n = ReadLE(1);
    if (n == 0xFF) {
        n = ReadLE(2);
        if (n == 0xFFFF) {
            n = ReadLE(4);
        }
    }
    // A length larger than what is left can't be real: refuse it before allocating.
    const int64_t remaining = m_stream.Remaining();
    if (remaining >= 0 && n > static_cast<uint64_t>(remaining)) {
        throw CArchiveException(CArchiveException::endOfFile,
                                "string longer than the rest of the archive");
    }
    std::string value;
    // Without a known size the string is read in pieces, so that a lying length fails at the
    // end of the data rather than with a huge allocation.
    constexpr size_t kPiece = 65536;
    while (value.size() < n) {
        const size_t piece = std::min<uint64_t>(kPiece, n - value.size());
        const size_t at = value.size();
        value.resize(at + piece);
        Read(&value[at], piece);
    }
    s = std::move(value);
    return *this;
}

void CArchive::WriteObject(CObject &object) {
    *this << std::string(object.GetRuntimeClassName());
    object.Serialize(*this);
}

std::unique_ptr<CObject> CArchive::ReadObject() {
    std::string name;
    *this >> name;
    std::unique_ptr<CObject> object = ClassRegistry::Create(name);
    if (!object) {
        throw CArchiveException(CArchiveException::badClass, "unknown class in archive: " + name);
    }
    object->Serialize(*this);
    return object;
}

void CArchive::Flush() {
    if (!m_stream.Flush()) {
        throw CArchiveException(CArchiveException::writeFailed, "archive flush failed");
    }
}

}  // namespace qk
