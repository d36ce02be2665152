#include "QuorvelClientCAN.h"

#include "Command.h"

#include <algorithm>

namespace
{

constexpr const char* UNIT = "source/QuorvelClientCAN";
constexpr unsigned int MAX_ALIVE_SECONDS = 0xFFFFFFFFU / 1000;

// A byte as the signed number that it is in some of the gateway's sums.
unsigned int SignExtended(unsigned char nByte)
{
    return static_cast<unsigned int>(static_cast<signed char>(nByte));
}

// A low byte of 0x80 or more lowers the high one, unlike in all other numbers of 16 bits: existing applications
// rely on it.
unsigned short ZCardID(const CDataReader& oData, std::size_t nOffset)
{
    return static_cast<unsigned short>(oData.Byte(nOffset + 1) * 256U + SignExtended(oData.Byte(nOffset)));
}

void Store(int* pTo, long long nValue)
{
    if (pTo != nullptr)
        *pTo = static_cast<int>(nValue);
}

// The fields that all SDO requests share, and their waiting time: the gateway's for the node, and as much
// again for its answer.
struct SSDORequest {
    int Exchange(CCommand& oCommand, unsigned short nCmdCode, std::string_view strType,
                 std::string_view strData) const
    {
        const unsigned int nWait = 2U * nTimeout;
        oCommand << ", NodeID=" << +nNodeID << ", Index=" << nIndex << ", Subindex=" << +nSubindex
                 << ", Timeout=" << nTimeout;
        return oCommand.Exchange(nCmdCode,
                                 {strType, ToByte(nNodeID), CQuorvelMsg::ToChar(nIndex), ToByte(nSubindex),
                                  CQuorvelMsg::ToChar(nTimeout), strData},
                                 &nWait);
    }

    unsigned char nNodeID;
    unsigned short nIndex;
    unsigned char nSubindex;
    unsigned short nTimeout;
};

void DecodeSDO(const CDataReader& oData, unsigned char& nStatus, unsigned int& nValue)
{
    if (oData.GetLength() <= 1)
        return;
    nStatus = oData.Byte(1);
    // Each byte is extended by its sign before it is added: existing applications rely on it.
    const std::size_t nBytes = std::min<std::size_t>(oData.GetLength() - 2, 4);
    for (std::size_t i = 0; i < nBytes; ++i)
        nValue = (i == 0 ? 0 : nValue) + (SignExtended(oData.Byte(2 + i)) << (8 * i));
}

} // namespace

CQuorvelClientCAN::CQuorvelClientCAN(int nTimeout)
    : CQuorvelClient(eDeviceCAN, static_cast<unsigned int>(nTimeout))
{
    SetOwnClass(typeid(CQuorvelClientCAN));
}

CQuorvelClientCAN::~CQuorvelClientCAN()
{
    StopReception();
}

int CQuorvelClientCAN::Open(bool bConfirmData, bool bMonitor)
{
    const int nRC = CQuorvelClient::Open();
    return nRC != 0 ? nRC : SetConfig(bConfirmData, bMonitor);
}

bool CQuorvelClientCAN::DataIndRespond(CQuorvelMsg* /*pMsg*/)
{
    return false;
}

int CQuorvelClientCAN::StartAlive(unsigned int nSeconds)
{
    m_oConnection.SetAlive(std::min(nSeconds, MAX_ALIVE_SECONDS) * 1000);
    return 0;
}

int CQuorvelClientCAN::SetConfig(bool bConfirmData, bool bMonitor)
{
    CCommand oCommand(*this, UNIT, 4, "SET_CONFIG requested to ");
    oCommand << ", ConfirmData=" << bConfirmData << ", Monitor=" << bMonitor;
    const int nRC = oCommand.Exchange(0x0205, {ToByte(bConfirmData), ToByte(bMonitor)});
    if (nRC == 0)
        m_bConfirmData = bConfirmData;
    return nRC;
}

int CQuorvelClientCAN::GetConfig(bool& bConfirmData, bool& bMonitor)
{
    CCommand oCommand(*this, UNIT, 4, "GET_CONFIG requested to ");
    const int nRC = oCommand.Exchange(0x0206);
    const CDataReader oData = oCommand.Data();
    if (nRC == 0 && oData.GetLength() >= 3) {
        m_bConfirmData = bConfirmData = oData.Byte(1) == 1;
        bMonitor = oData.Byte(2) == 1;
    }
    return nRC;
}

int CQuorvelClientCAN::SetFilter(const SConfigFilter& oFilter)
{
    CCommand oCommand(*this, UNIT, 4, "SET_FILTER requested to ");
    return Guarded([&] {
        return oCommand.Exchange(0x0220, ToData(std::data(oFilter.anValues), std::size(oFilter.anValues)));
    });
}

int CQuorvelClientCAN::GetFilter(SConfigFilter& oFilter)
{
    CCommand oCommand(*this, UNIT, 4, "GET_FILTER requested to ");
    const int nRC = oCommand.Exchange(0x0221);
    const CDataReader oData = oCommand.Data();
    if (nRC == 0 && oData.GetLength() >= 65) {
        for (std::size_t i = 0; i < 16; ++i)
            oFilter.anValues[i] = oData.DWord(1 + 4 * i);
    }
    return nRC;
}

int CQuorvelClientCAN::SetGlobals(unsigned int nBaudrate, unsigned char nOperatingMode, bool bTermination,
                                  bool bHighSpeed, bool bTimestampOn)
{
    CCommand oCommand(*this, UNIT, 4, "SET_GLOBALS requested to ");
    oCommand << ", Operating mode=" << +nOperatingMode << ", Baudrate=" << nBaudrate
             << ", Termination=" << bTermination << ", HighSpeed=" << bHighSpeed
             << ", TimestampOn=" << bTimestampOn;
    return oCommand.Exchange(0x0207, {ToByte(nOperatingMode), CQuorvelMsg::ToChar(nBaudrate),
                                      ToByte(bTermination), ToByte(bHighSpeed), ToByte(bTimestampOn)});
}

int CQuorvelClientCAN::GetGlobals(unsigned int& nBaudrate, unsigned char& nOperatingMode, bool& bTermination,
                                  bool& bHighSpeed, bool& bTimestampOn)
{
    CCommand oCommand(*this, UNIT, 4, "GET_GLOBALS requested to ");
    const int nRC = oCommand.Exchange(0x0208);
    const CDataReader oData = oCommand.Data();
    if (nRC == 0 && oData.GetLength() >= 6) {
        nOperatingMode = oData.Byte(1);
        nBaudrate = oData.DWord(2);
        bTermination = oData.Byte(6) == 1;
        bHighSpeed = oData.Byte(7) == 1;
        bTimestampOn = oData.Byte(8) == 1;
    }
    return nRC;
}

int CQuorvelClientCAN::SetZCardParameter(unsigned char nInterval, unsigned short nFirstID,
                                         unsigned short nLastID)
{
    CCommand oCommand(*this, UNIT, 4, "SET_ZCARD_PI requested to ");
    oCommand << ", ZCardInterval=" << +nInterval << ", ZCardIDStart=" << nFirstID
             << ", ZCardIDEnd=" << nLastID;
    // The last identifier twice: gateways expect it.
    return oCommand.Exchange(0x0251, {ToByte(nInterval), CQuorvelMsg::ToChar(nFirstID),
                                      CQuorvelMsg::ToChar(nLastID), CQuorvelMsg::ToChar(nLastID)});
}

int CQuorvelClientCAN::GetZCardParameter(unsigned char& nInterval, unsigned short& nFirstID,
                                         unsigned short& nLastID)
{
    CCommand oCommand(*this, UNIT, 4, "GET_ZCARD_PI requested to ");
    const int nRC = oCommand.Exchange(0x0252);
    const CDataReader oData = oCommand.Data();
    if (nRC == 0 && oData.GetLength() >= 6) {
        nInterval = oData.Byte(1);
        nFirstID = ZCardID(oData, 2);
        nLastID = ZCardID(oData, 4);
    }
    return nRC;
}

int CQuorvelClientCAN::SetTime(const timeval& oTime)
{
    CCommand oCommand(*this, UNIT, 4, "SET_TIME requested to ");
    oCommand << ", oTime.tv_sec=" << oTime.tv_sec << ", oTime.tv_usec=" << oTime.tv_usec;
    return oCommand.Exchange(0x020B, {CQuorvelMsg::ToChar(static_cast<int>(oTime.tv_sec)),
                                      CQuorvelMsg::ToChar(static_cast<int>(oTime.tv_usec))});
}

int CQuorvelClientCAN::GetTime(bool& bStatus, timeval& oTime)
{
    CCommand oCommand(*this, UNIT, 4, "GET_TIME requested to ");
    const int nRC = oCommand.Exchange(0x020E);
    const CDataReader oData = oCommand.Data();
    if (nRC == 0 && oData.GetLength() >= 10) {
        bStatus = oData.Byte(1) != 0;
        oTime.tv_sec = static_cast<int>(oData.DWord(2));
        oTime.tv_usec = static_cast<int>(oData.DWord(6));
    }
    return nRC;
}

int CQuorvelClientCAN::GetPowerStatus(unsigned char nCapacity1, unsigned char& nCount1,
                                      unsigned char nCapacity2, unsigned char& nCount2,
                                      unsigned char nCapacity3, unsigned char& nCount3, short& nSigned,
                                      unsigned short& nFirst, unsigned short& nSecond, bool& bFlag,
                                      unsigned short* pValues, bool* pFlags2, bool* pFlags3)
{
    CCommand oCommand(*this, UNIT, 4, "GET_POWERSTATUS requested to ");
    const int nRC = oCommand.Exchange(0x0222);
    const CDataReader oData = oCommand.Data();
    if (nRC != 0 || oData.GetLength() < 13)
        return nRC;
    nCount1 = oData.Byte(1);
    nCount2 = oData.Byte(2);
    nCount3 = oData.Byte(3);
    nSigned = static_cast<short>(oData.Word(4));
    nFirst = oData.Word(6);
    nSecond = oData.Word(8);
    bFlag = (oData.Byte(10) & 1) != 0;
    // The parts follow each other as announced, stored or not.
    const std::size_t nPos2 = 11 + std::size_t{2} * nCount1;
    const std::size_t nPos3 = nPos2 + nCount2;
    for (std::size_t i = 0; pValues != nullptr && i < std::min(nCount1, nCapacity1); ++i)
        pValues[i] = oData.Word(11 + 2 * i);
    for (std::size_t i = 0; pFlags2 != nullptr && i < std::min(nCount2, nCapacity2); ++i)
        pFlags2[i] = (oData.Byte(nPos2 + i) & 1) != 0;
    for (std::size_t i = 0; pFlags3 != nullptr && i < std::min(nCount3, nCapacity3); ++i)
        pFlags3[i] = (oData.Byte(nPos3 + i) & 1) != 0;
    return 0;
}

int CQuorvelClientCAN::SetPowerRelais(bool bOn)
{
    CCommand oCommand(*this, UNIT, 4, "SET_POWERRELAIS requested to ");
    oCommand << ", cData=" << bOn;
    return oCommand.Exchange(0x0223, ToByte(bOn));
}

int CQuorvelClientCAN::SetActivePowerSupplies(unsigned int nBitmask)
{
    CCommand oCommand(*this, UNIT, 4, "SET_POWERACTIVESUPPLIES requested to ");
    oCommand << ", nBitmask=" << nBitmask;
    return oCommand.Exchange(0x0224, CQuorvelMsg::ToChar(nBitmask));
}

int CQuorvelClientCAN::Write(int nIdentifier, const char* pData, unsigned char nLen, unsigned char nFlags,
                             int* pSeconds, int* pMicroSeconds)
{
    constexpr unsigned short CODE = 0x0203;
    CCommand oCommand(*this, UNIT, 4, "WRITE requested to ");
    oCommand << ",nIdentifier=0x" << std::hex << nIdentifier;
    const std::string strHeader = CQuorvelMsg::ToChar(nIdentifier) + ToByte(nFlags);
    if (m_bConfirmData) {
        const int nRC = oCommand.Exchange(CODE, {strHeader, ToData(pData, nLen)});
        const CDataReader oData = oCommand.Data();
        if (oData.GetLength() > 8) { // also of a bad confirmation: existing applications rely on it
            Store(pSeconds, static_cast<int>(oData.DWord(1)));
            Store(pMicroSeconds, static_cast<int>(oData.DWord(5)));
        }
        return nRC;
    }
    short nID = 0;
    const int nRC = oCommand.Send(CODE, {strHeader, ToData(pData, nLen)}, nID);
    const CZelTimeDiff oNow = CZelLocalTime::CurrentLocalTime() - CZelLocalTime("01.01.1970");
    Store(pSeconds, oNow.GetTotalMilliSeconds() / 1000);
    Store(pMicroSeconds, oNow.GetTotalMicroSeconds() % 1000000);
    return nRC;
}

int CQuorvelClientCAN::ReadDigital(unsigned int& nInputs, unsigned int& nOutputs)
{
    return BaseReadDigital(nInputs, nOutputs);
}

int CQuorvelClientCAN::WriteDigital(unsigned int nOutputs)
{
    return BaseWriteDigital(nOutputs);
}

int CQuorvelClientCAN::CANopenSetConfig(unsigned char nMode)
{
    CCommand oCommand(*this, UNIT, 4, "CANOPEN_SET_CONFIG requested to ");
    oCommand << ", CANOpenModus=" << +nMode;
    return oCommand.Exchange(0x0260, ToByte(nMode));
}

int CQuorvelClientCAN::CANopenGetConfig(unsigned char& nMode)
{
    CCommand oCommand(*this, UNIT, 4, "CANOPEN_GET_CONFIG requested to ");
    const int nRC = oCommand.Exchange(0x0261);
    if (nRC == 0)
        nMode = oCommand.Data().Byte(1);
    return nRC;
}

int CQuorvelClientCAN::CANopenSetSYNCMode(unsigned short nPeriodTime)
{
    CCommand oCommand(*this, UNIT, 4, "CANOPEN_SYNC_MODE requested to ");
    oCommand << ", PeriodTime=" << nPeriodTime;
    return oCommand.Exchange(0x0262, CQuorvelMsg::ToChar(nPeriodTime));
}

int CQuorvelClientCAN::CANopenSendNMT(unsigned char nNodeID, unsigned char nNMTType)
{
    CCommand oCommand(*this, UNIT, 4, "CANOPEN_NMT requested to ");
    oCommand << ", NodeID=" << +nNodeID << ", NMTTyp=" << +nNMTType;
    return oCommand.Exchange(0x0263, {ToByte(nNodeID), ToByte(nNMTType)});
}

int CQuorvelClientCAN::CANopenSendSYNC()
{
    CCommand oCommand(*this, UNIT, 4, "CANOPEN_SYNC requested to ");
    return oCommand.Exchange(0x0264);
}

int CQuorvelClientCAN::CANopenSendTIME(unsigned short nDay, unsigned int nMs)
{
    CCommand oCommand(*this, UNIT, 4, "CANOPEN_TIME requested to ");
    oCommand << ", Day=" << nDay << ", Ms=" << nMs;
    return oCommand.Exchange(0x0265, {CQuorvelMsg::ToChar(nDay), CQuorvelMsg::ToChar(nMs)});
}

int CQuorvelClientCAN::CANopenSendPDO(unsigned char nNodeID, unsigned char nPDOType, unsigned char nLen,
                                      const char* pData)
{
    CCommand oCommand(*this, UNIT, 4, "CANOPEN_PDO requested to ");
    oCommand << ", NodeID=" << +nNodeID << ", PDOTyp=" << +nPDOType;
    return oCommand.Exchange(0x0267, {ToByte(nNodeID), ToByte(nPDOType), ToData(pData, nLen)});
}

int CQuorvelClientCAN::CANopenSendSDORead(unsigned char nNodeID, unsigned short nIndex,
                                          unsigned char nSubindex, unsigned short nTimeout,
                                          unsigned char& nStatus, unsigned int& nValue)
{
    CCommand oCommand(*this, UNIT, 4, "CANOPEN_SDO_READ requested to ");
    const SSDORequest oRequest{nNodeID, nIndex, nSubindex, nTimeout};
    const int nRC = oRequest.Exchange(oCommand, 0x0268, {}, {});
    if (nRC == 0)
        DecodeSDO(oCommand.Data(), nStatus, nValue);
    return nRC;
}

int CQuorvelClientCAN::CANopenSendSDOWrite(unsigned char nSDOWriteType, unsigned char nNodeID,
                                           unsigned short nIndex, unsigned char nSubindex,
                                           unsigned short nTimeout, unsigned int nValue,
                                           unsigned char& nStatus, unsigned int& nReturnedValue)
{
    CCommand oCommand(*this, UNIT, 4, "CANOPEN_SDO_WRITE requested to ");
    oCommand << ", SDOWriteTyp=" << +nSDOWriteType;
    const SSDORequest oRequest{nNodeID, nIndex, nSubindex, nTimeout};
    const int nRC = oRequest.Exchange(oCommand, 0x0269, ToByte(nSDOWriteType), CQuorvelMsg::ToChar(nValue));
    if (nRC == 0)
        DecodeSDO(oCommand.Data(), nStatus, nReturnedValue);
    return nRC;
}

int CQuorvelClientCAN::CANopenSendSDOReadBlock(unsigned char nNodeID, unsigned short nIndex,
                                               unsigned char nSubindex, unsigned short nTimeout,
                                               unsigned short nBufferSize, unsigned char& nStatus,
                                               unsigned short& nLen, unsigned char* pBuffer)
{
    CCommand oCommand(*this, UNIT, 4, "CANOPEN_SDO_READ_BLOCK requested to ");
    const SSDORequest oRequest{nNodeID, nIndex, nSubindex, nTimeout};
    const int nRC = oRequest.Exchange(oCommand, 0x026A, {}, {});
    const CDataReader oData = oCommand.Data();
    if (nRC == 0 && oData.GetLength() > 1) {
        nStatus = oData.Byte(1);
        nLen = oData.CopyLength(2, nBufferSize);
        // From the status byte on, so that the last byte is missing: existing applications rely on it.
        oData.Copy(1, pBuffer, nLen);
    }
    return nRC;
}

int CQuorvelClientCAN::CANopenSendSDOWriteBlock(unsigned char nNodeID, unsigned short nIndex,
                                                unsigned char nSubindex, unsigned short nTimeout,
                                                unsigned short nLen, const unsigned char* pData,
                                                unsigned char& nStatus, unsigned int& nValue)
{
    CCommand oCommand(*this, UNIT, 4, "CANOPEN_SDO_WRITE_BLOCK requested to ");
    const SSDORequest oRequest{nNodeID, nIndex, nSubindex, nTimeout};
    const int nRC =
        oRequest.Exchange(oCommand, 0x026B, {}, ToData(reinterpret_cast<const char*>(pData), nLen));
    if (nRC == 0)
        DecodeSDO(oCommand.Data(), nStatus, nValue);
    return nRC;
}
