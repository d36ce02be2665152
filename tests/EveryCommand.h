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

#include <sstream>

namespace
{

constexpr unsigned short LONG = 20000;
constexpr unsigned int FLASH = 0x10000000;        // of the aWire target
constexpr const char* SMALL_FILE = "/etc/passwd"; // what it holds does not matter

// The outputs of all commands, and how they look when a command leaves them alone.
struct SOut {
    // "result name=value ..." of those that were written.
    std::string Text(int nRC) const
    {
        const SOut oOld;
        std::ostringstream oText;
        oText << std::hex << static_cast<unsigned int>(nRC) << std::dec;
        const auto fnPut = [&](const std::string& strName, const auto& now, const auto& old) {
            if (now != old)
                oText << ' ' << strName << '=' << +now;
        };
        const auto fnPutAll = [&](const char* pName, const auto& aNow, const auto& aOld) {
            for (std::size_t k = 0; k < std::size(aNow); ++k)
                fnPut(pName + std::to_string(k), aNow[k], aOld[k]);
        };
        fnPutAll("n", n, oOld.n);
        fnPutAll("w", w, oOld.w);
        fnPutAll("b", b, oOld.b);
        fnPutAll("f", f, oOld.f);
        if (ac != oOld.ac)
            oText << " ac=" << ToHex(std::string(ac.data(), 4));
        if (s != oOld.s)
            oText << " s=" << s;
        fnPut("i", i, oOld.i);
        fnPut("h", h, oOld.h);
        fnPut("size", v.size(), oOld.v.size());
        fnPut("first", v.size() > 1 ? v[1] : 7, 7U);
        fnPut("time", oTime.tv_sec != 7 || nSeconds != 7, false);
        if (oInfo.aucFirmware[0] != 7)
            oText << " info=" << ToHex(std::string(reinterpret_cast<const char*>(&oInfo), 3));
        fnPut("serial", oInfoEx.nSerialNumber, 7U);
        fnPut("hw", oInfoEx.nHWVersion, 7U);
        return oText.str();
    }

    unsigned short nWait = LONG;
    std::array<unsigned int, 4> n{7, 7, 7, 7};
    std::array<unsigned short, 3> w{1, 1, 1};
    std::array<unsigned char, 4> b{7, 7, 7, 7};
    std::array<bool, 3> f{true, true, true};
    int i = 7, nSeconds = 7;
    short h = 7, nID = 0;
    std::array<char, 2048> ac{7, 7, 7, 7};
    char* p = ac.data();
    std::string s = "7";
    std::vector<unsigned int> v{7};
    timeval oTime{7, 7};
    SQuorvelDeviceInfo oInfo{{7}, 0, 0};
    CQuorvelClientFirmware::SQuorvelDeviceInfoEx oInfoEx{7, 7, 7, {}};
    CQuorvelClientI2C::I2CCommand oStep{0xA1, 2, p};
};

struct SCommand {
    std::string strName;
    int (*pRun)(CQuorvelClient&, SOut&);
    std::string strGood = "";    // outputs of a success
    std::string strSpecial = ""; // unusual "fault:result outputs|..."; "failed:outputs" of every failure
    int nWaits = 1;              // time-outs that it waits
    int nBand = 0;               // bits added to the result of a failure
};

struct SKind {
    int nKind;
    std::unique_ptr<CQuorvelClient> (*pNewClient)();
    int nSetup; // answers to what comes before the command
    int (*pSetup)(CQuorvelClient&, SOut&);
    std::vector<SCommand> aoCommands;
};

// The class of the objects made of a client; a program may define another before.
#ifndef CLIENT
#define CLIENT(C) C
#endif
#define RUN(...)                                                                                             \
    [](CQuorvelClient& oClient, [[maybe_unused]] SOut& o) -> int {                                           \
        auto& c = static_cast<C&>(oClient);                                                                  \
        __VA_ARGS__                                                                                          \
    }
#define CALL(...) #__VA_ARGS__, RUN(return c.__VA_ARGS__;)
#define NONE RUN(static_cast<void>(c); return 0;)

// A kind's own commands and those that all have.
template<class C>
SKind Kind(int nSetup, int (*pSetup)(CQuorvelClient&, SOut&), std::vector<SCommand> aoCommands)
{
    constexpr auto pNew = []() -> std::unique_ptr<CQuorvelClient> {
        if constexpr (std::is_same_v<C, CQuorvelClientCANDll>)
            return std::make_unique<CLIENT(C)>(1, LONG);
        else
            return std::make_unique<CLIENT(C)>(LONG);
    };
    const SCommand aoCommon[] = {
        {CALL(CQuorvelClient::Info(&o.oInfo)), "info=66 6f 6c", "failed:info=00 00 00|short:0 info=66 6f 00"},
        {CALL(Status(o.s)), "s=good", "short:0 s=go|long:0 s=goodUUU"},
        {CALL(BaseReadDigital(o.n[0], o.n[1])), "n0=197120 n1=197120"},
        {CALL(BaseWriteDigital(2))},
        {CALL(ReadAnalog(o.n[0], &o.n[1], o.w[0])), "n0=12 n1=2500 w0=12", "failed:w0=0|short:0 w0=0"},
        {CALL(WriteAnalog(o.n.data(), 2))},
        {CALL(CQuorvelClient::Restart())}};
    aoCommands.insert(aoCommands.end(), std::begin(aoCommon), std::end(aoCommon));
    return {pNew()->GetDeviceType(), pNew, nSetup, pSetup, aoCommands};
}

// Commands without outputs share lines.
// clang-format off
SKind DIO()
{
    using C = CQuorvelClientDIO;
    return Kind<C>(0, NONE, {{CALL(Read(o.n[0], o.n[1])), "n0=197120 n1=197120"}, {CALL(Write(1))}});
}

SKind AD()
{
    using C = CQuorvelClientAD;
    return Kind<C>(0, NONE,
        {{CALL(ReadDigitalInput(o.n[0], o.n[1], o.n[2])), "n0=0 n1=2 n2=3", "short:0 n1=0 n2=0"},
         {CALL(Read(o.v)), "size=13 first=2500", "refused:77e size=13 first=2500|empty:out of range"}});
}

SKind SPI()
{
    using C = CQuorvelClientSPI;
#define SEQUENCE "\1\2\0\5" // reads the status: one transfer of two bytes
    return Kind<C>(0, NONE, {{CALL(SetGlobals(1000000, 2, 1, 0))},
         {CALL(GetGlobals(o.n[0], o.b[0], o.b[1], o.b[2])), "n0=1000000 b0=2 b1=1 b2=0"},
         {CALL(DataReq("\x9f", 1, o.p, 4)), "ac=ff c2 20 17",
          "refused:37e ac=ff c2 20 17|empty:c0300 ac=00 00 00 00|short:0 ac=ff c2 07 07"},
         {CALL(SequenceReq(SEQUENCE, 5, o.p, 3)), "ac=00 ff 00 07",
          "refused:37e ac=7e ff 00 07|short:0 ac=00 ff 00 07"},
         {"SequenceReq, SequenceGetCnf",
          RUN(const int nRC = c.SequenceReq(SEQUENCE, 5, &o.nID);
              return nRC != 0 ? nRC : c.SequenceGetCnf(o.nID, o.p, 2);),
          "ac=ff 00 07 07", "refused:37e ac=ff 00 07 07|empty:c0300 ac=00 00 07 07|short:0 ac=ff 00 07 07"}});
}

SKind I2C()
{
    using C = CQuorvelClientI2C;
    return Kind<C>(2, RUN(return c.RAWStart() | c.RAWSend(0xA1, 0);), {{CALL(Open(100))},
         {CALL(SetBaudrate(100000))},
         {CALL(GetBaudrate(o.n[0])), "n0=100000", "refused:17e n0=100000|empty:c0100 n0=0|short:0 n0=34464"},
         {CALL(RAWGet(1, o.b[0])), "b0=255", "refused:17e b0=255|empty:c0100 b0=0|short:0 b0=255"},
         {CALL(RAWStop())}, {CALL(RAWStart())}, {CALL(RAWSend(0xA0, 1))},
         {CALL(Read(0xA0, o.p, 3, o.w[0])), "w0=3 ac=ff ff ff 07",
          "failed:w0=0|refused:17e w0=3 ac=ff ff ff 07|"
          "empty:c0100 w0=3 ac=00 00 00 07|short:0 w0=2 ac=ff ff 07 07"},
         {CALL(Write(0xA0, "\0", 2, o.w[0])), "w0=0", "refused:17e w0=0|short:0 w0=0"},
         {CALL(WriteSequence("\xA1\0\2", 4, o.p, 2, o.w[0], o.w[1])), "w0=2 w1=0 ac=ff ff 07 07",
          "refused:17e w0=2 w1=0 ac=ff ff 07 07|short:0 w0=0 w1=0"},
         {CALL(WriteSequence(&o.oStep, 1, o.w[0])), "w0=0 ac=ff ff 07 07",
          "refused:17e w0=0 ac=ff ff 07 07|short:0 w0=0"}, {CALL(Reset())},
         {CALL(WriteEEProm(0, 9, 15, "x", 1))}, {CALL(WriteEEPromPollAck(0, 9, 15, "x", 1, 1000))},
         {CALL(ReadEEProm(0, 0, 15, o.p, 3, o.w[0])), "w0=3 ac=ff ff ff 07",
          "refused:17e w0=3 ac=ff ff ff 07|empty:c0100 w0=3 ac=00 00 00 07|short:0 w0=2 ac=ff ff 07 07"}});
}

template<class C>
SKind CAN()
{
    return Kind<C>(3,
        RUN(return c.Open(true, false) | c.SetGlobals(500000, 0, false, true, true) | c.CANopenSetConfig(1);),
        {{CALL(Open(true, false))}, {CALL(SetFilter({}))}, {CALL(SetGlobals(500000, 0, false, true, true))},
         {CALL(GetConfig(o.f[0], o.f[1])), "f1=0", "short:0 f1=0"},
         {"GetFilter",
          RUN(typename C::SConfigFilter oFilter{{7}}; const int nRC = c.GetFilter(oFilter);
              o.n[0] = oFilter.anValues[0]; return nRC;), "n0=0"},
         {CALL(GetGlobals(o.n[0], o.b[0], o.f[0], o.f[1], o.f[2])), "n0=500000 b0=0 f0=0"},
         {CALL(GetZCardParameter(o.b[0], o.w[0], o.w[1])), "w0=0 w1=0 b0=0"},
         {CALL(SetZCardParameter(1, 2, 3))}, {CALL(GetTime(o.f[0], o.oTime)), "f0=0 time=1"},
         {CALL(SetTime({1, 2}))},
         {CALL(GetPowerStatus(1, o.b[0], 1, o.b[1], 1, o.b[2], o.h, o.w[0], o.w[1], o.f[0], &o.w[2], &o.f[1],
                              &o.f[2])), "w0=24000 w1=100 w2=0 b0=4 b1=4 b2=2 f0=0 f2=0 h=315"},
         {CALL(SetPowerRelais(false))}, {CALL(SetActivePowerSupplies(15))},
         {CALL(Write(1, "ab", 2, 0, &o.nSeconds, nullptr)), "time=1", // the time comes with failures, too
          "refused:27e time=1|badcheck:a0000 time=1|badcode:b0000 time=1"},
         {"SetConfig, unconfirmed Write",
          RUN(const int nRC = c.SetConfig(false, false);
              return nRC != 0 ? nRC : c.Write(1, "ab", 2, 0, nullptr, nullptr);)},
         {CALL(CANopenSetConfig(1))}, {CALL(CANopenSetSYNCMode(0))}, {CALL(CANopenSendNMT(1, 1))},
         {CALL(CANopenSendSYNC())}, {CALL(CANopenSendTIME(1, 2))}, {CALL(CANopenSendPDO(1, 1, 4, "abcd"))},
         {CALL(CANopenGetConfig(o.b[0])), "b0=1", "short:0 b0=1"},
         {CALL(CANopenSendSDORead(1, 0x1000, 0, o.nWait, o.b[0], o.n[0])), "n0=196753 b0=0",
          "short:0 n0=4294967185 b0=0", 2},
         {CALL(CANopenSendSDOWrite(4, 1, 0x2000, 0, o.nWait, 5, o.b[0], o.n[0])), "n0=0 b0=0",
          "short:0 n0=0 b0=0", 2},
         {CALL(CANopenSendSDOReadBlock(1, 0x1008, 0, o.nWait, 3, o.b[0], o.w[0], &o.b[1])),
          "w0=3 b0=0 b1=0 b2=81 b3=117", "short:0 b0=0 b1=0", 2},
         {CALL(CANopenSendSDOWriteBlock(1, 0x2010, 0, o.nWait, 2, o.b.data(), o.b[0], o.n[0])), "n0=0 b0=0",
          "short:0 n0=0 b0=0", 2}});
}

SKind Renesas()
{
    using C = CQuorvelClientRenesas;
#define ID "\xff\xff\xff\xff\xff\xff\xff"
    return Kind<C>(3, RUN(return c.Init() | c.CheckID(ID, 7) | c.EraseAll();), {{CALL(Init())},
         {CALL(CheckID(ID, 7))}, {CALL(SetBaudrate(0))},
         {CALL(ReadPage(0, o.p, 3, o.w[0])), "w0=3 ac=ff ff ff 07",
          "refused:97e w0=3 ac=ff ff ff 07|empty:c0900 w0=3 ac=00 00 00 07|short:0 w0=2 ac=ff ff 07 07"},
         {CALL(WritePage(1, "x", 1))}, {CALL(EraseAll())}, {CALL(BlockErase(1))},
         {CALL(GetVersion(o.p, 3)), "ac=53 49 4d 07",
          "refused:97e ac=53 49 4d 07|empty:c0900 ac=00 00 00 07|short:0 ac=53 49 07 07"},
         {CALL(VerifyCheck(0, 1, o.w[0])), "w0=510", "refused:97e w0=510|short:0 w0=510"},
         {CALL(Complete())}});
}

SKind Firmware()
{
    using C = CQuorvelClientFirmware;
    return Kind<C>(1, RUN(return c.ClearFlash();), {{CALL(GetEEPromInfo(o.i)), "i=65536"},
         {CALL(ReadEEProm(256, o.p, 3, o.w[0])), "w0=3 ac=ff ff ff 07", "short:0 w0=2 ac=ff ff 07 07",
          1, 0x100}, {CALL(WriteEEProm(300, "x", 1)), "", "", 1, 0x100},
         {CALL(ReadFlash(5, o.p, o.n[0])), "n0=2048 ac=ff ff ff ff",
          "failed:n0=0|short:0 n0=2 ac=ff ff 07 07"}, {CALL(WriteFlash(0, o.p))}, {CALL(ClearFlash())},
         {CALL(GetInfo(o.oInfoEx)), "serial=1001 hw=2147549186", "short:0 serial=0 hw=0", 1, 0x100},
         {"SetInfo", RUN(C::SQuorvelDeviceInfoEx oInfo{1001, 0x80010002, 0x10000, {}};
                         return c.SetInfo(oInfo);), "", "", 1, 0x100}, {CALL(Restart())}});
}

SKind COM()
{
    using C = CQuorvelClientTestSystemCOM;
    return Kind<C>(4, RUN(return c.SendFile(SMALL_FILE) | c.InstallConfig("cfg", SMALL_FILE) |
                                  c.InstallConfig("other", SMALL_FILE) | c.SetConfig("cfg");),
                   {{CALL(GetConfig(o.s)), "s=cfg", "short:0 s=cf|long:0 s=cfgUUU"},
                    {CALL(IsConfigAvailable("absent", o.f[0], o.n[0])), "n0=0 f0=0", "short:0 f0=0"},
                    {CALL(SetConfig("other"))}, {CALL(SendFile(SMALL_FILE))},
                    {CALL(InstallConfig("third", SMALL_FILE))}});
}

#define VALUES(WHAT) {CALL(Get##WHAT(o.w.data(), 2)), "w0=0 w1=0", "short:0 w0=0"}, {CALL(Set##WHAT(o.w.data(), 2))}
SKind IO()
{
    using C = CQuorvelClientTestSystemIO;
    return Kind<C>(0, NONE, {VALUES(Value), VALUES(Power)});
}

SKind PWR()
{
    using C = CQuorvelClientTestSystemPWR;
    return Kind<C>(0, NONE, {VALUES(Value)});
}

SKind Relay()
{
    using C = CQuorvelClientTestSystemRelay;
    return Kind<C>(0, NONE, {VALUES(Power), {CALL(SetRelay(1, true))}});
}

SKind AWire()
{
    using C = CQuorvelClientAWire;
    // Writes are reported, not answered: what goes wrong with answers does not concern them, but the next command.
#define REPORTED(WRITE) #WRITE, RUN(auto e = C::Progress::eInProgress; const int nRC = c.WRITE;                \
        const auto fnTold = [&] { return c.GetWriteBlockStatus(o.nID, e, o.w[0], o.w[1]) != 0 || e != 1; };  \
        return nRC != 0 || !WaitUntil(std::cref(fnTold)) ? nRC : c.Status(o.s);), "s=good", "short:0 s=go|long:0 s=goodUUU"
#define CONFIG "n0=1000000 n1=268435456 n2=1048576 n3=512 s=simulated target"
    return Kind<C>(0, NONE,
                   {{CALL(GetConfig(o.n[0], o.n[1], o.n[2], o.n[3], o.s)), CONFIG, "long:0 " CONFIG "UUU"},
                    {CALL(SetConfig(1000000, FLASH, 1048576, 512, "target"))},
                    {CALL(Read(FLASH, 3, o.p, o.w[0])), "w0=3 ac=ff ff ff 07", "short:0 w0=2 ac=ff ff 07 07"},
                    {CALL(Verify(FLASH, 3, "\xff\xff\xff")), "", "short:e26"}, {CALL(Erase(0))},
                    {CALL(EraseUserPage())},
                    {"WriteFile", RUN(auto e = C::FileStep::eWriting; unsigned char n = 0; const int nRC = c.WriteFile("");
                                      c.GetWriteFileStatus(e, n); return nRC;)},
                    {REPORTED(WriteBlock(FLASH, 1, "\xff", o.nID))},
                    {REPORTED(WriteUserPage(0, 1, "\xff", o.nID))}});
}
// clang-format on

const std::vector<SKind>& Kinds()
{
    static const std::vector<SKind> s_aoKinds{DIO(),      AD(),    SPI(),  I2C(), CAN<CQuorvelClientCAN>(),
                                              Renesas(),  COM(),   IO(),   PWR(), CAN<CQuorvelClientCANDll>(),
                                              Firmware(), Relay(), AWire()};
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
