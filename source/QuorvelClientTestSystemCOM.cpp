#include "QuorvelClientTestSystemCOM.h"

#include "CRC32.h"
#include "Command.h"
#include "support/ZelFile.h"

#include <algorithm>
#include <memory>

namespace
{

constexpr const char* UNIT = "source/QuorvelClientTestSystemCOM";
constexpr std::size_t PIECE = 32768;    // bytes of a file in one telegram, and read at a time
constexpr std::size_t CRC_PIECE = 4096; // bytes read at a time for the CRC of a stream
constexpr int RC_FILE_NOT_OPENED = 0x0D20;
constexpr int RESULT_NEXT_PIECE = 0x21; // in the low byte; the rest does not count
constexpr int RC_INVALID_PARAMETER = 0x00920000;
constexpr unsigned long long MAX_FILE_SIZE = 0xFFFFFFFF;

// A file read in pieces.
class CInputFile
{
  public:
    bool Open(const std::string& strPath) { return m_oFile.Open(strPath.c_str(), m_oStatus); }

    unsigned long long GetSize() const { return m_oStatus.m_nSize; }

    // The next piece, at most nMax bytes, fewer where the file ends. Valid until the next call.
    std::string_view Read(std::size_t nMax)
    {
        const long nRead = m_oFile.Read(m_pPiece.get(), std::min(PIECE, nMax));
        m_bBad = m_bBad || nRead < 0;
        return {m_pPiece.get(), static_cast<std::size_t>(std::max(nRead, 0L))};
    }

    // Of the whole file; what is read next is its beginning.
    unsigned int GetCRC32()
    {
        CCRC32 oCRC;
        for (std::string_view strPiece = Read(PIECE); !strPiece.empty(); strPiece = Read(PIECE))
            oCRC.Add(strPiece.data(), strPiece.size());
        m_oFile.Rewind();
        return oCRC.Get();
    }

    bool IsBad() const { return m_bBad; }

  private:
    CZelFile m_oFile;
    CZelFileStatus m_oStatus;
    bool m_bBad = false;
    const std::unique_ptr<char[]> m_pPiece = std::make_unique_for_overwrite<char[]>(PIECE);
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
    SetOwnClass(typeid(CQuorvelClientTestSystemCOM));
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
    return Guarded([&] {
        CInputFile oFile;
        if (!oFile.Open(strPath))
            return RC_FILE_NOT_OPENED;
        if (oFile.GetSize() > MAX_FILE_SIZE)
            return RC_INVALID_PARAMETER; // the telegram has four bytes for it
        auto nRest = static_cast<std::size_t>(oFile.GetSize());
        const unsigned int nAnnounced = nCRC != 0 ? nCRC : oFile.GetCRC32();
        std::string_view strPiece = oFile.Read(nRest);
        if (oFile.IsBad())
            return RC_FILE_NOT_OPENED;

        CCommand oFirst(*this, UNIT, 4, "SEND FILE requested to ");
        oFirst << ",file=" << strPath;
        const std::string_view strName = ToShort(FileName(strPath));
        int nRC = oFirst.Exchange(0x0DD3, {CQuorvelMsg::ToChar(nAnnounced),
                                           CQuorvelMsg::ToChar(static_cast<unsigned int>(nRest)),
                                           ToLength(strName), strName, strPiece});
        while ((nRC & 0xFF) == RESULT_NEXT_PIECE) {
            nRest -= strPiece.size();
            strPiece = oFile.Read(nRest);
            if (strPiece.empty()) // the end, which may have come nearer meanwhile
                break;
            nRC = CCommand(*this, UNIT).Exchange(0x0DD4, strPiece);
        }
        return nRC;
    });
}

int CQuorvelClientTestSystemCOM::InstallConfig(const std::string& strConfig, const std::string& strPath)
{
    return Guarded([&] {
        CInputFile oFile;
        if (!oFile.Open(strPath))
            return RC_FILE_NOT_OPENED;
        const unsigned int nCRC = oFile.GetCRC32();
        if (oFile.IsBad())
            return RC_FILE_NOT_OPENED;
        CCommand oCommand(*this, UNIT, 4, "INSTALL CONFIG requested to ");
        oCommand << ",config=" << strConfig << ",file=" << strPath;
        const std::string_view strShort = ToShort(strConfig);
        const std::string_view strName = ToShort(FileName(strPath));
        return oCommand.Exchange(
            0x0DD5, {CQuorvelMsg::ToChar(nCRC), ToLength(strShort), strShort, ToLength(strName), strName});
    });
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
