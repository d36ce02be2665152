// The trace sink: what reaches it, and changing it while others trace.

#include "TestPeer.h"
#include "support/TraceServer.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{

void Send(unsigned char nLevel, const char* pText)
{
    CTraceServer::SendTraceMessage(nLevel, 3, 0xFFFFFFFFU, 77, "source/Some", pText, 9);
}

} // namespace

TEST(TraceTest, ASinkGetsTheLevelsItAskedFor)
{
    EXPECT_FALSE(CTraceServer::IsEnabled(0xFF)); // none at start
    std::string strSeen;
    CTraceServer::SetSink(
        [&](const STraceMessage& o) {
            strSeen += o.pText + std::to_string(o.nLevel) + ',' + std::to_string(o.nKind) + ',' +
                       std::to_string(o.nSession) + ',' + std::to_string(o.nLine) + ',' + o.pFile + ',' +
                       std::to_string(o.nFlag);
        },
        20);
    EXPECT_TRUE(CTraceServer::IsEnabled(4));
    EXPECT_FALSE(CTraceServer::IsEnabled(8));
    Send(8, "not wanted");
    Send(16, "text");
    CTraceServer::SetSink({});
    EXPECT_FALSE(CTraceServer::IsEnabled(0xFF));
    Send(16, "lost");
    EXPECT_EQ(strSeen, "text16,3,4294967295,77,source/Some,9");
}

TEST(TraceTest, ASinkMayTraceThrowAndReplaceItself)
{
    int nOld = 0;
    int nNew = 0;
    auto pAlive = std::make_shared<int>(1);
    CTraceServer::SetSink([&, pAlive](const STraceMessage&) {
        ++nOld;
        Send(1, "from within"); // not delivered: it would never end
        CTraceServer::SetSink([&](const STraceMessage&) {
            ++nNew;
            throw 1;
        });
        EXPECT_EQ(*pAlive, 1); // what the sink captured lives until it returns
    });
    Send(1, "first");
    EXPECT_EQ(pAlive.use_count(), 1);
    Send(1, "second");
    Send(1, "third");
    EXPECT_EQ(nOld, 1);
    EXPECT_EQ(nNew, 2);
    CTraceServer::SetSink({});
}

TEST(TraceTest, AfterSetSinkThePreviousSinkIsOver)
{
    std::atomic<bool> bEnd{false};
    std::vector<std::thread> aoThreads;
    for (int i = 0; i < 3; ++i) {
        aoThreads.emplace_back([&] {
            while (!bEnd)
                Send(4, "x");
        });
    }
    std::atomic<int> nInside{0};
    std::atomic<unsigned int> nCalls{0};
    for (int i = 0; i < 200; ++i) {
        auto pOver = std::make_shared<std::atomic<bool>>(false);
        const unsigned int nBefore = nCalls;
        CTraceServer::SetSink([&, pOver](const STraceMessage&) {
            EXPECT_EQ(++nInside, 1); // one call at a time
            EXPECT_FALSE(*pOver);
            ++nCalls;
            --nInside;
        });
        EXPECT_TRUE(WaitUntil([&] { return nCalls != nBefore; }));
        CTraceServer::SetSink({});
        *pOver = true;
    }
    bEnd = true;
    for (std::thread& oThread : aoThreads)
        oThread.join();
}
