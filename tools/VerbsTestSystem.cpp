// The group `testsystem`: configurations of the communication box, values and supplies of the others, relays.

#include "Gateway.h"
#include "Groups.h"
#include "Progress.h"
#include "QuorvelClientTestSystemCOM.h"
#include "QuorvelClientTestSystemIO.h"
#include "QuorvelClientTestSystemPWR.h"
#include "QuorvelClientTestSystemRelay.h"
#include "Text.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr std::size_t MAX_VALUES = 255;
constexpr unsigned short CMD_SEND_FILE = 0x0DD3; // checksum, size, name and the first piece
constexpr unsigned short CMD_NEXT_PIECE = 0x0DD4;

/// The communication box, which counts what it is sent of a file.
class CComBox : public CGateway<CQuorvelClientTestSystemCOM>
{
  public:
    explicit CComBox(CTool& oTool) : CGateway(oTool) {}
    ~CComBox() override { StopReception(); }

    using CGateway::SendMsg;

    int SendMsg(const CQuorvelMsg& oMsg) override
    {
        const std::string& strData = oMsg.GetData();
        if (m_pProgress != nullptr && oMsg.GetCmdCode() == CMD_NEXT_PIECE) {
            m_pProgress->Update(m_nSent); // it asked for more: what went before has arrived
            m_nSent += strData.size();
        } else if (m_pProgress != nullptr && oMsg.GetCmdCode() == CMD_SEND_FILE && strData.size() > 8) {
            m_nSent = strData.size() - 9 - static_cast<unsigned char>(strData[8]);
        }
        return CGateway::SendMsg(oMsg);
    }

    /**
     * Sends a file and shows how far it is.
     * @param nSize its length
     * @return 0, or the exit status of a failure, which was reported
     */
    int Send(CTool& oTool, const std::string& strFile, std::uint64_t nSize)
    {
        CProgress oProgress(oTool, "Sending", nSize);
        m_pProgress = &oProgress;
        const int nRC = SendFile(strFile);
        m_pProgress = nullptr;
        if (nRC == 0 && m_nSent >= nSize)
            oProgress.Finish();
        if (const int nStatus = Check("send " + strFile, nRC); nStatus != 0)
            return nStatus;
        if (m_nSent < nSize)
            return oTool.Fail(eStatusRefused,
                              fmt::format("send {}: the box has ended the transfer after {} of "
                                          "{} bytes",
                                          strFile, m_nSent, nSize));
        return eStatusDone;
    }

  private:
    CProgress* m_pProgress = nullptr; // while a file is sent
    std::uint64_t m_nSent = 0;
};

// A local file is looked at before anything is sent, so that its faults are not taken for the box's.
int GetFileSize(const CTool& oTool, const std::string& strFile, std::uint64_t& nSize)
{
    const int nFile = ::open(strFile.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat oStatus {
    };
    if (nFile < 0 || ::fstat(nFile, &oStatus) != 0) {
        const int nStatus = oTool.Fail(eStatusFile, strFile + ": " + GetSystemError());
        if (nFile >= 0)
            ::close(nFile);
        return nStatus;
    }
    ::close(nFile);
    if (!S_ISREG(oStatus.st_mode))
        return oTool.Fail(eStatusFile, strFile + ": not a regular file");
    nSize = static_cast<std::uint64_t>(oStatus.st_size);
    if (nSize > 0xFFFFFFFFU)
        return oTool.Fail(eStatusFile, strFile + ": longer than 4294967295 bytes");
    return eStatusDone;
}

class CConfigShow : public CVerb
{
  public:
    explicit CConfigShow(CLI::App& oGroup) : CVerb(oGroup, "show", "Show the active configuration")
    {
        m_oApp.footer("Prints its name, or nothing when none is active.\n\n"
                      "quorvel -g 192.168.0.10 testsystem config show");
    }

    int Run(CTool& oTool) override
    {
        CComBox oBox(oTool);
        std::string strName;
        int nStatus = oBox.OpenGateway();
        if (nStatus == 0)
            nStatus = oBox.Check("get the active configuration", oBox.GetConfig(strName));
        if (nStatus != 0)
            return nStatus;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"config", strName}});
        else if (!strName.empty())
            fmt::print("{}\n", ToHarmless(strName));
        if (strName.empty())
            oTool.Note("no configuration is active");
        return eStatusDone;
    }
};

class CConfigSelect : public CVerb
{
  public:
    explicit CConfigSelect(CLI::App& oGroup) : CVerb(oGroup, "select", "Make a configuration the active one")
    {
        m_oApp.add_option("NAME", m_strName, "Its name")->type_name("")->required();
        m_oApp.footer("Status: 1 when the box refuses: the configuration is active already, the active one "
                      "cannot be stopped, or the new one cannot be started.\n\n"
                      "quorvel -g 192.168.0.10 testsystem config select line3");
    }

    int Run(CTool& oTool) override
    {
        CComBox oBox(oTool);
        const int nStatus = oBox.OpenGateway();
        return nStatus != 0 ? nStatus : oBox.Check("select " + m_strName, oBox.SetConfig(m_strName));
    }

  private:
    std::string m_strName;
};

class CConfigAvailable : public CVerb
{
  public:
    explicit CConfigAvailable(CLI::App& oGroup)
        : CVerb(oGroup, "available", "Tell whether a configuration is installed")
    {
        m_oApp.add_option("NAME", m_strName, "Its name")->type_name("")->required();
        m_oApp.footer("Prints yes and the box's number for it, or no.\n\n"
                      "Status: 0 when it is installed, 1 when it is not.\n\n"
                      "quorvel -g 192.168.0.10 testsystem config available line3");
    }

    int Run(CTool& oTool) override
    {
        CComBox oBox(oTool);
        bool bAvailable = false;
        unsigned nValue = 0;
        int nStatus = oBox.OpenGateway();
        if (nStatus == 0)
            nStatus =
                oBox.Check("ask for " + m_strName, oBox.IsConfigAvailable(m_strName, bAvailable, nValue), 5);
        if (nStatus != 0)
            return nStatus;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"config", m_strName}, {"available", bAvailable}, {"value", nValue}});
        else if (bAvailable)
            fmt::print("yes 0x{:08x}\n", nValue);
        else
            fmt::print("no\n");
        return bAvailable ? eStatusDone : eStatusRefused;
    }

  private:
    std::string m_strName;
};

class CSendFile : public CVerb
{
  public:
    explicit CSendFile(CLI::App& oGroup) : CVerb(oGroup, "send-file", "Send a file to the communication box")
    {
        m_oApp.add_option("FILE", m_strFile, "The file; the box gets its name without the directory")
            ->type_name("")
            ->required();
        m_oApp.footer("Status: 1 when the box refuses the file, 5 when it cannot be read here.\n\n"
                      "quorvel -g 192.168.0.10 testsystem send-file line3.cfg");
    }

    int Run(CTool& oTool) override
    {
        std::uint64_t nSize = 0;
        if (const int nStatus = GetFileSize(oTool, m_strFile, nSize); nStatus != 0)
            return nStatus;
        CComBox oBox(oTool);
        const int nStatus = oBox.OpenGateway();
        return nStatus != 0 ? nStatus : oBox.Send(oTool, m_strFile, nSize);
    }

  private:
    std::string m_strFile;
};

class CInstall : public CVerb
{
  public:
    explicit CInstall(CLI::App& oGroup)
        : CVerb(oGroup, "install", "Install a file that was sent as a configuration")
    {
        m_oApp.add_flag("--send", m_bSend, "Send the file before");
        m_oApp.add_option("NAME", m_strName, "Name of the configuration")->type_name("")->required();
        m_oApp.add_option("FILE", m_strFile, "The file, which is read here too: for its checksum")
            ->type_name("")
            ->required();
        m_oApp.footer(
            "Status: 1 when the box refuses: it has no such file, or another content of it; 5 when the "
            "file cannot be read here.\n\n"
            "quorvel -g 192.168.0.10 testsystem install --send line3 line3.cfg");
    }

    int Run(CTool& oTool) override
    {
        std::uint64_t nSize = 0;
        if (const int nStatus = GetFileSize(oTool, m_strFile, nSize); nStatus != 0)
            return nStatus;
        CComBox oBox(oTool);
        int nStatus = oBox.OpenGateway();
        if (nStatus == 0 && m_bSend)
            nStatus = oBox.Send(oTool, m_strFile, nSize);
        return nStatus != 0 ? nStatus
                            : oBox.Check("install " + m_strName, oBox.InstallConfig(m_strName, m_strFile));
    }

  private:
    std::string m_strName;
    std::string m_strFile;
    bool m_bSend = false;
};

/// A list of values of a box: which it has depends on its kind.
class CValueVerb : public CVerb
{
  public:
    CValueVerb(CLI::App& oGroup, const std::string& strName, const std::string& strText,
               const std::vector<std::string>& astrBoxes)
        : CVerb(oGroup, strName, strText)
    {
        m_oApp.add_option("--box", m_strBox, "The box")
            ->type_name(fmt::format("{}", fmt::join(astrBoxes, "|")))
            ->capture_default_str()
            ->check(CLI::IsMember(astrBoxes).description(""));
    }

  protected:
    /// Reads all values that come. @param pGet the function of the client
    template<class TClient>
    int Get(CTool& oTool, int (TClient::*pGet)(unsigned short*, unsigned char)) const
    {
        CGateway<TClient> oBox(oTool);
        std::array<unsigned short, MAX_VALUES> anValues{};
        int nStatus = oBox.OpenGateway();
        if (nStatus == 0)
            nStatus =
                oBox.Check("get", (oBox.*pGet)(anValues.data(), static_cast<unsigned char>(MAX_VALUES)));
        if (nStatus != 0)
            return nStatus;
        const std::vector<unsigned> anCame(
            anValues.begin(),
            anValues.begin() + static_cast<std::ptrdiff_t>(std::min(oBox.GetAnswered() / 2, MAX_VALUES)));
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"box", m_strBox}, {"values", anCame}});
        else
            fmt::print("{}\n", fmt::join(anCame, " "));
        return eStatusDone;
    }

    template<class TClient>
    int Set(CTool& oTool, int (TClient::*pSet)(unsigned short*, unsigned char),
            std::vector<unsigned short> anValues) const
    {
        CGateway<TClient> oBox(oTool);
        const int nStatus = oBox.OpenGateway();
        return nStatus != 0 ? nStatus
                            : oBox.Check("set", (oBox.*pSet)(anValues.data(),
                                                             static_cast<unsigned char>(anValues.size())));
    }

    void AddValues()
    {
        m_oApp.add_option("VALUE", m_anValues, "The values, from the first on: up to 255, each 0 to 65535")
            ->type_name("")
            ->required()
            ->expected(1, static_cast<int>(MAX_VALUES))
            ->check(CLI::Range(0U, 0xFFFFU).description(""));
    }

    std::string m_strBox = "io";
    std::vector<unsigned short> m_anValues;
};

constexpr const char* FOOTER_GET =
    "Prints all values that the box sends, decimal, in one line; what they mean is "
    "the box's.\n\n";
constexpr const char* FOOTER_SET = "Values behind those given stay as they are.\n\n";

class CValuesGet : public CValueVerb
{
  public:
    explicit CValuesGet(CLI::App& oGroup)
        : CValueVerb(oGroup, "get", "Read the values of the I/O box or the power-supply box", {"io", "pwr"})
    {
        m_oApp.footer(std::string(FOOTER_GET) + "quorvel -g 192.168.0.10 testsystem values get --box pwr");
    }

    int Run(CTool& oTool) override
    {
        return m_strBox == "io" ? Get(oTool, &CQuorvelClientTestSystemIO::GetValue)
                                : Get(oTool, &CQuorvelClientTestSystemPWR::GetValue);
    }
};

class CValuesSet : public CValueVerb
{
  public:
    explicit CValuesSet(CLI::App& oGroup)
        : CValueVerb(oGroup, "set", "Set the values of the I/O box or the power-supply box", {"io", "pwr"})
    {
        AddValues();
        m_oApp.footer(std::string(FOOTER_SET) + "quorvel -g 192.168.0.10 testsystem values set 100 0x200");
    }

    int Run(CTool& oTool) override
    {
        return m_strBox == "io" ? Set(oTool, &CQuorvelClientTestSystemIO::SetValue, m_anValues)
                                : Set(oTool, &CQuorvelClientTestSystemPWR::SetValue, m_anValues);
    }
};

class CPowerGet : public CValueVerb
{
  public:
    explicit CPowerGet(CLI::App& oGroup)
        : CValueVerb(oGroup, "get", "Read the supplies of a box", {"io", "pwr", "relay"})
    {
        m_oApp.footer(std::string(FOOTER_GET) + "quorvel -g 192.168.0.10 testsystem power get");
    }

    int Run(CTool& oTool) override
    {
        if (m_strBox == "pwr") // has nothing but supplies
            return Get(oTool, &CQuorvelClientTestSystemPWR::GetValue);
        return m_strBox == "io" ? Get(oTool, &CQuorvelClientTestSystemIO::GetPower)
                                : Get(oTool, &CQuorvelClientTestSystemRelay::GetPower);
    }
};

class CPowerSet : public CValueVerb
{
  public:
    explicit CPowerSet(CLI::App& oGroup)
        : CValueVerb(oGroup, "set", "Set the supplies of a box", {"io", "pwr", "relay"})
    {
        AddValues();
        m_oApp.footer(std::string(FOOTER_SET) +
                      "quorvel -g 192.168.0.10 testsystem power set --box relay 24000 12000");
    }

    int Run(CTool& oTool) override
    {
        if (m_strBox == "pwr")
            return Set(oTool, &CQuorvelClientTestSystemPWR::SetValue, m_anValues);
        return m_strBox == "io" ? Set(oTool, &CQuorvelClientTestSystemIO::SetPower, m_anValues)
                                : Set(oTool, &CQuorvelClientTestSystemRelay::SetPower, m_anValues);
    }
};

class CRelay : public CVerb
{
  public:
    explicit CRelay(CLI::App& oGroup) : CVerb(oGroup, "relay", "Switch a relay of the relay box")
    {
        m_oApp.add_option("N", m_nRelay, "Number of the relay, 0 to 255")
            ->type_name("")
            ->required()
            ->check(CLI::Range(0U, 0xFFU).description(""));
        m_oApp.add_option("STATE", m_strState, "on or off")
            ->type_name("")
            ->required()
            ->check(CLI::IsMember({"on", "off"}).description(""));
        m_oApp.footer("quorvel -g 192.168.0.10 testsystem relay 3 on");
    }

    int Run(CTool& oTool) override
    {
        CGateway<CQuorvelClientTestSystemRelay> oBox(oTool);
        const int nStatus = oBox.OpenGateway();
        return nStatus != 0
                   ? nStatus
                   : oBox.Check(fmt::format("relay {} {}", m_nRelay, m_strState),
                                oBox.SetRelay(static_cast<unsigned char>(m_nRelay), m_strState == "on"));
    }

  private:
    unsigned m_nRelay = 0;
    std::string m_strState;
};

CLI::App& AddSubgroup(CLI::App& oGroup, const std::string& strName, const std::string& strText)
{
    CLI::App* const pGroup = oGroup.add_subcommand(strName, strText);
    pGroup->require_subcommand(1);
    return *pGroup;
}

} // namespace

void AddTestSystem(CTool& oTool)
{
    CLI::App& oGroup =
        oTool.AddGroup("testsystem", "The boxes of a test system: configurations, values, relays");
    CLI::App& oConfig = AddSubgroup(oGroup, "config", "Configurations of the communication box");
    oTool.AddVerb<CConfigShow>(oConfig);
    oTool.AddVerb<CConfigSelect>(oConfig);
    oTool.AddVerb<CConfigAvailable>(oConfig);
    oTool.AddVerb<CSendFile>(oGroup);
    oTool.AddVerb<CInstall>(oGroup);
    CLI::App& oValues = AddSubgroup(oGroup, "values", "Values of the I/O box and the power-supply box");
    oTool.AddVerb<CValuesGet>(oValues);
    oTool.AddVerb<CValuesSet>(oValues);
    CLI::App& oPower = AddSubgroup(oGroup, "power", "Supplies of the boxes");
    oTool.AddVerb<CPowerGet>(oPower);
    oTool.AddVerb<CPowerSet>(oPower);
    oTool.AddVerb<CRelay>(oGroup);
}
