#include "support/ZelMonitor.h"

#include <atomic>
#include <new>

#include <pthread.h>

namespace
{

std::atomic<unsigned int> s_nForks{0};

[[maybe_unused]] const int REGISTERED = pthread_atfork(nullptr, nullptr, [] { ++s_nForks; });

} // namespace

unsigned int CZelMonitor::GetForkCount()
{
    return s_nForks.load(std::memory_order_relaxed);
}

bool CZelMonitor::Renew()
{
    if (m_nForks == GetForkCount())
        return false;
    // Made anew without being destroyed: that would wait for threads that are not there.
    new (&m_oMutex) std::mutex;
    new (&m_oCondition) std::condition_variable;
    m_nForks = GetForkCount();
    return true;
}
