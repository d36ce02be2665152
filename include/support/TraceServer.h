/**
 * @file TraceServer.h
 * @brief The trace sink: every request, every telegram and every failure passes here.
 */
#ifndef QUORVEL_TRACE_SERVER_H
#define QUORVEL_TRACE_SERVER_H

#include "../QuorvelExport.h"

#include <atomic>
#include <functional>
#include <thread>

/** One trace message, as a sink receives it. The pointers are valid during the call only. */
struct STraceMessage {
    unsigned char nLevel;  ///< bit value: 1 and 2 failures, 4 and 8 requests, 16 telegram traffic
    unsigned char nKind;   ///< kind of message; the library sends 3
    unsigned int nSession; ///< session; the library sends 0xFFFFFFFF
    unsigned short nLine;  ///< source line that traces
    const char*
        pFile; ///< unit that traces, without file ending, for example "source/QuorvelClient"; the library
               ///< never sends null
    const char* pText;   ///< the text, zero-terminated; the library never sends null
    unsigned char nFlag; ///< the library sends 0
};

/**
 * Process-wide switchboard between the library, which traces, and the application, which may listen.
 *
 * There is no sink at start, and as long as there is none (or none for a level) no text is ever built:
 * a trace then costs one load of a flag.
 *
 * All functions may be called from any thread at any time, also from within a sink.
 */
class QUORVEL_API CTraceServer
{
  public:
    /** What an application registers to listen. */
    using FSink = std::function<void(const STraceMessage&)>;

    /**
     * Hands one message to the sink, if there is one for its level.
     *
     * Messages that a sink itself causes on its own thread are not delivered.
     *
     * @param nLevel   bit value, see STraceMessage
     * @param nKind    kind of message
     * @param nSession session
     * @param nLine    source line
     * @param pFile    unit that traces; handed on as it is
     * @param pText    zero-terminated text; handed on as it is
     * @param nFlag    flag
     */
    static void SendTraceMessage(unsigned char nLevel, unsigned char nKind, unsigned int nSession,
                                 unsigned short nLine, const char* pFile, const char* pText,
                                 unsigned char nFlag);

    /**
     * Installs the sink; an empty function switches tracing off.
     *
     * The sink is called on the thread that traces, one call at a time. When SetSink returns, the previous
     * sink is not running and is never called again (called from within the sink: not after that call ends).
     * An exception that leaves a sink is swallowed. A sink must not run commands of a client: the receive
     * thread would wait for the sink, and the command for the receive thread, until its time-out.
     *
     * @param fnSink     the new sink, copied
     * @param nLevelMask the levels it wants, as a sum of bit values
     */
    static void SetSink(FSink fnSink, unsigned char nLevelMask = 0xFF);

    /**
     * Tells whether a message of this level would reach a sink; ask before building a costly text.
     * @param nLevel bit value
     * @return true when somebody listens
     */
    static bool IsEnabled(unsigned char nLevel)
    {
        return (m_nLevelMask.load(std::memory_order_relaxed) & nLevel) != 0;
    }

    /**
     * While a sink waits for another thread to end, as a close of another device does, that thread's traces are not
     * delivered: it would wait for the sink.
     */
    class QUORVEL_API CWaitInSink
    {
      public:
        /**
         * Does nothing when called on a thread that is not in a sink.
         * @param oThread the thread that is waited for while this object lives
         */
        explicit CWaitInSink(std::thread::id oThread);
        ~CWaitInSink();
        CWaitInSink(const CWaitInSink&) = delete;
        CWaitInSink& operator=(const CWaitInSink&) = delete;

      private:
        std::thread::id m_oFormer;
    };

  private:
    static std::atomic<unsigned char> m_nLevelMask;
};

#endif
