// The verbs that need no gateway: error, kinds, completion.

#include "Completion.h"
#include "Groups.h"
#include "Kinds.h"
#include "Text.h"
#include "Tool.h"

namespace
{

class CError : public CVerb
{
  public:
    explicit CError(CLI::App& oGroup) : CVerb(oGroup, "error", "Tell what a result code means")
    {
        m_oApp.add_option("CODE", m_nCode, "The code, such as 0x0120")->required();
        m_oApp.footer("quorvel error 0x00040000");
    }

    int Run(CTool& oTool) override
    {
        const std::string strText = QuorvelErrorMsg(static_cast<int>(m_nCode));
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"code", m_nCode}, {"text", strText}});
        else
            fmt::print("0x{:08X} {}\n", m_nCode, strText);
        return eStatusDone;
    }

  private:
    unsigned m_nCode = 0;
};

class CKinds : public CVerb
{
  public:
    explicit CKinds(CLI::App& oGroup)
        : CVerb(oGroup, "kinds", "List the kinds of gateway and their TCP ports")
    {
    }

    int Run(CTool& oTool) override
    {
        for (const SKind& oKind : KINDS) {
            const unsigned short nPort = oTool.GetPort(oKind.eKind);
            if (oTool.GetOptions().bJson)
                CTool::PrintJson({{"kind", static_cast<int>(oKind.eKind)},
                                  {"name", oKind.pName},
                                  {"port", nPort},
                                  {"text", oKind.pText}});
            else
                fmt::print("{:2}  {:<8}  {:5}  {}\n", static_cast<int>(oKind.eKind), oKind.pName, nPort,
                           oKind.pText);
        }
        return eStatusDone;
    }
};

class CCompletion : public CVerb
{
  public:
    explicit CCompletion(CLI::App& oGroup)
        : CVerb(oGroup, "completion", "Print a script that makes a shell complete the command line")
    {
        m_oApp.add_option("SHELL", m_strShell, "The shell")
            ->required()
            ->type_name("bash|zsh|fish")
            ->check(CLI::IsMember({"bash", "zsh", "fish"}).description(""));
        m_oApp.footer(
            "Groups, verbs, options and what these can be are completed, and file names. The scripts are "
            "installed with the program; this is for the shell at hand, and for other places:\n\n"
            "  source <(quorvel completion bash)\n\n"
            "quorvel completion fish > ~/.config/fish/completions/quorvel.fish");
    }

    int Run(CTool& oTool) override
    {
        const EShell eShell = m_strShell == "bash"  ? EShell::eBash
                              : m_strShell == "zsh" ? EShell::eZsh
                                                    : EShell::eFish;
        fmt::print("{}", MakeCompletion(oTool.GetApp(), eShell));
        return eStatusDone;
    }

  private:
    std::string m_strShell;
};

} // namespace

void AddGeneral(CTool& oTool)
{
    oTool.AddVerb<CError>(oTool.GetApp());
    oTool.AddVerb<CKinds>(oTool.GetApp());
    oTool.AddVerb<CCompletion>(oTool.GetApp());
}
