#include "support/ZelMutex.h"

#include <chrono>

bool CZelMutex::Lock(unsigned int nTimeout)
{
    const std::thread::id oSelf = std::this_thread::get_id();
    std::unique_lock oLock(m_oMutex);
    const auto fnFree = [&] { return m_nDepth == 0 || m_oOwner == oSelf; };
    if (!fnFree()) {
        if (nTimeout == 0xFFFFFFFFU)
            m_oCondition.wait(oLock, fnFree);
        else if (!m_oCondition.wait_until(
                     oLock, std::chrono::steady_clock::now() + std::chrono::milliseconds(nTimeout), fnFree))
            return false;
    }
    m_oOwner = oSelf;
    ++m_nDepth;
    return true;
}

void CZelMutex::Unlock()
{
    const std::lock_guard oLock(m_oMutex);
    if (m_nDepth == 0 || m_oOwner != std::this_thread::get_id())
        return;
    if (--m_nDepth == 0) {
        m_oOwner = std::thread::id();
        m_oCondition.notify_one();
    }
}

void CZelTurn::Enter()
{
    std::unique_lock oLock(m_oMutex);
    const unsigned int nMine = m_nNext++;
    m_oCondition.wait(oLock, [&] { return m_nServed == nMine; });
}

void CZelTurn::Leave()
{
    const std::lock_guard oLock(m_oMutex);
    ++m_nServed;
    m_oCondition.notify_all();
}
