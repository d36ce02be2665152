#include "QuorvelClientI2C.h"

#include "Command.h"

#include <algorithm>

namespace
{

constexpr const char* UNIT = "source/QuorvelClientI2C";
constexpr int RC_INVALID_PARAMETER = 0x00920000;
constexpr std::size_t MAX_SEQUENCE = 0xFFFF;

// Shifting by more than 31 or by a negative count shifts by the count modulo 32.
unsigned int Bit(unsigned int nCount)
{
    return 1U << (nCount & 31U);
}

unsigned int ShiftedDown(unsigned int nValue, unsigned int nCount)
{
    return nValue >> (nCount & 31U);
}

void AddMemory(CCommand& oCommand, unsigned short nChip, unsigned short nSlaveAddress)
{
    oCommand << ",chip address=" << nChip << ",slave address=0x" << std::hex << nSlaveAddress;
}

// What all EEPROM requests carry: number of offset bytes, and the offset.
std::string OffsetField(unsigned int nOffset, unsigned short nAddressing)
{
    return ToByte((nAddressing & 0xFF) >= 9 ? 2 : 1) + CQuorvelClientI2C::ToOffset(nOffset, nAddressing);
}

} // namespace

CQuorvelClientI2C::CQuorvelClientI2C(int nTimeout)
    : CQuorvelClient(eDeviceI2C, static_cast<unsigned int>(nTimeout))
{
    SetOwnClass(typeid(CQuorvelClientI2C));
}

CQuorvelClientI2C::~CQuorvelClientI2C()
{
    StopReception();
}

int CQuorvelClientI2C::Open(unsigned int nBaudrate)
{
    const int nRC = CQuorvelClient::Open();
    return nRC != 0 ? nRC : SetBaudrate(nBaudrate);
}

int CQuorvelClientI2C::SetBaudrate(unsigned int nBaudrate)
{
    if (nBaudrate == 100 || nBaudrate == 400)
        nBaudrate *= 1000; // given in kHz
    CCommand oCommand(*this, UNIT, 4, "SET GLOBALS requested to ");
    oCommand << ",Baudrate=" << nBaudrate;
    const int nRC = oCommand.Exchange(0x0107, CQuorvelMsg::ToChar(nBaudrate));
    if (nRC == 0)
        m_nBaudrate = nBaudrate;
    return nRC;
}

int CQuorvelClientI2C::GetBaudrate(unsigned int& nBaudrate)
{
    CCommand oCommand(*this, UNIT, 4, "GET GLOBALS requested to ");
    const int nRC = oCommand.Exchange(0x0108);
    if (oCommand.IsConfirmed())
        m_nBaudrate = nBaudrate = oCommand.Data().DWord(1);
    return nRC;
}

int CQuorvelClientI2C::Reset()
{
    CCommand oCommand(*this, UNIT, 8, "RESET requested to ");
    return oCommand.Exchange(0x0104);
}

int CQuorvelClientI2C::Read(unsigned short nSlaveAddress, char* pBuffer, unsigned short nLen,
                            unsigned short& nBytesRead)
{
    CCommand oCommand(*this, UNIT, 8, "READ requested to ");
    oCommand << ",slave address=0x" << std::hex << nSlaveAddress;
    nBytesRead = 0;
    const int nRC =
        oCommand.Exchange(0x0110, {CQuorvelMsg::ToChar(nSlaveAddress), CQuorvelMsg::ToChar(nLen)});
    if (oCommand.IsConfirmed()) {
        nBytesRead = oCommand.Data().CopyLength(1, nLen);
        oCommand.Data().Copy(1, pBuffer, nBytesRead);
    }
    return nRC;
}

int CQuorvelClientI2C::Write(unsigned short nSlaveAddress, const char* pData, unsigned short nLen,
                             unsigned short& nErrorPosition)
{
    CCommand oCommand(*this, UNIT, 8, "WRITE requested to ");
    oCommand << ",slave address=0x" << std::hex << nSlaveAddress;
    const int nRC = oCommand.Exchange(0x0111, {CQuorvelMsg::ToChar(nSlaveAddress), ToData(pData, nLen)});
    if (oCommand.IsConfirmed() && oCommand.Data().GetLength() > 2)
        nErrorPosition = oCommand.Data().Word(1);
    return nRC;
}

int CQuorvelClientI2C::RAWStart()
{
    CCommand oCommand(*this, UNIT, 8, "RAW_START requested to ");
    return oCommand.Exchange(0x0115);
}

int CQuorvelClientI2C::RAWSend(unsigned char nValue, unsigned char nFlags)
{
    CCommand oCommand(*this, UNIT, 8, "RAW_SEND requested to ");
    return oCommand.Exchange(0x0116, {ToByte(nValue), ToByte(nFlags)});
}

int CQuorvelClientI2C::RAWGet(unsigned char nFlags, unsigned char& nValue)
{
    CCommand oCommand(*this, UNIT, 8, "RAW_GET requested to ");
    const int nRC = oCommand.Exchange(0x0117, ToByte(nFlags));
    if (oCommand.IsConfirmed())
        nValue = oCommand.Data().Byte(1);
    return nRC;
}

int CQuorvelClientI2C::RAWStop()
{
    CCommand oCommand(*this, UNIT, 8, "RAW_STOP requested to ");
    return oCommand.Exchange(0x0118);
}

int CQuorvelClientI2C::WriteSequence(const char* pSequence, unsigned short nLen, char* pReadBuffer,
                                     unsigned short nReadLen, unsigned short& nBytesRead,
                                     unsigned short& nErrorIndex)
{
    CCommand oCommand(*this, UNIT, 8, "SEQUENCE requested to ");
    const int nRC = oCommand.Exchange(0x0114, {CQuorvelMsg::ToChar(nReadLen), ToData(pSequence, nLen)});
    const CDataReader oData = oCommand.Data();
    if (oCommand.IsConfirmed() && oData.GetLength() > 2) {
        nBytesRead = oData.CopyLength(3, nReadLen);
        oData.Copy(3, pReadBuffer, nBytesRead);
        nErrorIndex = oData.Word(1);
    }
    return nRC;
}

int CQuorvelClientI2C::WriteSequence(I2CCommand* pCommands, unsigned short nCount,
                                     unsigned short& nErrorIndex)
{
    if (pCommands == nullptr && nCount > 0)
        return RC_INVALID_PARAMETER;
    return Guarded([&] {
        std::string strSequence;
        std::size_t nReadLen = 0;
        for (std::size_t i = 0; i < nCount; ++i) {
            const I2CCommand& oStep = pCommands[i];
            strSequence += CQuorvelMsg::ToChar(oStep.nSlaveAddress) + CQuorvelMsg::ToChar(oStep.nDataLength);
            if ((oStep.nSlaveAddress & 1) != 0)
                nReadLen += oStep.nDataLength;
            else if (oStep.pData != nullptr)
                strSequence.append(oStep.pData, oStep.nDataLength);
            else if (oStep.nDataLength != 0)
                return RC_INVALID_PARAMETER;
            if (strSequence.size() > MAX_SEQUENCE || nReadLen > MAX_SEQUENCE)
                return RC_INVALID_PARAMETER;
        }
        std::string strRead(nReadLen, '\0');
        unsigned short nRemaining = 0;
        const int nRC =
            WriteSequence(strSequence.data(), static_cast<unsigned short>(strSequence.size()), strRead.data(),
                          static_cast<unsigned short>(nReadLen), nRemaining, nErrorIndex);
        for (std::size_t i = 0; i < nCount; ++i) {
            if ((pCommands[i].nSlaveAddress & 1) == 0)
                continue;
            // Always from the beginning, not behind what earlier steps got: existing applications rely on it.
            const unsigned short nLen = std::min(pCommands[i].nDataLength, nRemaining);
            CDataReader(strRead).Copy(0, pCommands[i].pData, nLen);
            nRemaining = static_cast<unsigned short>(nRemaining - nLen);
        }
        return nRC;
    });
}

int CQuorvelClientI2C::ReadDigital(unsigned int& nInputs, unsigned int& nOutputs)
{
    return BaseReadDigital(nInputs, nOutputs);
}

int CQuorvelClientI2C::WriteDigital(unsigned int nOutputs)
{
    return BaseWriteDigital(nOutputs);
}

std::string CQuorvelClientI2C::ToOffset(unsigned int nOffset, unsigned short nAddressing)
{
    const unsigned int n = nAddressing & 0xFFU;
    const unsigned int k = (nAddressing >> 8) & 3U;
    return CQuorvelMsg::ToChar(swablong(nOffset & (Bit(n + k) - 1)));
}

unsigned short CQuorvelClientI2C::GetEEPROMSlaveAddress(unsigned short nChip, unsigned int nOffset,
                                                        unsigned short nAddressing)
{
    const unsigned int n = std::min(nAddressing & 0xFFU, 16U); // offset bits in the offset bytes
    const unsigned int k = (nAddressing >> 8) & 3U;            // offset bits in the address
    const unsigned int nOverflow = nOffset & (Bit(n + k) - Bit(n));
    unsigned int nBits = 0;
    switch (nAddressing & 0x700) {
    case 0x000:
        nBits = (nChip & 7U) << 1 | ShiftedDown(nOverflow, n - 1);
        break;
    case 0x100:
        nBits = (nChip & 3U) << 2 | ShiftedDown(nOverflow, n - 1);
        break;
    case 0x200:
        nBits = (nChip & 1U) << 3 | ShiftedDown(nOverflow, n - 1);
        break;
    case 0x500:
        nBits = (nChip & 3U) << 1 | ShiftedDown(nOverflow, n - 3);
        break;
    case 0x600:
        nBits = (nChip & 1U) << 1 | ShiftedDown(nOverflow, n - 2);
        break;
    default: // 0x300, 0x400, 0x700
        nBits = ShiftedDown(nOverflow, n - 1);
        break;
    }
    return static_cast<unsigned short>(0xA0U | nBits);
}

int CQuorvelClientI2C::WriteEEProm(unsigned short nChip, unsigned int nOffset, unsigned short nAddressing,
                                   const char* pData, unsigned short nLen)
{
    const unsigned short nSlaveAddress = GetEEPROMSlaveAddress(nChip, nOffset, nAddressing);
    CCommand oCommand(*this, UNIT, 8, "WRITE EEPROM requested to ");
    AddMemory(oCommand, nChip, nSlaveAddress);
    return oCommand.Exchange(
        0x0113, {CQuorvelMsg::ToChar(nSlaveAddress), OffsetField(nOffset, nAddressing), ToData(pData, nLen)});
}

int CQuorvelClientI2C::WriteEEPromPollAck(unsigned short nChip, unsigned int nOffset,
                                          unsigned short nAddressing, const char* pData, unsigned short nLen,
                                          unsigned short nPollValue)
{
    const unsigned short nSlaveAddress = GetEEPROMSlaveAddress(nChip, nOffset, nAddressing);
    CCommand oCommand(*this, UNIT, 8, "WRITE EEPROM requested to ");
    AddMemory(oCommand, nChip, nSlaveAddress);
    return oCommand.Exchange(0x0119, {CQuorvelMsg::ToChar(nSlaveAddress), CQuorvelMsg::ToChar(nPollValue),
                                      OffsetField(nOffset, nAddressing), ToData(pData, nLen)});
}

int CQuorvelClientI2C::ReadEEProm(unsigned short nChip, unsigned int nOffset, unsigned short nAddressing,
                                  char* pBuffer, unsigned short nLen, unsigned short& nBytesRead)
{
    const unsigned short nSlaveAddress = GetEEPROMSlaveAddress(nChip, nOffset, nAddressing);
    CCommand oCommand(*this, UNIT, 8, "READ EEPROM requested to ");
    AddMemory(oCommand, nChip, nSlaveAddress);
    const int nRC = oCommand.Exchange(0x0112, {CQuorvelMsg::ToChar(nSlaveAddress),
                                               OffsetField(nOffset, nAddressing), CQuorvelMsg::ToChar(nLen)});
    if (oCommand.IsConfirmed()) {
        const CDataReader oData = oCommand.Data();
        nBytesRead = oData.CopyLength(1, nLen);
        // Two bytes more than asked: the gateway has put them first.
        const bool bTwoMore = oData.GetLength() == nLen + 3U;
        oData.Copy(bTwoMore ? 3 : 1, pBuffer, nBytesRead);
    }
    return nRC;
}
