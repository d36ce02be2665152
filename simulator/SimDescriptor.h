/**
 * @file SimDescriptor.h
 * @brief An owned file descriptor, and an event that poll can wait for.
 */
#ifndef QUORVEL_SIM_DESCRIPTOR_H
#define QUORVEL_SIM_DESCRIPTOR_H

#include <chrono>
#include <optional>
#include <poll.h>
#include <span>
#include <string>

using TSimClock = std::chrono::steady_clock;
using TSimTime = TSimClock::time_point;

/** Closes its descriptor when it goes. */
class CSimDescriptor
{
  public:
    explicit CSimDescriptor(int nDescriptor = -1) : m_nDescriptor(nDescriptor) {}
    ~CSimDescriptor() { Close(); }
    CSimDescriptor(const CSimDescriptor&) = delete;
    CSimDescriptor& operator=(const CSimDescriptor&) = delete;
    CSimDescriptor(CSimDescriptor&& oOther) noexcept : m_nDescriptor(oOther.Release()) {}
    CSimDescriptor& operator=(CSimDescriptor&& oOther) noexcept;

    int Get() const { return m_nDescriptor; }
    bool IsOpen() const { return m_nDescriptor >= 0; }
    void Close();

  private:
    int Release() noexcept;

    int m_nDescriptor;
};

/** Wakes a thread that waits in SimPoll on the event's descriptor. Signal may be called from any thread. */
class CSimWakeEvent
{
  public:
    CSimWakeEvent();
    int Get() const { return m_oDescriptor.Get(); }
    bool IsOpen() const { return m_oDescriptor.IsOpen(); }
    void Signal() const;
    void Clear() const;

  private:
    CSimDescriptor m_oDescriptor;
};

/** Waits until one of the descriptors is ready or the time has come (no time: without limit). */
void SimPoll(std::span<pollfd> aoPoll, std::optional<TSimTime> oUntil);

/// The text of an errno value.
std::string SimErrnoText(int nError);

#endif
