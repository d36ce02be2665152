#include "Interrupt.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace
{

constexpr std::chrono::milliseconds PERIOD{10}; // of the action

std::atomic<CInterrupt*> s_pInterrupt{nullptr}; // that takes the signals

void Wake(int nWake)
{
    const std::uint64_t nOne = 1;
    static_cast<void>(!::write(nWake, &nOne, sizeof nOne));
}

} // namespace

void CInterrupt::Start()
{
    m_nWake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_nWake < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    m_oThread = std::thread(&CInterrupt::Watch, this);
    s_pInterrupt = this;
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction oAction {
        };
        // As nohup does it, and a shell without job control for what runs in the background.
        if (::sigaction(nSignal, nullptr, &oAction) == 0 && oAction.sa_handler == SIG_IGN)
            continue;
        oAction = {};
        oAction.sa_handler = &CInterrupt::Take;
        oAction.sa_flags = SA_RESTART;
        ::sigaction(nSignal, &oAction, nullptr);
    }
}

CInterrupt::~CInterrupt()
{
    if (!m_oThread.joinable())
        return;
    s_pInterrupt = nullptr;
    {
        const std::lock_guard oLock(m_oMutex);
        m_bEnd = true;
    }
    m_oCondition.notify_all();
    Wake(m_nWake);
    m_oThread.join();
    ::close(m_nWake);
}

// Runs on the main thread, wherever that is: what it reads from then on was read after the signal.
void CInterrupt::Take(int nSignal)
{
    const int nErrno = errno;
    if (CInterrupt* const pInterrupt = s_pInterrupt; pInterrupt != nullptr) {
        int nNone = 0;
        pInterrupt->m_nSignal.compare_exchange_strong(nNone, nSignal);
        Wake(pInterrupt->m_nWake);
    }
    errno = nErrno;
}

bool CInterrupt::Wait(std::chrono::nanoseconds oTime)
{
    std::unique_lock oLock(m_oMutex);
    return !m_oCondition.wait_for(oLock, oTime, [this] { return m_nSignal != 0; });
}

bool CInterrupt::Read(int nDescriptor, char& cByte)
{
    pollfd aoPoll[] = {{nDescriptor, POLLIN, 0}, {m_nWake, POLLIN, 0}};
    while (::poll(aoPoll, 2, -1) < 0) {
        if (errno != EINTR)
            return false;
    }
    return m_nSignal == 0 && ::read(nDescriptor, &cByte, 1) == 1 && m_nSignal == 0;
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
    pollfd oPoll{m_nWake, POLLIN, 0};
    while (::poll(&oPoll, 1, -1) < 0) {
    }
    std::unique_lock oLock(m_oMutex);
    m_oCondition.notify_all();
    auto oLast = std::chrono::steady_clock::now() + GRACE;
    while (!m_bEnd) {
        const auto oNow = std::chrono::steady_clock::now();
        if (m_eEnding == eByItself)
            oLast = oNow + GRACE;
        if (m_eEnding == eAtOnce || oNow > oLast) {
            for (const std::string& strPath : m_astrPartialFiles)
                ::unlink(strPath.c_str());
            ::_exit(128 + m_nSignal);
        }
        oLock.unlock();
        {
            const std::lock_guard oLockAction(m_oMutexAction);
            if (m_fnAction)
                m_fnAction();
        }
        oLock.lock();
        m_oCondition.wait_for(oLock, PERIOD, [this] { return m_bEnd; });
    }
}
