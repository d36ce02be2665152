/**
 * @file ZelEvent.h
 * @brief An event that threads wait for.
 */
#ifndef QUORVEL_ZEL_EVENT_H
#define QUORVEL_ZEL_EVENT_H

#include "../QuorvelExport.h"
#include "ZelMonitor.h"

#include <atomic>

/**
 * An event: signalled by one thread, waited for by others. It stays signalled until Reset.
 *
 * Time-outs are measured on the steady clock: setting the system clock neither hangs nor ends a wait.
 * All functions may be called from any thread.
 */
class QUORVEL_API CZelEvent
{
  public:
    CZelEvent() = default;
    CZelEvent(const CZelEvent&) = delete;
    CZelEvent& operator=(const CZelEvent&) = delete;

    /** Signals the event and wakes every waiter. */
    void Signal();

    /** Takes the signal back. */
    void Reset();

    /**
     * Waits until the event is signalled.
     * @param nTimeout milliseconds; 0xFFFFFFFF waits without limit
     * @return true when signalled, false when the time is over
     */
    bool Wait(unsigned int nTimeout);

    /**
     * The number of signals so far, to be handed to WaitBeyond.
     *
     * A thread that takes the number, looks for what it needs and then waits beyond the number cannot lose a
     * wake-up, even when others reset the event meanwhile.
     * @return the count, which wraps
     */
    unsigned int GetSignalCount() const { return m_nCount; }

    /**
     * Waits until the event has been signalled again since GetSignalCount gave nCount.
     * @param nCount   what GetSignalCount returned
     * @param nTimeout milliseconds; 0xFFFFFFFF waits without limit
     * @return true when signalled, false when the time is over
     */
    bool WaitBeyond(unsigned int nCount, unsigned int nTimeout);

  private:
    CZelMonitor m_oMonitor;
    std::atomic<unsigned int> m_nCount{0}; // changes with the mutex held
    bool m_bSignalled = false;
};

#endif
