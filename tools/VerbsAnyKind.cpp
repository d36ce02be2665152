// The verbs for gateways of any kind: info, status, restart, ping, scan, digital, analog.

#include "Gateway.h"
#include "Groups.h"
#include "Kinds.h"
#include "QuorvelClientAD.h"
#include "Text.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fmt/chrono.h>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>

namespace
{

using CClock = std::chrono::steady_clock;

double Milliseconds(CClock::duration oTime)
{
    return std::chrono::duration<double, std::milli>(oTime).count();
}

// A kind's name or number as its number.
std::string ParseKind(std::string& strText)
{
    const auto nNumber = ParseNumber(strText, 255);
    std::vector<std::string> astrNames;
    for (const SKind& oKind : KINDS) {
        if (CLI::detail::to_lower(strText) == CLI::detail::to_lower(oKind.pName) ||
            nNumber == static_cast<std::uint64_t>(oKind.eKind)) {
            strText = std::to_string(static_cast<int>(oKind.eKind));
            return "";
        }
        astrNames.emplace_back(oKind.pName);
    }
    return fmt::format("{} is no kind of gateway; there are {}", Quote(strText), fmt::join(astrNames, ", "));
}

// A verb for the kind of gateway that --kind tells.
class CKindVerb : public CVerb
{
  public:
    CKindVerb(CLI::App& oGroup, const std::string& strName, const std::string& strText)
        : CVerb(oGroup, strName, strText)
    {
        m_oApp.add_option("--kind", m_nKind, "Kind of the gateway, by name or number: see quorvel kinds")
            ->type_name("KIND")
            ->required()
            ->transform(CLI::Validator(ParseKind, ""));
    }

  protected:
    EQuorvelDevice GetKind() const { return static_cast<EQuorvelDevice>(m_nKind); }

    /// @return the gateway as remarks name it
    std::string GetName(CTool& oTool) const { return oTool.GetGatewayName(GetKind()); }

  private:
    int m_nKind = 0;
};

using CAnyGateway = CGateway<CQuorvelClient>;

class CInfo : public CKindVerb
{
  public:
    explicit CInfo(CLI::App& oGroup) : CKindVerb(oGroup, "info", "Print the device record")
    {
        m_oApp.footer("Prints the kind, the 18 bytes that the gateway's firmware defines, in hex and as "
                      "characters, and the last byte, which the firmware defines too.\n\n"
                      "quorvel -g 192.168.0.10 info --kind SPI");
    }

    int Run(CTool& oTool) override
    {
        CAnyGateway oGateway(oTool, GetKind());
        SQuorvelDeviceInfo oInfo{};
        int nStatus = oGateway.OpenGateway();
        if (nStatus == 0)
            nStatus = oGateway.Check("information", oGateway.Info(&oInfo), sizeof oInfo);
        if (nStatus != 0)
            return nStatus;
        const char* const pName = GetKindName(static_cast<EQuorvelDevice>(oInfo.nDeviceType));
        const std::string strFirmware(std::begin(oInfo.aucFirmware), std::end(oInfo.aucFirmware));
        const std::string strText = ToPrintable(strFirmware);
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"kind", oInfo.nDeviceType},
                              {"name", pName},
                              {"firmware", ToHex(strFirmware, "")},
                              {"text", strText},
                              {"reserved", oInfo.nReserved}});
        else
            fmt::print("kind      {} ({})\nfirmware  {}  |{}|\nreserved  {:02x}\n", oInfo.nDeviceType, pName,
                       ToHex(strFirmware), strText, oInfo.nReserved);
        return eStatusDone;
    }
};

class CStatus : public CKindVerb
{
  public:
    explicit CStatus(CLI::App& oGroup) : CKindVerb(oGroup, "status", "Print the status text")
    {
        m_oApp.footer("quorvel -g 192.168.0.10 status --kind CAN");
    }

    int Run(CTool& oTool) override
    {
        CAnyGateway oGateway(oTool, GetKind());
        std::string strText;
        int nStatus = oGateway.OpenGateway();
        if (nStatus == 0)
            nStatus = oGateway.Check("status", oGateway.Status(strText));
        if (nStatus != 0)
            return nStatus;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"status", strText}});
        else
            fmt::print("{}\n", ToHarmless(strText, true));
        return eStatusDone;
    }
};

class CRestart : public CKindVerb
{
  public:
    explicit CRestart(CLI::App& oGroup) : CKindVerb(oGroup, "restart", "Restart the gateway")
    {
        m_oApp.add_flag_callback(
            "--no-wait", [this] { m_bWait = false; }, "Do not wait until the gateway answers again");
        m_oApp.footer(
            "All clients of the gateway lose their connection. Waits until the gateway has closed this "
            "one and answers again on a new one, and prints how long that took; --timeout holds for all "
            "of it, and has to be longer than the gateway needs.\n\n"
            "Status 4: the gateway does not answer again within the time-out.\n\n"
            "quorvel -g 192.168.0.10 --timeout 20000 restart --kind SPI");
    }

    int Run(CTool& oTool) override
    {
        CRestarting oGateway(oTool, GetKind());
        int nStatus = oGateway.OpenGateway();
        const auto oStart = CClock::now();
        if (nStatus == 0)
            nStatus = oGateway.Check("restart", oGateway.Restart());
        if (nStatus != 0 || !m_bWait)
            return nStatus;
        const unsigned nTimeout = oTool.GetOptions().nTimeout;
        while (true) {
            const double dElapsed = Milliseconds(CClock::now() - oStart);
            if (dElapsed >= nTimeout)
                return oTool.Fail(
                    eStatusNoAnswer,
                    fmt::format("{}: restart: does not answer again within {} ms", GetName(oTool), nTimeout));
            if (!oGateway.IsConnected() &&
                oGateway.Answers(oTool.GetOptions().strHost, oTool.GetPort(GetKind()),
                                 nTimeout - static_cast<unsigned>(dElapsed)))
                break;
            if (!oTool.GetInterrupt().Wait(PAUSE))
                return oTool.Fail(eStatusNoAnswer, ""); // the signal's status
        }
        const double dSeconds = Milliseconds(CClock::now() - oStart) / 1000;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"seconds", dSeconds}});
        else
            fmt::print("answers again after {:.2f} s\n", dSeconds);
        return eStatusDone;
    }

  private:
    static constexpr std::chrono::milliseconds PAUSE{10};
    static constexpr unsigned MAX_TRY = 500; // milliseconds: a gateway that is booting drops what comes

    class CRestarting : public CAnyGateway
    {
      public:
        using CAnyGateway::CAnyGateway;
        ~CRestarting() override { StopReception(); }

        bool IsConnected() const { return GetConnectState() == 3; }

        // Tries to connect and to get an answer.
        bool Answers(const std::string& strHost, unsigned short nPort, unsigned nTimeout)
        {
            m_nTimeout = std::min(nTimeout, MAX_TRY);
            std::string strText;
            const bool bAnswers = Connect(strHost.c_str(), nPort, CZelIPBase::eProtocolTCP, true) == 0 &&
                                  Open() == 0 && (Status(strText) & TRANSPORT) == 0;
            if (!bAnswers)
                Disconnect();
            return bAnswers;
        }
    };

    bool m_bWait = true;
};

class CPing : public CKindVerb
{
  public:
    explicit CPing(CLI::App& oGroup)
        : CKindVerb(oGroup, "ping", "Measure how long the gateway takes to answer")
    {
        m_oApp.add_option("-c,--count", m_nCount, "How many requests; default: until Ctrl-C")
            ->type_name("N")
            ->check(CLI::Range(1U, 0xFFFFFFFFU).description(""));
        m_oApp.add_option("-i,--interval", m_dInterval, "Seconds from one request to the next")
            ->type_name("SECONDS")
            ->capture_default_str()
            ->check(CLI::Range(0.0, 86400.0).description(""));
        m_oApp.footer(
            "Asks for the status text, prints each round trip, and at the end how many requests were lost "
            "and the least, the median and the greatest round trip. A request is lost when there is no "
            "connection or no answer within the time-out; a lost connection is made again.\n\n"
            "Status 4: all requests were lost.\n\n"
            "quorvel -g 192.168.0.10 ping --kind CAN -c 10 -i 0.1");
    }

    int Run(CTool& oTool) override
    {
        if (oTool.GetOptions().strHost.empty())
            return oTool.Fail(eStatusUsage, "which gateway? Give its address: -g HOST");
        CAnyGateway oGateway(oTool, GetKind());
        std::vector<double> adTimes;
        unsigned nSent = 0;
        auto oNext = CClock::now();
        while (true) {
            const int nRC = Connected(oTool, oGateway);
            const auto oStart = CClock::now();
            std::string strText;
            const int nResult = nRC == 0 ? oGateway.GetReason(oGateway.Status(strText)) : nRC;
            const double dTime = Milliseconds(CClock::now() - oStart);
            if (oTool.GetInterrupt().GetSignal() != 0)
                break;
            ++nSent;
            const bool bAnswered = (nResult & TRANSPORT) == 0;
            if (bAnswered)
                adTimes.push_back(dTime);
            Print(oTool, nSent, bAnswered, dTime, nResult);
            if (const int nStatus = oTool.Flush(); nStatus != 0)
                return nStatus;
            oNext += std::chrono::duration_cast<CClock::duration>(std::chrono::duration<double>(m_dInterval));
            oNext = std::max(oNext, CClock::now());
            if (nSent == m_nCount || !oTool.GetInterrupt().Wait(oNext - CClock::now()))
                break;
        }
        Summarise(oTool, nSent, std::move(adTimes));
        return m_bAnswered ? eStatusDone : eStatusNoAnswer;
    }

  private:
    int Connected(CTool& oTool, CAnyGateway& oGateway) const
    {
        if (oGateway.GetConnectState() == 3)
            return 0;
        oGateway.Disconnect();
        const int nRC = oGateway.Connect(oTool.GetOptions().strHost.c_str(), oTool.GetPort(GetKind()),
                                         CZelIPBase::eProtocolTCP, true);
        return nRC == 0 ? static_cast<CQuorvelClient&>(oGateway).Open() : nRC;
    }

    void Print(CTool& oTool, unsigned nSent, bool bAnswered, double dTime, int nResult)
    {
        m_bAnswered = m_bAnswered || bAnswered;
        const std::string strError =
            nResult == 0
                ? ""
                : fmt::format("0x{:08X}, {}", static_cast<unsigned>(nResult), QuorvelErrorMsg(nResult));
        if (oTool.GetOptions().bJson) {
            CJson oData{{"request", nSent}, {"answered", bAnswered}};
            if (bAnswered)
                oData["milliseconds"] = dTime;
            if (nResult != 0)
                oData["error"] = strError;
            CTool::PrintJson(oData);
        } else {
            fmt::print("{}: request {}: {}{}{}\n", GetName(oTool), nSent,
                       bAnswered ? fmt::format("{:.3f} ms", dTime) : "lost", strError.empty() ? "" : ": ",
                       strError);
        }
    }

    static void Summarise(CTool& oTool, unsigned nSent, std::vector<double> adTimes)
    {
        std::sort(adTimes.begin(), adTimes.end());
        const std::size_t nAnswered = adTimes.size();
        const double dMedian =
            nAnswered == 0 ? 0 : (adTimes[(nAnswered - 1) / 2] + adTimes[nAnswered / 2]) / 2;
        if (oTool.GetOptions().bJson) {
            CJson oData{{"requests", nSent}, {"answers", nAnswered}, {"lost", nSent - nAnswered}};
            if (nAnswered > 0)
                oData.update({{"min", adTimes.front()}, {"median", dMedian}, {"max", adTimes.back()}});
            CTool::PrintJson(oData);
            return;
        }
        fmt::print("{} requests, {} answers, {} lost\n", nSent, nAnswered, nSent - nAnswered);
        if (nAnswered > 0)
            fmt::print("round trip min/median/max = {:.3f}/{:.3f}/{:.3f} ms\n", adTimes.front(), dMedian,
                       adTimes.back());
    }

    unsigned m_nCount = 0;
    double m_dInterval = 1;
    bool m_bAnswered = false;
};

class CScan : public CVerb
{
  public:
    explicit CScan(CLI::App& oGroup) : CVerb(oGroup, "scan", "Find the gateways behind an address")
    {
        m_oApp.add_option("HOST", m_strHost, "Address or name; without it that of -g")
            ->type_name("")
            ->check(CLI::Validator(CheckHost, ""));
        m_oApp
            .add_option("--indexes", m_strIndexes,
                        "Port indexes to try, such as 2 or 0-3; without it that of --port-index")
            ->type_name("FIRST[-LAST]");
        m_oApp.footer(
            "Asks for the status text at the port of every kind, at all of them at once. Prints for each "
            "that is open: kind, name, port index, port and status text. An open port where no gateway of "
            "this kind answers is told apart: what is wrong is in parentheses.\n\n"
            "With --json, state is gateway, or open for such a port.\n\n"
            "Status 4: there is no gateway.\n\n"
            "quorvel scan 192.168.0.10 --indexes 0-3");
    }

    int Run(CTool& oTool) override
    {
        std::string& strGateway = oTool.GetOptions().strHost;
        if (m_strHost.empty())
            m_strHost = strGateway;
        if (m_strHost.empty())
            return oTool.Fail(eStatusUsage, "which gateway? Give its address: -g HOST");
        if (!strGateway.empty() && strGateway != m_strHost)
            return oTool.Fail(eStatusUsage,
                              fmt::format("{} and -g {} contradict each other", m_strHost, strGateway));
        strGateway = m_strHost;
        if (m_strIndexes.empty())
            m_strIndexes = std::to_string(oTool.GetOptions().nPortIndex);
        const std::string_view strIndexes = m_strIndexes;
        const auto nDash = strIndexes.find('-');
        const auto nFirst = ParseNumber(strIndexes.substr(0, nDash), MAX_PORT_INDEX);
        const auto nLast = nDash == std::string_view::npos
                               ? nFirst
                               : ParseNumber(strIndexes.substr(nDash + 1), MAX_PORT_INDEX);
        if (!nFirst || !nLast || *nLast < *nFirst)
            return oTool.Fail(eStatusUsage, fmt::format("--indexes: {} is no range such as 0-3, of 0 to {}",
                                                        Quote(m_strIndexes), MAX_PORT_INDEX));
        for (auto nIndex = static_cast<unsigned>(*nFirst); nIndex <= *nLast; ++nIndex) {
            oTool.GetOptions().nPortIndex = nIndex;
            for (const SKind& oKind : KINDS)
                m_aoTargets.push_back({oKind.eKind, nIndex, oTool.GetPort(oKind.eKind),
                                       std::make_unique<CAnyGateway>(oTool, oKind.eKind)});
        }
        oTool.GetInterrupt().SetAction([this] {
            for (const STarget& oTarget : m_aoTargets)
                oTarget.pGateway->Abort();
        });
        AskAll(oTool.GetInterrupt());
        const bool bFound = Print(oTool.GetOptions().bJson);
        m_aoTargets.clear();
        return bFound
                   ? eStatusDone
                   : oTool.Fail(eStatusNoAnswer,
                                fmt::format("{}: no gateway answers (or there is no such host)", m_strHost));
    }

  private:
    static constexpr std::size_t MAX_THREADS = 64;

    struct STarget {
        EQuorvelDevice eKind;
        unsigned nIndex;
        unsigned short nPort;
        std::unique_ptr<CAnyGateway> pGateway;
        bool bOpen = false;
        int nRC = 0;
        std::string strStatus{};
    };

    void AskAll(const CInterrupt& oInterrupt)
    {
        std::atomic<std::size_t> nNext{0};
        const auto AskNext = [&] {
            for (std::size_t i = nNext++; i < m_aoTargets.size() && oInterrupt.GetSignal() == 0;
                 i = nNext++) {
                STarget& oTarget = m_aoTargets[i];
                CAnyGateway& oClient = *oTarget.pGateway;
                oTarget.nRC =
                    oClient.Connect(m_strHost.c_str(), oTarget.nPort, CZelIPBase::eProtocolTCP, true);
                if (oTarget.nRC != 0)
                    continue;
                oTarget.bOpen = true;
                static_cast<CQuorvelClient&>(oClient).Open();
                oTarget.nRC = oClient.GetReason(oClient.Status(oTarget.strStatus));
                oClient.Disconnect();
            }
        };
        std::vector<std::thread> aoThreads;
        for (std::size_t i = 0; i < std::min(m_aoTargets.size(), MAX_THREADS); ++i)
            aoThreads.emplace_back(AskNext);
        for (std::thread& oThread : aoThreads)
            oThread.join();
    }

    // Prints what was found. @return true if there is a gateway
    bool Print(bool bJson)
    {
        bool bFound = false;
        for (STarget& oTarget : m_aoTargets) {
            if (!oTarget.bOpen)
                continue;
            const bool bGateway = (oTarget.nRC & TRANSPORT) == 0;
            bFound = bFound || bGateway;
            if (bJson) {
                CJson oData{{"kind", static_cast<int>(oTarget.eKind)},
                            {"name", GetKindName(oTarget.eKind)},
                            {"index", oTarget.nIndex},
                            {"port", oTarget.nPort},
                            {"state", bGateway ? "gateway" : "open"}};
                if (oTarget.nRC == 0)
                    oData["status"] = oTarget.strStatus;
                else
                    oData["error"] = GetError(oTarget.nRC);
                CTool::PrintJson(oData);
                continue;
            }
            fmt::print("{:2}  {:<8}  {:3}  {:5}  {}\n", static_cast<int>(oTarget.eKind),
                       GetKindName(oTarget.eKind), oTarget.nIndex, oTarget.nPort,
                       oTarget.nRC == 0
                           ? ToHarmless(oTarget.strStatus)
                           : fmt::format("({}: {})", bGateway ? "refuses" : "open, but no gateway answers",
                                         GetError(oTarget.nRC)));
        }
        return bFound;
    }

    static std::string GetError(int nRC)
    {
        return fmt::format("0x{:08X}, {}", static_cast<unsigned>(nRC), QuorvelErrorMsg(nRC));
    }

    std::string m_strHost;
    std::string m_strIndexes;
    std::vector<STarget> m_aoTargets;
};

// --- Digital and analog lines ------------------------------------------------------------------------------------

// A verb that prints what changes.
class CWatchVerb : public CKindVerb
{
  public:
    explicit CWatchVerb(CLI::App& oGroup) : CKindVerb(oGroup, "watch", "Print changes with time stamps")
    {
        m_oApp.add_option("--interval", m_nInterval, "Time from one reading to the next")
            ->type_name("MS")
            ->capture_default_str()
            ->check(CLI::Range(1U, 86400000U).description(""));
        m_oApp.add_option("-n,--count", m_nCount, "End after so many lines; default: at Ctrl-C")
            ->type_name("N")
            ->check(CLI::Range(1U, 0xFFFFFFFFU).description(""));
    }

  protected:
    /**
     * Reads again and again, until enough lines are printed or a signal comes.
     * @param fnRead reads, prints if there is a change and tells so
     * @return an exit status
     */
    int Watch(CTool& oTool, const std::function<int(bool& bPrinted)>& fnRead) const
    {
        for (unsigned nPrinted = 0;;) {
            bool bPrinted = false;
            if (const int nStatus = fnRead(bPrinted); nStatus != 0)
                return nStatus;
            if (bPrinted) {
                if (const int nStatus = oTool.Flush(); nStatus != 0)
                    return nStatus;
                if (++nPrinted == m_nCount)
                    return eStatusDone;
            }
            if (!oTool.GetInterrupt().Wait(std::chrono::milliseconds(m_nInterval)))
                return oTool.Fail(eStatusNoAnswer, ""); // the signal's status
        }
    }

    /// Prints a line: the time, then a text or JSON members.
    static void PrintChange(CTool& oTool, const std::string& strText, const CJson& oMembers)
    {
        const auto oNow = std::chrono::system_clock::now();
        const auto nMilliseconds =
            std::chrono::duration_cast<std::chrono::milliseconds>(oNow.time_since_epoch()).count();
        if (oTool.GetOptions().bJson) {
            CJson oData{{"time", static_cast<double>(nMilliseconds) / 1000}};
            oData.update(oMembers);
            CTool::PrintJson(oData);
        } else {
            fmt::print("{:%Y-%m-%d %H:%M:%S}.{:03}  {}\n",
                       fmt::localtime(std::chrono::system_clock::to_time_t(oNow)), nMilliseconds % 1000,
                       strText);
        }
    }

  private:
    unsigned m_nInterval = 100;
    unsigned m_nCount = 0;
};

int ReadDigital(CAnyGateway& oGateway, unsigned& nInputs, unsigned& nOutputs)
{
    return oGateway.Check("read digital", oGateway.BaseReadDigital(nInputs, nOutputs), 8);
}

class CDigitalRead : public CKindVerb
{
  public:
    explicit CDigitalRead(CLI::App& oGroup)
        : CKindVerb(oGroup, "read", "Print the digital inputs and outputs")
    {
        m_oApp.footer("quorvel -g 192.168.0.10 digital read --kind DIO");
    }

    int Run(CTool& oTool) override
    {
        CAnyGateway oGateway(oTool, GetKind());
        unsigned nInputs = 0;
        unsigned nOutputs = 0;
        int nStatus = oGateway.OpenGateway();
        if (nStatus == 0)
            nStatus = ReadDigital(oGateway, nInputs, nOutputs);
        if (nStatus != 0)
            return nStatus;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"inputs", nInputs}, {"outputs", nOutputs}});
        else
            fmt::print("inputs   0x{:08x}\noutputs  0x{:08x}\n", nInputs, nOutputs);
        return eStatusDone;
    }
};

class CDigitalWrite : public CKindVerb
{
  public:
    explicit CDigitalWrite(CLI::App& oGroup) : CKindVerb(oGroup, "write", "Set the digital outputs")
    {
        m_oApp.add_option("VALUE", m_nValue, "One bit for each output, 32 at most")
            ->type_name("")
            ->required();
        m_oApp.add_option("--mask", m_nMask, "Change only these bits: the outputs are read before")
            ->type_name("MASK");
        m_oApp.footer("quorvel -g 192.168.0.10 digital write --kind DIO 0x05\n\n"
                      "quorvel -g 192.168.0.10 digital write --kind DIO 0x04 --mask 0x0c");
    }

    int Run(CTool& oTool) override
    {
        CAnyGateway oGateway(oTool, GetKind());
        unsigned nInputs = 0;
        unsigned nOutputs = 0;
        int nStatus = oGateway.OpenGateway();
        if (nStatus == 0 && m_nMask != ALL)
            nStatus = ReadDigital(oGateway, nInputs, nOutputs);
        if (nStatus != 0)
            return nStatus;
        return oGateway.Check("write digital",
                              oGateway.BaseWriteDigital((nOutputs & ~m_nMask) | (m_nValue & m_nMask)));
    }

  private:
    static constexpr unsigned ALL = 0xFFFFFFFF;

    unsigned m_nValue = 0;
    unsigned m_nMask = ALL;
};

class CDigitalWatch : public CWatchVerb
{
  public:
    explicit CDigitalWatch(CLI::App& oGroup) : CWatchVerb(oGroup)
    {
        m_oApp.footer("Prints inputs and outputs at once, then whenever one of them has changed.\n\n"
                      "quorvel -g 192.168.0.10 digital watch --kind DIO --interval 20");
    }

    int Run(CTool& oTool) override
    {
        CAnyGateway oGateway(oTool, GetKind());
        if (const int nStatus = oGateway.OpenGateway(); nStatus != 0)
            return nStatus;
        std::optional<std::pair<unsigned, unsigned>> oLast;
        return Watch(oTool, [&](bool& bPrinted) {
            std::pair<unsigned, unsigned> oNow;
            const int nStatus = ReadDigital(oGateway, oNow.first, oNow.second);
            if (nStatus != 0 || oNow == oLast)
                return nStatus;
            PrintChange(oTool, fmt::format("inputs 0x{:08x}  outputs 0x{:08x}", oNow.first, oNow.second),
                        {{"inputs", oNow.first}, {"outputs", oNow.second}});
            oLast = oNow;
            bPrinted = true;
            return nStatus;
        });
    }
};

using CValues = std::vector<unsigned>;

// Reads the analog values. @return a result code
int ReadValues(CQuorvelClient& oClient, CValues& anValues)
{
    anValues.assign(16384, 0); // more than a telegram holds
    auto nCount = static_cast<unsigned short>(anValues.size());
    unsigned nInfo = 0; // as the gateway defines it; the values speak for themselves
    const int nRC = oClient.ReadAnalog(nInfo, anValues.data(), nCount);
    anValues.resize(nCount);
    return nRC;
}

// The AD gateway has a command of its own for all of its channels.
int ReadValues(CQuorvelClientAD& oClient, CValues& anValues)
{
    anValues.clear();
    try {
        return oClient.Read(anValues);
    } catch (const std::out_of_range&) {
        return 0x000C0000; // an answer without anything in it
    }
}

// Connects, then does something with a function that reads the analog values and reports failures.
template<class TFunction>
int WithAnalog(CTool& oTool, EQuorvelDevice eKind, const TFunction& fnDo)
{
    const auto Do = [&](auto& oGateway) {
        const int nStatus = oGateway.OpenGateway();
        return nStatus != 0 ? nStatus : fnDo([&](CValues& anValues) {
            return oGateway.Check("read analog", ReadValues(oGateway, anValues), 4);
        });
    };
    if (eKind == eDeviceAD) {
        CGateway<CQuorvelClientAD> oGateway(oTool);
        return Do(oGateway);
    }
    CAnyGateway oGateway(oTool, eKind);
    return Do(oGateway);
}

class CAnalogRead : public CKindVerb
{
  public:
    explicit CAnalogRead(CLI::App& oGroup) : CKindVerb(oGroup, "read", "Print the analog values")
    {
        m_oApp.footer(
            "Prints one line for each channel: its number, from 0, and its value as the gateway defines "
            "it.\n\n"
            "quorvel -g 192.168.0.10 analog read --kind AD");
    }

    int Run(CTool& oTool) override
    {
        return WithAnalog(oTool, GetKind(), [&](const auto& fnRead) {
            CValues anValues;
            const int nStatus = fnRead(anValues);
            if (nStatus != 0)
                return nStatus;
            if (oTool.GetOptions().bJson)
                CTool::PrintJson({{"values", anValues}});
            for (std::size_t i = 0; !oTool.GetOptions().bJson && i < anValues.size(); ++i)
                fmt::print("{:2}  {}\n", i, anValues[i]);
            return nStatus;
        });
    }
};

class CAnalogWrite : public CKindVerb
{
  public:
    explicit CAnalogWrite(CLI::App& oGroup) : CKindVerb(oGroup, "write", "Set the analog outputs")
    {
        m_oApp.add_option("VALUES", m_anValues, "The outputs from the first on, of 32 bits each")
            ->type_name("")
            ->required();
        m_oApp.footer("quorvel -g 192.168.0.10 analog write --kind AD 1000 2500");
    }

    int Run(CTool& oTool) override
    {
        if (m_anValues.size() > MAX_VALUES)
            return oTool.Fail(eStatusUsage, fmt::format("VALUES: {} at most", MAX_VALUES));
        CAnyGateway oGateway(oTool, GetKind());
        const int nStatus = oGateway.OpenGateway();
        return nStatus != 0
                   ? nStatus
                   : oGateway.Check("write analog",
                                    oGateway.WriteAnalog(m_anValues.data(),
                                                         static_cast<unsigned short>(m_anValues.size())));
    }

  private:
    static constexpr std::size_t MAX_VALUES = 16382; // what a telegram holds

    CValues m_anValues;
};

class CAnalogWatch : public CWatchVerb
{
  public:
    explicit CAnalogWatch(CLI::App& oGroup) : CWatchVerb(oGroup)
    {
        m_oApp.add_option("--channels", m_anChannels, "Only these channels, separated by commas")
            ->type_name("N,...")
            ->delimiter(',');
        m_oApp.add_option("--threshold", m_nThreshold, "What changes by less is no change")
            ->type_name("N")
            ->capture_default_str()
            ->check(CLI::Range(1U, 0xFFFFFFFFU).description(""));
        m_oApp.footer(
            "Prints the values at once, then whenever one of them has changed since they were printed.\n\n"
            "quorvel -g 192.168.0.10 analog watch --kind AD --channels 4,5 --threshold 10");
    }

    int Run(CTool& oTool) override
    {
        return WithAnalog(oTool, GetKind(), [&](const auto& fnRead) {
            CValues anLast;
            bool bFirst = true;
            return Watch(oTool, [&](bool& bPrinted) {
                CValues anAll;
                int nStatus = fnRead(anAll);
                CValues anNow = anAll;
                if (nStatus == 0 && !m_anChannels.empty())
                    nStatus = Choose(oTool, anAll, anNow);
                if (nStatus != 0 || (!bFirst && !IsChange(anLast, anNow)))
                    return nStatus;
                PrintChange(oTool, fmt::format("{}", fmt::join(anNow, " ")), {{"values", anNow}});
                anLast = anNow;
                bFirst = false;
                bPrinted = true;
                return nStatus;
            });
        });
    }

  private:
    int Choose(CTool& oTool, const CValues& anAll, CValues& anChosen) const
    {
        anChosen.clear();
        for (const unsigned nChannel : m_anChannels) {
            if (nChannel >= anAll.size())
                return oTool.Fail(eStatusUsage,
                                  fmt::format("--channels: there is no channel {}, the gateway has {}",
                                              nChannel, anAll.size()));
            anChosen.push_back(anAll[nChannel]);
        }
        return eStatusDone;
    }

    bool IsChange(const CValues& anLast, const CValues& anNow) const
    {
        return !std::equal(anLast.begin(), anLast.end(), anNow.begin(), anNow.end(),
                           [&](unsigned nLeft, unsigned nRight) {
                               return std::max(nLeft, nRight) - std::min(nLeft, nRight) < m_nThreshold;
                           });
    }

    CValues m_anChannels;
    unsigned m_nThreshold = 1;
};

} // namespace

void AddAnyKind(CTool& oTool)
{
    oTool.AddVerb<CInfo>(oTool.GetApp());
    oTool.AddVerb<CStatus>(oTool.GetApp());
    oTool.AddVerb<CRestart>(oTool.GetApp());
    oTool.AddVerb<CPing>(oTool.GetApp());
    oTool.AddVerb<CScan>(oTool.GetApp());
    CLI::App& oDigital = oTool.AddGroup("digital", "Digital inputs and outputs of any gateway");
    oTool.AddVerb<CDigitalRead>(oDigital);
    oTool.AddVerb<CDigitalWrite>(oDigital);
    oTool.AddVerb<CDigitalWatch>(oDigital);
    CLI::App& oAnalog = oTool.AddGroup("analog", "Analog inputs and outputs of any gateway");
    oTool.AddVerb<CAnalogRead>(oAnalog);
    oTool.AddVerb<CAnalogWrite>(oAnalog);
    oTool.AddVerb<CAnalogWatch>(oAnalog);
}
