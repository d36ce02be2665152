/**
 * @file ZelMutex.h
 * @brief Mutual exclusion with a time-out, and in turn.
 */
#ifndef QUORVEL_ZEL_MUTEX_H
#define QUORVEL_ZEL_MUTEX_H

#include "../QuorvelExport.h"
#include "ZelMonitor.h"

#include <mutex>
#include <thread>

/**
 * A recursive mutex whose lock may be given up after a time.
 *
 * The thread that holds it may lock it again and unlocks it as many times. Time-outs are measured on the
 * steady clock.
 */
class QUORVEL_API CZelMutex
{
  public:
    CZelMutex() = default;
    CZelMutex(const CZelMutex&) = delete;
    CZelMutex& operator=(const CZelMutex&) = delete;

    /**
     * Locks the mutex.
     * @param nTimeout milliseconds; 0xFFFFFFFF waits without limit
     * @return true when the mutex is held, false when the time is over
     */
    bool Lock(unsigned int nTimeout);

    /** Gives the mutex back. Only the thread that holds it may call this; from any other it does nothing. */
    void Unlock();

  private:
    std::unique_lock<std::mutex> LockMonitor();

    CZelMonitor m_oMonitor;
    std::thread::id m_oOwner;
    unsigned int m_nDepth = 0;
};

/** Holds a CZelMutex for the length of a block. */
class CZelLock
{
  public:
    /**
     * Locks without limit.
     * @param oMutex the mutex, which must outlive the lock
     */
    explicit CZelLock(CZelMutex& oMutex) : m_oMutex(oMutex) { m_oMutex.Lock(0xFFFFFFFFU); }
    ~CZelLock() { m_oMutex.Unlock(); }
    CZelLock(const CZelLock&) = delete;
    CZelLock& operator=(const CZelLock&) = delete;

  private:
    CZelMutex& m_oMutex;
};

/**
 * Lets threads through one at a time, in the order in which they came, so that none starves. The thread whose turn it
 * is may enter again, and leaves as many times.
 */
class QUORVEL_API CZelTurn
{
  public:
    CZelTurn() = default;
    CZelTurn(const CZelTurn&) = delete;
    CZelTurn& operator=(const CZelTurn&) = delete;

    /** Waits, without limit, until all who came before have left. */
    void Enter();

    /** Lets the next one through, when called as often as Enter. Only the thread whose turn it is may call this. */
    void Leave();

  private:
    std::unique_lock<std::mutex> LockMonitor();

    CZelMonitor m_oMonitor;
    std::thread::id m_oOwner; // whose turn it is
    unsigned int m_nDepth = 0;
    unsigned int m_nNext = 0;
    unsigned int m_nServed = 0;
};

/** Has one's turn for the length of a block. */
class CZelMyTurn
{
  public:
    /**
     * Waits for the turn.
     * @param oTurn what to pass, which must outlive this object
     */
    explicit CZelMyTurn(CZelTurn& oTurn) : m_oTurn(oTurn) { m_oTurn.Enter(); }
    ~CZelMyTurn() { m_oTurn.Leave(); }
    CZelMyTurn(const CZelMyTurn&) = delete;
    CZelMyTurn& operator=(const CZelMyTurn&) = delete;

  private:
    CZelTurn& m_oTurn;
};

#endif
