#include "FaultPlan.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <system_error>
#include <utility>

namespace
{

enum class EValue { eNone, eOptional, eNeeded };

struct SStepKind {
    const char* pName;
    EValue eValue;
    unsigned nMin;
    unsigned nMax;
    unsigned nDefault;
    void (*pApply)(SAnswerFaults& oFaults, unsigned nValue);
    const char* pHelp;
};

constexpr unsigned nNoLimit = std::numeric_limits<unsigned>::max();
constexpr unsigned nOwnChoice = 0x10000;

constexpr std::array<SStepKind, 19> aoKinds = {{
    {"refuse", EValue::eNeeded, 0, 0xFF, 0,
     [](SAnswerFaults& o, unsigned n) { o.oResult = static_cast<unsigned char>(n); },
     "refuse=N        result byte N; the data stays"},
    {"truncate", EValue::eNeeded, 0, 0xFFFF, 0, [](SAnswerFaults& o, unsigned n) { o.oTruncate = n; },
     "truncate=N      only the first N data bytes (result byte included)"},
    {"extend", EValue::eNeeded, 1, 0xFFFF, 0, [](SAnswerFaults& o, unsigned n) { o.nExtend = n; },
     "extend=N        N further data bytes 0x55"},
    {"badid", EValue::eOptional, 0, 0xFFFF, nOwnChoice, [](SAnswerFaults& o, unsigned n) { o.oID = n; },
     "badid[=N]       telegram id N (default: the right one + 1)"},
    {"badcode", EValue::eOptional, 0, 0xFFFF, nOwnChoice, [](SAnswerFaults& o, unsigned n) { o.oCode = n; },
     "badcode[=N]     command code N (default: lowest bit flipped)"},
    {"badcrc", EValue::eNone, 0, 0, 0, [](SAnswerFaults& o, unsigned) { o.bBadCheck = true; },
     "badcrc          inverted check byte"},
    {"longlength", EValue::eOptional, 1, 0xFFFF, 4,
     [](SAnswerFaults& o, unsigned n) { o.nLengthShift = static_cast<int>(n); },
     "longlength[=N]  length field N too large (default 4)"},
    {"shortlength", EValue::eOptional, 1, 0xFFFF, 1,
     [](SAnswerFaults& o, unsigned n) { o.nLengthShift = -static_cast<int>(n); },
     "shortlength[=N] length field N too small (default 1)"},
    {"delay", EValue::eNeeded, 0, 3600000, 0, [](SAnswerFaults& o, unsigned n) { o.nDelayMs = n; },
     "delay=MS        comes MS milliseconds later"},
    {"silent", EValue::eNone, 0, 0, 0, [](SAnswerFaults& o, unsigned) { o.bSilent = true; },
     "silent          from here on nothing is sent"},
    {"flood", EValue::eNeeded, 1, 100000, 0, [](SAnswerFaults& o, unsigned n) { o.nFlood = n; },
     "flood=N         N indications come before it"},
    {"drop", EValue::eNone, 0, 0, 0, [](SAnswerFaults& o, unsigned) { o.bDrop = true; },
     "drop            is not sent"},
    {"close", EValue::eNone, 0, 0, 0, [](SAnswerFaults& o, unsigned) { o.bClose = true; },
     "close           the connection is closed instead"},
    {"halfclose", EValue::eNone, 0, 0, 0, [](SAnswerFaults& o, unsigned) { o.bHalfClose = true; },
     "halfclose       instead, the sending direction ends; requests are still taken"},
    {"restart", EValue::eNone, 0, 0, 0, [](SAnswerFaults& o, unsigned) { o.bRestart = true; },
     "restart         the gateway restarts instead"},
    {"reset", EValue::eNone, 0, 0, 0, [](SAnswerFaults& o, unsigned) { o.bReset = true; },
     "reset           half of it is sent, then the connection is reset"},
    {"duplicate", EValue::eNone, 0, 0, 0, [](SAnswerFaults& o, unsigned) { o.bDuplicate = true; },
     "duplicate       is sent twice"},
    {"glue", EValue::eNeeded, 2, 1000, 0, [](SAnswerFaults& o, unsigned n) { o.nGlue = n; },
     "glue=N          is held until N answers go out in one segment"},
    {"split", EValue::eOptional, 1, 0xFFFF, 1, [](SAnswerFaults& o, unsigned n) { o.nSplit = n; },
     "split[=N]       goes out in segments of N bytes (default 1)"},
}};

const char* const pBlanks = " \t\r\n";

std::string Trim(const std::string& strText)
{
    const auto nFirst = strText.find_first_not_of(pBlanks);
    if (nFirst == std::string::npos)
        return {};
    return strText.substr(nFirst, strText.find_last_not_of(pBlanks) - nFirst + 1);
}

bool ToNumber(const std::string& strText, unsigned& nValue)
{
    const bool bHex = strText.starts_with("0x") || strText.starts_with("0X");
    const char* pFirst = strText.data() + (bHex ? 2 : 0);
    const char* pLast = strText.data() + strText.size();
    const auto oResult = std::from_chars(pFirst, pLast, nValue, bHex ? 16 : 10);
    return oResult.ec == std::errc() && oResult.ptr == pLast;
}

/// Reads "n", "n-m" or "n-".
bool ToRange(const std::string& strText, unsigned& nFirst, unsigned& nLast)
{
    const auto nDash = strText.find('-');
    if (!ToNumber(Trim(strText.substr(0, nDash)), nFirst) || nFirst == 0)
        return false;
    if (nDash == std::string::npos) {
        nLast = nFirst;
        return true;
    }
    const std::string strLast = Trim(strText.substr(nDash + 1));
    if (strLast.empty()) {
        nLast = nNoLimit;
        return true;
    }
    return ToNumber(strLast, nLast) && nLast >= nFirst;
}

} // namespace

bool CFaultPlan::ParseStep(const std::string& strStep, SStep& oStep, std::string& strError)
{
    oStep.nLast = nNoLimit;
    const auto nAt = strStep.find('@');
    if (nAt != std::string::npos && !ToRange(Trim(strStep.substr(nAt + 1)), oStep.nFirst, oStep.nLast)) {
        strError = "behind '@' comes an answer number from 1, as in @2, @2-4 or @2-";
        return false;
    }
    const std::string strHead = strStep.substr(0, nAt);
    const auto nEquals = strHead.find('=');
    const std::string strName = Trim(strHead.substr(0, nEquals));
    for (oStep.nKind = 0; oStep.nKind < aoKinds.size(); oStep.nKind++) {
        const SStepKind& oKind = aoKinds[oStep.nKind];
        if (strName != oKind.pName)
            continue;
        if (nEquals == std::string::npos) {
            oStep.nValue = oKind.nDefault;
            strError = "needs a value";
            return oKind.eValue != EValue::eNeeded;
        }
        strError = "takes no value";
        if (oKind.eValue == EValue::eNone)
            return false;
        strError = "needs a value from " + std::to_string(oKind.nMin) + " to " + std::to_string(oKind.nMax);
        return ToNumber(Trim(strHead.substr(nEquals + 1)), oStep.nValue) && oStep.nValue >= oKind.nMin &&
               oStep.nValue <= oKind.nMax;
    }
    strError = "is not a known fault";
    return false;
}

bool CFaultPlan::Parse(const std::string& strText, CFaultPlan& oPlan, std::string& strError)
{
    CFaultPlan oNew;
    for (std::size_t nPos = 0; nPos <= strText.size();) {
        const auto nEnd = std::min(strText.find(';', nPos), strText.size());
        const std::string strStep = Trim(strText.substr(nPos, nEnd - nPos));
        nPos = nEnd + 1;
        if (strStep.empty())
            continue;
        SStep oStep;
        std::string strProblem;
        if (!ParseStep(strStep, oStep, strProblem)) {
            strError.assign("fault plan step '").append(strStep).append("': ").append(strProblem);
            return false;
        }
        oNew.m_aoSteps.push_back(oStep);
    }
    oPlan = std::move(oNew);
    return true;
}

std::string CFaultPlan::Grammar()
{
    std::string strText;
    for (const auto& oKind : aoKinds)
        strText.append("  ").append(oKind.pHelp).append("\n");
    return strText;
}

SAnswerFaults CFaultPlan::At(unsigned nAnswer) const
{
    SAnswerFaults oFaults;
    for (const auto& oStep : m_aoSteps) {
        if (nAnswer >= oStep.nFirst && nAnswer <= oStep.nLast)
            aoKinds[oStep.nKind].pApply(oFaults, oStep.nValue);
    }
    return oFaults;
}
