// The group `can`.

#include "CanLog.h"
#include "CanReceiver.h"
#include "Choice.h"
#include "File.h"
#include "Groups.h"
#include "Kinds.h"
#include "LogFile.h"
#include "Progress.h"
#include "QuorvelClientCAN.h"
#include "Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <map>

namespace
{

using CSteady = std::chrono::steady_clock;

constexpr unsigned FLAG_EXTENDED = 0x01;
constexpr unsigned FLAG_REMOTE = 0x02;
constexpr double MAX_TIME = 4294967295.0; // seconds, in 32 bits

const std::map<std::string, unsigned> MODES{{"normal", 0}, {"listen", 1}, {"loop-back", 2}};

const char* OnOff(bool bOn)
{
    return bOn ? "on" : "off";
}

double ToSeconds(std::int64_t nTime)
{
    return static_cast<double>(nTime) / 1e9;
}

// Receives frames, for a screen or a file, until an end is reached.
class CReceiveVerb : public CVerb
{
  public:
    CReceiveVerb(CLI::App& oGroup, const std::string& strName, const std::string& strText)
        : CVerb(oGroup, strName, strText)
    {
    }

  protected:
    void AddOptions()
    {
        m_oApp.add_option("-n", m_nCount, "End after so many frames")
            ->type_name("COUNT")
            ->check(CLI::Range(1U, 0xFFFFFFFFU).description(""));
        m_oApp.add_option("-T", m_nSilence, "End after so many milliseconds without a frame")
            ->type_name("MS")
            ->check(CLI::Range(1U, 0x7FFFFFFFU).description(""));
        m_oApp
            .add_option("-t", m_strTime,
                        "Time of each frame: a absolute, d since the frame before, z since the first one, A "
                        "with the date; in log files a and z only")
            ->type_name("a|d|z|A")
            ->check(CLI::IsMember({"a", "d", "z", "A"}).description(""));
        m_oApp.add_flag("-N", m_bNanoseconds, "Times with nine decimals instead of six");
        m_oApp.add_flag("-x", m_bDirection, "Tell whether a frame was received or sent");
        m_oApp
            .add_option("-r,--queue", m_nQueue,
                        "How many frames may wait until they are written; more are lost, and counted")
            ->type_name("FRAMES")
            ->capture_default_str()
            ->check(CLI::Range(1U, 100'000'000U).description(""));
        CLI::Option* const pAppend =
            m_oApp.add_flag("--append", m_bAppend, "Go on with a log file that is there already");
        m_oApp.add_flag("--force", m_bForce, "Write a log file anew that is there already")
            ->excludes(pAppend);
    }

    static constexpr const char* FOOTER =
        "FILTER are filters as for candump, separated by commas: 123:7FF takes frames whose identifier "
        "agrees "
        "in the bits of the mask, 123~7FF the others; an identifier of 8 digits has 29 bits; bit 31 of a "
        "mask "
        "compares the kind of identifier, bit 30 remote frames; #FFFFFFFF takes error frames; a frame has to "
        "pass one of the filters, with j all. In front there may be the name of the bus: can0,123:7FF. It is "
        "\"can\" and the port index.\n\n"
        "The time is the gateway's when its time stamps are on (quorvel can config), else that of the "
        "reception. Frames that are lost because they cannot be written as fast as they come are reported on "
        "standard error: DROPCOUNT.\n\n"
        "While the gateway is a CANopen master, it sends most frames taken apart. They are put together "
        "again "
        "without time stamps; of SYNC and EMCY the length is not known, but taken to be the usual one.\n\n"
        "Ctrl-C ends (status 130), -n and -T end with status 0.";

    // Checks the arguments; must be called first. @return 0, or the exit status
    int ParseFilter(CTool& oTool, std::string strFilter)
    {
        const std::string strFirst = strFilter.substr(0, strFilter.find(','));
        if (strFirst.find_first_of(":~#") == std::string::npos && strFirst.size() > 1) {
            if (const int nStatus = SetCanName(oTool, strFirst); nStatus != 0)
                return nStatus;
            strFilter.erase(0, strFirst.size() + 1);
        }
        std::string strError;
        if (!strFilter.empty() && !m_oFilter.Parse(strFilter, strError))
            return oTool.Fail(eStatusUsage,
                              fmt::format("FILTER: {}: 123:7FF, 123~7FF, #FFFFFFFF or j", Quote(strError)));
        return eStatusDone;
    }

    // Appends the text of a frame.
    virtual void Format(std::string& strText, const SCanRecord& oRecord) = 0;

    // Receives until the end. @param fnOpen opens what is written, once frames can come @return the exit status
    int Receive(CTool& oTool, const std::string& strFile, const std::function<std::FILE*()>& fnOpen)
    {
        CCanReceiver oCan(oTool, m_nQueue);
        if (const int nStatus = oCan.OpenGateway(); nStatus != 0)
            return nStatus;
        unsigned char nMode = 0;
        if (const int nStatus = oCan.Check("read the CANopen mode", oCan.CANopenGetConfig(nMode), 1);
            nStatus != 0)
            return nStatus;
        std::FILE* const pFile = fnOpen();
        if (pFile == nullptr)
            return eStatusFile;
        // A file gets whole lines; what reads standard output may never go on.
        const CInterrupt::CScope oScope(oTool.GetInterrupt(),
                                        pFile == stdout ? CInterrupt::eSoon : CInterrupt::eByItself);
        SCanRecord oRecord;
        oRecord.strInterface = GetCanName(oTool);
        if (nMode != 0)
            oTool.Note("The gateway is a CANopen master: its frames are put together again");
        oTool.Note(fmt::format("Listening on {} of {}", oRecord.strInterface, oTool.GetOptions().strHost));
        std::vector<SCanIndication> aoTaken;
        std::string strText;
        auto oLast = CSteady::now();
        std::uint64_t nDroppedBefore = 0;
        while (true) {
            std::optional<CSteady::time_point> oUntil;
            if (m_nSilence != 0)
                oUntil = oLast + std::chrono::milliseconds(m_nSilence);
            std::uint64_t nDropped = 0;
            const auto eWait = oCan.Take(aoTaken, oUntil, nDropped);
            strText.clear();
            for (const SCanIndication& oIndication : aoTaken) {
                if ((m_nCount != 0 && m_nReceived == m_nCount) || !GetRecord(oIndication, oRecord) ||
                    !m_oFilter.Passes(oRecord.oFrame))
                    continue;
                ++m_nReceived;
                Format(strText, oRecord);
            }
            if (!strText.empty()) {
                oLast = CSteady::now();
                if (std::fwrite(strText.data(), 1, strText.size(), pFile) != strText.size() ||
                    std::fflush(pFile) != 0)
                    return oTool.FailOutput(strFile);
            }
            const bool bComplete = m_nCount != 0 && m_nReceived == m_nCount;
            if (nDropped != 0 && !bComplete) {
                m_nDropped = nDroppedBefore += nDropped;
                PutError(fmt::format("DROPCOUNT: dropped {} CAN frame{} on '{}' socket (total drops {})\n",
                                     nDropped, nDropped > 1 ? "s" : "", oRecord.strInterface, m_nDropped));
            }
            if (bComplete || eWait == CCanReceiver::eTimedOut)
                return eStatusDone;
            if (eWait == CCanReceiver::eEnded)
                return oCan.FailEnded();
        }
    }

    // Logs into a file, which stays however reception ends. @param strFile empty: the usual name @return the exit status
    int Log(CTool& oTool, std::string strFile)
    {
        ELog eLog = m_bAppend ? ELog::eAppend : m_bForce ? ELog::eAnew : ELog::eNew;
        if (strFile.empty()) {
            if (eLog != ELog::eNew)
                return oTool.Fail(eStatusUsage, "--append and --force are for a file that is named");
            eLog = ELog::eNumbered;
            strFile = DefaultFile();
        }
        std::FILE* pFile = nullptr;
        int nStatus = Receive(oTool, strFile, [&] { return pFile = OpenLog(oTool, strFile, eLog); });
        if (strFile == "-" || pFile == nullptr)
            return nStatus;
        if (std::fclose(pFile) != 0 && nStatus == 0)
            nStatus = oTool.Fail(eStatusFile, strFile + ": " + GetSystemError());
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"file", strFile}, {"frames", m_nReceived}, {"dropped", m_nDropped}});
        else
            oTool.Note(fmt::format("{} frames in {}", m_nReceived, strFile));
        return nStatus;
    }

    // The time of a log file.
    CCanTime LogTime() const { return CCanTime(m_strTime == "z" ? 'z' : 'a', m_bNanoseconds); }

    static std::string DefaultFile()
    {
        const std::time_t nNow = std::time(nullptr);
        std::tm oLocal{};
        ::localtime_r(&nNow, &oLocal);
        char acName[64];
        static_cast<void>(std::strftime(acName, sizeof acName, "candump-%Y-%m-%d_%H%M%S.log", &oLocal));
        return acName;
    }

    std::string m_strTime;
    bool m_bNanoseconds = false;
    bool m_bDirection = false;
    bool m_bAppend = false;

  private:
    bool m_bForce = false;
    unsigned m_nCount = 0;
    unsigned m_nSilence = 0;
    unsigned m_nQueue = 1'000'000;
    std::uint64_t m_nReceived = 0;
    std::uint64_t m_nDropped = 0;
    CCanFilter m_oFilter;
};

class CCanDump : public CReceiveVerb
{
  public:
    explicit CCanDump(CLI::App& oGroup)
        : CReceiveVerb(oGroup, "dump", "Show the frames that the gateway receives, as candump does")
    {
        m_oApp.add_option("FILTER", m_strFilter, "Which frames; see below")->type_name("");
        AddOptions();
        m_oApp.add_flag("-a", m_oForm.bAscii, "Show the data as characters too");
        m_oApp.add_flag("-8", m_oForm.bRawDlc, "Show the length code in braces");
        m_oApp.add_flag("-L", m_bLogForm, "Print lines of a log file");
        m_oApp.add_flag("-l", m_bLog, "Write a log file named candump-DATE_TIME.log instead of printing");
        m_oApp.add_option("-f", m_strFile, "Write this log file instead of printing")->type_name("FILE");
        m_oApp.footer(
            std::string(FOOTER) +
            "\n\nWith --json every frame is an object: time (seconds), interface, id, extended, remote, fd, "
            "data, and for a remote frame length."
            "\n\nquorvel -g 192.168.0.10 can dump -ta -a 123:7FF,400~7F0\n\n"
            "quorvel -g 192.168.0.10 can dump -L -n 100 can0");
    }

    int Run(CTool& oTool) override
    {
        if (const int nStatus = ParseFilter(oTool, m_strFilter); nStatus != 0)
            return nStatus;
        const bool bFile = m_bLog || !m_strFile.empty();
        m_bLogForm = m_bLogForm || bFile;
        m_bJson = oTool.GetOptions().bJson && !bFile;
        m_oTime = m_bLogForm ? LogTime() : CCanTime(m_strTime.empty() ? 'a' : m_strTime[0], m_bNanoseconds);
        if (bFile)
            return Log(oTool, m_strFile);
        return Receive(oTool, "standard output", [] { return stdout; });
    }

  private:
    void Format(std::string& strText, const SCanRecord& oRecord) override
    {
        const SCanFrame& oFrame = oRecord.oFrame;
        if (m_bJson) {
            CJson oData{{"time", ToSeconds(oRecord.nTime)}, {"interface", oRecord.strInterface},
                        {"id", oFrame.nIdentifier},         {"extended", oFrame.bExtended},
                        {"remote", oFrame.bRemote},         {"fd", oFrame.eKind == SCanFrame::eFd},
                        {"data", ToHex(oFrame.strData, "")}};
            if (oFrame.bRemote)
                oData["length"] = oFrame.GetLength();
            strText += FormatJson(oData) + "\n";
        } else if (m_bLogForm) {
            AppendLogLine(strText, oRecord, m_oTime, m_bDirection, m_oForm.bRawDlc);
        } else {
            strText += ' ';
            if (!m_strTime.empty())
                m_oTime.Append(strText, oRecord.nTime);
            strText += ' ';
            strText += oRecord.strInterface;
            if (m_bDirection) {
                strText += oRecord.cDirection == 'T' ? "  TX " : "  RX ";
                strText += (oFrame.nFdFlags & 1) != 0 ? "B " : "- ";
                strText += (oFrame.nFdFlags & 2) != 0 ? 'E' : '-';
            }
            strText += "  ";
            m_oForm.bIndent = m_oForm.bIndent || oFrame.bExtended;
            AppendScreen(strText, oFrame, m_oForm);
            strText += '\n';
        }
    }

    std::string m_strFilter;
    std::string m_strFile;
    bool m_bLog = false;
    bool m_bLogForm = false;
    bool m_bJson = false;
    SScreenForm m_oForm;
    CCanTime m_oTime;
};

class CCanLog : public CReceiveVerb
{
  public:
    explicit CCanLog(CLI::App& oGroup)
        : CReceiveVerb(oGroup, "log", "Log the frames that the gateway receives into a file")
    {
        m_oApp
            .add_option("FILE", m_strFile, "The file, - for standard output; default candump-DATE_TIME.log")
            ->type_name("");
        AddOptions();
        m_oApp
            .add_option("--format", m_strFormat,
                        "log: a log file as candump writes it; asc: an ASC file as log2asc writes it")
            ->type_name("log|asc")
            ->capture_default_str()
            ->check(CLI::IsMember({"log", "asc"}).description(""));
        m_oApp.add_option("--filter", m_strFilter, "Which frames; see below")->type_name("FILTER");
        m_oApp.footer(
            std::string(FOOTER) +
            "\n\nThe file is opened when the gateway is connected. One that is there already is left alone, "
            "unless --append or --force is given; the usual name gets a number then. Two logs are never "
            "written to one file. It stays, with all frames up to then, however reception ends. A log file "
            "has "
            "neither comments nor raw length codes, so that canplayer and python-can read it.\n\n"
            "quorvel -g 192.168.0.10 can log night.log\n\n"
            "quorvel -g 192.168.0.10 can log --format asc -n 1000 --filter 700:780 boot.asc");
    }

    int Run(CTool& oTool) override
    {
        if (const int nStatus = ParseFilter(oTool, m_strFilter); nStatus != 0)
            return nStatus;
        if (m_bAppend && m_strFormat == "asc")
            return oTool.Fail(eStatusUsage, "--append: the times of an ASC file count from its beginning");
        m_oAsc = CAscWriter(oTool.GetOptions().nPortIndex + 1);
        m_oTime = LogTime();
        return Log(oTool, m_strFile);
    }

  private:
    void Format(std::string& strText, const SCanRecord& oRecord) override
    {
        if (m_strFormat == "asc")
            m_oAsc.Append(strText, oRecord);
        else
            AppendLogLine(strText, oRecord, m_oTime, m_bDirection, false);
    }

    std::string m_strFile;
    std::string m_strFilter;
    std::string m_strFormat = "log";
    CAscWriter m_oAsc{1};
    CCanTime m_oTime;
};

// Why a frame cannot be sent; empty when it can. What is only a matter of length codes can be played.
std::string GetObstacle(const SCanFrame& oFrame, bool bPlaying)
{
    if (oFrame.eKind == SCanFrame::eFd)
        return "an FD frame; the gateway sends classic frames only";
    if (oFrame.eKind == SCanFrame::eXl)
        return "an XL frame; the gateway sends classic frames only";
    if (oFrame.bError)
        return "an error frame, which nobody can send";
    if (!bPlaying && oFrame.bRemote && oFrame.nRemoteLength != 0)
        return "the gateway sends remote frames of length 0 only";
    if (!bPlaying && oFrame.nRawDlc != 0)
        return "the gateway sends no length codes above 8";
    return "";
}

// A client whose frames the gateway confirms.
class CCanSender : public CGateway<CQuorvelClientCAN>
{
  public:
    explicit CCanSender(CTool& oTool) : CGateway<CQuorvelClientCAN>(oTool) {}

    int OpenSender()
    {
        if (const int nStatus = OpenGateway(); nStatus != 0)
            return nStatus;
        return Check("have frames confirmed", SetConfig(true, false));
    }

    // Sends a frame. @param nTime receives the gateway's time, if it tells it @return the exit status
    int SendFrame(const SCanFrame& oFrame, std::optional<std::int64_t>& nTime)
    {
        int nSeconds = 0;
        int nMicroSeconds = 0;
        const int nRC = Write(static_cast<int>(oFrame.nIdentifier), oFrame.strData.data(),
                              static_cast<unsigned char>(oFrame.strData.size()),
                              static_cast<unsigned char>((oFrame.bExtended ? FLAG_EXTENDED : 0) |
                                                         (oFrame.bRemote ? FLAG_REMOTE : 0)),
                              &nSeconds, &nMicroSeconds);
        nTime.reset();
        if (nSeconds != 0)
            nTime = std::int64_t{static_cast<unsigned>(nSeconds)} * 1'000'000'000 + nMicroSeconds * 1000LL;
        if (nRC == 0)
            return eStatusDone;
        std::string strText;
        AppendFrame(strText, oFrame);
        return Check("send " + strText, nRC);
    }
};

class CCanSend : public CVerb
{
  public:
    explicit CCanSend(CLI::App& oGroup) : CVerb(oGroup, "send", "Send frames")
    {
        m_oApp.add_option("FRAME", m_astrFrames, "The frames, as for cansend")->type_name("")->required();
        m_oApp.add_option("--count", m_nCount, "Send all of them so often; 0: until Ctrl-C")
            ->type_name("N")
            ->capture_default_str();
        m_oApp.add_option("--interval", m_nInterval, "From one frame to the next")
            ->type_name("MS")
            ->capture_default_str()
            ->check(CLI::Range(0U, 3'600'000U).description(""));
        m_oApp.footer(
            "A frame is an identifier in hex, 3 digits for 11 bits and 8 for 29, then # and up to 8 bytes: "
            "123#11223344, 12345678#11.22.33, 123# without data, 123#R remote. In front of the frames there "
            "may be the name of the bus, as for cansend: can0.\n\n"
            "The gateway confirms every frame: when the status is 0, another station has acknowledged all of "
            "them. Prints nothing; with --json one object for each frame, with its time when the gateway's "
            "time stamps are on.\n\n"
            "Remote frames are sent with length 0. FD and XL frames and length codes above 8 are refused "
            "(status 2).\n\n"
            "quorvel -g 192.168.0.10 can send 123#DEADBEEF\n\n"
            "quorvel -g 192.168.0.10 can send --count 10 --interval 100 181#01 182#02");
    }

    int Run(CTool& oTool) override
    {
        if (m_astrFrames[0].find('#') == std::string::npos) {
            if (!m_astrFrames[0].starts_with("can") && m_astrFrames[0] != "any")
                return oTool.Fail(eStatusUsage,
                                  Quote(m_astrFrames[0]) + ": a frame is IDENTIFIER#DATA, such as 123#11.22");
            if (const int nStatus = SetCanName(oTool, m_astrFrames[0]); nStatus != 0)
                return nStatus;
            m_astrFrames.erase(m_astrFrames.begin());
        }
        std::vector<SCanFrame> aoFrames;
        for (const std::string& strFrame : m_astrFrames) {
            std::string strError;
            const auto oFrame = ParseFrame(strFrame, strError);
            if (oFrame)
                strError = GetObstacle(*oFrame, false);
            if (!strError.empty())
                return oTool.Fail(eStatusUsage, fmt::format("{}: {}", Quote(strFrame), strError));
            aoFrames.push_back(*oFrame);
        }
        if (aoFrames.empty())
            return oTool.Fail(eStatusUsage, "no FRAME");
        CCanSender oCan(oTool);
        if (const int nStatus = oCan.OpenSender(); nStatus != 0)
            return nStatus;
        const std::uint64_t nTotal = std::uint64_t{m_nCount} * aoFrames.size();
        std::optional<CProgress> oProgress; // for what takes its time and has an end
        if (nTotal * std::max(m_nInterval, 1U) > 1000)
            oProgress.emplace(oTool, "Sending", nTotal);
        auto oDue = CSteady::now();
        for (std::uint64_t i = 0; nTotal == 0 || i < nTotal;
             ++i, oDue += std::chrono::milliseconds(m_nInterval)) {
            if (!oTool.GetInterrupt().Wait(std::max(oDue - CSteady::now(), CSteady::duration::zero())))
                return oTool.Fail(eStatusNoAnswer, "interrupted");
            const SCanFrame& oFrame = aoFrames[i % aoFrames.size()];
            std::optional<std::int64_t> nTime;
            if (const int nStatus = oCan.SendFrame(oFrame, nTime); nStatus != 0)
                return nStatus;
            if (oTool.GetOptions().bJson) {
                std::string strText;
                AppendFrame(strText, oFrame);
                CJson oData{{"frame", strText}};
                if (nTime)
                    oData["time"] = ToSeconds(*nTime);
                CTool::PrintJson(oData);
                if (std::ferror(stdout) != 0)
                    return oTool.Flush();
            }
            if (oProgress)
                oProgress->Update(i + 1);
        }
        if (oProgress)
            oProgress->Finish();
        return eStatusDone;
    }

  private:
    std::vector<std::string> m_astrFrames;
    unsigned m_nCount = 1;
    unsigned m_nInterval = 0;
};

class CCanPlay : public CVerb
{
  public:
    explicit CCanPlay(CLI::App& oGroup) : CVerb(oGroup, "play", "Send the frames of a log, with its timing")
    {
        m_oApp.add_option("FILE", m_strFile, "The log, a log file or an ASC file; - for standard input")
            ->type_name("")
            ->required();
        m_oApp.add_option("-l", m_strLoops, "Play it so often; i: until Ctrl-C")
            ->type_name("NUM|i")
            ->capture_default_str();
        m_oApp.add_flag("-t", m_bNoTiming, "Ignore the times: send the frames one after the other");
        m_oApp
            .add_option("--gap", m_nGap,
                        "The least time to wait: frames that are due by then follow each other at once")
            ->type_name("MS")
            ->capture_default_str()
            ->check(CLI::Range(0U, 3'600'000U).description(""));
        m_oApp.add_option("-s", m_nSkip, "Do not wait where nothing was sent for more seconds than these")
            ->type_name("SECONDS")
            ->check(CLI::Range(0U, 1'000'000'000U).description(""));
        m_oApp.add_option("-n", m_nCount, "End after so many frames")
            ->type_name("COUNT")
            ->check(CLI::Range(1U, 0xFFFFFFFFU).description(""));
        m_oApp.add_option("--from", m_strFrom, "Only the frames that were logged on this bus")
            ->type_name("NAME");
        m_oApp.footer("The options are those of canplayer, whose -g is --gap here. The gateway confirms "
                      "every frame. FD, XL and "
                      "error frames are "
                      "left out, remote frames and length codes above 8 are sent with the plain length; a "
                      "warning counts "
                      "them. The whole log is checked before anything is sent; a damaged line is reported "
                      "with its number "
                      "(status 5).\n\n"
                      "-v shows the frames on standard error as they are sent. With --json prints the "
                      "numbers of frames "
                      "sent and left out.\n\n"
                      "quorvel -g 192.168.0.10 can play night.log\n\n"
                      "quorvel -g 192.168.0.10 can play -t -l i --from can1 night.log");
    }

    int Run(CTool& oTool) override
    {
        const auto nLoops =
            m_strLoops == "i" ? std::optional<std::uint64_t>(0) : ParseNumber(m_strLoops, 1'000'000'000);
        if (!nLoops || (*nLoops == 0 && m_strLoops != "i"))
            return oTool.Fail(eStatusUsage, "-l: a number from 1 on, or i");
        std::string strContent;
        if (const int nStatus = ReadFile(oTool, m_strFile, MAX_FILE, strContent); nStatus != 0)
            return nStatus;
        if (const int nStatus = CheckLog(oTool, strContent); nStatus != 0)
            return nStatus;
        CCanSender oCan(oTool);
        if (const int nStatus = oCan.OpenSender(); nStatus != 0)
            return nStatus;
        std::uint64_t nTotal = m_nFrames * *nLoops;
        if (m_nCount != 0 && (nTotal == 0 || nTotal > m_nCount))
            nTotal = m_nCount;
        std::optional<CProgress> oProgress;
        if (nTotal > 1000 || (nTotal != 0 && !m_bNoTiming && m_oDuration > std::chrono::seconds(1)))
            oProgress.emplace(oTool, "Sending", nTotal);
        for (std::uint64_t i = 0; (m_strLoops == "i" || i < *nLoops) && !IsComplete(); ++i) {
            if (const int nStatus = Play(oTool, oCan, strContent, oProgress); nStatus != 0)
                return nStatus;
        }
        if (oProgress)
            oProgress->Finish();
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"frames", m_nSent}, {"left_out", m_nLeftOut}});
        return eStatusDone;
    }

  private:
    bool IsComplete() const { return m_nCount != 0 && m_nSent == m_nCount; }

    bool IsWanted(const SCanRecord& oRecord) const
    {
        return (m_strFrom.empty() || oRecord.strInterface == m_strFrom) &&
               GetObstacle(oRecord.oFrame, true).empty();
    }

    // How long to wait before a frame; nothing where the times jump back, or by more than is wanted: the log begins
    // anew there.
    std::optional<std::chrono::nanoseconds> GetGap(std::optional<std::int64_t>& nBefore,
                                                   std::int64_t nTime) const
    {
        const std::int64_t nGap = nTime - nBefore.value_or(nTime);
        nBefore = nTime;
        if (nGap < 0 || (m_nSkip && nGap > std::int64_t{*m_nSkip} * 1'000'000'000))
            return std::nullopt;
        return std::chrono::nanoseconds(nGap);
    }

    // Looks whether the whole log can be read, and what of it can be sent.
    int CheckLog(CTool& oTool, const std::string& strContent)
    {
        CCanLogReader oReader(strContent);
        SCanRecord oRecord;
        std::uint64_t nChanged = 0;
        std::optional<std::int64_t> nBefore;
        while (oReader.Next(oRecord)) {
            if (!m_strFrom.empty() && oRecord.strInterface != m_strFrom)
                continue;
            if (!IsWanted(oRecord)) {
                ++m_nLeftOut;
                continue;
            }
            ++m_nFrames;
            m_oDuration += GetGap(nBefore, oRecord.nTime).value_or(std::chrono::nanoseconds(0));
            nChanged += GetObstacle(oRecord.oFrame, false).empty() ? 0 : 1;
        }
        if (!oReader.GetError().empty())
            return oTool.Fail(eStatusFile, m_strFile + ": " + oReader.GetError());
        if (m_nFrames == 0)
            return oTool.Fail(eStatusFile, m_strFile + ": no frame that can be sent");
        if (m_nLeftOut != 0)
            oTool.Warn(fmt::format("{} FD, XL or error frames are left out", m_nLeftOut));
        if (nChanged != 0)
            oTool.Warn(fmt::format("{} frames are sent with another length code", nChanged));
        return eStatusDone;
    }

    // Sends the log once.
    int Play(CTool& oTool, CCanSender& oCan, const std::string& strContent,
             std::optional<CProgress>& oProgress)
    {
        CCanLogReader oReader(strContent);
        SCanRecord oRecord;
        CCanTime oTime;
        std::optional<std::int64_t> nBefore;
        auto oDue = CSteady::now();
        while (!IsComplete() && oReader.Next(oRecord)) {
            if (!IsWanted(oRecord))
                continue;
            const auto oGap = GetGap(nBefore, oRecord.nTime);
            oDue = oGap ? oDue + *oGap : CSteady::now();
            auto oWait = oDue - CSteady::now();
            if (m_bNoTiming || oWait <= CSteady::duration::zero())
                oWait = CSteady::duration::zero();
            else
                oWait = std::max<CSteady::duration>(oWait, std::chrono::milliseconds(m_nGap));
            if (!oTool.GetInterrupt().Wait(oWait))
                return oTool.Fail(eStatusNoAnswer, "interrupted");
            std::optional<std::int64_t> nSentAt;
            if (const int nStatus = oCan.SendFrame(oRecord.oFrame, nSentAt); nStatus != 0)
                return nStatus;
            ++m_nSent;
            if (oTool.GetOptions().bVerbose) {
                std::string strLine;
                AppendLogLine(strLine, oRecord, oTime, false, false);
                strLine.pop_back();
                oTool.Detail(strLine);
            }
            if (oProgress)
                oProgress->Update(m_nSent);
        }
        return eStatusDone;
    }

    std::string m_strFile;
    std::string m_strLoops = "1";
    std::string m_strFrom;
    bool m_bNoTiming = false;
    unsigned m_nGap = 1;
    std::optional<unsigned> m_nSkip;
    unsigned m_nCount = 0;
    std::uint64_t m_nFrames = 0; // that can be sent
    std::uint64_t m_nLeftOut = 0;
    std::uint64_t m_nSent = 0;
    std::chrono::nanoseconds m_oDuration{0};
};

class CCanConfig : public CVerb
{
  public:
    explicit CCanConfig(CLI::App& oGroup) : CVerb(oGroup, "config", "Show or change the settings of the bus")
    {
        m_oApp.add_option("--bit-rate", m_nBitRate, "Bit rate, in bits per second")
            ->type_name("RATE")
            ->check(CLI::Range(1U, 100'000'000U).description(""));
        m_oApp
            .add_option("--mode", m_nMode,
                        "normal; listen: hears, but neither sends nor acknowledges; loop-back: frames go to "
                        "the gateway's own clients only")
            ->type_name("normal|listen|loop-back")
            ->transform(Choice(MODES));
        AddSwitch("--termination", m_bTermination, "Terminating resistor");
        AddSwitch("--high-speed", m_bHighSpeed, "High-speed transceiver");
        AddSwitch("--time-stamps", m_bTimeStamps, "Received frames carry the gateway's time");
        AddSwitch("--confirm", m_bConfirm, "Frames that are sent are confirmed");
        AddSwitch("--canopen", m_bCanOpen, "CANopen master mode");
        m_oApp.footer(
            "Changes what is given, then prints all settings as they are now. What is not given stays.\n\n"
            "The settings are the gateway's and hold for all its clients, except confirm: a gateway may keep "
            "that for every connection of its own, and forget it at its end. send and play switch it on for "
            "themselves.\n\n"
            "A bit rate that the gateway does not have is refused (status 1); the gateway knows which.\n\n"
            "quorvel -g 192.168.0.10 can config --bit-rate 250000 --time-stamps on");
    }

    int Run(CTool& oTool) override
    {
        CGateway<CQuorvelClientCAN> oCan(oTool);
        if (const int nStatus = oCan.OpenGateway(); nStatus != 0)
            return nStatus;
        SSettings oNow;
        if (const int nStatus = Read(oCan, oNow); nStatus != 0)
            return nStatus;
        if (const int nStatus = Change(oCan, oNow); nStatus != 0)
            return nStatus;
        if (const int nStatus = Read(oCan, oNow); nStatus != 0)
            return nStatus;
        const auto pMode =
            std::ranges::find_if(MODES, [&](const auto& oMode) { return oMode.second == oNow.nMode; });
        const std::string strMode = pMode != MODES.end() ? pMode->first : std::to_string(oNow.nMode);
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"bit_rate", oNow.nBitRate},
                              {"mode", strMode},
                              {"termination", oNow.bTermination},
                              {"high_speed", oNow.bHighSpeed},
                              {"time_stamps", oNow.bTimeStamps},
                              {"confirm", oNow.bConfirm},
                              {"canopen", oNow.nCanOpen != 0}});
        else
            fmt::print("bit rate     {}\nmode         {}\ntermination  {}\nhigh speed   {}\ntime stamps  {}\n"
                       "confirm      {}\nCANopen      {}\n",
                       oNow.nBitRate, strMode, OnOff(oNow.bTermination), OnOff(oNow.bHighSpeed),
                       OnOff(oNow.bTimeStamps), OnOff(oNow.bConfirm), OnOff(oNow.nCanOpen != 0));
        return eStatusDone;
    }

  private:
    using CCan = CGateway<CQuorvelClientCAN>;

    struct SSettings {
        unsigned nBitRate = 0;
        unsigned char nMode = 0;
        bool bTermination = false;
        bool bHighSpeed = false;
        bool bTimeStamps = false;
        bool bConfirm = false;
        bool bMonitor = false;
        unsigned char nCanOpen = 0;
    };

    void AddSwitch(const std::string& strName, std::optional<bool>& bValue, const std::string& strText)
    {
        m_oApp.add_option(strName, bValue, strText)->type_name("on|off")->transform(Choice(ON_OFF));
    }

    static int Read(CCan& oCan, SSettings& oNow)
    {
        int nStatus = oCan.Check(
            "read the settings",
            oCan.GetGlobals(oNow.nBitRate, oNow.nMode, oNow.bTermination, oNow.bHighSpeed, oNow.bTimeStamps),
            5); // the switches may be missing
        if (nStatus == 0)
            nStatus = oCan.Check("read the configuration", oCan.GetConfig(oNow.bConfirm, oNow.bMonitor), 2);
        if (nStatus == 0)
            nStatus = oCan.Check("read the CANopen mode", oCan.CANopenGetConfig(oNow.nCanOpen), 1);
        return nStatus;
    }

    int Change(CCan& oCan, const SSettings& oNow)
    {
        int nStatus = eStatusDone;
        if (m_nBitRate || m_nMode || m_bTermination || m_bHighSpeed || m_bTimeStamps)
            nStatus = oCan.Check("change the settings",
                                 oCan.SetGlobals(m_nBitRate.value_or(oNow.nBitRate),
                                                 static_cast<unsigned char>(m_nMode.value_or(oNow.nMode)),
                                                 m_bTermination.value_or(oNow.bTermination),
                                                 m_bHighSpeed.value_or(oNow.bHighSpeed),
                                                 m_bTimeStamps.value_or(oNow.bTimeStamps)));
        if (nStatus == 0 && m_bConfirm)
            nStatus = oCan.Check("have frames confirmed", oCan.SetConfig(*m_bConfirm, oNow.bMonitor));
        if (nStatus == 0 && m_bCanOpen)
            nStatus = oCan.Check("switch the CANopen mode", oCan.CANopenSetConfig(*m_bCanOpen ? 1 : 0));
        return nStatus;
    }

    std::optional<unsigned> m_nBitRate;
    std::optional<unsigned> m_nMode;
    std::optional<bool> m_bTermination;
    std::optional<bool> m_bHighSpeed;
    std::optional<bool> m_bTimeStamps;
    std::optional<bool> m_bConfirm;
    std::optional<bool> m_bCanOpen;
};

class CCanFilterVerb : public CVerb
{
  public:
    explicit CCanFilterVerb(CLI::App& oGroup)
        : CVerb(oGroup, "filter", "Show or change the filter of the gateway")
    {
        m_oApp.add_option("FILTER", m_astrFilters, "show, clear, or up to 8 filters such as 123:7FF")
            ->type_name("");
        m_oApp.footer(
            "Without arguments, or with show, prints the filters, one a line; nothing is printed when all "
            "frames pass. A frame passes when its identifier agrees with that of a filter in the bits of the "
            "mask. An identifier of 8 digits has 29 bits; with bit 31 the mask compares the kind of "
            "identifier. The filter holds for all clients of the gateway; can dump has filters of its "
            "own.\n\n"
            "quorvel -g 192.168.0.10 can filter 180:780 12345678:9FFFFFFF\n\n"
            "quorvel -g 192.168.0.10 can filter clear");
    }

    int Run(CTool& oTool) override
    {
        std::vector<CCanFilter::SPair> aoPairs;
        const bool bShow = m_astrFilters.empty() || (m_astrFilters.size() == 1 && m_astrFilters[0] == "show");
        const bool bClear = m_astrFilters.size() == 1 && m_astrFilters[0] == "clear";
        if (m_astrFilters.size() > 8)
            return oTool.Fail(eStatusUsage, "the gateway has 8 filters");
        for (const std::string& strFilter : m_astrFilters) {
            if (bShow || bClear)
                break;
            const auto oPair = CCanFilter::ParsePair(strFilter);
            if (!oPair || oPair->bInverted || ((oPair->nIdentifier | oPair->nMask) & 0x60000000U) != 0 ||
                (oPair->nIdentifier == 0 && oPair->nMask == 0))
                return oTool.Fail(eStatusUsage,
                                  fmt::format("{}: a filter is 123:7FF or 12345678:9FFFFFFF, without bits 29 "
                                              "and 30, and not 0:0",
                                              Quote(strFilter)));
            aoPairs.push_back(*oPair);
        }
        CGateway<CQuorvelClientCAN> oCan(oTool);
        if (const int nStatus = oCan.OpenGateway(); nStatus != 0)
            return nStatus;
        CQuorvelClientCAN::SConfigFilter oFilter{};
        if (!bShow) {
            for (std::size_t i = 0; i < aoPairs.size(); ++i) {
                oFilter.anValues[2 * i] = aoPairs[i].nMask;
                oFilter.anValues[2 * i + 1] = aoPairs[i].nIdentifier;
            }
            return oCan.Check("set the filter", oCan.SetFilter(oFilter));
        }
        if (const int nStatus = oCan.Check("read the filter", oCan.GetFilter(oFilter), 64); nStatus != 0)
            return nStatus;
        for (std::size_t i = 0; i < 16; i += 2) {
            const unsigned nMask = oFilter.anValues[i];
            const unsigned nIdentifier = oFilter.anValues[i + 1];
            const bool bExtended = (nIdentifier & 0x80000000U) != 0;
            if (nMask == 0 && nIdentifier == 0)
                continue;
            if (oTool.GetOptions().bJson) {
                CTool::PrintJson(
                    {{"id", nIdentifier & 0x1FFFFFFFU}, {"extended", bExtended}, {"mask", nMask}});
                continue;
            }
            // Eight digits only where they stand for 29 bits.
            const int nDigits = bExtended ? 8 : nIdentifier > 0xFFFFFFF ? 9 : 3;
            fmt::print("{:0{}X}:{:03X}\n", bExtended ? nIdentifier & 0x1FFFFFFFU : nIdentifier, nDigits,
                       nMask);
        }
        return eStatusDone;
    }

  private:
    std::vector<std::string> m_astrFilters;
};

class CCanPower : public CVerb
{
  public:
    explicit CCanPower(CLI::App& oGroup) : CVerb(oGroup, "power", "Show or switch the power supplies")
    {
        m_oApp.add_option("--relay", m_bRelay, "The power relay")
            ->type_name("on|off")
            ->transform(Choice(ON_OFF));
        m_oApp.add_option("--supplies", m_nSupplies, "Which supplies are active: one bit each")
            ->type_name("MASK");
        m_oApp.footer("Changes what is given, then prints the state. A supply is live when it is active and "
                      "the relay is on.\n\nquorvel -g 192.168.0.10 can power --supplies 0x3 --relay on");
    }

    int Run(CTool& oTool) override
    {
        CGateway<CQuorvelClientCAN> oCan(oTool);
        int nStatus = oCan.OpenGateway();
        if (nStatus == 0 && m_nSupplies)
            nStatus = oCan.Check("choose the supplies", oCan.SetActivePowerSupplies(*m_nSupplies));
        if (nStatus == 0 && m_bRelay)
            nStatus = oCan.Check("switch the relay", oCan.SetPowerRelais(*m_bRelay));
        if (nStatus != 0)
            return nStatus;
        std::array<unsigned short, 255> anVoltages{};
        std::array<bool, 255> abActive{};
        std::array<bool, 255> abOther{};
        unsigned char nVoltages = 0;
        unsigned char nActive = 0;
        unsigned char nOther = 0;
        short nTemperature = 0;
        unsigned short nVoltage = 0;
        unsigned short nCurrent = 0;
        bool bLive = false;
        const int nRC =
            oCan.GetPowerStatus(255, nVoltages, 255, nActive, 255, nOther, nTemperature, nVoltage, nCurrent,
                                bLive, anVoltages.data(), abActive.data(), abOther.data());
        const std::size_t nNeeded = 10 + std::size_t{2} * nVoltages + nActive + nOther;
        nStatus = oCan.Check("read the power status", nRC, std::max<std::size_t>(nNeeded, 12));
        if (nStatus != 0)
            return nStatus;
        const bool bJson = oTool.GetOptions().bJson;
        CJson aoSupplies = CJson::array();
        std::string strSupplies;
        for (std::size_t i = 0; i < std::min(nVoltages, nActive); ++i) {
            aoSupplies.push_back({{"supply", i}, {"active", abActive[i]}, {"millivolts", anVoltages[i]}});
            strSupplies += fmt::format("supply {}     {}, {} mV\n", i, abActive[i] ? "active" : "inactive",
                                       anVoltages[i]);
        }
        if (bJson)
            CTool::PrintJson({{"temperature", nTemperature / 10.0},
                              {"input_millivolts", nVoltage},
                              {"input_milliamperes", nCurrent},
                              {"relay", abOther[0]},
                              {"termination", abOther[1]},
                              {"live", bLive},
                              {"supplies", aoSupplies}});
        else
            fmt::print("temperature  {:.1f} C\ninput        {} mV, {} mA\nrelay        {}\ntermination  {}\n"
                       "live         {}\n{}",
                       nTemperature / 10.0, nVoltage, nCurrent, OnOff(abOther[0]), OnOff(abOther[1]),
                       bLive ? "yes" : "no", strSupplies);
        return eStatusDone;
    }

  private:
    std::optional<bool> m_bRelay;
    std::optional<unsigned> m_nSupplies;
};

class CCanClock : public CVerb
{
  public:
    explicit CCanClock(CLI::App& oGroup) : CVerb(oGroup, "time", "Show or set the gateway's clock")
    {
        m_oApp
            .add_option("--set", m_strTime,
                        "now, seconds since 1970 such as 1345212884.5, or 2012-08-17T14:14:44 local time")
            ->type_name("TIME");
        m_oApp.footer(
            "Prints the clock, in seconds since 1970 and as local time, and whether it was set since "
            "power-on. It is what the time stamps of received frames are taken from.\n\n"
            "quorvel -g 192.168.0.10 can time --set now");
    }

    int Run(CTool& oTool) override
    {
        const bool bNow = m_strTime == "now";
        const auto oParsed = Parse();
        if (!m_strTime.empty() && !bNow && !oParsed)
            return oTool.Fail(eStatusUsage,
                              Quote(m_strTime) +
                                  ": now, seconds since 1970, or a date such as 2012-08-17T14:14:44");
        CGateway<CQuorvelClientCAN> oCan(oTool);
        if (const int nStatus = oCan.OpenGateway(); nStatus != 0)
            return nStatus;
        if (!m_strTime.empty()) {
            timeval oTime = oParsed.value_or(timeval{});
            if (bNow) {
                timespec oClock{};
                ::clock_gettime(CLOCK_REALTIME, &oClock);
                oTime = {oClock.tv_sec, oClock.tv_nsec / 1000};
            }
            if (const int nStatus = oCan.Check("set the clock", oCan.SetTime(oTime)); nStatus != 0)
                return nStatus;
        }
        bool bSet = false;
        timeval oTime{};
        if (const int nStatus = oCan.Check("read the clock", oCan.GetTime(bSet, oTime), 9); nStatus != 0)
            return nStatus;
        if (oTool.GetOptions().bJson) {
            CTool::PrintJson(
                {{"time", static_cast<double>(oTime.tv_sec) + static_cast<double>(oTime.tv_usec) / 1e6},
                 {"set", bSet}});
            return eStatusDone;
        }
        const std::int64_t nTime = std::int64_t{oTime.tv_sec} * 1'000'000'000 + oTime.tv_usec * 1000;
        std::string strDate;
        CCanTime('A').Append(strDate, nTime);
        fmt::print("{}.{:06} {}{}\n", oTime.tv_sec, oTime.tv_usec, strDate, bSet ? "set" : "not set");
        return eStatusDone;
    }

  private:
    std::optional<timeval> Parse() const
    {
        std::tm oLocal{};
        const char* const pEnd = ::strptime(m_strTime.c_str(), "%Y-%m-%dT%H:%M:%S", &oLocal);
        if (pEnd != nullptr && *pEnd == '\0') {
            oLocal.tm_isdst = -1;
            const std::time_t nTime = std::mktime(&oLocal);
            if (nTime < 0 || static_cast<double>(nTime) > MAX_TIME)
                return std::nullopt;
            return timeval{nTime, 0};
        }
        const std::size_t nPoint = m_strTime.find('.');
        const std::string strSeconds = m_strTime.substr(0, nPoint);
        std::string strDecimals = nPoint == std::string::npos ? "" : m_strTime.substr(nPoint + 1);
        const auto fnDigits = [](const std::string& strText) {
            return strText.find_first_not_of("0123456789") == std::string::npos;
        };
        if (strSeconds.empty() || strSeconds.size() > 10 || strDecimals.size() > 6 || !fnDigits(strSeconds) ||
            !fnDigits(strDecimals))
            return std::nullopt;
        strDecimals.resize(6, '0');
        const timeval oTime{std::stol(strSeconds), std::stol(strDecimals)};
        if (static_cast<double>(oTime.tv_sec) > MAX_TIME)
            return std::nullopt;
        return oTime;
    }

    std::string m_strTime;
};

} // namespace

void AddCan(CTool& oTool)
{
    CLI::App& oGroup = oTool.AddGroup("can", "The CAN gateway: show, log, send and play frames, settings");
    oTool.AddVerb<CCanDump>(oGroup);
    oTool.AddVerb<CCanLog>(oGroup);
    oTool.AddVerb<CCanSend>(oGroup);
    oTool.AddVerb<CCanPlay>(oGroup);
    oTool.AddVerb<CCanConfig>(oGroup);
    oTool.AddVerb<CCanFilterVerb>(oGroup);
    oTool.AddVerb<CCanPower>(oGroup);
    oTool.AddVerb<CCanClock>(oGroup);
}
