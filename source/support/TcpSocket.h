// One TCP socket, non-blocking, and a way to wake the thread that waits on it.
#ifndef QUORVEL_TCP_SOCKET_H
#define QUORVEL_TCP_SOCKET_H

#include "support/ZelTime.h"

#include <chrono>
#include <optional>
#include <string>

#include <sys/socket.h>

struct addrinfo;

// Functions that wait may be called by one thread for each direction; Wake by any. Results are transport codes.
class CTcpSocket
{
  public:
    CTcpSocket();
    ~CTcpSocket();
    CTcpSocket(const CTcpSocket&) = delete;
    CTcpSocket& operator=(const CTcpSocket&) = delete;

    // Connects to the first address of the host that answers. The time counts from when the name is looked up; it is
    // shared out among the addresses, so that a dead one does not use it all up. A wake-up ends it with eSocketError.
    int Connect(const std::string& strHost, unsigned short nPort, unsigned int nTimeout);

    // Sends a message, and takes what was sent off its front. bBegun becomes true when that is anything at all.
    int Send(msghdr& oMessage, const CZelDeadline& oDeadline, bool& bBegun);

    enum EReady { eReady, eWoken, eTimeOver };

    // Waits, as the thread that receives, for Wake and, while they are its business, for bytes.
    EReady WaitForBytes(unsigned int nTimeout) const;

    // Whether arriving bytes wake the thread that receives; at first they do.
    void SetWatched(bool bWatched) const;

    // The same wait on any other thread; without bBytes for Wake alone.
    EReady Wait(unsigned int nTimeout, bool bBytes = true) const;

    // Takes what there is: the number of bytes; 0 at the end of the stream or after an error; nothing when there is none.
    std::optional<std::size_t> Receive(char* pBuffer, std::size_t nSize) const;

    // Ends a wait, or the next one. The first thread that has the reading to itself takes it back.
    void Wake() const;
    bool TakeWake() const;

    // Nothing more is sent. What was sent still arrives, if the peer's bytes are read until it ends.
    void EndSending() const;

    // Ends both directions; what waits for the socket ends.
    void EndBoth() const;

    // The same, and the peer is told by a reset when the socket is closed.
    void Reset() const;

    // Has the thread that receives wait for what was connected. False when the system has nothing left for it.
    bool Watch();

    // Closes everything; what waits must have ended.
    void Close();

    // True when the peer has all that was sent.
    bool IsAllAcknowledged() const;

    // True when the peer has ended the connection, or reset it, and nothing more can be acknowledged.
    bool IsOver() const;

    // Keep-alive probes while nothing is on its way. IsPeerGone does the rest.
    void SetAlive(unsigned int nMilliSeconds) const;

    // True when something that wants an answer has had none for this time. To be asked several times in that time.
    bool IsPeerGone(unsigned int nMilliSeconds);

    bool IsOpen() const { return m_nSocket >= 0; }

  private:
    int ConnectTo(const addrinfo& oAddress, const CZelDeadline& oDeadline);
    void CloseSocket();

    using CTime = std::chrono::steady_clock::time_point;

    int m_nSocket = -1;
    int m_nWake;       // an eventfd
    int m_nWatch = -1; // an epoll, for the thread that receives
    CTime m_oAsked;    // the last call of IsPeerGone
    CTime m_oAnswered; // the peer owes no answer to anything older
};

#endif
