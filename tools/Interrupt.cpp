#include "Interrupt.h"

#include <csignal>
#include <unistd.h>

namespace
{

constexpr int SIGNAL_END = SIGUSR1; // ends the watching thread

sigset_t Signals()
{
    sigset_t oSignals;
    ::sigemptyset(&oSignals);
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP, SIGNAL_END})
        ::sigaddset(&oSignals, nSignal);
    return oSignals;
}

} // namespace

void CInterrupt::Start()
{
    const sigset_t oSignals = Signals();
    ::pthread_sigmask(SIG_BLOCK, &oSignals, nullptr);
    m_oThread = std::thread(&CInterrupt::Watch, this);
}

CInterrupt::~CInterrupt()
{
    if (!m_oThread.joinable())
        return;
    {
        const std::lock_guard oLock(m_oMutex);
        m_bEnd = true;
    }
    m_oCondition.notify_all();
    ::pthread_kill(m_oThread.native_handle(), SIGNAL_END);
    m_oThread.join();
}

bool CInterrupt::Wait(std::chrono::nanoseconds oTime)
{
    std::unique_lock oLock(m_oMutex);
    return !m_oCondition.wait_for(oLock, oTime, [this] { return m_nSignal != 0; });
}

void CInterrupt::SetAction(std::function<void()> fnAction)
{
    const std::lock_guard oLock(m_oMutexAction);
    m_fnAction = std::move(fnAction);
}

void CInterrupt::AddPartialFile(const std::string& strPath)
{
    const std::lock_guard oLock(m_oMutex);
    m_astrPartialFiles.insert(strPath);
}

void CInterrupt::RemovePartialFile(const std::string& strPath)
{
    const std::lock_guard oLock(m_oMutex);
    m_astrPartialFiles.erase(strPath);
}

void CInterrupt::Watch()
{
    const sigset_t oSignals = Signals();
    int nSignal = 0;
    do
        ::sigwait(&oSignals, &nSignal);
    while (nSignal == SIGNAL_END && !m_bEnd);
    if (nSignal == SIGNAL_END)
        return;
    {
        const std::lock_guard oLock(m_oMutex);
        m_nSignal = nSignal;
    }
    m_oCondition.notify_all();
    {
        const std::lock_guard oLock(m_oMutexAction);
        if (m_fnAction)
            m_fnAction();
    }
    std::unique_lock oLock(m_oMutex);
    if (m_oCondition.wait_for(oLock, std::chrono::seconds(1), [this] { return m_bEnd; }))
        return;
    // The main thread is stuck, perhaps in a long wait for an answer or reading from a terminal.
    for (const std::string& strPath : m_astrPartialFiles)
        ::unlink(strPath.c_str());
    ::_exit(128 + nSignal);
}
