// Memory images of the command line.
#ifndef QUORVEL_TOOL_IMAGE_H
#define QUORVEL_TOOL_IMAGE_H

#include "QuorvelHexfile.h"
#include "Tool.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// A sparse image: ranges of bytes, ascending, neither touching nor overlapping.
class CImage
{
  public:
    /// One range without a gap.
    struct SRange {
        std::uint64_t nAddress; ///< of the first byte
        std::string strBytes;   ///< at least one

        /// @return the address of the last byte
        std::uint64_t GetLast() const { return nAddress + strBytes.size() - 1; }
    };

    /**
     * Loads a file. Every fault is reported with its line: a record that is only left out, such as a start
     * segment address, is a warning; anything else an error.
     * @param oTool   reports
     * @param strPath the file, "-" for standard input
     * @param eType   its format; eTypeAuto looks at the first character
     * @return 0, or the exit status of a failure, which was reported
     */
    int Load(const CTool& oTool, const std::string& strPath, CQuorvelHexfile::EType eType);

    /**
     * Loads the content of a file; otherwise as Load.
     * @param oTool      reports
     * @param strName    what reports call the file
     * @param strContent its bytes
     * @param eType      its format
     * @param bTolerant  true: wrong checksums are warnings
     * @return 0, or the exit status of a failure, which was reported
     */
    int Parse(const CTool& oTool, const std::string& strName, std::string strContent,
              CQuorvelHexfile::EType eType, bool bTolerant = false);

    /// @return the format of the file that was loaded
    CQuorvelHexfile::EType GetType() const { return m_eType; }

    /// @return the ranges
    const std::vector<SRange>& GetRanges() const { return m_aoRanges; }

    /// @return the number of bytes in all ranges
    std::uint64_t GetSize() const;

    /// Sets bytes; what was there before is replaced, and ranges that then touch become one.
    void Set(std::uint64_t nAddress, std::string_view strBytes);

  private:
    CQuorvelHexfile::EType m_eType = CQuorvelHexfile::eTypeAuto;
    std::vector<SRange> m_aoRanges;
};

#endif
