// Confirmations and indications of every length and of hostile content, for the I2C and CAN clients. The buffers
// are exactly as long as they have to be: the address sanitizer finds a byte too many.

#include "AnsweredClient.h"
#include "QuorvelClientCANDll.h"
#include "QuorvelClientI2C.h"

#include <gtest/gtest.h>

#include <memory>
#include <numeric>

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

template<class TClient, class FCalls>
void Attack(CAnswered<TClient>& o, FCalls fnCalls)
{
    const int nKind = o.GetDeviceType() << 8;
    for (const std::size_t nLen : Lengths()) {
        for (const auto& [nFirst, nFill] : {std::pair(0, 0), {0, 0x80}, {0, 0xFF}, {0x21, 0xFF}}) {
            g_strConfirmation.assign(nLen, static_cast<char>(nFill));
            if (nLen > 0)
                g_strConfirmation[0] = static_cast<char>(nFirst);
            const int nRC = nLen == 0 ? 0x000C0000 | nKind : nFirst == 0 ? 0 : nFirst | nKind;
            const std::vector<int> anResults = fnCalls();
            EXPECT_EQ(std::vector<int>(anResults.size(), nRC), anResults) << nLen;
        }
        for (unsigned int nCommand = 0; nCommand < (nLen < 1000 ? 0x100 : 0x70); ++nCommand)
            Receive(o, static_cast<unsigned int>(nKind) | nCommand, 1,
                    std::string(nLen, nLen % 2 == 0 ? '\xff' : '\x80'));
    }
}

} // namespace

TEST(HostileTest, I2C)
{
    CAnswered<CQuorvelClientI2C> o(1000);
    Attack(o, [&] {
        char acShort[9];
        char acLong[20];
        CQuorvelClientI2C::I2CCommand aoSteps[] = {{1, 9, acShort}, {2, 9, acShort}, {3, 20, acLong}};
        return Results(o.GetBaudrate(w), o.Read(1, acLong, 20, n), o.Write(2, "x", 1, n), o.RAWGet(1, c),
                       o.WriteSequence("x", 1, acLong, 20, n, n), o.WriteSequence(aoSteps, 3, n),
                       o.ReadEEProm(1, 2, 8, acLong, 20, n));
    });
}

TEST(HostileTest, CAN)
{
    CAnswered<CQuorvelClientCANDll> o(1, 1000);
    timeval oTime{};
    CQuorvelClientCAN::SConfigFilter oFilter{};
    short nSigned = 0;
    o.SetMaxSizePerQueue(0xFFFFFFFF);
    g_strConfirmation.assign(1, '\0');
    EXPECT_EQ(0, o.SetConfig(true, false));
    Attack(o, [&] {
        const int nGet = o.GetConfig(b, b);
        const int nSet = o.SetConfig(true, false); // frames stay confirmed
        return Results(
            nGet, nSet, o.Write(1, "x", 1, 2, &i, &i), o.GetFilter(oFilter), o.GetGlobals(w, c, b, b, b),
            o.GetZCardParameter(c, n, n), o.GetTime(b, oTime),
            o.GetPowerStatus(9, c, 8, c, 255, c, nSigned, n, n, b,
                             std::make_unique<unsigned short[]>(9).get(), std::make_unique<bool[]>(8).get(),
                             std::make_unique<bool[]>(255).get()),
            o.CANopenGetConfig(c), o.CANopenSendSDORead(1, 2, 3, 500, c, w),
            o.CANopenSendSDOReadBlock(1, 2, 3, 500, 20, c, n, std::make_unique<unsigned char[]>(20).get()));
    });
    const auto fnAll = [](const auto& fnRead) {
        int nRead = 0;
        while (fnRead() >= 0)
            ++nRead;
        return nRead;
    };
    char acFrame[72];
    char acAll[255];
    EXPECT_LT(40, fnAll([&] { return o.CANGetMessage(&i, acFrame, &c, &i, &i, &i); })); // some are invalid
    EXPECT_EQ(93, fnAll([&] { return o.CANopenGetUndefined(&i, &c, &c, &c, acAll, &i, &i); }));
}
