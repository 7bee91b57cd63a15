// The binary archive of the system's files: little-endian 32-bit ints and floats, strings as
// a counted byte sequence. A read past the end of the data, or data that can't be what it
// claims, throws CArchiveException; it is caught at the facade and never crosses it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace qk {

class CObject;

class CArchiveException : public std::runtime_error {
  public:
    enum Cause { endOfFile, badData, badClass, writeFailed };
    CArchiveException(Cause cause, const std::string &what)
        : std::runtime_error(what), m_cause(cause) {}
    Cause GetCause() const { return m_cause; }

  private:
    Cause m_cause;
};

// Where an archive's bytes come from or go to.
class CArchiveStream {
  public:
    virtual ~CArchiveStream() = default;
    // Reads up to n bytes; returns how many were read.
    virtual size_t Read(void *buffer, size_t n) = 0;
    // Writes n bytes; false when they could not all be written.
    virtual bool Write(const void *buffer, size_t n) = 0;
    // Bytes left to read, or -1 when unknown.
    virtual int64_t Remaining() const = 0;
    virtual bool Flush() { return true; }
};

// Reads from bytes in memory (not owned) or writes into a growing buffer.
class CMemoryStream : public CArchiveStream {
  public:
    CMemoryStream() = default;                     // for writing
    CMemoryStream(const void *data, size_t size);  // for reading
    size_t Read(void *buffer, size_t n) override;
    bool Write(const void *buffer, size_t n) override;
    int64_t Remaining() const override;
    const std::vector<uint8_t> &Bytes() const { return m_written; }

  private:
    const uint8_t *m_pData = nullptr;
    size_t m_size = 0;
    size_t m_pos = 0;
    std::vector<uint8_t> m_written;
};

// A file opened for reading ("rb") or writing ("wb"); closed by the destructor.
class CFileStream : public CArchiveStream {
  public:
    CFileStream() = default;
    ~CFileStream() override;
    CFileStream(const CFileStream &) = delete;
    CFileStream &operator=(const CFileStream &) = delete;

    bool Open(const std::string &path, bool bWrite);
    bool IsOpen() const { return m_pFile != nullptr; }
    // Closes the file; false when buffered data could not be written.
    bool Close();
    size_t Read(void *buffer, size_t n) override;
    bool Write(const void *buffer, size_t n) override;
    int64_t Remaining() const override;
    bool Flush() override;

  private:
    std::FILE *m_pFile = nullptr;
    int64_t m_size = -1;
};

class CArchive {
  public:
    enum Mode { load, store };
    CArchive(CArchiveStream &stream, Mode mode) : m_stream(stream), m_mode(mode) {}

    bool IsLoading() const { return m_mode == load; }
    bool IsStoring() const { return m_mode == store; }

    CArchive &operator<<(int32_t v);
    CArchive &operator<<(uint32_t v);
    CArchive &operator<<(int16_t v);
    CArchive &operator<<(uint16_t v);
    CArchive &operator<<(uint8_t v);
    CArchive &operator<<(float v);
    CArchive &operator<<(double v);
    CArchive &operator<<(const std::string &s);

    CArchive &operator>>(int32_t &v);
    CArchive &operator>>(uint32_t &v);
    CArchive &operator>>(int16_t &v);
    CArchive &operator>>(uint16_t &v);
    CArchive &operator>>(uint8_t &v);
    CArchive &operator>>(float &v);
    CArchive &operator>>(double &v);
    CArchive &operator>>(std::string &s);

    // Raw bytes. Read throws at the end of the data.
    void Read(void *buffer, size_t n);
    void Write(const void *buffer, size_t n);
    // Bytes left to read, or -1 when the stream can't tell.
    int64_t Remaining() const { return m_stream.Remaining(); }

    // A polymorphic object: its class name, then its Serialize.
    void WriteObject(CObject &object);
    std::unique_ptr<CObject> ReadObject();

    // Writes what is buffered; throws writeFailed when that fails.
    void Flush();

  private:
    void WriteLE(uint64_t v, int bytes);
    uint64_t ReadLE(int bytes);

    CArchiveStream &m_stream;
    Mode m_mode;
};

// The version word every serialisable class writes after its base: 1.0 when storing; read
// and ignored when loading.
inline void SerializeVersion(CArchive &ar) {
    if (ar.IsStoring()) {
        ar << 1.0f;
    } else {
        float version = 0.0f;
        ar >> version;
    }
}

}  // namespace qk
