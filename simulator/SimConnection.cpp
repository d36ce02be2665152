#include "SimConnection.h"

#include "SimGateway.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/socket.h>
#include <utility>

namespace
{

// With so much waiting for a client, its next requests wait, too.
constexpr std::size_t nMaxPendingBytes = std::size_t{1} << 20;
constexpr std::size_t nMaxTimers = 256;
// With so much waiting for a client, indications are lost.
constexpr std::size_t nMaxPostedBytes = std::size_t{4} << 20;
constexpr std::size_t nChunk = std::size_t{64} << 10;
constexpr unsigned nFloodCommand = 0xF0;

} // namespace

CSimConnection::CSimConnection(CSimGateway& oGateway, CSimDescriptor oSocket, std::string strPeer,
                               unsigned nNumber, bool bRefused, CFaultPlan oPlan)
    : m_oGateway(oGateway),
      m_oSocket(std::move(oSocket)),
      m_strPeer(std::move(strPeer)),
      m_nNumber(nNumber),
      m_bRefused(bRefused),
      m_oPlan(std::move(oPlan)),
      m_aoChunk(nChunk)
{
}

CSimConnection::~CSimConnection()
{
    Drop();
    if (m_oThread.joinable())
        m_oThread.join();
}

void CSimConnection::Start()
{
    m_oThread = std::thread(&CSimConnection::Run, this);
}

void CSimConnection::Drop()
{
    m_bDrop = true;
    m_oWake.Signal();
}

bool CSimConnection::Post(const SSimTelegram& oIndication, unsigned nDelayMs)
{
    std::string strBytes = oIndication.ToBytes();
    {
        const std::lock_guard oLock(m_oMutexPosted);
        if (m_nPending + strBytes.size() > nMaxPostedBytes)
            return false;
        m_nPending += strBytes.size();
        m_aoPosted.push_back({TSimClock::now() + std::chrono::milliseconds(nDelayMs), std::move(strBytes)});
    }
    m_oWake.Signal();
    return true;
}

void CSimConnection::Run()
{
    while (!m_bDrop && m_bOpen && m_oWake.IsOpen()) {
        if (Serve() || !m_bOpen)
            continue;
        std::array<pollfd, 2> aoPoll{};
        aoPoll[0].fd = m_oWake.Get();
        aoPoll[0].events = POLLIN;
        aoPoll[1].fd = m_oSocket.Get();
        aoPoll[1].events = static_cast<short>((HasRoom() ? POLLIN : 0) | (m_aoOutput.empty() ? 0 : POLLOUT));
        std::optional<TSimTime> oUntil;
        if (m_nPending < nMaxPendingBytes && !m_aoTimers.empty())
            oUntil = m_aoTimers.begin()->first;
        SimPoll(aoPoll, oUntil);
        if (aoPoll[0].revents != 0)
            m_oWake.Clear();
        if ((aoPoll[1].revents & POLLIN) != 0)
            Receive();
        else if ((aoPoll[1].revents & (POLLERR | POLLHUP)) != 0)
            m_bOpen = false;
    }
    m_oSocket.Close();
    m_oGateway.OnConnectionEnd(*this);
}

/// Does what can be done without waiting: one timer that is due, one request. True when more requests are
/// there.
bool CSimConnection::Serve()
{
    TakePosted();
    if (m_nPending < nMaxPendingBytes && !m_aoTimers.empty() &&
        m_aoTimers.begin()->first <= TSimClock::now()) {
        const auto oTimer = m_aoTimers.extract(m_aoTimers.begin());
        oTimer.mapped()();
    }
    bool bMore = false;
    if (HasRoom()) {
        SSimTelegram oRequest;
        std::string strProblem;
        const auto eResult = m_oCutter.Next(oRequest, strProblem);
        bMore = eResult != CSimTelegramCutter::EResult::eNone;
        if (eResult == CSimTelegramCutter::EResult::eTelegram)
            Handle(oRequest);
        else if (eResult == CSimTelegramCutter::EResult::eDamaged)
            m_oGateway.Log("telegram from " + m_strPeer + " dropped: " + strProblem);
    }
    Send();
    return bMore;
}

bool CSimConnection::HasRoom() const
{
    return m_nPending < nMaxPendingBytes && m_aoTimers.size() < nMaxTimers;
}

void CSimConnection::Receive()
{
    const auto nReceived = ::recv(m_oSocket.Get(), m_aoChunk.data(), m_aoChunk.size(), 0);
    if (nReceived > 0)
        m_oCutter.Append(m_aoChunk.data(), static_cast<std::size_t>(nReceived));
    else if (nReceived == 0 || (errno != EAGAIN && errno != EINTR))
        m_bOpen = false;
}

void CSimConnection::Send()
{
    while (m_bOpen && !m_aoOutput.empty()) {
        const SOutput& oOutput = m_aoOutput.front();
        if (m_nSent < oOutput.strBytes.size()) {
            std::size_t nLen = oOutput.strBytes.size() - m_nSent;
            if (oOutput.nSegment != 0)
                nLen = std::min(nLen, oOutput.nSegment);
            const auto nSent = ::send(m_oSocket.Get(), oOutput.strBytes.data() + m_nSent, nLen, MSG_NOSIGNAL);
            if (nSent < 0) {
                m_bOpen = errno == EAGAIN || errno == EINTR;
                return;
            }
            m_nSent += static_cast<std::size_t>(nSent);
            if (m_nSent < oOutput.strBytes.size())
                continue;
        }
        const EAction eAction = oOutput.eAction;
        m_nPending -= oOutput.strBytes.size();
        m_nSent = 0;
        m_aoOutput.pop_front();
        Execute(eAction);
    }
}

void CSimConnection::Execute(EAction eAction)
{
    switch (eAction) {
    case EAction::eNone:
        break;
    case EAction::eReset: {
        const linger oLinger{1, 0};
        ::setsockopt(m_oSocket.Get(), SOL_SOCKET, SO_LINGER, &oLinger, sizeof(oLinger));
        m_bOpen = false;
        break;
    }
    case EAction::eClose:
        m_bOpen = false;
        break;
    case EAction::eHalfClose:
        ::shutdown(m_oSocket.Get(), SHUT_WR);
        break;
    case EAction::eRestart:
        m_oGateway.RequestRestart();
        break;
    }
}

void CSimConnection::TakePosted()
{
    std::vector<SPosted> aoPosted;
    {
        const std::lock_guard oLock(m_oMutexPosted);
        aoPosted.swap(m_aoPosted);
    }
    for (auto& oPosted : aoPosted) {
        m_nPending -= oPosted.strBytes.size();
        if (m_bSilent)
            continue;
        if (oPosted.oDue <= TSimClock::now())
            Output(std::move(oPosted.strBytes), 0);
        else
            m_aoTimers.emplace(oPosted.oDue, [this, strBytes = std::move(oPosted.strBytes)] {
                if (!m_bSilent)
                    Output(strBytes, 0);
            });
    }
}

void CSimConnection::Handle(const SSimTelegram& oRequest)
{
    if ((oRequest.nCmdCode & 0x8000) != 0) {
        m_oGateway.Log("telegram from " + m_strPeer + " dropped: a confirmation");
        return;
    }
    Proceed(oRequest.nCmdCode, oRequest.nID, m_oGateway.Handle(oRequest, *this));
}

void CSimConnection::Proceed(unsigned short nCmdCode, short nID, SSimAnswer oAnswer)
{
    if (oAnswer.bNone)
        return;
    if (!oAnswer.fnContinue) {
        Finish(nCmdCode, nID, oAnswer);
        return;
    }
    m_aoTimers.emplace(oAnswer.oDue, [this, nCmdCode, nID, fnContinue = std::move(oAnswer.fnContinue)] {
        Proceed(nCmdCode, nID, m_oGateway.Continue(fnContinue));
    });
}

void CSimConnection::Finish(unsigned short nCmdCode, short nID, const SSimAnswer& oAnswer)
{
    const SAnswerFaults oFaults = m_oPlan.At(++m_nAnswers);
    SSimTelegram oTelegram;
    oTelegram.nCmdCode = static_cast<unsigned short>(nCmdCode | 0x8000);
    oTelegram.nID = nID;
    oTelegram.strData = static_cast<char>(oFaults.oResult.value_or(oAnswer.nResult)) + oAnswer.strData;
    if (oFaults.oTruncate)
        oTelegram.strData.resize(std::min(oTelegram.strData.size(), *oFaults.oTruncate));
    oTelegram.strData.append(std::min(oFaults.nExtend, SSimTelegram::nMaxData - oTelegram.strData.size()),
                             'U');
    if (oFaults.oID)
        oTelegram.nID = static_cast<short>(*oFaults.oID > 0xFFFF ? nID + 1 : static_cast<int>(*oFaults.oID));
    if (oFaults.oCode)
        oTelegram.nCmdCode =
            static_cast<unsigned short>(*oFaults.oCode > 0xFFFF ? oTelegram.nCmdCode ^ 1U : *oFaults.oCode);
    std::string strBytes = oTelegram.ToBytes();
    if (oFaults.bBadCheck)
        strBytes.back() = static_cast<char>(~strBytes.back());
    if (oFaults.nLengthShift != 0) {
        std::string strLength;
        SimPut16(strLength, static_cast<unsigned>(std::clamp(
                                static_cast<int>(SimGet16(strBytes, 0)) + oFaults.nLengthShift, 0, 0xFFFF)));
        strBytes.replace(0, 2, strLength);
    }
    if (oFaults.nDelayMs == 0)
        Transmit(oFaults, strBytes, oAnswer.bRestart);
    else
        m_aoTimers.emplace(TSimClock::now() + std::chrono::milliseconds(oFaults.nDelayMs),
                           [this, oFaults, strBytes = std::move(strBytes), bRestart = oAnswer.bRestart] {
                               Transmit(oFaults, strBytes, bRestart);
                           });
}

void CSimConnection::Transmit(const SAnswerFaults& oFaults, const std::string& strBytes, bool bRestart)
{
    m_bSilent = m_bSilent || oFaults.bSilent;
    if (!m_bSilent) {
        std::string strFlood;
        SSimTelegram oIndication;
        oIndication.nCmdCode =
            static_cast<unsigned short>(static_cast<unsigned>(m_oGateway.GetKind()) << 8 | nFloodCommand);
        for (unsigned i = 0; i < oFaults.nFlood; i++) {
            oIndication.strData.clear();
            SimPut32(oIndication.strData, i);
            strFlood += oIndication.ToBytes();
        }
        Output(std::move(strFlood), oFaults.nSplit);
        if (oFaults.bClose) {
            ReleaseHeld(0);
            Output({}, 0, EAction::eClose);
        } else if (oFaults.bHalfClose) {
            ReleaseHeld(0);
            Output({}, 0, EAction::eHalfClose);
            m_bSilent = true;
        } else if (oFaults.bRestart) {
            bRestart = true;
        } else if (oFaults.bReset) {
            ReleaseHeld(0);
            Output(strBytes.substr(0, strBytes.size() / 2), oFaults.nSplit, EAction::eReset);
        } else if (!oFaults.bDrop) {
            for (unsigned i = 0; i < (oFaults.bDuplicate ? 2U : 1U); i++) {
                if (oFaults.nGlue == 1)
                    ReleaseHeld(0);
                m_strHeld += strBytes;
                if (++m_nHeld >= oFaults.nGlue || m_strHeld.size() >= nMaxPendingBytes)
                    ReleaseHeld(oFaults.nSplit);
            }
        }
    }
    if (bRestart) {
        ReleaseHeld(0);
        Output({}, 0, EAction::eRestart);
    }
}

void CSimConnection::ReleaseHeld(std::size_t nSegment)
{
    if (!m_bSilent)
        Output(std::move(m_strHeld), nSegment);
    m_strHeld.clear();
    m_nHeld = 0;
}

void CSimConnection::Output(std::string strBytes, std::size_t nSegment, EAction eAction)
{
    if (strBytes.empty() && eAction == EAction::eNone)
        return;
    m_nPending += strBytes.size();
    m_aoOutput.push_back({std::move(strBytes), nSegment, eAction});
}
