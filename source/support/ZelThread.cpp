#include "support/ZelThread.h"

#include "support/TraceServer.h"
#include "support/ZelMonitor.h"

#include <algorithm>
#include <exception>
#include <new>

CZelThread::~CZelThread()
{
    Terminate();
    WaitForEnd();
}

bool CZelThread::Initialize()
{
    return true;
}

bool CZelThread::Create()
{
    if (m_oThread.joinable() || !Initialize())
        return false;
    m_nForks = CZelMonitor::GetForkCount();
    try {
        m_oThread = std::thread([this] {
            try {
                Run();
            } catch (...) { // NOLINT(bugprone-empty-catch): must not end the process
            }
        });
    } catch (const std::exception&) { // no thread, or no memory for it
        return false;
    }
    return true;
}

void CZelThread::Terminate()
{
    m_oEventTerminate.Signal();
}

bool CZelThread::IsTerminating()
{
    return m_oEventTerminate.Wait(0);
}

void CZelThread::WaitForEnd()
{
    if (!m_oThread.joinable())
        return;
    if (m_nForks != CZelMonitor::GetForkCount()) { // a thread of the parent process, not to be waited for
        new (&m_oThread) std::thread;
        return;
    }
    const CTraceServer::CWaitInSink oWait(m_oThread.get_id());
    m_oThread.join();
}

void CZelThread::Sleep(unsigned int nSeconds, unsigned int nMilliSeconds)
{
    constexpr unsigned long long LONGEST = 0xFFFFFFFE; // one more would be without end
    m_oEventTerminate.Wait(static_cast<unsigned int>(std::min(nSeconds * 1000ULL + nMilliSeconds, LONGEST)));
}
