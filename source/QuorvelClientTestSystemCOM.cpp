#include "QuorvelClientTestSystemCOM.h"

#include "CRC32.h"
#include "Command.h"
#include "support/ZelFile.h"

#include <algorithm>

namespace
{

constexpr const char* UNIT = "source/QuorvelClientTestSystemCOM";
constexpr std::size_t PIECE = 32768;    // bytes of a file in one telegram
constexpr std::size_t CRC_PIECE = 4096; // bytes read at a time for the CRC
constexpr int RC_FILE_NOT_OPENED = 0x0D20;
constexpr int RC_NEXT_PIECE = 0x0D21;
constexpr int RC_INVALID_PARAMETER = 0x00920000;
constexpr std::streamoff MAX_FILE_SIZE = 0xFFFFFFFF;

// A file read in pieces. The stream's own buffer is too small to be fast for the CRC; with this one it is, and
// whole pieces are still read past it.
class CInputFile
{
  public:
    CInputFile() { m_oStream.rdbuf()->pubsetbuf(m_acBuffer, sizeof m_acBuffer); }

    // Regular files only: a directory can be opened too, and opening a pipe could last forever.
    bool Open(const std::string& strPath)
    {
        CZelFileStatus oStatus;
        if (!CZelFile::GetStatus(strPath.c_str(), oStatus))
            return false;
        m_oStream.open(strPath, std::ios::binary);
        return m_oStream.is_open();
    }

    std::ifstream& GetStream() { return m_oStream; }

    // The next piece, at most nMax bytes, fewer where the file ends. Valid until the next call.
    std::string_view Read(std::size_t nMax)
    {
        m_oStream.read(m_acPiece, static_cast<std::streamsize>(std::min(PIECE, nMax)));
        return {m_acPiece, static_cast<std::size_t>(m_oStream.gcount())};
    }

  private:
    char m_acBuffer[PIECE];
    char m_acPiece[PIECE];
    std::ifstream m_oStream;
};

// A text whose length fits into one byte; a longer one is cut.
std::string_view ToShort(std::string_view strText)
{
    return strText.substr(0, 255);
}

std::string ToLength(std::string_view strShort)
{
    return ToByte(static_cast<unsigned int>(strShort.size()));
}

std::string_view FileName(std::string_view strPath)
{
    return strPath.substr(strPath.find_last_of("\\/") + 1); // npos + 1 is 0
}

} // namespace

CQuorvelClientTestSystemCOM::CQuorvelClientTestSystemCOM(int nTimeout)
    : CQuorvelClient(eDeviceTestSystemCOM, static_cast<unsigned int>(nTimeout))
{
}

CQuorvelClientTestSystemCOM::~CQuorvelClientTestSystemCOM()
{
    StopReception();
}

int CQuorvelClientTestSystemCOM::SetConfig(const std::string& strName)
{
    CCommand oCommand(*this, UNIT, 4, "SET CONFIG requested to ");
    oCommand << ",name=" << strName;
    return oCommand.Exchange(0x0D05, strName);
}

int CQuorvelClientTestSystemCOM::GetConfig(std::string& strName)
{
    CCommand oCommand(*this, UNIT, 4, "GET CONFIG requested to ");
    const int nRC = oCommand.Exchange(0x0D06);
    return Guarded([&] {
        if (nRC == 0)
            strName = oCommand.Data().Rest(1);
        return nRC;
    });
}

int CQuorvelClientTestSystemCOM::IsConfigAvailable(const std::string& strName, bool& bAvailable,
                                                   unsigned int& nValue)
{
    CCommand oCommand(*this, UNIT, 4, "IS CONFIG AVAILABLE requested to ");
    oCommand << ",name=" << strName;
    const int nRC = oCommand.Exchange(0x0DD2, strName);
    const CDataReader oData = oCommand.Data();
    if (nRC == 0 && oData.GetLength() > 1)
        bAvailable = oData.Byte(1) != 0;
    if (nRC == 0 && oData.GetLength() >= 6)
        nValue = oData.DWord(2);
    return nRC;
}

int CQuorvelClientTestSystemCOM::SendFile(const std::string& strPath, unsigned int nCRC)
{
    CInputFile oInput;
    if (!oInput.Open(strPath))
        return RC_FILE_NOT_OPENED;
    std::ifstream& oFile = oInput.GetStream();
    if (nCRC == 0)
        nCRC = GetCRC32(oFile);
    oFile.clear(oFile.rdstate() & std::ios::badbit); // having read to the end is no failure
    oFile.seekg(0, std::ios::end);
    const std::streamoff nSize = oFile.tellg();
    if (nSize > MAX_FILE_SIZE)
        return RC_INVALID_PARAMETER; // the telegram has four bytes for it
    oFile.seekg(0);
    auto nRest = static_cast<std::size_t>(std::max<std::streamoff>(nSize, 0));
    std::string_view strPiece = oInput.Read(nRest);
    if (oFile.bad() || nSize < 0)
        return RC_FILE_NOT_OPENED;

    CCommand oFirst(*this, UNIT, 4, "SEND FILE requested to ");
    oFirst << ",file=" << strPath;
    const std::string_view strName = ToShort(FileName(strPath));
    int nRC = oFirst.Exchange(0x0DD3, {CQuorvelMsg::ToChar(nCRC),
                                       CQuorvelMsg::ToChar(static_cast<unsigned int>(nSize)),
                                       ToLength(strName), strName, strPiece});
    while (nRC == RC_NEXT_PIECE) {
        nRest -= strPiece.size();
        strPiece = oInput.Read(nRest);
        if (strPiece.empty()) // the end, which may have come nearer meanwhile
            break;
        nRC = CCommand(*this, UNIT).Exchange(0x0DD4, strPiece);
    }
    return nRC;
}

int CQuorvelClientTestSystemCOM::InstallConfig(const std::string& strConfig, const std::string& strPath)
{
    CInputFile oInput;
    if (!oInput.Open(strPath))
        return RC_FILE_NOT_OPENED;
    std::ifstream& oFile = oInput.GetStream();
    const unsigned int nCRC = GetCRC32(oFile);
    if (oFile.bad())
        return RC_FILE_NOT_OPENED;
    CCommand oCommand(*this, UNIT, 4, "INSTALL CONFIG requested to ");
    oCommand << ",config=" << strConfig << ",file=" << strPath;
    const std::string_view strShort = ToShort(strConfig);
    const std::string_view strName = ToShort(FileName(strPath));
    return oCommand.Exchange(
        0x0DD5, {CQuorvelMsg::ToChar(nCRC), ToLength(strShort), strShort, ToLength(strName), strName});
}

std::string CQuorvelClientTestSystemCOM::GetFileName(const std::string& strPath)
{
    return std::string(FileName(strPath));
}

unsigned int CQuorvelClientTestSystemCOM::GetCRC32(std::ifstream& oFile)
{
    CCRC32 oCRC;
    char acPiece[CRC_PIECE];
    oFile.clear();
    oFile.seekg(0);
    oFile.clear(); // what cannot be rewound is read from where it stands
    while (oFile.read(acPiece, sizeof acPiece) || oFile.gcount() > 0)
        oCRC.Add(acPiece, static_cast<std::size_t>(oFile.gcount()));
    return oCRC.Get();
}
