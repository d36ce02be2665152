// Reading, writing and verifying the memories of targets, whatever gateway programs them.
#ifndef QUORVEL_TOOL_PROGRAMMER_H
#define QUORVEL_TOOL_PROGRAMMER_H

#include "Image.h"
#include "MemoryOperation.h"
#include "Tool.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// One memory of a target. Only the name is known before the target is open.
struct SMemory {
    std::string strName;
    std::uint64_t nAddress = 0;             ///< of the first byte
    std::uint64_t nSize = 0;                ///< bytes
    std::uint64_t nPage = 1;                ///< bytes; what is written begins and ends at multiples of it
    std::uint64_t nEraseBlock = 0;          ///< bytes erased at a time; 0: it need not be erased
    std::uint64_t nReach = MAX_ADDRESS + 1; ///< the first address that no command can hold

    /// @return the address of the last byte
    std::uint64_t GetLast() const { return nAddress + nSize - 1; }

    /**
     * Looks whether the gateway can be told every address and block of the memory. Pages have up to 64 KiB, and are
     * whole; blocks have numbers of 16 bits.
     * @return 0, or the exit status of a failure, which was reported
     */
    int Check(const CTool& oTool) const;
};

/// A target behind a gateway. All functions report failures and return 0 or an exit status.
class CTarget
{
  public:
    /// Is told how many bytes of the call are done.
    using TProgress = std::function<void(std::uint64_t nDone)>;

    explicit CTarget(std::vector<SMemory> aoMemories) : m_aoMemories(std::move(aoMemories)) {}
    virtual ~CTarget() = default;
    CTarget(const CTarget&) = delete;
    CTarget& operator=(const CTarget&) = delete;

    /// @return the memories, always the same; the first is what is meant when none is named
    const std::vector<SMemory>& GetMemories() const { return m_aoMemories; }

    /// Connects and finds out about the memories.
    virtual int Open() = 0;

    /// Ends what Open began, also when that has failed. @return nStatus, the status so far, if that is not 0
    virtual int Close(int nStatus) { return nStatus; }

    /// Adds what is known of the target.
    virtual int GetInfo(CJson& /*oInfo*/) { return eStatusDone; }

    /// Erases a block, counted from 0.
    virtual int EraseBlock(const SMemory& oMemory, unsigned nBlock) = 0;

    /// Reads bytes of one memory; strBytes becomes nLength long.
    virtual int Read(const SMemory& oMemory, std::uint64_t nAddress, std::uint64_t nLength,
                     std::string& strBytes, const TProgress& fnProgress) = 0;

    /// Writes whole pages of one memory.
    virtual int Write(const SMemory& oMemory, std::uint64_t nAddress, std::string_view strBytes,
                      const TProgress& fnProgress) = 0;

  protected:
    std::vector<SMemory> m_aoMemories;
};

/// Carries memory operations out.
class CProgrammer
{
  public:
    struct SOptions {
        bool bErase = false;       ///< erase the whole first memory before anything else
        bool bNoAutoErase = false; ///< write without erasing
        bool bNoVerify = false;    ///< do not read back what was written
        bool bDryRun = false;      ///< neither erase nor write
        /// First address to read, and where a file without addresses begins; nothing: that of the memory.
        std::optional<std::uint64_t> nFirst;
        /// Bytes to read; nothing: up to the end of the memory.
        std::optional<std::uint64_t> nLength;

        /// Finds the addresses to read; otherwise as ::FindRange.
        int FindRange(const CTool& oTool, const SMemory& oMemory, SAddresses& oRange) const;
    };

    CProgrammer(CTool& oTool, CTarget& oTarget, const SOptions& oOptions)
        : m_oTool(oTool), m_oTarget(oTarget), m_oOptions(oOptions)
    {
    }

    /**
     * Checks operations. The target need not be open: files for memories whose size is known already are loaded, and
     * compared with them; those that an earlier operation is going to write are loaded later.
     * @return 0, or the exit status of a failure, which was reported
     */
    int Prepare(const std::vector<SMemoryOperation>& aoOperations);

    /**
     * Carries the operations out, on an open target. Before the first one the memories are checked, and the files
     * loaded. The first failure ends it.
     * @return 0, or the exit status of a failure, which was reported
     */
    int Execute();

    /// Opens the target, executes and closes it. @return as Execute
    int Run();

    /// Erases all of some memories of an open target. @return as Execute
    int Erase(const std::vector<std::size_t>& anMemories);

  private:
    struct SJob {
        SMemoryOperation oOperation;
        std::vector<std::size_t> anMemories;
        bool bLater = false; // an earlier operation writes the file
        bool bLoaded = false;
        bool bAddressed = true;
        CImage oImage;
    };

    int LoadFiles();
    int Load(SJob& oJob) const;
    int Fit(SJob& oJob) const;
    int Execute(SJob& oJob);
    int ReadJob(const SJob& oJob);
    int WriteMemory(const SJob& oJob, std::size_t nMemory, const CImage& oImage);
    int EraseBlocks(std::size_t nMemory, const std::set<unsigned>& anBlocks);
    int EraseTouched(std::size_t nMemory, const CImage& oPages);
    int Write(const SMemory& oMemory, const CImage& oPages, const CImage& oImage);
    int Verify(const SJob& oJob, const SMemory& oMemory, const CImage& oImage);
    int ReadSpans(const SMemory& oMemory, const std::vector<SAddresses>& aoSpans, bool bSmall, CImage& oRead);
    void PrintJson(const char* pOperation, const SMemory& oMemory, const CJson& oMore) const;

    CTool& m_oTool;
    CTarget& m_oTarget;
    SOptions m_oOptions;
    std::vector<SJob> m_aoJobs;
    std::set<std::pair<std::size_t, unsigned>> m_aoErased; // memory and block
};

/// A verb that has a target.
class CTargetVerb : public CVerb
{
  public:
    using CVerb::CVerb;

  protected:
    /// Makes the target that the options describe; it is not open yet. @return null after a report
    virtual std::unique_ptr<CTarget> MakeTarget(CTool& oTool) = 0;
};

/// What the help of a group of target verbs says.
struct STargetTexts {
    const char* pGroup;     ///< "awire"
    const char* pMemories;  ///< which memories there are, and what addresses mean
    const char* pErasing;   ///< what is erased before writing
    const char* pFirstData; ///< an address, for examples
};

/// Prints what is known of the target.
class CTargetInfo : public CTargetVerb
{
  public:
    CTargetInfo(CLI::App& oGroup, const STargetTexts& oTexts);
    int Run(CTool& oTool) override;
};

/// Erases.
class CTargetErase : public CTargetVerb
{
  public:
    CTargetErase(CLI::App& oGroup, const STargetTexts& oTexts);
    int Run(CTool& oTool) override;

  private:
    std::string m_strMemories;
};

/// Memory operations.
class CTargetFlash : public CTargetVerb
{
  public:
    CTargetFlash(CLI::App& oGroup, const STargetTexts& oTexts);
    int Run(CTool& oTool) override;
    std::vector<std::string> GetFiles() const override;

  private:
    std::string m_strFile;
    std::vector<std::string> m_astrOperations;
    CProgrammer::SOptions m_oOptions;
};

/// One memory operation, as options.
template<SMemoryOperation::EAction eAction>
class CTargetOperation : public CTargetVerb
{
  public:
    CTargetOperation(CLI::App& oGroup, const STargetTexts& oTexts);
    int Run(CTool& oTool) override;

  private:
    SMemoryOperation m_oOperation;
    std::string m_strFormat;
    CProgrammer::SOptions m_oOptions;
};

/// Adds the option for the format of a file. @param eAction what is done with it: a file is written by reading
void AddFormatOption(CLI::App& oApp, std::string& strFormat, SMemoryOperation::EAction eAction);

/// Adds the option --address.
void AddAddressOption(CLI::App& oApp, CProgrammer::SOptions& oOptions, const std::string& strText);

/// Adds the options --address and --length.
void AddRangeOptions(CLI::App& oApp, CProgrammer::SOptions& oOptions);

/// The verb TVerb for the target TTarget, whose constructor takes a CTool and a TTarget::SOptions.
template<class TVerb, class TTarget>
class CVerbOf : public TVerb
{
  public:
    explicit CVerbOf(CLI::App& oGroup) : TVerb(oGroup, TTarget::TEXTS) { m_oOptions.Add(this->m_oApp); }

  protected:
    std::unique_ptr<CTarget> MakeTarget(CTool& oTool) override
    {
        if (m_oOptions.Check(oTool) != eStatusDone)
            return nullptr;
        auto pTarget = std::make_unique<TTarget>(oTool, m_oOptions);
        for (const SMemory& oMemory : pTarget->GetMemories()) {
            if (oMemory.nSize > 0 && oMemory.Check(oTool) != eStatusDone)
                return nullptr;
        }
        return pTarget;
    }

  private:
    typename TTarget::SOptions m_oOptions;
};

/// Adds info, erase, read, write, verify and flash for a target.
template<class TTarget>
void AddTargetVerbs(CTool& oTool, CLI::App& oGroup)
{
    using EAction = SMemoryOperation::EAction;
    oTool.AddVerb<CVerbOf<CTargetInfo, TTarget>>(oGroup);
    oTool.AddVerb<CVerbOf<CTargetFlash, TTarget>>(oGroup);
    oTool.AddVerb<CVerbOf<CTargetOperation<EAction::eRead>, TTarget>>(oGroup);
    oTool.AddVerb<CVerbOf<CTargetOperation<EAction::eWrite>, TTarget>>(oGroup);
    oTool.AddVerb<CVerbOf<CTargetOperation<EAction::eVerify>, TTarget>>(oGroup);
    oTool.AddVerb<CVerbOf<CTargetErase, TTarget>>(oGroup);
}

#endif
