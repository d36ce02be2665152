// A test that starts with a client connected to a peer, and the check of what a command sends.
#ifndef QUORVEL_CONNECTED_TEST_H
#define QUORVEL_CONNECTED_TEST_H

#include "TestPeer.h"

#include <gtest/gtest.h>

#include <unistd.h>

using CTexts = std::vector<std::string>;
using CNumbers = std::vector<unsigned int>;

// A loopback address for fixed ports that no other process uses.
inline std::string OwnAddress()
{
    const int n = getpid();
    return "127.2" + std::to_string(n / 65536 % 10) + '.' + std::to_string(n / 256 % 256) + '.' +
           std::to_string(n % 256);
}

// KIND is the device kind as it stands in bits 8 to 15 of a result.
template<class TClient, int KIND>
class CConnectedTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        ASSERT_EQ(KIND, m_oClient.GetDeviceType() << 8);
        ASSERT_EQ(0, m_oClient.Connect("127.0.0.1", m_oPeer.GetPort(), 1, true));
        ASSERT_EQ(0, m_oClient.Open());
    }

    // What a command sends (with telegram id 2) and traces. How each one fails is seen in FaultMatrixTest.cpp.
    template<class FCall>
    void Check(FCall fnCall, const char* pRequest, const std::string& strTrace, const char* pParameters = "")
    {
        SCOPED_TRACE(strTrace);
        CTraceRecorder oTraces(0x0F);
        m_oClient.Open();
        m_oPeer.Confirm("00");
        EXPECT_EQ(0, fnCall());
        EXPECT_EQ(pRequest, m_oPeer.TakeRequest());
        EXPECT_EQ(CTexts{strTrace + " requested to 127.0.0.1" + pParameters}, oTraces.Take());
    }

    CTestPeer m_oPeer;
    TClient m_oClient{5000};
};

#endif
