// One TCP connection's life: its socket, the bytes received, and whose turn it is to read them.
#ifndef QUORVEL_RECEPTION_H
#define QUORVEL_RECEPTION_H

#include "support/TcpSocket.h"
#include "support/ZelEvent.h"
#include "support/ZelMonitor.h"
#include "support/ZelMutex.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string_view>
#include <thread>

// A telegram with its length bytes.
constexpr std::size_t MAX_TELEGRAM = 65535;

// It outlives the CZelIPConnection: that may be deleted at the end of its own receive thread, and what the peer sends
// after a close is read in the background.
//
// Reading belongs to the receive thread, or to one caller that waits for an answer, or for a moment to nobody; whoever
// has it also has the buffer. While a caller has it, arriving bytes do not wake the receive thread.
class CReception
{
  public:
    CReception();

    // The connection is over for its user: nothing more is delivered or sent.
    void Stop(unsigned int nTimeout) noexcept;

    // Takes a connection out of use that the peer has ended.
    void Lose() noexcept;

    // A child process has a copy of the socket, but not of the threads.
    void Abandon() noexcept;

    bool IsStopped() const { return m_bStop || m_nForks != CZelMonitor::GetForkCount(); }

    // Probes from now on, also without an answer to wait for.
    void SetAlive(unsigned int nMilliSeconds);

    // For the receive thread, which has the reading at first. Gives it back, waits for bytes, and has it again. False at
    // the end of the connection.
    bool Fill();

    // For a caller. False when somebody else has the reading, or bytes for the receive thread are waiting, or have just
    // come.
    bool BeginRead();

    // Waits for bytes. False when the caller has to give the reading back.
    bool Read(unsigned int nTimeout);

    // Gives the reading back. With bHandOver what is in the buffer is for the receive thread, which is woken.
    void EndRead(bool bHandOver);

    // The next whole telegram in the buffer; empty when there is none. One that is too long is read past and traced.
    std::string_view Peek()
    {
        const std::size_t nTotal = m_nSkip == 0 ? GetTotal() : 0;
        return nTotal != 0 && nTotal <= m_nHave - m_nPos ? std::string_view(m_pBuffer.get() + m_nPos, nTotal)
                                                         : PeekBehindGap();
    }

    // Takes that telegram out; its bytes stay readable until the buffer is filled again.
    void Pop(std::size_t nBytes) { m_nPos += nBytes; }

    bool IsMine(std::string_view strTelegram) const
    {
        return m_fnMine != nullptr &&
               m_fnMine(strTelegram.data(), static_cast<unsigned short>(strTelegram.size()));
    }

    // An indication was delivered: callers leave the reading to the receive thread for a while.
    void NoteIndication() { m_oLastIndication = std::chrono::steady_clock::now(); }

    // Waits until what was sent has arrived, and then, in the background, until the peer ends.
    void Linger();

    // Closes the socket.
    void Close();

    CTcpSocket m_oSocket;
    bool (*m_fnMine)(const char* pData,
                     unsigned short nLen) = nullptr; // what a caller that reads may deliver
    CZelMutex m_oMutexSend;                          // held for one telegram, and to close the socket
    std::atomic<bool> m_bStop{false};                // nothing more is delivered
    std::atomic<bool> m_bBlocked{false};             // a sender was waiting when the connection was stopped
    std::atomic<bool> m_bCut{false};                 // part of a telegram is out, and the rest never will be
    std::atomic<bool> m_bArrived{true};              // what was sent; valid when m_oEventEnded is signalled
    CZelEvent m_oEventQuiet;                         // no indication runs or will
    CZelEvent m_oEventEnded;                         // and what was sent has arrived, or never will
    std::thread::id m_oThread;
    std::function<void()> m_fnLast; // used by the receive thread only

  private:
    enum EReader { eNobody, eThread, eCaller };

    // The length of the telegram that begins in the buffer; 0 while that is not known, or when it is too long.
    std::size_t GetTotal() const
    {
        if (m_nHave - m_nPos < 2)
            return 0;
        const char* const pTelegram = m_pBuffer.get() + m_nPos;
        const std::size_t nTotal =
            static_cast<unsigned char>(pTelegram[0]) + 256U * static_cast<unsigned char>(pTelegram[1]) + 2;
        return nTotal <= MAX_TELEGRAM ? nTotal : 0;
    }

    std::string_view PeekBehindGap();
    void LeaveToCallers();
    void TakeForThread();
    std::optional<std::size_t> FillBuffer();

    std::atomic<unsigned int> m_nAlive{0};  // milliseconds
    std::atomic<unsigned int> m_nLinger{0}; // milliseconds to wait for the peer when stopped
    const unsigned int m_nForks = CZelMonitor::GetForkCount();

    CZelMonitor m_oMonitor; // guards the next three
    EReader m_eReader = eThread;
    std::thread::id m_oCaller;
    bool m_bForThread = false; // nobody but the receive thread may have the reading next

    // Whoever has the reading has these.
    std::unique_ptr<char[]> m_pBuffer;
    std::size_t m_nPos = 0;  // where the first telegram in the buffer begins
    std::size_t m_nHave = 0; // where the bytes in the buffer end
    std::size_t m_nSkip = 0; // bytes still to come of a telegram that is too long
    bool m_bEnded = false;   // the stream has ended
    std::chrono::steady_clock::time_point m_oLastIndication;
};

#endif
