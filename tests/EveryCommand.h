// Every command of every client, in one table: how it is called, and what it hands out.
#ifndef QUORVEL_EVERY_COMMAND_H
#define QUORVEL_EVERY_COMMAND_H

#include "ConnectedTest.h"
#include "QuorvelClientAD.h"
#include "QuorvelClientAWire.h"
#include "QuorvelClientCANDll.h"
#include "QuorvelClientDIO.h"
#include "QuorvelClientFirmware.h"
#include "QuorvelClientI2C.h"
#include "QuorvelClientRenesas.h"
#include "QuorvelClientSPI.h"
#include "QuorvelClientTestSystemCOM.h"
#include "QuorvelClientTestSystemIO.h"
#include "QuorvelClientTestSystemPWR.h"
#include "QuorvelClientTestSystemRelay.h"

#include <fstream>
#include <iomanip>
#include <sstream>

namespace
{

constexpr unsigned short LONG = 20000;
constexpr unsigned int FLASH = 0x10000000; // of the aWire target

struct SFile { // what is sent to a test system
    SFile() { std::ofstream(strPath) << "content"; }
    ~SFile() { unlink(strPath.c_str()); }
    std::string strPath = testing::TempDir() + "quorvel-matrix-" + std::to_string(getpid());
};
const SFile oFile;

// The outputs of all commands, and how they look when a command leaves them alone.
struct SOut {
    // "result name=value ..." of those that were written.
    std::string Text(int nRC) const
    {
        const SOut oOld;
        std::ostringstream oText;
        oText << std::hex << static_cast<unsigned int>(nRC) << std::dec;
        const auto fnArray = [&](const char* pName, const auto& aNow, const auto& aOld) {
            for (std::size_t k = 0; k < std::size(aNow); ++k)
                if (aNow[k] != aOld[k])
                    oText << ' ' << pName << k << '=' << +aNow[k];
        };
        fnArray("n", n, oOld.n);
        fnArray("w", w, oOld.w);
        fnArray("b", b, oOld.b);
        fnArray("f", f, oOld.f);
        if (ac != oOld.ac)
            oText << " ac=" << ToHex(std::string(ac.data(), 4));
        if (s != oOld.s)
            oText << " s=" << s;
        if (i != 7)
            oText << " i=" << i;
        if (h != 7)
            oText << " h=" << h;
        if (v.size() > 1)
            oText << " v=" << v.size() << ',' << v[1];
        if (oTime.tv_sec != 7 || nSeconds != 7)
            oText << " time";
        if (oInfo.aucFirmware[0] != 7)
            oText << " info=" << ToHex(std::string(reinterpret_cast<const char*>(&oInfo), 3));
        if (oInfoEx.nSerialNumber != 7)
            oText << " ex=" << oInfoEx.nSerialNumber << ',' << oInfoEx.nHWVersion << ','
                  << oInfoEx.nSWVersion;
        return oText.str();
    }

    unsigned short nWait = LONG;
    std::array<unsigned int, 4> n{7, 7, 7, 7};
    std::array<unsigned short, 3> w{1, 1, 1};
    std::array<unsigned char, 4> b{7, 7, 7, 7};
    bool f[3]{true, true, true};
    int i = 7;
    int nSeconds = 7;
    short h = 7;
    short nID = 0;
    std::array<char, 2048> ac{7, 7, 7, 7};
    std::string s = "7";
    std::vector<unsigned int> v{7};
    timeval oTime{7, 7};
    SQuorvelDeviceInfo oInfo{{7}, 0, 0};
    CQuorvelClientFirmware::SQuorvelDeviceInfoEx oInfoEx{7, 7, 7, {}};
    CQuorvelClientI2C::I2CCommand oStep{0xA1, 2, ac.data()};
};

struct SCommand {
    std::string strName;
    int (*pRun)(CQuorvelClient&, SOut&);
    std::string strGood = ""; // outputs of a success
    std::string strSpecial =
        "";         // what is not as usual: "fault:result outputs|..."; "failed:outputs" for any failure
    int nWaits = 1; // time-outs that it waits
    int nBand = 0;  // bits added to the result of a failure
};

#define RUN(...)                                                                                             \
    [](CQuorvelClient& oClient, SOut& o) -> int {                                                            \
        auto& c = static_cast<C&>(oClient);                                                                  \
        static_cast<void>(o);                                                                                \
        __VA_ARGS__                                                                                          \
    }
#define CALL(...) #__VA_ARGS__, RUN(return c.__VA_ARGS__;)
using CCommands = std::vector<SCommand>;

template<class C>
CCommands Common()
{
    return {
        {CALL(CQuorvelClient::Info(&o.oInfo)), "info=66 6f 6c", "failed:info=00 00 00|short:0 info=66 6f 00"},
        {CALL(Status(o.s)), "s=good", "short:0 s=go|long:0 s=goodUUU"},
        {CALL(BaseReadDigital(o.n[0], o.n[1])), "n0=197120 n1=197120"},
        {CALL(BaseWriteDigital(2))},
        {CALL(ReadAnalog(o.n[0], &o.n[1], o.w[0])), "n0=12 n1=2500 w0=12", "failed:w0=0|short:0 w0=0"},
        {CALL(WriteAnalog(o.n.data(), 2))},
        {CALL(CQuorvelClient::Restart())}};
}

CCommands DIO()
{
    using C = CQuorvelClientDIO;
    return {{CALL(Read(o.n[0], o.n[1])), "n0=197120 n1=197120"}, {CALL(Write(1))}};
}

CCommands AD()
{
    using C = CQuorvelClientAD;
    return {{CALL(ReadDigitalInput(o.n[0], o.n[1], o.n[2])), "n0=0 n1=2 n2=3", "short:0 n1=0 n2=0"},
            {CALL(Read(o.v)), "v=13,2500", "refused:77e v=13,2500|empty:out of range"}};
}

CCommands SPI()
{
    using C = CQuorvelClientSPI;
#define SEQUENCE "\1\2\0\5" // reads the status: one transfer of two bytes
    return {{CALL(SetGlobals(1000000, 2, 1, 0))},
            {CALL(GetGlobals(o.n[0], o.b[0], o.b[1], o.b[2])), "n0=1000000 b0=2 b1=1 b2=0"},
            {CALL(DataReq("\x9f", 1, o.ac.data(), 4)), "ac=ff c2 20 17",
             "refused:37e ac=ff c2 20 17|empty:c0300 ac=00 00 00 00|short:0 ac=ff c2 07 07"},
            {CALL(SequenceReq(SEQUENCE, 5, o.ac.data(), 3)), "ac=00 ff 00 07",
             "refused:37e ac=7e ff 00 07|short:0 ac=00 ff 00 07"},
            {"SequenceReq, SequenceGetCnf",
             RUN(if (const int nRC = c.SequenceReq(SEQUENCE, 5, &o.nID)) return nRC;
                 return c.SequenceGetCnf(o.nID, o.ac.data(), 2);),
             "ac=ff 00 07 07",
             "refused:37e ac=ff 00 07 07|empty:c0300 ac=00 00 07 07|short:0 ac=ff 00 07 07"}};
}

CCommands I2C()
{
    using C = CQuorvelClientI2C;
    return {
        {CALL(Open(100))},
        {CALL(SetBaudrate(100000))},
        {CALL(GetBaudrate(o.n[0])), "n0=100000", "refused:17e n0=100000|empty:c0100 n0=0|short:0 n0=34464"},
        {CALL(RAWGet(1, o.b[0])), "b0=255", "refused:17e b0=255|empty:c0100 b0=0|short:0 b0=255"},
        {CALL(RAWStop())},
        {CALL(RAWStart())},
        {CALL(RAWSend(0xA0, 1))},
        {CALL(Read(0xA0, o.ac.data(), 3, o.w[0])), "w0=3 ac=ff ff ff 07",
         "failed:w0=0|refused:17e w0=3 ac=ff ff ff 07|empty:c0100 w0=3 ac=00 00 00 07|short:0 w0=2 ac=ff ff "
         "07 07"},
        {CALL(Write(0xA0, "\0", 2, o.w[0])), "w0=0", "refused:17e w0=0|short:0 w0=0"},
        {CALL(WriteSequence("\xA1\0\2", 4, o.ac.data(), 2, o.w[0], o.w[1])), "w0=2 w1=0 ac=ff ff 07 07",
         "refused:17e w0=2 w1=0 ac=ff ff 07 07|short:0 w0=0 w1=0"},
        {CALL(WriteSequence(&o.oStep, 1, o.w[0])), "w0=0 ac=ff ff 07 07",
         "refused:17e w0=0 ac=ff ff 07 07|short:0 w0=0"},
        {CALL(Reset())},
        {CALL(WriteEEProm(0, 9, 0x000F, "x", 1))},
        {CALL(WriteEEPromPollAck(0, 9, 0x000F, "x", 1, 1000))},
        {CALL(ReadEEProm(0, 0, 0x000F, o.ac.data(), 3, o.w[0])), "w0=3 ac=ff ff ff 07",
         "refused:17e w0=3 ac=ff ff ff 07|empty:c0100 w0=3 ac=00 00 00 07|short:0 w0=2 ac=ff ff 07 07"}};
}

CCommands CAN()
{
    using C = CQuorvelClientCAN;
    return {{CALL(Open(true, false))},
            {CALL(GetConfig(o.f[0], o.f[1])), "f1=0", "short:0 f1=0"},
            {CALL(SetFilter({}))},
            {"GetFilter",
             RUN(C::SConfigFilter oFilter{{7}}; const int nRC = c.GetFilter(oFilter);
                 o.n[0] = oFilter.anValues[0]; return nRC;),
             "n0=0"},
            {CALL(SetGlobals(500000, 0, false, true, true))},
            {CALL(GetGlobals(o.n[0], o.b[0], o.f[0], o.f[1], o.f[2])), "n0=500000 b0=0 f0=0"},
            {CALL(GetZCardParameter(o.b[0], o.w[0], o.w[1])), "w0=0 w1=0 b0=0"},
            {CALL(SetZCardParameter(1, 2, 3))},
            {CALL(GetTime(o.f[0], o.oTime)), "f0=0 time"},
            {CALL(SetTime({1, 2}))},
            {CALL(GetPowerStatus(1, o.b[0], 1, o.b[1], 1, o.b[2], o.h, o.w[0], o.w[1], o.f[0], &o.w[2],
                                 &o.f[1], &o.f[2])),
             "w0=24000 w1=100 w2=0 b0=4 b1=4 b2=2 f0=0 f2=0 h=315"},
            {CALL(SetPowerRelais(false))},
            {CALL(SetActivePowerSupplies(15))},
            {CALL(Write(1, "ab", 2, 0, &o.nSeconds, nullptr)), "time",
             "refused:27e time|badcheck:a0000 time|badcode:b0000 time"}, // the time comes all the same
            {"SetConfig, unconfirmed Write", RUN(if (const int nRC = c.SetConfig(false, false)) return nRC;
                                                 return c.Write(1, "ab", 2, 0, nullptr, nullptr);)},
            {CALL(CANopenSetConfig(1))},
            {CALL(CANopenGetConfig(o.b[0])), "b0=1", "short:0 b0=1"},
            {CALL(CANopenSetSYNCMode(0))},
            {CALL(CANopenSendNMT(1, 1))},
            {CALL(CANopenSendSYNC())},
            {CALL(CANopenSendTIME(1, 2))},
            {CALL(CANopenSendPDO(1, 1, 4, "abcd"))},
            {CALL(CANopenSendSDORead(1, 0x1000, 0, o.nWait, o.b[0], o.n[0])), "n0=196753 b0=0",
             "short:0 n0=4294967185 b0=0", 2},
            {CALL(CANopenSendSDOWrite(4, 1, 0x2000, 0, o.nWait, 5, o.b[0], o.n[0])), "n0=0 b0=0",
             "short:0 n0=0 b0=0", 2},
            {CALL(CANopenSendSDOReadBlock(1, 0x1008, 0, o.nWait, 3, o.b[0], o.w[0], &o.b[1])),
             "w0=3 b0=0 b1=0 b2=81 b3=117", "short:0 b0=0 b1=0", 2},
            {CALL(CANopenSendSDOWriteBlock(1, 0x2010, 0, o.nWait, 2, o.b.data(), o.b[0], o.n[0])),
             "n0=0 b0=0", "short:0 n0=0 b0=0", 2}};
}

CCommands Renesas()
{
    using C = CQuorvelClientRenesas;
    return {{CALL(Init())},
            {CALL(CheckID("\xff\xff\xff\xff\xff\xff\xff", 7))},
            {CALL(SetBaudrate(0))},
            {CALL(ReadPage(0, o.ac.data(), 3, o.w[0])), "w0=3 ac=ff ff ff 07",
             "refused:97e w0=3 ac=ff ff ff 07|empty:c0900 w0=3 ac=00 00 00 07|short:0 w0=2 ac=ff ff 07 07"},
            {CALL(WritePage(1, "x", 1))},
            {CALL(EraseAll())},
            {CALL(BlockErase(1))},
            {CALL(GetVersion(o.ac.data(), 4)), "ac=53 49 4d 20",
             "refused:97e ac=53 49 4d 20|empty:c0900 ac=00 00 00 00|short:0 ac=53 49 07 07"},
            {CALL(VerifyCheck(0, 1, o.w[0])), "w0=510", "refused:97e w0=510|short:0 w0=510"},
            {CALL(Complete())}};
}

CCommands Firmware()
{
    using C = CQuorvelClientFirmware;
    return {{CALL(GetEEPromInfo(o.i)), "i=65536"},
            {CALL(ReadEEProm(256, o.ac.data(), 3, o.w[0])), "w0=3 ac=ff ff ff 07",
             "short:0 w0=2 ac=ff ff 07 07", 1, 0x100},
            {CALL(WriteEEProm(300, "x", 1)), "", "", 1, 0x100},
            {CALL(ReadFlash(5, o.ac.data(), o.n[0])), "n0=2048 ac=ff ff ff ff",
             "failed:n0=0|short:0 n0=2 ac=ff ff 07 07"},
            {CALL(WriteFlash(0, o.ac.data()))},
            {CALL(ClearFlash())},
            {CALL(GetInfo(o.oInfoEx)), "ex=1001,2147549186,65536", "short:0 ex=0,0,0", 1, 0x100},
            {CALL(SetInfo({1001, 0x80010002, 0x10000, {}})), "", "", 1, 0x100},
            {CALL(Restart())}};
}

CCommands COM()
{
    using C = CQuorvelClientTestSystemCOM;
    return {{CALL(GetConfig(o.s)), "s=cfg", "short:0 s=cf|long:0 s=cfgUUU"},
            {CALL(IsConfigAvailable("absent", o.f[0], o.n[0])), "n0=0 f0=0", "short:0 f0=0"},
            {CALL(SetConfig("other"))},
            {CALL(SendFile(oFile.strPath))},
            {CALL(InstallConfig("third", oFile.strPath))}};
}

CCommands IO()
{
    using C = CQuorvelClientTestSystemIO;
    return {{CALL(GetValue(o.w.data(), 2)), "w0=0 w1=0", "short:0 w0=0"},
            {CALL(SetValue(o.w.data(), 2))},
            {CALL(GetPower(o.w.data(), 2)), "w0=0 w1=0", "short:0 w0=0"},
            {CALL(SetPower(o.w.data(), 2))}};
}

CCommands PWR()
{
    using C = CQuorvelClientTestSystemPWR;
    return {{CALL(GetValue(o.w.data(), 2)), "w0=0 w1=0", "short:0 w0=0"}, {CALL(SetValue(o.w.data(), 2))}};
}

CCommands Relay()
{
    using C = CQuorvelClientTestSystemRelay;
    return {{CALL(GetPower(o.w.data(), 2)), "w0=0 w1=0", "short:0 w0=0"},
            {CALL(SetPower(o.w.data(), 2))},
            {CALL(SetRelay(1, true))}};
}

CCommands AWire()
{
    using C = CQuorvelClientAWire;
    // Writes are reported, not answered: what goes wrong with answers does not concern them, but the next command.
#define REPORTED(WRITE)                                                                                      \
    "write, Status", RUN(if (const int nRC = c.WRITE) return nRC;                                            \
                         C::Progress::EProgress e = C::Progress::eInProgress; WaitUntil([&] {                \
                             return c.GetWriteBlockStatus(o.nID, e, o.w[0], o.w[1]) != 0 ||                  \
                                    e != C::Progress::eInProgress;                                           \
                         });                                                                                 \
                         return c.Status(o.s);)
    return {{CALL(GetConfig(o.n[0], o.n[1], o.n[2], o.n[3], o.s)),
             "n0=1000000 n1=268435456 n2=1048576 n3=512 s=simulated target",
             "long:0 n0=1000000 n1=268435456 n2=1048576 n3=512 s=simulated targetUUU"},
            {CALL(SetConfig(1000000, FLASH, 1048576, 512, "simulated target"))},
            {CALL(Read(FLASH, 3, o.ac.data(), o.w[0])), "w0=3 ac=ff ff ff 07", "short:0 w0=2 ac=ff ff 07 07"},
            {CALL(Verify(FLASH, 3, "\xff\xff\xff")), "", "short:e26"},
            {CALL(Erase(0))},
            {CALL(EraseUserPage())},
            {CALL(WriteFile(oFile.strPath))},
            {REPORTED(WriteBlock(FLASH, 1, "\xff", o.nID)), "s=good", "short:0 s=go|long:0 s=goodUUU"},
            {REPORTED(WriteUserPage(0, 1, "\xff", o.nID)), "s=good", "short:0 s=go|long:0 s=goodUUU"}};
}

struct SKind {
    int nKind;
    std::unique_ptr<CQuorvelClient> (*pNewClient)();
    int (*pSetup)(CQuorvelClient&, SOut&);
    int nSetup; // its answers
    CCommands aoCommands;
};

template<class C>
SKind Kind(
    CCommands aoCommands, int nSetup = 0,
    int (*pSetup)(CQuorvelClient&, SOut&) = [](CQuorvelClient&, SOut&) { return 0; })
{
    constexpr auto pNew = []() -> std::unique_ptr<CQuorvelClient> {
        if constexpr (std::is_same_v<C, CQuorvelClientCANDll>)
            return std::make_unique<C>(1, LONG);
        else
            return std::make_unique<C>(LONG);
    };
    const CCommands aoCommon = Common<C>();
    aoCommands.insert(aoCommands.end(), aoCommon.begin(), aoCommon.end());
    return {pNew()->GetDeviceType(), pNew, pSetup, nSetup, aoCommands};
}

const std::vector<SKind>& Kinds()
{
    static const std::vector<SKind> s_aoKinds = [] {
        std::vector<SKind> ao{
            Kind<CQuorvelClientDIO>(DIO()),           Kind<CQuorvelClientAD>(AD()),
            Kind<CQuorvelClientSPI>(SPI()),           Kind<CQuorvelClientTestSystemIO>(IO()),
            Kind<CQuorvelClientTestSystemPWR>(PWR()), Kind<CQuorvelClientTestSystemRelay>(Relay()),
            Kind<CQuorvelClientAWire>(AWire())};
        {
            using C = CQuorvelClientI2C;
            ao.push_back(Kind<C>(I2C(), 2, RUN(return c.RAWStart() | c.RAWSend(0xA1, 0);)));
        }
        {
            using C = CQuorvelClientRenesas;
            ao.push_back(
                Kind<C>(Renesas(), 3,
                        RUN(return c.Init() | c.CheckID("\xff\xff\xff\xff\xff\xff\xff", 7) | c.EraseAll();)));
        }
        {
            using C = CQuorvelClientFirmware;
            ao.push_back(Kind<C>(Firmware(), 1, RUN(return c.ClearFlash();)));
        }
        {
            using C = CQuorvelClientTestSystemCOM;
            ao.push_back(
                Kind<C>(COM(), 4,
                        RUN(return c.SendFile(oFile.strPath) | c.InstallConfig("cfg", oFile.strPath) |
                                       c.InstallConfig("other", oFile.strPath) | c.SetConfig("cfg");)));
        }
        using C = CQuorvelClientCAN;
        constexpr auto pSetup = RUN(return c.Open(true, false) | c.SetGlobals(500000, 0, false, true, true) |
                                               c.CANopenSetConfig(1););
        ao.push_back(Kind<C>(CAN(), 3, pSetup));
        ao.push_back(Kind<CQuorvelClientCANDll>(CAN(), 3, pSetup));
        return ao;
    }();
    return s_aoKinds;
}

// Changes the time-out of a client, which applications cannot.
inline void SetTimeout(CQuorvelClient& oClient, unsigned int nTimeout)
{
    struct SAccess : CQuorvelClient {
        static void Set(CQuorvelClient& o, unsigned int n) { o.*& SAccess::m_nTimeout = n; }
    };
    SAccess::Set(oClient, nTimeout);
}

} // namespace

#endif
