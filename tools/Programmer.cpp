#include "Programmer.h"

#include "MemoryFile.h"
#include "Progress.h"
#include "Text.h"
#include "Verify.h"

#include <algorithm>
#include <chrono>

namespace
{

using EAction = SMemoryOperation::EAction;

constexpr std::uint64_t SMALL = 32;           // bytes that have no bar
constexpr std::uint64_t MAX_PAGE = 65536;     // bytes
constexpr std::uint64_t MAX_BLOCKS = 65536;   // their numbers have 16 bits
constexpr std::string_view UNWRITABLE = "em"; // formats that are only read

std::string Bytes(std::uint64_t nCount)
{
    return Plural(nCount, "byte");
}

std::string FileName(const SMemoryOperation& oOperation)
{
    if (oOperation.cFormat == 'm')
        return "the command line";
    if (oOperation.eAction != EAction::eRead)
        return GetInputName(oOperation.strFile);
    return oOperation.strFile == "-" ? "standard output" : "output file " + oOperation.strFile;
}

/// The part of an image within a memory.
CImage Cut(const CImage& oImage, const SMemory& oMemory)
{
    CImage oPart;
    for (const CImage::SRange& oRange : oImage.GetRanges()) {
        const std::uint64_t nFirst = std::max(oRange.nAddress, oMemory.nAddress);
        const std::uint64_t nLast = std::min(oRange.GetLast(), oMemory.GetLast());
        if (nFirst <= nLast)
            oPart.Set(nFirst,
                      std::string_view(oRange.strBytes).substr(nFirst - oRange.nAddress, nLast - nFirst + 1));
    }
    return oPart;
}

/// The pages that an image touches; what it does not have is 0xFF, which changes nothing that is erased.
CImage FillPages(const CImage& oImage, const SMemory& oMemory)
{
    std::vector<CImage::SRange> aoPages;
    for (const CImage::SRange& oRange : oImage.GetRanges()) {
        const std::uint64_t nStart =
            oMemory.nAddress + (oRange.nAddress - oMemory.nAddress) / oMemory.nPage * oMemory.nPage;
        const std::uint64_t nEnd =
            oMemory.nAddress + ((oRange.GetLast() - oMemory.nAddress) / oMemory.nPage + 1) * oMemory.nPage;
        if (aoPages.empty() || aoPages.back().GetLast() < nStart)
            aoPages.push_back({nStart, ""});
        auto& [nAddress, strBytes] = aoPages.back();
        strBytes.resize(nEnd - nAddress, '\xFF');
        strBytes.replace(oRange.nAddress - nAddress, oRange.strBytes.size(), oRange.strBytes);
    }
    CImage oPages;
    oPages.Set(std::move(aoPages));
    return oPages;
}

/// A bar, unless there is little to do.
std::unique_ptr<CProgress> MakeProgress(CTool& oTool, const char* pTitle, std::uint64_t nTotal, bool bSmall)
{
    return bSmall ? nullptr : std::make_unique<CProgress>(oTool, pTitle, nTotal);
}

/// Measures the speed of one operation.
class CSpeed
{
  public:
    double GetSeconds() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_oStart).count();
    }

    void Show(const CTool& oTool, std::uint64_t nBytes) const
    {
        const double dSeconds = GetSeconds();
        oTool.Detail(fmt::format("{} in {:.2f} s, {:.0f} bytes/s", Bytes(nBytes), dSeconds,
                                 static_cast<double>(nBytes) / std::max(dSeconds, 1e-9)));
    }

  private:
    std::chrono::steady_clock::time_point m_oStart = std::chrono::steady_clock::now();
};

std::vector<std::string> GetNames(const CTarget& oTarget)
{
    std::vector<std::string> astrNames;
    for (const SMemory& oMemory : oTarget.GetMemories())
        astrNames.push_back(oMemory.strName);
    return astrNames;
}

std::string RangeText(std::uint64_t nFirst, std::uint64_t nLast)
{
    return fmt::format("0x{:08x}-0x{:08x}", nFirst, nLast);
}

} // namespace

int SMemory::Check(const CTool& oTool) const
{
    if (nSize == 0)
        return oTool.Fail(eStatusRefused, fmt::format("the target has no {}", strName));
    if (nAddress + nSize > nReach)
        return oTool.Fail(
            eStatusRefused,
            fmt::format("{}: the gateway tells the addresses {}, but its commands reach to 0x{:08x}", strName,
                        RangeText(nAddress, GetLast()), nReach - 1));
    if (nPage == 0 || nPage > MAX_PAGE || nSize % nPage != 0)
        return oTool.Fail(eStatusRefused, fmt::format("{}: {} are no whole number of pages of {}, at most {}",
                                                      strName, Bytes(nSize), Bytes(nPage), MAX_PAGE));
    if (nEraseBlock > 0 && (nSize - 1) / nEraseBlock >= MAX_BLOCKS)
        return oTool.Fail(eStatusUsage,
                          fmt::format("--block-size: {} has {} blocks of {}, but their numbers have 16 bits",
                                      strName, (nSize - 1) / nEraseBlock + 1, Bytes(nEraseBlock)));
    return eStatusDone;
}

int CProgrammer::SOptions::FindRange(const CTool& oTool, const SMemory& oMemory, SAddresses& oRange) const
{
    if (const int nStatus = oMemory.Check(oTool); nStatus != 0)
        return nStatus;
    return ::FindRange(oTool, oMemory.strName, {oMemory.nAddress, oMemory.GetLast()}, nFirst, nLength,
                       oRange);
}

void CProgrammer::PrintJson(const char* pOperation, const SMemory& oMemory, const CJson& oMore) const
{
    if (!m_oTool.GetOptions().bJson)
        return;
    CJson oLine{{"operation", pOperation}, {"memory", oMemory.strName}};
    oLine.update(oMore);
    CTool::PrintJson(oLine);
}

int CProgrammer::Load(SJob& oJob) const
{
    oJob.bLoaded = true;
    std::uint64_t nSize = 0;
    for (const std::size_t n : oJob.anMemories)
        nSize += m_oTarget.GetMemories()[n].nSize;
    const int nStatus = LoadMemoryFile(m_oTool, oJob.oOperation.strFile, oJob.oOperation.cFormat, nSize,
                                       oJob.oImage, oJob.bAddressed);
    return nStatus != 0 ? nStatus : Fit(oJob);
}

// A file is not read before the sizes of its memories, which limit its length, are known.
int CProgrammer::LoadFiles()
{
    for (SJob& oJob : m_aoJobs) {
        const bool bKnown =
            std::all_of(oJob.anMemories.begin(), oJob.anMemories.end(),
                        [this](std::size_t n) { return m_oTarget.GetMemories()[n].nSize > 0; });
        if (!bKnown || oJob.bLoaded || oJob.bLater || oJob.oOperation.eAction == EAction::eRead)
            continue;
        if (const int nStatus = Load(oJob); nStatus != 0)
            return nStatus;
    }
    return eStatusDone;
}

int CProgrammer::Prepare(const std::vector<SMemoryOperation>& aoOperations)
{
    const std::vector<std::string> astrNames = GetNames(m_oTarget);
    for (const SMemoryOperation& oOperation : aoOperations) {
        std::string strError;
        const auto anMemories = SelectMemories(oOperation.strMemories, astrNames, strError);
        if (!anMemories)
            return m_oTool.Fail(eStatusUsage, strError);
        m_aoJobs.push_back({oOperation, *anMemories, false, false, true, {}});
        char& cFormat = m_aoJobs.back().oOperation.cFormat;
        if (oOperation.eAction != EAction::eRead)
            continue;
        if (cFormat == 'a')
            cFormat = GetFormatLetter(oOperation.strFile, anMemories->size() == 1 ? 'r' : 'I');
        if (UNWRITABLE.find(cFormat) != std::string_view::npos)
            return m_oTool.Fail(eStatusUsage, fmt::format("the format {} cannot be written", cFormat));
        if (cFormat == 'r' && anMemories->size() > 1)
            return m_oTool.Fail(eStatusUsage, "a raw file holds one memory only");
        if (oOperation.strFile == "-" && m_oTool.GetOptions().bJson)
            return m_oTool.Fail(eStatusUsage, "standard output cannot take both a memory and --json");
    }
    std::set<std::string> astrWritten;
    for (SJob& oJob : m_aoJobs) {
        const std::string& strFile = oJob.oOperation.strFile;
        if (oJob.oOperation.eAction == EAction::eRead)
            astrWritten.insert(strFile);
        else
            oJob.bLater = strFile != "-" && astrWritten.contains(strFile);
    }
    return LoadFiles();
}

int CProgrammer::Fit(SJob& oJob) const
{
    const SMemory& oFirst = m_oTarget.GetMemories()[oJob.anMemories[0]];
    const std::string strFile = FileName(oJob.oOperation);
    if (!oJob.bAddressed) {
        if (oJob.anMemories.size() > 1)
            return m_oTool.Fail(eStatusFile, strFile + " has no addresses: it can be for one memory only");
        CImage oMoved;
        oMoved.Set(m_oOptions.nFirst.value_or(oFirst.nAddress), oJob.oImage.GetRanges()[0].strBytes);
        oJob.oImage = std::move(oMoved);
        oJob.bAddressed = true;
    }
    for (const CImage::SRange& oRange : oJob.oImage.GetRanges()) {
        // The memories ascend, so what follows the end of one can only be in the next.
        std::uint64_t nOutside = oRange.nAddress;
        for (const std::size_t n : oJob.anMemories) {
            const SMemory& oMemory = m_oTarget.GetMemories()[n];
            if (nOutside >= oMemory.nAddress && nOutside <= oMemory.GetLast())
                nOutside = oMemory.GetLast() + 1;
        }
        if (nOutside <= oRange.GetLast()) {
            std::vector<std::string> astrMemories;
            for (const std::size_t n : oJob.anMemories) {
                const SMemory& oMemory = m_oTarget.GetMemories()[n];
                astrMemories.push_back(
                    fmt::format("{} ({})", oMemory.strName, RangeText(oMemory.nAddress, oMemory.GetLast())));
            }
            return m_oTool.Fail(eStatusFile, fmt::format("{}: {} is outside {}", strFile,
                                                         RangeText(nOutside, oRange.GetLast()),
                                                         fmt::join(astrMemories, ", ")));
        }
    }
    return eStatusDone;
}

int CProgrammer::Execute()
{
    for (const SJob& oJob : m_aoJobs) {
        for (const std::size_t n : oJob.anMemories) {
            if (const int nStatus = m_oTarget.GetMemories()[n].Check(m_oTool); nStatus != 0)
                return nStatus;
        }
    }
    if (const int nStatus = LoadFiles(); nStatus != 0)
        return nStatus;
    if (m_oOptions.bErase) {
        if (const int nStatus = Erase({0}); nStatus != 0)
            return nStatus;
    }
    for (SJob& oJob : m_aoJobs) {
        if (const int nStatus = Execute(oJob); nStatus != 0)
            return nStatus;
    }
    return eStatusDone;
}

int CProgrammer::Run()
{
    int nStatus = m_oTarget.Open();
    if (nStatus == 0)
        nStatus = Execute();
    return m_oTarget.Close(nStatus);
}

int CProgrammer::Execute(SJob& oJob)
{
    if (oJob.oOperation.eAction == EAction::eRead)
        return ReadJob(oJob);
    if (!oJob.bLoaded) {
        if (const int nStatus = Load(oJob); nStatus != 0)
            return nStatus;
    }
    for (const std::size_t n : oJob.anMemories) {
        const SMemory& oMemory = m_oTarget.GetMemories()[n];
        const CImage oImage = Cut(oJob.oImage, oMemory);
        if (oImage.GetRanges().empty())
            continue;
        m_oTool.Note(fmt::format("Reading {} for {} from {}", Bytes(oImage.GetSize()), oMemory.strName,
                                 FileName(oJob.oOperation)));
        const int nStatus = oJob.oOperation.eAction == EAction::eWrite ? WriteMemory(oJob, n, oImage)
                                                                       : Verify(oJob, oMemory, oImage);
        if (nStatus != 0)
            return nStatus;
    }
    return eStatusDone;
}

int CProgrammer::ReadJob(const SJob& oJob)
{
    CImage oImage;
    for (const std::size_t n : oJob.anMemories) {
        const SMemory& oMemory = m_oTarget.GetMemories()[n];
        SAddresses oRange{};
        if (const int nStatus = m_oOptions.FindRange(m_oTool, oMemory, oRange); nStatus != 0)
            return nStatus;
        const auto [nFirst, nLast] = oRange;
        const std::uint64_t nLength = nLast - nFirst + 1;
        m_oTool.Note(fmt::format("Reading {} from {}", Bytes(nLength), oMemory.strName));
        const CSpeed oSpeed;
        if (const int nStatus = ReadSpans(oMemory, {oRange}, nLength <= SMALL, oImage); nStatus != 0)
            return nStatus;
        oSpeed.Show(m_oTool, nLength);
        PrintJson("read", oMemory,
                  {{"first", nFirst},
                   {"last", nLast},
                   {"bytes", nLength},
                   {"file", oJob.oOperation.strFile},
                   {"seconds", oSpeed.GetSeconds()}});
    }
    m_oTool.Note(fmt::format("Writing {} to {}", Bytes(oImage.GetSize()), FileName(oJob.oOperation)));
    return SaveMemoryFile(m_oTool, oJob.oOperation.strFile, oJob.oOperation.cFormat, oImage);
}

int CProgrammer::ReadSpans(const SMemory& oMemory, const std::vector<SAddresses>& aoSpans, bool bSmall,
                           CImage& oRead)
{
    std::uint64_t nTotal = 0;
    for (const SAddresses& oSpan : aoSpans)
        nTotal += oSpan.nLast - oSpan.nFirst + 1;
    const auto pProgress = MakeProgress(m_oTool, "Reading", nTotal, bSmall);
    std::uint64_t nDone = 0;
    for (const auto& [nFirst, nLast] : aoSpans) {
        std::string strBytes;
        const int nStatus =
            m_oTarget.Read(oMemory, nFirst, nLast - nFirst + 1, strBytes, [&](std::uint64_t n) {
                if (pProgress)
                    pProgress->Update(nDone + n);
            });
        if (nStatus != 0)
            return nStatus;
        nDone += strBytes.size();
        oRead.Set(nFirst, strBytes);
    }
    if (pProgress)
        pProgress->Finish();
    return eStatusDone;
}

int CProgrammer::EraseBlocks(std::size_t nMemory, const std::set<unsigned>& anBlocks)
{
    const SMemory& oMemory = m_oTarget.GetMemories()[nMemory];
    if (anBlocks.empty())
        return eStatusDone;
    if (m_oOptions.bDryRun) {
        for (const unsigned nBlock : anBlocks)
            m_aoErased.emplace(nMemory, nBlock);
        m_oTool.Note(oMemory.strName + " not erased: dry run");
        return eStatusDone;
    }
    const bool bWhole = oMemory.nEraseBlock == oMemory.nSize;
    m_oTool.Note(bWhole ? "Erasing " + oMemory.strName
                        : fmt::format("Erasing {} block{} of {}", anBlocks.size(),
                                      anBlocks.size() == 1 ? "" : "s", oMemory.strName));
    const auto pProgress = MakeProgress(m_oTool, "Erasing", anBlocks.size(), anBlocks.size() == 1);
    const CSpeed oSpeed;
    unsigned nDone = 0;
    for (const unsigned nBlock : anBlocks) {
        if (m_oTool.GetInterrupt().GetSignal() != 0)
            return m_oTool.Fail(eStatusNoAnswer, "");
        if (const int nStatus = m_oTarget.EraseBlock(oMemory, nBlock); nStatus != 0)
            return nStatus;
        m_aoErased.emplace(nMemory, nBlock);
        if (pProgress)
            pProgress->Update(++nDone);
    }
    if (pProgress)
        pProgress->Finish();
    PrintJson("erase", oMemory, {{"blocks", anBlocks.size()}, {"seconds", oSpeed.GetSeconds()}});
    return eStatusDone;
}

int CProgrammer::Erase(const std::vector<std::size_t>& anMemories)
{
    for (const std::size_t n : anMemories) {
        if (const int nStatus = m_oTarget.GetMemories()[n].Check(m_oTool); nStatus != 0)
            return nStatus;
    }
    for (const std::size_t n : anMemories) {
        const SMemory& oMemory = m_oTarget.GetMemories()[n];
        std::set<unsigned> anBlocks;
        for (unsigned nBlock = 0; oMemory.nEraseBlock > 0 && nBlock * oMemory.nEraseBlock < oMemory.nSize;
             ++nBlock)
            anBlocks.insert(nBlock);
        if (const int nStatus = EraseBlocks(n, anBlocks); nStatus != 0)
            return nStatus;
    }
    return eStatusDone;
}

// What was erased in the same run is not erased again: an earlier operation may have written there.
int CProgrammer::EraseTouched(std::size_t nMemory, const CImage& oPages)
{
    const SMemory& oMemory = m_oTarget.GetMemories()[nMemory];
    if (oMemory.nEraseBlock == 0)
        return eStatusDone;
    std::set<unsigned> anBlocks;
    for (const CImage::SRange& oRange : oPages.GetRanges()) {
        const std::uint64_t nLast = (oRange.GetLast() - oMemory.nAddress) / oMemory.nEraseBlock;
        for (std::uint64_t n = (oRange.nAddress - oMemory.nAddress) / oMemory.nEraseBlock; n <= nLast; ++n) {
            if (!m_aoErased.contains({nMemory, static_cast<unsigned>(n)}))
                anBlocks.insert(static_cast<unsigned>(n));
        }
    }
    return EraseBlocks(nMemory, anBlocks);
}

int CProgrammer::Write(const SMemory& oMemory, const CImage& oPages, const CImage& oImage)
{
    const std::uint64_t nTotal = oPages.GetSize();
    const CSpeed oSpeed;
    const auto pProgress = MakeProgress(m_oTool, "Writing", nTotal, oImage.GetSize() <= SMALL);
    std::uint64_t nDone = 0;
    for (const CImage::SRange& oRange : oPages.GetRanges()) {
        const int nStatus = m_oTarget.Write(oMemory, oRange.nAddress, oRange.strBytes, [&](std::uint64_t n) {
            if (pProgress)
                pProgress->Update(nDone + n);
        });
        if (nStatus != 0)
            return nStatus;
        nDone += oRange.strBytes.size();
    }
    if (pProgress)
        pProgress->Finish();
    oSpeed.Show(m_oTool, nTotal);
    PrintJson("write", oMemory, {{"bytes", oImage.GetSize()}, {"seconds", oSpeed.GetSeconds()}});
    return eStatusDone;
}

int CProgrammer::WriteMemory(const SJob& oJob, std::size_t nMemory, const CImage& oImage)
{
    const SMemory& oMemory = m_oTarget.GetMemories()[nMemory];
    const CImage oPages = FillPages(oImage, oMemory);
    const std::uint64_t nSize = oImage.GetSize();
    if (!m_oOptions.bNoAutoErase) {
        if (const int nStatus = EraseTouched(nMemory, oPages); nStatus != 0)
            return nStatus;
    }
    if (m_oOptions.bDryRun) {
        m_oTool.Note(fmt::format("{} of {} not written: dry run", Bytes(nSize), oMemory.strName));
        PrintJson("write", oMemory, {{"bytes", nSize}, {"dry_run", true}});
        return eStatusDone;
    }
    if (nSize > SMALL)
        m_oTool.Note(fmt::format("Writing {} to {}", Bytes(nSize), oMemory.strName));
    int nStatus = Write(oMemory, oPages, oImage);
    if (nStatus == 0 && !m_oOptions.bNoVerify)
        nStatus = Verify(oJob, oMemory, oImage);
    if (nSize > SMALL || nStatus != 0)
        return nStatus;
    const std::string strValue =
        nSize > 1 ? ""
                  : fmt::format(" (0x{:02X})", static_cast<unsigned char>(oImage.GetRanges()[0].strBytes[0]));
    m_oTool.Note(fmt::format("Writing {}{} to {}, {} written{}", Bytes(nSize), strValue, oMemory.strName,
                             Bytes(nSize), m_oOptions.bNoVerify ? "" : fmt::format(", {} verified", nSize)));
    return eStatusDone;
}

int CProgrammer::Verify(const SJob& oJob, const SMemory& oMemory, const CImage& oImage)
{
    const CSpeed oSpeed;
    CVerify oVerify(m_oTool, oMemory.strName, FileName(oJob.oOperation));
    CImage oRead;
    if (const int nStatus = ReadSpans(oMemory, oImage.GetSpans(READ_HOLE), oImage.GetSize() <= SMALL, oRead);
        nStatus != 0)
        return nStatus;
    oSpeed.Show(m_oTool, oImage.GetSize());
    oVerify.Compare(oRead, oImage);
    return oVerify.Report(oJob.oOperation.eAction == EAction::eVerify || oImage.GetSize() > SMALL);
}

void AddFormatOption(CLI::App& oApp, std::string& strFormat, EAction eAction)
{
    std::vector<std::string> astrFormats;
    for (const char c : MEMORY_FORMATS) {
        if (eAction != EAction::eRead || UNWRITABLE.find(c) == std::string_view::npos)
            astrFormats.emplace_back(1, c);
    }
    oApp.add_option("--format", strFormat, "Format of the file, see below")
        ->type_name(fmt::format("{}", fmt::join(astrFormats, "|")))
        ->check(CLI::IsMember(astrFormats).description(""));
}

void AddAddressOption(CLI::App& oApp, CProgrammer::SOptions& oOptions, const std::string& strText)
{
    oApp.add_option("--address", oOptions.nFirst, strText)
        ->type_name("ADDRESS")
        ->check(CLI::Range(std::uint64_t{0}, MAX_ADDRESS).description(""));
}

void AddRangeOptions(CLI::App& oApp, CProgrammer::SOptions& oOptions)
{
    AddAddressOption(oApp, oOptions, "First address to read; default the first of the memory");
    oApp.add_option("--length", oOptions.nLength, "How many bytes; default: up to the end of the memory")
        ->type_name("BYTES");
}

namespace
{

constexpr const char* FORMATS =
    "Formats: a automatic (as the ending of the name tells: .hex .ihex .ihx .mcs Intel HEX, .srec .s19 .s28 "
    ".s37 .mot S-records, .bin .img .rom raw; with any other as the file begins: ELF, Intel HEX, S-records, "
    "else raw), i Intel HEX, I Intel HEX with comments (a wrong checksum is only a warning), "
    "s S-records, r raw, e ELF (what it loads, at the physical addresses), d, h, o, b decimal, hexadecimal, "
    "octal or binary numbers separated by commas, and m: then FILE is not a file but the bytes themselves, "
    "such as 0x01,2,3. A raw file may be as long as the memory, a text 16 times as long, an ELF file 64 MiB.";

constexpr const char* FORMATS_WRITTEN =
    "Formats: i Intel HEX, I Intel HEX with comments, s S-records, r raw, d, h, o, b decimal, hexadecimal, "
    "octal or binary numbers separated by commas, a automatic: as the ending of the name tells, .hex .ihex "
    ".ihx .mcs i, .srec .s19 .s28 .s37 .mot s, .bin .img .rom r; with any other r for one memory, I for "
    "several.";

constexpr const char* STATUS = "Exit status: 0 done, 1 refused by the gateway, 2 usage, 3 the target differs "
                               "from the file, 4 no answer, 5 the "
                               "file cannot be read or written or does not fit the memory, 130 after Ctrl-C.";

void AddMemoryOption(CLI::App& oApp, std::string& strMemories)
{
    oApp.add_option("-m,--memory", strMemories, "Memories, separated by commas, or all")
        ->type_name("LIST")
        ->capture_default_str();
}

void AddWriteOptions(CLI::App& oApp, CProgrammer::SOptions& oOptions)
{
    oApp.add_flag("-e,--erase", oOptions.bErase, "Erase the whole flash first");
    oApp.add_flag("-D,--no-auto-erase", oOptions.bNoAutoErase, "Do not erase what is written");
    oApp.add_flag("-V,--no-verify", oOptions.bNoVerify, "Do not read back and compare what was written");
    oApp.add_flag("-n,--dry-run", oOptions.bDryRun,
                  "Neither erase nor write: read the files, and compare their addresses with the memories");
}

std::string Example(const STargetTexts& oTexts, const char* pRest)
{
    return fmt::format("quorvel -g 192.168.0.10 {} {}", oTexts.pGroup, pRest);
}

template<EAction eAction>
constexpr std::pair<const char*, const char*> OPERATION_TEXTS{"read", "Read memories into a file"};
template<>
constexpr std::pair<const char*, const char*> OPERATION_TEXTS<EAction::eWrite>{
    "write", "Write a file to memories, and verify it"};
template<>
constexpr std::pair<const char*, const char*> OPERATION_TEXTS<EAction::eVerify>{
    "verify", "Compare memories with a file"};

} // namespace

CTargetInfo::CTargetInfo(CLI::App& oGroup, const STargetTexts& oTexts)
    : CTargetVerb(oGroup, "info", "Tell what is known of the target")
{
    m_oApp.footer(
        fmt::format("Prints the target's data and its memories: first and last address, size, page size and "
                    "how much is erased at a time.\n\n{}\n\n{}",
                    oTexts.pMemories, Example(oTexts, "info")));
}

int CTargetInfo::Run(CTool& oTool)
{
    const auto pTarget = MakeTarget(oTool);
    if (!pTarget)
        return eStatusUsage;
    CJson oInfo;
    int nStatus = pTarget->Open();
    if (nStatus == 0)
        nStatus = pTarget->GetInfo(oInfo);
    nStatus = pTarget->Close(nStatus);
    if (nStatus != 0)
        return nStatus;
    if (!oTool.GetOptions().bJson) {
        for (const auto& [strKey, oValue] : oInfo.items())
            fmt::print("{:<9} {}\n", strKey,
                       oValue.is_string() ? ToHarmless(oValue.get<std::string>()) : oValue.dump());
    }
    oInfo["memories"] = CJson::array();
    for (const SMemory& oMemory : pTarget->GetMemories()) {
        oInfo["memories"].push_back({{"name", oMemory.strName},
                                     {"first", oMemory.nAddress},
                                     {"last", oMemory.GetLast()},
                                     {"bytes", oMemory.nSize},
                                     {"page", oMemory.nPage},
                                     {"erase_block", oMemory.nEraseBlock}});
        if (!oTool.GetOptions().bJson)
            fmt::print("{:<9} {}, {}, pages of {}, erased {}\n", oMemory.strName,
                       RangeText(oMemory.nAddress, oMemory.GetLast()), Bytes(oMemory.nSize),
                       Bytes(oMemory.nPage),
                       oMemory.nEraseBlock == oMemory.nSize ? "as a whole"
                                                            : "in blocks of " + Bytes(oMemory.nEraseBlock));
    }
    if (oTool.GetOptions().bJson)
        CTool::PrintJson(oInfo);
    return eStatusDone;
}

CTargetErase::CTargetErase(CLI::App& oGroup, const STargetTexts& oTexts)
    : CTargetVerb(oGroup, "erase", "Erase memories"), m_strMemories("flash")
{
    m_oApp.add_option("MEMORIES", m_strMemories, "Memories, separated by commas, or all")
        ->type_name("")
        ->capture_default_str();
    m_oApp.footer(fmt::format("{}\n\nErasing takes long: raise --timeout when the gateway does not answer in "
                              "time.\n\n{}",
                              oTexts.pMemories, Example(oTexts, "--timeout 30000 erase")));
}

int CTargetErase::Run(CTool& oTool)
{
    const auto pTarget = MakeTarget(oTool);
    if (!pTarget)
        return eStatusUsage;
    std::string strError;
    const auto anMemories = SelectMemories(m_strMemories, GetNames(*pTarget), strError);
    if (!anMemories)
        return oTool.Fail(eStatusUsage, strError);
    CProgrammer oProgrammer(oTool, *pTarget, {});
    int nStatus = pTarget->Open();
    if (nStatus == 0)
        nStatus = oProgrammer.Erase(*anMemories);
    return pTarget->Close(nStatus);
}

CTargetFlash::CTargetFlash(CLI::App& oGroup, const STargetTexts& oTexts)
    : CTargetVerb(oGroup, "flash", "Write a file to the flash, and verify it, or carry out memory operations")
{
    m_oApp.add_option("FILE", m_strFile, "What to write to the flash, with :FORMAT behind it if need be")
        ->type_name("");
    m_oApp
        .add_option(
            "-U", m_astrOperations,
            "Read, write or verify memories, as with avrdude: MEMORIES:r|w|v:FILE[:FORMAT], or FILE[:FORMAT] "
            "to write the flash; can be repeated")
        ->type_name("OPERATION")
        ->allow_extra_args(false);
    AddWriteOptions(m_oApp, m_oOptions);
    m_oApp.footer(fmt::format(
        "{}\n\nOperations run in the order given; the first that fails is the last. MEMORIES is a list such "
        "as "
        "flash,user or all or all,-user. What is written is erased before, unless -D, but nothing twice in "
        "one run, "
        "and read back and compared, unless -V. {}\n\n{} The file - is standard input or output.\n\nA file "
        "name may contain colons: only a known "
        "format "
        "letter behind the last one is a format. Reading writes in the format that the ending tells; with "
        "any other a raw file for one memory, format I for several. e and m cannot be "
        "written.\n\nDifferences are told on standard error, the first 10 as "
        "lines, then how many bytes "
        "differ and "
        "whether bits are only set or only cleared. With -v the speed is told. With --json one object is "
        "printed for "
        "each operation.\n\n{}\n\n{}\n{}",
        oTexts.pMemories, oTexts.pErasing, FORMATS, STATUS, Example(oTexts, "flash diag.hex"),
        Example(oTexts, "flash -U flash:r:backup.hex:i -U flash:w:diag.hex")));
}

std::vector<std::string> CTargetFlash::GetFiles() const
{
    std::vector<std::string> astrFiles;
    std::vector<std::string> astrOperations = m_astrOperations;
    astrOperations.push_back(m_strFile);
    for (const std::string& strOperation : astrOperations) {
        std::string strError;
        if (const auto oOperation = ParseMemoryOperation(strOperation, strError))
            astrFiles.push_back(oOperation->strFile);
    }
    return astrFiles;
}

int CTargetFlash::Run(CTool& oTool)
{
    if (!m_strFile.empty())
        m_astrOperations.insert(m_astrOperations.begin(), m_strFile);
    if (m_astrOperations.empty() && !m_oOptions.bErase)
        return oTool.Fail(eStatusUsage, "nothing to do: give FILE, -U or -e");
    std::vector<SMemoryOperation> aoOperations;
    for (const std::string& strOperation : m_astrOperations) {
        std::string strError;
        const auto oOperation = ParseMemoryOperation(strOperation, strError);
        if (!oOperation)
            return oTool.Fail(eStatusUsage, fmt::format("{}: {}", strOperation, strError));
        aoOperations.push_back(*oOperation);
    }
    const auto pTarget = MakeTarget(oTool);
    if (!pTarget)
        return eStatusUsage;
    CProgrammer oProgrammer(oTool, *pTarget, m_oOptions);
    const int nStatus = oProgrammer.Prepare(aoOperations);
    return nStatus != 0 ? nStatus : oProgrammer.Run();
}

template<EAction eAction>
CTargetOperation<eAction>::CTargetOperation(CLI::App& oGroup, const STargetTexts& oTexts)
    : CTargetVerb(oGroup, OPERATION_TEXTS<eAction>.first, OPERATION_TEXTS<eAction>.second)
{
    m_oOperation.eAction = eAction;
    constexpr bool bRead = eAction == EAction::eRead;
    m_oApp
        .add_option("FILE", m_oOperation.strFile,
                    bRead ? "The file, - for standard output" : "The file, - for standard input")
        ->type_name("")
        ->required();
    AddMemoryOption(m_oApp, m_oOperation.strMemories);
    AddFormatOption(m_oApp, m_strFormat, eAction);
    std::string strExample = Example(oTexts, OPERATION_TEXTS<eAction>.first);
    if constexpr (bRead) {
        AddRangeOptions(m_oApp, m_oOptions);
        strExample += fmt::format(" - --format h --address {} --length 16", oTexts.pFirstData);
    } else {
        AddAddressOption(m_oApp, m_oOptions,
                         "Where a file without addresses begins; default the first address of the memory");
        if constexpr (eAction == EAction::eWrite)
            AddWriteOptions(m_oApp, m_oOptions);
        strExample += " diag.hex";
    }
    m_oApp.footer(fmt::format("{}{}\n\n{}\n\n{}\n\n{}", oTexts.pMemories,
                              eAction == EAction::eWrite ? std::string(" ") + oTexts.pErasing : "",
                              bRead ? FORMATS_WRITTEN : FORMATS, STATUS, strExample));
}

template<EAction eAction>
int CTargetOperation<eAction>::Run(CTool& oTool)
{
    if (!m_strFormat.empty())
        m_oOperation.cFormat = m_strFormat[0];
    const auto pTarget = MakeTarget(oTool);
    if (!pTarget)
        return eStatusUsage;
    CProgrammer oProgrammer(oTool, *pTarget, m_oOptions);
    const int nStatus = oProgrammer.Prepare({m_oOperation});
    return nStatus != 0 ? nStatus : oProgrammer.Run();
}

template class CTargetOperation<EAction::eRead>;
template class CTargetOperation<EAction::eWrite>;
template class CTargetOperation<EAction::eVerify>;
