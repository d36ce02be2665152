// Comparing the memory of a device with what should be in it.
#ifndef QUORVEL_TOOL_VERIFY_H
#define QUORVEL_TOOL_VERIFY_H

#include "Image.h"
#include "Tool.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

/// Holes of an image so long are read with what is beside them, which takes no longer than another exchange.
constexpr std::uint64_t READ_HOLE = 256;

/// Compares piece by piece, and reports the result.
class CVerify
{
  public:
    /**
     * Begins; the time counts from now on.
     * @param strMemory the memory
     * @param strInput  what it is compared with
     */
    CVerify(CTool& oTool, std::string strMemory, std::string strInput)
        : m_oTool(oTool), m_strMemory(std::move(strMemory)), m_strInput(std::move(strInput))
    {
    }

    /// Compares an image. @param oDevice what is there, at all its addresses at least @param oInput what should be
    void Compare(const CImage& oDevice, const CImage& oInput);

    /**
     * Reports all pieces: the first differences as lines, how many bytes differ, and whether bits are only set or only
     * cleared; with --json an object.
     * @param bNote tells also that there is no difference
     * @return 0, or the exit status of a mismatch
     */
    int Report(bool bNote) const;

  private:
    void Compare(std::uint64_t nAddress, std::string_view strDevice, std::string_view strInput);

    CTool& m_oTool;
    std::string m_strMemory;
    std::string m_strInput;
    std::uint64_t m_nBytes = 0;
    std::uint64_t m_nDiffering = 0;
    bool m_bSet = false;     // bits are 1 on the device, 0 in the input
    bool m_bCleared = false; // bits are 0 on the device, 1 in the input
    std::string m_strLines;  // the first differences
    CJson m_oMismatches = CJson::array();
    std::chrono::steady_clock::time_point m_oStart = std::chrono::steady_clock::now();
};

/// @return what messages call a file that is read: "input file NAME" or "standard input"
std::string GetInputName(const std::string& strFile);

#endif
