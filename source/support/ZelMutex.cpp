#include "support/ZelMutex.h"

#include <chrono>

std::unique_lock<std::mutex> CZelMutex::LockMonitor()
{
    return m_oMonitor.Lock([this] {
        if (m_oOwner != std::this_thread::get_id()) // held by a thread of the parent
            m_nDepth = 0;
    });
}

bool CZelMutex::Lock(unsigned int nTimeout)
{
    const std::thread::id oSelf = std::this_thread::get_id();
    std::unique_lock oLock = LockMonitor();
    const auto fnFree = [&] { return m_nDepth == 0 || m_oOwner == oSelf; };
    if (!fnFree()) {
        if (nTimeout == 0xFFFFFFFFU)
            m_oMonitor.GetCondition().wait(oLock, fnFree);
        else if (!m_oMonitor.GetCondition().wait_until(
                     oLock, std::chrono::steady_clock::now() + std::chrono::milliseconds(nTimeout), fnFree))
            return false;
    }
    m_oOwner = oSelf;
    ++m_nDepth;
    return true;
}

void CZelMutex::Unlock()
{
    const std::unique_lock oLock = LockMonitor();
    if (m_nDepth == 0 || m_oOwner != std::this_thread::get_id())
        return;
    if (--m_nDepth == 0) {
        m_oOwner = std::thread::id();
        m_oMonitor.GetCondition().notify_one();
    }
}

std::unique_lock<std::mutex> CZelTurn::LockMonitor()
{
    return m_oMonitor.Lock([this] {
        if (m_oOwner != std::this_thread::get_id()) // the turn of a thread of the parent
            m_nDepth = 0;
        m_nNext = m_nServed + (m_nDepth > 0 ? 1 : 0); // and nobody waits
    });
}

void CZelTurn::Enter()
{
    const std::thread::id oSelf = std::this_thread::get_id();
    std::unique_lock oLock = LockMonitor();
    if (m_nDepth == 0 || m_oOwner != oSelf) {
        const unsigned int nMine = m_nNext++;
        m_oMonitor.GetCondition().wait(oLock, [&] { return m_nServed == nMine; });
        m_oOwner = oSelf;
    }
    ++m_nDepth;
}

void CZelTurn::Leave()
{
    const std::unique_lock oLock = LockMonitor();
    if (--m_nDepth > 0)
        return;
    ++m_nServed;
    m_oMonitor.GetCondition().notify_all();
}
