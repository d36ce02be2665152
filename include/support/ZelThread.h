/**
 * @file ZelThread.h
 * @brief A thread as a class to derive from.
 */
#ifndef QUORVEL_ZEL_THREAD_H
#define QUORVEL_ZEL_THREAD_H

#include "ZelEvent.h"

#include <thread>

/**
 * A thread that runs a derived class's Run.
 *
 * A derived class whose Run uses its own members calls Terminate and WaitForEnd in its destructor; by the
 * time the base destructor joins, those members are gone.
 */
class QUORVEL_API CZelThread
{
  public:
    CZelThread() = default;
    /** Asks the thread to end and joins it. */
    virtual ~CZelThread();
    CZelThread(const CZelThread&) = delete;
    CZelThread& operator=(const CZelThread&) = delete;

    /** The thread's work; runs once, on the new thread. An exception that leaves it ends the thread quietly.
     */
    virtual void Run() = 0;

    /**
     * Runs on the creating thread, before the thread starts.
     * @return false to keep the thread from starting
     */
    virtual bool Initialize();

    /**
     * Starts Run on a new thread.
     * @return false when the thread is already created, Initialize refuses or the system has no thread left
     */
    bool Create();

    /** Asks the thread to end: wakes Sleep and makes IsTerminating true, for good. Does not wait. */
    void Terminate();

    /** @return true once Terminate was called */
    bool IsTerminating();

    /** Waits until Run has returned. Does nothing when the thread was never created. */
    void WaitForEnd();

    /**
     * Pauses the calling thread, at most until Terminate is called.
     * @param nSeconds      whole seconds
     * @param nMilliSeconds milliseconds, added; together at most 49 days
     */
    void Sleep(unsigned int nSeconds, unsigned int nMilliSeconds);

  private:
    std::thread m_oThread;
    unsigned int m_nForks = 0; // when the thread was created
    CZelEvent m_oEventTerminate;
};

#endif
