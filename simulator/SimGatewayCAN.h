/**
 * @file SimGatewayCAN.h
 * @brief The simulated CAN gateway, with its CANopen master mode.
 */
#ifndef QUORVEL_SIM_GATEWAY_CAN_H
#define QUORVEL_SIM_GATEWAY_CAN_H

#include "CanBus.h"
#include "CanOpenNode.h"
#include "SimGateway.h"

#include <array>
#include <map>
#include <memory>
#include <set>

/**
 * Device kind 2, a station on a CAN bus. Whatever any other station sends, and whatever one client sends,
 * becomes an indication to all clients, except that a client gets its own frames only when it monitors them.
 *
 * Commands, numbers little-endian; fewer data bytes than told give 0xFF:
 *  - 0x03 write: identifier (4), flags (1), data. Flags: 0x01 29-bit identifier, 0x02 remote frame (no data),
 * 0x08 FD frame (up to 64 bytes); 0x04 counts in indications only. Answered when the client has frames
 * confirmed: with the time (8) when time stamps are on.
 *  - 0x05, 0x06 set, get config: confirm frames (1), monitor (1); each client's own, 0 at first
 *  - 0x07, 0x08 set, get globals: operating mode (1: 0 normal, 1 listen only, 2 loop-back), bit rate (4),
 * termination (1), high speed (1), time stamps (1). Power-on: 0, 500000, 0, 1, 0. A bit rate that is none of
 * 10000, 20000, 50000, 100000, 125000, 250000, 500000, 800000, 1000000 gives 0x24, another mode 0xFF.
 *  - 0x0B set time: seconds (4), microseconds (4). 0x0E get time: whether it was set (1), the same
 *  - 0x20, 0x21 set, get filter: 8 pairs of mask (4) and value (4)
 *  - 0x22 power status; 0x23 power relay (1); 0x24 active supplies, a bit each (4)
 *  - 0x51, 0x52 set, get Z-card parameters: interval (1), first identifier (2), last identifier (2, sent again
 * behind it when set)
 *  - 0x60, 0x61 set, get CANopen mode (1: 0 off, 1 master). All below give 0xFE while it is off.
 *  - 0x62 SYNC period in ms (2), 0: none; 0x63 NMT: node, command; 0x64 SYNC; 0x65 TIME: day (2), ms (4);
 * 0x67 PDO: node, type, data
 *  - 0x68 SDO read, 0x69 SDO write, 0x6A, 0x6B the same in blocks
 *
 * Result bytes of transmissions are those of CCanBus; a frame that cannot be, or one sent while listening
 * only, gives 0x21.
 */
class CSimGatewayCAN : public CSimGateway, private CCanStation
{
  public:
    /// With a bus of its own and a CANopen node on it, number 1.
    CSimGatewayCAN();
    /// On a bus that is there already.
    explicit CSimGatewayCAN(std::shared_ptr<CCanBus> pBus);
    ~CSimGatewayCAN() override;

    const std::shared_ptr<CCanBus>& GetBus() const { return m_pBus; }
    /// The node that came with the gateway's own bus, otherwise null.
    CCanOpenNode* GetNode() const { return m_pNode.get(); }

  protected:
    SSimAnswer Execute(const SSimRequest& oRequest) override;
    void PowerOn() override;
    void PowerOff() override;
    void OnEnd(unsigned nConnection) override;

  private:
    struct SSdo;
    struct SFilter {
        unsigned nMask = 0;
        unsigned nValue = 0;
    };

    void OnFrame(const SCanTransmission& oTransmission) override;
    void OnSent(const SCanTransmission& oTransmission) override;
    void OnTimer() override;

    SSimAnswer Write(const SSimRequest& oRequest);
    SSimAnswer ExecuteCanOpen(const SSimRequest& oRequest);
    unsigned char SetGlobals(const std::string& strData);
    std::string GetGlobals() const;
    std::string PowerStatus() const;
    std::shared_ptr<SCanTransmission> Send(unsigned nTag, SCanFrame oFrame);
    SSimAnswer Outcome(const std::shared_ptr<SCanTransmission>& pTransmission, bool bTime);
    SSimAnswer SendService(unsigned nConnection, unsigned nID, const std::string& strData);
    SSimAnswer StartSdo(const SSimRequest& oRequest);
    SSimAnswer RunSdo(const std::shared_ptr<SSdo>& pSdo);
    void SendSdo(const SSdo& oSdo, const std::string& strFrame);
    void SetSyncPeriod(unsigned nPeriodMs);
    void Report(const SCanTransmission& oTransmission, unsigned nExcept);
    bool Passes(const SCanFrame& oFrame) const;
    bool Describe(const SCanFrame& oFrame, unsigned char& nCommand, std::string& strData) const;
    void PutTime(std::string& strData, TSimTime oTime) const;

    const std::shared_ptr<CCanBus> m_pBus;
    const std::unique_ptr<CCanOpenNode> m_pNode;

    // Guarded by the bus.
    std::set<unsigned> m_anConfirmed; ///< connections that have their frames confirmed
    std::set<unsigned> m_anMonitors;  ///< connections that get their own frames
    std::array<SFilter, 8> m_aoFilters;
    unsigned m_nBitRate = 0;
    unsigned char m_nOperatingMode = 0;
    bool m_bTermination = false;
    bool m_bHighSpeed = false;
    bool m_bTimeStamps = false;
    bool m_bClockSet = false;
    long long m_nClock = 0; ///< microseconds since 1970 at m_oClock
    TSimTime m_oClock;
    std::string m_strZCard;
    bool m_bRelay = false;
    unsigned m_nSupplies = 0;
    unsigned char m_nCanOpenMode = 0;
    std::chrono::milliseconds m_nSyncPeriod{0};
    TSimTime m_oNextSync;
    std::shared_ptr<SSdo> m_pSdo; ///< the transfer under way
};

#endif
