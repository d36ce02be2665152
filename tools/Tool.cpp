#include "Tool.h"

#include "Choice.h"
#include "Groups.h"
#include "Help.h"
#include "Kinds.h"
#include "LogFile.h"
#include "Paths.h"
#include "Progress.h"
#include "Text.h"
#include "WireTrace.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <iostream>
#include <map>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace
{

// What is behind a result code, where its text does not say so.
std::string GetCause(int nRC, unsigned nTimeout, bool bConnecting)
{
    switch (nRC) {
    case 0x00020000:
        return bConnecting ? "no connection: refused, or no such host" : "the connection is lost";
    case 0x00030000:
        return "the connection is lost";
    case 0x00040000:
        return fmt::format("{} within {} ms", bConnecting ? "no connection" : "no answer", nTimeout);
    case 0x000A0000:
    case 0x000B0000:
    case 0x000C0000:
        return "the answer is damaged";
    case 0x00000001:
        return "other clients have all its connections";
    case 0x00000120:
        return "NACK: nobody answers at this address, or the data were refused";
    case 0x00000220:
        return "NACK: no other node has acknowledged";
    case 0x00000121:
    case 0x00000125:
    case 0x000002FC:
    case 0x00000331:
    case 0x00000920:
        return "gateway time-out: the gateway answers, but not what is connected to it";
    default:
        return "";
    }
}

const std::map<std::string, EProgress> PROGRESS_MODES{{"auto", EProgress::eAuto},
                                                      {"bar", EProgress::eBar},
                                                      {"plain", EProgress::ePlain},
                                                      {"json", EProgress::eJson},
                                                      {"none", EProgress::eNone}};

constexpr std::size_t MAX_ANSWER = 80; // characters; no answer is longer

int s_nOutputError = 0; // errno of data that did not get out to standard output

// What is wrong with the arguments, where the parser tells neither what is meant nor what is wanted.
std::string GetUsageError(const CLI::ParseError& oError)
{
    constexpr std::string_view START = "Could not convert: ";
    std::string strText = oError.what();
    const std::size_t nEquals = strText.find(" = ");
    if (!strText.starts_with(START) || nEquals == std::string::npos)
        return strText;
    return fmt::format("{}: {} is not a number that can stand here: decimal, 0x hexadecimal or 0 octal",
                       strText.substr(START.size(), nEquals - START.size()),
                       Quote(std::string_view(strText).substr(nEquals + 3)));
}

} // namespace

std::vector<std::string> CVerb::GetFiles() const
{
    auto apOptions = GetOptions(m_oApp);
    std::ranges::copy(GetArguments(m_oApp), std::back_inserter(apOptions));
    std::vector<std::string> astrFiles;
    for (const CLI::Option* const pOption : apOptions) {
        if (GetValue(*pOption).bFile)
            astrFiles.insert(astrFiles.end(), pOption->results().begin(), pOption->results().end());
    }
    return astrFiles;
}

std::string FormatJson(const CJson& oData)
{
    return oData.dump(-1, ' ', true, CJson::error_handler_t::replace);
}

CTool::CTool()
    : m_oApp("Drives Quorvel gateways: buses, lines, programmers and test systems behind a network.",
             "quorvel")
{
    AddOptions();
    AddAllGroups(*this);
}

CTool::~CTool()
{
    if (m_pTrace != nullptr && m_pTrace != stderr)
        static_cast<void>(std::fclose(m_pTrace));
}

void CTool::AddOptions()
{
    m_oApp.formatter(std::make_shared<CHelp>());
    m_oApp.set_help_flag("-h,--help", "Print this help");
    m_oApp.fallthrough();
    m_oApp.require_subcommand(1);
    m_oApp.add_option("-g,--gateway", m_oOptions.strHost, "Address or name of the gateway")
        ->type_name("HOST")
        ->check(CLI::Validator(CheckHost, ""));
    m_oApp
        .add_option("--port-index", m_oOptions.nPortIndex,
                    "Several gateways behind one address: TCP port 4999 + kind + 100 * N")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(0U, MAX_PORT_INDEX).description(""));
    m_oApp.add_option("--timeout", m_oOptions.nTimeout, "How long to wait for a connection or an answer")
        ->type_name("MS")
        ->capture_default_str()
        ->check(CLI::Range(1U, 0x7FFFFFFFU).description(""));
    m_oApp.add_flag("--json", m_oOptions.bJson, "Print data as JSON, one object a line");
    m_oApp.add_flag("-q,--quiet", m_oOptions.bQuiet, "No remarks and no progress");
    m_oApp.add_flag("-v,--verbose", m_oOptions.bVerbose, "More remarks");
    m_oApp.add_option("--progress", m_oOptions.eProgress, "How progress is shown on standard error")
        ->type_name("auto|bar|plain|json|none")
        ->transform(Choice(PROGRESS_MODES));
    m_oApp
        .add_flag("--trace{-}", m_oOptions.strTrace,
                  "Print every telegram, decoded, on standard error or into a file: --trace=FILE")
        ->type_name("[FILE]");
    m_oApp.set_version_flag("--version", std::string("quorvel ") + QUORVEL_VERSION, "Print the version");
}

CLI::App& CTool::AddGroup(const std::string& strName, const std::string& strText)
{
    CLI::App* const pGroup = m_oApp.add_subcommand(strName, strText);
    pGroup->require_subcommand(1);
    return *pGroup;
}

const CLI::App& CTool::GetInnermost() const
{
    const CLI::App* pApp = &m_oApp;
    while (!pApp->get_subcommands().empty())
        pApp = pApp->get_subcommands().back();
    return *pApp;
}

int CTool::Usage(const std::string& strText) const
{
    const int nStatus = Fail(eStatusUsage, strText);
    Report("Try: " + GetPath(GetInnermost()) + " --help");
    return nStatus;
}

int CTool::Parse(int argc, char** argv)
{
    try {
        m_oApp.parse(argc, argv);
    } catch (const CLI::ParseError& oError) {
        // The help of a group does not hide that the verb is none.
        if (oError.get_exit_code() != 0 || (IsGroup(GetInnermost()) && !m_oApp.remaining(true).empty()))
            return Usage(GetArgumentError(oError));
        m_oApp.exit(oError); // --help, --version
        std::cout.flush();
        return FlushOutput(eStatusDone);
    }
    return eStatusDone;
}

// What is wrong with the arguments. A wrong option comes first: its value may be what else is wrong.
std::string CTool::GetArgumentError(const CLI::ParseError& oError) const
{
    const CLI::App& oInner = GetInnermost();
    const std::string strKind = oInner.get_parent() == nullptr
                                    ? "group or verb"
                                    : "verb of " + GetPath(oInner).substr(m_oApp.get_name().size() + 1);
    const auto astrRest = m_oApp.remaining(true);
    if (IsGroup(oInner) && !astrRest.empty() && !astrRest[0].starts_with('-')) {
        const auto apVerbs = GetVerbs(oInner);
        std::vector<std::string> astrNames;
        astrNames.reserve(apVerbs.size());
        for (const CLI::App* const pVerb : apVerbs)
            astrNames.push_back(pVerb->get_name());
        std::string strText = fmt::format("{} is not a {}", Quote(astrRest[0]), strKind);
        const auto astrNearest = FindNearest(astrRest[0], astrNames);
        if (!astrNearest.empty())
            strText += fmt::format("; did you mean {}?", fmt::join(astrNearest, ", "));
        return strText;
    }
    std::vector<std::string> astrNames; // of the long options that hold here
    for (const CLI::App* pApp = &oInner; pApp != nullptr; pApp = pApp->get_parent()) {
        for (const CLI::Option* const pOption : ::GetOptions(*pApp)) {
            for (const std::string& strName : pOption->get_lnames())
                astrNames.push_back("--" + strName);
        }
    }
    std::vector<std::string> astrOptions;
    std::vector<std::string> astrOthers;
    for (const std::string& strWord : astrRest) {
        if (!strWord.starts_with('-') || strWord == "-" || strWord == "--") {
            astrOthers.push_back(Quote(strWord));
            continue;
        }
        const std::string strName = strWord.substr(0, strWord.find('='));
        const auto astrNearest = FindNearest(strName, astrNames);
        astrOptions.push_back(
            Quote(strName) + (astrNearest.empty() ? "" : fmt::format(" (did you mean {}?)", astrNearest[0])));
    }
    if (!astrOptions.empty())
        return fmt::format("no such option: {}", fmt::join(astrOptions, ", "));
    if (oError.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError))
        return fmt::format("not expected: {}", fmt::join(astrOthers, ", "));
    if (oError.get_name() == "RequiredError" && IsGroup(oInner))
        return "a " + strKind + " is missing";
    return GetUsageError(oError);
}

// Nothing is open yet: a file that is read and written at once is still whole.
int CTool::CheckFiles() const
{
    std::vector<std::string> astrFiles = m_pVerb->GetFiles();
    std::ranges::replace(astrFiles, "-", "/dev/stdin");
    const auto fnCheck = [&](const std::string& strOutput, const std::string& strName) {
        const auto itFile = std::ranges::find_if(
            astrFiles, [&](const std::string& strFile) { return IsSameFile(strFile, strOutput); });
        return itFile == astrFiles.end()
                   ? eStatusDone
                   : Fail(eStatusUsage, fmt::format("{} is the same file as {}", strName, *itFile));
    };
    // These names ask for standard output and standard error, and find no other file.
    std::erase_if(astrFiles, [](const std::string& strFile) {
        return strFile == "/dev/stdout" || strFile == "/dev/stderr";
    });
    int nStatus = fnCheck("/dev/stdout", "standard output");
    if (nStatus == 0)
        nStatus = fnCheck("/dev/stderr", "standard error");
    if (nStatus != 0 || m_oOptions.strTrace.empty() || m_oOptions.strTrace == "-")
        return nStatus;
    astrFiles.insert(astrFiles.end(), {"/dev/stdin", "/dev/stdout", "/dev/stderr"});
    return fnCheck(m_oOptions.strTrace, "--trace=" + m_oOptions.strTrace);
}

int CTool::Run(int argc, char** argv)
{
    if (const int nStatus = Parse(argc, argv); nStatus != 0 || m_pVerb == nullptr)
        return nStatus;
    if (const int nStatus = CheckFiles(); nStatus != 0)
        return nStatus;
    if (!m_oOptions.strTrace.empty()) {
        m_pTrace = m_oOptions.strTrace == "-" ? stderr : OpenLog(*this, m_oOptions.strTrace, ELog::eAnew);
        if (m_pTrace == nullptr)
            return eStatusFile;
        static_cast<void>(std::setvbuf(m_pTrace, nullptr, _IOLBF, BUFSIZ));
    }
    m_oInterrupt.Start();
    int nStatus = eStatusDone;
    try {
        nStatus = m_pVerb->Run(*this);
    } catch (const std::system_error& oError) {
        if (std::ferror(stdout) == 0)
            throw;
        s_nOutputError = oError.code().value();
    }
    nStatus = CloseTrace(FlushOutput(nStatus));
    return m_oInterrupt.GetSignal() != 0 ? 128 + m_oInterrupt.GetSignal() : nStatus;
}

// Whatever the status was, it is a failure when the data did not get out.
int CTool::FlushOutput(int nStatus) const
{
    const bool bFlushed = std::fflush(stdout) == 0;
    if (bFlushed && std::ferror(stdout) == 0)
        return nStatus;
    if (bFlushed && s_nOutputError != 0)
        errno = s_nOutputError;
    return errno == EPIPE && nStatus != 0 ? nStatus : FailOutput("standard output");
}

// The verb's own failure tells more than that of the trace.
int CTool::CloseTrace(int nStatus)
{
    if (m_pTrace == nullptr)
        return nStatus;
    std::FILE* const pTrace = std::exchange(m_pTrace, nullptr);
    if (pTrace != stderr && std::fclose(pTrace) != 0 && m_nTraceError == 0)
        m_nTraceError = errno;
    if (m_nTraceError == 0)
        return nStatus;
    errno = m_nTraceError;
    if (errno == EPIPE)
        return nStatus != 0 ? nStatus : 128 + SIGPIPE;
    // Also after Ctrl-C, which is how most long traces end.
    Report(fmt::format("quorvel: {}: {}", pTrace == stderr ? "standard error" : m_oOptions.strTrace,
                       GetSystemError()));
    return nStatus != 0 ? nStatus : eStatusFile;
}

void CTool::PrintJson(const CJson& oData)
{
    const std::string strLine = FormatJson(oData) + "\n";
    if (std::fwrite(strLine.data(), 1, strLine.size(), stdout) != strLine.size())
        s_nOutputError = errno;
}

int CTool::Fail(EStatus eStatus, const std::string& strText) const
{
    if (m_oInterrupt.GetSignal() != 0)
        return 128 + m_oInterrupt.GetSignal();
    static_cast<void>(std::fflush(stdout)); // so that the order is right on a terminal
    if (m_pProgress != nullptr)
        m_pProgress->Fail();
    Report("quorvel: " + strText);
    return eStatus;
}

int CTool::FailOutput(const std::string& strName) const
{
    return errno == EPIPE ? 128 + SIGPIPE : Fail(eStatusFile, strName + ": " + GetSystemError());
}

void CTool::Note(const std::string& strText) const
{
    if (!m_oOptions.bQuiet)
        Report(strText);
}

void CTool::Detail(const std::string& strText) const
{
    if (m_oOptions.bVerbose)
        Report(strText);
}

void CTool::Warn(const std::string& strText) const
{
    Report("quorvel: warning: " + strText);
}

void CTool::Report(const std::string& strText) const
{
    if (m_pProgress != nullptr)
        m_pProgress->EndLine();
    PutError(ToHarmless(strText) + "\n");
}

std::optional<std::string> CTool::Ask(const std::string& strQuestion)
{
    PutError(ToHarmless(strQuestion, true) + " ");
    if (std::ferror(stderr) != 0)
        return std::nullopt;
    std::string strAnswer;
    for (char cByte = 0; m_oInterrupt.Read(STDIN_FILENO, cByte) && strAnswer.size() <= MAX_ANSWER;
         strAnswer += cByte) {
        if (cByte == '\n')
            return strAnswer;
    }
    if (m_oInterrupt.GetSignal() != 0)
        PutError("\n");
    return m_oInterrupt.GetSignal() != 0 || strAnswer.empty() ? std::nullopt : std::optional(strAnswer);
}

int CTool::CheckResult(EQuorvelDevice eKind, unsigned nTimeout, bool bConnecting,
                       const std::string& strOperation, int nRC) const
{
    if (nRC == 0)
        return eStatusDone;
    // The firmware service marks its EEPROM's failures with bit 8, those of the connection too.
    const int nTransport = nRC & 0x00FF0000;
    std::string strText = fmt::format("{}: {}: 0x{:08X}, {}", GetGatewayName(eKind), strOperation,
                                      static_cast<unsigned>(nRC), QuorvelErrorMsg(nRC));
    const std::string strCause = GetCause(nTransport != 0 ? nTransport : nRC, nTimeout, bConnecting);
    if (!strCause.empty())
        strText += " (" + strCause + ")";
    if (nTransport == 0)
        return Fail(eStatusRefused, strText);
    return Fail(nTransport == 0x00920000 ? eStatusUsage : eStatusNoAnswer, strText);
}

std::string CTool::GetGatewayName(EQuorvelDevice eKind) const
{
    return fmt::format("{} gateway {}:{}", GetKindName(eKind), ToHarmless(m_oOptions.strHost),
                       GetPort(eKind));
}

unsigned short CTool::GetPort(EQuorvelDevice eKind) const
{
    const unsigned nBase = eKind == eDeviceFirmware ? 5099U : 4999U + static_cast<unsigned>(eKind);
    return static_cast<unsigned short>(nBase + 100 * m_oOptions.nPortIndex);
}

void CTool::Trace(bool bSent, EQuorvelDevice eKind, const CQuorvelMsg& oMsg)
{
    const auto oNow = std::chrono::system_clock::now();
    const std::string strText = FormatTelegram(oNow, bSent, eKind, oMsg);
    const std::lock_guard oLock(m_oMutexTrace);
    if (m_nTraceError == 0 && std::fwrite(strText.data(), 1, strText.size(), m_pTrace) != strText.size())
        m_nTraceError = errno;
}
