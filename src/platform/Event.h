// An event with manual or automatic reset, the hand-shake primitive between host threads and
// the engine thread.
#pragma once

#include <condition_variable>
#include <mutex>

namespace qk {

class CEvent {
  public:
    static constexpr unsigned kInfinite = 0xFFFFFFFFu;

    // bManualReset: a set event stays set until ResetEvent; otherwise one successful wait
    // clears it again.
    explicit CEvent(bool bInitiallyOwn = false, bool bManualReset = false);
    CEvent(const CEvent &) = delete;
    CEvent &operator=(const CEvent &) = delete;

    void SetEvent();
    void ResetEvent();

    // Waits until the event is set, at most dwTimeout ms (kInfinite: no limit). Returns true
    // when the event was set, false on time-out.
    bool Lock(unsigned dwTimeout = kInfinite);

    bool IsSet() const;

  private:
    mutable std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_bSet;
    const bool m_bManualReset;
};

}  // namespace qk
