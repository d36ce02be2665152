// The group `firmware`.

#include "Gateway.h"
#include "Groups.h"
#include "Kinds.h"
#include "Programmer.h"
#include "QuorvelClientFirmware.h"
#include "Text.h"

#include <algorithm>
#include <chrono>
#include <unistd.h>

namespace
{

using SInfo = CQuorvelClientFirmware::SQuorvelDeviceInfoEx;

constexpr std::uint64_t BLOCK = 2048;
constexpr std::uint64_t BLOCKS = 128;
constexpr std::uint64_t EEPROM_REACH = 0x10000;   // offsets have 16 bits
constexpr std::uint64_t EEPROM_WRITE_CHUNK = 256; // writing an EEPROM takes its time
constexpr std::uint64_t EEPROM_READ_CHUNK = 2048;
constexpr int RC_SHORT_ANSWER = 0x000C0000;

/// A gateway's own flash and EEPROM.
class CFirmwareTarget : public CTarget
{
  public:
    explicit CFirmwareTarget(CTool& oTool)
        : CTarget(
              {{"flash", 0, BLOCKS * BLOCK, BLOCK, BLOCKS * BLOCK}, {"eeprom", 0, 0, 1, 0, EEPROM_REACH}}),
          m_oTool(oTool),
          m_oGateway(oTool)
    {
    }

    int Open() override
    {
        if (const int nStatus = m_oGateway.OpenGateway(); nStatus != 0)
            return nStatus;
        int nSize = 0;
        const int nStatus = m_oGateway.Check("get EEPROM size", m_oGateway.GetEEPromInfo(nSize), 6);
        m_aoMemories[1].nSize = static_cast<unsigned>(std::max(nSize, 0));
        return nStatus;
    }

    int EraseBlock(const SMemory& /*oMemory*/, unsigned /*nBlock*/) override
    {
        const int nStatus = m_oGateway.Check("clear flash", m_oGateway.ClearFlash());
        m_bTouched = m_oGateway.IsSent();
        return nStatus;
    }

    /// @return true when the flash is perhaps no longer what it was
    bool IsTouched() const { return m_bTouched; }

    int Read(const SMemory& oMemory, std::uint64_t nAddress, std::uint64_t nLength, std::string& strBytes,
             const TProgress& fnProgress) override
    {
        const bool bFlash = IsFlash(oMemory);
        const std::uint64_t nSkip = bFlash ? nAddress % BLOCK : 0;
        strBytes.clear();
        while (strBytes.size() < nSkip + nLength) {
            const std::uint64_t nAt = nAddress - nSkip + strBytes.size();
            const std::uint64_t nWanted =
                bFlash ? BLOCK : std::min(EEPROM_READ_CHUNK, nLength - strBytes.size());
            char acBytes[std::max(BLOCK, EEPROM_READ_CHUNK)];
            unsigned nRead = 0;
            int nRC = 0;
            if (bFlash) {
                nRC = m_oGateway.ReadFlash(static_cast<unsigned short>(nAt / BLOCK), acBytes, nRead);
            } else {
                unsigned short nReadShort = 0;
                nRC = m_oGateway.ReadEEProm(static_cast<unsigned>(nAt), acBytes,
                                            static_cast<unsigned short>(nWanted), nReadShort);
                nRead = nReadShort;
            }
            if (nRC == 0 && nRead < nWanted)
                nRC = RC_SHORT_ANSWER;
            if (nRC != 0)
                return m_oGateway.Check(fmt::format("read {} 0x{:04x}", oMemory.strName, nAt), nRC);
            strBytes.append(acBytes, nWanted);
            fnProgress(std::min(strBytes.size() - nSkip, nLength));
        }
        strBytes = strBytes.substr(nSkip, nLength);
        return eStatusDone;
    }

    int Write(const SMemory& oMemory, std::uint64_t nAddress, std::string_view strBytes,
              const TProgress& fnProgress) override
    {
        for (std::uint64_t nDone = 0; nDone < strBytes.size();) {
            const std::uint64_t nAt = nAddress + nDone;
            const char* const pBytes = strBytes.data() + nDone;
            const std::uint64_t nChunk =
                IsFlash(oMemory) ? BLOCK
                                 : std::min<std::uint64_t>(EEPROM_WRITE_CHUNK, strBytes.size() - nDone);
            const int nRC = IsFlash(oMemory)
                                ? m_oGateway.WriteFlash(static_cast<unsigned short>(nAt / BLOCK), pBytes)
                                : m_oGateway.WriteEEProm(static_cast<unsigned>(nAt), pBytes,
                                                         static_cast<unsigned short>(nChunk));
            if (nRC != 0)
                return m_oGateway.Check(fmt::format("write {} 0x{:04x}", oMemory.strName, nAt), nRC);
            nDone += nChunk;
            fnProgress(nDone);
        }
        return eStatusDone;
    }

    int GetDeviceInfo(SInfo& oInfo)
    {
        return m_oGateway.Check("get device information", m_oGateway.GetInfo(oInfo), sizeof oInfo);
    }

    /// Restarts the gateway and waits until it answers again.
    int Restart(std::chrono::milliseconds oPatience)
    {
        if (const int nStatus = m_oGateway.Check("restart", m_oGateway.Restart()); nStatus != 0)
            return nStatus;
        m_oTool.Note("Restarting");
        const CTool::SOptions& oOptions = m_oTool.GetOptions();
        const auto oEnd = std::chrono::steady_clock::now() + oPatience;
        // First the old connection has to go: it would still be answered.
        bool bAway = false;
        while (std::chrono::steady_clock::now() < oEnd &&
               m_oTool.GetInterrupt().Wait(std::chrono::milliseconds(20))) {
            bAway = bAway || m_oGateway.GetConnectState() != CZelIPBase::eStateConnected;
            SInfo oInfo{};
            if (bAway &&
                m_oGateway.Connect(oOptions.strHost.c_str(), m_oTool.GetPort(eDeviceFirmware),
                                   CZelIPBase::eProtocolTCP, true) == 0 &&
                m_oGateway.GetInfo(oInfo) == 0)
                return eStatusDone;
        }
        return m_oTool.Fail(eStatusNoAnswer,
                            fmt::format("{} {} within {} ms", oOptions.strHost,
                                        bAway ? "has not answered again" : "has not restarted",
                                        oPatience.count()));
    }

  private:
    static bool IsFlash(const SMemory& oMemory) { return oMemory.strName == "flash"; }

    CTool& m_oTool;
    CGateway<CQuorvelClientFirmware> m_oGateway;
    bool m_bTouched = false;
};

class CFirmwareInfo : public CVerb
{
  public:
    explicit CFirmwareInfo(CLI::App& oGroup)
        : CVerb(oGroup, "info", "Print serial number, versions and EEPROM size of a gateway")
    {
        m_oApp.footer("quorvel -g 192.168.0.10 firmware info");
    }

    int Run(CTool& oTool) override
    {
        CFirmwareTarget oTarget(oTool);
        SInfo oInfo{};
        int nStatus = oTarget.Open();
        if (nStatus == 0)
            nStatus = oTarget.GetDeviceInfo(oInfo);
        if (nStatus != 0)
            return nStatus;
        const std::uint64_t nEEPROM = oTarget.GetMemories()[1].nSize;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"serial_number", oInfo.nSerialNumber},
                              {"hardware", oInfo.GetHWVersionString()},
                              {"software", oInfo.GetSWVersionString()},
                              {"eeprom_bytes", nEEPROM}});
        else
            fmt::print("serial number  {}\nhardware       {}\nsoftware       {}\nEEPROM         {} bytes\n",
                       oInfo.nSerialNumber, oInfo.GetHWVersionString(), oInfo.GetSWVersionString(), nEEPROM);
        return eStatusDone;
    }
};

/// A memory operation on a file.
class CFirmwareOperation : public CVerb
{
  public:
    CFirmwareOperation(CLI::App& oGroup, SMemoryOperation::EAction eAction, const char* pText,
                       const char* pMemory)
        : CVerb(oGroup, eAction == SMemoryOperation::EAction::eRead ? "read" : "write", pText)
    {
        m_oOperation.strMemories = pMemory;
        m_oOperation.eAction = eAction;
        AddFormatOption(m_oApp, m_strFormat, eAction);
    }

    int Run(CTool& oTool) override
    {
        if (!m_strFormat.empty())
            m_oOperation.cFormat = m_strFormat[0];
        CFirmwareTarget oTarget(oTool);
        CProgrammer oProgrammer(oTool, oTarget, m_oOptions);
        const int nStatus = oProgrammer.Prepare({m_oOperation});
        return nStatus != 0 ? nStatus : oProgrammer.Run();
    }

  protected:
    SMemoryOperation m_oOperation;
    std::string m_strFormat;
    CProgrammer::SOptions m_oOptions;
};

class CFlashRead : public CFirmwareOperation
{
  public:
    explicit CFlashRead(CLI::App& oGroup)
        : CFirmwareOperation(oGroup, SMemoryOperation::EAction::eRead,
                             "Read a gateway's program flash into a file", "flash")
    {
        AddRangeOptions(m_oApp, m_oOptions);
        m_oApp.add_option("FILE", m_oOperation.strFile, "The file, - for standard output")
            ->type_name("")
            ->required();
        m_oApp.footer(
            "The flash has 128 blocks of 2048 bytes and begins at address 0. Formats: i Intel "
            "HEX, I with comments, s S-records, r raw, d, h, o, b numbers; without --format as the ending of "
            "the name tells, such as .hex, .srec or .bin, else raw.\n\nquorvel -g 192.168.0.10 firmware read "
            "old.bin");
    }
};

class CEepromRead : public CFirmwareOperation
{
  public:
    explicit CEepromRead(CLI::App& oGroup)
        : CFirmwareOperation(oGroup, SMemoryOperation::EAction::eRead, "Read a gateway's EEPROM", "eeprom")
    {
        AddRangeOptions(m_oApp, m_oOptions);
        m_oApp
            .add_option("FILE", m_oOperation.strFile,
                        "A file, - for standard output; default: a hex dump is printed")
            ->type_name("");
        m_oApp.footer(
            "The first 256 bytes are the device information. Formats of files: i Intel HEX, I "
            "with comments, s S-records, r raw, d, h, o, b numbers; without --format as the ending of the "
            "name tells, such as .hex, .srec or .bin, else raw. Without a file, --json prints first and last "
            "address and the bytes.\n\nquorvel -g 192.168.0.10 firmware eeprom read --address 0x100 "
            "--length 256");
    }

    int Run(CTool& oTool) override
    {
        if (!m_oOperation.strFile.empty())
            return CFirmwareOperation::Run(oTool);
        CFirmwareTarget oTarget(oTool);
        if (const int nStatus = oTarget.Open(); nStatus != 0)
            return nStatus;
        const SMemory& oMemory = oTarget.GetMemories()[1];
        SAddresses oRange{};
        if (const int nStatus = m_oOptions.FindRange(oTool, oMemory, oRange); nStatus != 0)
            return nStatus;
        const auto [nFirst, nLast] = oRange;
        std::string strBytes;
        if (const int nStatus =
                oTarget.Read(oMemory, nFirst, nLast - nFirst + 1, strBytes, [](std::uint64_t) {});
            nStatus != 0)
            return nStatus;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"first", nFirst}, {"last", nLast}, {"bytes", ToHex(strBytes, "")}});
        else
            fmt::print("{}", Dump(nFirst, strBytes));
        return eStatusDone;
    }
};

class CEepromWrite : public CFirmwareOperation
{
  public:
    explicit CEepromWrite(CLI::App& oGroup)
        : CFirmwareOperation(oGroup, SMemoryOperation::EAction::eWrite,
                             "Write a file to a gateway's EEPROM, and verify it", "eeprom")
    {
        m_oApp.add_option("FILE", m_oOperation.strFile, "The file, - for standard input")
            ->type_name("")
            ->required();
        AddAddressOption(m_oApp, m_oOptions, "Where a file without addresses begins; default 0");
        m_oApp.add_flag("-V,--no-verify", m_oOptions.bNoVerify,
                        "Do not read back and compare what was written");
        m_oApp.add_flag("-n,--dry-run", m_oOptions.bDryRun, "Do not write: only check the file");
        m_oApp.footer(
            "The first 256 bytes are the device information: serial number and versions, most significant "
            "byte "
            "first. Formats: a automatic (as the ending of the name tells, such as .hex, .srec or .bin, else "
            "as "
            "the file begins: Intel HEX, S-records, ELF, anything else raw), i, s, e, r, d, h, o, b "
            "numbers, and m: then FILE is not a file but the bytes themselves.\n\nquorvel -g 192.168.0.10 "
            "firmware eeprom write --address 0x100 --format m 0x12,0x34");
    }
};

class CFirmwareUpdate : public CVerb
{
  public:
    explicit CFirmwareUpdate(CLI::App& oGroup) : CVerb(oGroup, "update", "Give a gateway new firmware")
    {
        m_oApp.add_option("FILE", m_oOperation.strFile, "The firmware, - for standard input")
            ->type_name("")
            ->required();
        AddFormatOption(m_oApp, m_strFormat, m_oOperation.eAction);
        m_oApp.add_flag("-y,--yes", m_bYes, "Do not ask for permission");
        m_oApp
            .add_option("--restart-time", m_nRestartTime, "How long to wait until the gateway answers again")
            ->type_name("MS")
            ->capture_default_str()
            ->check(CLI::Range(1U, 3600000U).description(""));
        m_oApp.footer("The file is checked first: a raw file, or an image (Intel HEX, S-records, ELF) with "
                      "addresses from 0 on, "
                      "that fits 128 blocks of 2048 bytes. Then you are asked, unless --yes; without a "
                      "terminal and without "
                      "--yes nothing is done (exit status 2). The flash is cleared, written, read back and "
                      "compared, the gateway "
                      "is restarted, and its information is printed when it answers again.\n\nWhen something "
                      "fails after "
                      "clearing, the gateway is not restarted: repeat the update, since without complete "
                      "firmware it may not "
                      "start any more. Clearing takes long: raise --timeout when the gateway does not answer "
                      "in time.\n\nExit "
                      "status: 3 when what was read back differs, 4 when the gateway does not answer again, "
                      "5 when the file is no "
                      "good.\n\nquorvel -g 192.168.0.10 --timeout 10000 firmware update new.hex");
    }

    int Run(CTool& oTool) override
    {
        if (!m_bYes && (m_oOperation.strFile == "-" || ::isatty(STDIN_FILENO) == 0))
            return oTool.Fail(eStatusUsage, "there is no terminal to ask for permission: give --yes");
        if (!m_strFormat.empty())
            m_oOperation.cFormat = m_strFormat[0];
        CFirmwareTarget oTarget(oTool);
        CProgrammer oProgrammer(oTool, oTarget, {});
        if (const int nStatus = oProgrammer.Prepare({m_oOperation}); nStatus != 0)
            return nStatus;
        if (const int nStatus = oTarget.Open(); nStatus != 0)
            return nStatus;
        SInfo oInfo{};
        if (const int nStatus = oTarget.GetDeviceInfo(oInfo); nStatus != 0)
            return nStatus;
        if (!m_bYes) {
            const std::string strAnswer =
                oTool
                    .Ask(fmt::format("Replace the firmware of {} (serial number {}, hardware {}, software "
                                     "{}) by {}? [y/N]",
                                     oTool.GetOptions().strHost, oInfo.nSerialNumber,
                                     oInfo.GetHWVersionString(), oInfo.GetSWVersionString(),
                                     m_oOperation.strFile))
                    .value_or("");
            if (strAnswer != "y" && strAnswer != "Y" && strAnswer != "yes")
                return oTool.Fail(eStatusUsage, "not updated: you did not agree");
        }
        {
            const CInterrupt::CScope oScope(oTool.GetInterrupt(), CInterrupt::eByItself); // for the warning
            if (const int nStatus = oProgrammer.Execute(); nStatus != 0) {
                if (oTarget.IsTouched())
                    oTool.Warn(
                        "the gateway has no complete firmware: repeat the update before it is restarted");
                return nStatus;
            }
        }
        if (const int nStatus = oTarget.Restart(std::chrono::milliseconds(m_nRestartTime)); nStatus != 0)
            return nStatus;
        if (const int nStatus = oTarget.GetDeviceInfo(oInfo); nStatus != 0)
            return nStatus;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"operation", "restart"},
                              {"serial_number", oInfo.nSerialNumber},
                              {"hardware", oInfo.GetHWVersionString()},
                              {"software", oInfo.GetSWVersionString()}});
        else
            fmt::print("serial number {}, hardware {}, software {}\n", oInfo.nSerialNumber,
                       oInfo.GetHWVersionString(), oInfo.GetSWVersionString());
        return eStatusDone;
    }

  private:
    SMemoryOperation m_oOperation;
    std::string m_strFormat;
    bool m_bYes = false;
    unsigned m_nRestartTime = 30000;
};

} // namespace

void AddFirmware(CTool& oTool)
{
    CLI::App& oGroup = oTool.AddGroup("firmware", "A gateway's own firmware and EEPROM");
    oTool.AddVerb<CFirmwareInfo>(oGroup);
    oTool.AddVerb<CFlashRead>(oGroup);
    oTool.AddVerb<CFirmwareUpdate>(oGroup);
    CLI::App* const pEeprom = oGroup.add_subcommand("eeprom", "The EEPROM of a gateway");
    pEeprom->require_subcommand(1);
    oTool.AddVerb<CEepromRead>(*pEeprom);
    oTool.AddVerb<CEepromWrite>(*pEeprom);
}
