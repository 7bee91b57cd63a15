// A word written by one thread and read by another without a lock: a setting, a position, a
// flag. Loads and stores are atomic with relaxed order, so that a reader sees each value
// whole, without ordering anything else; it reads and writes like the plain value.
#pragma once

#include <atomic>

namespace qk {

template <typename T>
class Relaxed {
  public:
    Relaxed(T value = T()) : m_value(value) {}  // NOLINT(google-explicit-constructor)
    Relaxed(const Relaxed &other) : m_value(other.load()) {}
    Relaxed &operator=(const Relaxed &other) {
        store(other.load());
        return *this;
    }
    Relaxed &operator=(T value) {
        store(value);
        return *this;
    }
    operator T() const { return load(); }  // NOLINT(google-explicit-constructor)

    T load() const { return m_value.load(std::memory_order_relaxed); }
    void store(T value) { m_value.store(value, std::memory_order_relaxed); }

  private:
    std::atomic<T> m_value;
};

}  // namespace qk
