#include "support/TraceServer.h"

#include <memory>
#include <mutex>

std::atomic<unsigned char> CTraceServer::m_nLevelMask{0};

namespace
{

struct SSinkState {
    std::recursive_mutex m_oMutex; // held while the sink runs
    std::shared_ptr<const CTraceServer::FSink> m_pSink;
};

// Never destroyed: receive threads may still trace while the process ends.
SSinkState& SinkState()
{
    static SSinkState* const s_pState = new SSinkState;
    return *s_pState;
}

thread_local bool t_bInSink = false;

} // namespace

void CTraceServer::SendTraceMessage(unsigned char nLevel, unsigned char nKind, unsigned int nSession,
                                    unsigned short nLine, const char* pFile, const char* pText,
                                    unsigned char nFlag)
{
    // What a sink causes itself is dropped: delivered, it would recurse without end.
    if (!IsEnabled(nLevel) || t_bInSink)
        return;
    SSinkState& oState = SinkState();
    std::shared_ptr<const FSink> pSink; // keeps a sink alive that replaces itself
    const std::lock_guard oLock(oState.m_oMutex);
    pSink = oState.m_pSink;
    if (!pSink || !IsEnabled(nLevel))
        return;
    t_bInSink = true;
    try {
        (*pSink)({nLevel, nKind, nSession, nLine, pFile, pText, nFlag});
    } catch (...) { // NOLINT(bugprone-empty-catch): a sink's failure is not the tracer's
    }
    t_bInSink = false;
}

void CTraceServer::SetSink(FSink fnSink, unsigned char nLevelMask)
{
    std::shared_ptr<const FSink> pSink;
    if (fnSink)
        pSink = std::make_shared<const FSink>(std::move(fnSink));
    SSinkState& oState = SinkState();
    {
        const std::lock_guard oLock(oState.m_oMutex);
        m_nLevelMask = pSink ? nLevelMask : 0;
        oState.m_pSink.swap(pSink);
    }
    // The previous sink, with what it captured, is destroyed here, outside the lock.
}
