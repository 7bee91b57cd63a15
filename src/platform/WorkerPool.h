// Threads that share the work of one block with the engine thread: Run hands out the indices
// 0 .. count-1 to the workers and to the calling thread, and returns when every index is done.
// Which thread takes which index is left to chance, so work given out this way must not
// depend on it. Workers sleep while nothing is given out. Run allocates nothing.
//
// The calling thread takes whatever the workers haven't claimed, but an index a worker has
// claimed waits for that worker. On a machine whose cores other processes also use, a worker
// is now and then taken off its core in the middle of an index, and the caller waits for it
// far longer than the worker saved it. When that happens in several Runs in a row, the
// workers sit out the next Runs, which the caller then does alone, and are tried again after
// them.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace qk {

class CWorkerPool {
  public:
    using Task = void (*)(void *context, int index);

    // A pool of iThreads threads in all, the caller of Run counted: iThreads - 1 workers.
    explicit CWorkerPool(int iThreads);
    ~CWorkerPool();
    CWorkerPool(const CWorkerPool &) = delete;
    CWorkerPool &operator=(const CWorkerPool &) = delete;

    // Calls task(context, i) once for each i in 0 .. iCount-1, on the workers and on the
    // calling thread, and returns when all calls have returned. One Run at a time.
    void Run(int iCount, Task task, void *context);
    int Threads() const { return static_cast<int>(m_workers.size()) + 1; }
    // Runs that the caller did alone because the workers sat out; for the benchmarks.
    long RunsAlone() const { return m_lRunsAlone; }

    // The default count: QK_THREADS when it names one (1 to 64), else the machine's cores.
    static int DefaultThreads();

  private:
    void Work();
    // Takes indices of Run `generation` until none are left.
    void TakeIndices(unsigned generation, Task task, void *context, int count);

    std::vector<std::thread> m_workers;
    std::mutex m_mutex;
    std::condition_variable m_wake;  // a new Run, or the end
    std::condition_variable m_done;  // the last index of a Run is done
    // Under m_mutex: the Run given out last, and what it asks.
    unsigned m_uGeneration = 0;
    bool m_bQuit = false;
    Task m_task = nullptr;
    void *m_pContext = nullptr;
    int m_iCount = 0;
    // The next index, tagged with its Run in the high word, so that a worker that wakes late
    // can never take an index of a later Run.
    std::atomic<unsigned long long> m_next{0};
    std::atomic<int> m_iLeft{0};         // indices of the current Run not yet done
    std::atomic<unsigned> m_uPosted{0};  // m_uGeneration, for the workers' spin
    // On the calling thread only: Runs in a row in which the caller waited for the workers
    // longer than a quarter of its own share, and Runs the workers still sit out.
    int m_iStrikes = 0;
    int m_iSitOut = 0;
    long m_lRunsAlone = 0;
};

}  // namespace qk
