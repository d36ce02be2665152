#include "SimGatewayAWire.h"

#include "QuorvelErrorMsg.h"

#include <algorithm>
#include <utility>

namespace
{

enum : unsigned char {
    eSetConfig = 0x05,
    eGetConfig = 0x06,
    eWrite = 0xE0,
    eErase = 0xE2,
    eRead = 0xE3,
    eWriteUserPage = 0xE4,
    eEraseUserPage = 0xE5
};
enum : unsigned char {
    eTransferInProgress = 0x21,
    eBadTarget = 0x22,
    eBadSize = 0x23,
    eEraseFailed = 0x25,
    eReadFailed = 0x26
};
enum : unsigned char { eStatusWritten = 0, eStatusInProgress = 1, eStatusFailed = 2 };

constexpr unsigned short nReportCode = 0x0EE1;
constexpr unsigned nPowerOnBaudrate = 1000000;
constexpr unsigned nMinBaudrate = 1000;
constexpr unsigned nMaxBaudrate = 10000000;
constexpr std::size_t nFlashSize = std::size_t{1} << 20;
constexpr std::size_t nMaxFlashSize = std::size_t{64} << 20;
constexpr std::size_t nBlockSize = std::size_t{64} << 10;

SSimAnswer NoAnswer()
{
    SSimAnswer oAnswer;
    oAnswer.bNone = true;
    return oAnswer;
}

} // namespace

/// A write under way.
struct CSimGatewayAWire::SWrite {
    unsigned nConnection;
    short nID;
    EFault eFault;
    std::size_t nPos = 0; ///< in the memory
    std::string strData;
    std::size_t nDone = 0;
    TSimTime oDue{}; ///< when the next page is written
};

CSimGatewayAWire::CSimGatewayAWire()
    : CSimGateway(eDeviceAWire, "AWire"), m_strMemory(nFlashSize + m_nPageSize, '\xFF')
{
}

CSimGatewayAWire::~CSimGatewayAWire()
{
    Stop();
}

void CSimGatewayAWire::SetPageTime(std::chrono::microseconds nTime)
{
    const std::lock_guard oLock(m_oMutexDevice);
    m_nPageTime = nTime;
}

void CSimGatewayAWire::SetFault(EFault eFault, unsigned nFrom, unsigned char nStatus)
{
    const std::lock_guard oLock(m_oMutexDevice);
    m_eFault = eFault;
    m_nFaultFrom = m_oStatistics.nWrites + nFrom;
    m_nFaultStatus = nStatus;
}

CSimGatewayAWire::SStatistics CSimGatewayAWire::GetStatistics() const
{
    const std::lock_guard oLock(m_oMutexDevice);
    return m_oStatistics;
}

std::string CSimGatewayAWire::Peek(unsigned nAddress, std::size_t nLen) const
{
    const std::lock_guard oLock(m_oMutexDevice);
    return IsThere(m_nStart, m_strMemory.size(), nAddress, nLen)
               ? m_strMemory.substr(nAddress - m_nStart, nLen)
               : std::string();
}

/// Whether nSize bytes at nAt are within nLen bytes at nFrom.
bool CSimGatewayAWire::IsThere(std::size_t nFrom, std::size_t nLen, std::size_t nAt, std::size_t nSize)
{
    return nAt >= nFrom && nAt - nFrom <= nLen && nSize <= nLen - (nAt - nFrom);
}

SSimAnswer CSimGatewayAWire::Execute(const SSimRequest& oRequest)
{
    SSimAnswer oAnswer;
    switch (oRequest.nCommand) {
    case eWrite:
    case eWriteUserPage:
        return Write(oRequest);
    case eGetConfig:
        SimPut32(oAnswer.strData, m_nBaudrate);
        SimPut32(oAnswer.strData, m_nStart);
        SimPut32(oAnswer.strData, static_cast<unsigned>(FlashSize()));
        SimPut32(oAnswer.strData, m_nPageSize);
        oAnswer.strData += m_strTarget;
        return oAnswer;
    case eSetConfig:
    case eErase:
    case eRead:
    case eEraseUserPage:
        if (!m_anPending.empty())
            return SSimAnswer(eTransferInProgress);
        break;
    default:
        return CSimGateway::Execute(oRequest);
    }
    switch (oRequest.nCommand) {
    case eSetConfig:
        oAnswer.nResult = SetConfig(oRequest.strData);
        return oAnswer;
    case eErase:
        oAnswer.nResult = Erase(oRequest.strData);
        return oAnswer;
    case eEraseUserPage:
        m_strMemory.replace(FlashSize(), m_nPageSize, m_nPageSize, '\xFF');
        return oAnswer;
    default:
        return Read(oRequest.strData);
    }
}

void CSimGatewayAWire::PowerOn()
{
    CSimGateway::PowerOn();
    m_nBaudrate = nPowerOnBaudrate;
}

void CSimGatewayAWire::OnEnd(unsigned nConnection)
{
    m_anPending.erase(nConnection);
    if (m_anPending.empty())
        m_oBusyUntil = {};
}

unsigned char CSimGatewayAWire::SetConfig(const std::string& strData)
{
    if (strData.size() < 16)
        return eSimResultFailed;
    const unsigned nBaudrate = SimGet32(strData, 0);
    const unsigned nStart = SimGet32(strData, 4);
    const std::size_t nSize = SimGet32(strData, 8);
    const unsigned nPageSize = SimGet32(strData, 12);
    if (nBaudrate < nMinBaudrate || nBaudrate > nMaxBaudrate)
        return eBadTarget;
    if (nPageSize == 0 || nSize == 0 || nSize % nPageSize != 0 || nSize > nMaxFlashSize ||
        nStart + nSize + nPageSize > std::size_t{1} << 32)
        return eBadSize;
    if (nSize != FlashSize() || nPageSize != m_nPageSize)
        m_strMemory.assign(nSize + nPageSize, '\xFF');
    m_nBaudrate = nBaudrate;
    m_nStart = nStart;
    m_nPageSize = nPageSize;
    m_strTarget = strData.substr(16);
    return eSimResultOk;
}

SSimAnswer CSimGatewayAWire::Read(const std::string& strData) const
{
    if (strData.size() < 6)
        return SSimAnswer(eSimResultFailed);
    const std::size_t nAddress = SimGet32(strData, 0);
    const std::size_t nLen = SimGet16(strData, 4);
    if (nLen > nMaxAnswer || !IsThere(m_nStart, m_strMemory.size(), nAddress, nLen))
        return SSimAnswer(eReadFailed);
    return SSimAnswer(eSimResultOk, m_strMemory.substr(nAddress - m_nStart, nLen));
}

unsigned char CSimGatewayAWire::Erase(const std::string& strData)
{
    if (strData.size() < 2)
        return eSimResultFailed;
    const std::size_t nPos = SimGet16(strData, 0) * nBlockSize;
    if (nPos >= FlashSize())
        return eEraseFailed;
    const std::size_t nLen = std::min(nBlockSize, FlashSize() - nPos);
    m_strMemory.replace(nPos, nLen, nLen, '\xFF');
    return eSimResultOk;
}

SSimAnswer CSimGatewayAWire::Write(const SSimRequest& oRequest)
{
    m_oStatistics.nWrites++;
    const std::string& strData = oRequest.strData;
    const auto pWrite = std::make_shared<SWrite>();
    pWrite->nConnection = oRequest.nConnection;
    pWrite->nID = oRequest.nID;
    const bool bFault = m_oStatistics.nWrites >= m_nFaultFrom;
    pWrite->eFault = bFault ? m_eFault : EFault::eNone;

    bool bGood = strData.size() >= 6 && strData.size() == SimGet16(strData, 4) + 6U;
    if (bGood) {
        const bool bUserPage = oRequest.nCommand == eWriteUserPage;
        const std::size_t nAt = SimGet32(strData, 0);
        bGood =
            IsThere(bUserPage ? 0 : m_nStart, bUserPage ? m_nPageSize : FlashSize(), nAt, strData.size() - 6);
        pWrite->nPos = bUserPage ? FlashSize() + nAt : nAt - m_nStart;
    }
    if (!bGood || pWrite->eFault == EFault::eRefuse) {
        Report(*pWrite, bGood ? m_nFaultStatus : static_cast<unsigned char>(eStatusFailed));
        return NoAnswer();
    }
    pWrite->strData = strData.substr(6);
    const std::size_t nEnd = pWrite->nPos + pWrite->strData.size();
    const auto nPages =
        static_cast<long long>((nEnd + m_nPageSize - 1) / m_nPageSize - pWrite->nPos / m_nPageSize);
    // Without a gap when the last write is not done yet, however late this thread may be.
    const TSimTime oStart = std::max(TSimClock::now(), m_oBusyUntil);
    pWrite->oDue = oStart + m_nPageTime;
    m_oBusyUntil = oStart + nPages * m_nPageTime;
    m_oStatistics.nBusy += nPages * m_nPageTime;
    m_oStatistics.nMaxPending = std::max(m_oStatistics.nMaxPending, ++m_anPending[oRequest.nConnection]);
    return Program(pWrite);
}

/// Writes the pages that are due.
SSimAnswer CSimGatewayAWire::Program(const std::shared_ptr<SWrite>& pWrite)
{
    SWrite& oWrite = *pWrite;
    const TSimTime oNow = TSimClock::now();
    while (oWrite.nDone < oWrite.strData.size()) {
        if (oWrite.oDue > oNow) {
            if (oWrite.nDone > 0)
                Report(oWrite, eStatusInProgress);
            SSimAnswer oAnswer;
            oAnswer.oDue = oWrite.oDue;
            oAnswer.fnContinue = [this, pWrite] { return Program(pWrite); };
            return oAnswer;
        }
        const std::size_t nPos = oWrite.nPos + oWrite.nDone;
        const std::size_t nLen =
            std::min(m_nPageSize - nPos % m_nPageSize, oWrite.strData.size() - oWrite.nDone);
        for (std::size_t i = 0; i < nLen; i++)
            m_strMemory[nPos + i] =
                static_cast<char>(m_strMemory[nPos + i] & oWrite.strData[oWrite.nDone + i]);
        oWrite.nDone += nLen;
        oWrite.oDue += m_nPageTime;
    }
    if (--m_anPending[oWrite.nConnection] == 0)
        m_anPending.erase(oWrite.nConnection);
    Report(oWrite, eStatusWritten);
    return NoAnswer();
}

void CSimGatewayAWire::Report(const SWrite& oWrite, unsigned char nStatus)
{
    const auto fnSend = [&](unsigned nID) {
        std::string strReport;
        SimPut16(strReport, nID & 0xFFFF);
        strReport += static_cast<char>(nStatus);
        SimPut16(strReport, static_cast<unsigned>(oWrite.nDone));
        SendIndication(nReportCode, 0, strReport, oWrite.nConnection);
    };
    const auto nID = static_cast<unsigned short>(oWrite.nID);
    switch (oWrite.eFault) {
    case EFault::eNever:
        return;
    case EFault::eUnknownID:
        fnSend(nID + 0x4000U);
        break;
    case EFault::eTwice:
        fnSend(nID);
        break;
    case EFault::eGarbage:
        for (const std::size_t nLen : {0U, 4U, 1000U})
            SendIndication(nReportCode, 0, std::string(nLen, '\x5A'), oWrite.nConnection);
        SendIndication(nReportCode + 1, 0, std::string(5, '\0'), oWrite.nConnection);
        break;
    case EFault::eNone:
    case EFault::eRefuse:
        break;
    }
    fnSend(nID);
}
