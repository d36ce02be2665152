#include "TestPeer.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr auto PATIENCE = std::chrono::seconds(10);

unsigned int Word(const std::string& strBytes, std::size_t i)
{
    return static_cast<unsigned char>(strBytes[i]) + 256U * static_cast<unsigned char>(strBytes[i + 1]);
}

bool ReadTelegram(int nSocket, std::string& strTelegram)
{
    strTelegram.resize(2);
    if (recv(nSocket, strTelegram.data(), 2, MSG_WAITALL) != 2)
        return false;
    const std::size_t nLen = Word(strTelegram, 0);
    strTelegram.resize(2 + nLen);
    return nLen == 0 ||
           recv(nSocket, strTelegram.data() + 2, nLen, MSG_WAITALL) == static_cast<ssize_t>(nLen);
}

// A blocking socket takes all, or the connection is over.
void SendAll(int nSocket, const std::string& strBytes)
{
    send(nSocket, strBytes.data(), strBytes.size(), MSG_NOSIGNAL);
}

} // namespace

std::string Hex(const std::string& strDigits)
{
    std::string strBytes;
    for (std::size_t i = 0; i + 1 < strDigits.size(); i += strDigits[i] == ' ' ? 1 : 2) {
        if (strDigits[i] != ' ')
            strBytes += static_cast<char>(std::stoi(strDigits.substr(i, 2), nullptr, 16));
    }
    return strBytes;
}

std::string ToHex(const std::string& strBytes)
{
    std::string strDigits;
    for (const char c : strBytes) {
        char acByte[4];
        snprintf(acByte, sizeof acByte, "%02x ", static_cast<unsigned int>(static_cast<unsigned char>(c)));
        strDigits += acByte;
    }
    return strDigits.substr(0, strDigits.empty() ? 0 : strDigits.size() - 1);
}

std::string Telegram(unsigned int nCode, int nID, const std::string& strData)
{
    std::string strBytes;
    for (const std::size_t n : {strData.size() + 5, std::size_t{nCode}, static_cast<std::size_t>(nID)})
        strBytes.append({static_cast<char>(n & 0xFF), static_cast<char>((n >> 8) & 0xFF)});
    strBytes += strData;
    char cCheck = 0;
    for (std::size_t i = 2; i < strBytes.size(); ++i)
        cCheck = static_cast<char>(cCheck ^ strBytes[i]);
    return strBytes + cCheck;
}

bool WaitUntil(const std::function<bool()>& fnCondition)
{
    const auto oEnd = std::chrono::steady_clock::now() + 3 * PATIENCE;
    while (!fnCondition()) {
        if (std::chrono::steady_clock::now() > oEnd)
            return false;
        std::this_thread::yield();
    }
    return true;
}

CTestPeer::CTestPeer(const std::string& strAddress, unsigned short nPort)
{
    sockaddr_in oAddress{};
    oAddress.sin_family = AF_INET;
    oAddress.sin_port = htons(nPort);
    inet_pton(AF_INET, strAddress.c_str(), &oAddress.sin_addr);
    const int nYes = 1;
    m_nListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    setsockopt(m_nListener, SOL_SOCKET, SO_REUSEADDR, &nYes, sizeof nYes);
    socklen_t nSize = sizeof oAddress;
    if (bind(m_nListener, reinterpret_cast<sockaddr*>(&oAddress), nSize) != 0 || listen(m_nListener, 16) != 0)
        throw std::runtime_error("cannot listen on " + strAddress);
    getsockname(m_nListener, reinterpret_cast<sockaddr*>(&oAddress), &nSize);
    m_nPort = ntohs(oAddress.sin_port);
    m_oThread = std::thread([this] { Serve(); });
}

CTestPeer::~CTestPeer()
{
    {
        const std::lock_guard oLock(m_oMutex);
        m_bEnd = true;
        if (m_nClient >= 0)
            shutdown(m_nClient, SHUT_RDWR);
        m_oChanged.notify_all();
    }
    shutdown(m_nListener, SHUT_RDWR);
    m_oThread.join();
    close(m_nListener);
}

void CTestPeer::Serve()
{
    const int nYes = 1;
    for (;;) {
        const int nClient = accept(m_nListener, nullptr, nullptr);
        if (nClient < 0)
            return;
        setsockopt(nClient, IPPROTO_TCP, TCP_NODELAY, &nYes, sizeof nYes);
        {
            const std::lock_guard oLock(m_oMutex);
            if (m_bEnd) {
                close(nClient);
                return;
            }
            m_nClient = nClient;
            ++m_nClients;
            m_oChanged.notify_all();
        }
        if (std::unique_lock oLock(m_oMutex); !m_bRead)
            m_oChanged.wait(oLock, [this] { return m_bEnd || m_bRead; });
        std::string strRequest;
        errno = 0;
        while (ReadTelegram(nClient, strRequest)) {
            std::string strAnswer;
            {
                const std::lock_guard oLock(m_oMutex);
                m_astrRequests.push_back(strRequest);
                if (!m_aoPlan.empty()) {
                    const auto [bRaw, strBytes] = m_aoPlan.front();
                    m_aoPlan.pop_front();
                    strAnswer = bRaw ? strBytes
                                     : Telegram(Word(strRequest, 2) | 0x8000,
                                                static_cast<int>(Word(strRequest, 4)), strBytes);
                }
                m_oChanged.notify_all();
            }
            if (!strAnswer.empty()) // a send would also take note of a reset
                SendAll(nClient, strAnswer);
            errno = 0;
        }
        m_bReset = errno == ECONNRESET || (recv(nClient, strRequest.data(), 1, 0) < 0 && errno == ECONNRESET);
        const std::lock_guard oLock(m_oMutex);
        close(nClient);
        m_nClient = -1;
        m_oChanged.notify_all();
    }
}

void CTestPeer::Plan(bool bRaw, const std::string& strBytes)
{
    const std::lock_guard oLock(m_oMutex);
    m_aoPlan.emplace_back(bRaw, strBytes);
}

void CTestPeer::Confirm(const std::string& strHexData)
{
    Plan(false, Hex(strHexData));
}

void CTestPeer::Raw(const std::string& strBytes)
{
    Plan(true, strBytes);
}

std::string CTestPeer::TakeRequest(int nSeconds)
{
    std::unique_lock oLock(m_oMutex);
    if (!m_oChanged.wait_for(oLock, std::chrono::seconds(nSeconds),
                             [this] { return !m_astrRequests.empty(); }))
        return "none";
    const std::string strRequest = m_astrRequests.front();
    m_astrRequests.pop_front();
    return ToHex(strRequest);
}

bool CTestPeer::WaitForClient(unsigned int nNumber)
{
    std::unique_lock oLock(m_oMutex);
    return m_oChanged.wait_for(oLock, PATIENCE, [&] { return m_nClients >= nNumber && m_nClient >= 0; });
}

bool CTestPeer::WaitForEndOfClient()
{
    std::unique_lock oLock(m_oMutex);
    return m_oChanged.wait_for(oLock, PATIENCE, [this] { return m_nClients > 0 && m_nClient < 0; });
}

void CTestPeer::Send(const std::string& strBytes)
{
    WaitForClient();
    std::unique_lock oLock(m_oMutex);
    const int nClient = dup(m_nClient); // stays this connection's when the serving thread closes it meanwhile
    oLock.unlock();
    SendAll(nClient, strBytes);
    close(nClient);
}

void CTestPeer::Close()
{
    WaitForClient();
    const std::lock_guard oLock(m_oMutex);
    shutdown(m_nClient, SHUT_RDWR);
}

void CTestPeer::ReadAgain()
{
    const std::lock_guard oLock(m_oMutex);
    m_bRead = true;
    m_oChanged.notify_all();
}

void CTestPeer::Reset()
{
    WaitForClient();
    const std::lock_guard oLock(m_oMutex);
    const linger oLinger{1, 0};
    setsockopt(m_nClient, SOL_SOCKET, SO_LINGER, &oLinger, sizeof oLinger);
    shutdown(m_nClient, SHUT_RD); // wakes the serving thread, whose close resets
}

void CTestPeer::StopAnsweringAtAll()
{
    const std::lock_guard oLock(m_oMutex);
    sock_filter oDropAll = BPF_STMT(BPF_RET | BPF_K, 0);
    const sock_fprog oProgram{1, &oDropAll};
    for (const int nSocket : {m_nListener, m_nClient}) // without a client: without effect
        setsockopt(nSocket, SOL_SOCKET, SO_ATTACH_FILTER, &oProgram, sizeof oProgram);
}

void OnSmallStack(const std::function<void()>& fnRun)
{
    pthread_attr_t oAttributes;
    pthread_attr_init(&oAttributes);
#ifdef QUORVEL_INSTRUMENTED
    pthread_attr_setstacksize(&oAttributes, 0x100000);
#else
    pthread_attr_setstacksize(&oAttributes, 0x10000);
#endif
    pthread_setattr_default_np(&oAttributes);
    std::thread(fnRun).join();
}

CTraceRecorder::CTraceRecorder(unsigned char nLevelMask)
{
    CTraceServer::SetSink(
        [this](const STraceMessage& oMessage) {
            const std::lock_guard oLock(m_oMutex);
            m_astrTexts.push_back(std::to_string(oMessage.nLevel) + " " + oMessage.pFile + ": " +
                                  oMessage.pText);
        },
        nLevelMask);
}

std::vector<std::string> CTraceRecorder::Take()
{
    const std::lock_guard oLock(m_oMutex);
    return std::exchange(m_astrTexts, {});
}
