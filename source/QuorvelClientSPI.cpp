#include "QuorvelClientSPI.h"

#include "Command.h"
#include "SPICommands.h"

#include <algorithm>
#include <utility>

namespace
{

constexpr const char* UNIT = "source/QuorvelClientSPI";
constexpr unsigned short CODE_SEQUENCE = 0x0314;
constexpr const char* TEXT_SEQUENCE = "SEQUENCE REQ requested to ";

} // namespace

int NSPICommands::SetGlobals(CQuorvelClient& oClient, unsigned int nBaudrate, unsigned char nSigLevel,
                             unsigned char nAuxVoltage, unsigned char nClockMode)
{
    CCommand oCommand(oClient, UNIT, 4, "SET_GLOBALS requested to ");
    // The bytes go into the text as raw characters, the baud rate in decimal: log readers rely on it.
    oCommand << ", SignalLevel=" << nSigLevel << ", AuXVoltage=" << nAuxVoltage
             << ", ClockMode=" << nClockMode << ", Baudrate=" << nBaudrate;
    return oCommand.Exchange(
        0x0307, {CQuorvelMsg::ToChar(nBaudrate), ToByte(nSigLevel), ToByte(nAuxVoltage), ToByte(nClockMode)});
}

int NSPICommands::GetGlobals(CQuorvelClient& oClient, unsigned int& nBaudrate, unsigned char& nSigLevel,
                             unsigned char& nAuxVoltage, unsigned char& nClockMode)
{
    CCommand oCommand(oClient, UNIT, 4, "GET_GLOBALS requested to ");
    const int nRC = oCommand.Exchange(0x0308);
    const CDataReader oData = oCommand.Data();
    if (nRC == 0 && oData.GetLength() > 7) {
        nBaudrate = oData.DWord(1);
        nSigLevel = oData.Byte(5);
        nAuxVoltage = oData.Byte(6);
        nClockMode = oData.Byte(7);
    }
    return nRC;
}

int NSPICommands::DataReq(CQuorvelClient& oClient, const char* pBufWrite, unsigned short nBufWriteLen,
                          char* pBufRead, unsigned short nBufReadLen)
{
    CCommand oCommand(oClient, UNIT, 8, "DATA REQ requested to ");
    const std::string_view strWrite = ToData(pBufWrite, nBufWriteLen);
    // As many bytes are clocked as are to be read.
    const std::size_t nZeros = nBufReadLen > strWrite.size() ? nBufReadLen - strWrite.size() : 0;
    const int nRC = oCommand.Exchange(0x0303, {strWrite, Zeros(nZeros)});
    if (oCommand.IsConfirmed())
        oCommand.Data().Copy(1, pBufRead, oCommand.Data().CopyLength(1, nBufReadLen));
    return nRC;
}

int NSPICommands::SequenceReq(CQuorvelClient& oClient, const char* pSequence, unsigned short nLen,
                              short* pnID)
{
    CCommand oCommand(oClient, UNIT, 8, TEXT_SEQUENCE);
    short nID = 0;
    const int nRC = oCommand.Send(CODE_SEQUENCE, {ToData(pSequence, nLen)}, nID);
    if (pnID != nullptr)
        *pnID = nID;
    return nRC;
}

int NSPICommands::SequenceGetCnf(CQuorvelClient& oClient, short nID, char* pBufRead,
                                 unsigned short nBufReadLen)
{
    CCommand oCommand(oClient, UNIT);
    const int nRC = oCommand.Collect(CODE_SEQUENCE, nID);
    if (oCommand.IsConfirmed())
        oCommand.Data().Copy(1, pBufRead, oCommand.Data().CopyLength(1, nBufReadLen));
    return nRC;
}

CQuorvelClientSPI::CQuorvelClientSPI(int nTimeout)
    : CQuorvelClient(eDeviceSPI, static_cast<unsigned int>(nTimeout))
{
    SetOwnClass(typeid(CQuorvelClientSPI));
}

CQuorvelClientSPI::~CQuorvelClientSPI()
{
    StopReception();
}

int CQuorvelClientSPI::Open()
{
    return CQuorvelClient::Open();
}

int CQuorvelClientSPI::SetGlobals(unsigned int nBaudrate, unsigned char nSigLevel, unsigned char nAuxVoltage,
                                  unsigned char nClockMode)
{
    return NSPICommands::SetGlobals(*this, nBaudrate, nSigLevel, nAuxVoltage, nClockMode);
}

int CQuorvelClientSPI::GetGlobals(unsigned int& nBaudrate, unsigned char& nSigLevel,
                                  unsigned char& nAuxVoltage, unsigned char& nClockMode)
{
    return NSPICommands::GetGlobals(*this, nBaudrate, nSigLevel, nAuxVoltage, nClockMode);
}

int CQuorvelClientSPI::DataReq(const char* pBufWrite, unsigned short nBufWriteLen, char* pBufRead,
                               unsigned short nBufReadLen)
{
    return NSPICommands::DataReq(*this, pBufWrite, nBufWriteLen, pBufRead, nBufReadLen);
}

int CQuorvelClientSPI::SequenceReq(const char* pSequence, unsigned short nLen, char* pBufRead,
                                   unsigned short nBufReadLen)
{
    CCommand oCommand(*this, UNIT, 8, TEXT_SEQUENCE);
    const int nRC = oCommand.Exchange(CODE_SEQUENCE, ToData(pSequence, nLen));
    // From byte 0 on, the result byte included, unlike every other command: existing applications rely on it.
    if (oCommand.IsConfirmed())
        oCommand.Data().Copy(0, pBufRead, oCommand.Data().CopyLength(0, nBufReadLen));
    return nRC;
}

int CQuorvelClientSPI::SequenceReq(const char* pSequence, unsigned short nLen, short* pnID)
{
    return NSPICommands::SequenceReq(*this, pSequence, nLen, pnID);
}

int CQuorvelClientSPI::SequenceGetCnf(short nID, char* pBufRead, unsigned short nBufReadLen)
{
    return NSPICommands::SequenceGetCnf(*this, nID, pBufRead, nBufReadLen);
}

int CQuorvelClientSPI::ReadDigital(unsigned int& nInputs, unsigned int& nOutputs)
{
    return BaseReadDigital(nInputs, nOutputs);
}

int CQuorvelClientSPI::WriteDigital(unsigned int nOutputs)
{
    return BaseWriteDigital(nOutputs);
}

std::string CQuorvelClientSPI::ToOffset(unsigned int nOffset, EOffsetFormat eFormat)
{
    std::string strOffset;
    if (eFormat >= eOffset1Byte && eFormat <= eOffset4Byte) {
        for (unsigned int i = eFormat; i-- > 0;)
            strOffset += ToByte(nOffset >> (8 * i));
    }
    return strOffset;
}

unsigned int CQuorvelClientSPI::GetEEPROMSlaveAddress(unsigned short nChipAddress, unsigned int nOffset,
                                                      unsigned int nFormat)
{
    const unsigned int n = std::min(nFormat & 0xFFU, 16U); // offset bits in the offset bytes
    const unsigned int k = (nFormat >> 8) & 3U;            // offset bits in the address
    // The chip-select pins take the bits that the offset does not use.
    const unsigned int nPins = ((nChipAddress & (7U >> k)) << (k + 1)) & 0x0EU;
    const unsigned int nMask = (1U << (n + k)) - (1U << n);
    return 0xA0U | nPins | (((nOffset & nMask) >> ((n - 1) & 31U)) & 0xFFU);
}
