#include "support/TraceServer.h"

#include "support/ZelMonitor.h"

#include <memory>
#include <utility>

std::atomic<unsigned char> CTraceServer::m_nLevelMask{0};

namespace
{

struct SSinkState {
    CZelMonitor m_oMonitor; // guards what follows
    unsigned int m_nDepth = 0;
    std::thread::id m_oOwner;     // the thread in whose hands the sink is
    std::thread::id m_oWaitedFor; // that it waits for
    std::shared_ptr<const CTraceServer::FSink> m_pSink;

    std::unique_lock<std::mutex> Lock()
    {
        return m_oMonitor.Lock([this] {
            m_oWaitedFor = {};
            if (m_oOwner != std::this_thread::get_id()) // a thread of the parent
                m_nDepth = 0;
        });
    }

    // Takes the sink for this thread, which may have it already. False for a thread that the sink itself waits for.
    bool Enter(std::shared_ptr<const CTraceServer::FSink>& pSink)
    {
        const std::thread::id oSelf = std::this_thread::get_id();
        std::unique_lock oLock = Lock();
        m_oMonitor.GetCondition().wait(
            oLock, [&] { return m_nDepth == 0 || m_oOwner == oSelf || m_oWaitedFor == oSelf; });
        if (m_nDepth > 0 && m_oOwner != oSelf)
            return false;
        m_oOwner = oSelf;
        ++m_nDepth;
        pSink = m_pSink;
        return true;
    }

    void Leave()
    {
        const std::unique_lock oLock = Lock();
        if (--m_nDepth == 0)
            m_oMonitor.GetCondition().notify_all();
    }

    std::thread::id WaitFor(std::thread::id oThread)
    {
        const std::unique_lock oLock = Lock();
        m_oMonitor.GetCondition().notify_all();
        return std::exchange(m_oWaitedFor, oThread);
    }
};

// Never destroyed: receive threads may still trace while the process ends.
SSinkState& SinkState()
{
    static SSinkState* const s_pState = new SSinkState;
    return *s_pState;
}

thread_local bool t_bInSink = false;

} // namespace

CTraceServer::CWaitInSink::CWaitInSink(std::thread::id oThread)
{
    if (t_bInSink)
        m_oFormer = SinkState().WaitFor(oThread);
}

CTraceServer::CWaitInSink::~CWaitInSink()
{
    if (t_bInSink)
        SinkState().WaitFor(m_oFormer);
}

void CTraceServer::SendTraceMessage(unsigned char nLevel, unsigned char nKind, unsigned int nSession,
                                    unsigned short nLine, const char* pFile, const char* pText,
                                    unsigned char nFlag)
{
    // What a sink causes itself is dropped: delivered, it would recurse without end.
    if (!IsEnabled(nLevel) || t_bInSink)
        return;
    SSinkState& oState = SinkState();
    std::shared_ptr<const FSink> pSink; // keeps a sink alive that replaces itself
    if (!oState.Enter(pSink))
        return;
    if (pSink && IsEnabled(nLevel)) {
        t_bInSink = true;
        try {
            (*pSink)({nLevel, nKind, nSession, nLine, pFile, pText, nFlag});
        } catch (...) { // NOLINT(bugprone-empty-catch): a sink's failure is not the tracer's
        }
        t_bInSink = false;
    }
    oState.Leave();
}

void CTraceServer::SetSink(FSink fnSink, unsigned char nLevelMask)
{
    std::shared_ptr<const FSink> pSink;
    if (fnSink)
        pSink = std::make_shared<const FSink>(std::move(fnSink));
    SSinkState& oState = SinkState();
    std::shared_ptr<const FSink> pFormer; // destroyed, with what it captured, outside the lock
    const bool bEntered = oState.Enter(pFormer);
    {
        const std::unique_lock oLock = oState.Lock();
        m_nLevelMask = pSink ? nLevelMask : 0;
        oState.m_pSink.swap(pSink);
    }
    if (bEntered)
        oState.Leave();
}
