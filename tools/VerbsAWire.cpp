// The group `awire`.

#include "Gateway.h"
#include "Groups.h"
#include "Kinds.h"
#include "Programmer.h"
#include "QuorvelClientAWire.h"

#include <algorithm>
#include <chrono>
#include <deque>

namespace
{

constexpr std::uint64_t MAX_CHUNK = 32768;
constexpr std::size_t MAX_PENDING = 2; // one is written while the next is on its way
constexpr std::uint64_t READ_CHUNK = 8192;
constexpr int RC_READ_FAILED = 0x0E26;

/// Says when a write was reported, or will never be.
class CAWire : public CGateway<CQuorvelClientAWire>
{
  public:
    explicit CAWire(CTool& oTool) : CGateway(oTool), m_oInterrupt(oTool.GetInterrupt())
    {
        m_oInterrupt.SetAction([this] {
            Abort();
            m_oEventBlockProgress.Signal();
        });
    }

    ~CAWire() override
    {
        m_oInterrupt.SetAction({});
        StopReception();
    }

    CZelEvent& GetEvent() { return m_oEventBlockProgress; }

    void ConInd(bool bConnected) override
    {
        if (!bConnected)
            m_oEventBlockProgress.Signal();
        CGateway::ConInd(bConnected);
    }

  private:
    CInterrupt& m_oInterrupt;
};

class CAWireTarget : public CTarget
{
  public:
    static constexpr STargetTexts TEXTS{
        "awire",
        "The memories are flash and user, the user page. Addresses in files are the target's own: the flash "
        "begins "
        "where `info` says, such as 0x10000000, not at 0, and the user page lies behind it. Files without "
        "addresses (raw, numbers) begin at the start of the memory.",
        "All blocks of the flash that the file touches are erased, as a whole, so what else is in them is "
        "lost; the "
        "user page likewise.",
        "0x10000000"};

    struct SOptions {
        std::uint64_t nBlockSize = 65536;

        void Add(CLI::App& oApp)
        {
            oApp.add_option("--block-size", nBlockSize, "Bytes of flash that the target erases at a time")
                ->type_name("BYTES")
                ->capture_default_str()
                ->check(CLI::Range(1U, 0x7FFFFFFFU).description(""));
        }

        static int Check(const CTool& /*oTool*/) { return eStatusDone; }
    };

    CAWireTarget(CTool& oTool, const SOptions& oOptions)
        : CTarget({{"flash"}, {"user"}}), m_oTool(oTool), m_oOptions(oOptions), m_oGateway(oTool)
    {
    }

    int Open() override
    {
        if (const int nStatus = m_oGateway.OpenGateway(); nStatus != 0)
            return nStatus;
        unsigned nStart = 0;
        unsigned nSize = 0;
        unsigned nPageSize = 0;
        if (const int nStatus = m_oGateway.Check(
                "get target", m_oGateway.GetConfig(m_nBaudrate, nStart, nSize, nPageSize, m_strName), 16);
            nStatus != 0)
            return nStatus;
        if (nSize == 0 || nPageSize == 0)
            return m_oTool.Fail(eStatusRefused, "the gateway does not know its target: see awire config");
        m_aoMemories[0] = {"flash", nStart, nSize, nPageSize,
                           std::min<std::uint64_t>(m_oOptions.nBlockSize, nSize)};
        m_aoMemories[1] = {"user", std::uint64_t{nStart} + nSize, nPageSize, nPageSize, nPageSize};
        return eStatusDone;
    }

    int GetInfo(CJson& oInfo) override
    {
        oInfo["target"] = m_strName;
        oInfo["baud_rate"] = m_nBaudrate;
        return eStatusDone;
    }

    int EraseBlock(const SMemory& oMemory, unsigned nBlock) override
    {
        if (IsUser(oMemory))
            return m_oGateway.Check("erase user page", m_oGateway.EraseUserPage());
        return m_oGateway.Check(fmt::format("erase block {}", nBlock),
                                m_oGateway.Erase(static_cast<unsigned short>(nBlock)));
    }

    int Read(const SMemory& /*oMemory*/, std::uint64_t nAddress, std::uint64_t nLength, std::string& strBytes,
             const TProgress& fnProgress) override
    {
        strBytes.clear();
        for (std::uint64_t nDone = 0; nDone < nLength;) {
            const auto nChunk = static_cast<unsigned short>(std::min(READ_CHUNK, nLength - nDone));
            strBytes.resize(nDone + nChunk);
            unsigned short nRead = 0;
            int nRC = m_oGateway.Read(static_cast<unsigned>(nAddress + nDone), nChunk,
                                      strBytes.data() + nDone, nRead);
            if (nRC == 0 && nRead < nChunk)
                nRC = RC_READ_FAILED;
            if (nRC != 0)
                return m_oGateway.Check(fmt::format("read 0x{:08x}", nAddress + nDone), nRC);
            nDone += nChunk;
            fnProgress(nDone);
        }
        return eStatusDone;
    }

    // The target is never without work: while it writes one chunk, the next is with the gateway.
    int Write(const SMemory& oMemory, std::uint64_t nAddress, std::string_view strBytes,
              const TProgress& fnProgress) override
    {
        const std::uint64_t nChunkSize =
            oMemory.nPage > MAX_CHUNK ? MAX_CHUNK : MAX_CHUNK / oMemory.nPage * oMemory.nPage;
        std::deque<short> anPending;
        std::uint64_t nSent = 0;
        std::uint64_t nFinished = 0;
        while (nFinished < strBytes.size()) {
            while (nSent < strBytes.size() && anPending.size() < MAX_PENDING) {
                const std::uint64_t nAt = nAddress + nSent - (IsUser(oMemory) ? oMemory.nAddress : 0);
                const auto nLength = static_cast<unsigned short>(
                    std::min<std::uint64_t>(nChunkSize - nAt % nChunkSize, strBytes.size() - nSent));
                short nID = 0;
                const auto pBytes = strBytes.data() + nSent;
                const int nRC =
                    IsUser(oMemory)
                        ? m_oGateway.WriteUserPage(static_cast<unsigned>(nAt), nLength, pBytes, nID)
                        : m_oGateway.WriteBlock(static_cast<unsigned>(nAt), nLength, pBytes, nID);
                if (nRC != 0)
                    return Fail(nAddress + nSent, nRC);
                anPending.push_back(nID);
                nSent += nLength;
            }
            if (const int nStatus = AwaitReport(anPending, nAddress, nFinished, fnProgress); nStatus != 0)
                return nStatus;
        }
        return eStatusDone;
    }

  private:
    static bool IsUser(const SMemory& oMemory) { return oMemory.strName == "user"; }

    int Fail(std::uint64_t nAddress, int nRC) const
    {
        return m_oGateway.Check(fmt::format("write 0x{:08x}", nAddress), nRC);
    }

    /// Waits until the oldest chunk is written.
    int AwaitReport(std::deque<short>& anPending, std::uint64_t nAddress, std::uint64_t& nFinished,
                    const TProgress& fnProgress)
    {
        using Progress = CQuorvelClientAWire::Progress;
        while (true) {
            // Both are asked before looking: a report later than that ends the wait, and the last reports come before
            // the connection is lost.
            const unsigned nSignals = m_oGateway.GetEvent().GetSignalCount();
            const bool bConnected = m_oGateway.GetConnectState() == CZelIPBase::eStateConnected;
            Progress::EProgress eProgress = Progress::eFailed;
            unsigned short nLength = 0;
            unsigned short nDone = 0;
            const int nRC = m_oGateway.GetWriteBlockStatus(anPending.front(), eProgress, nLength, nDone);
            if (nRC == 0 && eProgress == Progress::eFinished) {
                anPending.pop_front();
                nFinished += nLength;
                fnProgress(nFinished);
                return eStatusDone;
            }
            if (nRC != 0 || eProgress != Progress::eInProgress)
                return m_oTool.Fail(
                    eStatusRefused,
                    fmt::format("{} gateway {}:{}: write 0x{:08x}: the target has not taken it, status {}",
                                GetKindName(eDeviceAWire), m_oTool.GetOptions().strHost,
                                m_oTool.GetPort(eDeviceAWire), nAddress + nFinished,
                                static_cast<unsigned>(eProgress)));
            fnProgress(nFinished + nDone);
            if (!bConnected || m_oTool.GetInterrupt().GetSignal() != 0)
                return Fail(nAddress + nFinished, RC_CONNECTION_LOST);
            if (!m_oGateway.GetEvent().WaitBeyond(nSignals, m_oTool.GetOptions().nTimeout))
                return Fail(nAddress + nFinished + nDone, RC_TIME_OUT);
        }
    }

    CTool& m_oTool;
    SOptions m_oOptions;
    CAWire m_oGateway;
    unsigned m_nBaudrate = 0;
    std::string m_strName;
};

/// Tells the gateway which target it has.
class CAWireConfig : public CVerb
{
  public:
    explicit CAWireConfig(CLI::App& oGroup)
        : CVerb(oGroup, "config", "Tell the gateway which target is connected to it")
    {
        AddNumber("--baud-rate", m_nBaudrate, "Interface baud rate, bits per second", "N");
        AddNumber("--address", m_nAddress, "Start address of the flash", "ADDRESS");
        AddNumber("--size", m_nSize, "Size of the flash", "BYTES");
        AddNumber("--page", m_nPageSize, "Size of a page, and of the user page", "BYTES");
        m_oApp.add_option("--name", m_strName, "Name of the target")->type_name("TEXT");
        m_oApp.footer(
            "What is not given stays as it is. `info` prints it.\n\nquorvel -g 192.168.0.10 awire config "
            "--address 0x80000000 --size 0x80000 --page 512 --name UC3");
    }

    int Run(CTool& oTool) override
    {
        CGateway<CQuorvelClientAWire> oGateway(oTool);
        if (const int nStatus = oGateway.OpenGateway(); nStatus != 0)
            return nStatus;
        unsigned nBaudrate = 0;
        unsigned nAddress = 0;
        unsigned nSize = 0;
        unsigned nPageSize = 0;
        std::string strName;
        if (const int nStatus = oGateway.Check(
                "get target", oGateway.GetConfig(nBaudrate, nAddress, nSize, nPageSize, strName), 16);
            nStatus != 0)
            return nStatus;
        return oGateway.Check(
            "set target", oGateway.SetConfig(m_nBaudrate.value_or(nBaudrate), m_nAddress.value_or(nAddress),
                                             m_nSize.value_or(nSize), m_nPageSize.value_or(nPageSize),
                                             m_strName.value_or(strName)));
    }

  private:
    void AddNumber(const char* pName, std::optional<unsigned>& nNumber, const char* pText, const char* pType)
    {
        m_oApp.add_option(pName, nNumber, pText)->type_name(pType);
    }

    std::optional<unsigned> m_nBaudrate;
    std::optional<unsigned> m_nAddress;
    std::optional<unsigned> m_nSize;
    std::optional<unsigned> m_nPageSize;
    std::optional<std::string> m_strName;
};

} // namespace

void AddAWire(CTool& oTool)
{
    CLI::App& oGroup = oTool.AddGroup("awire", "The aWire programmer: flash and user page of a target");
    AddTargetVerbs<CAWireTarget>(oTool, oGroup);
    oTool.AddVerb<CAWireConfig>(oGroup);
}
