// Telegrams as text.
#ifndef QUORVEL_TOOL_WIRE_TRACE_H
#define QUORVEL_TOOL_WIRE_TRACE_H

#include "QuorvelErrorMsg.h"
#include "QuorvelMsg.h"

#include <chrono>
#include <string>

/**
 * A telegram as text: a line with time, direction, command, id, result and length, then a dump of the data.
 * @param oTime  when it was sent or received
 * @param bSent  true when it goes to the gateway
 * @param eKind  the gateway's kind
 * @param oMsg   the telegram
 */
std::string FormatTelegram(std::chrono::system_clock::time_point oTime, bool bSent, EQuorvelDevice eKind,
                           const CQuorvelMsg& oMsg);

#endif
