#include "platform/Thread.h"

#include <algorithm>

#include <pthread.h>
#include <sched.h>

namespace qk {

CWinThread::~CWinThread() {
    Join();
}

bool CWinThread::CreateThread(bool bRealTime) {
    if (m_thread.joinable()) {
        return false;
    }
    m_thread = std::thread([this] { ThreadMain(); });
    if (bRealTime) {
        sched_param param{};
        param.sched_priority = sched_get_priority_min(SCHED_FIFO) + 10;
        // Refused without the right to real-time scheduling: the thread keeps its priority.
        (void)pthread_setschedparam(m_thread.native_handle(), SCHED_FIFO, &param);
    }
    return true;
}

void CWinThread::Join() {
    if (m_thread.joinable() && m_thread.get_id() != std::this_thread::get_id()) {
        m_thread.join();
    }
}

void CWinThread::ThreadMain() {
    m_threadId.store(std::this_thread::get_id(), std::memory_order_relaxed);
    if (InitInstance()) {
        Run();
    } else {
        ExitInstance();
    }
}

void CWinThread::Push(const ThreadMessage &msg) {
    if (m_count == m_ring.size()) {
        std::vector<ThreadMessage> grown(std::max<size_t>(16, 2 * m_ring.size()));
        for (size_t i = 0; i < m_count; ++i) {
            grown[i] = m_ring[(m_head + i) % m_ring.size()];
        }
        m_ring.swap(grown);
        m_head = 0;
    }
    m_ring[(m_head + m_count) % m_ring.size()] = msg;
    ++m_count;
}

ThreadMessage CWinThread::Pop() {
    const ThreadMessage msg = m_ring[m_head];
    m_head = (m_head + 1) % m_ring.size();
    --m_count;
    return msg;
}

void CWinThread::PostThreadMessage(unsigned message, uintptr_t wParam, intptr_t lParam) {
    {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        Push(ThreadMessage{message, wParam, lParam});
    }
    m_queueCv.notify_one();
}

bool CWinThread::PeekMessage() const {
    std::lock_guard<std::mutex> guard(m_queueMutex);
    return m_count != 0;
}

bool CWinThread::WaitForMessage(std::chrono::steady_clock::time_point until) const {
    std::unique_lock<std::mutex> lock(m_queueMutex);
    return m_queueCv.wait_until(lock, until, [this] { return m_count != 0; });
}

bool CWinThread::PumpMessage() {
    ThreadMessage msg;
    {
        std::unique_lock<std::mutex> lock(m_queueMutex);
        m_queueCv.wait(lock, [this] { return m_count != 0; });
        msg = Pop();
    }
    if (msg.message == kMsgQuit) {
        return false;
    }
    OnThreadMessage(msg);
    return true;
}

int CWinThread::Run() {
    while (PumpMessage()) {
    }
    return ExitInstance();
}

}  // namespace qk
