#include "support/ZelEvent.h"

#include <chrono>

namespace
{

constexpr unsigned int INFINITE_TIMEOUT = 0xFFFFFFFFU;

template<class TCondition>
bool WaitFor(std::condition_variable& oVariable, std::unique_lock<std::mutex>& oLock, unsigned int nTimeout,
             TCondition fnCondition)
{
    if (nTimeout == INFINITE_TIMEOUT) {
        oVariable.wait(oLock, fnCondition);
        return true;
    }
    return oVariable.wait_until(oLock, std::chrono::steady_clock::now() + std::chrono::milliseconds(nTimeout),
                                fnCondition);
}

} // namespace

void CZelEvent::Signal()
{
    const std::unique_lock oLock = m_oMonitor.Lock();
    m_bSignalled = true;
    ++m_nCount;
    m_oMonitor.GetCondition().notify_all();
}

void CZelEvent::Reset()
{
    const std::unique_lock oLock = m_oMonitor.Lock();
    m_bSignalled = false;
}

bool CZelEvent::Wait(unsigned int nTimeout)
{
    std::unique_lock oLock = m_oMonitor.Lock();
    return WaitFor(m_oMonitor.GetCondition(), oLock, nTimeout, [this] { return m_bSignalled; });
}

bool CZelEvent::WaitBeyond(unsigned int nCount, unsigned int nTimeout)
{
    std::unique_lock oLock = m_oMonitor.Lock();
    return WaitFor(m_oMonitor.GetCondition(), oLock, nTimeout, [this, nCount] { return m_nCount != nCount; });
}
