// Logs of CAN frames: the log files of candump and canplayer, and ASC files as log2asc writes them.
#ifndef QUORVEL_TOOL_CAN_LOG_H
#define QUORVEL_TOOL_CAN_LOG_H

#include "CanFrame.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// A frame in a log.
struct SCanRecord {
    std::int64_t nTime = 0;   ///< nanoseconds since 1970, or since the log begins
    std::string strInterface; ///< "can0", ...
    SCanFrame oFrame;
    char cDirection = 0; ///< 'R' received, 'T' sent, 0 not said
};

/// How time is written.
class CCanTime
{
  public:
    /**
     * @param cMode        'a' absolute, 'd' since the frame before, 'z' since the first frame, 'A' date and time
     * @param bNanoseconds nine decimals instead of six
     */
    explicit CCanTime(char cMode = 'a', bool bNanoseconds = false)
        : m_cMode(cMode), m_bNanoseconds(bNanoseconds)
    {
    }

    /// Appends a time in brackets, and a blank.
    void Append(std::string& strText, std::int64_t nTime);

  private:
    char m_cMode;
    bool m_bNanoseconds;
    std::optional<std::int64_t> m_nReference;
};

/// Appends a record as a line of a log file. @param bDirection with R or T at its end
void AppendLogLine(std::string& strText, const SCanRecord& oRecord, CCanTime& oTime, bool bDirection,
                   bool bRawDlc);

/// Writes an ASC file: times count from the first frame, whose date the header has.
class CAscWriter
{
  public:
    /// @param nChannel the number of the channel, from 1
    explicit CAscWriter(unsigned nChannel) : m_nChannel(nChannel) {}

    /// Appends a record.
    void Append(std::string& strText, const SCanRecord& oRecord);

  private:
    unsigned m_nChannel;
    std::optional<std::int64_t> m_nStart;
};

/// Reads a log line by line; its first frame tells whether it is a log file or an ASC file.
class CCanLogReader
{
  public:
    /// @param strContent the file, which must stay
    explicit CCanLogReader(std::string_view strContent) : m_strRest(strContent) {}

    /**
     * Reads the next frame. Lines that are none are left out: comments, headers, counts of lost frames.
     * @param oRecord receives it
     * @return false at the end, and when a line is damaged: see GetError
     */
    bool Next(SCanRecord& oRecord);

    /// @return what is wrong, with the number of the line; empty at the end of the log
    const std::string& GetError() const { return m_strError; }

  private:
    enum EFound { eFrame, eNoFrame, eDamaged };

    EFound ParseLog(std::string_view strLine, SCanRecord& oRecord);
    EFound ParseAsc(std::string_view strLine, SCanRecord& oRecord);
    EFound ParseAscClassic(std::string_view strRest, SCanRecord& oRecord);
    EFound ParseAscFd(std::string_view strRest, SCanRecord& oRecord);
    bool ParseAscIdentifier(std::string_view strWord, SCanFrame& oFrame);
    bool ParseAscData(std::string_view& strRest, std::uint32_t nCount, SCanFrame& oFrame);
    EFound Damaged(const std::string& strWhat);

    std::string_view m_strRest;
    std::string m_strError;
    unsigned m_nLine = 0;
    int m_nBase = 16;         // of an ASC file's numbers
    bool m_bRelative = false; // an ASC file's times count from the line before
    std::int64_t m_nLastTime = 0;
};

#endif
