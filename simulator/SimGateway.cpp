#include "SimGateway.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cmath>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <numbers>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace
{

// Clients beyond the limit are refused politely, but not without end.
constexpr unsigned nMaxRefused = 64;
constexpr auto nRetryTime = std::chrono::milliseconds(100);

enum : unsigned char {
    eInfo = 0x09,
    eStatus = 0x0A,
    eRestart = 0x0C,
    eReadDigital = 0x40,
    eWriteDigital = 0x41,
    eReadAnalog = 0x42,
    eWriteAnalog = 0x43
};

sockaddr_in ToSocketAddress(const std::string& strAddress, unsigned short nPort)
{
    sockaddr_in oAddress{};
    oAddress.sin_family = AF_INET;
    oAddress.sin_port = htons(nPort);
    if (::inet_pton(AF_INET, strAddress.c_str(), &oAddress.sin_addr) != 1)
        oAddress.sin_addr.s_addr = 0;
    return oAddress;
}

std::string ToText(const sockaddr_in& oAddress)
{
    char acText[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &oAddress.sin_addr, acText, sizeof(acText));
    return acText + (":" + std::to_string(ntohs(oAddress.sin_port)));
}

/// 18 bytes of text (10 serial number, 8 firmware version), the kind, and the hardware revision.
std::string DefaultInfo(int nKind)
{
    const std::string strKind = std::to_string(nKind);
    return "SIM" + std::string(strKind.size() < 2 ? 1 : 0, '0') + strKind + "-0001FW 1.0.0" +
           static_cast<char>(nKind) + '\x01';
}

} // namespace

CSimGateway::CSimGateway(int nKind, std::string strName)
    : m_nKind(nKind), m_strName(std::move(strName)), m_strInfo(DefaultInfo(nKind))
{
}

CSimGateway::~CSimGateway()
{
    Stop();
}

bool CSimGateway::IsLoopback(const std::string& strAddress)
{
    return ntohl(ToSocketAddress(strAddress, 0).sin_addr.s_addr) >> 24 == 127;
}

bool CSimGateway::Start(const std::string& strAddress, unsigned short nPort, std::string* pError)
{
    const std::lock_guard oLock(m_oMutexControl);
    std::string strError;
    if (m_oThread.joinable()) {
        strError = "the " + m_strName + " gateway is started already";
    } else if (!IsLoopback(strAddress)) {
        strError = "'" + strAddress + "' is not an address within 127.0.0.0/8";
    } else {
        {
            const std::lock_guard oLockConnections(m_oMutexConnections);
            m_strAddress = strAddress;
        }
        m_bStop = false;
        m_bRestart = false;
        if (!m_oWake.IsOpen()) {
            strError = "no event to be had";
        } else if (Bind(nPort, strError) && Listen(strError)) {
            const std::lock_guard oLockDevice(m_oMutexDevice);
            PowerOn();
            try {
                m_oThread = std::thread(&CSimGateway::Run, this);
                return true;
            } catch (const std::system_error& oError) {
                strError = oError.what();
            }
        }
        m_oListener.Close();
    }
    if (pError != nullptr)
        *pError = strError;
    return false;
}

void CSimGateway::Stop()
{
    const std::lock_guard oLock(m_oMutexControl);
    if (!m_oThread.joinable())
        return;
    m_bStop = true;
    m_oWake.Signal();
    m_oThread.join();
}

std::string CSimGateway::GetAddress() const
{
    const std::lock_guard oLock(m_oMutexConnections);
    return m_strAddress;
}

void CSimGateway::SetMaxConnections(unsigned nMax)
{
    const std::lock_guard oLock(m_oMutexConnections);
    m_nMaxConnections = nMax;
}

bool CSimGateway::SetFaultPlan(const std::string& strPlan, std::string& strError)
{
    CFaultPlan oPlan;
    if (!CFaultPlan::Parse(strPlan, oPlan, strError))
        return false;
    SetFaultPlan(oPlan);
    return true;
}

void CSimGateway::SetFaultPlan(const CFaultPlan& oPlan)
{
    const std::lock_guard oLock(m_oMutexConnections);
    m_oPlan = oPlan;
}

unsigned CSimGateway::GetConnectionCount() const
{
    const std::lock_guard oLock(m_oMutexConnections);
    return m_nConnections;
}

bool CSimGateway::WaitForConnections(unsigned nCount, unsigned nTimeoutMs) const
{
    std::unique_lock oLock(m_oMutexConnections);
    return m_oConnectionsChanged.wait_for(oLock, std::chrono::milliseconds(nTimeoutMs),
                                          [&] { return m_nConnections == nCount; });
}

void CSimGateway::DropConnections()
{
    const std::lock_guard oLock(m_oMutexConnections);
    for (const auto& pConnection : m_aoConnections)
        pConnection->Drop();
}

void CSimGateway::SetLog(std::function<void(const std::string&)> fnLog)
{
    const std::lock_guard oLock(m_oMutexLog);
    m_fnLog = std::move(fnLog);
}

bool CSimGateway::SendIndication(unsigned short nCmdCode, short nID, const std::string& strData,
                                 unsigned nConnection, unsigned nDelayMs, unsigned nExcept)
{
    if (strData.size() > SSimTelegram::nMaxData)
        return false;
    const SSimTelegram oIndication{nCmdCode, nID, strData};
    bool bTaken = false;
    const std::lock_guard oLock(m_oMutexConnections);
    for (const auto& pConnection : m_aoConnections) {
        if (pConnection->IsEnded() || pConnection->GetNumber() == nExcept ||
            (nConnection == 0 ? pConnection->IsRefused() : pConnection->GetNumber() != nConnection))
            continue;
        bTaken = pConnection->Post(oIndication, nDelayMs) || bTaken;
    }
    return bTaken;
}

void CSimGateway::SetStatus(const std::string& strStatus)
{
    const std::lock_guard oLock(m_oMutexDevice);
    m_oStatus = strStatus;
}

void CSimGateway::SetDeviceInfo(const std::string& strInfo)
{
    const std::lock_guard oLock(m_oMutexDevice);
    m_strInfo = strInfo;
}

void CSimGateway::SetInputs(unsigned nInputs)
{
    const std::lock_guard oLock(m_oMutexDevice);
    m_oInputs = nInputs;
}

unsigned CSimGateway::GetOutputs() const
{
    const std::lock_guard oLock(m_oMutexDevice);
    return m_nOutputs;
}

SSimAnswer CSimGateway::Execute(const SSimRequest& oRequest)
{
    SSimAnswer oAnswer;
    switch (oRequest.nCommand) {
    case eInfo:
        oAnswer.strData = m_strInfo;
        break;
    case eStatus:
        oAnswer.strData = m_oStatus ? *m_oStatus : StatusText();
        break;
    case eRestart:
        oAnswer.bRestart = true;
        break;
    case eReadDigital:
        SimPut32(oAnswer.strData, Inputs());
        SimPut32(oAnswer.strData, m_nOutputs);
        break;
    case eWriteDigital:
        if (oRequest.strData.size() < 4)
            return SSimAnswer(eSimResultFailed);
        m_nOutputs = SimGet32(oRequest.strData, 0);
        break;
    case eReadAnalog:
        SimPut32(oAnswer.strData, nAnalogChannels);
        oAnswer.strData += AnalogValues();
        break;
    case eWriteAnalog: {
        const std::size_t nCount = oRequest.strData.size() / 4;
        if (oRequest.strData.size() % 4 != 0 || nCount > m_anAnalog.size())
            return SSimAnswer(eSimResultFailed);
        for (std::size_t i = 0; i < nCount; i++)
            m_anAnalog[i] = SimGet32(oRequest.strData, 4 * i);
        break;
    }
    default:
        return SSimAnswer(eSimResultFailed);
    }
    return oAnswer;
}

void CSimGateway::PowerOn()
{
    m_nOutputs = 0;
    m_oInputs.reset();
    m_anAnalog.fill(0);
    m_oPowerOn = TSimClock::now();
}

std::string CSimGateway::AnalogValues() const
{
    const auto nUp =
        std::chrono::duration_cast<std::chrono::milliseconds>(TSimClock::now() - m_oPowerOn).count();
    const double nPhase = 2 * std::numbers::pi * static_cast<double>(nUp % 1000) / 1000;
    std::string strValues;
    SimPut32(strValues, 2500);
    SimPut32(strValues, static_cast<unsigned>(nUp % 5000));
    SimPut32(strValues, static_cast<unsigned>(2500 + std::lround(2000 * std::sin(nPhase))));
    SimPut32(strValues, 0);
    for (const unsigned nValue : m_anAnalog)
        SimPut32(strValues, nValue);
    return strValues;
}

SSimAnswer CSimGateway::Handle(const SSimTelegram& oRequest, const CSimConnection& oConnection)
{
    m_nRequests++;
    if (oConnection.IsRefused())
        return SSimAnswer(eSimResultNoConnection);
    if (oRequest.nCmdCode >> 8 != (m_nKind & 0x7F))
        return SSimAnswer(eSimResultFailed);
    const std::lock_guard oLock(m_oMutexDevice);
    return Execute({static_cast<unsigned char>(oRequest.nCmdCode & 0xFF), oRequest.strData,
                    oConnection.GetNumber(), oRequest.nID});
}

SSimAnswer CSimGateway::Continue(const std::function<SSimAnswer()>& fnContinue)
{
    const std::lock_guard oLock(m_oMutexDevice);
    return fnContinue();
}

void CSimGateway::OnConnectionEnd(CSimConnection& oConnection)
{
    {
        const std::lock_guard oLock(m_oMutexDevice);
        OnEnd(oConnection.GetNumber());
    }
    Log("client " + oConnection.GetPeer() + " disconnected");
    {
        const std::lock_guard oLock(m_oMutexConnections);
        m_nConnections--;
        if (!oConnection.IsRefused())
            m_nServed--;
        oConnection.SetEnded();
        m_oConnectionsChanged.notify_all();
    }
    m_oWake.Signal();
}

void CSimGateway::RequestRestart()
{
    m_bRestart = true;
    m_oWake.Signal();
}

void CSimGateway::Log(const std::string& strText) const
{
    const std::lock_guard oLock(m_oMutexLog);
    if (m_fnLog)
        m_fnLog(m_strName + " gateway: " + strText);
}

/// Takes the port without listening on it yet.
bool CSimGateway::Bind(unsigned short nPort, std::string& strError)
{
    const std::string strAddress = GetAddress();
    m_oListener = CSimDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int nOn = 1;
    sockaddr_in oAddress = ToSocketAddress(strAddress, nPort);
    socklen_t nLen = sizeof(oAddress);
    if (m_oListener.IsOpen() &&
        ::setsockopt(m_oListener.Get(), SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof(nOn)) == 0 &&
        ::bind(m_oListener.Get(), reinterpret_cast<const sockaddr*>(&oAddress), nLen) == 0 &&
        ::getsockname(m_oListener.Get(), reinterpret_cast<sockaddr*>(&oAddress), &nLen) == 0) {
        m_nPort = ntohs(oAddress.sin_port);
        return true;
    }
    strError = "cannot listen on " + strAddress + ":" + std::to_string(nPort) + ": " + SimErrnoText(errno);
    m_oListener.Close();
    return false;
}

bool CSimGateway::Listen(std::string& strError)
{
    if (::listen(m_oListener.Get(), 64) == 0)
        return true;
    strError =
        "cannot listen on " + GetAddress() + ":" + std::to_string(m_nPort) + ": " + SimErrnoText(errno);
    m_oListener.Close();
    return false;
}

void CSimGateway::Run()
{
    std::optional<TSimTime> oListenAt;
    while (!m_bStop) {
        if (m_bRestart.exchange(false)) {
            Log("restarts");
            m_oListener.Close();
            EndAll();
            {
                const std::lock_guard oLock(m_oMutexDevice);
                PowerOn();
            }
            // The port stays taken while the gateway is away. Should that fail, it is tried again at the end.
            std::string strError;
            Bind(m_nPort, strError);
            oListenAt = TSimClock::now() + std::chrono::milliseconds(m_nRestartMs);
        }
        if (oListenAt && TSimClock::now() >= *oListenAt) {
            std::string strError;
            if ((m_oListener.IsOpen() || Bind(m_nPort, strError)) && Listen(strError)) {
                oListenAt.reset();
            } else {
                Log(strError);
                oListenAt = TSimClock::now() + nRetryTime;
            }
        }
        std::array<pollfd, 2> aoPoll{};
        aoPoll[0].fd = m_oWake.Get();
        aoPoll[0].events = POLLIN;
        aoPoll[1].fd = oListenAt ? -1 : m_oListener.Get();
        aoPoll[1].events = POLLIN;
        SimPoll(aoPoll, oListenAt);
        if (aoPoll[0].revents != 0)
            m_oWake.Clear();
        Reap();
        if (aoPoll[1].revents != 0)
            Accept();
    }
    m_oListener.Close();
    EndAll();
    const std::lock_guard oLock(m_oMutexDevice);
    PowerOff();
}

void CSimGateway::Accept()
{
    sockaddr_in oPeer{};
    socklen_t nLen = sizeof(oPeer);
    CSimDescriptor oSocket(::accept4(m_oListener.Get(), reinterpret_cast<sockaddr*>(&oPeer), &nLen,
                                     SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!oSocket.IsOpen()) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            // The client stays in the queue; without a pause this thread would spin until a descriptor is
            // free.
            Log("cannot accept a client: " + SimErrnoText(errno));
            std::array<pollfd, 1> aoPoll{{{m_oWake.Get(), POLLIN, 0}}};
            SimPoll(aoPoll, TSimClock::now() + nRetryTime);
        }
        return;
    }
    const int nOn = 1;
    ::setsockopt(oSocket.Get(), IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof(nOn));
    const std::string strPeer = ToText(oPeer);
    bool bRefused = false;
    unsigned nServed = 0;
    unsigned nMax = 0;
    CSimConnection* pConnection = nullptr;
    {
        const std::lock_guard oLock(m_oMutexConnections);
        bRefused = m_nServed >= m_nMaxConnections;
        if (m_nConnections < m_nMaxConnections + nMaxRefused) {
            m_nLastConnection++;
            m_aoConnections.push_back(std::make_unique<CSimConnection>(*this, std::move(oSocket), strPeer,
                                                                       m_nLastConnection, bRefused, m_oPlan));
            pConnection = m_aoConnections.back().get();
            m_nConnections++;
            m_nServed += bRefused ? 0 : 1;
            m_oConnectionsChanged.notify_all();
        }
        nServed = m_nServed;
        nMax = m_nMaxConnections;
    }
    if (pConnection == nullptr) {
        Log("client " + strPeer + " turned away: too many");
        return;
    }
    Log("client " + strPeer + (bRefused ? " refused (" : " connected (") + std::to_string(nServed) + " of " +
        std::to_string(nMax) + ")");
    try {
        pConnection->Start();
    } catch (const std::system_error& oError) {
        Log(std::string("no thread for a client: ") + oError.what());
        OnConnectionEnd(*pConnection);
    }
}

/// Frees the connections that have ended.
void CSimGateway::Reap()
{
    std::vector<std::unique_ptr<CSimConnection>> aoEnded;
    const std::lock_guard oLock(m_oMutexConnections);
    const auto itEnded =
        std::stable_partition(m_aoConnections.begin(), m_aoConnections.end(),
                              [](const auto& pConnection) { return !pConnection->IsEnded(); });
    std::move(itEnded, m_aoConnections.end(), std::back_inserter(aoEnded));
    m_aoConnections.erase(itEnded, m_aoConnections.end());
}

/// Ends all connections and joins their threads.
void CSimGateway::EndAll()
{
    DropConnections();
    std::vector<std::unique_ptr<CSimConnection>> aoAll;
    {
        const std::lock_guard oLock(m_oMutexConnections);
        aoAll.swap(m_aoConnections);
    }
}

std::string CSimGateway::StatusText() const
{
    const auto nUp = std::chrono::duration_cast<std::chrono::seconds>(TSimClock::now() - m_oPowerOn).count();
    const std::lock_guard oLock(m_oMutexConnections);
    return "Simulated " + m_strName + " gateway at " + m_strAddress + ":" + std::to_string(m_nPort) +
           " is up for " + std::to_string(nUp) + " s, serves " + std::to_string(m_nServed) + " of " +
           std::to_string(m_nMaxConnections) + " clients and has received " + std::to_string(m_nRequests) +
           " requests.";
}
