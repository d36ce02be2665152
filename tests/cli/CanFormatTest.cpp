// Texts of CAN frames and logs, as the programs that users have write and read them.

#include "CanLog.h"
#include "Text.h"

#include <gtest/gtest.h>

namespace
{

using namespace std::string_literals;

std::string Frame(const SCanFrame& oFrame, bool bRawDlc = true)
{
    std::string strText;
    AppendFrame(strText, oFrame, bRawDlc);
    return strText;
}

std::string Screen(const char* pText, const SScreenForm& oForm)
{
    std::string strError;
    std::string strText;
    AppendScreen(strText, ParseFrame(pText, strError).value(), oForm);
    return strText;
}

TEST(CanFormat, FramesAreReadAndWritten)
{
    const struct {
        const char* pRead;
        const char* pWritten;
        std::size_t nLength;
    } aoFrames[] = {
        {"123#11223344", "123#11223344", 4},
        {"5a1#11.2233.44556677.88", "5A1#1122334455667788", 8},
        {"123#", "123#", 0},
        {"1F334455#00", "1F334455#00", 1},
        {"123#1122334455667788_e", "123#1122334455667788_E", 8},
        {"123#r", "123#R", 0},
        {"00000123#R5", "00000123#R5", 5},
        {"123#R8_9", "123#R8_9", 8},
        {"20000004#0000000000000000", "20000004#0000000000000000", 8},
        {"213##3AABB", "213##7AABB", 2}, // candump sets the bit that marks FD frames, too
        {"12345678##0", "12345678##4", 0},
        {"45123#81:00:12345678#11223344556677", "45123#81:00:12345678#11223344556677", 7},
    };
    for (const auto& oCase : aoFrames) {
        std::string strError;
        const auto oFrame = ParseFrame(oCase.pRead, strError);
        ASSERT_TRUE(oFrame) << oCase.pRead << ": " << strError;
        EXPECT_EQ(Frame(*oFrame), oCase.pWritten);
        EXPECT_EQ(oFrame->GetLength(), oCase.nLength) << oCase.pRead;
    }
    for (const char* pText : {"", "123", "12#", "1234#11", "800#", "20000000#R", "12345678", "123#1",
                              "123#1g", "123#+1", "123#112233445566778899", "123#R9", "123#11_9",
                              "123#1122334455667788_8", "123##", "45123#81:00#11", "123#11 ", "FFFFFFFF#"}) {
        std::string strError;
        EXPECT_FALSE(ParseFrame(pText, strError)) << pText;
        EXPECT_NE(strError, "") << pText;
    }
}

TEST(CanFormat, ScreenIsAsCandumpShowsIt)
{
    EXPECT_EQ(Screen("123#11223344", {}), "123   [4]  11 22 33 44");
    EXPECT_EQ(Screen("123#", {}), "123   [0] ");
    EXPECT_EQ(Screen("123#R5", {}), "123   [5]  remote request");
    EXPECT_EQ(Screen("123#1122334455667788_E", {false, true, false}), "123   {E}  11 22 33 44 55 66 77 88");
    EXPECT_EQ(Screen("123#4142", {true, false, true}), "     123   [2]  41 42                     'AB'");
    EXPECT_EQ(Screen("12345678#1122334455667788", {true, false, true}),
              "12345678   [8]  11 22 33 44 55 66 77 88   '.\"3DUfw.'");
    EXPECT_EQ(Screen("20000004#0000000000000000", {}),
              "20000004   [8]  00 00 00 00 00 00 00 00   ERRORFRAME");
    EXPECT_EQ(Screen("213##3AABBCCDD", {}), "213  [04]  AA BB CC DD");
}

TEST(CanFormat, FiltersAreThoseOfCandump)
{
    const struct {
        const char* pFilter;
        const char* pPass;
        const char* pDropped;
    } aoFilters[] = {
        {"123:7FF", "123#", "124#"},
        {"123:7FF", "00000123#", "12345678#"}, // also 29 bits whose low bits agree
        {"123:C00007FF", "123#", "00000123#"},
        {"123:C00007FF", "123#", "123#R"},
        {"12345678:DFFFFFFF", "12345678#", "678#"},
        {"400~7F0", "123#", "40F#"},
        {"123:7FF,456:7FF", "456#", "20000456#0000000000000000"}, // an error frame
        {"20000123:200007FF", "123#", "457#"},                    // bit 29 is none of an identifier
        {"100:700,123~7FF,j", "124#", "123#"},
        {"100:700,123~7FF,j", "124#", "224#"},
        {"0~0,#FFFFFFFF", "20000004#0000000000000000", "123#"},
        {"#00000008", "123#", "20000004#0000000000000000"},
    };
    for (const auto& oCase : aoFilters) {
        CCanFilter oFilter;
        std::string strError;
        ASSERT_TRUE(oFilter.Parse(oCase.pFilter, strError)) << oCase.pFilter;
        EXPECT_TRUE(oFilter.Passes(ParseFrame(oCase.pPass, strError).value())) << oCase.pFilter;
        EXPECT_FALSE(oFilter.Passes(ParseFrame(oCase.pDropped, strError).value())) << oCase.pFilter;
    }
    for (const char* pText : {"123", "123:", ":7FF", "123:7FF,", "#", "123:7FG", "j,x"}) {
        CCanFilter oFilter;
        std::string strError;
        EXPECT_FALSE(oFilter.Parse(pText, strError)) << pText;
    }
}

TEST(CanFormat, LogsAreRead)
{
    CCanLogReader oLog("# comment\r\n"
                       "(1345212884.318850) can0 123#11223344\r\n"
                       "DROPCOUNT: dropped 3 CAN frames on 'can0' socket (total drops 7)\n"
                       "(1345212884.418850123) vcan1 12345678#R3 T\n"
                       "(1345212884.418850) can0 123#112 R\n"
                       "(1345212884.418850) can0 123#\n");
    SCanRecord oRecord;
    ASSERT_TRUE(oLog.Next(oRecord));
    EXPECT_EQ(oRecord.nTime, 1345212884318850000);
    EXPECT_EQ(Frame(oRecord.oFrame), "123#11223344");
    ASSERT_TRUE(oLog.Next(oRecord));
    EXPECT_EQ(oRecord.nTime, 1345212884418850123);
    EXPECT_EQ(oRecord.strInterface + ' ' + Frame(oRecord.oFrame) + ' ' + oRecord.cDirection,
              "vcan1 12345678#R3 T");
    EXPECT_FALSE(oLog.Next(oRecord));
    EXPECT_EQ(oLog.GetError(), "line 5: data are pairs of hex digits");
    for (const char* pLine :
         {"(1345212884.31885) can0 123#", "(1345212884.318850 can0 123#", "(x.318850) can0 123#",
          "(1345212884.318850) can0", "(1345212884.318850) can0 123# X"}) {
        CCanLogReader oDamaged(pLine);
        EXPECT_FALSE(oDamaged.Next(oRecord));
        EXPECT_NE(oDamaged.GetError(), "") << pLine;
    }
}

TEST(CanFormat, AscIsReadAndWritten)
{
    // As log2asc writes them, the last three lines with its option -f or with decimal numbers.
    const std::string strAsc =
        "date Fri Aug 17 14:14:44 2012\nbase hex  timestamps absolute\nno internal events logged\n"
        "   0.000000 1  123             Rx   d 4 11 22 33 44\n"
        "   0.100000 1  12345678x       Tx   d 8 11 22 33 44 55 66 77 88\n"
        "   0.200000 1  123             Rx   r 5\n"
        "   0.300000 1  ErrorFrame\n"
        "   0.400000 CANFD   1 Rx        213                                   1 1 2  2 AA BB   130000  130  "
        "   "
        "7000 0 0 0 0 0\n";
    CCanLogReader oLog(strAsc);
    std::string strWritten;
    std::string strFrames;
    CAscWriter oAsc(1);
    SCanRecord oRecord;
    while (oLog.Next(oRecord)) {
        strFrames += Frame(oRecord.oFrame) + ' ' + oRecord.strInterface + '\n';
        oRecord.nTime += 1345212884'000000000;
        oAsc.Append(strWritten, oRecord);
    }
    EXPECT_EQ(strWritten, strAsc);
    EXPECT_EQ(strFrames, "123#11223344 can0\n12345678#1122334455667788 can0\n123#R5 can0\n"
                         "20000080#0000000000000000 can0\n213##7AABB can0\n");
    oRecord.nTime = 0; // before the first
    strWritten.clear();
    oAsc.Append(strWritten, oRecord);
    EXPECT_EQ(strWritten.substr(0, 17), "   0.000000 CANFD");

    CCanLogReader oOther("base dec timestamps relative\n"
                         "0.5 2 291 Rx d 2 10 255 Length = 3\n"
                         "0.5 2 Statistic: D 1\n"
                         "0.25 CANFD 0 Tx 291 0 0 5 0 130000 130 10 0 0 0 0 0\n"
                         "0.0 1 291 Rx d 2 10\n");
    ASSERT_TRUE(oOther.Next(oRecord));
    EXPECT_EQ(oRecord.strInterface + ' ' + Frame(oRecord.oFrame), "can1 123#0AFF");
    ASSERT_TRUE(oOther.Next(oRecord));
    EXPECT_EQ(oRecord.nTime, 1250000000);
    EXPECT_EQ(oRecord.strInterface + ' ' + Frame(oRecord.oFrame), "can0 123#R5");
    EXPECT_FALSE(oOther.Next(oRecord));
    EXPECT_EQ(oOther.GetError(), "line 5: no length, or fewer data than it says");
}

TEST(CanFormat, TimesHaveFourForms)
{
    const struct {
        char cMode;
        bool bNanoseconds;
        const char* pText;
    } aoCases[] = {{'a', false, "(0000000009.000001) (0000000010.500001) "},
                   {'a', true, "(0000000009.000001002) (0000000010.500001002) "},
                   {'d', false, "(000.000000) (001.500000) (000.000000) "},
                   {'z', false, "(000.000000) (001.500000) (000.000000) "}};
    for (const auto& oCase : aoCases) {
        CCanTime oTime(oCase.cMode, oCase.bNanoseconds);
        std::string strText;
        oTime.Append(strText, 9000001002);
        oTime.Append(strText, 10500001002);
        if (oCase.cMode != 'a')
            oTime.Append(strText, 8000001002);
        EXPECT_EQ(strText, oCase.pText);
    }
}

// The rest of a character that was cut off is not read.
TEST(Text, HarmlessToTheLastByte)
{
    EXPECT_EQ("..", ToHarmless(std::string_view("\xe2\x82\xac", 2)));
}

} // namespace
