// Options that take one of a few words.
#ifndef QUORVEL_TOOL_CHOICE_H
#define QUORVEL_TOOL_CHOICE_H

#include "Text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <map>
#include <string>
#include <vector>

/// Turns a word into its number, or tells which words there are. Upper and lower case do not matter.
template<class TValue>
CLI::Validator Choice(const std::map<std::string, TValue>& aoWords)
{
    return CLI::Validator(
        [aoWords](std::string& strWord) -> std::string {
            const auto pFound = aoWords.find(CLI::detail::to_lower(strWord));
            if (pFound != aoWords.end()) {
                strWord = std::to_string(static_cast<unsigned>(pFound->second));
                return {};
            }
            std::vector<std::string> astrWords;
            astrWords.reserve(aoWords.size());
            for (const auto& oWord : aoWords)
                astrWords.push_back(oWord.first);
            return fmt::format("{} is none of {}", Quote(strWord), fmt::join(astrWords, ", "));
        },
        "");
}

/// The words of a switch.
inline const std::map<std::string, unsigned> ON_OFF{{"on", 1}, {"off", 0}};

#endif
