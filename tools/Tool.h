// The command `quorvel`: what all verbs share.
#ifndef QUORVEL_TOOL_H
#define QUORVEL_TOOL_H

#include "Interrupt.h"
#include "QuorvelErrorMsg.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class CProgress;
class CTool;
class CQuorvelMsg;

/// Keeps the order in which its members were added.
using CJson = nlohmann::ordered_json;

/// The exit statuses; a program ended by signal n has 128 + n.
enum EStatus : int {
    eStatusDone = 0,
    eStatusRefused = 1,  ///< the gateway refused the operation
    eStatusUsage = 2,    ///< wrong arguments
    eStatusMismatch = 3, ///< a comparison or verification found a difference
    eStatusNoAnswer = 4, ///< no connection, no answer in time, or a spoiled one
    eStatusFile = 5      ///< a file or an image cannot be read or written
};

/// How progress is shown, on standard error.
enum class EProgress {
    eAuto,  ///< a bar on a terminal, plain lines elsewhere
    eBar,   ///< a bar
    ePlain, ///< a line that grows
    eJson,  ///< one JSON object a line
    eNone   ///< not at all
};

/// @return JSON as one line of ASCII, whatever bytes its texts have
std::string FormatJson(const CJson& oData);

/// The port indexes begin at 0; the library's handles and the simulator have as many.
constexpr unsigned MAX_PORT_INDEX = 99;

/// One verb: its options are members, which the constructor ties to the command line.
class CVerb
{
  public:
    /**
     * Adds the verb to its group.
     * @param oGroup  the group, or the program itself
     * @param strName the verb
     * @param strText what it does, one line
     */
    CVerb(CLI::App& oGroup, const std::string& strName, const std::string& strText)
        : m_oApp(*oGroup.add_subcommand(strName, strText))
    {
    }
    virtual ~CVerb() = default;
    CVerb(const CVerb&) = delete;
    CVerb& operator=(const CVerb&) = delete;

    /// Carries the verb out; every failure was reported when it returns. @return an exit status
    virtual int Run(CTool& oTool) = 0;

    /// @return the files that the command line has the verb read and write
    virtual std::vector<std::string> GetFiles() const;

    /// @return the verb's place on the command line
    CLI::App& GetApp() { return m_oApp; }

  protected:
    CLI::App& m_oApp;
};

/// The program: its options, its verbs, and how they report.
class CTool
{
  public:
    /// The options in front of every verb.
    struct SOptions {
        std::string strHost;                    ///< -g; empty: not given
        unsigned nPortIndex = 0;                ///< port 4999 + kind + 100 * index
        unsigned nTimeout = 2000;               ///< milliseconds
        bool bJson = false;                     ///< data as JSON
        bool bQuiet = false;                    ///< neither notes nor progress
        bool bVerbose = false;                  ///< details
        EProgress eProgress = EProgress::eAuto; ///< see EProgress
        std::string strTrace;                   ///< file of the trace, "-" for standard error; empty: none
    };

    /// Builds the whole command line.
    CTool();
    ~CTool();
    CTool(const CTool&) = delete;
    CTool& operator=(const CTool&) = delete;

    /// Parses the arguments and runs the verb. @return the exit status
    int Run(int argc, char** argv);

    /// @return the command line: help, manual pages and completions are made from it
    CLI::App& GetApp() { return m_oApp; }

    /// Adds a group of verbs. @return the group
    CLI::App& AddGroup(const std::string& strName, const std::string& strText);

    /// Adds a verb to a group or to the program.
    template<class TVerb>
    void AddVerb(CLI::App& oGroup)
    {
        m_apVerbs.push_back(std::make_unique<TVerb>(oGroup));
        CVerb* const pVerb = m_apVerbs.back().get();
        pVerb->GetApp().callback([this, pVerb] { m_pVerb = pVerb; });
    }

    /// @return the options; a verb with an argument for one of them may change it
    SOptions& GetOptions() { return m_oOptions; }

    /// @return what takes Ctrl-C
    CInterrupt& GetInterrupt() const { return m_oInterrupt; }

    /// Prints data that is JSON: one line on standard output. What cannot be written shows at the end, or in Flush.
    static void PrintJson(const CJson& oData);

    /// Brings out what was printed, for verbs that go on. @return 0, or the exit status of a failure, which was reported
    int Flush() const { return FlushOutput(eStatusDone); }

    /**
     * Prints an error; like all that is reported, it is one line and harmless, whatever texts it quotes.
     * @return the status; after Ctrl-C, without printing, the signal's status
     */
    int Fail(EStatus eStatus, const std::string& strText) const;

    /**
     * Reports that output could not be written, as errno tells; nothing when just nobody reads it any more.
     * @param strName the output
     * @return the exit status
     */
    int FailOutput(const std::string& strName) const;

    /// Prints a remark on standard error, unless -q.
    void Note(const std::string& strText) const;

    /// Prints a remark on standard error with -v.
    void Detail(const std::string& strText) const;

    /// Prints a warning on standard error, also with -q.
    void Warn(const std::string& strText) const;

    /// Takes what is being drawn, whose line is ended before anything is reported; null when nothing is.
    void SetProgress(CProgress* pProgress) { m_pProgress = pProgress; }

    /**
     * Asks a question on standard error and reads a line of standard input.
     * @return the line; nothing at the end of the input, after a signal, and when the question cannot be seen
     */
    std::optional<std::string> Ask(const std::string& strQuestion);

    /**
     * Reports the result of an operation of a gateway, if it is none.
     * @param eKind         the gateway's kind
     * @param nTimeout      the time-out that held, in milliseconds
     * @param bConnecting   true while there is no connection yet
     * @param strOperation  what was tried
     * @param nRC           result code
     * @return an exit status
     */
    int CheckResult(EQuorvelDevice eKind, unsigned nTimeout, bool bConnecting,
                    const std::string& strOperation, int nRC) const;

    /// @return the TCP port of a kind of gateway at the port index given
    unsigned short GetPort(EQuorvelDevice eKind) const;

    /// @return a gateway as errors and remarks name it, such as "SPI gateway 192.168.0.10:5002"
    std::string GetGatewayName(EQuorvelDevice eKind) const;

    /// @return true when telegrams are to be traced
    bool IsTracing() const { return m_pTrace != nullptr; }

    /**
     * Traces a telegram. When it cannot be written, the program fails with that at its end, not here: the
     * telegram goes its way all the same.
     * @param bSent  true when it goes to the gateway
     * @param eKind  the gateway's kind
     * @param oMsg   the telegram
     */
    void Trace(bool bSent, EQuorvelDevice eKind, const CQuorvelMsg& oMsg);

  private:
    void AddOptions();
    int Parse(int argc, char** argv);
    int Usage(const std::string& strText) const;
    std::string GetArgumentError(const CLI::ParseError& oError) const;
    int CheckFiles() const;
    void Report(const std::string& strText) const;
    int FlushOutput(int nStatus) const;
    int CloseTrace(int nStatus);
    const CLI::App& GetInnermost() const;

    SOptions m_oOptions;
    mutable CInterrupt m_oInterrupt;
    CLI::App m_oApp;
    std::vector<std::unique_ptr<CVerb>> m_apVerbs;
    CVerb* m_pVerb = nullptr;
    CProgress* m_pProgress = nullptr;
    std::FILE* m_pTrace = nullptr;
    int m_nTraceError = 0; // errno of the first telegram that could not be traced
    std::mutex m_oMutexTrace;
};

#endif
