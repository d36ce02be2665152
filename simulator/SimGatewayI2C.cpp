#include "SimGatewayI2C.h"

#include "QuorvelErrorMsg.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <utility>

namespace
{

using namespace std::chrono_literals;

enum : unsigned char {
    eReset = 0x04,
    eSetGlobals = 0x07,
    eGetGlobals = 0x08,
    eRead = 0x10,
    eWrite = 0x11,
    eReadEeprom = 0x12,
    eWriteEeprom = 0x13,
    eSequence = 0x14,
    eRawStart = 0x15,
    eRawSend = 0x16,
    eRawGet = 0x17,
    eRawStop = 0x18,
    eWriteEepromPoll = 0x19
};
enum : unsigned char { eNoAcknowledge = 0x20, eBusTimeout = 0x21, ePollTimeout = 0x25 };

constexpr unsigned nMaxClock = 1000000;
constexpr std::size_t nMaxOffsetBytes = 2;
constexpr auto nPollInterval = 200us;
// How long a memory is waited for where the request does not say.
constexpr auto nPollLimit = 100ms;

/// The request data of a command: so many bytes, or, with more behind them, at least so many.
struct SShape {
    std::size_t nLen;
    unsigned char nCommand;
    bool bMore;
};
constexpr SShape aoShapes[] = {{0, eReset, false},         {4, eSetGlobals, false}, {0, eGetGlobals, false},
                               {4, eRead, false},          {2, eWrite, true},       {9, eReadEeprom, false},
                               {7, eWriteEeprom, true},    {2, eSequence, true},    {0, eRawStart, false},
                               {2, eRawSend, false},       {1, eRawGet, false},     {0, eRawStop, false},
                               {9, eWriteEepromPoll, true}};

/// What an EEPROM request says about where.
struct SPlace {
    unsigned nAddress = 0;
    std::size_t nOffsetBytes = 0; ///< how many
    std::size_t nOffset = 0;

    SPlace(unsigned nSlaveAddress, const std::string& strData, std::size_t nPos)
        : nAddress(nSlaveAddress & ~1U), nOffsetBytes(static_cast<unsigned char>(strData[nPos]))
    {
        for (std::size_t i = nPos + 1; i <= nPos + 4; i++)
            nOffset = nOffset << 8 | static_cast<unsigned char>(strData[i]);
    }
    bool IsGood() const { return nOffsetBytes >= 1 && nOffsetBytes <= nMaxOffsetBytes; }
    std::string OffsetBytes() const
    {
        std::string strBytes;
        for (std::size_t i = nOffsetBytes; i-- > 0;)
            strBytes += static_cast<char>(nOffset >> 8 * i & 0xFF);
        return strBytes;
    }
};

/// A step of a sequence.
struct SStep {
    unsigned nAddress;
    std::size_t nLen;
    std::string strBytes; ///< to write

    bool IsRead() const { return (nAddress & 1) != 0; }
};

/// Reads the steps up to one that is cut off or reads more than the answer is to hold.
bool ParseSequence(const std::string& strData, std::vector<SStep>& aoSteps)
{
    std::size_t nToRead = SimGet16(strData, 0);
    if (nToRead + 2 > CSimGateway::nMaxAnswer)
        return false;
    for (std::size_t nPos = 2; nPos < strData.size();) {
        if (strData.size() - nPos < 4)
            return false;
        SStep oStep{SimGet16(strData, nPos), SimGet16(strData, nPos + 2), {}};
        nPos += 4;
        if (oStep.nLen > (oStep.IsRead() ? nToRead : strData.size() - nPos))
            return false;
        if (oStep.IsRead()) {
            nToRead -= oStep.nLen;
        } else {
            oStep.strBytes = strData.substr(nPos, oStep.nLen);
            nPos += oStep.nLen;
        }
        aoSteps.push_back(std::move(oStep));
    }
    return true;
}

/// Reads "type" or "type@chip".
std::shared_ptr<CI2cEeprom> MakeMemory(const std::string& strItem, std::string& strError)
{
    const auto nAt = std::min(strItem.find('@'), strItem.size());
    const std::string strType = strItem.substr(0, nAt);
    const auto aoTypes = CI2cEeprom::GetTypes();
    const auto itType = std::find_if(aoTypes.begin(), aoTypes.end(),
                                     [&](const SI2cEepromType& oType) { return strType == oType.pName; });
    if (itType == aoTypes.end()) {
        strError = "'" + strType + "' is not a type of memory; there are";
        for (const auto& oType : aoTypes)
            strError += std::string(" ") + oType.pName;
        return nullptr;
    }
    unsigned nChip = 0;
    if (nAt < strItem.size()) {
        const char* const pEnd = strItem.data() + strItem.size();
        const auto oResult = std::from_chars(strItem.data() + nAt + 1, pEnd, nChip);
        if (oResult.ec != std::errc() || oResult.ptr != pEnd || nChip >= itType->GetChips()) {
            strError = "'" + strItem + "': the chip number is 0 to " + std::to_string(itType->GetChips() - 1);
            return nullptr;
        }
    }
    return std::make_shared<CI2cEeprom>(*itType, nChip);
}

} // namespace

/// The writing of an EEPROM, page by page.
struct CSimGatewayI2C::SWrite {
    SPlace oPlace; ///< of what comes next
    std::string strData;
    std::size_t nDone = 0;
    bool bWritten = false; ///< all of it
    bool bWait = false;    ///< for the memory to acknowledge, before anything else
    bool bWaitAtEnd = false;
    std::chrono::milliseconds nLimit = nPollLimit;
    TSimTime oGiveUp = TSimClock::now();
};

CSimGatewayI2C::CSimGatewayI2C() : CSimGateway(eDeviceI2C, "I2C")
{
    std::string strError;
    SetMemories(pDefaultMemories, strError);
}

CSimGatewayI2C::~CSimGatewayI2C()
{
    Stop();
}

bool CSimGatewayI2C::SetMemories(const std::string& strList, std::string& strError)
{
    std::vector<std::shared_ptr<CI2cEeprom>> apMemories;
    for (std::size_t nPos = 0; nPos < strList.size();) {
        const auto nEnd = std::min(strList.find(',', nPos), strList.size());
        const auto pMemory = MakeMemory(strList.substr(nPos, nEnd - nPos), strError);
        if (pMemory == nullptr)
            return false;
        for (unsigned nAddress = 0xA0; nAddress < 0xB0; nAddress += 2) {
            const auto IsThere = [&](const auto& pOther) { return pOther->IsAt(nAddress); };
            if (IsThere(pMemory) && std::any_of(apMemories.begin(), apMemories.end(), IsThere)) {
                strError = "'" + strList + "': two memories at slave address 0xA";
                strError += "02468ACE"[(nAddress - 0xA0) / 2];
                return false;
            }
        }
        apMemories.push_back(pMemory);
        nPos = nEnd + 1;
    }
    const std::lock_guard oLock(m_oMutexDevice);
    m_apMemories = std::move(apMemories);
    std::vector<std::shared_ptr<CI2cDevice>> apDevices(m_apMemories.begin(), m_apMemories.end());
    apDevices.push_back(m_pSensor);
    m_oBus.SetDevices(std::move(apDevices));
    return true;
}

std::shared_ptr<CI2cEeprom> CSimGatewayI2C::GetMemory(unsigned nAddress) const
{
    const std::lock_guard oLock(m_oMutexDevice);
    return FindMemory(nAddress);
}

void CSimGatewayI2C::SetClockHeld(bool bHeld)
{
    const std::lock_guard oLock(m_oMutexDevice);
    m_bClockHeld = bHeld;
}

void CSimGatewayI2C::SetTwoBytesFirst(bool bOn)
{
    const std::lock_guard oLock(m_oMutexDevice);
    m_bTwoBytesFirst = bOn;
}

SSimAnswer CSimGatewayI2C::Execute(const SSimRequest& oRequest)
{
    const auto* const pShape =
        std::find_if(std::begin(aoShapes), std::end(aoShapes),
                     [&](const SShape& oShape) { return oShape.nCommand == oRequest.nCommand; });
    if (pShape == std::end(aoShapes))
        return CSimGateway::Execute(oRequest);
    const std::size_t nLen = oRequest.strData.size();
    if (nLen < pShape->nLen || (nLen > pShape->nLen && !pShape->bMore))
        return SSimAnswer(eSimResultFailed);
    SSimAnswer oAnswer;
    switch (oRequest.nCommand) {
    case eReset:
        m_oBus.Reset();
        m_bClockHeld = false;
        return oAnswer;
    case eSetGlobals: {
        const unsigned nClock = SimGet32(oRequest.strData, 0);
        if (nClock == 0 || nClock > nMaxClock)
            return SSimAnswer(eSimResultFailed);
        m_nClock = nClock;
        return oAnswer;
    }
    case eGetGlobals:
        SimPut32(oAnswer.strData, m_nClock);
        return oAnswer;
    default:
        return m_bClockHeld ? SSimAnswer(eBusTimeout) : ExecuteOnBus(oRequest);
    }
}

SSimAnswer CSimGatewayI2C::ExecuteOnBus(const SSimRequest& oRequest)
{
    const std::string& strData = oRequest.strData;
    SSimAnswer oAnswer;
    switch (oRequest.nCommand) {
    case eRead: {
        const std::size_t nLen = SimGet16(strData, 2);
        if (nLen > nMaxAnswer)
            return SSimAnswer(eSimResultFailed);
        if (!Read(SimGet16(strData, 0), nLen, oAnswer.strData))
            oAnswer.nResult = eNoAcknowledge;
        m_oBus.Stop();
        break;
    }
    case eWrite: {
        unsigned nPosition = 0;
        if (!Write(SimGet16(strData, 0), strData.substr(2), nPosition))
            oAnswer.nResult = eNoAcknowledge;
        m_oBus.Stop();
        SimPut16(oAnswer.strData, nPosition);
        break;
    }
    case eReadEeprom:
        return ReadEeprom(strData);
    case eWriteEeprom:
    case eWriteEepromPoll:
        return StartWriteEeprom(strData, oRequest.nCommand == eWriteEepromPoll);
    case eSequence:
        return RunSequence(strData);
    case eRawStart:
        m_oBus.Start();
        break;
    case eRawSend:
        if (!m_oBus.Send(static_cast<unsigned char>(strData[0])) && (strData[1] & 1) == 0)
            oAnswer.nResult = eNoAcknowledge;
        break;
    case eRawGet:
        oAnswer.strData = static_cast<char>(m_oBus.Get((strData[0] & 1) != 0));
        break;
    default:
        m_oBus.Stop();
        break;
    }
    return oAnswer;
}

void CSimGatewayI2C::PowerOn()
{
    CSimGateway::PowerOn();
    m_nClock = 100000;
    m_bClockHeld = false;
    m_oBus.PowerCycle();
}

std::shared_ptr<CI2cEeprom> CSimGatewayI2C::FindMemory(unsigned nAddress) const
{
    for (const auto& pMemory : m_apMemories) {
        if (pMemory->IsAt(nAddress))
            return pMemory;
    }
    return nullptr;
}

/// Start condition, address and bytes; on failure the position tells what was not acknowledged.
bool CSimGatewayI2C::Write(unsigned nAddress, const std::string& strBytes, unsigned& nPosition)
{
    nPosition = 0;
    m_oBus.Start();
    if (nAddress > 0xFF || !m_oBus.Send(static_cast<std::uint8_t>(nAddress & 0xFE)))
        return false;
    for (std::size_t i = 0; i < strBytes.size(); i++) {
        if (!m_oBus.Send(static_cast<std::uint8_t>(strBytes[i]))) {
            nPosition = static_cast<unsigned>(i + 1);
            return false;
        }
    }
    return true;
}

/// Start condition, address, and so many bytes, which are appended; the last one is not acknowledged.
bool CSimGatewayI2C::Read(unsigned nAddress, std::size_t nLen, std::string& strRead)
{
    m_oBus.Start();
    if (nAddress > 0xFF || !m_oBus.Send(static_cast<std::uint8_t>(nAddress | 1)))
        return false;
    for (std::size_t i = nLen; i-- > 0;)
        strRead += static_cast<char>(m_oBus.Get(i > 0));
    return true;
}

SSimAnswer CSimGatewayI2C::ReadEeprom(const std::string& strData)
{
    const SPlace oPlace(SimGet16(strData, 0), strData, 2);
    const std::size_t nLen = SimGet16(strData, 7);
    SSimAnswer oAnswer;
    if (m_bTwoBytesFirst)
        SimPut16(oAnswer.strData, static_cast<unsigned>(nLen));
    if (!oPlace.IsGood() || oAnswer.strData.size() + nLen > nMaxAnswer)
        return SSimAnswer(eSimResultFailed);
    unsigned nPosition = 0;
    const bool bRead = Write(oPlace.nAddress, oPlace.OffsetBytes(), nPosition) &&
                       Read(oPlace.nAddress, nLen, oAnswer.strData);
    m_oBus.Stop();
    return bRead ? oAnswer : SSimAnswer(eNoAcknowledge);
}

SSimAnswer CSimGatewayI2C::StartWriteEeprom(const std::string& strData, bool bPoll)
{
    const std::size_t nPos = bPoll ? 4 : 2;
    const auto pWrite = std::make_shared<SWrite>(SWrite{SPlace(SimGet16(strData, 0), strData, nPos), {}});
    if (!pWrite->oPlace.IsGood())
        return SSimAnswer(eSimResultFailed);
    pWrite->strData = strData.substr(nPos + 5);
    pWrite->bWait = pWrite->bWaitAtEnd = bPoll;
    if (bPoll && SimGet16(strData, 2) != 0)
        pWrite->nLimit = std::chrono::milliseconds(SimGet16(strData, 2));
    pWrite->oGiveUp += pWrite->nLimit;
    return WriteEeprom(pWrite);
}

/// Goes on until the memory has to be waited for, or all is done.
SSimAnswer CSimGatewayI2C::WriteEeprom(const std::shared_ptr<SWrite>& pWrite)
{
    while (pWrite->bWait || !pWrite->bWritten) {
        if (m_bClockHeld)
            return SSimAnswer(eBusTimeout);
        unsigned nPosition = 0;
        if (!pWrite->bWait) {
            if (!WritePage(*pWrite))
                return SSimAnswer(eNoAcknowledge);
            continue;
        }
        pWrite->bWait = !Write(pWrite->oPlace.nAddress, {}, nPosition);
        m_oBus.Stop();
        if (!pWrite->bWait)
            continue;
        if (TSimClock::now() >= pWrite->oGiveUp)
            return SSimAnswer(ePollTimeout);
        SSimAnswer oAnswer;
        oAnswer.oDue = std::min<TSimTime>(TSimClock::now() + nPollInterval, pWrite->oGiveUp);
        oAnswer.fnContinue = [this, pWrite] { return WriteEeprom(pWrite); };
        return oAnswer;
    }
    return SSimAnswer();
}

/// Writes what fits the page.
bool CSimGatewayI2C::WritePage(SWrite& oWrite)
{
    SPlace& oPlace = oWrite.oPlace;
    std::size_t nLen = oWrite.strData.size() - oWrite.nDone;
    const auto pMemory = FindMemory(oPlace.nAddress);
    std::size_t nOffset = 0;
    if (pMemory != nullptr) {
        nOffset = pMemory->ToOffset(oPlace.nAddress, oPlace.nOffset);
        const std::size_t nPageSize = pMemory->GetType().nPageSize;
        nLen = std::min(nLen, nPageSize - nOffset % nPageSize);
    }
    unsigned nPosition = 0;
    const bool bWritten =
        Write(oPlace.nAddress, oPlace.OffsetBytes() + oWrite.strData.substr(oWrite.nDone, nLen), nPosition);
    m_oBus.Stop();
    oWrite.nDone += nLen;
    oWrite.bWritten = oWrite.nDone == oWrite.strData.size();
    oWrite.bWait = !oWrite.bWritten || oWrite.bWaitAtEnd;
    oWrite.oGiveUp = TSimClock::now() + oWrite.nLimit;
    if (pMemory != nullptr && !oWrite.bWritten) {
        oPlace.nOffset = nOffset + nLen;
        oPlace.nAddress = pMemory->GetSlaveAddress(oPlace.nOffset);
    }
    return bWritten;
}

SSimAnswer CSimGatewayI2C::RunSequence(const std::string& strData)
{
    std::vector<SStep> aoSteps;
    const bool bGood = ParseSequence(strData, aoSteps);
    SSimAnswer oAnswer(bGood ? eSimResultOk : eSimResultFailed);
    std::size_t nFailed = bGood ? 0 : aoSteps.size();
    std::string strRead;
    for (std::size_t i = 0; bGood && i < aoSteps.size() && oAnswer.nResult == eSimResultOk; i++) {
        const SStep& oStep = aoSteps[i];
        unsigned nPosition = 0;
        const bool bDone = oStep.IsRead() ? Read(oStep.nAddress, oStep.nLen, strRead)
                                          : Write(oStep.nAddress, oStep.strBytes, nPosition);
        m_oBus.Stop();
        if (!bDone) {
            oAnswer.nResult = eNoAcknowledge;
            nFailed = i;
        }
    }
    SimPut16(oAnswer.strData, static_cast<unsigned>(nFailed));
    oAnswer.strData += strRead;
    return oAnswer;
}
