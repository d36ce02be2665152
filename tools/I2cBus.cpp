#include "I2cBus.h"

#include "Text.h"

#include <algorithm>

namespace
{

constexpr int RC_NOT_ACKNOWLEDGED = 0x0120;
constexpr int RC_SHORT_ANSWER = 0x000C0000;

unsigned short GetSlaveAddress(const SI2cMessage& oMessage)
{
    return static_cast<unsigned short>(oMessage.nAddress << 1 | (oMessage.bRead ? 1U : 0U));
}

// Everything the packet error code of a message counts, from its address on.
std::string GetWire(const SI2cMessage& oMessage)
{
    return static_cast<char>(GetSlaveAddress(oMessage)) + oMessage.strBytes;
}

// The operation, for a report. Only without an acknowledge the gateway tells which message it was, and where.
std::string Describe(std::span<const SI2cMessage> aoMessages, std::size_t nFirst, std::size_t nAll, int nRC,
                     std::size_t nFailed, unsigned nPosition)
{
    if (aoMessages.size() > 1 && (nRC != RC_NOT_ACKNOWLEDGED || nFailed >= aoMessages.size()))
        return fmt::format("{} messages to 0x{:02x}", aoMessages.size(), aoMessages[0].nAddress);
    const SI2cMessage& oFailed = aoMessages[nFailed];
    return fmt::format(
        "{}{} {} byte{} {} 0x{:02x}{}", nAll > 1 ? fmt::format("message {}: ", nFirst + nFailed) : "",
        oFailed.bRead ? "read" : "write", oFailed.nLength, oFailed.nLength == 1 ? "" : "s",
        oFailed.bRead ? "from" : "to", oFailed.nAddress,
        nRC == RC_NOT_ACKNOWLEDGED && nPosition > 0 ? fmt::format(", byte {}", nPosition) : "");
}

} // namespace

// One message is a plain read or write, because a write tells where it failed; several are a sequence.
int CI2cBus::Execute(std::span<SI2cMessage> aoMessages, std::size_t& nFailed, unsigned short& nPosition,
                     std::string& strRead)
{
    unsigned short nRead = 0;
    int nRC = 0;
    if (aoMessages.size() == 1) {
        const SI2cMessage& oMessage = aoMessages[0];
        const auto nAddress = static_cast<unsigned short>(oMessage.nAddress << 1);
        const auto nLength = static_cast<unsigned short>(oMessage.nLength);
        if (!oMessage.bRead)
            return m_oGateway.Write(nAddress, oMessage.strBytes.data(), nLength, nPosition);
        strRead.resize(nLength);
        nRC = m_oGateway.Read(nAddress, strRead.data(), nLength, nRead);
    } else {
        std::string strSteps;
        std::size_t nLength = 0;
        for (const SI2cMessage& oMessage : aoMessages) {
            strSteps += CQuorvelMsg::ToChar(GetSlaveAddress(oMessage)) +
                        CQuorvelMsg::ToChar(static_cast<unsigned short>(oMessage.nLength));
            if (oMessage.bRead)
                nLength += oMessage.nLength;
            else
                strSteps += oMessage.strBytes;
        }
        strRead.resize(nLength);
        unsigned short nIndex = 0;
        nRC = m_oGateway.WriteSequence(strSteps.data(), static_cast<unsigned short>(strSteps.size()),
                                       strRead.data(), static_cast<unsigned short>(nLength), nRead, nIndex);
        nFailed = nIndex;
    }
    return nRC == 0 && nRead < strRead.size() ? RC_SHORT_ANSWER : nRC;
}

int CI2cBus::RunTogether(std::span<SI2cMessage> aoMessages, std::size_t nFirst, std::size_t nAll,
                         bool* pUnreadable)
{
    std::size_t nFailed = 0;
    unsigned short nPosition = 0;
    std::string strRead;
    const int nRC = Execute(aoMessages, nFailed, nPosition, strRead);
    if (nRC == RC_NOT_ACKNOWLEDGED && pUnreadable != nullptr) {
        *pUnreadable = true;
        return eStatusDone;
    }
    if (const int nStatus =
            m_oGateway.Check(Describe(aoMessages, nFirst, nAll, nRC, nFailed, nPosition), nRC);
        nStatus != 0)
        return nStatus;
    for (SI2cMessage& oMessage : aoMessages) {
        if (!oMessage.bRead)
            continue;
        oMessage.strBytes = strRead.substr(0, oMessage.nLength);
        strRead.erase(0, oMessage.nLength);
        if (!oMessage.bVariable)
            continue;
        const std::size_t nBlock = static_cast<unsigned char>(oMessage.strBytes[0]);
        if (nBlock < 1 || nBlock > SI2cMessage::MAX_BLOCK) {
            if (pUnreadable == nullptr)
                return m_oTool.Fail(eStatusRefused,
                                    fmt::format("0x{:02x} announces a block of {} bytes; it may have 1 to {}",
                                                oMessage.nAddress, nBlock, SI2cMessage::MAX_BLOCK));
            *pUnreadable = true;
        }
        oMessage.strBytes.resize(oMessage.nLength - SI2cMessage::MAX_BLOCK + nBlock);
    }
    return eStatusDone;
}

int CI2cBus::Run(std::vector<SI2cMessage>& aoMessages, bool* pUnreadable)
{
    std::size_t nFirst = 0;
    for (std::size_t i = 0; i < aoMessages.size(); ++i) {
        if (!aoMessages[i].bStop && i + 1 < aoMessages.size())
            continue;
        const std::size_t nCount = i + 1 - nFirst;
        if (const int nStatus = RunTogether(std::span(aoMessages).subspan(nFirst, nCount), nFirst,
                                            aoMessages.size(), pUnreadable);
            nStatus != 0 || (pUnreadable != nullptr && *pUnreadable))
            return nStatus;
        nFirst = i + 1;
    }
    return eStatusDone;
}

int CI2cBus::ReadValue(const SI2cAccess& oAccess, std::string& strValue, bool* pUnreadable)
{
    std::vector<SI2cMessage> aoMessages;
    std::string strWire; // what the packet error code counts
    if (oAccess.nRegister) {
        SI2cMessage oWrite{.nAddress = oAccess.nAddress, .strBytes = {}};
        oWrite.strBytes = static_cast<char>(*oAccess.nRegister);
        strWire = GetWire(oWrite);
        if (oAccess.eMode == SI2cAccess::eConsecutive) {
            oWrite.bStop = true;
            if (oAccess.bPec)
                oWrite.strBytes += static_cast<char>(GetPacketErrorCode(strWire));
            strWire.clear();
        }
        oWrite.nLength = oWrite.strBytes.size();
        aoMessages.push_back(oWrite);
    }
    SI2cMessage oRead{.nAddress = oAccess.nAddress, .bRead = true, .strBytes = {}};
    switch (oAccess.eMode) {
    case SI2cAccess::eByte:
    case SI2cAccess::eConsecutive:
        oRead.nLength = 1;
        break;
    case SI2cAccess::eWord:
        oRead.nLength = 2;
        break;
    case SI2cAccess::eSmbusBlock:
        oRead.bVariable = true;
        oRead.nLength = 1 + SI2cMessage::MAX_BLOCK;
        break;
    case SI2cAccess::eI2cBlock:
        oRead.nLength = oAccess.nLength;
        break;
    }
    if (oAccess.bPec)
        ++oRead.nLength;
    aoMessages.push_back(oRead);
    bool bUnreadable = false;
    if (const int nStatus = Run(aoMessages, pUnreadable != nullptr ? &bUnreadable : nullptr);
        nStatus != 0 || bUnreadable) {
        if (pUnreadable != nullptr)
            *pUnreadable = bUnreadable;
        return nStatus;
    }
    SI2cMessage& oDone = aoMessages.back();
    if (oAccess.bPec) {
        const auto nRead = static_cast<unsigned char>(oDone.strBytes.back());
        oDone.strBytes.pop_back();
        const unsigned char nComputed = GetPacketErrorCode(strWire + GetWire(oDone));
        if (nRead != nComputed && pUnreadable == nullptr)
            return m_oTool.Fail(eStatusMismatch,
                                fmt::format("read from 0x{:02x}: packet error code 0x{:02x}, "
                                            "but the bytes read give 0x{:02x}",
                                            oAccess.nAddress, nRead, nComputed));
        if (nRead != nComputed)
            *pUnreadable = true;
    }
    strValue = oDone.strBytes.substr(oDone.bVariable ? 1 : 0);
    return eStatusDone;
}

int CI2cBus::WriteValue(const SI2cAccess& oAccess, const std::string& strValue)
{
    SI2cMessage oWrite{.nAddress = oAccess.nAddress, .strBytes = {}};
    oWrite.strBytes = static_cast<char>(oAccess.nRegister.value_or(0));
    if (oAccess.eMode == SI2cAccess::eSmbusBlock)
        oWrite.strBytes += static_cast<char>(strValue.size());
    oWrite.strBytes += strValue;
    if (oAccess.bPec)
        oWrite.strBytes += static_cast<char>(GetPacketErrorCode(GetWire(oWrite)));
    oWrite.nLength = oWrite.strBytes.size();
    std::vector<SI2cMessage> aoMessages{oWrite};
    return Run(aoMessages);
}
