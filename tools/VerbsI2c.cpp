// The group `i2c`: the verbs of i2c-tools, and the bus clock. The EEPROMs are in VerbsI2cEeprom.cpp.

#include "Groups.h"
#include "I2cBus.h"
#include "Text.h"
#include "VerbsI2cEeprom.h"

#include <algorithm>
#include <array>
#include <utility>

namespace
{

constexpr unsigned REGISTERS = 256;
constexpr int UNREADABLE = -1;
constexpr const char* HEADER = "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f";

unsigned ToByteValue(char cByte)
{
    return static_cast<unsigned char>(cByte);
}

// The low byte first.
unsigned ToValue(const std::string& strBytes)
{
    unsigned nValue = 0;
    for (std::size_t i = strBytes.size(); i-- > 0;)
        nValue = nValue << 8 | ToByteValue(strBytes[i]);
    return nValue;
}

// A value as i2cget prints it: a number, or the bytes of a block.
std::string FormatValue(SI2cAccess::EMode eMode, const std::string& strBytes)
{
    if (eMode == SI2cAccess::eSmbusBlock || eMode == SI2cAccess::eI2cBlock)
        return ToI2cBytes(strBytes);
    return fmt::format("0x{:0{}x}", ToValue(strBytes), 2 * strBytes.size());
}

// Reads a mode such as "b" or "wp".
bool ParseMode(const std::string& strMode, const std::string& strLetters, SI2cAccess& oAccess)
{
    if (strMode.empty() || strMode.size() > 2 || strLetters.find(strMode[0]) == std::string::npos ||
        (strMode.size() == 2 && strMode[1] != 'p'))
        return false;
    switch (strMode[0]) {
    case 'w':
    case 'W':
        oAccess.eMode = SI2cAccess::eWord;
        break;
    case 'c':
        oAccess.eMode = SI2cAccess::eConsecutive;
        break;
    case 's':
        oAccess.eMode = SI2cAccess::eSmbusBlock;
        break;
    case 'i':
        oAccess.eMode = SI2cAccess::eI2cBlock;
        break;
    default:
        oAccess.eMode = SI2cAccess::eByte;
        break;
    }
    oAccess.bPec = strMode.size() == 2;
    return oAccess.eMode != SI2cAccess::eI2cBlock || !oAccess.bPec; // SMBus has no I2C blocks
}

// What the verbs of i2c-tools share.
class CI2cVerb : public CVerb
{
  public:
    CI2cVerb(CLI::App& oGroup, const std::string& strName, const std::string& strText)
        : CVerb(oGroup, strName, strText)
    {
        m_oApp.add_flag("-y,--yes", m_bYes, "Do not ask");
        m_oApp.add_flag("-f,--force", m_bForce,
                        "Without effect: no driver can hold a device behind a gateway");
        m_oApp.add_flag("-a,--all", m_bAll, "Allow the addresses 0x00 to 0x7f instead of 0x08 to 0x77");
    }

  protected:
    CLI::Option* AddBus()
    {
        return m_oApp
            .add_option("I2CBUS", m_nBus, "Port index of the gateway, as --port-index: 0 is the first")
            ->type_name("")
            ->check(CLI::Range(0U, MAX_PORT_INDEX).description(""));
    }

    void AddAddress(const std::string& strName)
    {
        m_oApp.add_option(strName, m_oAccess.nAddress, "The 7-bit address of the device")
            ->type_name("")
            ->required();
    }

    unsigned GetFirst() const { return m_bAll ? 0x00 : 0x08; }
    unsigned GetLast() const { return m_bAll ? 0x7F : 0x77; }

    int CheckAddress(CTool& oTool, const std::string& strName, unsigned nAddress) const
    {
        if (nAddress >= GetFirst() && nAddress <= GetLast())
            return eStatusDone;
        return oTool.Fail(eStatusUsage,
                          fmt::format("{} out of range (0x{:02x}-0x{:02x}){}", strName, GetFirst(), GetLast(),
                                      !m_bAll && nAddress <= 0x7F ? "; -a allows it" : ""));
    }

    // Asks, unless -y. At the end of the input the answer is no.
    int Ask(CTool& oTool, const std::string& strText, bool bDefault = true) const
    {
        if (m_bYes)
            return eStatusDone;
        const auto strAnswer =
            oTool.Ask(fmt::format("{}\nContinue? [{}]", strText, bDefault ? "Y/n" : "y/N"));
        const char cAnswer = !strAnswer || strAnswer->empty() ? '\0' : strAnswer->front();
        const bool bYes = cAnswer == 'y' || cAnswer == 'Y';
        const bool bNo = cAnswer == 'n' || cAnswer == 'N';
        if (strAnswer && (bYes || (bDefault && !bNo)))
            return eStatusDone;
        return oTool.Fail(eStatusUsage, "not confirmed, nothing was done; -y does not ask");
    }

    // Connects to the bus of the command line.
    int OpenBus(CTool& oTool, CI2cBus& oBus) const
    {
        oTool.GetOptions().nPortIndex = m_nBus;
        return oBus.GetGateway().OpenGateway();
    }

    SI2cAccess m_oAccess;
    unsigned m_nBus = 0;
    bool m_bYes = false;
    bool m_bForce = false;
    bool m_bAll = false;
};

class CDetect : public CI2cVerb
{
  public:
    explicit CDetect(CLI::App& oGroup) : CI2cVerb(oGroup, "detect", "Look for devices, as i2cdetect does")
    {
        CLI::Option* const pQuick = m_oApp.add_flag("-q", m_bQuick, "Probe with quick writes only");
        m_oApp.add_flag("-r", m_bRead, "Probe by reading a byte only")->excludes(pQuick);
        m_oApp.add_flag("-F", m_bFunctions, "List what can be done on the bus instead");
        m_oApp.add_flag("-l", m_bList, "List the buses instead: the gateways at HOST from port index 0 on");
        m_pBus = AddBus();
        m_oApp.add_option("FIRST", m_nFirst, "The first address to probe")->type_name("");
        m_oApp.add_option("LAST", m_nLast, "The last address to probe")->type_name("");
        m_oApp.footer(
            "Prints the grid of i2cdetect: an address that answers, -- where nobody does, and nothing where "
            "none was probed. With --json an object with the address of each device found.\n\n"
            "Without -q and -r addresses 0x30 to 0x37 and 0x50 to 0x5f are probed by reading a byte, the "
            "others by a write without data. A gateway that does not carry out such a write needs -r.\n\n"
            "In this verb -q is not the option of all verbs; that is --quiet.\n\n"
            "quorvel -g 192.168.0.10 i2c detect -y 0\n\n"
            "quorvel -g 192.168.0.10 i2c detect -y -r 0 0x40 0x4f");
    }

    int Run(CTool& oTool) override
    {
        if (m_bList)
            return List(oTool);
        if (m_pBus->empty())
            return oTool.Fail(eStatusUsage, "I2CBUS is required; -l lists the buses");
        if (m_nFirst && !m_nLast)
            return oTool.Fail(eStatusUsage, "FIRST comes with LAST");
        const unsigned nFirst = m_nFirst.value_or(GetFirst());
        const unsigned nLast = m_nLast.value_or(GetLast());
        int nStatus = CheckAddress(oTool, "FIRST", nFirst);
        if (nStatus == 0)
            nStatus = CheckAddress(oTool, "LAST", nLast);
        if (nStatus == 0 && nFirst > nLast)
            nStatus = oTool.Fail(eStatusUsage, "LAST is below FIRST");
        if (nStatus == 0 && !m_bFunctions)
            nStatus =
                Ask(oTool, fmt::format("This can confuse the bus, cause data loss and worse. It probes the "
                                       "addresses 0x{:02x}-0x{:02x}.",
                                       nFirst, nLast));
        if (nStatus != 0)
            return nStatus;
        CI2cBus oBus(oTool);
        if (nStatus = OpenBus(oTool, oBus); nStatus != 0)
            return nStatus;
        return m_bFunctions ? PrintFunctions(oTool) : Scan(oTool, oBus, nFirst, nLast);
    }

  private:
    int Scan(CTool& oTool, CI2cBus& oBus, unsigned nFirst, unsigned nLast) const
    {
        const bool bJson = oTool.GetOptions().bJson;
        if (!bJson)
            fmt::print("{}\n", HEADER);
        for (unsigned nRow = 0; nRow < 0x80; nRow += 16) {
            std::string strRow = fmt::format("{:02x}: ", nRow);
            for (unsigned nAddress = nRow; nAddress < nRow + 16; ++nAddress) {
                if (nAddress < nFirst || nAddress > nLast) {
                    strRow += "   ";
                    continue;
                }
                bool bAbsent = false;
                if (const int nStatus = Probe(oBus, nAddress, bAbsent); nStatus != 0)
                    return nStatus;
                strRow += bAbsent ? "-- " : fmt::format("{:02x} ", nAddress);
                if (bJson && !bAbsent)
                    CTool::PrintJson({{"address", nAddress}});
            }
            if (!bJson)
                fmt::print("{}\n", strRow);
        }
        return eStatusDone;
    }

    int Probe(CI2cBus& oBus, unsigned nAddress, bool& bAbsent) const
    {
        // A quick write may corrupt an EEPROM of the one range; reading may lock a chip outside of both.
        const bool bReadable =
            (nAddress >= 0x30 && nAddress <= 0x37) || (nAddress >= 0x50 && nAddress <= 0x5F);
        const bool bRead = m_bRead || (bReadable && !m_bQuick);
        std::vector<SI2cMessage> aoMessages(1);
        aoMessages[0].nAddress = nAddress;
        aoMessages[0].bRead = bRead;
        aoMessages[0].nLength = bRead ? 1 : 0;
        return oBus.Run(aoMessages, &bAbsent);
    }

    int PrintFunctions(CTool& oTool) const
    {
        constexpr std::array<std::pair<const char*, bool>, 17> FUNCTIONS{{{"I2C", true},
                                                                          {"SMBus Quick Command", true},
                                                                          {"SMBus Send Byte", true},
                                                                          {"SMBus Receive Byte", true},
                                                                          {"SMBus Write Byte", true},
                                                                          {"SMBus Read Byte", true},
                                                                          {"SMBus Write Word", true},
                                                                          {"SMBus Read Word", true},
                                                                          {"SMBus Process Call", true},
                                                                          {"SMBus Block Write", true},
                                                                          {"SMBus Block Read", true},
                                                                          {"SMBus Block Process Call", true},
                                                                          {"SMBus PEC", true},
                                                                          {"I2C Block Write", true},
                                                                          {"I2C Block Read", true},
                                                                          {"SMBus Host Notify", false},
                                                                          {"10-bit addressing", false}}};
        if (!oTool.GetOptions().bJson)
            fmt::print("Functionalities implemented by {}:{}:\n", ToHarmless(oTool.GetOptions().strHost),
                       oTool.GetPort(eDeviceI2C));
        for (const auto& [pName, bThere] : FUNCTIONS) {
            if (oTool.GetOptions().bJson)
                CTool::PrintJson({{"function", pName}, {"implemented", bThere}});
            else
                fmt::print("{:<32} {}\n", pName, bThere ? "yes" : "no");
        }
        return eStatusDone;
    }

    // The first gateway has to be there; the list ends where there is none any more.
    static int List(CTool& oTool)
    {
        CTool::SOptions& oOptions = oTool.GetOptions();
        for (oOptions.nPortIndex = 0; oOptions.nPortIndex <= MAX_PORT_INDEX; ++oOptions.nPortIndex) {
            CGateway<CQuorvelClientI2C> oGateway(oTool);
            const unsigned short nPort = oTool.GetPort(eDeviceI2C);
            if (oOptions.nPortIndex == 0) {
                if (const int nStatus = oGateway.OpenGateway(); nStatus != 0)
                    return nStatus;
            } else if (oGateway.Connect(oOptions.strHost.c_str(), nPort, CZelIPBase::eProtocolTCP, true) !=
                       0) {
                break;
            }
            if (oOptions.bJson)
                CTool::PrintJson({{"bus", oOptions.nPortIndex}, {"host", oOptions.strHost}, {"port", nPort}});
            else
                fmt::print("i2c-{}\t{:<10}\t{:<32}\t{}\n", oOptions.nPortIndex, "i2c",
                           fmt::format("{}:{}", ToHarmless(oOptions.strHost), nPort), "I2C gateway");
        }
        return oTool.GetInterrupt().GetSignal() != 0 ? oTool.Fail(eStatusNoAnswer, "") : eStatusDone;
    }

    CLI::Option* m_pBus = nullptr;
    std::optional<unsigned> m_nFirst;
    std::optional<unsigned> m_nLast;
    bool m_bQuick = false;
    bool m_bRead = false;
    bool m_bFunctions = false;
    bool m_bList = false;
};

class CGet : public CI2cVerb
{
  public:
    explicit CGet(CLI::App& oGroup) : CI2cVerb(oGroup, "get", "Read a register, as i2cget does")
    {
        AddBus()->required();
        AddAddress("CHIP-ADDRESS");
        m_oApp.add_option("DATA-ADDRESS", m_oAccess.nRegister, "The register; none: read a byte at once")
            ->type_name("")
            ->check(CLI::Range(0U, 0xFFU).description(""));
        m_oApp
            .add_option("MODE", m_strMode,
                        "b byte (default), w word, c write byte and read byte, s SMBus block, i I2C block; "
                        "p appended: with PEC, the SMBus packet error code")
            ->type_name("");
        m_oApp.add_option("LENGTH", m_nLength, "Bytes in an I2C block: 1 to 32, which is the default")
            ->type_name("")
            ->check(CLI::Range(1U, 32U).description(""));
        m_oApp.footer(
            "Prints 0x1a for a byte, 0x1a2b for a word, whose low byte comes first, and 0x1a 0x2b for "
            "blocks. "
            "With --json \"value\" is a number, and \"bytes\" are those of a block.\n\n"
            "The length of an SMBus block is not known before: 33 bytes are read, and what follows the block "
            "is dropped.\n\n"
            "Status: 1 when the device does not acknowledge (NACK) or the bus is stuck, 3 for a wrong packet "
            "error code, 4 when the gateway does not answer.\n\n"
            "quorvel -g 192.168.0.10 i2c get -y 0 0x48 0 w\n\n"
            "quorvel -g 192.168.0.10 i2c get -y 0 0x50 0x10 i 16");
    }

    int Run(CTool& oTool) override
    {
        int nStatus = CheckAddress(oTool, "CHIP-ADDRESS", m_oAccess.nAddress);
        if (nStatus == 0 && !m_strMode.empty() && !ParseMode(m_strMode, "bwcsi", m_oAccess))
            nStatus = oTool.Fail(eStatusUsage, "MODE: b, w, c, s, bp, wp, cp, sp or i");
        if (nStatus == 0 && m_nLength && m_oAccess.eMode != SI2cAccess::eI2cBlock)
            nStatus = oTool.Fail(eStatusUsage, "LENGTH is for mode i only");
        if (nStatus == 0)
            nStatus = Ask(
                oTool,
                fmt::format("This can confuse the bus, cause data loss and worse. It reads from 0x{:02x}{}.",
                            m_oAccess.nAddress, m_oAccess.bPec ? ", with PEC" : ""),
                !m_oAccess.bPec || m_oAccess.eMode != SI2cAccess::eConsecutive);
        if (nStatus != 0)
            return nStatus;
        m_oAccess.nLength = m_nLength.value_or(m_oAccess.nLength);
        CI2cBus oBus(oTool);
        std::string strBytes;
        nStatus = OpenBus(oTool, oBus);
        if (nStatus == 0)
            nStatus = oBus.ReadValue(m_oAccess, strBytes);
        if (nStatus != 0)
            return nStatus;
        if (!oTool.GetOptions().bJson) {
            fmt::print("{}\n", FormatValue(m_oAccess.eMode, strBytes));
            return eStatusDone;
        }
        CJson oData{{"address", m_oAccess.nAddress}};
        if (m_oAccess.nRegister)
            oData["register"] = *m_oAccess.nRegister;
        if (m_oAccess.eMode == SI2cAccess::eSmbusBlock || m_oAccess.eMode == SI2cAccess::eI2cBlock)
            oData["bytes"] = ToHex(strBytes, "");
        else
            oData["value"] = ToValue(strBytes);
        CTool::PrintJson(oData);
        return eStatusDone;
    }

  private:
    std::string m_strMode;
    std::optional<unsigned> m_nLength;
};

class CSet : public CI2cVerb
{
  public:
    explicit CSet(CLI::App& oGroup) : CI2cVerb(oGroup, "set", "Write a register, as i2cset does")
    {
        m_oApp.add_option("-m", m_nMask, "Keep the bits that are 0 in the mask as the register has them")
            ->type_name("MASK")
            ->check(CLI::Range(1U, 0xFFFFU).description(""));
        m_oApp.add_flag("-r", m_bReadBack, "Read the value back and compare");
        AddBus()->required();
        AddAddress("CHIP-ADDRESS");
        m_oApp.add_option("DATA-ADDRESS", m_oAccess.nRegister, "The register")
            ->type_name("")
            ->required()
            ->check(CLI::Range(0U, 0xFFU).description(""));
        m_oApp
            .add_option("VALUE", m_astrWords,
                        "The value, or the bytes of a block, at most 32; then the mode: b byte (default for "
                        "one value), w word, s SMBus block, i I2C block, c no value (default without any); p "
                        "appended: with PEC, the SMBus packet error code")
            ->type_name("");
        m_oApp.footer(
            "Prints nothing, or with -r \"Value 0x12 written, readback matched\" or \"Warning - data "
            "mismatch - "
            "wrote 0x12, read back 0x13\", with --json an object with what was written and read.\n\n"
            "Status: 1 when the device does not acknowledge (NACK) or the bus is stuck, 3 when the value "
            "read "
            "back is another, 4 when the gateway does not answer.\n\n"
            "quorvel -g 192.168.0.10 i2c set -y -r 0 0x48 2 0x4b00 w\n\n"
            "quorvel -g 192.168.0.10 i2c set -y 0 0x50 0x10 1 2 3 4 i");
    }

    int Run(CTool& oTool) override
    {
        int nStatus = CheckAddress(oTool, "CHIP-ADDRESS", m_oAccess.nAddress);
        if (nStatus != 0)
            return nStatus;
        if (const std::string strFault = ParseWords(); !strFault.empty())
            return oTool.Fail(eStatusUsage, strFault);
        const bool bMemory = m_oAccess.nAddress >= 0x50 && m_oAccess.nAddress <= 0x57;
        nStatus =
            Ask(oTool,
                fmt::format("This can confuse the bus, cause data loss and worse. It writes to 0x{:02x}{}{}.",
                            m_oAccess.nAddress, m_oAccess.bPec ? ", with PEC" : "",
                            bMemory ? ", which may be an EEPROM that somebody needs" : ""),
                !bMemory);
        CI2cBus oBus(oTool);
        if (nStatus == 0)
            nStatus = OpenBus(oTool, oBus);
        if (nStatus == 0 && m_nMask != 0)
            nStatus = ApplyMask(oTool, oBus);
        if (nStatus == 0)
            nStatus = oBus.WriteValue(m_oAccess, m_strValue);
        return nStatus != 0 || !m_bReadBack ? nStatus : ReadBack(oTool, oBus);
    }

  private:
    // Takes mode and values from the words; says what is wrong with them.
    std::string ParseWords()
    {
        // A single word is a value unless it is "c" or "cp"; several end in the mode.
        const std::size_t nWords = m_astrWords.size();
        const bool bMode = nWords > 1 || (nWords == 1 && m_astrWords[0].starts_with('c'));
        std::string strMode = nWords == 0 ? "c" : "b";
        if (bMode) {
            strMode = m_astrWords.back();
            m_astrWords.pop_back();
        }
        if (!ParseMode(strMode, nWords > 1 ? "bwsi" : "bc", m_oAccess))
            return "invalid mode " + Quote(strMode) + ": behind values b, w, s, bp, wp, sp or i";
        const bool bWord = m_oAccess.eMode == SI2cAccess::eWord;
        const bool bBlock =
            m_oAccess.eMode == SI2cAccess::eSmbusBlock || m_oAccess.eMode == SI2cAccess::eI2cBlock;
        if (m_astrWords.size() > (bBlock ? SI2cMessage::MAX_BLOCK : 1))
            return "too many values: one, or up to 32 in a block";
        for (const std::string& strWord : m_astrWords) {
            const auto nValue = ParseNumber(strWord, bWord ? 0xFFFF : 0xFF);
            if (!nValue)
                return fmt::format("{}: a number up to {} is wanted", Quote(strWord),
                                   bWord ? "0xffff" : "0xff");
            m_strValue += static_cast<char>(*nValue);
            if (bWord)
                m_strValue += static_cast<char>(*nValue >> 8);
        }
        if (m_nMask != 0 && bBlock)
            return "-m is not for blocks";
        if (m_nMask > 0xFF && !bWord)
            return "-m: the mask is larger than the value";
        return "";
    }

    // What is sent: without a value it is the register itself.
    std::string GetSent() const
    {
        return m_oAccess.eMode == SI2cAccess::eConsecutive
                   ? std::string(1, static_cast<char>(m_oAccess.nRegister.value_or(0)))
                   : m_strValue;
    }

    // Reads what the same access would have written.
    int Read(CI2cBus& oBus, std::string& strBytes) const
    {
        SI2cAccess oAccess = m_oAccess;
        if (oAccess.eMode == SI2cAccess::eConsecutive)
            oAccess.nRegister.reset();
        oAccess.nLength = m_strValue.size();
        oAccess.bPec = false; // as i2cset: only the write has one
        return oBus.ReadValue(oAccess, strBytes);
    }

    int ApplyMask(CTool& oTool, CI2cBus& oBus)
    {
        std::string strOld;
        if (const int nStatus = Read(oBus, strOld); nStatus != 0)
            return nStatus;
        const std::string strWanted = GetSent();
        std::string strNew;
        for (std::size_t i = 0; i < strOld.size(); ++i) {
            const unsigned nMask = m_nMask >> 8 * i & 0xFFU;
            strNew +=
                static_cast<char>((ToByteValue(strWanted[i]) & nMask) | (ToByteValue(strOld[i]) & ~nMask));
        }
        if (m_oAccess.eMode == SI2cAccess::eConsecutive)
            m_oAccess.nRegister = ToByteValue(strNew[0]);
        else
            m_strValue = strNew;
        return Ask(oTool, fmt::format("Old value {}, new value {}.", FormatValue(SI2cAccess::eByte, strOld),
                                      FormatValue(SI2cAccess::eByte, strNew)));
    }

    int ReadBack(CTool& oTool, CI2cBus& oBus) const
    {
        std::string strRead;
        if (const int nStatus = Read(oBus, strRead); nStatus != 0)
            return nStatus;
        const std::string strSent = GetSent();
        const bool bSame = strRead == strSent;
        if (oTool.GetOptions().bJson) {
            CTool::PrintJson({{"address", m_oAccess.nAddress},
                              {"register", m_oAccess.nRegister.value_or(0)},
                              {"written", ToHex(strSent, "")},
                              {"read", ToHex(strRead, "")},
                              {"match", bSame}});
        } else if (bSame) {
            fmt::print("Value {} written, readback matched\n", FormatValue(m_oAccess.eMode, strSent));
        } else {
            fmt::print("Warning - data mismatch - wrote {}, read back {}\n",
                       FormatValue(m_oAccess.eMode, strSent), FormatValue(m_oAccess.eMode, strRead));
        }
        return bSame ? eStatusDone : eStatusMismatch;
    }

    std::vector<std::string> m_astrWords;
    std::string m_strValue;
    unsigned m_nMask = 0;
    bool m_bReadBack = false;
};

class CDump : public CI2cVerb
{
  public:
    explicit CDump(CLI::App& oGroup) : CI2cVerb(oGroup, "dump", "Read all registers, as i2cdump does")
    {
        m_oApp.add_option("-r", m_strRange, "Only these registers")->type_name("FIRST-LAST");
        AddBus()->required();
        AddAddress("ADDRESS");
        m_oApp
            .add_option("MODE", m_strMode,
                        "b byte (default), w word, W word at even registers, c consecutive bytes, i I2C "
                        "blocks; p appended: with PEC, the SMBus packet error code")
            ->type_name("");
        m_oApp.add_option("BANK", m_nBank, "Bank to select before, 0 to 15; the old one is restored")
            ->type_name("")
            ->check(CLI::Range(0U, 15U).description(""));
        m_oApp.add_option("BANKREG", m_nBankRegister, "The register that selects it; default 0x4e")
            ->type_name("")
            ->check(CLI::Range(0U, 0xFFU).description(""));
        m_oApp.footer(
            "Prints the grid of i2cdump: XX is a register that cannot be read. The characters beside it: . "
            "is "
            "0x00 or 0xff, ? cannot be printed, X cannot be read. With --json an object for each run of "
            "registers that could be read, \"first\" to \"last\" (included), and in mode w for each "
            "register.\n\n"
            "Status: 1 when no register at all can be read, or the bus is stuck; 4 when the gateway does not "
            "answer.\n\n"
            "quorvel -g 192.168.0.10 i2c dump -y -r 0x00-0x1f 0 0x50 b");
    }

    int Run(CTool& oTool) override
    {
        int nStatus = CheckAddress(oTool, "ADDRESS", m_oAccess.nAddress);
        if (nStatus != 0)
            return nStatus;
        if (m_strMode.empty())
            oTool.Note("No size specified (using byte-data access)");
        else if (!ParseMode(m_strMode, "bwWci", m_oAccess))
            return oTool.Fail(eStatusUsage, "MODE: b, w, W, c, bp, wp, Wp, cp or i");
        m_bEven = m_strMode.starts_with('W');
        if (m_nBank && m_oAccess.eMode == SI2cAccess::eI2cBlock)
            return oTool.Fail(eStatusUsage, "BANK is not for mode i");
        if (!ParseRange())
            return oTool.Fail(eStatusUsage, "-r: first-last, each 0 to 255, whole words in mode W");
        nStatus =
            Ask(oTool,
                fmt::format("This can confuse the bus, cause data loss and worse. It reads from 0x{:02x}{}.",
                            m_oAccess.nAddress, m_oAccess.bPec ? ", with PEC" : ""),
                !m_oAccess.bPec || m_oAccess.eMode != SI2cAccess::eConsecutive);
        CI2cBus oBus(oTool);
        if (nStatus == 0)
            nStatus = OpenBus(oTool, oBus);
        std::string strOldBank;
        if (nStatus == 0)
            nStatus = SelectBank(oBus, strOldBank);
        if (nStatus != 0)
            return nStatus;
        nStatus = m_oAccess.eMode == SI2cAccess::eWord && !m_bEven ? DumpWords(oTool, oBus)
                                                                   : DumpBytes(oTool, oBus);
        if (nStatus == 0 && !m_bAnyRead)
            nStatus = oTool.Fail(eStatusRefused,
                                 fmt::format("0x{:02x}: no register can be read (NACK)", m_oAccess.nAddress));
        if (strOldBank.empty())
            return nStatus;
        const int nRestored = oBus.WriteValue(GetBankAccess(), strOldBank);
        return nStatus != 0 ? nStatus : nRestored;
    }

  private:
    bool ParseRange()
    {
        if (m_strRange.empty())
            return true;
        const auto nDash = m_strRange.find('-');
        if (nDash == std::string::npos)
            return false;
        const auto nFirst = ParseNumber(m_strRange.substr(0, nDash), REGISTERS - 1);
        const auto nLast = ParseNumber(m_strRange.substr(nDash + 1), REGISTERS - 1);
        if (!nFirst || !nLast || *nFirst > *nLast)
            return false;
        m_nFirst = static_cast<unsigned>(*nFirst);
        m_nLast = static_cast<unsigned>(*nLast);
        return !m_bEven || (m_nFirst % 2 == 0 && m_nLast % 2 == 1);
    }

    SI2cAccess GetBankAccess() const
    {
        return {.nAddress = m_oAccess.nAddress, .nRegister = m_nBankRegister, .bPec = m_oAccess.bPec};
    }

    // Bank 0 is what is there without a bank.
    int SelectBank(CI2cBus& oBus, std::string& strOldBank) const
    {
        if (m_nBank.value_or(0) == 0)
            return eStatusDone;
        if (const int nStatus = oBus.ReadValue(GetBankAccess(), strOldBank); nStatus != 0)
            return nStatus;
        return oBus.WriteValue(
            GetBankAccess(),
            std::string(1, static_cast<char>((ToByteValue(strOldBank[0]) & 0xF0U) | *m_nBank)));
    }

    // Reads what one access brings, from a register on.
    int Read(CI2cBus& oBus, unsigned nRegister)
    {
        SI2cAccess oAccess = m_oAccess;
        oAccess.nRegister = nRegister;
        oAccess.nLength = std::min<std::size_t>(SI2cMessage::MAX_BLOCK, m_nLast + 1 - nRegister);
        if (m_oAccess.eMode == SI2cAccess::eConsecutive && nRegister != m_nFirst)
            oAccess.nRegister.reset();
        std::string strBytes;
        bool bUnreadable = false;
        const int nStatus = oBus.ReadValue(oAccess, strBytes, &bUnreadable);
        const std::size_t nLength = m_oAccess.eMode == SI2cAccess::eWord       ? 2
                                    : m_oAccess.eMode == SI2cAccess::eI2cBlock ? oAccess.nLength
                                                                               : 1;
        for (std::size_t i = 0; i < nLength && nRegister + i < REGISTERS; ++i)
            m_anValues[nRegister + i] = bUnreadable || nStatus != 0 ? UNREADABLE : ToValueAt(strBytes, i);
        m_bAnyRead = m_bAnyRead || (nStatus == 0 && !bUnreadable);
        m_nNext = nRegister + static_cast<unsigned>(nLength);
        return nStatus;
    }

    static int ToValueAt(const std::string& strBytes, std::size_t nIndex)
    {
        return static_cast<int>(ToByteValue(strBytes[nIndex]));
    }

    int DumpBytes(CTool& oTool, CI2cBus& oBus)
    {
        const bool bJson = oTool.GetOptions().bJson;
        if (!bJson)
            fmt::print("{}    0123456789abcdef\n", HEADER);
        m_nNext = m_nFirst;
        for (unsigned nRow = m_nFirst / 16 * 16; nRow <= m_nLast; nRow += 16) {
            while (m_nNext <= m_nLast && m_nNext < nRow + 16) {
                if (const int nStatus = Read(oBus, m_nNext); nStatus != 0)
                    return nStatus;
            }
            if (!bJson)
                PrintRow(nRow);
        }
        if (bJson)
            PrintRuns();
        return eStatusDone;
    }

    void PrintRow(unsigned nRow) const
    {
        std::string strCells;
        std::string strText;
        for (unsigned i = nRow; i < nRow + 16; ++i) {
            const int nValue = m_anValues[i];
            if (i < m_nFirst || i > m_nLast) {
                strCells += "   ";
                strText += ' ';
            } else if (nValue == UNREADABLE) {
                strCells += "XX ";
                strText += 'X';
            } else {
                strCells += fmt::format("{:02x} ", nValue);
                strText += nValue == 0x00 || nValue == 0xFF ? '.'
                           : nValue < ' ' || nValue > '~'   ? '?'
                                                            : static_cast<char>(nValue);
            }
        }
        fmt::print("{:02x}: {}   {}\n", nRow, strCells, strText);
    }

    void PrintRuns() const
    {
        std::string strRun;
        for (unsigned i = m_nFirst; i <= m_nLast + 1; ++i) {
            if (i <= m_nLast && m_anValues[i] != UNREADABLE) {
                strRun += static_cast<char>(m_anValues[i]);
            } else if (!strRun.empty()) {
                CTool::PrintJson({{"address", m_oAccess.nAddress},
                                  {"first", i - strRun.size()},
                                  {"last", i - 1},
                                  {"bytes", ToHex(strRun, "")}});
                strRun.clear();
            }
        }
    }

    int DumpWords(CTool& oTool, CI2cBus& oBus)
    {
        const bool bJson = oTool.GetOptions().bJson;
        if (!bJson)
            fmt::print("     0,8  1,9  2,a  3,b  4,c  5,d  6,e  7,f\n");
        for (unsigned nRow = m_nFirst / 8 * 8; nRow <= m_nLast; nRow += 8) {
            std::string strRow = fmt::format("{:02x}: ", nRow);
            for (unsigned i = nRow; i < nRow + 8; ++i) {
                if (i < m_nFirst || i > m_nLast) {
                    strRow += "     ";
                    continue;
                }
                SI2cAccess oAccess = m_oAccess;
                oAccess.nRegister = i;
                std::string strBytes;
                bool bUnreadable = false;
                if (const int nStatus = oBus.ReadValue(oAccess, strBytes, &bUnreadable); nStatus != 0)
                    return nStatus;
                m_bAnyRead = m_bAnyRead || !bUnreadable;
                strRow += bUnreadable ? "XXXX " : fmt::format("{:04x} ", ToValue(strBytes));
                if (bJson && !bUnreadable)
                    CTool::PrintJson(
                        {{"address", m_oAccess.nAddress}, {"register", i}, {"value", ToValue(strBytes)}});
            }
            if (!bJson)
                fmt::print("{}\n", strRow);
        }
        return eStatusDone;
    }

    std::string m_strMode;
    std::string m_strRange;
    std::optional<unsigned> m_nBank;
    unsigned m_nBankRegister = 0x4E;
    unsigned m_nFirst = 0;
    unsigned m_nLast = REGISTERS - 1;
    unsigned m_nNext = 0; // register to be read next
    bool m_bEven = false;
    bool m_bAnyRead = false;
    std::array<int, REGISTERS> m_anValues{};
};

class CTransfer : public CI2cVerb
{
  public:
    explicit CTransfer(CLI::App& oGroup)
        : CI2cVerb(oGroup, "transfer", "Send and receive messages, as i2ctransfer does")
    {
        m_oApp.add_flag("-b", m_bBinary, "Print the bytes read as they are");
        AddBus()->required();
        m_oApp.add_option("MESSAGE", m_astrWords, "DESC [DATA]... for each message, see below")
            ->type_name("")
            ->required();
        m_oApp.footer(
            "DESC is [p]{r|w}LENGTH[@address]: read or write LENGTH bytes, 0 to 65535, at a 7-bit address; "
            "without one, that of the message before. r? reads a block whose first byte tells how many "
            "follow: "
            "33 bytes are read, and what follows the block is dropped. p ends the message with a stop "
            "condition. The flags i, n, s and t of i2ctransfer ask for what a gateway cannot do.\n\n"
            "DATA are the bytes to write. A byte with a suffix fills the message: = the same byte, + "
            "counting "
            "up, - counting down, p pseudo random.\n\n"
            "Prints a line for each message that reads, such as 0x01 0x02; with -v a line for every message, "
            "such as msg 0: addr 0x50, write, len 1, buf 0x64. With --json an object for every message.\n\n"
            "All messages up to a stop condition are one sequence in one telegram; the gateway carries it "
            "out "
            "up to the first byte that is not acknowledged.\n\n"
            "Status: 1 when a device does not acknowledge (NACK) or the bus is stuck, 4 when the gateway "
            "does "
            "not answer.\n\n"
            "quorvel -g 192.168.0.10 i2c transfer -y 0 w1@0x50 0x64 r8\n\n"
            "quorvel -g 192.168.0.10 i2c transfer -y 0 w17@0x50 0x42 0xff-");
    }

    int Run(CTool& oTool) override
    {
        const CTool::SOptions& oOptions = oTool.GetOptions();
        if (m_bBinary && (oOptions.bVerbose || oOptions.bJson))
            return oTool.Fail(eStatusUsage, "-b goes neither with -v nor with --json");
        std::vector<SI2cMessage> aoMessages;
        if (const std::string strFault = ParseI2cMessages(m_astrWords, m_bAll, aoMessages); !strFault.empty())
            return oTool.Fail(eStatusUsage, strFault);
        std::string strQuestion =
            "This can confuse the bus, cause data loss and worse. It sends the following messages:";
        for (std::size_t i = 0; i < aoMessages.size(); ++i)
            strQuestion += "\n" + DescribeI2cMessage(i, aoMessages[i], false);
        int nStatus = Ask(oTool, strQuestion, false);
        CI2cBus oBus(oTool);
        if (nStatus == 0)
            nStatus = OpenBus(oTool, oBus);
        if (nStatus == 0)
            nStatus = oBus.Run(aoMessages);
        if (nStatus != 0)
            return nStatus;
        for (std::size_t i = 0; i < aoMessages.size(); ++i)
            Print(oOptions, i, aoMessages[i]);
        return eStatusDone;
    }

  private:
    void Print(const CTool::SOptions& oOptions, std::size_t nIndex, const SI2cMessage& oMessage) const
    {
        if (oOptions.bJson)
            CTool::PrintJson({{"message", nIndex},
                              {"address", oMessage.nAddress},
                              {"direction", oMessage.bRead ? "read" : "write"},
                              {"bytes", ToHex(oMessage.strBytes, "")}});
        else if (oOptions.bVerbose)
            fmt::print("{}\n", DescribeI2cMessage(nIndex, oMessage, true));
        else if (oMessage.bRead && m_bBinary)
            static_cast<void>(std::fwrite(oMessage.strBytes.data(), 1, oMessage.strBytes.size(), stdout));
        else if (oMessage.bRead && oMessage.nLength > 0)
            fmt::print("{}\n", ToI2cBytes(oMessage.strBytes));
    }

    std::vector<std::string> m_astrWords;
    bool m_bBinary = false;
};

class CClock : public CVerb
{
  public:
    explicit CClock(CLI::App& oGroup) : CVerb(oGroup, "clock", "Show or set the bus clock")
    {
        m_oApp.add_option("HZ", m_nClock, "The clock to set, in Hz; 100 and 400 mean kHz")
            ->type_name("")
            ->check(CLI::Range(1U, 0xFFFFFFFFU).description(""));
        m_oApp.footer("Without HZ prints the clock in Hz.\n\n"
                      "quorvel -g 192.168.0.10 i2c clock\n\n"
                      "quorvel -g 192.168.0.10 i2c clock 400000");
    }

    int Run(CTool& oTool) override
    {
        CGateway<CQuorvelClientI2C> oGateway(oTool);
        if (const int nStatus = oGateway.OpenGateway(); nStatus != 0)
            return nStatus;
        if (m_nClock)
            return oGateway.Check(fmt::format("set the clock to {}", *m_nClock),
                                  oGateway.SetBaudrate(*m_nClock));
        unsigned nClock = 0;
        if (const int nStatus = oGateway.Check("get the clock", oGateway.GetBaudrate(nClock), 4);
            nStatus != 0)
            return nStatus;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"clock_hz", nClock}});
        else
            fmt::print("{}\n", nClock);
        return eStatusDone;
    }

  private:
    std::optional<unsigned> m_nClock;
};

} // namespace

void AddI2c(CTool& oTool)
{
    CLI::App& oGroup =
        oTool.AddGroup("i2c", "The I2C gateway: the verbs of i2c-tools, the bus clock, serial EEPROMs");
    oTool.AddVerb<CDetect>(oGroup);
    oTool.AddVerb<CGet>(oGroup);
    oTool.AddVerb<CSet>(oGroup);
    oTool.AddVerb<CDump>(oGroup);
    oTool.AddVerb<CTransfer>(oGroup);
    oTool.AddVerb<CClock>(oGroup);
    AddI2cEeprom(oTool, oGroup);
}
