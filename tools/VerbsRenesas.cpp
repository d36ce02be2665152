// The group `renesas`.

#include "Gateway.h"
#include "Groups.h"
#include "Programmer.h"
#include "QuorvelClientRenesas.h"
#include "Text.h"

#include <algorithm>

namespace
{

constexpr std::uint64_t PAGE = 256;
constexpr unsigned MAX_LAST = 2000; // milliseconds for the end of the run after Ctrl-C
constexpr int RC_SHORT_ANSWER = 0x000C0900;

class CRenesasTarget : public CTarget
{
  public:
    static constexpr STargetTexts TEXTS{
        "renesas",
        "The only memory is flash. It begins at address 0 and has 65536 bytes, unless --size says otherwise. "
        "A run on "
        "the target is begun and identified before, and completed after, whatever happens between.",
        "The whole flash is erased, unless --block-size says what can be erased at a time: then only the "
        "blocks that "
        "the file touches, with all that is in them.",
        "0"};

    struct SOptions {
        std::string strID = "ffffffffffffff";
        std::optional<unsigned> nBaudIndex;
        std::uint64_t nSize = 65536;
        std::uint64_t nBlockSize = 0;
        std::string strIDBytes;

        void Add(CLI::App& oApp)
        {
            oApp.add_option("--id", strID, "ID code of the target, 7 bytes in hex")
                ->type_name("BYTES")
                ->capture_default_str();
            oApp.add_option("--baud-index", nBaudIndex,
                            "Baud rate between gateway and target, the gateway's number for it, 0 to 255; "
                            "default: it "
                            "is left alone")
                ->type_name("N")
                ->check(CLI::Range(0U, 255U).description(""));
            oApp.add_option("--size", nSize, "Bytes of flash")
                ->type_name("BYTES")
                ->capture_default_str()
                ->check(CLI::Range(256U, 0x1000000U).description(""));
            oApp.add_option("--block-size", nBlockSize,
                            "Bytes of flash that the target erases at a time; 0: unknown")
                ->type_name("BYTES")
                ->capture_default_str()
                ->check(CLI::Range(0U, 0x1000000U).description(""));
        }

        int Check(const CTool& oTool)
        {
            const auto strBytes = ParseHex(strID);
            if (!strBytes || strBytes->size() != 7)
                return oTool.Fail(eStatusUsage, "--id: 7 bytes in hex, such as ff:ff:ff:ff:ff:ff:ff");
            if (nSize % PAGE != 0)
                return oTool.Fail(eStatusUsage, "--size: a multiple of 256");
            strIDBytes = *strBytes;
            return eStatusDone;
        }
    };

    CRenesasTarget(CTool& oTool, const SOptions& oOptions)
        : CTarget(
              {{"flash", 0, oOptions.nSize, PAGE,
                oOptions.nBlockSize == 0 ? oOptions.nSize : std::min(oOptions.nBlockSize, oOptions.nSize)}}),
          m_oTool(oTool),
          m_oOptions(oOptions),
          m_oGateway(oTool)
    {
    }

    int Open() override
    {
        if (const int nStatus = m_oGateway.OpenGateway(); nStatus != 0)
            return nStatus;
        m_oScope.emplace(m_oTool.GetInterrupt(), CInterrupt::eByItself); // the run has to be completed
        int nStatus = m_oGateway.Check("init", m_oGateway.Init());
        m_bRunning = nStatus == 0 || (m_oTool.GetInterrupt().GetSignal() != 0 && m_oGateway.IsSent());
        if (nStatus == 0 && m_oOptions.nBaudIndex)
            nStatus = m_oGateway.Check(
                "set baud rate", m_oGateway.SetBaudrate(static_cast<unsigned char>(*m_oOptions.nBaudIndex)));
        if (nStatus == 0)
            nStatus = m_oGateway.Check("check id", m_oGateway.CheckID(m_oOptions.strIDBytes.data(), 7));
        return nStatus;
    }

    int Close(int nStatus) override
    {
        m_oGateway.SetIgnoringSignals(true);
        if (m_oTool.GetInterrupt().GetSignal() != 0)
            m_oGateway.LimitTimeout(MAX_LAST);
        const int nRC = m_bRunning ? m_oGateway.Complete() : 0;
        m_oScope.reset();
        return nStatus != 0 ? nStatus : m_oGateway.Check("complete", nRC);
    }

    int GetInfo(CJson& oInfo) override
    {
        std::string strVersion(255, '\0');
        const int nStatus = m_oGateway.Check("get version", m_oGateway.GetVersion(strVersion.data(), 255));
        oInfo["version"] = strVersion.substr(0, strVersion.find('\0'));
        return nStatus;
    }

    int EraseBlock(const SMemory& oMemory, unsigned nBlock) override
    {
        if (oMemory.nEraseBlock == oMemory.nSize)
            return m_oGateway.Check("erase all", m_oGateway.EraseAll());
        return m_oGateway.Check(fmt::format("erase block {}", nBlock),
                                m_oGateway.BlockErase(static_cast<unsigned short>(nBlock)));
    }

    int Read(const SMemory& /*oMemory*/, std::uint64_t nAddress, std::uint64_t nLength, std::string& strBytes,
             const TProgress& fnProgress) override
    {
        const std::uint64_t nSkip = nAddress % PAGE;
        strBytes.clear();
        while (strBytes.size() < nSkip + nLength) {
            const std::uint64_t nPage = (nAddress + strBytes.size()) / PAGE;
            char acPage[PAGE];
            unsigned short nRead = 0;
            int nRC = m_oGateway.ReadPage(static_cast<unsigned short>(nPage), acPage, sizeof acPage, nRead);
            if (nRC == 0 && nRead < PAGE)
                nRC = RC_SHORT_ANSWER;
            if (const int nStatus = CheckPage("read", nPage, nRC); nStatus != 0)
                return nStatus;
            strBytes.append(acPage, PAGE);
            fnProgress(std::min(strBytes.size() - nSkip, nLength));
        }
        strBytes = strBytes.substr(nSkip, nLength);
        return eStatusDone;
    }

    int Write(const SMemory& /*oMemory*/, std::uint64_t nAddress, std::string_view strBytes,
              const TProgress& fnProgress) override
    {
        for (std::uint64_t nDone = 0; nDone < strBytes.size();) {
            const std::uint64_t nPage = (nAddress + nDone) / PAGE;
            const int nRC =
                m_oGateway.WritePage(static_cast<unsigned short>(nPage), strBytes.data() + nDone, PAGE);
            if (const int nStatus = CheckPage("write", nPage, nRC); nStatus != 0)
                return nStatus;
            nDone += PAGE;
            fnProgress(nDone);
        }
        return eStatusDone;
    }

    /// Has the target compute a checksum.
    int GetChecksum(unsigned short nFirst, unsigned short nLast, unsigned short& nChecksum)
    {
        return m_oGateway.Check("checksum", m_oGateway.VerifyCheck(nFirst, nLast, nChecksum), 2);
    }

  private:
    int CheckPage(const char* pOperation, std::uint64_t nPage, int nRC) const
    {
        if (m_oTool.GetInterrupt().GetSignal() != 0)
            return m_oTool.Fail(eStatusNoAnswer, "");
        return nRC == 0 ? 0 : m_oGateway.Check(fmt::format("{} page {}", pOperation, nPage), nRC);
    }

    CTool& m_oTool;
    SOptions m_oOptions;
    CGateway<CQuorvelClientRenesas> m_oGateway;
    bool m_bRunning = false;
    std::optional<CInterrupt::CScope> m_oScope;
};

/// Prints the target's checksum of a range.
class CChecksum : public CTargetVerb
{
  public:
    CChecksum(CLI::App& oGroup, const STargetTexts& /*oTexts*/)
        : CTargetVerb(oGroup, "checksum", "Have the target compute a checksum of a part of its flash")
    {
        m_oApp.add_option("FIRST", m_nFirst, "First address, 0 to 65535")
            ->type_name("")
            ->required()
            ->check(CLI::Range(0U, 65535U).description(""));
        m_oApp.add_option("LAST", m_nLast, "Last address, which is included")
            ->type_name("")
            ->required()
            ->check(CLI::Range(0U, 65535U).description(""));
        m_oApp.footer("Prints the checksum, 16 bits. How it is made is the target's.\n\nquorvel -g "
                      "192.168.0.10 renesas "
                      "checksum 0 0x1fff");
    }

    int Run(CTool& oTool) override
    {
        if (m_nFirst > m_nLast)
            return oTool.Fail(eStatusUsage, "LAST is below FIRST");
        const auto pTarget = MakeTarget(oTool);
        if (!pTarget)
            return eStatusUsage;
        const SMemory& oMemory = pTarget->GetMemories()[0];
        if (m_nLast > oMemory.GetLast())
            return oTool.Fail(eStatusUsage,
                              fmt::format("LAST: the flash ends at 0x{:04x}, see --size", oMemory.GetLast()));
        unsigned short nChecksum = 0;
        int nStatus = pTarget->Open();
        if (nStatus == 0)
            nStatus = static_cast<CRenesasTarget&>(*pTarget).GetChecksum(
                static_cast<unsigned short>(m_nFirst), static_cast<unsigned short>(m_nLast), nChecksum);
        nStatus = pTarget->Close(nStatus);
        if (nStatus != 0)
            return nStatus;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"first", m_nFirst}, {"last", m_nLast}, {"checksum", nChecksum}});
        else
            fmt::print("0x{:04x}\n", nChecksum);
        return eStatusDone;
    }

  private:
    unsigned m_nFirst = 0;
    unsigned m_nLast = 0;
};

} // namespace

void AddRenesas(CTool& oTool)
{
    CLI::App& oGroup = oTool.AddGroup("renesas", "The Renesas programmer: flash of a target");
    AddTargetVerbs<CRenesasTarget>(oTool, oGroup);
    oTool.AddVerb<CVerbOf<CChecksum, CRenesasTarget>>(oGroup);
}
