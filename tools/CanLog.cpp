#include "CanLog.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <iterator>

namespace
{

constexpr std::int64_t SECOND = 1'000'000'000;
constexpr std::array<unsigned char, 16> FD_LENGTHS{0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
constexpr std::string_view BLANKS = " \t\r";

// Takes the next word out of a text; empty at the end.
std::string_view TakeWord(std::string_view& strText)
{
    strText.remove_prefix(std::min(strText.size(), strText.find_first_not_of(BLANKS)));
    const std::string_view strWord = strText.substr(0, strText.find_first_of(BLANKS));
    strText.remove_prefix(strWord.size());
    return strWord;
}

std::optional<std::uint32_t> ParseDigits(std::string_view strDigits, int nBase)
{
    std::uint32_t nValue = 0;
    const char* const pEnd = strDigits.data() + strDigits.size();
    const auto [pStop, eError] = std::from_chars(strDigits.data(), pEnd, nValue, nBase);
    if (eError != std::errc() || pStop != pEnd)
        return std::nullopt;
    return nValue;
}

// Seconds with so many decimals, at least one.
std::optional<std::int64_t> ParseSeconds(std::string_view strText)
{
    const std::size_t nPoint = strText.find('.');
    if (nPoint == std::string_view::npos)
        return std::nullopt;
    const auto nSeconds = ParseDigits(strText.substr(0, nPoint), 10);
    std::string_view strDecimals = strText.substr(nPoint + 1);
    auto nFraction = ParseDigits(strDecimals, 10);
    if (!nSeconds || !nFraction || strDecimals.size() > 9)
        return std::nullopt;
    for (std::size_t i = strDecimals.size(); i < 9; ++i)
        *nFraction *= 10;
    return *nSeconds * SECOND + *nFraction;
}

unsigned GetFdDlc(std::size_t nLength)
{
    return static_cast<unsigned>(std::lower_bound(FD_LENGTHS.begin(), FD_LENGTHS.end() - 1, nLength) -
                                 FD_LENGTHS.begin());
}

} // namespace

void CCanTime::Append(std::string& strText, std::int64_t nTime)
{
    if (!m_nReference)
        m_nReference = nTime;
    std::int64_t nShown = nTime;
    if (m_cMode == 'd' || m_cMode == 'z')
        nShown = std::max<std::int64_t>(0, nTime - *m_nReference);
    if (m_cMode == 'd')
        m_nReference = nTime;
    const std::int64_t nSeconds = nShown / SECOND;
    const std::int64_t nFraction = nShown % SECOND;
    auto oOut = std::back_inserter(strText);
    if (m_cMode == 'A') {
        const std::time_t nClock = nSeconds;
        std::tm oLocal{};
        ::localtime_r(&nClock, &oLocal);
        fmt::format_to(oOut, "({:04}-{:02}-{:02} {:02}:{:02}:{:02}", oLocal.tm_year + 1900, oLocal.tm_mon + 1,
                       oLocal.tm_mday, oLocal.tm_hour, oLocal.tm_min, oLocal.tm_sec);
    } else {
        fmt::format_to(oOut, "({:0{}}", nSeconds, m_cMode == 'a' ? 10 : 3);
    }
    if (m_bNanoseconds)
        fmt::format_to(oOut, ".{:09}) ", nFraction);
    else
        fmt::format_to(oOut, ".{:06}) ", nFraction / 1000);
}

void AppendLogLine(std::string& strText, const SCanRecord& oRecord, CCanTime& oTime, bool bDirection,
                   bool bRawDlc)
{
    oTime.Append(strText, oRecord.nTime);
    strText += oRecord.strInterface;
    strText += ' ';
    AppendFrame(strText, oRecord.oFrame, bRawDlc);
    if (bDirection) {
        strText += ' ';
        strText += oRecord.cDirection == 'T' ? 'T' : 'R';
    }
    strText += '\n';
}

void CAscWriter::Append(std::string& strText, const SCanRecord& oRecord)
{
    const SCanFrame& oFrame = oRecord.oFrame;
    auto oOut = std::back_inserter(strText);
    if (!m_nStart) {
        m_nStart = oRecord.nTime;
        const std::time_t nClock = oRecord.nTime / SECOND;
        std::tm oLocal{};
        ::localtime_r(&nClock, &oLocal);
        char acDate[64];
        static_cast<void>(std::strftime(acDate, sizeof acDate, "%a %b %e %H:%M:%S %Y", &oLocal));
        fmt::format_to(oOut, "date {}\nbase hex  timestamps absolute\nno internal events logged\n", acDate);
    }
    if (oFrame.eKind == SCanFrame::eXl)
        return; // there is no line for it
    const std::int64_t nTime = std::max<std::int64_t>(0, oRecord.nTime - *m_nStart);
    fmt::format_to(oOut, "{:4}.{:06} ", nTime / SECOND, nTime % SECOND / 1000);
    const char* const pDirection = oRecord.cDirection == 'T' ? "Tx" : "Rx";
    const std::string strIdentifier = fmt::format("{:X}{}", oFrame.nIdentifier, oFrame.bExtended ? 'x' : ' ');
    if (oFrame.eKind == SCanFrame::eFd) {
        const bool bSwitched = (oFrame.nFdFlags & 1) != 0;
        const bool bIndicator = (oFrame.nFdFlags & 2) != 0;
        fmt::format_to(oOut, "CANFD {:3} {} {:>11}{:34}{:d} {:d} {:x} {:2}", m_nChannel, pDirection,
                       strIdentifier, "", bSwitched, bIndicator, GetFdDlc(oFrame.strData.size()),
                       oFrame.strData.size());
        for (const char cByte : oFrame.strData)
            fmt::format_to(oOut, " {:02X}", static_cast<unsigned char>(cByte));
        fmt::format_to(oOut, " {:8} {:4} {:8X} 0 0 0 0 0\n", 130000, 130,
                       0x1000 + (bSwitched ? 0x2000 : 0) + (bIndicator ? 0x4000 : 0));
        return;
    }
    fmt::format_to(oOut, "{:<2} ", m_nChannel);
    if (oFrame.bError) {
        strText += "ErrorFrame\n";
        return;
    }
    fmt::format_to(oOut, "{:<15} {}   {} {}", strIdentifier, pDirection, oFrame.bRemote ? 'r' : 'd',
                   oFrame.GetLength());
    for (const char cByte : oFrame.strData)
        fmt::format_to(oOut, " {:02X}", static_cast<unsigned char>(cByte));
    strText += '\n';
}

bool CCanLogReader::Next(SCanRecord& oRecord)
{
    while (m_strError.empty() && !m_strRest.empty()) {
        std::string_view strLine = m_strRest.substr(0, m_strRest.find('\n'));
        m_strRest.remove_prefix(std::min(m_strRest.size(), strLine.size() + 1));
        ++m_nLine;
        if (strLine.ends_with('\r'))
            strLine.remove_suffix(1);
        oRecord = {};
        const EFound eFound =
            strLine.starts_with('(') ? ParseLog(strLine, oRecord) : ParseAsc(strLine, oRecord);
        if (eFound == eFrame)
            return true;
    }
    return false;
}

CCanLogReader::EFound CCanLogReader::Damaged(const std::string& strWhat)
{
    m_strError = fmt::format("line {}: {}", m_nLine, strWhat);
    return eDamaged;
}

CCanLogReader::EFound CCanLogReader::ParseLog(std::string_view strLine, SCanRecord& oRecord)
{
    std::string_view strTime = TakeWord(strLine);
    const std::size_t nDecimals = strTime.size() - std::min(strTime.size(), strTime.find('.') + 1);
    if (!strTime.ends_with(')') || (nDecimals != 7 && nDecimals != 10)) // the bracket counted
        return Damaged("the time must have 6 or 9 decimals");
    strTime.remove_prefix(1);
    strTime.remove_suffix(1);
    const auto nTime = ParseSeconds(strTime);
    if (!nTime)
        return Damaged("no time");
    oRecord.nTime = *nTime;
    oRecord.strInterface = TakeWord(strLine);
    std::string strError;
    const auto oFrame = ParseFrame(TakeWord(strLine), strError);
    if (!oFrame)
        return Damaged(strError);
    oRecord.oFrame = *oFrame;
    const std::string_view strDirection = TakeWord(strLine);
    if ((!strDirection.empty() && strDirection != "R" && strDirection != "T") || !TakeWord(strLine).empty())
        return Damaged("behind the frame there may be R or T");
    oRecord.cDirection = strDirection.empty() ? '\0' : strDirection[0];
    return eFrame;
}

CCanLogReader::EFound CCanLogReader::ParseAsc(std::string_view strLine, SCanRecord& oRecord)
{
    const std::string_view strFirst = TakeWord(strLine);
    if (strFirst == "base") {
        m_nBase = TakeWord(strLine) == "dec" ? 10 : 16;
        TakeWord(strLine); // "timestamps"
        m_bRelative = TakeWord(strLine) == "relative";
        return eNoFrame;
    }
    const auto nTime = ParseSeconds(strFirst);
    if (!nTime)
        return eNoFrame;
    // A relative time beyond all reason must not overflow.
    m_nLastTime = m_bRelative ? std::min(m_nLastTime, std::int64_t{1} << 62) + *nTime : *nTime;
    oRecord.nTime = m_nLastTime;
    const std::string_view strSecond = TakeWord(strLine);
    const bool bFd = strSecond == "CANFD";
    const auto nChannel = ParseDigits(bFd ? TakeWord(strLine) : strSecond, 10);
    if (!nChannel)
        return eNoFrame; // an event of the recording program
    oRecord.strInterface = fmt::format("can{}", *nChannel - (*nChannel > 0 ? 1 : 0));
    return bFd ? ParseAscFd(strLine, oRecord) : ParseAscClassic(strLine, oRecord);
}

bool CCanLogReader::ParseAscIdentifier(std::string_view strWord, SCanFrame& oFrame)
{
    oFrame.bExtended = strWord.ends_with('x') || strWord.ends_with('X');
    strWord.remove_suffix(oFrame.bExtended ? 1 : 0);
    const auto nIdentifier = ParseDigits(strWord, m_nBase);
    oFrame.nIdentifier = nIdentifier.value_or(0);
    return nIdentifier && *nIdentifier <= (oFrame.bExtended ? 0x1FFFFFFFU : 0x7FFU);
}

bool CCanLogReader::ParseAscData(std::string_view& strRest, std::uint32_t nCount, SCanFrame& oFrame)
{
    for (; nCount > 0; --nCount) {
        const auto nByte = ParseDigits(TakeWord(strRest), m_nBase);
        if (!nByte || *nByte > 0xFF)
            return false;
        oFrame.strData += static_cast<char>(*nByte);
    }
    return true;
}

CCanLogReader::EFound CCanLogReader::ParseAscClassic(std::string_view strRest, SCanRecord& oRecord)
{
    SCanFrame& oFrame = oRecord.oFrame;
    const std::string_view strIdentifier = TakeWord(strRest);
    if (strIdentifier.starts_with("ErrorFrame")) {
        oFrame.bError = true;
        oFrame.nIdentifier = 0x80; // a bus error
        oFrame.strData.assign(8, '\0');
        return eFrame;
    }
    const std::string_view strDirection = TakeWord(strRest);
    if (strDirection != "Rx" && strDirection != "Tx")
        return eNoFrame; // statistics, status
    oRecord.cDirection = strDirection[0];
    const std::string_view strKind = TakeWord(strRest);
    if (!ParseAscIdentifier(strIdentifier, oFrame) || (strKind != "d" && strKind != "r"))
        return Damaged("no identifier, or neither d nor r");
    oFrame.bRemote = strKind == "r";
    const auto nDlc = ParseDigits(TakeWord(strRest), 16);
    if (oFrame.bRemote) {
        // Older files have no length here, and others texts.
        oFrame.nRemoteLength = static_cast<unsigned char>(std::min(nDlc.value_or(0), 8U));
        return eFrame;
    }
    if (!nDlc || *nDlc > 15 || !ParseAscData(strRest, std::min(*nDlc, 8U), oFrame))
        return Damaged("no length, or fewer data than it says");
    oFrame.nRawDlc = static_cast<unsigned char>(*nDlc > 8 ? *nDlc : 0);
    return eFrame;
}

CCanLogReader::EFound CCanLogReader::ParseAscFd(std::string_view strRest, SCanRecord& oRecord)
{
    SCanFrame& oFrame = oRecord.oFrame;
    const std::string_view strDirection = TakeWord(strRest);
    if (strDirection != "Rx" && strDirection != "Tx")
        return eNoFrame;
    oRecord.cDirection = strDirection[0];
    if (!ParseAscIdentifier(TakeWord(strRest), oFrame))
        return Damaged("no identifier");
    // A symbolic name may come before the two flags.
    std::string_view strFlag = TakeWord(strRest);
    if (strFlag != "0" && strFlag != "1")
        strFlag = TakeWord(strRest);
    const std::string_view strIndicator = TakeWord(strRest);
    const auto nDlc = ParseDigits(TakeWord(strRest), 16);
    const auto nLength = ParseDigits(TakeWord(strRest), 10);
    if (!nDlc || *nDlc > 15 || !nLength || *nLength > FD_LENGTHS[*nDlc] ||
        !ParseAscData(strRest, *nLength, oFrame))
        return Damaged("no length, or fewer data than it says");
    TakeWord(strRest); // duration
    TakeWord(strRest); // number of bits
    const std::uint32_t nFlags = ParseDigits(TakeWord(strRest), 16).value_or(0x1000);
    if ((nFlags & 0x1000) != 0) {
        oFrame.eKind = SCanFrame::eFd;
        oFrame.nFdFlags =
            static_cast<unsigned char>((strFlag == "1" ? 1 : 0) + (strIndicator == "1" ? 2 : 0));
        return eFrame;
    }
    // A classic frame in the form of an FD frame.
    oFrame.bRemote = (nFlags & 0x10) != 0;
    if (*nLength > 8 || (oFrame.bRemote && *nLength != 0))
        return Damaged("too many data for a classic frame");
    oFrame.nRemoteLength = static_cast<unsigned char>(oFrame.bRemote ? std::min(*nDlc, 8U) : 0);
    return eFrame;
}
