/**
 * @file ZelTools.h
 * @brief Text helpers: hex dump, trimming, numbers.
 */
#ifndef QUORVEL_ZEL_TOOLS_H
#define QUORVEL_ZEL_TOOLS_H

#include "../QuorvelExport.h"

#include <string>

/**
 * Hex dump of a block of bytes: lines with an offset of 4 (above 64 KiB: 8) digits, the bytes in hexadecimal
 * and the printable characters, such as
 * "0000: 05 00 09 03 2A 00 20                             ....*. ". Lines are joined by line feeds; the
 * last one has none.
 *
 * @param pData         the bytes; must not be null unless nLen is 0
 * @param nLen          how many
 * @param nMaxLen       show at most that many; 0xFFFFFFFF shows all
 * @param nBytesPerLine bytes in a line, 1 to 256; anything else (0xFFFFFFFF) means 16
 * @return the text; empty for no bytes
 */
QUORVEL_API std::string ZelMemDump(const char* pData, unsigned int nLen, unsigned int nMaxLen = 0xFFFFFFFFU,
                                   unsigned int nBytesPerLine = 0xFFFFFFFFU);

/**
 * Removes white space and NUL characters at both ends.
 * @param strText the text
 * @return what is left
 */
QUORVEL_API std::string ZelStrTrim(const std::string& strText);

/**
 * A number as text.
 * @param nNumber the number
 * @param nBase   10 or 16 (lower case, without prefix and leading zeros; negative numbers as unsigned)
 * @return the text
 */
QUORVEL_API std::string ZelToString(long long nNumber, unsigned int nBase = 10);

#endif
