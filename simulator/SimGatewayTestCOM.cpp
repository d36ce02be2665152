#include "SimGatewayTestCOM.h"

#include "QuorvelErrorMsg.h"

#include <array>
#include <utility>

namespace
{

enum : unsigned char {
    eSetConfig = 0x05,
    eGetConfig = 0x06,
    eIsAvailable = 0xD2,
    eSendFile = 0xD3,
    eNextPiece = 0xD4,
    eInstall = 0xD5
};
enum : unsigned char {
    eNotOpened = 0x20,
    eMorePlease = 0x21,
    eWrongCRC = 0x22,
    eAlreadyActive = 0x23,
    eNotStopped = 0x24,
    eNotStarted = 0x25
};

std::array<unsigned, 256> MakeTable()
{
    std::array<unsigned, 256> anTable{};
    for (unsigned i = 0; i < anTable.size(); i++) {
        anTable[i] = i;
        for (int nBit = 0; nBit < 8; nBit++)
            anTable[i] = anTable[i] >> 1 ^ (anTable[i] % 2 != 0 ? 0xEDB88320U : 0);
    }
    return anTable;
}

unsigned AddToCRC(unsigned nRegister, const std::string& strBytes)
{
    static const auto anTable = MakeTable();
    for (const char c : strBytes)
        nRegister = nRegister >> 8 ^ anTable[(nRegister ^ static_cast<unsigned char>(c)) & 0xFF];
    return nRegister;
}

/// Takes a text with its length in a byte before it from nPos on; false when it is not all there.
bool TakeText(const std::string& strData, std::size_t& nPos, std::string& strText)
{
    if (nPos >= strData.size())
        return false;
    const std::size_t nLen = static_cast<unsigned char>(strData[nPos++]);
    strText = strData.substr(nPos, nLen);
    nPos += nLen;
    return strText.size() == nLen;
}

} // namespace

CSimGatewayTestCOM::CSimGatewayTestCOM() : CSimGateway(eDeviceTestSystemCOM, "COM") {}

CSimGatewayTestCOM::~CSimGatewayTestCOM()
{
    Stop();
}

std::optional<std::string> CSimGatewayTestCOM::GetFile(const std::string& strName) const
{
    const std::lock_guard oLock(m_oMutexDevice);
    const auto it = m_aoFiles.find(strName);
    return it == m_aoFiles.end() ? std::nullopt : std::optional(it->second.strContent);
}

SSimAnswer CSimGatewayTestCOM::Execute(const SSimRequest& oRequest)
{
    switch (oRequest.nCommand) {
    case eSetConfig:
        return SSimAnswer(SetConfig(oRequest.strData));
    case eGetConfig:
        return SSimAnswer(eSimResultOk, m_strActive);
    case eIsAvailable:
        return IsAvailable(oRequest.strData);
    case eSendFile:
        return SSimAnswer(BeginFile(oRequest));
    case eNextPiece:
        return SSimAnswer(ContinueFile(oRequest.nConnection, oRequest.strData));
    case eInstall:
        return SSimAnswer(Install(oRequest.strData));
    default:
        return CSimGateway::Execute(oRequest);
    }
}

void CSimGatewayTestCOM::PowerOn()
{
    CSimGateway::PowerOn();
    m_strActive.clear();
}

void CSimGatewayTestCOM::OnEnd(unsigned nConnection)
{
    m_aoTransfers.erase(nConnection);
}

unsigned char CSimGatewayTestCOM::BeginFile(const SSimRequest& oRequest)
{
    const std::string& strData = oRequest.strData;
    STransfer oTransfer;
    std::size_t nPos = 8;
    if (strData.size() < nPos || !TakeText(strData, nPos, oTransfer.strName))
        return eSimResultFailed;
    oTransfer.oFile.nCRC = SimGet32(strData, 0);
    oTransfer.nSize = SimGet32(strData, 4);
    m_aoTransfers.erase(oRequest.nConnection);
    if (oTransfer.strName.empty() ||
        (m_aoFiles.size() >= nMaxEntries && !m_aoFiles.contains(oTransfer.strName)) ||
        oTransfer.nSize > nCapacity - UsedBytes())
        return eNotOpened;
    m_aoTransfers[oRequest.nConnection] = std::move(oTransfer);
    return ContinueFile(oRequest.nConnection, strData.substr(nPos));
}

unsigned char CSimGatewayTestCOM::ContinueFile(unsigned nConnection, const std::string& strPiece)
{
    const auto it = m_aoTransfers.find(nConnection);
    if (it == m_aoTransfers.end())
        return eNotOpened;
    STransfer& oTransfer = it->second;
    oTransfer.nRegister = AddToCRC(oTransfer.nRegister, strPiece);
    std::string& strContent = oTransfer.oFile.strContent;
    strContent += strPiece;
    if (strContent.size() < oTransfer.nSize)
        return eMorePlease;
    unsigned char nResult = eSimResultOk;
    if (strContent.size() > oTransfer.nSize)
        nResult = eSimResultFailed;
    else if (~oTransfer.nRegister != oTransfer.oFile.nCRC)
        nResult = eWrongCRC;
    else
        m_aoFiles[oTransfer.strName] = std::move(oTransfer.oFile);
    m_aoTransfers.erase(it);
    return nResult;
}

unsigned char CSimGatewayTestCOM::Install(const std::string& strData)
{
    std::string strConfig;
    std::string strFile;
    std::size_t nPos = 4;
    if (strData.size() < nPos || !TakeText(strData, nPos, strConfig) || !TakeText(strData, nPos, strFile) ||
        strConfig.empty())
        return eSimResultFailed;
    const auto it = m_aoFiles.find(strFile);
    if (it == m_aoFiles.end() || (m_aoConfigs.size() >= nMaxEntries && !m_aoConfigs.contains(strConfig)))
        return eNotOpened;
    if (it->second.nCRC != SimGet32(strData, 0))
        return eWrongCRC;
    m_aoConfigs[strConfig] = {it->second.nCRC, it->second.strContent.empty()};
    return eSimResultOk;
}

unsigned char CSimGatewayTestCOM::SetConfig(const std::string& strName)
{
    const auto it = m_aoConfigs.find(strName);
    if (it == m_aoConfigs.end() || it->second.bEmpty)
        return eNotStarted;
    if (strName == m_strActive)
        return eAlreadyActive;
    if (!m_strActive.empty() && (Inputs() & 1) != 0)
        return eNotStopped;
    m_strActive = strName;
    return eSimResultOk;
}

SSimAnswer CSimGatewayTestCOM::IsAvailable(const std::string& strName) const
{
    const auto it = m_aoConfigs.find(strName);
    const bool bThere = it != m_aoConfigs.end();
    SSimAnswer oAnswer(eSimResultOk, std::string(1, bThere ? '\x01' : '\0'));
    SimPut32(oAnswer.strData, bThere ? it->second.nCRC : 0);
    return oAnswer;
}

/// Counts a file under way as if it were complete, so that all that are accepted can be.
std::size_t CSimGatewayTestCOM::UsedBytes() const
{
    std::size_t nUsed = 0;
    for (const auto& [strName, oFile] : m_aoFiles)
        nUsed += oFile.strContent.size();
    for (const auto& [nConnection, oTransfer] : m_aoTransfers)
        nUsed += oTransfer.nSize;
    return nUsed;
}
