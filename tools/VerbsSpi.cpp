// The group `spi`.

#include "Choice.h"
#include "File.h"
#include "Groups.h"
#include "SpiFlash.h"
#include "SpiGateway.h"
#include "Text.h"

#include <algorithm>
#include <map>

namespace
{

constexpr std::size_t MAX_SEQUENCE = 65528; // what a request holds

// Bytes in hex from the command line, then those of a file; any failure is reported.
int CollectBytes(const CTool& oTool, const std::vector<std::string>& astrHex, const std::string& strFile,
                 std::string& strBytes)
{
    strBytes.clear();
    for (const std::string& strWord : astrHex) {
        const auto strHex = ParseHex(strWord);
        if (!strHex)
            return oTool.Fail(eStatusUsage,
                              fmt::format("BYTES: {}: bytes in hex, such as 9f 0 0 0", Quote(strWord)));
        strBytes += *strHex;
    }
    std::string strContent;
    if (!strFile.empty()) {
        if (const int nStatus = ReadFile(oTool, strFile, SFileLimit{MAX_SEQUENCE}, strContent); nStatus != 0)
            return nStatus;
    }
    strBytes += strContent;
    return eStatusDone;
}

// Prints bytes, or writes them to a file.
int PutBytes(CTool& oTool, const std::string& strFile, std::string_view strBytes)
{
    if (!strFile.empty()) {
        COutputFile oFile(oTool);
        if (const int nStatus = oFile.Open(strFile); nStatus != 0)
            return nStatus;
        oFile.Write(strBytes);
        return oFile.Commit();
    }
    if (oTool.GetOptions().bJson)
        CTool::PrintJson({{"bytes", ToHex(strBytes, "")}});
    else if (!strBytes.empty())
        fmt::print("{}\n", ToHex(strBytes));
    return eStatusDone;
}

class CSpiConfig : public CVerb
{
  public:
    explicit CSpiConfig(CLI::App& oGroup) : CVerb(oGroup, "config", "Show or set the bus parameters")
    {
        m_pBaudrate =
            m_oApp.add_option("--baud-rate", m_nBaudrate, "Clock in bits per second")->type_name("HZ");
        m_pLevel = AddByte("--level", m_nLevel, "Signal level, as the gateway numbers its levels");
        m_pAux = AddByte("--aux", m_nAux, "Auxiliary voltage, as the gateway numbers its voltages");
        m_pMode = AddByte("--mode", m_nMode, "Clock mode, usually 0 to 3");
        m_oApp.footer(
            "Without options the parameters are printed. With options these are changed and all others "
            "left as they are; nothing is printed.\n\n"
            "They hold for all clients of the gateway, until it restarts.\n\n"
            "quorvel -g 192.168.0.10 spi config --baud-rate 10000000 --mode 3");
    }

    int Run(CTool& oTool) override
    {
        CSpiGateway oSpi(oTool);
        unsigned nBaudrate = 0;
        unsigned char nLevel = 0;
        unsigned char nAux = 0;
        unsigned char nMode = 0;
        int nStatus = oSpi.OpenGateway();
        if (nStatus == 0)
            nStatus = oSpi.Check("get bus parameters", oSpi.GetGlobals(nBaudrate, nLevel, nAux, nMode), 7);
        if (nStatus != 0)
            return nStatus;
        const bool bSet = m_pBaudrate->count() + m_pLevel->count() + m_pAux->count() + m_pMode->count() > 0;
        if (bSet) {
            Change(m_pBaudrate, m_nBaudrate, nBaudrate);
            Change(m_pLevel, m_nLevel, nLevel);
            Change(m_pAux, m_nAux, nAux);
            Change(m_pMode, m_nMode, nMode);
            return oSpi.Check("set bus parameters", oSpi.SetGlobals(nBaudrate, nLevel, nAux, nMode));
        }
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"baud_rate", nBaudrate}, {"level", nLevel}, {"aux", nAux}, {"mode", nMode}});
        else
            fmt::print("baud rate  {}\nlevel      {}\naux        {}\nmode       {}\n", nBaudrate, nLevel,
                       nAux, nMode);
        return eStatusDone;
    }

  private:
    CLI::Option* AddByte(const char* pName, unsigned& nValue, const char* pText)
    {
        return m_oApp.add_option(pName, nValue, pText)
            ->type_name("N")
            ->check(CLI::Range(0U, 255U).description(""));
    }

    template<class TValue>
    static void Change(const CLI::Option* pOption, unsigned nGiven, TValue& nValue)
    {
        if (pOption->count() > 0)
            nValue = static_cast<TValue>(nGiven);
    }

    unsigned m_nBaudrate = 0;
    unsigned m_nLevel = 0;
    unsigned m_nAux = 0;
    unsigned m_nMode = 0;
    const CLI::Option* m_pBaudrate;
    const CLI::Option* m_pLevel;
    const CLI::Option* m_pAux;
    const CLI::Option* m_pMode;
};

class CSpiTransfer : public CVerb
{
  public:
    explicit CSpiTransfer(CLI::App& oGroup)
        : CVerb(oGroup, "transfer", "Transfer bytes in full duplex: as many are read as are written")
    {
        m_oApp.add_option("BYTES", m_astrBytes, "The bytes to write, in hex")->type_name("");
        m_oApp.add_option("--input", m_strInput, "Write the bytes of this file too, behind BYTES")
            ->type_name("FILE");
        m_oApp
            .add_option("--output", m_strOutput, "Put the bytes read into this file instead of printing them")
            ->type_name("FILE");
        m_oApp.add_option("--read", m_nRead, "Read so many bytes more, while zeros are written")
            ->type_name("N")
            ->check(CLI::Range(std::size_t{0}, CSpiGateway::MAX_TRANSFER).description(""));
        m_oApp.footer(
            "Prints all bytes read, in hex, from the first byte written on. It is one frame of the chip "
            "select, of 1 to 65527 bytes.\n\n"
            "FILE holds bytes as they are; - is standard input or output.\n\n"
            "quorvel -g 192.168.0.10 spi transfer 9f 0 0 0\n\n"
            "quorvel -g 192.168.0.10 spi transfer 03 00 10 00 --read 256 --output page.bin");
    }

    int Run(CTool& oTool) override
    {
        std::string strBytes;
        if (const int nStatus = CollectBytes(oTool, m_astrBytes, m_strInput, strBytes); nStatus != 0)
            return nStatus;
        const std::size_t nLength = strBytes.size() + m_nRead;
        if (nLength == 0 || nLength > CSpiGateway::MAX_TRANSFER)
            return oTool.Fail(eStatusUsage, fmt::format("a transfer has 1 to {} bytes, not {}",
                                                        CSpiGateway::MAX_TRANSFER, nLength));
        CSpiGateway oSpi(oTool);
        std::string strRead(nLength, '\0');
        int nStatus = oSpi.OpenGateway();
        if (nStatus == 0)
            nStatus = oSpi.Transfer("transfer", strBytes, strRead);
        return nStatus != 0 ? nStatus : PutBytes(oTool, m_strOutput, strRead);
    }

  private:
    std::vector<std::string> m_astrBytes;
    std::string m_strInput;
    std::string m_strOutput;
    std::size_t m_nRead = 0;
};

class CSpiSequence : public CVerb
{
  public:
    explicit CSpiSequence(CLI::App& oGroup)
        : CVerb(oGroup, "sequence", "Have the gateway run a sequence of operations")
    {
        m_oApp.add_option("BYTES", m_astrBytes, "The sequence in hex: op codes and operands")->type_name("");
        m_oApp.add_option("--input", m_strInput, "The sequence, or what follows BYTES, is in this file")
            ->type_name("FILE");
        m_oApp
            .add_option("--output", m_strOutput,
                        "Put the bytes collected into this file instead of printing them")
            ->type_name("FILE");
        m_pExpect = m_oApp.add_option("--expect", m_nExpect, "The answer must hold this many bytes")
                        ->type_name("N")
                        ->check(CLI::Range(std::size_t{0}, CSpiGateway::MAX_TRANSFER).description(""));
        m_oApp.add_flag("--async", m_bAsync, "Send it, and collect the answer in a second step");
        m_oApp.footer("Prints the bytes that the sequence has collected, in hex. Op codes, with numbers "
                      "least significant byte "
                      "first: 01 count(2) bytes: transfer; 02 count(2) bytes: write; 03 count(2) bytes "
                      "count(2): write and "
                      "read; 04 milliseconds(2): delay; 05 outputs(4): digital write; 06: digital read; 07 "
                      "count(2): loop; "
                      "08: end of the loop; 00: end.\n\n"
                      "A sequence that takes longer than --timeout needs a longer one. An answer of another "
                      "length than "
                      "--expect gives status 3.\n\n"
                      "quorvel -g 192.168.0.10 spi sequence 03 0100 9f 0300 --expect 3");
    }

    int Run(CTool& oTool) override
    {
        std::string strBytes;
        if (const int nStatus = CollectBytes(oTool, m_astrBytes, m_strInput, strBytes); nStatus != 0)
            return nStatus;
        if (strBytes.empty() || strBytes.size() > MAX_SEQUENCE)
            return oTool.Fail(eStatusUsage, fmt::format("a sequence has 1 to {} bytes, not {}", MAX_SEQUENCE,
                                                        strBytes.size()));
        CSpiGateway oSpi(oTool);
        int nStatus = oSpi.OpenGateway();
        std::string strAnswer;
        if (nStatus == 0)
            nStatus =
                m_bAsync ? RunAsync(oTool, oSpi, strBytes, strAnswer) : RunSync(oSpi, strBytes, strAnswer);
        if (nStatus == 0)
            nStatus = PutBytes(oTool, m_strOutput, strAnswer);
        if (nStatus == 0 && m_pExpect->count() > 0 && strAnswer.size() != m_nExpect)
            return oTool.Fail(eStatusMismatch, fmt::format("the answer holds {}, expected were {}",
                                                           Plural(strAnswer.size(), "byte"), m_nExpect));
        return nStatus;
    }

  private:
    static int RunSync(CSpiGateway& oSpi, const std::string& strBytes, std::string& strAnswer)
    {
        std::string strBuffer(1 + CSpiGateway::MAX_TRANSFER, '\0'); // the result byte comes first
        const int nStatus = oSpi.Check(
            "sequence", oSpi.SequenceReq(strBytes.data(), static_cast<unsigned short>(strBytes.size()),
                                         strBuffer.data(), static_cast<unsigned short>(strBuffer.size())));
        strAnswer = strBuffer.substr(1, oSpi.GetAnswered());
        return nStatus;
    }

    static int RunAsync(CTool& oTool, CSpiGateway& oSpi, const std::string& strBytes, std::string& strAnswer)
    {
        short nId = 0;
        int nStatus =
            oSpi.Check("send sequence",
                       oSpi.SequenceReq(strBytes.data(), static_cast<unsigned short>(strBytes.size()), &nId));
        if (nStatus != 0)
            return nStatus;
        oTool.Detail(fmt::format("the sequence is on its way, telegram {}", nId));
        strAnswer.assign(CSpiGateway::MAX_TRANSFER, '\0');
        nStatus = oSpi.Check(
            "collect sequence",
            oSpi.SequenceGetCnf(nId, strAnswer.data(), static_cast<unsigned short>(strAnswer.size())));
        strAnswer.resize(oSpi.GetAnswered());
        return nStatus;
    }

    std::vector<std::string> m_astrBytes;
    std::string m_strInput;
    std::string m_strOutput;
    std::size_t m_nExpect = 0;
    const CLI::Option* m_pExpect;
    bool m_bAsync = false;
};

// --- Flash -------------------------------------------------------------------------------------------------------

// Numbers with K, M or G behind them, as plain decimals.
CLI::Validator SizeNumber(bool bSigned = false)
{
    return {[bSigned](std::string& strText) -> std::string {
                const std::string strSign = bSigned && strText.starts_with('-') ? "-" : "";
                std::string strNumber = strText.substr(strSign.size());
                unsigned nShift = 0;
                const auto nUnit = std::string_view("kKmMgG").find(strText.empty() ? '\0' : strText.back());
                if (nUnit != std::string_view::npos) {
                    nShift = 10 * static_cast<unsigned>(nUnit / 2 + 1);
                    strNumber.pop_back();
                }
                const auto nNumber = ParseNumber(strNumber, std::uint64_t{0xFFFFFFFFFFFF} >> nShift);
                if (!nNumber)
                    return fmt::format("{} is no number of bytes, such as 4096, 0x1000 or 4K",
                                       Quote(strText));
                strText = strSign + std::to_string(*nNumber << nShift);
                return "";
            },
            ""};
}

// What all verbs of the flash share.
class CFlashVerb : public CVerb
{
  public:
    CFlashVerb(CLI::App& oGroup, const std::string& strName, const std::string& strText)
        : CVerb(oGroup, strName, strText)
    {
        m_oApp.add_option("--size", m_oFlash.nSize, "Size of the flash; default: as its JEDEC id tells")
            ->type_name("BYTES")
            ->transform(SizeNumber())
            ->check(CLI::Validator(
                [](const std::string& strNumber) -> std::string {
                    const auto nSize = ParseNumber(strNumber, std::uint64_t{1} << 32);
                    return nSize && *nSize != 0 && *nSize % CSpiFlash::SECTOR == 0
                               ? ""
                               : strNumber + " is no multiple of 4096 up to 4 GiB";
                },
                ""));
    }

  protected:
    void AddRange(const char* pDefault)
    {
        m_oApp.add_option("--address", m_nAddress, "First address")
            ->type_name("ADDRESS")
            ->capture_default_str()
            ->transform(SizeNumber());
        m_oApp.add_option("--length", m_nLength, fmt::format("How many bytes; default: {}", pDefault))
            ->type_name("BYTES")
            ->transform(SizeNumber());
    }

    void AddFile()
    {
        m_oApp.add_option("FILE", m_strFile, "The image: Intel HEX, S-records or raw; - is standard input")
            ->type_name("")
            ->required();
        AddFormatOption(m_oApp, "--format", m_eFormat, FORMAT_OF_INPUT);
        m_oApp
            .add_option("--offset", m_nOffset,
                        "Added to every address of the image, may be negative: --offset=-N")
            ->type_name("BYTES")
            ->transform(SizeNumber(true));
    }

    void AddErase()
    {
        m_oApp
            .add_option("--erase-size", m_oFlash.nErase,
                        "Erase in pieces of this size only; auto: 64K where it pays, else 4K")
            ->type_name("auto|4K|64K")
            ->transform(Choice(ERASE_SIZES));
        m_oApp
            .add_option("--page", m_oFlash.nPage, "Bytes programmed by one command at most, a power of two")
            ->type_name("BYTES")
            ->capture_default_str()
            ->check(CLI::Validator(
                [](const std::string& strText) -> std::string {
                    const auto nPage = ParseNumber(strText, 4096);
                    return nPage && *nPage != 0 && (*nPage & (*nPage - 1)) == 0
                               ? ""
                               : strText + " is no power of two from 1 to 4096";
                },
                ""));
        m_oApp.add_flag_callback(
            "--no-preserve", [this] { m_oFlash.bPreserve = false; },
            "Do not program again what lies in an erased piece beside the data");
    }

    // Opens the flash, whose size tells how long the file may be, and loads the image for it.
    int OpenForImage(const CTool& oTool, CSpiFlash& oFlash)
    {
        const int nStatus = oFlash.Open();
        return nStatus != 0 ? nStatus
                            : m_oImage.LoadData(oTool, m_strFile, m_eFormat, oFlash.GetSize(), m_nOffset);
    }

    // Opens the flash for a range of addresses.
    int OpenForRange(const CTool& oTool, CSpiFlash& oFlash, SAddresses& oRange) const
    {
        const int nStatus = oFlash.Open();
        return nStatus != 0
                   ? nStatus
                   : FindRange(oTool, "the flash", {0, oFlash.GetSize() - 1}, m_nAddress, m_nLength, oRange);
    }

    // Compares the flash with the image and reports the result.
    int Verify(CTool& oTool, CSpiFlash& oFlash) const
    {
        CVerify oVerify(oTool, "flash", GetInputName(m_strFile));
        const int nStatus = oFlash.Verify(m_oImage, oVerify);
        return nStatus != 0 ? nStatus : oVerify.Report(true);
    }

    CSpiFlash::SOptions m_oFlash;
    std::uint64_t m_nAddress = 0;
    std::optional<std::uint64_t> m_nLength;
    std::string m_strFile;
    CQuorvelHexfile::EType m_eFormat = CQuorvelHexfile::eTypeAuto;
    std::int64_t m_nOffset = 0;
    CImage m_oImage;

  private:
    inline static const std::map<std::string, unsigned> ERASE_SIZES{{"auto", 0},
                                                                    {"4k", CSpiFlash::SECTOR},
                                                                    {"4096", CSpiFlash::SECTOR},
                                                                    {"64k", CSpiFlash::BLOCK},
                                                                    {"65536", CSpiFlash::BLOCK}};
};

class CFlashId : public CVerb
{
  public:
    explicit CFlashId(CLI::App& oGroup) : CVerb(oGroup, "id", "Print the JEDEC id")
    {
        m_oApp.footer("Prints the 3 bytes of the id, and the size that the third one tells.\n\n"
                      "quorvel -g 192.168.0.10 spi flash id");
    }

    int Run(CTool& oTool) override
    {
        CSpiFlash::SOptions oOptions;
        oOptions.nSize = 1; // the id is looked at here
        CSpiFlash oFlash(oTool, oOptions);
        std::string strId;
        int nStatus = oFlash.Open();
        if (nStatus == 0)
            nStatus = oFlash.ReadId(strId);
        if (nStatus != 0)
            return nStatus;
        const std::uint64_t nSize = CSpiFlash::GetSize(strId);
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"id", ToHex(strId, "")}, {"size", nSize != 0 ? CJson(nSize) : CJson()}});
        else
            fmt::print("{}  {}\n", ToHex(strId),
                       nSize != 0 ? fmt::format("{} bytes", nSize) : "unknown size");
        return eStatusDone;
    }
};

class CFlashRead : public CFlashVerb
{
  public:
    explicit CFlashRead(CLI::App& oGroup) : CFlashVerb(oGroup, "read", "Read the flash into a file")
    {
        m_oApp.add_option("FILE", m_strFile, "The file; - is standard output")->type_name("")->required();
        AddFormatOption(m_oApp, "--format", m_eFormat, FORMAT_OF_OUTPUT);
        AddRange("up to the end");
        m_oApp.footer("A binary file begins with the byte at --address; the others hold the addresses.\n\n"
                      "The file is there when all has been read, or not at all.\n\n"
                      "quorvel -g 192.168.0.10 spi flash read --address 0x1000 --length 4K boot.hex");
    }

    int Run(CTool& oTool) override
    {
        CSpiFlash oFlash(oTool, m_oFlash);
        COutputFile oFile(oTool);
        SAddresses oRange{};
        int nStatus = OpenForRange(oTool, oFlash, oRange);
        if (nStatus == 0)
            nStatus = oFile.Open(m_strFile);
        if (nStatus != 0)
            return nStatus;
        nStatus = oFlash.Read("Reading", {oRange}, m_oImage);
        if (nStatus != 0)
            return nStatus;
        return m_oImage.Save(oTool, oFile, GetOutputFormat(m_strFile, m_eFormat));
    }
};

class CFlashWrite : public CFlashVerb
{
  public:
    explicit CFlashWrite(CLI::App& oGroup)
        : CFlashVerb(oGroup, "write", "Write an image file into the flash, and verify it")
    {
        AddFile();
        AddErase();
        m_oApp.add_flag_callback(
            "-D,--no-erase", [this] { m_oFlash.bErase = false; },
            "Erase nothing: the flash is erased already");
        m_oApp.add_flag_callback(
            "-V,--no-verify", [this] { m_bVerify = false; }, "Do not compare afterwards");
        m_oApp.footer(
            "Erases and programs only where the flash differs from the image; so writing again what is there "
            "takes little time. What lies beside the image in a piece that has to be erased is read before "
            "and programmed again; Ctrl-C waits for that. If the connection breaks in between, it is "
            "lost.\n\n"
            "With --json prints the number of bytes written, erased and programmed, then the result of "
            "the verification, as verify does.\n\n"
            "Status 3: the flash differs afterwards.\n\n"
            "quorvel -g 192.168.0.10 spi flash write firmware.hex --offset 0x10000");
    }

    int Run(CTool& oTool) override
    {
        CSpiFlash oFlash(oTool, m_oFlash);
        int nStatus = OpenForImage(oTool, oFlash);
        if (nStatus != 0)
            return nStatus;
        oTool.Note(fmt::format("Writing {} to flash", Plural(m_oImage.GetSize(), "byte")));
        nStatus = oFlash.Write(m_oImage);
        if (nStatus != 0)
            return nStatus;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"written", m_oImage.GetSize()},
                              {"erased", oFlash.GetErased()},
                              {"programmed", oFlash.GetProgrammed()}});
        oTool.Detail(fmt::format("{} erased, {} programmed", Plural(oFlash.GetErased(), "byte"),
                                 Plural(oFlash.GetProgrammed(), "byte")));
        return m_bVerify ? Verify(oTool, oFlash) : eStatusDone;
    }

  private:
    bool m_bVerify = true;
};

class CFlashErase : public CFlashVerb
{
  public:
    explicit CFlashErase(CLI::App& oGroup) : CFlashVerb(oGroup, "erase", "Erase the flash, or a part of it")
    {
        AddRange("up to the end");
        AddErase();
        m_oApp.add_flag("--all", m_bAll, "Erase the whole chip with one command")
            ->excludes(m_oApp.get_option("--address"))
            ->excludes(m_oApp.get_option("--length"));
        m_oApp.footer("What lies beside the range in the pieces at its ends is read before and programmed "
                      "again, unless "
                      "--no-preserve.\n\n"
                      "Give --all, --address or --length.\n\n"
                      "quorvel -g 192.168.0.10 spi flash erase --address 0x10000 --length 64K");
    }

    int Run(CTool& oTool) override
    {
        if (!m_bAll && m_oApp.get_option("--length")->count() + m_oApp.get_option("--address")->count() == 0)
            return oTool.Fail(eStatusUsage, "erase what? Give --all, --address or --length");
        CSpiFlash oFlash(oTool, m_oFlash);
        SAddresses oRange{};
        int nStatus = OpenForRange(oTool, oFlash, oRange);
        if (nStatus == 0)
            nStatus =
                m_bAll ? oFlash.EraseAll() : oFlash.Erase(oRange.nFirst, oRange.nLast - oRange.nFirst + 1);
        if (nStatus == 0 && oTool.GetOptions().bJson)
            CTool::PrintJson({{"first", oRange.nFirst},
                              {"last", oRange.nLast},
                              {"erased", oFlash.GetErased()},
                              {"programmed", oFlash.GetProgrammed()}});
        return nStatus;
    }

  private:
    bool m_bAll = false;
};

class CFlashVerify : public CFlashVerb
{
  public:
    explicit CFlashVerify(CLI::App& oGroup)
        : CFlashVerb(oGroup, "verify", "Compare the flash with an image file")
    {
        AddFile();
        m_oApp.footer("Only addresses that the image has are compared. Reports the first ten bytes that "
                      "differ, how many "
                      "do, and whether bits are only set (1 in the flash, 0 in the image: not programmed), "
                      "only cleared "
                      "(not erased before), or both.\n\n"
                      "Status 3: there is a difference.\n\n"
                      "quorvel -g 192.168.0.10 spi flash verify firmware.hex");
    }

    int Run(CTool& oTool) override
    {
        CSpiFlash oFlash(oTool, m_oFlash);
        const int nStatus = OpenForImage(oTool, oFlash);
        return nStatus != 0 ? nStatus : Verify(oTool, oFlash);
    }
};

} // namespace

void AddSpi(CTool& oTool)
{
    CLI::App& oGroup = oTool.AddGroup("spi", "The SPI gateway: bus, transfers, sequences, serial flash");
    oTool.AddVerb<CSpiConfig>(oGroup);
    oTool.AddVerb<CSpiTransfer>(oGroup);
    oTool.AddVerb<CSpiSequence>(oGroup);
    CLI::App& oFlash = *oGroup.add_subcommand("flash", "Serial NOR flash memories of the 25 series");
    oFlash.require_subcommand(1);
    oTool.AddVerb<CFlashId>(oFlash);
    oTool.AddVerb<CFlashRead>(oFlash);
    oTool.AddVerb<CFlashWrite>(oFlash);
    oTool.AddVerb<CFlashErase>(oFlash);
    oTool.AddVerb<CFlashVerify>(oFlash);
}
