#include "QuorvelClientFirmware.h"

#include "Command.h"

#include <algorithm>

namespace
{

constexpr const char* UNIT = "source/QuorvelClientFirmware";
constexpr unsigned short FLASH_BLOCK = 2048;
constexpr unsigned int EEPROM_FORMAT = 16; // 16 bits of offset
// Failures of the EEPROM read as codes of the I2C gateway: existing applications rely on it.
constexpr int I2C_BAND = 0x0100;

// "major.minor" from the two halves of a version.
std::string VersionString(unsigned int nVersion)
{
    return std::to_string(nVersion >> 16) + "." + std::to_string(nVersion & 0xFFFF);
}

// The record's three numbers, which the EEPROM holds with the most significant byte first.
void ReadNumber(unsigned int& nNumber, const char* pRecord, std::size_t nOffset)
{
    CQuorvelMsg::FromChar(nNumber, pRecord + nOffset);
    nNumber = swablong(nNumber);
}

void WriteNumber(unsigned int nNumber, char* pRecord, std::size_t nOffset)
{
    CQuorvelMsg::ToChar(swablong(nNumber)).copy(pRecord + nOffset, sizeof nNumber);
}

} // namespace

std::string CQuorvelClientFirmware::SQuorvelDeviceInfoEx::GetHWVersionString() const
{
    constexpr unsigned int nVariant = 0x80000000U;
    return ((nHWVersion & nVariant) != 0 ? "KTV-GW " : "") + VersionString(nHWVersion & ~nVariant);
}

std::string CQuorvelClientFirmware::SQuorvelDeviceInfoEx::GetSWVersionString() const
{
    return VersionString(nSWVersion);
}

CQuorvelClientFirmware::CQuorvelClientFirmware(int nTimeout)
    : CQuorvelClient(static_cast<EQuorvelDevice>(0), static_cast<unsigned int>(nTimeout))
{
    SetOwnClass(typeid(CQuorvelClientFirmware));
}

CQuorvelClientFirmware::~CQuorvelClientFirmware()
{
    StopReception();
}

int CQuorvelClientFirmware::Open(int& /*nReserved1*/, int& /*nReserved2*/)
{
    m_nMsgID = 1; // not 2 as everywhere else: existing applications rely on it
    return 0;
}

std::string CQuorvelClientFirmware::ToOffset(unsigned int nOffset, unsigned int nFormat)
{
    const unsigned int nBits = ((nFormat >> 8) & 3U) + (nFormat & 0xFFU);
    return CQuorvelMsg::ToChar(swablong(nOffset & ((1U << (nBits & 31U)) - 1U)));
}

int CQuorvelClientFirmware::GetEEPromInfo(int& nSize)
{
    CCommand oCommand(*this, UNIT, 4, "OP_FIRM_EEPROM_INFO_REQ requested to ");
    const int nRC = oCommand.Exchange(0x00E0);
    const CDataReader oData = oCommand.Data();
    if (nRC == 0 && oData.GetLength() > 3) {
        // A short answer replaces the low bytes only.
        std::string strSize = CQuorvelMsg::ToChar(nSize);
        oData.Copy(3, strSize.data(), std::min(oData.GetLength() - 3, strSize.size()));
        CQuorvelMsg::FromChar(nSize, strSize.data());
    }
    return nRC;
}

int CQuorvelClientFirmware::ReadEEProm(unsigned int nOffset, char* pBuf, unsigned short nLen,
                                       unsigned short& nRead)
{
    CCommand oCommand(*this, UNIT, 4, "OP_FIRM_EEPROM_READ_REQ requested to ");
    oCommand << ",Offset=" << nOffset;
    const int nRC = oCommand.Exchange(0x00E1, {ToOffset(nOffset, EEPROM_FORMAT), CQuorvelMsg::ToChar(nLen)});
    if (nRC != 0)
        return nRC | I2C_BAND;
    nRead = oCommand.Data().CopyLength(1, nLen);
    oCommand.Data().Copy(1, pBuf, nRead);
    return 0;
}

int CQuorvelClientFirmware::WriteEEProm(unsigned int nOffset, const char* pData, unsigned short nLen)
{
    CCommand oCommand(*this, UNIT, 4, "OP_FIRM_EEPROM_WRITE_REQ requested to ");
    oCommand << ",Offset=" << nOffset;
    const int nRC = oCommand.Exchange(0x00E2, {ToOffset(nOffset, EEPROM_FORMAT), ToData(pData, nLen)});
    return nRC == 0 ? 0 : nRC | I2C_BAND;
}

int CQuorvelClientFirmware::ClearFlash()
{
    CCommand oCommand(*this, UNIT, 4, "OP_FIRM_FLASH_CLEAR_REQ requested to ");
    return oCommand.Exchange(0x00E3);
}

int CQuorvelClientFirmware::ReadFlash(unsigned short nBlock, char* pBuf, unsigned int& nLen)
{
    CCommand oCommand(*this, UNIT, 4, "OP_FIRM_FLASH_READ_REQ requested to ");
    oCommand << ",Block=0x" << std::hex << nBlock;
    nLen = 0;
    const int nRC = oCommand.Exchange(0x00E4, CQuorvelMsg::ToChar(nBlock));
    if (nRC == 0) {
        nLen = oCommand.Data().CopyLength(1, FLASH_BLOCK);
        oCommand.Data().Copy(1, pBuf, nLen);
    }
    return nRC;
}

int CQuorvelClientFirmware::WriteFlash(unsigned short nBlock, const char* pData)
{
    CCommand oCommand(*this, UNIT, 4, "OP_FIRM_FLASH_WRITE_REQ requested to ");
    oCommand << ",block=0x" << std::hex << nBlock;
    return oCommand.Exchange(0x00E5, {CQuorvelMsg::ToChar(nBlock), ToData(pData, FLASH_BLOCK)});
}

int CQuorvelClientFirmware::Restart()
{
    CCommand oCommand(*this, UNIT, 4, "OP_FIRM_RESET_REQ requested to ");
    return oCommand.Exchange(0x00E7);
}

int CQuorvelClientFirmware::GetInfo(SQuorvelDeviceInfoEx& oInfo)
{
    char acRecord[sizeof oInfo] = {};
    unsigned short nRead = 0;
    const int nRC = ReadEEProm(0, acRecord, sizeof acRecord, nRead);
    if (nRC != 0)
        return nRC;
    ReadNumber(oInfo.nSerialNumber, acRecord, 0);
    ReadNumber(oInfo.nHWVersion, acRecord, 4);
    ReadNumber(oInfo.nSWVersion, acRecord, 8);
    std::copy_n(acRecord + 12, sizeof oInfo.acReserved, oInfo.acReserved);
    return 0;
}

int CQuorvelClientFirmware::SetInfo(SQuorvelDeviceInfoEx& oInfo)
{
    char acRecord[sizeof oInfo];
    WriteNumber(oInfo.nSerialNumber, acRecord, 0);
    WriteNumber(oInfo.nHWVersion, acRecord, 4);
    WriteNumber(oInfo.nSWVersion, acRecord, 8);
    std::copy_n(oInfo.acReserved, sizeof oInfo.acReserved, acRecord + 12);
    return WriteEEProm(0, acRecord, sizeof acRecord);
}
