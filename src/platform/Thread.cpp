#include "platform/Thread.h"

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

void CWinThread::PostThreadMessage(unsigned message, uintptr_t wParam, intptr_t lParam) {
    {
        std::lock_guard<std::mutex> guard(m_queueMutex);
        m_queue.push_back(ThreadMessage{message, wParam, lParam});
    }
    m_queueCv.notify_one();
}

bool CWinThread::PeekMessage() const {
    std::lock_guard<std::mutex> guard(m_queueMutex);
    return !m_queue.empty();
}

bool CWinThread::WaitForMessage(std::chrono::steady_clock::time_point until) const {
    std::unique_lock<std::mutex> lock(m_queueMutex);
    return m_queueCv.wait_until(lock, until, [this] { return !m_queue.empty(); });
}

bool CWinThread::PumpMessage() {
    ThreadMessage msg;
    {
        std::unique_lock<std::mutex> lock(m_queueMutex);
        m_queueCv.wait(lock, [this] { return !m_queue.empty(); });
        msg = m_queue.front();
        m_queue.pop_front();
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
