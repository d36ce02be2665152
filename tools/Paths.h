// Which file a path means.
#ifndef QUORVEL_TOOL_PATHS_H
#define QUORVEL_TOOL_PATHS_H

#include <string>

/// @return the path behind the symbolic links that a path may be, also when there is nothing at their end
std::string FollowLinks(const std::string& strPath);

/**
 * Tells whether two paths mean one file, there or still to be created. Terminals and pipes are no files here: several
 * may write to them.
 */
bool IsSameFile(const std::string& strLeft, const std::string& strRight);

#endif
