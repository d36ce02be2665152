// The table of open devices: numbering, opening, ownership and closing. Handle numbers count on through the
// whole process, so each test starts from the number it finds.

#include "DeviceManager.h"
#include "ConnectedTest.h"
#include "QuorvelClientAWire.h"
#include "QuorvelClientCANDll.h"
#include "QuorvelClientI2C.h"
#include "QuorvelClientRenesas.h"
#include "QuorvelClientSPI.h"
#include "QuorvelClientTestSystemCOM.h"
#include "QuorvelClientTestSystemIO.h"
#include "QuorvelClientTestSystemPWR.h"
#include "QuorvelClientTestSystemRelay.h"

#include <gtest/gtest.h>

namespace
{

// A number that ends in the hexadecimal digit a. A kind without a client uses numbers up, and no connection.
int UseUpHandles()
{
    int nHandle = 0;
    do
        EXPECT_EQ(0x00910000, CDeviceManager::OpenDevice(&nHandle, "no such host", 100, 5, 0, 1, true));
    while (nHandle % 16 != 10 && nHandle > 0);
    return nHandle;
}

std::string HandleTrace(int nHandle, const char* pEnd)
{
    char acText[80];
    snprintf(acText, sizeof acText, "16 source/DeviceManager: Device handle 0x%x is %s.",
             static_cast<unsigned int>(nHandle), pEnd);
    return acText;
}

// Traces its own end.
struct CMortal : CQuorvelClient {
    CMortal() : CQuorvelClient(eDeviceAD, 100) {}
    ~CMortal() override { CTraceServer::SendTraceMessage(1, 3, 0, 0, "client", "gone", 0); }
};

} // namespace

TEST(DeviceManagerTest, OpeningEntersAConnectedClientUnderTheNextNumber)
{
    const std::string strAddress = OwnAddress();
    const int nFirst = UseUpHandles() + 1;
    CTestPeer aoPeers[] = {CTestPeer(strAddress, 5002), CTestPeer(strAddress, 14902)};
    for (const int i : {0, 1}) {
        int nHandle = -7;
        const auto nPortIndex = static_cast<unsigned char>(99 * i);
        ASSERT_EQ(0, CDeviceManager::OpenDevice(&nHandle, strAddress.c_str(), 300, 3, nPortIndex, 1, true));
        EXPECT_EQ(nFirst + i, nHandle);
        const CDevice* const pDevice = CDeviceManager::GetDevice(nHandle);
        EXPECT_EQ(nHandle, pDevice->m_nHandle);
        EXPECT_EQ(i == 0 ? 5002 : 14902, pDevice->m_nPort);
        EXPECT_EQ(strAddress, pDevice->m_strHost);
        EXPECT_EQ(3, pDevice->m_eDeviceType);
        EXPECT_TRUE(pDevice->m_bOwnsClient);
        EXPECT_NE(nullptr, dynamic_cast<CQuorvelClientSPI*>(pDevice->m_pClient));
        const long long nTaken = Milliseconds([&] { EXPECT_EQ(0x00040000, pDevice->m_pClient->Restart()); });
        EXPECT_GE(nTaken, 300); // the time-out given
        EXPECT_LT(nTaken, 2000);
        EXPECT_EQ("05 00 0c 03 00 00 0f", aoPeers[i].TakeRequest()); // its Open has not been called
    }
    EXPECT_EQ(0, CDeviceManager::CloseDevice(nFirst));
    EXPECT_TRUE(aoPeers[0].WaitForEndOfClient());
    EXPECT_EQ(nullptr, CDeviceManager::GetDevice(nFirst));
    EXPECT_EQ(0x00900000, CDeviceManager::CloseDevice(nFirst));
    CDeviceManager::CloseAllDevices();
    EXPECT_TRUE(aoPeers[1].WaitForEndOfClient());
}

TEST(DeviceManagerTest, EveryKindHasItsClient)
{
    const std::string strAddress = OwnAddress();
    const auto fnOpens = [&]<class TClient>(TClient* /*pKind*/, unsigned char nKind, unsigned short nPort) {
        const CTestPeer oPeer(strAddress, nPort);
        int nHandle = -7;
        ASSERT_EQ(0, CDeviceManager::OpenDevice(&nHandle, strAddress.c_str(), 300, nKind, 0, 1, true));
        const CQuorvelClient* const pClient = CDeviceManager::GetDevice(nHandle)->m_pClient;
        EXPECT_NE(nullptr, dynamic_cast<const TClient*>(pClient));
        EXPECT_EQ(nKind, pClient->GetDeviceType());
        EXPECT_EQ(0, CDeviceManager::CloseDevice(nHandle));
    };
    fnOpens(static_cast<CQuorvelClientI2C*>(nullptr), 1, 5000);
    fnOpens(static_cast<CQuorvelClientCANDll*>(nullptr), 2, 5001);
    fnOpens(static_cast<CQuorvelClientRenesas*>(nullptr), 9, 5008);
    fnOpens(static_cast<CQuorvelClientTestSystemIO*>(nullptr), 11, 5010);
    fnOpens(static_cast<CQuorvelClientTestSystemPWR*>(nullptr), 12, 5011);
    fnOpens(static_cast<CQuorvelClientTestSystemCOM*>(nullptr), 13, 5012);
    fnOpens(static_cast<CQuorvelClientAWire*>(nullptr), 14, 5013);
    fnOpens(static_cast<CQuorvelClientTestSystemRelay*>(nullptr), 17, 5016);
}

TEST(DeviceManagerTest, FailuresInTheirOrder)
{
    const CTexts astrFailed{"2 source/DeviceManager: OpenDevice failed: RC =20000"};
    int nNext = UseUpHandles() + 1;
    CTraceRecorder oTraces;
    const auto fnExpect = [&](unsigned char nKind, unsigned char nPortIndex, const char* pHost, int nRC,
                              int nExpected) {
        int nHandle = -7;
        EXPECT_EQ(nRC, CDeviceManager::OpenDevice(&nHandle, pHost, 5000, nKind, nPortIndex, 1, true));
        EXPECT_EQ(nExpected, nHandle);
        EXPECT_EQ(0x00900000, CDeviceManager::CloseDevice(nHandle));
        EXPECT_EQ(nRC == 0x00020000 ? astrFailed : CTexts{}, oTraces.Take());
    };
    fnExpect(5, 100, "127.0.0.1", 0x00920000, -7); // before the kind is looked at; takes no number
    for (const unsigned char nKind : std::vector<unsigned char>{0, 4, 5, 6, 7, 8, 10, 15, 16, 18, 255})
        fnExpect(nKind, 99, "no such host", 0x00910000, nNext++); // takes a number, and no connection
    fnExpect(3, 0, "no such host", 0x00020000, -1);
    fnExpect(3, 99, "127.29.0.1", 0x00020000, -1);          // refused
    fnExpect(18, 0, "no such host", 0x00910000, nNext + 2); // the failed ones had taken numbers
}

TEST(DeviceManagerTest, ClosingDestroysOwnedClientsInAscendingOrder)
{
    const int nBase = UseUpHandles();
    CMortal oForeign;
    CTraceRecorder oTraces;
    for (const int i : {1, 2, 3, 4}) {
        int nHandle = -7;
        auto* const pDevice = new CDevice;
        pDevice->m_pClient = i == 2 ? &oForeign : new CMortal;
        pDevice->m_bOwnsClient = true;
        CDeviceManager::SetDevice(&nHandle, pDevice);
        EXPECT_EQ(nBase + i, nHandle);
        EXPECT_EQ(nBase + i, pDevice->m_nHandle);
        EXPECT_EQ(pDevice, CDeviceManager::GetDevice(nHandle));
        EXPECT_FALSE(pDevice->m_bOwnsClient); // the caller keeps the client
        EXPECT_EQ(CTexts{HandleTrace(nHandle, "allocted")}, oTraces.Take());
        pDevice->m_bOwnsClient = i != 2;
    }
    const auto fnClosed = [&](int i) { return HandleTrace(nBase + i, "closed"); };
    EXPECT_EQ(0, CDeviceManager::CloseDevice(nBase + 3));
    EXPECT_EQ((CTexts{"1 client: gone", fnClosed(3)}), oTraces.Take());
    struct STable : CDeviceManager {
        using CDeviceManager::m_aoHandleMap;
    };
    STable::m_aoHandleMap[nBase + 5] = nullptr; // by a class of the application
    CDeviceManager::CloseAllDevices();
    EXPECT_EQ(
        (CTexts{"1 client: gone", fnClosed(1), fnClosed(2), "1 client: gone", fnClosed(4), fnClosed(5)}),
        oTraces.Take());
}
