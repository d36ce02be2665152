// How far a long operation has come.
#ifndef QUORVEL_TOOL_PROGRESS_H
#define QUORVEL_TOOL_PROGRESS_H

#include "Tool.h"

#include <chrono>
#include <cstdint>
#include <string>

/**
 * Shows progress on standard error, as the options say: a bar of 50 columns on a terminal, a growing line
 * elsewhere, JSON lines, or nothing. What is drawn changes at most once for each per cent, so that it costs nothing.
 */
class CProgress
{
  public:
    /**
     * Begins.
     * @param oTool    options
     * @param strTitle "Writing", "Reading", ...
     * @param nTotal   the number of bytes that make 100 per cent
     */
    CProgress(CTool& oTool, std::string strTitle, std::uint64_t nTotal);

    /// An operation that is not complete has failed, and is shown so.
    ~CProgress();
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    /// @param nDone number of bytes done
    void Update(std::uint64_t nDone);

    /// All is done.
    void Finish();

    /// It has failed, and nothing more is shown.
    void Fail();

    /// Ends the line that is being drawn, if any; the next change begins it anew.
    void EndLine();

  private:
    void End();
    void Show();

    CTool& m_oTool;
    std::string m_strTitle;
    std::uint64_t m_nTotal;
    std::uint64_t m_nDone = 0;
    unsigned m_nPercent = 0;
    unsigned m_nColumns = 0; // drawn in the growing line
    bool m_bOpen = false;    // a line is drawn and not ended yet
    bool m_bFinished = false;
    bool m_bEnded = false; // finished or failed
    EProgress m_eProgress;
    std::chrono::steady_clock::time_point m_oStart = std::chrono::steady_clock::now();
};

#endif
