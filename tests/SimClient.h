// What tests of the simulated gateways share: a client made of nothing but a socket, conversations in bytes, and
// gateways that run on an address of the test's own.
#ifndef QUORVEL_SIM_CLIENT_H
#define QUORVEL_SIM_CLIENT_H

#include "ConnectedTest.h"
#include "SimGateway.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <linux/tcp.h>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>

namespace simtest
{

using namespace std::chrono_literals;
using TClock = std::chrono::steady_clock;

inline const std::string strAddress = OwnAddress();

/// Asks what stands before each '=' of "request=answer;request=answer"; one without '=' may answer anything.
template<class FAsk>
void Converse(const std::string& strConversation, FAsk fnAsk)
{
    std::istringstream oPairs(strConversation);
    for (std::string strPair; std::getline(oPairs, strPair, ';');) {
        const auto nEqual = strPair.find('=');
        const std::string strAnswer = fnAsk(strPair.substr(0, nEqual));
        if (nEqual != std::string::npos) {
            EXPECT_EQ(strAnswer, strPair.substr(nEqual + 1)) << strPair;
        }
    }
}

/// Reads until there are nLen bytes or the stream ends; a reset adds "RST", running out of patience "LATE".
inline std::string Read(int nDescriptor, std::size_t nLen, const char* pReset = "RST")
{
    std::string strRead;
    while (strRead.size() < nLen) {
        pollfd oPoll{nDescriptor, POLLIN, 0};
        if (poll(&oPoll, 1, 20000) == 0)
            return strRead + "LATE";
        char acChunk[4096];
        const auto nRead =
            TEMP_FAILURE_RETRY(read(nDescriptor, acChunk, std::min(sizeof(acChunk), nLen - strRead.size())));
        if (nRead <= 0)
            return strRead + (nRead < 0 ? pReset : "");
        strRead.append(acChunk, static_cast<std::size_t>(nRead));
    }
    return strRead;
}

class CClient
{
  public:
    CClient(const std::string& strHost, unsigned short nPort) : m_nSocket(socket(AF_INET, SOCK_STREAM, 0))
    {
        const sockaddr_in oAddress{AF_INET, htons(nPort), {inet_addr(strHost.c_str())}, {}};
        m_bConnected =
            connect(m_nSocket, reinterpret_cast<const sockaddr*>(&oAddress), sizeof(oAddress)) == 0;
        const int nOn = 1;
        setsockopt(m_nSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof(nOn));
    }
    explicit CClient(const CSimGateway& oGateway) : CClient(oGateway.GetAddress(), oGateway.GetPort()) {}
    ~CClient() { close(m_nSocket); }
    CClient(const CClient&) = delete;
    CClient& operator=(const CClient&) = delete;

    bool IsConnected() const { return m_bConnected; }
    void Send(const std::string& strBytes) const
    {
        for (std::size_t n = 0; n < strBytes.size();) {
            const auto nSent = send(m_nSocket, strBytes.data() + n, strBytes.size() - n, MSG_NOSIGNAL);
            ASSERT_GT(nSent, 0);
            n += static_cast<std::size_t>(nSent);
        }
    }
    void EndSending() const { shutdown(m_nSocket, SHUT_WR); }
    std::string Receive(std::size_t nLen) const { return ToHex(Read(m_nSocket, nLen)); }
    std::string ReceiveAll() const { return Receive(std::string::npos); }
    std::string ReadAll() const { return Read(m_nSocket, std::string::npos, ""); }
    unsigned SegmentsReceived() const
    {
        tcp_info oInfo{};
        socklen_t nLen = sizeof(oInfo);
        getsockopt(m_nSocket, IPPROTO_TCP, TCP_INFO, &oInfo, &nLen);
        return oInfo.tcpi_data_segs_in;
    }

    /// Frames a request, and takes the frame off its answer, which must have the right code and id.
    std::string Ask(unsigned nCode, const std::string& strData)
    {
        Request(nCode, strData);
        return Answer(nCode);
    }
    void Request(unsigned nCode, const std::string& strData) { Send(Telegram(nCode, ++m_nID, strData)); }
    std::string Answer(unsigned nCode) const
    {
        std::string strAnswer = Read(m_nSocket, 2);
        strAnswer.resize(2);
        strAnswer += Read(m_nSocket, static_cast<unsigned char>(strAnswer[0]) +
                                         256U * static_cast<unsigned char>(strAnswer[1]));
        const std::string strData = strAnswer.size() < 7 ? "" : strAnswer.substr(6, strAnswer.size() - 7);
        return strAnswer == Telegram(nCode | 0x8000, m_nID, strData) ? ToHex(strData)
                                                                     : "bad answer: " + ToHex(strAnswer);
    }
    /// Holds a conversation such as "0D05 63 31=00": command code and data, and what is answered.
    void Talk(const std::string& strConversation)
    {
        Converse(strConversation, [this](const std::string& strRequest) {
            return Ask(static_cast<unsigned>(std::stoi(strRequest, nullptr, 16)), Hex(strRequest.substr(4)));
        });
    }

  private:
    int m_nSocket;
    bool m_bConnected = false;
    int m_nID = 0x1230;
};

template<class TGateway>
class CStarted : public TGateway
{
  public:
    template<class... TArguments>
    explicit CStarted(TArguments... oArguments) : TGateway(oArguments...)
    {
        std::string strError;
        EXPECT_TRUE(this->Start(strAddress, 0, &strError)) << strError;
    }
    ~CStarted() override { this->Stop(); }
};

} // namespace simtest

#endif
