#include "CanFrame.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>

namespace
{

constexpr std::uint32_t EXTENDED = 0x80000000;
constexpr std::uint32_t REMOTE = 0x40000000;
constexpr std::uint32_t ERROR = 0x20000000;
constexpr std::uint32_t MAX_EXTENDED = 0x1FFFFFFF;
constexpr std::uint32_t MAX_STANDARD = 0x7FF;
constexpr std::size_t MAX_CLASSIC = 8;
constexpr unsigned char FDF = 0x04; // candump marks FD frames by it

// Hex digits only: from_chars alone would take a sign.
std::optional<std::uint32_t> ParseHexNumber(std::string_view strDigits)
{
    std::uint32_t nValue = 0;
    const char* const pEnd = strDigits.data() + strDigits.size();
    const auto [pStop, eError] = std::from_chars(strDigits.data(), pEnd, nValue, 16);
    if (eError != std::errc() || pStop != pEnd)
        return std::nullopt;
    return nValue;
}

// Reads the text of one frame from its beginning to its end.
class CFrameParser
{
  public:
    CFrameParser(std::string_view strText, std::string& strError) : m_strRest(strText), m_strError(strError)
    {
    }

    std::optional<SCanFrame> Parse()
    {
        if (!ParseIdentifier())
            return std::nullopt;
        if (m_oFrame.eKind != SCanFrame::eXl && Skip("Rr")) {
            if (!ParseRemote())
                return std::nullopt;
        } else if (!ParseHeader() || !ParseData() ||
                   (m_oFrame.eKind == SCanFrame::eClassic && !ParseRawDlc())) {
            return std::nullopt;
        }
        if (!m_strRest.empty())
            return Fail(fmt::format("at most {} bytes of data",
                                    m_oFrame.eKind == SCanFrame::eClassic ? MAX_CLASSIC : m_nMaximum));
        return m_oFrame;
    }

  private:
    std::nullopt_t Fail(std::string strError)
    {
        m_strError = std::move(strError);
        return std::nullopt;
    }

    bool Skip(std::string_view strAny)
    {
        if (m_strRest.empty() || strAny.find(m_strRest[0]) == std::string_view::npos)
            return false;
        m_strRest.remove_prefix(1);
        return true;
    }

    std::optional<std::uint32_t> Digits(std::size_t nCount)
    {
        if (m_strRest.size() < nCount)
            return std::nullopt;
        const auto nValue = ParseHexNumber(m_strRest.substr(0, nCount));
        if (nValue)
            m_strRest.remove_prefix(nCount);
        return nValue;
    }

    bool ParseIdentifier()
    {
        const std::size_t nDigits = m_strRest.find('#');
        const auto nValue = nDigits == 3 || nDigits == 5 || nDigits == 8 ? Digits(nDigits) : std::nullopt;
        if (!nValue) {
            Fail("3 hex digits (11 bits) or 8 (29 bits), then #");
            return false;
        }
        Skip("#");
        m_oFrame.nIdentifier = *nValue;
        if (nDigits == 5) {
            m_oFrame.eKind = SCanFrame::eXl;
            m_oFrame.nVcid = static_cast<unsigned char>(*nValue >> 12);
            m_oFrame.nIdentifier &= 0xFFF;
        } else if (nDigits == 8) {
            m_oFrame.bError = (*nValue & ERROR) != 0;
            m_oFrame.bExtended = !m_oFrame.bError;
            m_oFrame.nIdentifier &= ~ERROR;
        }
        if (m_oFrame.nIdentifier <= (nDigits == 8 ? MAX_EXTENDED : MAX_STANDARD))
            return true;
        Fail(nDigits == 8 ? "an identifier of 29 bits is at most 1FFFFFFF"
                          : "an identifier of 11 bits is at most 7FF");
        return false;
    }

    bool ParseRemote()
    {
        m_oFrame.bRemote = true;
        if (m_oFrame.bError) {
            Fail("an error frame cannot be a remote frame");
            return false;
        }
        if (m_strRest.empty())
            return true;
        const auto nLength = Digits(1);
        if (!nLength || *nLength > MAX_CLASSIC) {
            Fail("behind R a length of 0 to 8");
            return false;
        }
        m_oFrame.nRemoteLength = static_cast<unsigned char>(*nLength);
        return ParseRawDlc();
    }

    // What is between # and the data of FD and XL frames.
    bool ParseHeader()
    {
        if (m_oFrame.eKind == SCanFrame::eXl) {
            m_nMaximum = 2048;
            const auto nFlags = Digits(2);
            const auto nSdt = nFlags && Skip(":") ? Digits(2) : std::nullopt;
            const auto nAcceptance = nSdt && Skip(":") ? Digits(8) : std::nullopt;
            if (!nAcceptance || !Skip("#")) {
                Fail("an XL frame is VVPPP#FF:SS:AAAAAAAA#DATA");
                return false;
            }
            m_oFrame.nXlFlags = static_cast<unsigned char>(*nFlags);
            m_oFrame.nSdt = static_cast<unsigned char>(*nSdt);
            m_oFrame.nAcceptance = *nAcceptance;
        } else if (Skip("#")) {
            m_nMaximum = 64;
            m_oFrame.eKind = SCanFrame::eFd;
            const auto nFlags = Digits(1);
            if (!nFlags || m_oFrame.bError) {
                Fail("behind ## one digit of flags");
                return false;
            }
            m_oFrame.nFdFlags = *nFlags & 3;
        }
        return true;
    }

    bool ParseData()
    {
        while (m_oFrame.strData.size() < m_nMaximum) {
            Skip(".");
            if (m_strRest.empty() || m_strRest[0] == '_')
                break;
            const auto nByte = Digits(2);
            if (!nByte) {
                Fail("data are pairs of hex digits");
                return false;
            }
            m_oFrame.strData += static_cast<char>(*nByte);
        }
        return true;
    }

    bool ParseRawDlc()
    {
        if (!Skip("_"))
            return true;
        const auto nDlc = m_oFrame.GetLength() == MAX_CLASSIC ? Digits(1) : std::nullopt;
        if (!nDlc || *nDlc <= MAX_CLASSIC) {
            Fail("behind a length of 8 and _ comes 9 to F");
            return false;
        }
        m_oFrame.nRawDlc = static_cast<unsigned char>(*nDlc);
        return true;
    }

    std::string_view m_strRest;
    std::string& m_strError;
    SCanFrame m_oFrame;
    std::size_t m_nMaximum = MAX_CLASSIC;
};

void AppendHex(std::string& strText, std::string_view strBytes, bool bBlanks)
{
    constexpr const char* DIGITS = "0123456789ABCDEF";
    for (const char cByte : strBytes) {
        if (bBlanks)
            strText += ' ';
        strText += DIGITS[static_cast<unsigned char>(cByte) >> 4];
        strText += DIGITS[static_cast<unsigned char>(cByte) & 0x0F];
    }
}

void AppendIdentifier(std::string& strText, const SCanFrame& oFrame)
{
    if (oFrame.eKind == SCanFrame::eXl)
        fmt::format_to(std::back_inserter(strText), "{:02X}", oFrame.nVcid);
    fmt::format_to(std::back_inserter(strText), "{:0{}X}", oFrame.nIdentifier | (oFrame.bError ? ERROR : 0),
                   oFrame.bExtended || oFrame.bError ? 8 : 3);
}

} // namespace

std::optional<SCanFrame> ParseFrame(std::string_view strText, std::string& strError)
{
    return CFrameParser(strText, strError).Parse();
}

void AppendFrame(std::string& strText, const SCanFrame& oFrame, bool bRawDlc)
{
    AppendIdentifier(strText, oFrame);
    strText += '#';
    if (oFrame.bRemote) {
        strText += 'R';
        if (oFrame.nRemoteLength != 0)
            strText += static_cast<char>('0' + oFrame.nRemoteLength);
    } else if (oFrame.eKind == SCanFrame::eFd) {
        fmt::format_to(std::back_inserter(strText), "#{:X}", oFrame.nFdFlags | FDF);
    } else if (oFrame.eKind == SCanFrame::eXl) {
        fmt::format_to(std::back_inserter(strText), "{:02X}:{:02X}:{:08X}#", oFrame.nXlFlags, oFrame.nSdt,
                       oFrame.nAcceptance);
    }
    AppendHex(strText, oFrame.strData, false);
    if (bRawDlc && oFrame.nRawDlc != 0)
        fmt::format_to(std::back_inserter(strText), "_{:X}", oFrame.nRawDlc);
}

void AppendScreen(std::string& strText, const SCanFrame& oFrame, const SScreenForm& oForm)
{
    const bool bLong = oFrame.bExtended || oFrame.bError;
    if (!bLong && oForm.bIndent)
        strText += "     ";
    AppendIdentifier(strText, oFrame);
    const std::size_t nLength = oFrame.GetLength();
    if (oFrame.eKind == SCanFrame::eFd) {
        fmt::format_to(std::back_inserter(strText), "  [{:02}] ", nLength);
    } else if (oForm.bRawDlc) {
        fmt::format_to(std::back_inserter(strText), "   {{{:X}}} ",
                       oFrame.nRawDlc != 0 ? oFrame.nRawDlc : nLength);
    } else {
        fmt::format_to(std::back_inserter(strText), "   [{}] ", nLength);
    }
    if (oFrame.bRemote) {
        strText += " remote request";
        return;
    }
    AppendHex(strText, oFrame.strData, true);
    if (nLength > MAX_CLASSIC || !(oFrame.bError || oForm.bAscii))
        return;
    strText.append(3 * (MAX_CLASSIC - nLength) + 3, ' ');
    if (oFrame.bError) {
        strText += "ERRORFRAME";
        return;
    }
    strText += '\'';
    for (const char cByte : oFrame.strData)
        strText += cByte >= ' ' && cByte <= '~' ? cByte : '.';
    strText += '\'';
}

std::optional<CCanFilter::SPair> CCanFilter::ParsePair(std::string_view strText)
{
    const std::size_t nDigits = strText.find_first_of(":~");
    if (nDigits == std::string_view::npos)
        return std::nullopt;
    const auto nIdentifier = ParseHexNumber(strText.substr(0, nDigits));
    const auto nMask = ParseHexNumber(strText.substr(nDigits + 1));
    if (!nIdentifier || !nMask)
        return std::nullopt;
    // Eight digits are an identifier of 29 bits; error frames have a filter of their own.
    return SPair{*nIdentifier | (nDigits == 8 ? EXTENDED : 0), *nMask & ~ERROR, strText[nDigits] == '~'};
}

bool CCanFilter::Parse(std::string_view strText, std::string& strError)
{
    while (true) {
        const std::string_view strPart = strText.substr(0, strText.find(','));
        if (strPart == "j" || strPart == "J") {
            m_bJoin = true;
        } else if (strPart.starts_with('#')) {
            const auto nMask = ParseHexNumber(strPart.substr(1));
            if (!nMask) {
                strError = strPart;
                return false;
            }
            m_nErrorMask = *nMask;
        } else if (const auto oPair = ParsePair(strPart)) {
            m_aoPairs.push_back(*oPair);
        } else {
            strError = strPart;
            return false;
        }
        if (strPart.size() == strText.size())
            return true;
        strText.remove_prefix(strPart.size() + 1);
    }
}

bool CCanFilter::Passes(const SCanFrame& oFrame) const
{
    if (oFrame.bError)
        return (oFrame.nIdentifier & m_nErrorMask) != 0;
    const std::uint32_t nIdentifier =
        oFrame.nIdentifier | (oFrame.bExtended ? EXTENDED : 0) | (oFrame.bRemote ? REMOTE : 0);
    const auto fnMatches = [nIdentifier](const SPair& oPair) {
        return ((nIdentifier & oPair.nMask) == (oPair.nIdentifier & oPair.nMask)) != oPair.bInverted;
    };
    if (m_aoPairs.empty())
        return true;
    return m_bJoin ? std::ranges::all_of(m_aoPairs, fnMatches) : std::ranges::any_of(m_aoPairs, fnMatches);
}
