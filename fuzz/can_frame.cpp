// Any bytes as the text of a CAN frame, as a filter, as a log and as an ASC file: what can be read, is written so
// that it is read as the same again.

#include "CanLog.h"
#include "FuzzFile.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace
{

SCanFrame Reread(const SCanFrame& oFrame)
{
    std::string strText;
    std::string strError;
    AppendFrame(strText, oFrame, true);
    const auto oAgain = ParseFrame(strText, strError);
    Require(oAgain.has_value());
    return *oAgain;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pInput, std::size_t nSize)
{
    // In memory of its own, where reading past its end is noticed.
    const std::string strInput(pInput, pInput + nSize);
    std::string strError;
    std::string strText;
    if (const auto oFrame = ParseFrame(strInput, strError)) {
        Require(Reread(*oFrame) == *oFrame);
        Require(oFrame->strData.size() <= 2048 &&
                (oFrame->eKind == SCanFrame::eXl || oFrame->GetLength() <= 64));
        AppendScreen(strText, *oFrame, {true, true, true});
    } else {
        Require(!strError.empty());
    }
    CCanFilter oFilter;
    const bool bFilter = oFilter.Parse(strInput, strError);

    CCanLogReader oLog(strInput);
    CAscWriter oAsc(1);
    CCanTime oTime;
    SCanRecord oRecord;
    while (oLog.Next(oRecord)) {
        Require(oRecord.nTime >= 0 && Reread(oRecord.oFrame) == oRecord.oFrame);
        if (bFilter)
            static_cast<void>(oFilter.Passes(oRecord.oFrame));
        strText.clear();
        AppendLogLine(strText, oRecord, oTime, oRecord.cDirection != 0, true);
        CCanLogReader oAgain(strText);
        SCanRecord oSecond;
        if (oRecord.nTime / 1'000'000'000 <= 0xFFFFFFFF) { // as many seconds as a log file has
            Require(oAgain.Next(oSecond));
            Require(oSecond.oFrame == oRecord.oFrame && oSecond.nTime == oRecord.nTime / 1000 * 1000);
        }
        oAsc.Append(strText, oRecord);
    }
    return 0;
}
