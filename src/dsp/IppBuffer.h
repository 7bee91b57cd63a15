// An owned block of floats from ippsMalloc_32f, released with ippsFree. It converts to a plain
// float pointer, so that the block path reads and writes it like the arrays it replaces.
#pragma once

#include <cstring>
#include <utility>

#include "dsp/ipps.h"

class CIppBuffer {
  public:
    CIppBuffer() = default;
    explicit CIppBuffer(int len) { Allocate(len); }
    ~CIppBuffer() { Reset(); }
    CIppBuffer(const CIppBuffer &) = delete;
    CIppBuffer &operator=(const CIppBuffer &) = delete;
    CIppBuffer(CIppBuffer &&other) noexcept
        : m_pData(std::exchange(other.m_pData, nullptr)),
          m_iLength(std::exchange(other.m_iLength, 0)) {}
    CIppBuffer &operator=(CIppBuffer &&other) noexcept {
        if (this != &other) {
            Reset();
            m_pData = std::exchange(other.m_pData, nullptr);
            m_iLength = std::exchange(other.m_iLength, 0);
        }
        return *this;
    }

    // Replaces the block by len floats whose values are undefined (none for len < 1).
    void Allocate(int len) {
        Reset();
        m_pData = ippsMalloc_32f(len);
        m_iLength = m_pData != nullptr ? len : 0;
    }
    // Replaces the block by len zeros.
    void AllocateZeroed(int len) {
        Allocate(len);
        if (m_pData != nullptr) {
            std::memset(m_pData, 0, sizeof(float) * static_cast<size_t>(m_iLength));
        }
    }
    void Reset() {
        ippsFree(m_pData);
        m_pData = nullptr;
        m_iLength = 0;
    }

    float *get() const { return m_pData; }
    operator float *() const { return m_pData; }  // NOLINT(google-explicit-constructor)
    int size() const { return m_iLength; }

  private:
    float *m_pData = nullptr;
    int m_iLength = 0;
};

// For the float *& arrays handed between objects: frees one from ippsMalloc_32f and nulls it.
inline void FreeIppArray(float *&pf) {
    ippsFree(pf);
    pf = nullptr;
}

// A new ippsMalloc_32f copy of iLength floats (null for iLength < 1).
inline float *CopyIppArray(const float *pfSource, int iLength) {
    float *pf = ippsMalloc_32f(iLength);
    if (pf != nullptr) {
        std::memcpy(pf, pfSource, sizeof(float) * static_cast<size_t>(iLength));
    }
    return pf;
}
