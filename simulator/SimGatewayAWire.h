/**
 * @file SimGatewayAWire.h
 * @brief The simulated aWire programmer with a target that takes its time.
 */
#ifndef QUORVEL_SIM_GATEWAY_AWIRE_H
#define QUORVEL_SIM_GATEWAY_AWIRE_H

#include "SimGateway.h"

#include <map>

/**
 * Device kind 14. Commands, numbers little-endian:
 *  - 0x05 set configuration: interface baud rate (4 bytes), flash start address (4), flash size (4), page size
 * (4), the target's name. A baud rate outside 1000 to 10000000 gives 0x22; a page size of 0, a flash that is
 * no whole number of pages, that is larger than 64 MiB or that reaches beyond the addresses gives 0x23. A
 * target of other sizes is a new one, erased.
 *  - 0x06 get configuration: the same. At start: 1000000, 0x10000000, 1 MiB, 512, "simulated target".
 *  - 0xE0 write: address (4 bytes), length (2), as many bytes; 0xE4 write user page: the same with an offset
 * in the user page. There is no answer; indications 0xE1 report: telegram id of the write (2), status (0
 * written, 1 in progress, 2 failed), bytes done (2).
 *  - 0xE2 erase a block of 64 KiB: its number (2), counted from the start of the flash, else 0x25; 0xE5 erase
 * the user page
 *  - 0xE3 read: address (4), length (2). The user page, one page long, lies behind the flash. Other addresses,
 * or more than fits an answer, give 0x26.
 *
 * Erased bytes read as 0xFF, and writing only turns ones into zeros. Writes are carried out one after the
 * other, a page at a time. Until they are done, 0x05, 0xE2, 0xE3 and 0xE5 give 0x21.
 */
class CSimGatewayAWire : public CSimGateway
{
  public:
    /// What goes wrong with writes.
    enum class EFault {
        eNone,
        eRefuse,    ///< nothing is written, the status is the one given
        eUnknownID, ///< every report comes under a foreign id first
        eTwice,     ///< every report comes twice
        eGarbage,   ///< every report comes behind some that are no reports
        eNever      ///< written, but not reported
    };

    /// What the target did since the gateway was made.
    struct SStatistics {
        unsigned nWrites = 0;              ///< writes received
        unsigned nMaxPending = 0;          ///< the most that were not yet done at a time
        std::chrono::nanoseconds nBusy{0}; ///< what the pages written take
    };

    CSimGatewayAWire();
    ~CSimGatewayAWire() override;

    /// How long a page takes; 1 ms at start.
    void SetPageTime(std::chrono::microseconds nTime);
    /// What goes wrong from the nFrom-th write from now on.
    void SetFault(EFault eFault, unsigned nFrom = 1, unsigned char nStatus = 2);
    SStatistics GetStatistics() const;
    /// Content of flash and user page; empty when not all of it is there.
    std::string Peek(unsigned nAddress, std::size_t nLen) const;

  protected:
    SSimAnswer Execute(const SSimRequest& oRequest) override;
    void PowerOn() override;
    void OnEnd(unsigned nConnection) override;

  private:
    struct SWrite;

    std::size_t FlashSize() const { return m_strMemory.size() - m_nPageSize; }
    static bool IsThere(std::size_t nFrom, std::size_t nLen, std::size_t nAt, std::size_t nSize);
    unsigned char SetConfig(const std::string& strData);
    SSimAnswer Read(const std::string& strData) const;
    unsigned char Erase(const std::string& strData);
    SSimAnswer Write(const SSimRequest& oRequest);
    SSimAnswer Program(const std::shared_ptr<SWrite>& pWrite);
    void Report(const SWrite& oWrite, unsigned char nStatus);

    unsigned m_nBaudrate = 0;
    unsigned m_nStart = 0x10000000;
    unsigned m_nPageSize = 512;
    std::string m_strMemory; ///< flash, then user page
    std::string m_strTarget = "simulated target";
    std::chrono::nanoseconds m_nPageTime = std::chrono::milliseconds(1);
    TSimTime m_oBusyUntil;                    ///< when all writes are done
    std::map<unsigned, unsigned> m_anPending; ///< writes not yet done, by connection
    SStatistics m_oStatistics;
    EFault m_eFault = EFault::eNone;
    unsigned m_nFaultFrom = 0; ///< counted as in m_oStatistics
    unsigned char m_nFaultStatus = 0;
};

#endif
