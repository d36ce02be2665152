// A client of the library, as the verbs use it.
#ifndef QUORVEL_TOOL_GATEWAY_H
#define QUORVEL_TOOL_GATEWAY_H

#include "QuorvelClient.h"
#include "Tool.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <type_traits>
#include <utility>

// Results of the library, as the verbs see them.
constexpr int TRANSPORT = 0x00FF0000; // bits that no gateway sets
constexpr int RC_CONNECTION_LOST = 0x00030000;
constexpr int RC_TIME_OUT = 0x00040000;

/**
 * A client class of the library that connects to the gateway of the command line, traces, reports failures and
 * ends what it waits for on Ctrl-C. From then on it sends nothing, so that whatever goes on ends with its next
 * exchange; the connection stays. It notes how much each answer holds: for data that is missing the library leaves
 * a result as it was, or takes zeros.
 */
template<class TClient>
class CGateway : public TClient
{
  public:
    /// @param oArguments what TClient's constructor takes before the time-out
    template<class... TArguments>
    explicit CGateway(CTool& oTool, TArguments... oArguments)
        : TClient(oArguments..., static_cast<TimeoutOf<TArguments...>>(oTool.GetOptions().nTimeout)),
          m_oTool(oTool)
    {
        this->ReceiveWhileWaiting();
        m_oTool.GetInterrupt().SetAction([this] { Abort(); });
    }

    ~CGateway() override
    {
        m_oTool.GetInterrupt().SetAction({});
        this->StopReception();
    }

    /// Ends what waits for the gateway, if a signal has come. To be called again: it may be about to wait.
    void Abort()
    {
        if (!IsInterrupted())
            return;
        if (m_bConnecting)
            this->Disconnect();
        this->CancelWait();
    }

    /// Has signals ignored, those that have come included, while something that was begun needs its end.
    void SetIgnoringSignals(bool bIgnoring) { m_bIgnoringSignals = bIgnoring; }

    /// Waits from now on at most so long for an answer. @param nTimeout milliseconds
    void LimitTimeout(unsigned nTimeout) { this->m_nTimeout = std::min(this->m_nTimeout, nTimeout); }

    /// Connects; a signal ends it.
    int Connect(const char* pHost, unsigned short nPort, unsigned char nProtocol, bool bFlag)
    {
        m_bConnecting = true;
        const int nRC = IsInterrupted() ? RC_TIME_OUT : TClient::Connect(pHost, nPort, nProtocol, bFlag);
        m_bConnecting = false;
        return nRC;
    }

    /// Connects and opens. @return 0, or the exit status of a failure, which was reported
    int OpenGateway()
    {
        const CInterrupt::CScope oScope(m_oTool.GetInterrupt(), CInterrupt::eAtOnce);
        const CTool::SOptions& oOptions = m_oTool.GetOptions();
        if (oOptions.strHost.empty())
            return m_oTool.Fail(eStatusUsage, "which gateway? Give its address: -g HOST");
        int nRC = Connect(oOptions.strHost.c_str(), m_oTool.GetPort(this->GetDeviceType()),
                          CZelIPBase::eProtocolTCP, true);
        if (nRC == 0)
            nRC = static_cast<CQuorvelClient&>(*this).Open();
        return m_oTool.CheckResult(this->GetDeviceType(), oOptions.nTimeout, true, "connect", nRC);
    }

    /// Reports the result of an operation if it is a failure. @return 0, or the exit status
    int Check(const std::string& strOperation, int nRC) const
    {
        return m_oTool.CheckResult(this->GetDeviceType(), m_oTool.GetOptions().nTimeout, false, strOperation,
                                   GetReason(nRC));
    }

    /// @return a result; that of an exchange whose connection was lost meanwhile says so
    int GetReason(int nRC) const
    {
        const bool bLost = m_bSent && this->GetConnectState() != CZelIPBase::eStateConnected;
        return (nRC & TRANSPORT) == RC_TIME_OUT && bLost ? nRC - RC_TIME_OUT + RC_CONNECTION_LOST : nRC;
    }

    /// @return true when the last request was sent
    bool IsSent() const { return m_bSent; }

    /**
     * Reports the result of an operation if it is a failure or its answer holds too little.
     * @param nNeeded how many bytes of data have to be behind the result byte
     * @return 0, or the exit status
     */
    int Check(const std::string& strOperation, int nRC, std::size_t nNeeded) const
    {
        if (nRC == 0 && GetAnswered() < nNeeded)
            return m_oTool.Fail(eStatusNoAnswer,
                                fmt::format("{}: {}: the answer is too short",
                                            m_oTool.GetGatewayName(this->GetDeviceType()), strOperation));
        return Check(strOperation, nRC);
    }

    /// @return the number of bytes of data behind the result byte in the last answer
    std::size_t GetAnswered() const { return m_nAnswered; }

    using TClient::SendMsg;

    /// Traces what is sent.
    int SendMsg(const CQuorvelMsg& oMsg) override
    {
        m_bSent = false;
        if (IsInterrupted())
            return RC_TIME_OUT;
        if (m_oTool.IsTracing())
            m_oTool.Trace(true, this->GetDeviceType(), oMsg);
        const int nRC = TClient::SendMsg(oMsg);
        m_bSent = nRC == 0;
        return nRC;
    }

    /// Waits no longer for what a connection that is lost will not bring.
    void ConInd(bool bConnected) override
    {
        if (!bConnected)
            this->CancelWait();
        TClient::ConInd(bConnected);
    }

    /// Traces what is received, and notes the length of an answer before anybody who waits for it gets it.
    void DataInd(const char* pData, unsigned short nLen) override
    {
        // Length, code, id, result and check byte take 8; bit 15 of the code marks an answer.
        if (nLen > 3 && (static_cast<unsigned char>(pData[3]) & 0x80) != 0)
            m_nAnswered = nLen > 8 ? nLen - 8U : 0U;
        if (m_oTool.IsTracing())
            m_oTool.Trace(false, this->GetDeviceType(), CQuorvelMsg(pData, nLen));
        TClient::DataInd(pData, nLen);
    }

  private:
    bool IsInterrupted() const { return m_oTool.GetInterrupt().GetSignal() != 0 && !m_bIgnoringSignals; }

    // The base class takes an unsigned time-out behind the kind, all others an int.
    template<class... TArguments>
    using TimeoutOf = std::conditional_t<(std::is_same_v<TArguments, EQuorvelDevice> || ...), unsigned, int>;

    CTool& m_oTool;
    std::atomic<std::size_t> m_nAnswered{0}; // written by the thread that receives
    std::atomic<bool> m_bIgnoringSignals{false};
    std::atomic<bool> m_bConnecting{false};
    std::atomic<bool> m_bSent{false};
};

#endif
