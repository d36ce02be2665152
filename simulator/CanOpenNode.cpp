#include "CanOpenNode.h"

#include "SimTelegram.h"

#include <utility>

namespace
{

enum : unsigned {
    eErrorRegister = 0x100100,
    eName = 0x100800,
    eHeartbeatTime = 0x101700,
    eSyncType = 0x180002,
    eTemperature = 0x200100,
    eEmergency = 0x200200,
    eMemory = 0x201000,
    eOutputs = 0x210000,
    eInputs = 0x210100
};
enum : unsigned { eNmt = 0, eSync = 0x80, eEmcy = 0x80, eSendPdo = 0x180, eReceivePdo = 0x200 };
enum : unsigned { eSdoAnswer = 0x580, eSdoRequest = 0x600, eGuard = 0x700 };
enum : unsigned { eStart = 1, eStop = 2, ePrepare = 0x80, eResetNode = 0x81, eResetCommunication = 0x82 };

constexpr unsigned nMaxSyncs = 240;
constexpr unsigned nMinChangeType = 254;
constexpr unsigned nPdoLengthError = 0x8210;
constexpr unsigned nGenericError = 0x01;
constexpr unsigned nCommunicationError = 0x11;
const char* const pName = "Quorvel CANopen node";

} // namespace

CCanOpenNode::CCanOpenNode(std::shared_ptr<CCanBus> pBus, unsigned nNodeID)
    : m_pBus(std::move(pBus)), m_nNodeID(nNodeID)
{
    for (std::size_t i = 0; i < 4096; i++)
        m_strMemory += static_cast<char>(i & 0xFF);
    {
        const auto oLock = m_pBus->Lock();
        m_pBus->Attach(*this);
    }
    SetPower(true);
}

CCanOpenNode::~CCanOpenNode()
{
    const auto oLock = m_pBus->Lock();
    m_pBus->Detach(*this);
}

CCanOpenNode::EState CCanOpenNode::GetState() const
{
    const auto oLock = m_pBus->Lock();
    return m_eState;
}

void CCanOpenNode::SetPower(bool bOn)
{
    const auto oLock = m_pBus->Lock();
    m_bOn = bOn;
    m_pBus->SetRole(*this, bOn ? ERole::eActive : ERole::eOff, m_nBitRate);
    if (bOn) {
        Boot(true);
    } else {
        m_eState = eInitialising;
        m_pBus->SetTimer(*this, {});
    }
}

void CCanOpenNode::SetBitRate(unsigned nBitRate)
{
    const auto oLock = m_pBus->Lock();
    m_nBitRate = nBitRate;
    if (m_bOn)
        m_pBus->SetRole(*this, ERole::eActive, nBitRate);
}

void CCanOpenNode::SendEmergency(unsigned short nCode, unsigned char nRegister,
                                 const std::string& strManufacturer)
{
    const auto oLock = m_pBus->Lock();
    SendEmcy(nCode, nRegister, strManufacturer);
}

void CCanOpenNode::SetInputs(unsigned nInputs)
{
    const auto oLock = m_pBus->Lock();
    m_oInputs = nInputs;
    Value(eInputs) = nInputs;
    OnChange();
}

unsigned CCanOpenNode::GetOutputs() const
{
    const auto oLock = m_pBus->Lock();
    return m_aoObjects.at(eOutputs).nValue;
}

std::string CCanOpenNode::GetMemory() const
{
    const auto oLock = m_pBus->Lock();
    return m_strMemory;
}

void CCanOpenNode::SetMemory(const std::string& strMemory)
{
    const auto oLock = m_pBus->Lock();
    WriteMemory(strMemory);
}

void CCanOpenNode::OnFrame(const SCanTransmission& oTransmission)
{
    const auto& [nID, strData, nFlags] = oTransmission.oFrame;
    if (nFlags == eCanRemote && nID == eGuard + m_nNodeID) {
        SendState(m_eState | m_nToggle);
        m_nToggle ^= 0x80;
        return;
    }
    if (nFlags != 0)
        return;
    if (nID == eNmt) {
        if (strData.size() == 2 && (strData[1] == 0 || SdoByte(strData, 1) == m_nNodeID))
            OnNmt(SdoByte(strData, 0));
    } else if (nID == eSdoRequest + m_nNodeID) {
        if (m_eState == eStopped)
            return;
        for (const auto& strAnswer : m_oServer.Handle(strData))
            Send(eSdoAnswer + m_nNodeID, strAnswer);
    } else if (m_eState == eOperational && nID == eSync) {
        OnSync();
    } else if (m_eState == eOperational && nID == eReceivePdo + m_nNodeID) {
        if (strData.size() < 4)
            SendEmcy(nPdoLengthError, nCommunicationError, {});
        else
            SetOutputs(SimGet32(strData, 0));
    }
}

void CCanOpenNode::OnTimer()
{
    RestartHeartbeat();
    SendState(m_eState);
}

void CCanOpenNode::Boot(bool bWholeNode)
{
    if (bWholeNode) {
        m_oInputs.reset();
        m_aoObjects = {{0x100000, {4, false, 0x00030191}},
                       {eErrorRegister, {1, false, 0}},
                       {eName, {}},
                       {eHeartbeatTime, {2, true, 0}},
                       {0x101800, {1, false, 4}},
                       {0x101801, {4, false, 0}},
                       {0x101802, {4, false, 0x51}},
                       {0x101803, {4, false, 0x00010000}},
                       {0x101804, {4, false, 1}},
                       {0x140000, {1, false, 2}},
                       {0x140001, {4, false, eReceivePdo + m_nNodeID}},
                       {0x140002, {1, false, 255}},
                       {0x180000, {1, false, 2}},
                       {0x180001, {4, false, eSendPdo + m_nNodeID}},
                       {eSyncType, {1, true, 1}},
                       {0x200000, {4, true, 0}},
                       {eTemperature, {2, true, 215}},
                       {eEmergency, {2, true, 0}},
                       {eMemory, {}},
                       {eOutputs, {4, true, 0}},
                       {eInputs, {4, false, 0}}};
    }
    Value(eHeartbeatTime) = 0;
    Value(eSyncType) = 1;
    m_oServer.Reset();
    m_nToggle = 0;
    RestartHeartbeat();
    SendState(eInitialising);
    m_eState = ePreOperational;
}

void CCanOpenNode::OnNmt(unsigned nCommand)
{
    switch (nCommand) {
    case eStart:
        if (m_eState == eOperational)
            break;
        m_eState = eOperational;
        m_nSyncs = 0;
        OnChange();
        break;
    case eStop:
        m_eState = eStopped;
        m_oServer.Reset();
        break;
    case ePrepare:
        m_eState = ePreOperational;
        break;
    case eResetNode:
    case eResetCommunication:
        Boot(nCommand == eResetNode);
        break;
    default:
        break;
    }
}

void CCanOpenNode::OnSync()
{
    const unsigned nType = Value(eSyncType);
    if (nType <= nMaxSyncs && ++m_nSyncs >= nType) {
        m_nSyncs = 0;
        SendPdo();
    }
}

void CCanOpenNode::SetOutputs(unsigned nOutputs)
{
    Value(eOutputs) = nOutputs;
    if (m_oInputs || Value(eInputs) == nOutputs)
        return;
    Value(eInputs) = nOutputs;
    OnChange();
}

void CCanOpenNode::OnChange()
{
    if (m_eState == eOperational && Value(eSyncType) >= nMinChangeType)
        SendPdo();
}

void CCanOpenNode::SendPdo()
{
    std::string strData;
    SimPut32(strData, Value(eInputs));
    SimPut16(strData, Value(eTemperature));
    Send(eSendPdo + m_nNodeID, strData);
}

void CCanOpenNode::SendState(unsigned nState)
{
    Send(eGuard + m_nNodeID, std::string(1, static_cast<char>(nState)));
}

void CCanOpenNode::SendEmcy(unsigned nCode, unsigned nRegister, const std::string& strManufacturer)
{
    Value(eErrorRegister) = nRegister;
    if (m_eState == eStopped)
        return;
    std::string strData;
    SimPut16(strData, nCode);
    strData += static_cast<char>(nRegister);
    strData += strManufacturer;
    strData.resize(8);
    Send(eEmcy + m_nNodeID, strData);
}

void CCanOpenNode::Send(unsigned nID, const std::string& strData)
{
    const auto pTransmission = std::make_shared<SCanTransmission>();
    pTransmission->oFrame = {nID, strData, 0};
    m_pBus->Transmit(*this, pTransmission);
}

void CCanOpenNode::RestartHeartbeat()
{
    std::optional<TSimTime> oNext;
    if (const unsigned nTime = Value(eHeartbeatTime); nTime != 0)
        oNext = TSimClock::now() + std::chrono::milliseconds(nTime);
    m_pBus->SetTimer(*this, oNext);
}

unsigned CCanOpenNode::ReadObject(unsigned nIndex, unsigned nSubindex, std::string& strData)
{
    const unsigned nKey = nIndex << 8 | nSubindex;
    const auto itObject = m_aoObjects.find(nKey);
    if (itObject == m_aoObjects.end())
        return m_aoObjects.contains(nIndex << 8) ? eSdoNoSubindex : eSdoNoObject;
    switch (nKey) {
    case eName:
        strData = pName;
        break;
    case eMemory:
        strData = m_strMemory;
        break;
    case eEmergency:
        return eSdoWriteOnly;
    default:
        strData.clear();
        SimPut32(strData, itObject->second.nValue);
        strData.resize(itObject->second.nSize);
        break;
    }
    return 0;
}

unsigned CCanOpenNode::WriteObject(unsigned nIndex, unsigned nSubindex, const std::string& strData,
                                   bool bSized)
{
    const unsigned nKey = nIndex << 8 | nSubindex;
    const auto itObject = m_aoObjects.find(nKey);
    if (itObject == m_aoObjects.end())
        return m_aoObjects.contains(nIndex << 8) ? eSdoNoSubindex : eSdoNoObject;
    if (nKey == eMemory)
        return WriteMemory(strData);
    SObject& oObject = itObject->second;
    if (!oObject.bWritable)
        return eSdoReadOnly;
    if (bSized && strData.size() != oObject.nSize)
        return eSdoLength;
    std::string strValue = strData.substr(0, oObject.nSize);
    strValue.resize(4);
    const unsigned nValue = SimGet32(strValue, 0);
    switch (nKey) {
    case eHeartbeatTime:
        oObject.nValue = nValue;
        RestartHeartbeat();
        break;
    case eSyncType:
        if (nValue == 0 || (nValue > nMaxSyncs && nValue < nMinChangeType))
            return eSdoRange;
        oObject.nValue = nValue;
        m_nSyncs = 0;
        break;
    case eEmergency:
        SendEmcy(nValue, nValue == 0 ? 0 : nGenericError, {});
        break;
    case eOutputs:
        SetOutputs(nValue);
        break;
    case eTemperature:
        oObject.nValue = nValue;
        OnChange();
        break;
    default:
        oObject.nValue = nValue;
        break;
    }
    return 0;
}

unsigned CCanOpenNode::WriteMemory(const std::string& strData)
{
    if (strData.size() > nMaxMemory)
        return eSdoTooLong;
    m_strMemory = strData;
    return 0;
}
