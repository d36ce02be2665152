/**
 * @file ZelMonitor.h
 * @brief What the library's locks and events are made of.
 */
#ifndef QUORVEL_ZEL_MONITOR_H
#define QUORVEL_ZEL_MONITOR_H

#include "../QuorvelExport.h"

#include <condition_variable>
#include <mutex>

/**
 * A mutex and a condition variable that a forked child process finds free and without waiters, whatever the threads
 * of its parent were doing with them: those threads do not exist in the child.
 */
class QUORVEL_API CZelMonitor
{
  public:
    CZelMonitor() = default;
    ~CZelMonitor() { Renew(); } // a condition variable with waiters would wait for them
    CZelMonitor(const CZelMonitor&) = delete;
    CZelMonitor& operator=(const CZelMonitor&) = delete;

    /**
     * Locks the mutex.
     * @param fnForked called before, at the first call in a child process, to put right what it guards
     * @return the lock
     */
    template<class FForked>
    std::unique_lock<std::mutex> Lock(FForked fnForked)
    {
        if (Renew())
            fnForked();
        return std::unique_lock(m_oMutex);
    }

    /** The same with nothing to put right. */
    std::unique_lock<std::mutex> Lock()
    {
        return Lock([] {});
    }

    /** @return the condition variable */
    std::condition_variable& GetCondition() { return m_oCondition; }

    /** @return a number that differs in a child process from what its parent saw */
    static unsigned int GetForkCount();

  private:
    bool Renew();

    std::mutex m_oMutex;
    std::condition_variable m_oCondition;
    unsigned int m_nForks = GetForkCount();
};

#endif
