/**
 * @file SimGateway.h
 * @brief The base of all simulated gateways: listening, connections and the commands that every kind
 * understands.
 */
#ifndef QUORVEL_SIM_GATEWAY_H
#define QUORVEL_SIM_GATEWAY_H

#include "FaultPlan.h"
#include "SimConnection.h"
#include "SimDescriptor.h"
#include "SimTelegram.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// Result bytes common to all kinds.
enum : unsigned char { eSimResultOk = 0x00, eSimResultNoConnection = 0x01, eSimResultFailed = 0xFF };

/** A request as a gateway's Execute gets it. */
struct SSimRequest {
    unsigned char nCommand;     ///< command number
    const std::string& strData; ///< data bytes
    unsigned nConnection;       ///< number of the connection it came on, for SendIndication
    short nID;                  ///< telegram id
};

/**
 * What a gateway answers: either the answer itself, or what to do later to get it. While it is not there,
 * other requests are served. A connection that ends forgets what is still to do.
 */
struct SSimAnswer {
    explicit SSimAnswer(unsigned char nResultByte = eSimResultOk, std::string strBytes = {})
        : nResult(nResultByte), strData(std::move(strBytes))
    {
    }

    unsigned char nResult; ///< first data byte of the confirmation
    std::string strData;   ///< what follows it; at most CSimGateway::nMaxAnswer bytes
    bool bRestart = false; ///< restarts the gateway once the answer is sent
    bool bNone = false;    ///< there is no answer at all, and none is counted
    /// When set, the answer is not there yet: the function is called at oDue, with the device locked.
    std::function<SSimAnswer()> fnContinue;
    TSimTime oDue{};
};

/**
 * A simulated gateway: a TCP server for one kind of device.
 *
 * A kind derives from this class, overrides Execute for its own commands (handing all others to the base),
 * and, where it has state, PowerOn. Its destructor must call Stop first, because the threads call the
 * overridden functions. Execute, PowerOn, PowerOff, OnEnd and continuations run with the device locked
 * (m_oMutexDevice), one at a time.
 *
 * The public functions may be called from any thread, except that Stop and the destructor must not be called
 * by the log function.
 */
class CSimGateway
{
  public:
    /// The most data bytes that fit a confirmation behind its result byte.
    static constexpr std::size_t nMaxAnswer = SSimTelegram::nMaxData - 1;
    /// Digital lines, analog outputs and all analog channels (4 signals, then the outputs looped back).
    static constexpr unsigned nAnalogOutputs = 8;
    static constexpr unsigned nAnalogChannels = 4 + nAnalogOutputs;

    virtual ~CSimGateway();
    CSimGateway(const CSimGateway&) = delete;
    CSimGateway& operator=(const CSimGateway&) = delete;

    /// Whether the text is an IPv4 address within 127.0.0.0/8, the only ones that gateways listen on.
    static bool IsLoopback(const std::string& strAddress);

    /**
     * Switches the gateway on and listens. On return a client can connect.
     * @param strAddress an address within 127.0.0.0/8
     * @param nPort TCP port; 0 lets the system choose one
     * @param pError receives the reason of a failure, unless null
     */
    bool Start(const std::string& strAddress, unsigned short nPort, std::string* pError = nullptr);
    /// Drops all connections, stops listening and ends all threads. Does nothing when not started.
    void Stop();

    /// The port listened on; 0 before the first Start.
    unsigned short GetPort() const { return m_nPort; }
    /// The address given to Start.
    std::string GetAddress() const;
    /// The device kind, an EQuorvelDevice value.
    int GetKind() const { return m_nKind; }
    /// The kind's short name, for example "SPI".
    const std::string& GetName() const { return m_strName; }

    /// How many clients are served at once (8 at start). Further ones may connect, but get result 0x01 for
    /// every request.
    void SetMaxConnections(unsigned nMax);
    /// What goes wrong on connections accepted from now on; false and a text when the plan cannot be read.
    bool SetFaultPlan(const std::string& strPlan, std::string& strError);
    void SetFaultPlan(const CFaultPlan& oPlan);
    /// How long the gateway is away on a restart; 200 ms at start.
    void SetRestartTime(unsigned nTimeMs) { m_nRestartMs = nTimeMs; }

    /// Clients connected now, refused ones included.
    unsigned GetConnectionCount() const;
    /// Requests received since construction.
    unsigned long long GetRequestCount() const { return m_nRequests; }
    /// Waits until exactly so many clients are connected; false when they are not within the time.
    bool WaitForConnections(unsigned nCount, unsigned nTimeoutMs) const;
    /// Closes all connections, without waiting for their end.
    void DropConnections();

    /// Called with one line for every connection, its end, every telegram dropped and every restart; one call
    /// at a time.
    void SetLog(std::function<void(const std::string&)> fnLog);

    /**
     * Sends an indication.
     * @param nCmdCode the whole command code; bit 15 clear
     * @param nID telegram id
     * @param strData at most SSimTelegram::nMaxData bytes
     * @param nConnection the connection to send it on; 0: all that are served
     * @param nDelayMs sent so much later
     * @param nExcept a connection to leave out
     * @return whether a connection took it; one whose client leaves megabytes unread does not
     */
    bool SendIndication(unsigned short nCmdCode, short nID, const std::string& strData,
                        unsigned nConnection = 0, unsigned nDelayMs = 0, unsigned nExcept = 0);

    /// Replaces the status text.
    void SetStatus(const std::string& strStatus);
    /// Replaces the device information; usually 20 bytes, but any number is sent as it is.
    void SetDeviceInfo(const std::string& strInfo);
    /// Forces the digital inputs, which otherwise follow the outputs, until the next restart.
    void SetInputs(unsigned nInputs);
    /// The digital outputs as last written.
    unsigned GetOutputs() const;

  protected:
    CSimGateway(int nKind, std::string strName);

    /// Carries out a request. The base knows the common commands and refuses all others with 0xFF.
    virtual SSimAnswer Execute(const SSimRequest& oRequest);
    /// Back to the state after power-on; called by Start and on a restart. Call the base's, too.
    virtual void PowerOn();
    /// The gateway is switched off: Stop has ended all connections.
    virtual void PowerOff() {}
    /// A connection has ended.
    virtual void OnEnd(unsigned /*nConnection*/) {}

    unsigned Inputs() const { return m_oInputs.value_or(m_nOutputs); }
    /// All analog values, 4 bytes each.
    std::string AnalogValues() const;

    mutable std::mutex m_oMutexDevice;
    unsigned m_nOutputs = 0;

  private:
    friend class CSimConnection;

    // For the connections.
    SSimAnswer Handle(const SSimTelegram& oRequest, const CSimConnection& oConnection);
    SSimAnswer Continue(const std::function<SSimAnswer()>& fnContinue);
    void OnConnectionEnd(CSimConnection& oConnection);
    void RequestRestart();
    void Log(const std::string& strText) const;

    bool Bind(unsigned short nPort, std::string& strError);
    bool Listen(std::string& strError);
    void Run();
    void Accept();
    void Reap();
    void EndAll();
    std::string StatusText() const;

    const int m_nKind;
    const std::string m_strName;
    std::atomic<unsigned short> m_nPort{0};
    std::atomic<unsigned> m_nRestartMs{200};
    std::atomic<unsigned long long> m_nRequests{0};
    CSimWakeEvent m_oWake;
    std::atomic<bool> m_bStop{false};
    std::atomic<bool> m_bRestart{false};

    std::mutex m_oMutexControl; ///< Start and Stop
    std::thread m_oThread;
    CSimDescriptor m_oListener; ///< of the thread, while it runs
    unsigned m_nLastConnection = 0;

    mutable std::mutex m_oMutexConnections; ///< taken inside m_oMutexDevice, never around it
    mutable std::condition_variable m_oConnectionsChanged;
    std::string m_strAddress;
    std::vector<std::unique_ptr<CSimConnection>> m_aoConnections;
    unsigned m_nConnections = 0;
    unsigned m_nServed = 0; ///< of them not refused
    unsigned m_nMaxConnections = 8;
    CFaultPlan m_oPlan;

    mutable std::mutex m_oMutexLog;
    std::function<void(const std::string&)> m_fnLog;

    std::optional<unsigned> m_oInputs;
    std::array<unsigned, nAnalogOutputs> m_anAnalog{};
    std::optional<std::string> m_oStatus;
    std::string m_strInfo;
    TSimTime m_oPowerOn;
};

#endif
