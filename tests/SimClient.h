// What tests of the simulated gateways share: bytes as text, a client made of nothing but a socket, gateways that
// run on an address of the test's own.
#ifndef QUORVEL_SIM_CLIENT_H
#define QUORVEL_SIM_CLIENT_H

#include "SimGateway.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <chrono>
#include <functional>
#include <linux/tcp.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace simtest
{

using namespace std::chrono_literals;
using TClock = std::chrono::steady_clock;

// Of this process alone, so that fixed ports do not collide with those of another run.
inline const std::string strAddress =
    "127.66." + std::to_string(getpid() >> 8 & 0xFF) + "." + std::to_string(getpid() & 0xFF);
inline constexpr auto nPatience = 20s;

inline std::string Bytes(const std::string& strHex)
{
    std::string strBytes;
    for (std::size_t i = 0; i + 1 < strHex.size(); i += 3)
        strBytes += static_cast<char>(std::stoi(strHex.substr(i, 2), nullptr, 16));
    return strBytes;
}

inline std::string Hex(const std::string& strBytes)
{
    std::string strHex;
    for (const char c : strBytes) {
        strHex += strHex.empty() ? "" : " ";
        strHex += "0123456789ABCDEF"[static_cast<unsigned char>(c) >> 4];
        strHex += "0123456789ABCDEF"[c & 0xF];
    }
    return strHex;
}

/// Reads until there are nLen bytes or the stream ends; a reset adds "RST", running out of patience "LATE".
inline std::string Read(int nDescriptor, std::size_t nLen)
{
    std::string strRead;
    const auto oDeadline = TClock::now() + nPatience;
    while (strRead.size() < nLen) {
        pollfd oPoll{nDescriptor, POLLIN, 0};
        const auto nRest = std::chrono::duration_cast<std::chrono::milliseconds>(oDeadline - TClock::now());
        if (nRest <= 0ms || poll(&oPoll, 1, static_cast<int>(nRest.count())) == 0)
            return strRead + "LATE";
        char acChunk[4096];
        const auto nRead = read(nDescriptor, acChunk, std::min(sizeof(acChunk), nLen - strRead.size()));
        if (nRead <= 0)
            return strRead + (nRead < 0 ? "RST" : "");
        strRead.append(acChunk, static_cast<std::size_t>(nRead));
    }
    return strRead;
}

class CClient
{
  public:
    CClient(const std::string& strHost, unsigned short nPort) : m_nSocket(socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in oAddress{};
        oAddress.sin_family = AF_INET;
        oAddress.sin_port = htons(nPort);
        inet_pton(AF_INET, strHost.c_str(), &oAddress.sin_addr);
        m_bConnected = connect(m_nSocket, reinterpret_cast<sockaddr*>(&oAddress), sizeof(oAddress)) == 0;
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
    std::string Receive(std::size_t nLen) const { return Hex(Read(m_nSocket, nLen)); }
    std::string ReceiveAll() const { return Hex(Read(m_nSocket, std::string::npos)); }
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
    void Request(unsigned nCode, const std::string& strData)
    {
        m_nID++;
        const std::string strBody = Number(nCode) + Number(m_nID) + strData;
        Send(Number(static_cast<unsigned>(strBody.size() + 1)) + strBody + Check(strBody));
    }
    std::string Answer(unsigned nCode)
    {
        const std::string strLength = Read(m_nSocket, 2);
        if (strLength.size() != 2)
            return "no answer: " + Hex(strLength);
        const auto nLength = static_cast<std::size_t>(static_cast<unsigned char>(strLength[0]) +
                                                      256 * static_cast<unsigned char>(strLength[1]));
        const std::string strBody = Read(m_nSocket, nLength);
        if (strBody.size() < 5 || strBody.substr(0, 4) != Number(nCode | 0x8000) + Number(m_nID) ||
            Check(strBody) != std::string(1, '\0'))
            return "bad answer: " + Hex(strBody);
        return Hex(strBody.substr(4, nLength - 5));
    }

  private:
    static std::string Number(unsigned n)
    {
        return {static_cast<char>(n & 0xFF), static_cast<char>(n >> 8 & 0xFF)};
    }
    static std::string Check(const std::string& strBytes)
    {
        char nCheck = 0;
        for (const char c : strBytes)
            nCheck = static_cast<char>(nCheck ^ c);
        return std::string(1, nCheck);
    }

    int m_nSocket;
    bool m_bConnected = false;
    unsigned m_nID = 0x1230;
};

template<class TGateway>
class CStarted : public TGateway
{
  public:
    CStarted()
    {
        std::string strError;
        EXPECT_TRUE(this->Start(strAddress, 0, &strError)) << strError;
    }
    ~CStarted() override { this->Stop(); }
};

inline bool Within(const std::function<bool()>& fnCondition)
{
    const auto oDeadline = TClock::now() + nPatience;
    while (!fnCondition()) {
        if (TClock::now() > oDeadline)
            return false;
        std::this_thread::yield();
    }
    return true;
}

} // namespace simtest

#endif
