#include "support/ZelThread.h"

#include <algorithm>
#include <exception>

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
    if (m_oThread.joinable())
        m_oThread.join();
}

void CZelThread::Sleep(unsigned int nSeconds, unsigned int nMilliSeconds)
{
    constexpr unsigned long long LONGEST = 0xFFFFFFFE; // one more would be without end
    m_oEventTerminate.Wait(static_cast<unsigned int>(std::min(nSeconds * 1000ULL + nMilliSeconds, LONGEST)));
}
