// The verbs that need no gateway: error, kinds.

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

} // namespace

void AddGeneral(CTool& oTool)
{
    oTool.AddVerb<CError>(oTool.GetApp());
    oTool.AddVerb<CKinds>(oTool.GetApp());
}
