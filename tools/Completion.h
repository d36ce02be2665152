// Completion scripts for shells, made from the command line.
#ifndef QUORVEL_TOOL_COMPLETION_H
#define QUORVEL_TOOL_COMPLETION_H

#include <CLI/CLI.hpp>

#include <string>

/// The shells that there are completions for.
enum class EShell { eBash, eZsh, eFish };

/// @return the script that makes a shell complete groups, verbs, options, their choices and file names
std::string MakeCompletion(const CLI::App& oProgram, EShell eShell);

#endif
