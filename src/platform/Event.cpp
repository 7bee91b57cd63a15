#include "platform/Event.h"

#include <chrono>

namespace qk {

CEvent::CEvent(bool bInitiallyOwn, bool bManualReset)
    : m_bSet(bInitiallyOwn), m_bManualReset(bManualReset) {}

void CEvent::SetEvent() {
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_bSet = true;
    }
    if (m_bManualReset) {
        m_cv.notify_all();
    } else {
        m_cv.notify_one();
    }
}

void CEvent::ResetEvent() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_bSet = false;
}

bool CEvent::Lock(unsigned dwTimeout) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto isSet = [this] { return m_bSet; };
    if (dwTimeout == kInfinite) {
        m_cv.wait(lock, isSet);
    } else if (!m_cv.wait_for(lock, std::chrono::milliseconds(dwTimeout), isSet)) {
        return false;
    }
    if (!m_bManualReset) {
        m_bSet = false;
    }
    return true;
}

bool CEvent::IsSet() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_bSet;
}

}  // namespace qk
