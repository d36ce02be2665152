#include "SimGatewayFirmware.h"

namespace
{

enum : unsigned char {
    eEEPROMInfo = 0xE0,
    eReadEEPROM = 0xE1,
    eWriteEEPROM = 0xE2,
    eClearFlash = 0xE3,
    eReadFlash = 0xE4,
    eWriteFlash = 0xE5,
    eReset = 0xE7
};
enum : unsigned char { eEEPROMFailed = 0x02 };

constexpr std::size_t nBlockSize = 2048;
constexpr std::size_t nRecordSize = 256;

/// The 32-bit number at nPos, most significant byte first.
std::size_t GetBigEndian(const std::string& strData, std::size_t nPos)
{
    std::size_t nValue = 0;
    for (std::size_t i = 0; i < 4; i++)
        nValue = nValue << 8 | static_cast<unsigned char>(strData[nPos + i]);
    return nValue;
}

} // namespace

CSimGatewayFirmware::CSimGatewayFirmware()
    : CSimGateway(0, "Firmware"), m_strFlash(nFlashSize, '\0'), m_strEEPROM(nEEPROMSize, '\xFF')
{
    std::string strRecord("\x00\x00\x03\xE9\x80\x01\x00\x02\x00\x01\x00\x00", 12);
    strRecord.resize(nRecordSize);
    m_strEEPROM.replace(0, nRecordSize, strRecord);
}

CSimGatewayFirmware::~CSimGatewayFirmware()
{
    Stop();
}

std::string CSimGatewayFirmware::PeekFlash(std::size_t nAddress, std::size_t nLen) const
{
    const std::lock_guard oLock(m_oMutexDevice);
    return nAddress < nFlashSize ? m_strFlash.substr(nAddress, nLen) : std::string();
}

std::string CSimGatewayFirmware::PeekEEPROM(std::size_t nAddress, std::size_t nLen) const
{
    const std::lock_guard oLock(m_oMutexDevice);
    return nAddress < nEEPROMSize ? m_strEEPROM.substr(nAddress, nLen) : std::string();
}

SSimAnswer CSimGatewayFirmware::Execute(const SSimRequest& oRequest)
{
    SSimAnswer oAnswer;
    switch (oRequest.nCommand) {
    case eEEPROMInfo:
        oAnswer.strData.assign(2, '\0');
        SimPut32(oAnswer.strData, nEEPROMSize);
        return oAnswer;
    case eReadEEPROM:
    case eWriteEEPROM:
        return AccessEEPROM(oRequest);
    case eClearFlash:
        m_strFlash.assign(nFlashSize, '\xFF');
        return oAnswer;
    case eReadFlash:
    case eWriteFlash:
        return AccessFlash(oRequest);
    case eReset:
        oAnswer.bRestart = true;
        return oAnswer;
    default:
        return CSimGateway::Execute(oRequest);
    }
}

SSimAnswer CSimGatewayFirmware::AccessEEPROM(const SSimRequest& oRequest)
{
    const bool bRead = oRequest.nCommand == eReadEEPROM;
    const std::string& strData = oRequest.strData;
    if (bRead ? strData.size() != 6 : strData.size() < 4)
        return SSimAnswer(eSimResultFailed);
    const std::size_t nOffset = GetBigEndian(strData, 0);
    const std::size_t nLen = bRead ? SimGet16(strData, 4) : strData.size() - 4;
    if (nOffset > nEEPROMSize || nLen > nEEPROMSize - nOffset || nLen > nMaxAnswer)
        return SSimAnswer(eEEPROMFailed);
    if (bRead)
        return SSimAnswer(eSimResultOk, m_strEEPROM.substr(nOffset, nLen));
    m_strEEPROM.replace(nOffset, nLen, strData, 4, nLen);
    return SSimAnswer();
}

SSimAnswer CSimGatewayFirmware::AccessFlash(const SSimRequest& oRequest)
{
    const bool bRead = oRequest.nCommand == eReadFlash;
    const std::string& strData = oRequest.strData;
    if (strData.size() != (bRead ? 2 : 2 + nBlockSize))
        return SSimAnswer(eSimResultFailed);
    const std::size_t nAddress = SimGet16(strData, 0) * nBlockSize;
    if (nAddress >= nFlashSize)
        return SSimAnswer(eSimResultFailed);
    if (bRead)
        return SSimAnswer(eSimResultOk, m_strFlash.substr(nAddress, nBlockSize));
    if (m_strFlash.compare(nAddress, nBlockSize, std::string(nBlockSize, '\xFF')) != 0)
        return SSimAnswer(eSimResultFailed);
    m_strFlash.replace(nAddress, nBlockSize, strData, 2, nBlockSize);
    return SSimAnswer();
}
