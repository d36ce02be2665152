#include "SimGatewayRenesas.h"

#include "QuorvelErrorMsg.h"

#include <algorithm>

namespace
{

enum : unsigned char {
    eInit = 0x20,
    eCheckID = 0x21,
    eSetBaudrate = 0x22,
    eReadPage = 0x23,
    eEraseAll = 0x24,
    eWritePage = 0x25,
    eGetVersion = 0x26,
    eComplete = 0x27,
    eVerify = 0x28,
    eEraseBlock = 0x29
};
enum : unsigned char { eTimeout = 0x20, eInvalidID = 0x21, eEraseFailed = 0x22, eProgramFailed = 0x23 };

constexpr std::size_t nPageSize = 256;
constexpr std::size_t nBlockSize = 4096;
constexpr unsigned char nMaxBaudIndex = 3;
constexpr std::size_t nIDLength = 7;
constexpr const char* pVersion = "SIM 1.00";

/// The fewest bytes that a command's request needs.
std::size_t RequestLength(unsigned char nCommand)
{
    switch (nCommand) {
    case eCheckID:
        return nIDLength;
    case eSetBaudrate:
        return 1;
    case eReadPage:
    case eEraseBlock:
        return 2;
    case eWritePage:
        return 2 + nPageSize;
    case eVerify:
        return 4;
    default:
        return 0;
    }
}

} // namespace

CSimGatewayRenesas::CSimGatewayRenesas()
    : CSimGateway(eDeviceRenesas, "Renesas"), m_strFlash(nFlashSize, '\xFF'), m_strID(nIDLength, '\xFF')
{
}

CSimGatewayRenesas::~CSimGatewayRenesas()
{
    Stop();
}

void CSimGatewayRenesas::SetID(const std::string& strID)
{
    const std::lock_guard oLock(m_oMutexDevice);
    m_strID = strID;
}

std::string CSimGatewayRenesas::Peek(std::size_t nAddress, std::size_t nLen) const
{
    const std::lock_guard oLock(m_oMutexDevice);
    return nAddress < nFlashSize ? m_strFlash.substr(nAddress, nLen) : std::string();
}

void CSimGatewayRenesas::PowerOn()
{
    CSimGateway::PowerOn();
    m_eState = EState::eOff;
}

SSimAnswer CSimGatewayRenesas::Execute(const SSimRequest& oRequest)
{
    if (oRequest.nCommand < eInit || oRequest.nCommand > eEraseBlock)
        return CSimGateway::Execute(oRequest);
    if (oRequest.strData.size() < RequestLength(oRequest.nCommand))
        return SSimAnswer(eSimResultFailed);
    if (oRequest.nCommand == eInit) {
        m_eState = EState::eRunning;
        return SSimAnswer();
    }
    if (m_eState == EState::eOff)
        return SSimAnswer(eTimeout);
    switch (oRequest.nCommand) {
    case eComplete:
        m_eState = EState::eOff;
        return SSimAnswer();
    case eSetBaudrate:
        if (static_cast<unsigned char>(oRequest.strData[0]) > nMaxBaudIndex)
            return SSimAnswer(eTimeout);
        return SSimAnswer();
    case eCheckID:
        m_eState = oRequest.strData == m_strID ? EState::eIdentified : EState::eRunning;
        return m_eState == EState::eIdentified ? SSimAnswer() : SSimAnswer(eInvalidID);
    case eGetVersion:
        return SSimAnswer(eSimResultOk, pVersion);
    default:
        return m_eState == EState::eIdentified ? Flash(oRequest) : SSimAnswer(eInvalidID);
    }
}

/// The commands that touch the flash.
SSimAnswer CSimGatewayRenesas::Flash(const SSimRequest& oRequest)
{
    if (oRequest.nCommand == eEraseAll)
        return Erase(0, nFlashSize);
    const std::size_t nNumber = SimGet16(oRequest.strData, 0);
    const std::size_t nPage = nNumber * nPageSize;
    const bool bPage = nPage < nFlashSize;
    switch (oRequest.nCommand) {
    case eEraseBlock:
        return Erase(nNumber * nBlockSize, nBlockSize);
    case eReadPage:
        return bPage ? SSimAnswer(eSimResultOk, m_strFlash.substr(nPage, nPageSize))
                     : SSimAnswer(eSimResultFailed);
    case eWritePage:
        if (!bPage || m_strFlash.compare(nPage, nPageSize, std::string(nPageSize, '\xFF')) != 0)
            return SSimAnswer(eProgramFailed);
        m_strFlash.replace(nPage, nPageSize, oRequest.strData, 2, nPageSize);
        return SSimAnswer();
    default: { // eVerify
        const std::size_t nEnd = SimGet16(oRequest.strData, 2);
        if (nEnd < nNumber)
            return SSimAnswer(eSimResultFailed);
        unsigned nSum = 0;
        for (std::size_t i = nNumber; i <= nEnd; i++)
            nSum += static_cast<unsigned char>(m_strFlash[i]);
        SSimAnswer oAnswer;
        SimPut16(oAnswer.strData, nSum & 0xFFFF);
        return oAnswer;
    }
    }
}

SSimAnswer CSimGatewayRenesas::Erase(std::size_t nAddress, std::size_t nLen)
{
    if (nAddress >= nFlashSize)
        return SSimAnswer(eEraseFailed);
    m_strFlash.replace(nAddress, nLen, nLen, '\xFF');
    return SSimAnswer();
}
