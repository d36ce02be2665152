#include "support/Reception.h"

#include "support/TraceServer.h"
#include "support/ZelTime.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace
{

constexpr const char* UNIT = "source/support/ZelIPConnection";
constexpr std::size_t BUFFER = 0x20000; // a partial telegram and, behind it, room for a large read
constexpr unsigned int NO_LIMIT = 0xFFFFFFFFU;
constexpr unsigned int LINGER =
    10000; // milliseconds for a peer that does not end, where nothing else limits them
// Indications that follow each other faster than this would each take the reading from a caller.
constexpr auto QUIET = std::chrono::milliseconds(2);

void TraceTooLong(std::size_t nBytes)
{
    if (!CTraceServer::IsEnabled(16))
        return;
    char acText[80]; // needs no memory
    std::snprintf(acText, sizeof acText, "telegram of %zu bytes is too long and is discarded.", nBytes);
    CTraceServer::SendTraceMessage(16, 3, 0xFFFFFFFFU, __LINE__, UNIT, acText, 0);
}

} // namespace

// The buffer is not cleared: only the pages that data reaches are ever touched.
CReception::CReception() : m_pBuffer(new char[BUFFER]) {}

void CReception::Stop(unsigned int nTimeout) noexcept
{
    {
        const std::unique_lock oLock = m_oMonitor.Lock();
        if (m_eReader == eCaller &&
            m_oCaller == std::this_thread::get_id()) { // closed in the middle of its exchange
            m_eReader = eNobody;
            m_oMonitor.GetCondition().notify_all();
        }
        m_nLinger = nTimeout == NO_LIMIT ? LINGER : nTimeout;
        m_bStop = true;
    }
    m_oSocket.EndSending();
    m_oSocket.Wake();
}

void CReception::Lose() noexcept
{
    m_bStop = true;
    m_oSocket.EndBoth();
}

void CReception::Abandon() noexcept
{
    m_bStop = true;
    m_oSocket.Close();
    m_oEventQuiet.Signal();
    m_oEventEnded.Signal();
}

void CReception::SetAlive(unsigned int nMilliSeconds)
{
    m_nAlive = nMilliSeconds;
    m_oSocket.SetAlive(nMilliSeconds);
    m_oSocket.Wake(); // to look after the peer, or to stop that
}

bool CReception::Fill()
{
    bool bWait = m_nHave < BUFFER; // a full buffer: there is probably more
    while (!IsStopped()) {
        if (bWait) {
            LeaveToCallers();
            CTcpSocket::EReady eEnd;
            bool bGone = false;
            do {
                const unsigned int nAlive = m_nAlive;
                eEnd = m_oSocket.WaitForBytes(nAlive == 0 ? NO_LIMIT : std::max(nAlive / 8, 50U));
                bGone = eEnd == CTcpSocket::eTimeOver && m_oSocket.IsPeerGone(nAlive);
            } while (eEnd == CTcpSocket::eTimeOver && !bGone);
            if (bGone)
                m_oSocket.Wake(); // a caller that reads gives it back
            TakeForThread();
            if (eEnd == CTcpSocket::eWoken)
                m_oSocket.TakeWake();
            if (bGone)
                return false;
            if (!Peek().empty()) // a caller has left it
                return true;
        }
        const auto nRead = FillBuffer();
        if (nRead)
            return *nRead > 0;
        bWait = true;
    }
    return false;
}

void CReception::LeaveToCallers()
{
    const std::unique_lock oLock = m_oMonitor.Lock();
    m_eReader = eNobody;
}

// Waits until the caller that reads has given the reading back: it has been woken, or has what it wants in a moment.
void CReception::TakeForThread()
{
    std::unique_lock oLock = m_oMonitor.Lock();
    m_bForThread = true;
    m_oMonitor.GetCondition().wait(oLock, [this] { return m_eReader != eCaller; });
    m_bForThread = false;
    m_eReader = eThread;
}

bool CReception::BeginRead()
{
    const std::unique_lock oLock = m_oMonitor.Lock();
    if (m_eReader != eNobody || m_bForThread || IsStopped() ||
        std::chrono::steady_clock::now() - m_oLastIndication < QUIET)
        return false;
    m_eReader = eCaller;
    m_oCaller = std::this_thread::get_id();
    m_oSocket.SetWatched(false);
    return true;
}

void CReception::EndRead(bool bHandOver)
{
    const std::unique_lock oLock = m_oMonitor.Lock();
    if (m_eReader != eCaller) // stopped by this very thread
        return;
    m_oSocket.SetWatched(true); // which also tells what has come meanwhile
    m_oMonitor.GetCondition().notify_all();
    m_eReader = eNobody;
    if (bHandOver) {
        m_bForThread = true;
        m_oSocket.Wake();
    }
}

bool CReception::Read(unsigned int nTimeout)
{
    if (IsStopped())
        return false;
    switch (m_oSocket.Wait(nTimeout)) {
    case CTcpSocket::eReady:
        return FillBuffer() != 0U;
    case CTcpSocket::eTimeOver:
        return true;
    default:
        return false;
    }
}

// Puts what there is behind what is in the buffer: how much; 0 at the end; nothing when there is none.
std::optional<std::size_t> CReception::FillBuffer()
{
    if (m_bEnded)
        return 0;
    if (m_nPos > 0) {
        m_nHave -= m_nPos;
        std::memmove(m_pBuffer.get(), m_pBuffer.get() + m_nPos, m_nHave);
        m_nPos = 0;
    }
    const auto nRead = m_oSocket.Receive(m_pBuffer.get() + m_nHave, BUFFER - m_nHave);
    m_nHave += nRead.value_or(0);
    m_bEnded = nRead == 0U; // an error is told only once
    return nRead;
}

std::string_view CReception::PeekBehindGap()
{
    for (;;) {
        const std::size_t nSkipNow = std::min(m_nSkip, m_nHave - m_nPos);
        m_nPos += nSkipNow;
        m_nSkip -= nSkipNow;
        if (m_nHave - m_nPos < 2)
            return {};
        if (GetTotal() != 0)
            return GetTotal() <= m_nHave - m_nPos ? Peek() : std::string_view();
        m_nSkip = 2 + static_cast<unsigned char>(m_pBuffer[m_nPos]) +
                  256U * static_cast<unsigned char>(m_pBuffer[m_nPos + 1]);
        TraceTooLong(m_nSkip);
    }
}

// What the peer sends after the connection was closed from this side is read and thrown away, so that the system does
// not answer it by a reset: that would take with it what the peer has not received or not read yet.
void CReception::Linger()
{
    CZelDeadline oDeadline(m_nLinger);
    unsigned int nPause = 1; // the system does not tell when something is acknowledged
    bool bTold = false;
    bool bPeerEnded = false;
    while (!m_bCut) {
        if (!bTold && (m_bBlocked || m_oSocket.IsAllAcknowledged())) {
            bTold = true;
            m_oEventEnded.Signal();
            oDeadline = CZelDeadline(std::min(oDeadline.GetRemaining(), LINGER));
        }
        const unsigned int nLeft = oDeadline.GetRemaining();
        if (nLeft == 0 || (bPeerEnded && (bTold || m_oSocket.IsOver())))
            break;
        const unsigned int nWait = bTold ? nLeft : std::min(nLeft, nPause);
        nPause = std::min(2 * nPause, 50U);
        if (m_oSocket.Wait(nWait, !bPeerEnded) == CTcpSocket::eReady)
            bPeerEnded = m_oSocket.Receive(m_pBuffer.get(), BUFFER) == 0U;
        m_oSocket.TakeWake();
    }
    m_bArrived = bTold || m_bCut || m_oSocket.IsAllAcknowledged();
}

void CReception::Close()
{
    const CZelLock oLock(m_oMutexSend);
    m_oSocket.Close();
    m_oEventEnded.Signal();
}
