/**
 * @file CanBus.h
 * @brief A CAN bus without wires: frames go from one station to all others.
 */
#ifndef QUORVEL_SIM_CAN_BUS_H
#define QUORVEL_SIM_CAN_BUS_H

#include "SimDescriptor.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// What becomes of a transmission; the numbers are those of a gateway's result byte.
enum : unsigned char {
    eCanSent = 0x00,
    eCanNoAcknowledge = 0x20,
    eCanTransmitError = 0x21,
    eCanOverflow = 0x22,
    eCanLostArbitration = 0x23
};

/// Flags of a frame; the numbers are those of a gateway's flags byte.
enum : unsigned char { eCanExtended = 0x01, eCanRemote = 0x02, eCanFD = 0x08 };

/** A frame. */
struct SCanFrame {
    unsigned nID = 0; ///< 11 bits, or 29 with eCanExtended
    std::string strData;
    unsigned char nFlags = 0;
};

/** A frame on its way. */
struct SCanTransmission {
    SCanFrame oFrame;
    unsigned nTag = 0;                    ///< the sender's own
    std::optional<unsigned char> oResult; ///< there when the frame is on the bus, or has failed
    TSimTime oTime{};                     ///< when that was
};

/** What is on a bus. Its functions are called with the bus locked. */
class CCanStation
{
  public:
    enum class ERole {
        eOff,       ///< neither hears nor is heard
        eListening, ///< hears only, and acknowledges nothing
        eActive     ///< acknowledges what it hears
    };

    virtual ~CCanStation() = default;

  protected:
    /// A frame of another station.
    virtual void OnFrame(const SCanTransmission& oTransmission) = 0;
    /// A frame of its own is on the bus; comes before any other station's answer to it.
    virtual void OnSent(const SCanTransmission& /*oTransmission*/) {}
    /// The time given to CCanBus::SetTimer has come.
    virtual void OnTimer() {}

  private:
    friend class CCanBus;

    ERole m_eRole = ERole::eOff;
    unsigned m_nBitRate = 0;
    std::optional<TSimTime> m_oTimer;
};

/**
 * The bus. A frame is on it at once and takes no time. It needs another active station that acknowledges it
 * (eCanNoAcknowledge), and none with another bit rate, which would destroy it (eCanTransmitError).
 *
 * A station transmits on the thread that serves it, and the others get the frame on this thread, as do those
 * that hear their answers. The bus's own thread serves the timers only.
 */
class CCanBus
{
  public:
    /// So many frames of each station wait while the bus is held.
    static constexpr std::size_t nMaxWaiting = 32;

    CCanBus();
    /// All stations must have been detached.
    ~CCanBus();
    CCanBus(const CCanBus&) = delete;
    CCanBus& operator=(const CCanBus&) = delete;

    /// The next nCount transmissions, of whatever station, end with nResult (not eCanSent).
    void FailNext(unsigned char nResult, unsigned nCount = 1);
    /// While the bus is held, as by a stuck station, frames wait; those beyond nMaxWaiting get eCanOverflow.
    void Hold(bool bOn);
    /// Frames that were on the bus.
    unsigned long long GetFrameCount() const;

    /// Locks the bus and with it its stations' states. Everything below is for stations and needs the lock.
    std::unique_lock<std::mutex> Lock() const { return std::unique_lock(m_oMutex); }
    void Attach(CCanStation& oStation);
    /// Afterwards the station is not called any more.
    void Detach(CCanStation& oStation);
    /// @param nBitRate bits per second; 0: whatever the others have
    void SetRole(CCanStation& oStation, CCanStation::ERole eRole, unsigned nBitRate);
    /// Has OnTimer called once, or not at all.
    void SetTimer(CCanStation& oStation, std::optional<TSimTime> oTime);
    /// Sends a frame, or queues it behind the one that is being delivered just now or while the bus is held.
    void Transmit(CCanStation& oSender, const std::shared_ptr<SCanTransmission>& pTransmission);

  private:
    struct SQueued {
        CCanStation* pSender;
        std::shared_ptr<SCanTransmission> pTransmission;
    };

    void Run();
    void Deliver();
    unsigned char Judge(const CCanStation& oSender);

    mutable std::mutex m_oMutex;
    std::condition_variable m_oTimersChanged;
    std::vector<CCanStation*> m_apStations;
    std::deque<SQueued> m_aoQueue;
    unsigned char m_nFailure = 0;
    unsigned m_nFailures = 0; ///< to come
    unsigned long long m_nFrames = 0;
    bool m_bHeld = false;
    bool m_bDelivering = false;
    bool m_bEnd = false;
    std::thread m_oThread;
};

#endif
