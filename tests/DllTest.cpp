// The C interface: opening and closing, the requests by handle, and the texts in callers' buffers.

#include "ConnectedTest.h"
#include "DeviceManager.h"
#include "QuorvelClientAD.h"
#include "QuorvelDLL.h"
#include "QuorvelDllSPI.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace
{

using CResults = std::vector<int>;

class DllTest : public testing::Test
{
  protected:
    void SetUp() override { ASSERT_EQ(0, SPIOpenDevice(&m_nHandle, m_strAddress.c_str(), 5000)); }
    ~DllTest() override { SPICloseDevice(m_nHandle); }

    // Calls the seven requests.
    CResults CallAll(int nHandle)
    {
        short nID = 0;
        return {SPIDataReq(nHandle, "\1", 1, m_acData, 3),
                SPISequenceReq(nHandle, "\5\6", 2, &nID),
                SPISequenceGetCnf(nHandle, nID, m_acData + 3, 3),
                SPIReadDigital(nHandle, &m_anOutputs[0], &m_anOutputs[1]),
                SPIWriteDigital(nHandle, 0x0A0B0C0D),
                SPISetGlobals(nHandle, 1000000, 0x41, 0x42, 0x43),
                SPIGetGlobals(nHandle, &m_anOutputs[2], &m_anGlobals[0], &m_anGlobals[1], &m_anGlobals[2])};
    }

    // Writes a text into a buffer; the result and the bytes up to the last one written, as text.
    template<class FCall>
    static std::string Text(FCall fnCall)
    {
        std::string strBuffer(60, '~');
        const int nResult = fnCall(strBuffer.data());
        strBuffer.resize(strBuffer.find_last_not_of('~') + 1);
        std::replace(strBuffer.begin(), strBuffer.end(), '\0', '$');
        return std::to_string(nResult) + ' ' + strBuffer;
    }

    // What DeviceInfo returns and leaves in the record.
    static std::string Info(int nHandle)
    {
        SQuorvelDeviceInfo oInfo;
        std::memset(&oInfo, 0xEE, sizeof oInfo);
        const int nRC = DeviceInfo(nHandle, &oInfo);
        return std::to_string(nRC) + ": " + ToHex({reinterpret_cast<char*>(&oInfo), sizeof oInfo});
    }

    std::string m_strAddress = OwnAddress();
    CTestPeer m_oPeer{m_strAddress, 5002};
    int m_nHandle = -7;
    char m_acData[6] = {9, 9, 9, 9, 9, 9};
    std::vector<unsigned char> m_anGlobals{9, 9, 9};
    CNumbers m_anOutputs{9, 9, 9};
};

} // namespace

TEST_F(DllTest, OpeningAndClosing)
{
    const int nFirst = m_nHandle;
    for (const char* pHost : {"no such host", "127.29.0.1"}) { // the second one refuses
        EXPECT_EQ(0x00020000, SPIOpenDevice(&m_nHandle, pHost, 5000));
        EXPECT_EQ(-1, m_nHandle);
    }
    EXPECT_EQ(0, SPICloseDevice(nFirst));
    EXPECT_TRUE(m_oPeer.WaitForEndOfClient());
    for (const int nGone : {nFirst, 0x7FFFFFFF, -1}) {
        EXPECT_EQ(CResults(7, 0x00900000), CallAll(nGone));
        EXPECT_EQ(0x00900000, SPICloseDevice(nGone));
        EXPECT_EQ("9437184: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", Info(nGone));
        EXPECT_EQ("1 ", Text([&](char* p) { return DeviceStatus(nGone, p, 50); }));
    }
    EXPECT_EQ(CNumbers(3, 9), m_anOutputs);
    EXPECT_EQ(std::vector<unsigned char>(3, 9), m_anGlobals);
    EXPECT_EQ(0x00920000, DeviceInfo(nFirst, nullptr));
    EXPECT_EQ(0, SPIOpenDevice(&m_nHandle, m_strAddress.c_str(), 5000));
    EXPECT_EQ(nFirst + 3, m_nHandle); // the two that failed had taken numbers
}

TEST_F(DllTest, OutputsComeFromTheGateway)
{
    for (const char* pConfirmation : {"00 11 22 33 44", "00 55", "00 01 00 00 80 02 00 00 00", "00", "00",
                                      "00 40 42 0f 00 01 02 03", "00 40 42 0f 00 01 02 03", "21", "00 01 02"})
        m_oPeer.Confirm(pConfirmation);
    EXPECT_EQ(CResults(7, 0), CallAll(m_nHandle));
    EXPECT_EQ("11 22 33 55 09 09", ToHex({m_acData, 6}));
    EXPECT_EQ((CNumbers{0x80000001, 2, 1000000}), m_anOutputs);
    EXPECT_EQ((std::vector<unsigned char>{1, 2, 3}), m_anGlobals);
    EXPECT_EQ(0, SPIGetGlobals(m_nHandle, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(0x0321, SPIGetGlobals(m_nHandle, nullptr, nullptr, &m_anGlobals[1], nullptr));
    EXPECT_EQ(0, m_anGlobals[1]); // zero after a failure
    EXPECT_EQ("0: 01 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 03 00", Info(m_nHandle));
}

TEST_F(DllTest, AnyEntryIsUsedAsItIs)
{
    struct CClosing : CQuorvelClientAD {
        CClosing() : CQuorvelClientAD(5000) {}
        int Close() override
        {
            if (m_nCloses++ == 0) { // somebody else closes the same handle meanwhile
                EXPECT_EQ(0x00900000, SPICloseDevice(m_nHandle));
            }
            CQuorvelClientAD::Close();
            throw std::runtime_error("x");
        }
        int m_nHandle = -7;
        int m_nCloses = 0;
    } oClient;
    int& nHandle = oClient.m_nHandle;
    CTestPeer oPeer;
    ASSERT_EQ(0, oClient.Connect("127.0.0.1", oPeer.GetPort(), 1, true));
    auto* const pDevice = new CDevice;
    CDeviceManager::SetDevice(&nHandle, pDevice);
    EXPECT_EQ(CResults(7, 0), CallAll(nHandle)); // without a client nothing is done
    EXPECT_EQ("0: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", Info(nHandle));
    EXPECT_EQ("1 ", Text([&](char* p) { return DeviceStatus(nHandle, p, 50); }));
    EXPECT_EQ(CNumbers(3, 9), m_anOutputs);

    pDevice->m_pClient = &oClient; // of another kind
    for (int i = 0; i < 6; ++i)
        oPeer.Confirm("21");
    EXPECT_EQ((CResults{0x0721, 0, 0x0721, 0x0721, 0x0721, 0x0721, 0x0721}), CallAll(nHandle));
    for (const char* pRequest : {"08 00 03 03 00 00 01 00 00 01", "07 00 14 03 01 00 05 06 15",
                                 "05 00 40 07 02 00 45", "09 00 41 07 03 00 0d 0c 0b 0a 45",
                                 "0c 00 07 03 04 00 40 42 0f 00 41 42 43 4d", "05 00 08 03 05 00 0e"})
        EXPECT_EQ(pRequest, oPeer.TakeRequest());
    EXPECT_EQ(0xFF, SPICloseDevice(nHandle)); // thrown by Close, and closed all the same
    EXPECT_EQ(0x00900000, SPICloseDevice(nHandle));
    EXPECT_EQ(1, oClient.m_nCloses);
    EXPECT_EQ(0, oClient.GetConnectState()); // closed, but alive
}

TEST_F(DllTest, TextsThatAreCutLoseTheirFirstCharacterToo)
{
    const std::pair<int, const char*> aoCases[] = {{50, "9 no error$"}, {9, "9 no error$"}, {8, "8 o error$"},
                                                   {1, "1 $"},          {0, "0 "},          {-5, "0 "}};
    for (const auto& oCase : aoCases)
        EXPECT_EQ(oCase.second, Text([&](char* p) { return SPIErrorMessage(0, p, oCase.first); }));
    EXPECT_EQ(0, SPIErrorMessage(0, nullptr, 50));
    EXPECT_EQ("26 Quorvel SPI DLL V1.3-2.13$", Text([](char* p) { return DLLInfo(p, 26); }));
    const char* const pVersion = std::exchange(gsDLLVersionString, "other");
    EXPECT_EQ("6 other$", Text([](char* p) { return DLLInfo(p, 50); }));
    gsDLLVersionString = pVersion;
}

TEST_F(DllTest, DeviceStatusCutsInItsOwnWay)
{
    const std::tuple<const char*, unsigned int, const char*> aoCases[] = {
        {"00 41 42 43 44", 5, "5 ABCD$"}, {"00 41 42 43 44", 3, "3 BC$"}, {"00", 0, "1 $"},
        {"00 41 42 43 44", 4, "5 ABCD$"}, // not cut: the terminator comes behind the size
        {"00 41 42 43 44", 0, "4 BCD$"},  // only the first character is lost
        {"21 41 42 43 44", 4, "1 $$$$"}}; // all of the buffer is cleared
    for (const auto& [pCnf, nSize, pText] : aoCases) {
        m_oPeer.Confirm(pCnf);
        EXPECT_EQ(pText, Text([&, n = nSize](char* p) { return DeviceStatus(m_nHandle, p, n); }));
    }
    EXPECT_EQ("05 00 0a 03 02 00 0b", m_oPeer.TakeRequest());
}
