#include "SimGatewayCAN.h"

#include "QuorvelErrorMsg.h"
#include "SdoClient.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace
{

enum : unsigned char {
    eWrite = 0x03,
    eSetConfig = 0x05,
    eGetConfig = 0x06,
    eSetGlobals = 0x07,
    eGetGlobals = 0x08,
    eSetTime = 0x0B,
    eGetTime = 0x0E,
    eSetFilter = 0x20,
    eGetFilter = 0x21,
    ePowerStatus = 0x22,
    eSetRelay = 0x23,
    eSetSupplies = 0x24,
    eSetZCard = 0x51,
    eGetZCard = 0x52,
    eSetCanOpen = 0x60,
    eGetCanOpen = 0x61,
    eSyncPeriod = 0x62,
    eNmt = 0x63,
    eSync = 0x64,
    eTime = 0x65,
    eEmcy = 0x66,
    ePdo = 0x67,
    eSdoRead = 0x68,
    eSdoWrite = 0x69,
    eSdoReadBlock = 0x6A,
    eSdoWriteBlock = 0x6B,
    eGuard = 0x6C,
    eUndefined = 0x6D
};
enum : unsigned char { eNoValidBitRate = 0x24, eSdoTimedOut = 0xFC, eSdoAborted = 0xFD, eNoCanOpen = 0xFE };
enum : unsigned char { eNormal, eListenOnly, eLoopBack };
enum : unsigned char { eTimeStampFlag = 0x04, eOtherDirection = 0x80 };

struct SCommand {
    unsigned char nCommand;
    std::size_t nLen; ///< data bytes that it needs
};
constexpr std::array<SCommand, 25> aoCommands = {{
    {eWrite, 5},      {eSetConfig, 2},   {eGetConfig, 0},  {eSetGlobals, 8},   {eGetGlobals, 0},
    {eSetTime, 8},    {eGetTime, 0},     {eSetFilter, 64}, {eGetFilter, 0},    {ePowerStatus, 0},
    {eSetRelay, 1},   {eSetSupplies, 4}, {eSetZCard, 7},   {eGetZCard, 0},     {eSetCanOpen, 1},
    {eGetCanOpen, 0}, {eSyncPeriod, 2},  {eNmt, 2},        {eSync, 0},         {eTime, 6},
    {ePdo, 2},        {eSdoRead, 6},     {eSdoWrite, 11},  {eSdoReadBlock, 6}, {eSdoWriteBlock, 6},
}};

constexpr std::array<unsigned, 9> anBitRates = {10000,  20000,  50000,  100000, 125000,
                                                250000, 500000, 800000, 1000000};
constexpr std::array<unsigned, 4> anSupplies = {3300, 5000, 12000, 24000}; // mV
constexpr unsigned nAllSupplies = 0x0F;

// Tags of frames that no client has sent: reported to all, or to none.
constexpr unsigned nOwnTag = 0;
constexpr unsigned nSilentTag = ~0U;
// How often is looked whether something that another thread has to do is done.
constexpr auto nPollTime = std::chrono::milliseconds(1);

unsigned char At(const std::string& strData, std::size_t nPos)
{
    return static_cast<unsigned char>(strData[nPos]);
}

bool IsFrame(const SCanFrame& oFrame)
{
    const std::size_t nLen = oFrame.strData.size();
    if (oFrame.nID > ((oFrame.nFlags & eCanExtended) != 0 ? 0x1FFFFFFFU : 0x7FFU))
        return false;
    switch (oFrame.nFlags & ~eCanExtended) {
    case 0:
        return nLen <= 8;
    case eCanRemote:
        return nLen == 0;
    case eCanFD:
        return nLen <= 8 || (nLen <= 24 && nLen % 4 == 0) || nLen == 32 || nLen == 48 || nLen == 64;
    default:
        return false;
    }
}

} // namespace

/// An SDO request under way.
struct CSimGatewayCAN::SSdo {
    unsigned nConnection;
    unsigned nNode;
    TSimTime oDeadline;
    CSdoClient oClient;
    std::string strFirst;                                 ///< frame to begin with
    std::shared_ptr<SCanTransmission> pTransmission = {}; ///< of this frame; null until then
};

CSimGatewayCAN::CSimGatewayCAN()
    : CSimGateway(eDeviceCAN, "CAN"),
      m_pBus(std::make_shared<CCanBus>()),
      m_pNode(std::make_unique<CCanOpenNode>(m_pBus, 1))
{
    const auto oLock = m_pBus->Lock();
    m_pBus->Attach(*this);
}

CSimGatewayCAN::CSimGatewayCAN(std::shared_ptr<CCanBus> pBus)
    : CSimGateway(eDeviceCAN, "CAN"), m_pBus(std::move(pBus))
{
    const auto oLock = m_pBus->Lock();
    m_pBus->Attach(*this);
}

CSimGatewayCAN::~CSimGatewayCAN()
{
    Stop();
    const auto oLock = m_pBus->Lock();
    m_pBus->Detach(*this);
}

void CSimGatewayCAN::PowerOn()
{
    CSimGateway::PowerOn();
    const auto oLock = m_pBus->Lock();
    m_aoFilters = {};
    m_nBitRate = 500000;
    m_nOperatingMode = eNormal;
    m_bTermination = false;
    m_bHighSpeed = true;
    m_bTimeStamps = false;
    m_bClockSet = false;
    m_oClock = TSimClock::now();
    m_nClock = std::chrono::duration_cast<std::chrono::microseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
                   .count();
    m_strZCard.assign(5, '\0');
    m_bRelay = false;
    m_nSupplies = nAllSupplies;
    m_nCanOpenMode = 0;
    m_pSdo.reset();
    SetSyncPeriod(0);
    m_pBus->SetRole(*this, ERole::eActive, m_nBitRate);
}

void CSimGatewayCAN::PowerOff()
{
    const auto oLock = m_pBus->Lock();
    SetSyncPeriod(0);
    m_pBus->SetRole(*this, ERole::eOff, 0);
}

void CSimGatewayCAN::OnEnd(unsigned nConnection)
{
    const auto oLock = m_pBus->Lock();
    m_anConfirmed.erase(nConnection);
    m_anMonitors.erase(nConnection);
    if (m_pSdo && m_pSdo->nConnection == nConnection) {
        SendSdo(*m_pSdo, m_pSdo->oClient.GiveUp(eSdoTimeout));
        m_pSdo.reset();
    }
}

SSimAnswer CSimGatewayCAN::Execute(const SSimRequest& oRequest)
{
    const auto& strData = oRequest.strData;
    const auto* const pCommand = std::ranges::find(aoCommands, oRequest.nCommand, &SCommand::nCommand);
    if (pCommand == aoCommands.end())
        return CSimGateway::Execute(oRequest);
    const auto oLock = m_pBus->Lock();
    SSimAnswer oAnswer;
    if (strData.size() < pCommand->nLen) {
        oAnswer.nResult = eSimResultFailed;
        oAnswer.bNone = oRequest.nCommand == eWrite && !m_anConfirmed.contains(oRequest.nConnection);
        return oAnswer;
    }
    const auto Choose = [&](std::set<unsigned>& anChosen, std::size_t nPos) {
        if (strData[nPos] != 0)
            anChosen.insert(oRequest.nConnection);
        else
            anChosen.erase(oRequest.nConnection);
    };
    switch (oRequest.nCommand) {
    case eWrite:
        return Write(oRequest);
    case eSetConfig:
        Choose(m_anConfirmed, 0);
        Choose(m_anMonitors, 1);
        break;
    case eGetConfig:
        oAnswer.strData += m_anConfirmed.contains(oRequest.nConnection) ? '\1' : '\0';
        oAnswer.strData += m_anMonitors.contains(oRequest.nConnection) ? '\1' : '\0';
        break;
    case eSetGlobals:
        oAnswer.nResult = SetGlobals(strData);
        break;
    case eGetGlobals:
        oAnswer.strData = GetGlobals();
        break;
    case eSetTime:
        if (SimGet32(strData, 4) > 999999)
            return SSimAnswer(eSimResultFailed);
        m_nClock = SimGet32(strData, 0) * 1000000LL + SimGet32(strData, 4);
        m_oClock = TSimClock::now();
        m_bClockSet = true;
        break;
    case eGetTime:
        oAnswer.strData += m_bClockSet ? '\1' : '\0';
        PutTime(oAnswer.strData, TSimClock::now());
        break;
    case eSetFilter:
        for (std::size_t i = 0; i < m_aoFilters.size(); i++)
            m_aoFilters[i] = {SimGet32(strData, 8 * i), SimGet32(strData, 8 * i + 4)};
        break;
    case eGetFilter:
        for (const auto& oFilter : m_aoFilters) {
            SimPut32(oAnswer.strData, oFilter.nMask);
            SimPut32(oAnswer.strData, oFilter.nValue);
        }
        break;
    case ePowerStatus:
        oAnswer.strData = PowerStatus();
        break;
    case eSetRelay:
        m_bRelay = strData[0] != 0;
        break;
    case eSetSupplies:
        if (SimGet32(strData, 0) > nAllSupplies)
            return SSimAnswer(eSimResultFailed);
        m_nSupplies = SimGet32(strData, 0);
        break;
    case eSetZCard:
        m_strZCard = strData.substr(0, 5);
        break;
    case eGetZCard:
        oAnswer.strData = m_strZCard;
        break;
    case eSetCanOpen:
        if (At(strData, 0) > 1)
            return SSimAnswer(eSimResultFailed);
        m_nCanOpenMode = At(strData, 0);
        if (m_nCanOpenMode == 0)
            SetSyncPeriod(0);
        break;
    case eGetCanOpen:
        oAnswer.strData += static_cast<char>(m_nCanOpenMode);
        break;
    default:
        return m_nCanOpenMode == 0 ? SSimAnswer(eNoCanOpen) : ExecuteCanOpen(oRequest);
    }
    return oAnswer;
}

SSimAnswer CSimGatewayCAN::ExecuteCanOpen(const SSimRequest& oRequest)
{
    const auto& strData = oRequest.strData;
    switch (oRequest.nCommand) {
    case eSyncPeriod:
        SetSyncPeriod(SimGet16(strData, 0));
        return SSimAnswer();
    case eNmt: {
        constexpr std::array<unsigned char, 5> anCommands = {0x01, 0x02, 0x80, 0x81, 0x82};
        if (At(strData, 0) > 127 || !std::ranges::count(anCommands, At(strData, 1)))
            return SSimAnswer(eSimResultFailed);
        return SendService(oRequest.nConnection, 0, {strData[1], strData[0]});
    }
    case eSync:
        return SendService(oRequest.nConnection, 0x80, {});
    case eTime:
        return SendService(oRequest.nConnection, 0x100, strData.substr(2, 4) + strData.substr(0, 2));
    case ePdo: {
        const unsigned nNode = At(strData, 0);
        const unsigned nPdo = At(strData, 1) & 0x7FU;
        if (nNode < 1 || nNode > 127 || nPdo < 1 || nPdo > 4)
            return SSimAnswer(eSimResultFailed);
        const unsigned nService = 2 * nPdo + ((At(strData, 1) & eOtherDirection) != 0 ? 1 : 2);
        return SendService(oRequest.nConnection, nService << 7 | nNode, strData.substr(2));
    }
    default:
        return StartSdo(oRequest);
    }
}

unsigned char CSimGatewayCAN::SetGlobals(const std::string& strData)
{
    const unsigned nBitRate = SimGet32(strData, 1);
    if (At(strData, 0) > eLoopBack)
        return eSimResultFailed;
    if (!std::ranges::count(anBitRates, nBitRate))
        return eNoValidBitRate;
    constexpr std::array<ERole, 3> aeRoles = {ERole::eActive, ERole::eListening, ERole::eOff};
    m_nOperatingMode = At(strData, 0);
    m_nBitRate = nBitRate;
    m_bTermination = strData[5] != 0;
    m_bHighSpeed = strData[6] != 0;
    m_bTimeStamps = strData[7] != 0;
    m_pBus->SetRole(*this, aeRoles[m_nOperatingMode], m_nBitRate);
    return eSimResultOk;
}

std::string CSimGatewayCAN::GetGlobals() const
{
    std::string strData(1, static_cast<char>(m_nOperatingMode));
    SimPut32(strData, m_nBitRate);
    for (const bool bFlag : {m_bTermination, m_bHighSpeed, m_bTimeStamps})
        strData += bFlag ? '\1' : '\0';
    return strData;
}

std::string CSimGatewayCAN::PowerStatus() const
{
    constexpr unsigned nTemperature = 315;
    constexpr unsigned nInputVoltage = 24000;
    const unsigned nLive = m_bRelay ? m_nSupplies : 0;
    std::string strData = {static_cast<char>(anSupplies.size()), static_cast<char>(anSupplies.size()), 2};
    std::string strVoltages;
    std::string strActive;
    unsigned nCurrent = 100;
    for (unsigned i = 0; i < anSupplies.size(); i++) {
        const bool bLive = (nLive >> i & 1) != 0;
        SimPut16(strVoltages, bLive ? anSupplies[i] : 0);
        strActive += (m_nSupplies >> i & 1) != 0 ? '\1' : '\0';
        nCurrent += bLive ? 50 : 0;
    }
    SimPut16(strData, nTemperature);
    SimPut16(strData, nInputVoltage);
    SimPut16(strData, nCurrent);
    strData += nLive != 0 ? '\1' : '\0';
    strData += strVoltages + strActive;
    strData += m_bRelay ? '\1' : '\0';
    strData += m_bTermination ? '\1' : '\0';
    return strData;
}

SSimAnswer CSimGatewayCAN::Write(const SSimRequest& oRequest)
{
    const auto& strData = oRequest.strData;
    const SCanFrame oFrame{SimGet32(strData, 0), strData.substr(5),
                           static_cast<unsigned char>(At(strData, 4) & ~eTimeStampFlag)};
    SSimAnswer oAnswer(eCanTransmitError);
    if (IsFrame(oFrame))
        oAnswer = Outcome(Send(oRequest.nConnection, oFrame), m_bTimeStamps);
    oAnswer.bNone = !m_anConfirmed.contains(oRequest.nConnection);
    return oAnswer;
}

/// Transmits a frame as the operating mode says.
std::shared_ptr<SCanTransmission> CSimGatewayCAN::Send(unsigned nTag, SCanFrame oFrame)
{
    auto pTransmission = std::make_shared<SCanTransmission>();
    pTransmission->oFrame = std::move(oFrame);
    pTransmission->nTag = nTag;
    if (m_nOperatingMode != eLoopBack) {
        m_pBus->Transmit(*this, pTransmission);
        return pTransmission;
    }
    pTransmission->oTime = TSimClock::now();
    pTransmission->oResult = eCanSent;
    if (nTag != nSilentTag)
        Report(*pTransmission, 0);
    return pTransmission;
}

/// The answer for a transmission, when there is one.
SSimAnswer CSimGatewayCAN::Outcome(const std::shared_ptr<SCanTransmission>& pTransmission, bool bTime)
{
    SSimAnswer oAnswer;
    if (!pTransmission->oResult) {
        oAnswer.oDue = TSimClock::now() + nPollTime;
        oAnswer.fnContinue = [this, pTransmission, bTime] {
            const auto oLock = m_pBus->Lock();
            return Outcome(pTransmission, bTime);
        };
        return oAnswer;
    }
    oAnswer.nResult = *pTransmission->oResult;
    if (oAnswer.nResult == eCanSent && bTime)
        PutTime(oAnswer.strData, pTransmission->oTime);
    return oAnswer;
}

/// Sends a CANopen frame for a client.
SSimAnswer CSimGatewayCAN::SendService(unsigned nConnection, unsigned nID, const std::string& strData)
{
    if (strData.size() > 8)
        return SSimAnswer(eCanTransmitError);
    return Outcome(Send(nConnection, {nID, strData, 0}), false);
}

SSimAnswer CSimGatewayCAN::StartSdo(const SSimRequest& oRequest)
{
    const unsigned char nCommand = oRequest.nCommand;
    const std::string strData = oRequest.strData.substr(nCommand == eSdoWrite ? 1 : 0);
    const unsigned nType = At(oRequest.strData, 0);
    const unsigned nNode = At(strData, 0);
    if (nNode < 1 || nNode > 127 || (nCommand == eSdoWrite && nType > 4))
        return SSimAnswer(eSimResultFailed);
    CSdoClient oClient(SimGet16(strData, 1), At(strData, 3));
    std::string strFirst;
    if (nCommand == eSdoRead)
        strFirst = oClient.Read();
    else if (nCommand == eSdoWrite)
        strFirst = oClient.Write(SimGet32(strData, 6), nType);
    else if (nCommand == eSdoReadBlock)
        strFirst = oClient.ReadBlocks();
    else
        strFirst = oClient.WriteBlocks(strData.substr(6));
    const auto oDeadline = TSimClock::now() + std::chrono::milliseconds(SimGet16(strData, 4));
    return RunSdo(std::make_shared<SSdo>(
        SSdo{oRequest.nConnection, nNode, oDeadline, std::move(oClient), std::move(strFirst)}));
}

/// Begins the transfer as soon as none is under way, then looks for its end. A node's answers usually come
/// while its request is being sent.
SSimAnswer CSimGatewayCAN::RunSdo(const std::shared_ptr<SSdo>& pSdo)
{
    SSimAnswer oAnswer;
    CSdoClient& oClient = pSdo->oClient;
    if (!m_pSdo) {
        m_pSdo = pSdo;
        pSdo->pTransmission = Send(nSilentTag, {0x600 | pSdo->nNode, pSdo->strFirst, 0});
    }
    const unsigned char nSent = pSdo->pTransmission ? pSdo->pTransmission->oResult.value_or(eCanSent) : 0;
    if (nSent != eCanSent) {
        oAnswer.nResult = nSent;
    } else if (!oClient.IsFinished()) {
        if (TSimClock::now() < pSdo->oDeadline) {
            oAnswer.oDue = TSimClock::now() + nPollTime;
            oAnswer.fnContinue = [this, pSdo] {
                const auto oLock = m_pBus->Lock();
                return RunSdo(pSdo);
            };
            return oAnswer;
        }
        const std::string strAbort = oClient.GiveUp(eSdoTimeout);
        if (m_pSdo == pSdo)
            SendSdo(*pSdo, strAbort);
        oAnswer.nResult = eSdoTimedOut;
    } else if (oClient.GetAbort() != 0) {
        oAnswer.nResult = eSdoAborted;
    }
    if (m_pSdo == pSdo)
        m_pSdo.reset();
    // The status is the class of the abort code, its most significant byte.
    oAnswer.strData += static_cast<char>(oClient.GetAbort() >> 24);
    if (oClient.GetAbort() != 0)
        SimPut32(oAnswer.strData, oClient.GetAbort());
    else if (nSent == eCanSent)
        oAnswer.strData += oClient.GetData();
    return oAnswer;
}

void CSimGatewayCAN::SendSdo(const SSdo& oSdo, const std::string& strFrame)
{
    Send(nSilentTag, {0x600 | oSdo.nNode, strFrame, 0});
}

void CSimGatewayCAN::SetSyncPeriod(unsigned nPeriodMs)
{
    m_nSyncPeriod = std::chrono::milliseconds(nPeriodMs);
    m_oNextSync = TSimClock::now() + m_nSyncPeriod;
    m_pBus->SetTimer(*this, nPeriodMs == 0 ? std::nullopt : std::optional(m_oNextSync));
}

void CSimGatewayCAN::OnTimer()
{
    m_oNextSync = std::max(m_oNextSync, TSimClock::now() - m_nSyncPeriod) + m_nSyncPeriod;
    m_pBus->SetTimer(*this, m_oNextSync);
    Send(nOwnTag, {0x80, {}, 0});
}

void CSimGatewayCAN::OnSent(const SCanTransmission& oTransmission)
{
    const unsigned nTag = oTransmission.nTag;
    if (nTag != nSilentTag)
        Report(oTransmission, m_anMonitors.contains(nTag) ? 0 : nTag);
}

void CSimGatewayCAN::OnFrame(const SCanTransmission& oTransmission)
{
    const SCanFrame& oFrame = oTransmission.oFrame;
    if (m_pSdo && !m_pSdo->oClient.IsFinished() && oFrame.nFlags == 0 &&
        oFrame.nID == (0x580 | m_pSdo->nNode)) {
        for (const auto& strFrame : m_pSdo->oClient.Handle(oFrame.strData))
            SendSdo(*m_pSdo, strFrame);
        return;
    }
    Report(oTransmission, 0);
}

/// Tells the clients of a frame.
void CSimGatewayCAN::Report(const SCanTransmission& oTransmission, unsigned nExcept)
{
    const SCanFrame& oFrame = oTransmission.oFrame;
    if (!Passes(oFrame))
        return;
    unsigned char nCommand = eWrite;
    std::string strData;
    if (m_nCanOpenMode == 0 || !Describe(oFrame, nCommand, strData)) {
        if (m_nCanOpenMode != 0)
            nCommand = eUndefined;
        SimPut32(strData, oFrame.nID);
        strData += static_cast<char>(oFrame.nFlags | (m_bTimeStamps ? eTimeStampFlag : 0));
        strData += oFrame.strData;
        if (m_bTimeStamps)
            PutTime(strData, oTransmission.oTime);
    }
    SendIndication(static_cast<unsigned short>(eDeviceCAN << 8 | nCommand), 0, strData, 0, 0, nExcept);
}

bool CSimGatewayCAN::Passes(const SCanFrame& oFrame) const
{
    const unsigned nID = oFrame.nID | ((oFrame.nFlags & eCanExtended) != 0 ? 0x80000000U : 0);
    bool bAny = false;
    for (const auto& [nMask, nValue] : m_aoFilters) {
        if (nMask == 0 && nValue == 0)
            continue;
        bAny = true;
        if ((nID & nMask) == (nValue & nMask))
            return true;
    }
    return !bAny;
}

/// The CANopen indication for a frame; false when there is none for it.
bool CSimGatewayCAN::Describe(const SCanFrame& oFrame, unsigned char& nCommand, std::string& strData) const
{
    const unsigned nNode = oFrame.nID & 0x7F;
    const unsigned nService = oFrame.nID >> 7;
    const bool bSync = oFrame.nID == 0x80;
    if (oFrame.nFlags != 0 || (nNode == 0 && !bSync))
        return false;
    strData += static_cast<char>(nNode);
    if (bSync) {
        nCommand = eSync;
        strData = oFrame.strData.substr(0, 1);
        strData.resize(1);
    } else if (nService == 1) {
        nCommand = eEmcy;
        strData += oFrame.strData;
        strData.resize(9);
    } else if (nService >= 3 && nService <= 10) {
        nCommand = ePdo;
        const bool bToNode = nService % 2 == 0;
        strData += static_cast<char>(bToNode ? (nService / 2 - 1) | eOtherDirection : nService / 2);
        strData += static_cast<char>(oFrame.strData.size());
        strData += oFrame.strData;
    } else if (nService == 14 && !oFrame.strData.empty()) {
        nCommand = eGuard;
        strData += oFrame.strData[0];
    } else {
        strData.clear();
        return false;
    }
    return true;
}

void CSimGatewayCAN::PutTime(std::string& strData, TSimTime oTime) const
{
    const auto nTime =
        m_nClock + std::chrono::duration_cast<std::chrono::microseconds>(oTime - m_oClock).count();
    SimPut32(strData, static_cast<unsigned>(nTime / 1000000));
    SimPut32(strData, static_cast<unsigned>(nTime % 1000000));
}
