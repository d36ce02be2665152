// Bytes from the network, for every client. The first byte tells whether there are callbacks, the second how the rest is cut
// into pieces; each piece is received as it is, as an indication and as the confirmation of every command that reads.

#include "FuzzFile.h"
#include "QuorvelClientAD.h"
#include "QuorvelClientAWire.h"
#include "QuorvelClientCANDll.h"
#include "QuorvelClientFirmware.h"
#include "QuorvelClientI2C.h"
#include "QuorvelClientRenesas.h"
#include "QuorvelClientSPI.h"
#include "QuorvelClientTestSystemCOM.h"
#include "QuorvelClientTestSystemIO.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace
{

// A client whose requests are answered at once, with the bytes that it is given, without a connection.
template<class TClient>
class CFuzzed : public TClient
{
  public:
    using TClient::SendMsg;
    using TClient::TClient;
    ~CFuzzed() override { this->StopReception(); }

    int SendMsg(const CQuorvelMsg& oReq) override
    {
        Receive(static_cast<unsigned short>(oReq.GetCmdCode() | 0x8000), oReq.GetMsgID());
        return 0;
    }

    void Receive(unsigned short nCmdCode, short nID)
    {
        const std::string strBytes =
            CQuorvelMsg(nCmdCode, nID, m_strAnswer.data(), static_cast<unsigned short>(m_strAnswer.size()))
                .GetMessageData();
        this->DataInd(strBytes.data(), static_cast<unsigned short>(strBytes.size()));
    }

    std::string m_strAnswer;
};

char g_acBuffer[65536];
unsigned int g_anNumbers[4];
unsigned short g_anShorts[4];
unsigned char g_anBytes[4];
bool g_abFlags[4];

// Callbacks look at all that they are given.
void Touch(const char* pData, int nLen)
{
    Require(std::count(pData, pData + nLen, 'x') <= nLen);
}

void OnFrame(unsigned int, const char* pData, int nLen, int, int, int, int)
{
    Touch(pData, nLen);
}
void OnPDO(unsigned char, unsigned char, unsigned char nLen, const char* pData, int, int, int)
{
    Touch(pData, nLen);
}
void OnSYNC(unsigned char, int, int, int) {}
void OnEMCY(unsigned char, unsigned short, unsigned char, const unsigned char* pData, int, int, int)
{
    Touch(reinterpret_cast<const char*>(pData), 5);
}
void OnGUARD(unsigned char, unsigned char, int, int, int) {}
void OnUNDEFINED(int, unsigned char, unsigned char, unsigned char nLen, const char* pData, int, int, int)
{
    Touch(pData, nLen);
}

void Run(CFuzzed<CQuorvelClientCANDll>& oClient)
{
    for (const int nCode : {0x0203, 0x0264, 0x0266, 0x0267, 0x026C, 0x026D})
        oClient.Receive(static_cast<unsigned short>(nCode), 0);
    oClient.CANGetMessage(nullptr, g_acBuffer, g_anBytes, nullptr, nullptr, nullptr);
    oClient.CANopenGetPDO(nullptr, nullptr, nullptr, g_acBuffer);
    oClient.CANopenGetSYNC(g_anBytes);
    oClient.CANopenGetEMCY(nullptr, nullptr, nullptr, reinterpret_cast<unsigned char*>(g_acBuffer));
    oClient.CANopenGetGUARD(g_anBytes, g_anBytes + 1);
    oClient.CANopenGetUndefined(nullptr, nullptr, nullptr, g_anBytes, g_acBuffer, nullptr, nullptr);
    timeval oTime{};
    CQuorvelClientCAN::SConfigFilter oFilter{};
    short nSigned = 0;
    oClient.GetConfig(g_abFlags[0], g_abFlags[1]);
    oClient.Write(1, "x", 1, 0, nullptr, nullptr);
    oClient.GetFilter(oFilter);
    oClient.GetGlobals(g_anNumbers[0], g_anBytes[0], g_abFlags[0], g_abFlags[1], g_abFlags[2]);
    oClient.GetZCardParameter(g_anBytes[0], g_anShorts[0], g_anShorts[1]);
    oClient.CANopenGetConfig(g_anBytes[0]);
    static_cast<CQuorvelClientCAN&>(oClient).GetTime(g_abFlags[0], oTime);
    oClient.GetPowerStatus(3, g_anBytes[0], 3, g_anBytes[1], 3, g_anBytes[2], nSigned, g_anShorts[0],
                           g_anShorts[1], g_abFlags[0], g_anShorts, g_abFlags, g_abFlags);
    oClient.CANopenSendSDORead(1, 2, 3, 4, g_anBytes[0], g_anNumbers[0]);
    oClient.CANopenSendSDOReadBlock(1, 2, 3, 4, 16, g_anBytes[0], g_anShorts[0],
                                    reinterpret_cast<unsigned char*>(g_acBuffer));
}

void Run(CFuzzed<CQuorvelClientSPI>& oClient)
{
    std::string strStatus;
    SQuorvelDeviceInfo oInfo{};
    unsigned short nCount = 2;
    short nID = 0;
    oClient.DataReq("x", 1, g_acBuffer, 300);
    oClient.SequenceReq("x", 1, g_acBuffer, 300);
    oClient.SequenceReq("x", 1, &nID);
    oClient.SequenceGetCnf(nID, g_acBuffer, 300);
    oClient.GetGlobals(g_anNumbers[0], g_anBytes[0], g_anBytes[1], g_anBytes[2]);
    oClient.Info(&oInfo);
    oClient.Status(strStatus);
    oClient.ReadDigital(g_anNumbers[0], g_anNumbers[1]);
    oClient.ReadAnalog(g_anNumbers[0], g_anNumbers + 1, nCount);
}

void Run(CFuzzed<CQuorvelClientI2C>& oClient)
{
    CQuorvelClientI2C::I2CCommand aoSteps[] = {
        {0xA1, 8, g_acBuffer}, {0xA0, 1, g_acBuffer}, {0xA1, 4, g_acBuffer}};
    oClient.Read(0xA0, g_acBuffer, 20, g_anShorts[0]);
    oClient.GetBaudrate(g_anNumbers[0]);
    oClient.Write(0xA0, "x", 1, g_anShorts[0]);
    oClient.RAWGet(0, g_anBytes[0]);
    oClient.WriteSequence(aoSteps, 3, g_anShorts[0]);
    oClient.ReadEEProm(1, 2, static_cast<unsigned short>(oClient.m_strAnswer.size() * 257), g_acBuffer, 20,
                       g_anShorts[0]);
}

void Run(CFuzzed<CQuorvelClientAWire>& oClient)
{
    std::string strName;
    auto eProgress = CQuorvelClientAWire::Progress::eFailed;
    short nID = 0;
    oClient.Receive(0x0EE1, 0);
    oClient.GetConfig(g_anNumbers[0], g_anNumbers[1], g_anNumbers[2], g_anNumbers[3], strName);
    oClient.WriteBlock(0, 1, "x", nID);
    oClient.GetWriteBlockStatus(nID, eProgress, g_anShorts[0], g_anShorts[1]);
    oClient.Read(0, 20, g_acBuffer, g_anShorts[0]);
    oClient.Verify(0, 20, g_acBuffer);
}

void Run(CFuzzed<CQuorvelClientFirmware>& oClient)
{
    CQuorvelClientFirmware::SQuorvelDeviceInfoEx oInfo{};
    int nSize = 0;
    oClient.GetEEPromInfo(nSize);
    oClient.ReadEEProm(0, g_acBuffer, 20, g_anShorts[0]);
    oClient.ReadFlash(0, g_acBuffer, g_anNumbers[0]);
    oClient.GetInfo(oInfo);
}

void Run(CFuzzed<CQuorvelClientRenesas>& oClient)
{
    oClient.ReadPage(0, g_acBuffer, 20, g_anShorts[0]);
    oClient.GetVersion(g_acBuffer, 20);
    oClient.VerifyCheck(0, 1, g_anShorts[0]);
}

void Run(CFuzzed<CQuorvelClientTestSystemCOM>& oClient)
{
    std::string strName;
    oClient.GetConfig(strName);
    oClient.IsConfigAvailable("x", g_abFlags[0], g_anNumbers[0]);
}

void Run(CFuzzed<CQuorvelClientTestSystemIO>& oClient)
{
    oClient.GetValue(g_anShorts, 4);
}

void Run(CFuzzed<CQuorvelClientAD>& oClient)
{
    std::vector<unsigned int> aoValues;
    try {
        oClient.Read(aoValues);
    } catch (const std::out_of_range&) {
        Require(oClient.m_strAnswer.empty()); // the one documented case
    }
}

template<class TClient, class... TArguments>
void Fuzz(const std::uint8_t* pInput, std::size_t nSize, TArguments... arguments)
{
    CFuzzed<TClient> oClient(arguments...);
    if constexpr (std::is_same_v<TClient, CQuorvelClientCANDll>) {
        oClient.SetMaxSizePerQueue(4);
        if (pInput[0] % 2 == 1) {
            oClient.SetCallbackEx(OnFrame);
            oClient.CANopenSetCallback(OnPDO, OnSYNC, OnEMCY, OnGUARD, OnUNDEFINED);
        }
    }
    const std::size_t nPiece = std::size_t{pInput[1]} + 1;
    for (std::size_t nPos = 2; nPos <= nSize; nPos += nPiece) {
        oClient.m_strAnswer.assign(reinterpret_cast<const char*>(pInput) + nPos,
                                   std::min(nPiece, nSize - nPos));
        oClient.DataInd(oClient.m_strAnswer.data(), static_cast<unsigned short>(oClient.m_strAnswer.size()));
        Run(oClient);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pInput, std::size_t nSize)
{
    if (nSize < 2 || nSize > 65000)
        return 0;
    // A time-out of 0x80000000: only what is already there counts.
    constexpr int NO_WAIT = static_cast<int>(0x80000000U);
    Fuzz<CQuorvelClientSPI>(pInput, nSize, NO_WAIT);
    Fuzz<CQuorvelClientAD>(pInput, nSize, NO_WAIT);
    Fuzz<CQuorvelClientI2C>(pInput, nSize, NO_WAIT);
    Fuzz<CQuorvelClientCANDll>(pInput, nSize, 1, NO_WAIT);
    Fuzz<CQuorvelClientAWire>(pInput, nSize, NO_WAIT);
    Fuzz<CQuorvelClientRenesas>(pInput, nSize, NO_WAIT);
    Fuzz<CQuorvelClientFirmware>(pInput, nSize, NO_WAIT);
    Fuzz<CQuorvelClientTestSystemCOM>(pInput, nSize, NO_WAIT);
    Fuzz<CQuorvelClientTestSystemIO>(pInput, nSize, NO_WAIT);
    return 0;
}
