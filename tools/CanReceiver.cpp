#include "CanReceiver.h"

#include "Text.h"

#include <algorithm>
#include <utility>

namespace
{

constexpr unsigned char FLAG_EXTENDED = 0x01;
constexpr unsigned char FLAG_REMOTE = 0x02;
constexpr unsigned char FLAG_TIMESTAMP = 0x04;
constexpr unsigned char FLAG_FD = 0x08;
constexpr std::size_t HEADER = 5; // identifier and flags
constexpr unsigned char TO_NODE = 0x80;

bool GetFrame(const SCanIndication& oIndication, SCanRecord& oRecord)
{
    const std::string& strData = oIndication.strData;
    if (strData.size() < HEADER)
        return false;
    const unsigned char nFlags = oIndication.Byte(4);
    timeval oTime{};
    const unsigned short nLength = CQuorvelClientCANDll::GetTime(
        nFlags, strData.data() + HEADER, static_cast<unsigned short>(strData.size() - HEADER), oTime);
    SCanFrame& oFrame = oRecord.oFrame;
    CQuorvelMsg::FromChar(oFrame.nIdentifier, strData.data());
    if (nLength > 64)
        return false;
    if ((nFlags & FLAG_TIMESTAMP) != 0 && strData.size() >= HEADER + 8)
        oRecord.nTime = std::int64_t{oTime.tv_sec} * 1'000'000'000 + std::int64_t{oTime.tv_usec} * 1000;
    oFrame.bExtended = (nFlags & FLAG_EXTENDED) != 0;
    oFrame.bRemote = (nFlags & FLAG_REMOTE) != 0;
    oFrame.eKind = (nFlags & FLAG_FD) != 0 || nLength > 8 ? SCanFrame::eFd : SCanFrame::eClassic;
    if (!oFrame.bRemote)
        oFrame.strData.assign(strData, HEADER, nLength);
    return true;
}

} // namespace

bool GetRecord(const SCanIndication& oIndication, SCanRecord& oRecord)
{
    SCanFrame& oFrame = oRecord.oFrame;
    oFrame = {};
    oRecord.nTime = oIndication.nTime;
    oRecord.cDirection = 'R';
    const std::string& strData = oIndication.strData;
    const unsigned nNode = oIndication.Byte(0);
    switch (oIndication.nCode) {
    case eCanFrame:
    case eCanUndefined:
        return GetFrame(oIndication, oRecord);
    case eCanSync:
        oFrame.nIdentifier = 0x080;
        if (nNode != 0)
            oFrame.strData = strData.substr(0, 1); // the counter, if there is one
        return true;
    case eCanEmcy:
        oFrame.nIdentifier = 0x080 + nNode;
        oFrame.strData = strData.substr(std::min<std::size_t>(1, strData.size()), 8);
        return true;
    case eCanPdo: {
        const unsigned nType = oIndication.Byte(1);
        oFrame.nIdentifier = ((nType & TO_NODE) != 0 ? 0x100 : 0x080) + 0x100 * (nType & 0x07U) + nNode;
        oFrame.strData = strData.substr(std::min<std::size_t>(3, strData.size()), oIndication.Byte(2));
        return oFrame.strData.size() <= 8;
    }
    case eCanGuard:
        oFrame.nIdentifier = 0x700 + nNode;
        oFrame.strData = strData.substr(std::min<std::size_t>(1, strData.size()), 1);
        return true;
    default:
        return false;
    }
}

std::string GetCanName(CTool& oTool)
{
    return fmt::format("can{}", oTool.GetOptions().nPortIndex);
}

int SetCanName(CTool& oTool, const std::string& strName)
{
    if (strName == "any")
        return eStatusDone;
    unsigned& nPortIndex = oTool.GetOptions().nPortIndex;
    const auto nIndex =
        strName.starts_with("can") ? ParseNumber(strName.substr(3), MAX_PORT_INDEX) : std::nullopt;
    if (!nIndex)
        return oTool.Fail(eStatusUsage, fmt::format("{}: an interface is can0 to can{}, or any",
                                                    Quote(strName), MAX_PORT_INDEX));
    if (nPortIndex != 0 && nPortIndex != *nIndex)
        return oTool.Fail(eStatusUsage,
                          fmt::format("{} and --port-index {} contradict each other", strName, nPortIndex));
    nPortIndex = static_cast<unsigned>(*nIndex);
    return eStatusDone;
}

CCanReceiver::CCanReceiver(CTool& oTool, std::size_t nMaximum)
    : CGateway<CQuorvelClientCANDll>(oTool, 0), m_oInterrupt(oTool.GetInterrupt()), m_nMaximum(nMaximum)
{
    oTool.GetInterrupt().SetAction([this] {
        Abort();
        ConInd(false); // nothing more is taken
    });
}

CCanReceiver::~CCanReceiver()
{
    // Before the queue goes.
    m_oInterrupt.SetAction({});
    StopReception();
}

CCanReceiver::EWait CCanReceiver::Take(std::vector<SCanIndication>& aoTaken,
                                       const std::optional<std::chrono::steady_clock::time_point>& oUntil,
                                       std::uint64_t& nDropped)
{
    aoTaken.clear();
    std::unique_lock oLock(m_oMutex);
    const auto fnThere = [this] { return !m_aoQueue.empty() || m_bEnded; };
    if (!oUntil)
        m_oCondition.wait(oLock, fnThere);
    else if (!m_oCondition.wait_until(oLock, *oUntil, fnThere))
        return eTimedOut;
    aoTaken.swap(m_aoQueue);
    nDropped = std::exchange(m_nDropped, 0);
    return aoTaken.empty() ? eEnded : eReceived;
}

int CCanReceiver::FailEnded() const
{
    return Check("receive", 0x00030000);
}

bool CCanReceiver::DataIndRespond(CQuorvelMsg* pMsg)
{
    SCanIndication oIndication;
    oIndication.nCode = pMsg->GetCmdCode();
    oIndication.nTime = std::chrono::duration_cast<std::chrono::nanoseconds>(
                            std::chrono::system_clock::now().time_since_epoch())
                            .count();
    oIndication.strData = pMsg->GetData();
    bool bFirst = false;
    {
        const std::lock_guard oLock(m_oMutex);
        bFirst = m_aoQueue.empty();
        if (m_aoQueue.size() < m_nMaximum)
            m_aoQueue.push_back(std::move(oIndication));
        else
            ++m_nDropped;
    }
    if (bFirst)
        m_oCondition.notify_all();
    return false;
}

void CCanReceiver::ConInd(bool bConnected)
{
    {
        const std::lock_guard oLock(m_oMutex);
        m_bEnded = !bConnected;
    }
    m_oCondition.notify_all();
    CGateway::ConInd(bConnected);
}
