// Files that grow while the program runs: logs and traces.
#ifndef QUORVEL_TOOL_LOG_FILE_H
#define QUORVEL_TOOL_LOG_FILE_H

#include "Tool.h"

#include <cstdio>
#include <string>

/// What becomes of a file that is there already. Devices and pipes are written in any case.
enum class ELog {
    eNew,      ///< it is refused
    eNumbered, ///< it is left alone: a number is added to the name until there is no such file
    eAppend,   ///< it goes on, behind a whole line
    eAnew      ///< it is emptied
};

/**
 * Opens a log. A file that another log writes is refused.
 * @param oTool   reports
 * @param strPath its path, "-" for standard output; receives the one that was chosen
 * @return the stream; null after a failure, which was reported
 */
std::FILE* OpenLog(const CTool& oTool, std::string& strPath, ELog eLog);

#endif
