// Bytes from the network, for every client. The first byte tells whether there are callbacks, the second how the rest is cut
// into pieces; each piece is received as it is, as an indication and as the confirmation of every command.

#include "../tests/AnsweredClient.h"

#define CLIENT(C) CAnswered<C>
#include "../tests/EveryCommand.h"
#include "FuzzFile.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace
{

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

void Read(CQuorvelClientCANDll& oClient)
{
    char acData[255];
    unsigned char anBytes[2];
    oClient.CANGetMessage(nullptr, acData, anBytes, nullptr, nullptr, nullptr);
    oClient.CANopenGetPDO(nullptr, nullptr, nullptr, acData);
    oClient.CANopenGetSYNC(anBytes);
    oClient.CANopenGetEMCY(nullptr, nullptr, nullptr, reinterpret_cast<unsigned char*>(acData));
    oClient.CANopenGetGUARD(anBytes, anBytes + 1);
    oClient.CANopenGetUndefined(nullptr, nullptr, nullptr, anBytes, acData, nullptr, nullptr);
}

// What the table waits for is never reported here.
void Write(CQuorvelClientAWire& oClient)
{
    auto eProgress = CQuorvelClientAWire::Progress::eFailed;
    unsigned short anCounts[2];
    short nID = 0;
    oClient.WriteBlock(0, 1, "x", nID);
    oClient.GetWriteBlockStatus(nID, eProgress, anCounts[0], anCounts[1]);
}

void Fuzz(const SKind& oKind, bool bCallbacks, std::size_t nPiece, const std::string& strInput)
{
    const std::unique_ptr<CQuorvelClient> pClient = oKind.pNewClient();
    auto* const pCAN = dynamic_cast<CQuorvelClientCANDll*>(pClient.get());
    auto* const pAWire = dynamic_cast<CQuorvelClientAWire*>(pClient.get());
    if (pCAN != nullptr) {
        pCAN->SetMaxSizePerQueue(4);
        if (bCallbacks) {
            pCAN->SetCallbackEx(OnFrame);
            pCAN->CANopenSetCallback(OnPDO, OnSYNC, OnEMCY, OnGUARD, OnUNDEFINED);
        }
    }
    for (std::size_t nPos = 0; nPos <= std::min(strInput.size(), 32 * nPiece); nPos += nPiece) {
        g_strConfirmation = strInput.substr(nPos, nPiece);
        pClient->DataInd(g_strConfirmation.data(), static_cast<unsigned short>(g_strConfirmation.size()));
        for (const unsigned int nCode : {0x0203U, 0x0264U, 0x0266U, 0x0267U, 0x026CU, 0x026DU, 0x0EE1U})
            Receive(*pClient, nCode, 0, g_strConfirmation);
        if (pCAN != nullptr)
            Read(*pCAN);
        if (pAWire != nullptr)
            Write(*pAWire);
        for (const SCommand& oCommand : oKind.aoCommands) {
            SOut oOut;
            try {
                if (pAWire == nullptr || oCommand.strName.find("Write") != 0)
                    oCommand.pRun(*pClient, oOut);
            } catch (const std::out_of_range&) {
                Require(g_strConfirmation.empty() && oKind.nKind == 7); // the one documented case
            }
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pInput, std::size_t nSize)
{
    for (std::size_t i = 0; nSize >= 2 && i < Kinds().size(); ++i)
        Fuzz(Kinds()[i], pInput[0] % 2 == 1, std::size_t{pInput[1]} + 1, {pInput + 2, pInput + nSize});
    return 0;
}
