// Files that hold the content of a target's memories.
#ifndef QUORVEL_TOOL_MEMORY_FILE_H
#define QUORVEL_TOOL_MEMORY_FILE_H

#include "Image.h"
#include "Tool.h"

#include <string>

/**
 * Loads a file.
 * @param oTool      reports
 * @param strFile    its path, "-" for standard input, or the bytes with the format m
 * @param cFormat    one of MEMORY_FORMATS; a: as its name tells, or else its start
 * @param nSize      bytes of the memories that it is for
 * @param oImage     receives the content
 * @param bAddressed receives false when the format has no addresses: then the content begins at 0
 * @return 0, or the exit status of a failure, which was reported
 */
int LoadMemoryFile(const CTool& oTool, const std::string& strFile, char cFormat, std::uint64_t nSize,
                   CImage& oImage, bool& bAddressed);

/// @return the letter of the format that the ending of a file's name stands for, or else cOther
char GetFormatLetter(const std::string& strFile, char cOther);

/**
 * Writes a file, whole or not at all.
 * @param oTool   reports
 * @param strFile its path, or "-" for standard output
 * @param cFormat d h o b numbers, one line for each range; i or I Intel HEX; s S-records; r raw
 * @param oImage  what to write; addresses of 32 bits
 * @return 0, or the exit status of a failure, which was reported
 */
int SaveMemoryFile(CTool& oTool, const std::string& strFile, char cFormat, const CImage& oImage);

#endif
