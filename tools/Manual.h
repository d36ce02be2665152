// Manual pages, made from the command line.
#ifndef QUORVEL_TOOL_MANUAL_H
#define QUORVEL_TOOL_MANUAL_H

#include <CLI/CLI.hpp>

#include <map>
#include <string>

/**
 * Makes the manual pages, in the format of man(7).
 * @param oProgram the command line
 * @return texts by file name: one for the program, one for each of its groups
 */
std::map<std::string, std::string> MakeManuals(const CLI::App& oProgram);

#endif
