// How the library's units trace.
#ifndef QUORVEL_TRACE_H
#define QUORVEL_TRACE_H

#include "support/TraceServer.h"

#include <new>
#include <string>
#include <type_traits>

// Making the text stays out of line, so that a trace nobody listens to costs its place next to nothing. When there is no
// memory for it, the trace is left out: what is traced goes on.
template<class TText>
[[gnu::noinline, gnu::cold]] void TraceText(unsigned char nLevel, const char* pUnit, const TText& text,
                                            unsigned int nLine)
{
    try {
        std::string strText;
        if constexpr (std::is_invocable_v<TText>)
            strText = text();
        else
            strText = text;
        CTraceServer::SendTraceMessage(nLevel, 3, 0xFFFFFFFFU, static_cast<unsigned short>(nLine), pUnit,
                                       strText.c_str(), 0);
    } catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch)
    }
}

// Traces a text; text is a string or a function that makes one, called only when somebody listens.
template<class TText>
void Trace(unsigned char nLevel, const char* pUnit, const TText& text, unsigned int nLine = __builtin_LINE())
{
    if (CTraceServer::IsEnabled(nLevel))
        TraceText(nLevel, pUnit, text, nLine);
}

#endif
