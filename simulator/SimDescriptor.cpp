#include "SimDescriptor.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

CSimDescriptor& CSimDescriptor::operator=(CSimDescriptor&& oOther) noexcept
{
    if (this != &oOther) {
        Close();
        m_nDescriptor = oOther.Release();
    }
    return *this;
}

void CSimDescriptor::Close()
{
    const int nDescriptor = Release();
    if (nDescriptor >= 0)
        ::close(nDescriptor);
}

int CSimDescriptor::Release() noexcept
{
    return std::exchange(m_nDescriptor, -1);
}

CSimWakeEvent::CSimWakeEvent() : m_oDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void CSimWakeEvent::Signal() const
{
    const std::uint64_t nOne = 1;
    // Fails only when the event is signalled beyond counting, and then it is signalled.
    [[maybe_unused]] const auto nWritten = ::write(m_oDescriptor.Get(), &nOne, sizeof(nOne));
}

void CSimWakeEvent::Clear() const
{
    std::uint64_t nCount = 0;
    [[maybe_unused]] const auto nRead = ::read(m_oDescriptor.Get(), &nCount, sizeof(nCount));
}

void SimPoll(std::span<pollfd> aoPoll, std::optional<TSimTime> oUntil)
{
    for (auto& oPoll : aoPoll)
        oPoll.revents = 0;
    timespec oWait{};
    if (oUntil) {
        const auto nRest = std::max(*oUntil - TSimClock::now(), TSimClock::duration::zero());
        const auto nSeconds = std::chrono::duration_cast<std::chrono::seconds>(nRest);
        oWait.tv_sec = static_cast<std::time_t>(nSeconds.count());
        oWait.tv_nsec =
            static_cast<long>(std::chrono::duration_cast<std::chrono::nanoseconds>(nRest - nSeconds).count());
    }
    if (::ppoll(aoPoll.data(), aoPoll.size(), oUntil ? &oWait : nullptr, nullptr) < 0) {
        for (auto& oPoll : aoPoll)
            oPoll.revents = 0;
    }
}

std::string SimErrnoText(int nError)
{
    return std::generic_category().message(nError);
}
