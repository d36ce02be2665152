// Confirmations and indications of every length and of hostile content, for every command of every client. Its
// worth shows under the address sanitizer: the buffers are exactly as long as they have to be.

#include "QuorvelClientAD.h"
#include "QuorvelClientCANDll.h"
#include "QuorvelClientDIO.h"
#include "QuorvelClientI2C.h"
#include "QuorvelClientSPI.h"
#include "TestPeer.h"

#include <gtest/gtest.h>

#include <memory>
#include <numeric>
#include <stdexcept>

namespace
{

// 0 to 80, and around all limits that lengths have in the telegrams.
std::vector<std::size_t> Lengths()
{
    std::vector<std::size_t> anLengths(81);
    std::iota(anLengths.begin(), anLengths.end(), 0);
    anLengths.insert(anLengths.end(), {254, 255, 256, 257, 260, 261, 262, 325, 400, 787, 65527, 65528});
    return anLengths;
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
    operator T*() const { return p.get(); } // as the commands take it
    std::unique_ptr<T[]> p;
};

unsigned char c;
unsigned short n;
unsigned int w;
bool b;
int i;

template<class... A>
std::vector<int> Results(A... nResults)
{
    return {nResults...};
}

// Calls all commands with confirmations of every length and content; the results are what those say. Then
// sends every command code as an indication.
template<class TClient, class FCalls>
void Attack(CAnswered<TClient>& o, FCalls fnCalls)
{
    const int nKind = o.GetDeviceType() << 8;
    std::string strStatus;
    for (const std::size_t nLen : Lengths()) {
        for (const auto& [nFirst, nFill] : {std::pair(0, 0), {0, 0x80}, {0, 0xFF}, {0x21, 0xFF}}) {
            o.m_strConfirmation.assign(nLen, static_cast<char>(nFill));
            if (nLen > 0)
                o.m_strConfirmation[0] = static_cast<char>(nFirst);
            const int nRC = nLen == 0 ? 0x000C0000 | nKind : nFirst == 0 ? 0 : nFirst | nKind;
            const std::vector<int> anCommon =
                Results(o.Restart(), o.Info(SBuffer<SQuorvelDeviceInfo>(1)), o.Status(strStatus),
                        o.BaseReadDigital(w, w), o.BaseWriteDigital(1),
                        o.ReadAnalog(w, SBuffer<unsigned int>(7), n = 7), o.WriteAnalog(&w, 1));
            EXPECT_EQ(std::vector<int>(anCommon.size(), nRC), anCommon) << nLen;
            const std::vector<int> anResults = fnCalls();
            EXPECT_EQ(std::vector<int>(anResults.size(), nRC), anResults) << nLen;
        }
        for (unsigned int nCommand = 0; nCommand < (nLen < 1000 ? 0x100 : 0x70); ++nCommand)
            o.Receive(static_cast<unsigned int>(nKind) | nCommand, 1,
                      std::string(nLen, nLen % 2 == 0 ? '\xff' : '\x80'));
    }
}

int g_nSum;

// Reads all the bytes that a callback was given.
void Touch(const void* pData, int nLen)
{
    const auto* const p = static_cast<const unsigned char*>(pData);
    g_nSum = std::accumulate(p, p + nLen, 0);
}

} // namespace

TEST(HostileTest, DIOAndAD)
{
    CAnswered<CQuorvelClientDIO> oDIO(1000);
    Attack(oDIO, [&] { return Results(oDIO.Read(w, w), oDIO.Write(1)); });
    CAnswered<CQuorvelClientAD> o(1000);
    Attack(o, [&] {
        std::vector<unsigned int> anValues;
        if (o.m_strConfirmation.empty()) {
            EXPECT_THROW(o.Read(anValues), std::out_of_range);
            return std::vector<int>();
        }
        return Results(o.ReadDigitalInput(w, w, w), o.Read(anValues));
    });
}

TEST(HostileTest, SPI)
{
    CAnswered<CQuorvelClientSPI> o(1000);
    Attack(o, [&] {
        short nID = 0;
        EXPECT_EQ(0, o.SequenceReq("x", 1, &nID));
        return Results(o.SequenceGetCnf(nID, SBuffer(20), 20), o.SetGlobals(1, 2, 3, 4),
                       o.GetGlobals(w, c, c, c), o.DataReq("x", 1, SBuffer(20), 20),
                       o.SequenceReq("x", 1, SBuffer(20), 20));
    });
}

TEST(HostileTest, I2C)
{
    CAnswered<CQuorvelClientI2C> o(1000);
    Attack(o, [&] {
        const SBuffer<> oShort(9);
        const SBuffer<> oLong(20);
        CQuorvelClientI2C::I2CCommand aoSteps[] = {{1, 9, oShort}, {2, 9, oShort}, {3, 20, oLong}};
        return Results(o.SetBaudrate(100), o.GetBaudrate(w), o.Reset(), o.Read(1, oLong, 20, n),
                       o.Write(2, "x", 1, n), o.RAWStart(), o.RAWSend(1, 2), o.RAWGet(1, c), o.RAWStop(),
                       o.WriteSequence("x", 1, oLong, 20, n, n), o.WriteSequence(aoSteps, 3, n),
                       o.WriteEEProm(1, 2, 8, "x", 1), o.WriteEEPromPollAck(1, 2, 8, "x", 1, 2),
                       o.ReadEEProm(1, 2, 8, oLong, 20, n));
    });
}

TEST(HostileTest, CAN)
{
    CAnswered<CQuorvelClientCANDll> o(1, 1000);
    timeval oTime{};
    CQuorvelClientCAN::SConfigFilter oFilter{};
    short nSigned = 0;
    o.m_strConfirmation.assign(1, '\0');
    EXPECT_EQ(0, o.SetConfig(true, false));
    const auto fnCalls = [&] {
        const int nGet = o.GetConfig(b, b);
        const int nSet = o.SetConfig(true, false); // frames stay confirmed
        return Results(
            nGet, nSet, o.Write(1, "x", 1, 2, &i, &i), o.SetFilter(oFilter), o.GetFilter(oFilter),
            o.SetGlobals(1, 2, true, true, true), o.GetGlobals(w, c, b, b, b), o.SetZCardParameter(1, 2, 3),
            o.GetZCardParameter(c, n, n), o.SetTime(oTime), o.GetTime(b, oTime),
            o.GetPowerStatus(9, c, 8, c, 255, c, nSigned, n, n, b, SBuffer<unsigned short>(9),
                             SBuffer<bool>(8), SBuffer<bool>(255)),
            o.SetPowerRelais(true), o.SetActivePowerSupplies(1), o.CANopenSetConfig(1), o.CANopenGetConfig(c),
            o.CANopenSetSYNCMode(1), o.CANopenSendNMT(1, 2), o.CANopenSendSYNC(), o.CANopenSendTIME(1, 2),
            o.CANopenSendPDO(1, 2, 1, "x"), o.CANopenSendSDORead(1, 2, 3, 500, c, w),
            o.CANopenSendSDOWrite(1, 2, 3, 4, 500, 6, c, w),
            o.CANopenSendSDOReadBlock(1, 2, 3, 500, 20, c, n, SBuffer<unsigned char>(20)),
            o.CANopenSendSDOWriteBlock(1, 2, 3, 500, 1, &c, c, w));
    };
    o.SetMaxSizePerQueue(0xFFFFFFFF);
    Attack(o, fnCalls);
    int nRead = 0;
    const auto fnAll = [&](const auto& fnRead) {
        while (fnRead() >= 0)
            ++nRead;
    };
    fnAll([&] { return o.CANGetMessage(&i, SBuffer(72), &c, &i, &i, &i); });
    fnAll([&] { return o.CANopenGetPDO(&c, &c, &c, SBuffer(8)); });
    fnAll([&] { return o.CANopenGetSYNC(&c); });
    fnAll([&] { return o.CANopenGetEMCY(&c, &n, &c, SBuffer<unsigned char>(5)); });
    fnAll([&] { return o.CANopenGetGUARD(&c, &c); });
    fnAll([&] { return o.CANopenGetUndefined(&i, &c, &c, &c, SBuffer(255), &i, &i); });
    EXPECT_LT(5 * 93, nRead); // all but some frames

    o.SetCallbackEx([](unsigned int, const char* p, int nLen, int, int, int, int) { Touch(p, nLen); });
    o.CANopenSetCallback([](unsigned char, unsigned char, unsigned char nLen, const char* p, int, int,
                            int) { Touch(p, nLen); },
                         [](unsigned char, int, int, int) {},
                         [](unsigned char, unsigned short, unsigned char, const unsigned char* p, int, int,
                            int) { Touch(p, 5); },
                         [](unsigned char, unsigned char, int, int, int) {},
                         [](int, unsigned char, unsigned char, unsigned char nLen, const char* p, int, int,
                            int) { Touch(p, nLen); });
    Attack(o, fnCalls);
    EXPECT_EQ(-1, o.CANopenGetSYNC(nullptr));
}
