// Mutex, event, time, thread, file and text helpers.

#include "TestPeer.h"
#include "support/ZelEvent.h"
#include "support/ZelMutex.h"
#include "support/ZelThread.h"
#include "support/ZelTime.h"
#include "support/ZelTools.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

TEST(SupportTest, MutexIsRecursiveAndGivesUpOnTime)
{
    CZelMutex oMutex;
    ASSERT_TRUE(oMutex.Lock(0));
    ASSERT_TRUE(oMutex.Lock(0)); // the same thread again
    const auto fnElsewhere = [&](unsigned int nTimeout) {
        bool bLocked = false;
        std::thread([&] {
            bLocked = oMutex.Lock(nTimeout);
            oMutex.Unlock(); // without effect when not held
        }).join();
        return bLocked;
    };
    const long long nTime = Milliseconds([&] { EXPECT_FALSE(fnElsewhere(100)); });
    EXPECT_GE(nTime, 100);
    EXPECT_LT(nTime, 400);
    oMutex.Unlock();
    EXPECT_FALSE(fnElsewhere(0)); // held once still
    oMutex.Unlock();
    EXPECT_TRUE(fnElsewhere(0));
}

TEST(SupportTest, EventStaysSignalledAndLosesNoWakeUp)
{
    CZelEvent oEvent;
    const long long nTime = Milliseconds([&] { EXPECT_FALSE(oEvent.Wait(100)); });
    EXPECT_GE(nTime, 100);
    EXPECT_LT(nTime, 400);
    const unsigned int nCount = oEvent.GetSignalCount();
    std::thread oWaiter([&] { EXPECT_TRUE(oEvent.Wait(0xFFFFFFFFU)); });
    oEvent.Signal();
    oWaiter.join();
    EXPECT_TRUE(oEvent.Wait(0));
    oEvent.Reset();
    EXPECT_FALSE(oEvent.Wait(0));
    EXPECT_TRUE(oEvent.WaitBeyond(nCount, 0)); // signalled since, whatever was reset
    EXPECT_FALSE(oEvent.WaitBeyond(oEvent.GetSignalCount(), 10));
}

TEST(SupportTest, TimesAndDifferences)
{
    EXPECT_EQ(CZelTimeDiff(1, 2, 3, 4, 5, 6, 7999).GetTotalMicroSeconds(), 93784005013LL);
    EXPECT_EQ(CZelTimeDiff(0, 0, 0, 0, -1500, 0, 0).GetTotalMilliSeconds(), -1500);

    CZelUTCTime oTime(1000, 250);
    oTime.SubTime(0, 0, 0, 10, 0, 0, 0); // the fourth part is seconds
    EXPECT_EQ(oTime.GetSeconds(), 990);
    oTime += CZelTimeDiff(0, 0, 0, 0, 2000, 0, 0);
    oTime.AddTime(0, 0, 1, 0, 0, 750, 0);
    EXPECT_EQ((oTime - CZelUTCTime(0, 0)).GetTotalMicroSeconds(), 1052001000);
    oTime -= CZelTimeDiff(0, 0, 0, 0, 2001, 0, 0);
    EXPECT_EQ((oTime - CZelUTCTime(0, 0)).GetTotalMicroSeconds(), 1050000000);
    EXPECT_TRUE(CZelUTCTime(1, 999999) < CZelUTCTime(2, 0));
    EXPECT_EQ(CZelUTCTime(0, -1).GetSeconds(), -1);
    EXPECT_EQ(CZelUTCTime(0, -1).GetMicroSeconds(), 999999);

    EXPECT_EQ(CZelLocalTime("29.02.2024").GetSeconds(), 1709164800);
    for (const char* pText : {"30.02.2024", "1970", "", "01.01.2024x", static_cast<const char*>(nullptr)})
        EXPECT_EQ(CZelLocalTime(pText).GetSeconds(), 0);
    setenv("TZ", "XYZ-03:30", 1);
    tzset();
    const CZelTimeDiff oOffset = CZelLocalTime::CurrentLocalTime() - CZelUTCTime::CurrentUTCTime();
    EXPECT_GT(oOffset.GetTotalMilliSeconds(), 12600000 - 1000);
    EXPECT_LE(oOffset.GetTotalMilliSeconds(), 12600000);

    EXPECT_EQ(CZelDeadline(0xFFFFFFFFU).GetRemaining(), 0xFFFFFFFFU);
    EXPECT_GT(CZelDeadline(4294968).GetRemaining(), 4200000U); // in microseconds beyond 32 bits
    EXPECT_TRUE(CZelDeadline(0).IsOver());
}

TEST(SupportTest, TextHelpers)
{
    EXPECT_EQ(ZelMemDump("", 0), "");
    EXPECT_EQ(ZelMemDump("ABCDEFGHIJKLMNOPQ\xFFz", 19, 18),
              "0000: 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50  ABCDEFGHIJKLMNOP\n"
              "0010: 51 FF                                            Q.");
    EXPECT_EQ(ZelMemDump("abc", 3, 0xFFFFFFFFU, 2), "0000: 61 62  ab\n0002: 63     c");
    const std::string strLong(0x10001, 'x');
    EXPECT_EQ(ZelMemDump(strLong.data(), 257, 257, 256).substr(775), // a line of 256 bytes
              std::string(256, 'x').append("\n0100: 78 ").append(766, ' ').append("x"));
    EXPECT_EQ(ZelMemDump(strLong.data(), 17, 17, 257).substr(71),
              std::string("\n0010: 78 ").append(46, ' ').append("x"));
    EXPECT_EQ(ZelMemDump(strLong.data(), 0x10001).substr(0, 12), "00000000: 78");
    EXPECT_EQ(ZelMemDump(strLong.data(), 0x10000).substr(0, 8), "0000: 78");

    EXPECT_EQ(ZelStrTrim(std::string(" \t a b\r\n\0", 9)), "a b");
    EXPECT_EQ(ZelStrTrim(std::string("\0 ", 2)), "");
    EXPECT_EQ(ZelToString(-12), "-12");
    EXPECT_EQ(ZelToString(0, 16), "0");
}

TEST(SupportTest, ThreadEndsWhenAsked)
{
    struct CWorker : CZelThread {
        ~CWorker() override
        {
            Terminate();
            WaitForEnd();
        }
        bool Initialize() override { return m_bMayStart; }
        void Run() override
        {
            while (!IsTerminating()) {
                ++m_nRounds;
                Sleep(3600, 0); // cut short by Terminate
            }
        }
        bool m_bMayStart = false;
        std::atomic<int> m_nRounds{0};
    };
    CWorker oWorker;
    oWorker.WaitForEnd(); // never created
    EXPECT_FALSE(oWorker.Create());
    oWorker.m_bMayStart = true;
    EXPECT_TRUE(oWorker.Create());
    EXPECT_FALSE(oWorker.Create());
    EXPECT_TRUE(WaitUntil([&] { return oWorker.m_nRounds == 1; }));
    oWorker.Terminate();
    oWorker.WaitForEnd();
    EXPECT_EQ(oWorker.m_nRounds, 1);
}
