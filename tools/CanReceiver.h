// What a CAN gateway sends by itself, taken from it as fast as it comes.
#ifndef QUORVEL_TOOL_CAN_RECEIVER_H
#define QUORVEL_TOOL_CAN_RECEIVER_H

#include "CanLog.h"
#include "Gateway.h"
#include "QuorvelClientCANDll.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// A telegram of the gateway that no request has asked for.
struct SCanIndication {
    unsigned short nCode = 0;
    std::int64_t nTime = 0; ///< when it was received: nanoseconds since 1970
    std::string strData;

    /// @return a byte of the data; 0 behind its end
    unsigned char Byte(std::size_t nPos) const
    {
        return nPos < strData.size() ? static_cast<unsigned char>(strData[nPos]) : 0;
    }
};

/// The codes of such telegrams.
enum ECanIndication : unsigned short {
    eCanFrame = 0x0203,
    eCanSync = 0x0264,
    eCanEmcy = 0x0266,
    eCanPdo = 0x0267,
    eCanGuard = 0x026C,
    eCanUndefined = 0x026D
};

/**
 * The frame that an indication tells of, and its time: the gateway's time stamp where there is one, else when it
 * was received. A frame that the CANopen master has taken apart is put together again; of the length of SYNC and
 * EMCY frames the indication does not tell, they are taken to be as usual.
 * @return false when it tells of no frame
 */
bool GetRecord(const SCanIndication& oIndication, SCanRecord& oRecord);

/// The name of a gateway's bus in logs. @return "can0" for the port index 0, ...
std::string GetCanName(CTool& oTool);

/**
 * Takes a bus's name from the command line as the port index.
 * @param strName "can0", ..., or "any"
 * @return 0, or the status of a failure, which was reported
 */
int SetCanName(CTool& oTool, const std::string& strName);

/**
 * Queues what the gateway sends, with the time of its arrival, and counts what does not fit: the queues of the
 * library drop silently, do not wake anybody, and keep no time.
 */
class CCanReceiver : public CGateway<CQuorvelClientCANDll>
{
  public:
    /// @param nMaximum how many indications the queue holds
    CCanReceiver(CTool& oTool, std::size_t nMaximum);
    ~CCanReceiver() override;
    CCanReceiver(const CCanReceiver&) = delete;
    CCanReceiver& operator=(const CCanReceiver&) = delete;

    enum EWait { eReceived, eTimedOut, eEnded };

    /**
     * Waits for indications and takes all that are there.
     * @param aoTaken  receives them
     * @param oUntil   how long to wait; nothing: for ever
     * @param nDropped receives how many were lost behind them
     * @return eEnded when the connection has ended and everything was taken
     */
    EWait Take(std::vector<SCanIndication>& aoTaken,
               const std::optional<std::chrono::steady_clock::time_point>& oUntil, std::uint64_t& nDropped);

    /// Reports a connection that has ended. @return the exit status
    int FailEnded() const;

    bool DataIndRespond(CQuorvelMsg* pMsg) override;
    void ConInd(bool bConnected) override;

  private:
    CInterrupt& m_oInterrupt;
    std::size_t m_nMaximum;
    std::mutex m_oMutex; // guards what follows
    std::condition_variable m_oCondition;
    std::vector<SCanIndication> m_aoQueue;
    std::uint64_t m_nDropped = 0;
    bool m_bEnded = false;
};

#endif
