#include "QuorvelClientRenesas.h"

#include "Command.h"

#include <algorithm>

namespace
{

constexpr const char* UNIT = "source/QuorvelClientRenesas";
constexpr std::size_t PAGE_SIZE = 256;

} // namespace

CQuorvelClientRenesas::CQuorvelClientRenesas(int nTimeout)
    : CQuorvelClient(eDeviceRenesas, static_cast<unsigned int>(nTimeout))
{
    SetOwnClass(typeid(CQuorvelClientRenesas));
}

CQuorvelClientRenesas::~CQuorvelClientRenesas()
{
    StopReception();
}

int CQuorvelClientRenesas::Init()
{
    CCommand oCommand(*this, UNIT, 4, "RENESAS INIT requested to ");
    return oCommand.Exchange(0x0920);
}

int CQuorvelClientRenesas::Complete()
{
    CCommand oCommand(*this, UNIT, 4, "RENESAS COMPLETE requested to ");
    return oCommand.Exchange(0x0927);
}

int CQuorvelClientRenesas::EraseAll()
{
    CCommand oCommand(*this, UNIT, 4, "RENESAS ERASE ALL requested to ");
    return oCommand.Exchange(0x0924);
}

int CQuorvelClientRenesas::CheckID(const char* pID, unsigned char nIDLen)
{
    std::string strID = "\x3A\x91\x5C\x07\xE2\x48\xB6"; // what a shorter ID is filled up with
    const std::string_view strGiven = ToData(pID, std::min<std::size_t>(nIDLen, strID.size()));
    strID.replace(0, strGiven.size(), strGiven);
    CCommand oCommand(*this, UNIT, 4, "RENESAS CheckID requested to ");
    oCommand << "ID=0x" << strID; // raw characters behind "0x": log readers rely on it
    return oCommand.Exchange(0x0921, strID);
}

int CQuorvelClientRenesas::SetBaudrate(unsigned char nBaudIndex)
{
    CCommand oCommand(*this, UNIT, 4, "RENESAS SetBaudrate requested to ");
    oCommand << "Baudrate Index=0x" << nBaudIndex; // a raw character as well
    return oCommand.Exchange(0x0922, ToByte(nBaudIndex));
}

int CQuorvelClientRenesas::BlockErase(unsigned short nBlock)
{
    CCommand oCommand(*this, UNIT, 4, "RENESAS BLOCK ERASE requested to ");
    return oCommand.Exchange(0x0929, CQuorvelMsg::ToChar(nBlock));
}

int CQuorvelClientRenesas::WritePage(unsigned short nPage, const char* pData, unsigned short nLen)
{
    // Always a whole page, filled up with zeros; what is too much is dropped without a word: existing
    // applications rely on it.
    const std::string_view strGiven = ToData(pData, std::min<std::size_t>(nLen, PAGE_SIZE));
    CCommand oCommand(*this, UNIT, 8, "RENESASA WRITE requested to "); // so written, log readers rely on it
    return oCommand.Exchange(0x0925,
                             {CQuorvelMsg::ToChar(nPage), strGiven, Zeros(PAGE_SIZE - strGiven.size())});
}

int CQuorvelClientRenesas::ReadPage(unsigned short nPage, char* pBuffer, unsigned short nBufferLen,
                                    unsigned short& nReadLen)
{
    CCommand oCommand(*this, UNIT, 8, "RENESAS READ requested to ");
    oCommand << ",page address=0x" << std::hex << nPage;
    const int nRC = oCommand.Exchange(0x0923, CQuorvelMsg::ToChar(nPage));
    if (oCommand.IsConfirmed()) {
        nReadLen = oCommand.Data().CopyLength(1, nBufferLen);
        oCommand.Data().Copy(1, pBuffer, nReadLen);
    }
    return nRC;
}

int CQuorvelClientRenesas::GetVersion(char* pBuffer, unsigned char nBufferLen)
{
    CCommand oCommand(*this, UNIT, 8, "RENESAS GET VERSION requested to ");
    const int nRC = oCommand.Exchange(0x0926);
    if (oCommand.IsConfirmed())
        oCommand.Data().Copy(1, pBuffer, oCommand.Data().CopyLength(1, nBufferLen));
    return nRC;
}

int CQuorvelClientRenesas::VerifyCheck(unsigned short nStart, unsigned short nEnd, unsigned short& nChecksum)
{
    CCommand oCommand(*this, UNIT, 8, "RENESAS VERIFY CHECK requested to ");
    oCommand << std::hex << ",start address=0x" << nStart << ",end address=0x" << nEnd;
    const int nRC = oCommand.Exchange(0x0928, {CQuorvelMsg::ToChar(nStart), CQuorvelMsg::ToChar(nEnd)});
    if (oCommand.IsConfirmed() && oCommand.Data().GetLength() > 2)
        nChecksum = oCommand.Data().Word(1);
    return nRC;
}

int CQuorvelClientRenesas::ReadDigital(unsigned int& nInputs, unsigned int& nOutputs)
{
    return BaseReadDigital(nInputs, nOutputs);
}

int CQuorvelClientRenesas::WriteDigital(unsigned int nOutputs)
{
    return BaseWriteDigital(nOutputs);
}
