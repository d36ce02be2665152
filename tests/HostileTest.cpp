// Confirmations and indications of every length and of hostile content, for every command of every client. Its
// worth shows under the address sanitizer: the buffers are exactly as long as they have to be.

#include "QuorvelClientAD.h"
#include "QuorvelClientCANDll.h"
#include "QuorvelClientDIO.h"
#include "QuorvelClientI2C.h"
#include "QuorvelClientSPI.h"
#include "TestPeer.h"

#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>

namespace
{

using CLengths = std::vector<std::size_t>;

// 0 to 80, and around all limits that lengths have in the telegrams.
CLengths Lengths()
{
    CLengths anLengths(81);
    std::iota(anLengths.begin(), anLengths.end(), 0);
    anLengths.insert(anLengths.end(), {254, 255, 256, 257, 260, 261, 262, 325, 400, 787, 65527, 65528});
    return anLengths;
}

// Data of one byte again and again behind another first one.
std::string Data(std::size_t nLen, int nFirst, int nFill)
{
    std::string strData(nLen, static_cast<char>(nFill));
    if (nLen > 0)
        strData[0] = static_cast<char>(nFirst);
    return strData;
}

// A client whose every request is confirmed at once, without any connection.
template<class TClient>
class CAnswered : public TClient
{
  public:
    using TClient::SendMsg;
    using TClient::TClient;

    int SendMsg(const CQuorvelMsg& oMsg) override
    {
        Receive(oMsg.GetCmdCode() | 0x8000U, oMsg.GetMsgID(), m_strConfirmation);
        return 0;
    }

    void Receive(unsigned int nCode, int nID, const std::string& strData)
    {
        const std::string strBytes = Telegram(nCode, nID, strData);
        TClient::DataInd(strBytes.data(), static_cast<unsigned short>(strBytes.size()));
    }

    std::string m_strConfirmation;
};

// A buffer on the heap for a command's output: a byte too many is found.
template<class T = char>
struct SBuffer {
    explicit SBuffer(std::size_t nSize) : p(new T[nSize]()) {}
    operator T*() const { return p.get(); } // NOLINT: as the commands take it
    std::unique_ptr<T[]> p;
};

template<class TClient>
using CCalls = std::vector<std::function<int(TClient&)>>;

unsigned char c;
unsigned short n;
unsigned int w;
bool b;

template<class TClient>
CCalls<TClient> CommonCalls()
{
    return {
        [](TClient& o) { return o.Restart(); },
        [](TClient& o) { return o.Info(SBuffer<SQuorvelDeviceInfo>(1)); },
        [](TClient& o) {
            std::string strStatus;
            return o.Status(strStatus);
        },
        [](TClient& o) { return o.BaseReadDigital(w, w); },
        [](TClient& o) { return o.BaseWriteDigital(1); },
        [](TClient& o) { return o.ReadAnalog(w, SBuffer<unsigned int>(7), n = 7); },
        [](TClient& o) { return o.WriteAnalog(&w, 1); },
    };
}

// Every call with confirmations of every length and content; the result is what the confirmation says.
template<class TClient>
void Confirmations(CAnswered<TClient>& oClient, const CCalls<TClient>& afnCalls)
{
    const int nKind = oClient.GetDeviceType() << 8;
    CCalls<TClient> afnAll = CommonCalls<TClient>();
    afnAll.insert(afnAll.end(), afnCalls.begin(), afnCalls.end());
    for (std::size_t i = 0; i < afnAll.size(); ++i) {
        for (const std::size_t nLen : Lengths()) {
            for (const auto& [nFirst, nFill] : {std::pair(0, 0), {0, 0x80}, {0, 0xFF}, {0x21, 0xFF}}) {
                oClient.m_strConfirmation = Data(nLen, nFirst, nFill);
                const int nRC = nLen == 0 ? 0x000C0000 | nKind : nFirst == 0 ? 0 : nFirst | nKind;
                try {
                    EXPECT_EQ(nRC, afnAll[i](oClient)) << "call " << i << ", length " << nLen;
                } catch (const std::out_of_range&) { // the analog client's Read
                    EXPECT_EQ(0U, nLen) << "call " << i;
                }
            }
        }
    }
}

// Every command code as an indication.
template<class TClient>
void Indications(CAnswered<TClient>& oClient)
{
    const unsigned int nKind = static_cast<unsigned int>(oClient.GetDeviceType()) << 8;
    for (const std::size_t nLen : Lengths()) {
        for (unsigned int nCommand = 0; nCommand < (nLen < 1000 ? 0x100 : 0x70); ++nCommand)
            oClient.Receive(nKind | nCommand, 1, Data(nLen, 0xFF, nLen % 2 == 0 ? 0xFF : 0x80));
    }
}

int g_nBytes;

// Reads all the bytes that a callback was given.
void Touch(const void* pData, std::size_t nLen)
{
    const auto* const p = static_cast<const unsigned char*>(pData);
    g_nBytes = std::accumulate(p, p + nLen, g_nBytes & 1);
}

} // namespace

TEST(HostileTest, CommonAndSPI)
{
    CAnswered<CQuorvelClientDIO> oDIO(1000);
    Confirmations<CQuorvelClientDIO>(oDIO, {});
    Indications(oDIO);
    CAnswered<CQuorvelClientAD> oAD(1000);
    Confirmations<CQuorvelClientAD>(oAD, {[](CQuorvelClientAD& o) { return o.ReadDigitalInput(w, w, w); },
                                          [](CQuorvelClientAD& o) {
                                              std::vector<unsigned int> aoValues;
                                              return o.Read(aoValues);
                                          }});
    Indications(oAD);
    using T = CQuorvelClientSPI;
    CAnswered<T> oSPI(1000);
    Confirmations<T>(oSPI, {[](T& o) { return o.SetGlobals(1, 2, 3, 4); },
                            [](T& o) { return o.GetGlobals(w, c, c, c); },
                            [](T& o) { return o.DataReq("x", 1, SBuffer(20), 20); },
                            [](T& o) { return o.SequenceReq("x", 1, SBuffer(20), 20); },
                            [](T& o) {
                                short nID = 0;
                                EXPECT_EQ(0, o.SequenceReq("x", 1, &nID));
                                return o.SequenceGetCnf(nID, SBuffer(20), 20);
                            }});
    Indications(oSPI);
}

TEST(HostileTest, I2C)
{
    using T = CQuorvelClientI2C;
    CAnswered<T> oClient(1000);
    Confirmations<T>(oClient,
                     {
                         [](T& o) { return o.SetBaudrate(100); },
                         [](T& o) { return o.GetBaudrate(w); },
                         [](T& o) { return o.Reset(); },
                         [](T& o) { return o.Read(0xA1, SBuffer(20), 20, n); },
                         [](T& o) { return o.Write(0xA0, "x", 1, n); },
                         [](T& o) { return o.RAWStart(); },
                         [](T& o) { return o.RAWSend(1, 2); },
                         [](T& o) { return o.RAWGet(1, c); },
                         [](T& o) { return o.RAWStop(); },
                         [](T& o) { return o.WriteSequence("x", 1, SBuffer(20), 20, n, n); },
                         [](T& o) {
                             const SBuffer<> oFirst(9);
                             const SBuffer<> oSecond(20);
                             T::I2CCommand aoSteps[] = {{1, 9, oFirst}, {2, 9, oFirst}, {3, 20, oSecond}};
                             return o.WriteSequence(aoSteps, 3, n);
                         },
                         [](T& o) { return o.WriteEEProm(1, 2, 8, "x", 1); },
                         [](T& o) { return o.WriteEEPromPollAck(1, 2, 8, "x", 1, 2); },
                         [](T& o) { return o.ReadEEProm(1, 2, 8, SBuffer(20), 20, n); },
                     });
    Indications(oClient);
}

TEST(HostileTest, CAN)
{
    using T = CQuorvelClientCANDll;
    CAnswered<T> oClient(1, 1000);
    timeval oTime{};
    int anTime[2];
    CQuorvelClientCAN::SConfigFilter oFilter{};
    Confirmations<T>(
        oClient,
        {
            [](T& o) { return o.SetConfig(true, false); },
            [](T& o) { return o.GetConfig(b, b); },
            [&](T& o) { return o.SetFilter(oFilter); },
            [&](T& o) { return o.GetFilter(oFilter); },
            [](T& o) { return o.SetGlobals(1, 2, true, true, true); },
            [](T& o) { return o.GetGlobals(w, c, b, b, b); },
            [](T& o) { return o.SetZCardParameter(1, 2, 3); },
            [](T& o) { return o.GetZCardParameter(c, n, n); },
            [&](T& o) { return o.SetTime(oTime); },
            [&](T& o) { return o.GetTime(b, oTime); },
            [](T& o) {
                short nSigned = 0;
                return o.GetPowerStatus(9, c, 8, c, 255, c, nSigned, n, n, b, SBuffer<unsigned short>(9),
                                        SBuffer<bool>(8), SBuffer<bool>(255));
            },
            [](T& o) { return o.SetPowerRelais(true); },
            [](T& o) { return o.SetActivePowerSupplies(1); },
            [&](T& o) {
                const std::string strConfirmation =
                    std::exchange(static_cast<CAnswered<T>&>(o).m_strConfirmation, std::string(1, '\0'));
                EXPECT_EQ(0, o.SetConfig(true, false));
                static_cast<CAnswered<T>&>(o).m_strConfirmation = strConfirmation;
                return o.Write(1, "x", 1, 2, anTime, anTime + 1);
            },
            [](T& o) { return o.CANopenSetConfig(1); },
            [](T& o) { return o.CANopenGetConfig(c); },
            [](T& o) { return o.CANopenSetSYNCMode(1); },
            [](T& o) { return o.CANopenSendNMT(1, 2); },
            [](T& o) { return o.CANopenSendSYNC(); },
            [](T& o) { return o.CANopenSendTIME(1, 2); },
            [](T& o) { return o.CANopenSendPDO(1, 2, 1, "x"); },
            [](T& o) { return o.CANopenSendSDORead(1, 2, 3, 500, c, w); },
            [](T& o) { return o.CANopenSendSDOWrite(1, 2, 3, 4, 500, 6, c, w); },
            [](T& o) {
                return o.CANopenSendSDOReadBlock(1, 2, 3, 500, 20, c, n, SBuffer<unsigned char>(20));
            },
            [](T& o) { return o.CANopenSendSDOWriteBlock(1, 2, 3, 500, 1, &c, c, w); },
        });

    oClient.SetMaxSizePerQueue(0xFFFFFFFF);
    Indications(oClient);
    int nRead = 0;
    int n4[4];
    const SBuffer<unsigned char> oBytes(3);
    const auto fnAll = [&](const auto& fnRead) {
        while (fnRead() >= 0)
            ++nRead;
    };
    fnAll([&] { return oClient.CANGetMessage(n4, SBuffer(72), oBytes, n4 + 1, n4 + 2, n4 + 3); });
    fnAll([&] { return oClient.CANopenGetPDO(oBytes, oBytes, oBytes, SBuffer(8)); });
    fnAll([&] { return oClient.CANopenGetSYNC(oBytes); });
    fnAll([&] { return oClient.CANopenGetEMCY(oBytes, &n, oBytes, SBuffer<unsigned char>(5)); });
    fnAll([&] { return oClient.CANopenGetGUARD(oBytes, oBytes); });
    fnAll([&] { return oClient.CANopenGetUndefined(n4, oBytes, oBytes, oBytes, SBuffer(255), n4, n4); });
    EXPECT_LT(5 * 93, nRead); // all but some frames

    oClient.SetCallbackEx([](unsigned int, const char* pData, int nLen, int, int, int, int) {
        Touch(pData, static_cast<std::size_t>(nLen));
    });
    oClient.CANopenSetCallback([](unsigned char, unsigned char, unsigned char nLen, const char* pData, int,
                                  int, int) { Touch(pData, nLen); },
                               [](unsigned char, int, int, int) {},
                               [](unsigned char, unsigned short, unsigned char, const unsigned char* pData,
                                  int, int, int) { Touch(pData, 5); },
                               [](unsigned char, unsigned char, int, int, int) {},
                               [](int, unsigned char, unsigned char, unsigned char nLen, const char* pData,
                                  int, int, int) { Touch(pData, nLen); });
    Indications(oClient);
    EXPECT_EQ(-1, oClient.CANopenGetSYNC(nullptr));
}
