#include "platform/WorkerPool.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>

namespace qk {

namespace {
constexpr std::chrono::microseconds kSpin(50);
// Runs in a row with a long wait for the workers before they sit out, and how many Runs
// they then sit out (a few dozen blocks; the trial that follows costs little).
constexpr int kStrikes = 3;
constexpr int kSitOut = 64;
}  // namespace

CWorkerPool::CWorkerPool(int iThreads) {
    const int workers = std::max(0, std::min(iThreads, 64) - 1);
    m_workers.reserve(static_cast<size_t>(workers));
    for (int i = 0; i < workers; ++i) {
        m_workers.emplace_back([this] { Work(); });
    }
}

CWorkerPool::~CWorkerPool() {
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_bQuit = true;
    }
    m_wake.notify_all();
    for (std::thread &worker : m_workers) {
        worker.join();
    }
}

int CWorkerPool::DefaultThreads() {
    if (const char *text = std::getenv("QK_THREADS")) {
        const int count = std::atoi(text);
        if (count >= 1 && count <= 64) {
            return count;
        }
    }
    return static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

void CWorkerPool::TakeIndices(unsigned generation, Task task, void *context, int count) {
    for (;;) {
        unsigned long long v = m_next.load(std::memory_order_acquire);
        do {
            if ((v >> 32) != generation || static_cast<int>(v & 0xFFFFFFFFu) >= count) {
                return;
            }
        } while (!m_next.compare_exchange_weak(v, v + 1, std::memory_order_acq_rel));
        task(context, static_cast<int>(v & 0xFFFFFFFFu));
        if (m_iLeft.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            std::lock_guard<std::mutex> guard(m_mutex);  // so the wait can't miss it
            m_done.notify_all();
        }
    }
}

void CWorkerPool::Work() {
    unsigned seen = 0;
    for (;;) {
        Task task = nullptr;
        void *context = nullptr;
        int count = 0;
        // The phases of a block follow each other within microseconds: a short spin catches
        // the next one without the sleep and wake of the condition variable. Yielding, so
        // that on a busy machine the spin gives its core away.
        const auto spinUntil = std::chrono::steady_clock::now() + kSpin;
        while (m_uPosted.load(std::memory_order_acquire) == seen &&
               std::chrono::steady_clock::now() < spinUntil) {
            std::this_thread::yield();
        }
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [&] { return m_bQuit || m_uGeneration != seen; });
            if (m_bQuit) {
                return;
            }
            seen = m_uGeneration;
            task = m_task;
            context = m_pContext;
            count = m_iCount;
        }
        TakeIndices(seen, task, context, count);
    }
}

void CWorkerPool::Run(int iCount, Task task, void *context) {
    if (iCount < 1) {
        return;
    }
    if (m_workers.empty() || iCount == 1 || m_iSitOut > 0) {
        if (m_iSitOut > 0 && iCount > 1) {
            --m_iSitOut;
            ++m_lRunsAlone;
        }
        for (int i = 0; i < iCount; ++i) {
            task(context, i);
        }
        return;
    }
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    unsigned generation = 0;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        generation = ++m_uGeneration;
        m_uPosted.store(generation, std::memory_order_release);
        m_task = task;
        m_pContext = context;
        m_iCount = iCount;
        m_iLeft.store(iCount, std::memory_order_relaxed);
        m_next.store(static_cast<unsigned long long>(generation) << 32, std::memory_order_release);
    }
    m_wake.notify_all();
    TakeIndices(generation, task, context, iCount);
    const auto ownDone = Clock::now();
    const auto spinUntil = ownDone + kSpin;
    while (m_iLeft.load(std::memory_order_acquire) != 0 && Clock::now() < spinUntil) {
        std::this_thread::yield();
    }
    if (m_iLeft.load(std::memory_order_acquire) != 0) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_done.wait(lock, [this] { return m_iLeft.load(std::memory_order_acquire) == 0; });
    }
    // A wait for the workers beyond a quarter of the caller's own share means they cost more
    // than they gave; a few such Runs in a row and they sit out for a while.
    const auto waited = Clock::now() - ownDone;
    if (waited * 4 > ownDone - start && waited > kSpin) {
        if (++m_iStrikes >= kStrikes) {
            m_iStrikes = 0;
            m_iSitOut = kSitOut;
        }
    } else {
        m_iStrikes = 0;
    }
}

}  // namespace qk
