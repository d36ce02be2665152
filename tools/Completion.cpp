#include "Completion.h"

#include "Help.h"

#include <fmt/format.h>

#include <functional>

namespace
{

// Calls fnApp for the program and all that is in it, with the words that lead there: "", " spi", " spi flash", ...
void ForEachApp(const CLI::App& oApp, const std::string& strPath,
                const std::function<void(const CLI::App&, const std::string&)>& fnApp)
{
    fnApp(oApp, strPath);
    for (const CLI::App* const pVerb : GetVerbs(oApp))
        ForEachApp(*pVerb, strPath + " " + pVerb->get_name(), fnApp);
}

std::string QuoteFor(EShell eShell, const std::string& strText)
{
    std::string strQuoted = "'";
    for (const char cChar : strText) {
        if (cChar == '\'')
            strQuoted += eShell == EShell::eFish ? "\\'" : "'\\''";
        else if (cChar == '\\' && eShell == EShell::eFish)
            strQuoted += "\\\\";
        else
            strQuoted += cChar;
    }
    return strQuoted + "'";
}

std::string JoinChoices(const SOptionValue& oValue)
{
    return fmt::format("{}", fmt::join(oValue.astrChoices, " "));
}

// Patterns of a case for an option behind the words that lead to it; the program's options hold everywhere.
std::string MakePatterns(const CLI::Option& oOption, const std::string& strPath, const char* pSeparator)
{
    std::string strPatterns;
    for (const std::string& strName : GetNames(oOption))
        strPatterns +=
            (strPatterns.empty() ? "" : pSeparator) +
            (!strPath.empty()     ? fmt::format("'{} {}'", strPath, strName)
             : *pSeparator == '|' ? fmt::format("*' {}'", strName)
                                  : fmt::format("'* {}'", strName)); // fish expands what is not quoted
    return strPatterns;
}

// What bash and zsh have in common: the cases of words that lead on, and of options with values.
struct SCases {
    std::string strLeading;
    std::string strTaking;   // the next word is the value
    std::string strOptional; // the value is behind '='
    std::string strValues;   // sets values and files
};

SCases MakeCases(const CLI::App& oProgram, const char* pSeparator)
{
    SCases oCases;
    const auto fnAdd = [&](std::string& strList, const std::string& strPattern) {
        strList += (strList.empty() ? "" : pSeparator) + strPattern;
    };
    std::string strProgram; // last, since its patterns match everywhere
    ForEachApp(oProgram, "", [&](const CLI::App& oApp, const std::string& strPath) {
        if (!strPath.empty())
            fnAdd(oCases.strLeading, "'" + strPath + "'");
        for (const CLI::Option* const pOption : GetOptions(oApp)) {
            const SOptionValue oValue = GetValue(*pOption);
            if (oValue.strName.empty())
                continue;
            const std::string strPatterns = MakePatterns(*pOption, strPath, pSeparator);
            fnAdd(oValue.bOptional ? oCases.strOptional : oCases.strTaking, strPatterns);
            if (!oValue.bFile && oValue.astrChoices.empty())
                continue;
            (strPath.empty() ? strProgram : oCases.strValues) +=
                fmt::format("            {}) values='{}' files={} ;;\n", strPatterns, JoinChoices(oValue),
                            oValue.bFile ? "1" : "");
        }
    });
    oCases.strValues += strProgram;
    return oCases;
}

// Cases of what can be typed at each place: words, options, and whether files.
std::string MakePlaces(const CLI::App& oProgram, bool bDescribe)
{
    std::string strPlaces;
    ForEachApp(oProgram, "", [&](const CLI::App& oApp, const std::string& strPath) {
        const auto fnItem = [&](const std::string& strName, const std::string& strText) {
            if (!bDescribe)
                return (strName + " ");
            std::string strItem; // a colon separates
            for (const char cChar : strText)
                strItem += cChar == ':' ? std::string("\\:") : std::string(1, cChar);
            return QuoteFor(EShell::eZsh, strName + ":" + strItem) + " ";
        };
        std::string strWords;
        std::string strOptions;
        bool bFiles = false;
        for (const CLI::App* const pVerb : GetVerbs(oApp))
            strWords += fnItem(pVerb->get_name(), pVerb->get_description());
        for (const CLI::Option* const pArgument : GetArguments(oApp)) {
            const SOptionValue oValue = GetValue(*pArgument);
            bFiles = bFiles || oValue.bFile;
            for (const std::string& strChoice : oValue.astrChoices)
                strWords += fnItem(strChoice, pArgument->get_description());
        }
        for (const CLI::Option* const pOption : GetOptions(oApp)) {
            for (const std::string& strName : GetNames(*pOption)) {
                if (pOption != oApp.get_help_ptr() || strPath.empty())
                    strOptions += fnItem(strName, pOption->get_description());
            }
        }
        const char* const pOpen = bDescribe ? "(" : "'";
        const char* const pClose = bDescribe ? ")" : "'";
        if (strPath.empty()) // set before: they hold everywhere
            strPlaces += fmt::format("    flags={1}{0}{2}\n    case \"$at\" in\n", strOptions, pOpen, pClose);
        strPlaces += fmt::format("        '{}') list={}{}{} files={}", strPath, pOpen, strWords, pClose,
                                 bFiles ? "1" : "");
        if (!strPath.empty() && !strOptions.empty())
            strPlaces += fmt::format(" flags+={}{}{}", pOpen, strOptions, pClose);
        strPlaces += " ;;\n";
    });
    return strPlaces + "    esac\n";
}

std::string MakeBash(const CLI::App& oProgram)
{
    const SCases oCases = MakeCases(oProgram, "|");
    return "# bash completion for quorvel, made by: quorvel completion bash\n"
           "_quorvel()\n"
           "{\n"
           "    local cur=${COMP_WORDS[COMP_CWORD]} at='' option='' list='' flags='' values='' files='' word "
           "i\n"
           "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "        word=${COMP_WORDS[i]}\n"
           "        case \"$at $word\" in\n"
           "            " +
           oCases.strLeading +
           ")\n"
           "                at+=\" $word\" ;;\n"
           "            " +
           oCases.strTaking +
           ")\n"
           "                [[ ${COMP_WORDS[i + 1]} == = ]] && ((++i)) # a word of its own in COMP_WORDS\n"
           "                ((++i >= COMP_CWORD)) && option=$word ;;\n"
           "            " +
           oCases.strOptional +
           ")\n"
           "                [[ ${COMP_WORDS[i + 1]} == = ]] && ((i += 2, i >= COMP_CWORD)) && option=$word "
           ";;\n"
           "        esac\n"
           "    done\n"
           "    [[ $cur == = ]] && cur=''\n" +
           MakePlaces(oProgram, false) +
           "    if [[ -n $option ]]; then\n"
           "        files=''\n"
           "        case \"$at $option\" in\n" +
           oCases.strValues +
           "        esac\n"
           "        list=$values\n"
           "    elif [[ $cur == -* ]]; then\n"
           "        list=$flags files=''\n"
           "    fi\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$list\" -- \"$cur\")\n"
           "    if [[ -n $files ]]; then\n"
           "        compopt -o filenames 2>/dev/null\n"
           "        mapfile -O ${#COMPREPLY[@]} -t COMPREPLY < <(compgen -f -- \"$cur\")\n"
           "    fi\n"
           "}\n"
           "complete -F _quorvel quorvel\n";
}

std::string MakeZsh(const CLI::App& oProgram)
{
    const SCases oCases = MakeCases(oProgram, "|");
    return "#compdef quorvel\n"
           "# zsh completion for quorvel, made by: quorvel completion zsh\n"
           "_quorvel()\n"
           "{\n"
           "    local at='' option='' values='' files='' word i typed=(\"${words[@]}\")\n"
           "    local -a list flags\n"
           "    for ((i = 2; i < CURRENT; i++)); do\n"
           "        word=${typed[i]}\n"
           "        case \"$at $word\" in\n"
           "            " +
           oCases.strLeading +
           ")\n"
           "                at+=\" $word\" ;;\n"
           "            " +
           oCases.strTaking +
           ")\n"
           "                ((++i >= CURRENT)) && option=$word ;;\n"
           "        esac\n"
           "    done\n"
           "    if [[ -z $option && $PREFIX == --*=* ]]; then\n"
           "        option=${PREFIX%%=*}\n"
           "        compset -P '*='\n"
           "    fi\n" +
           MakePlaces(oProgram, true) +
           "    if [[ -n $option ]]; then\n"
           "        files=''\n"
           "        case \"$at $option\" in\n" +
           oCases.strValues +
           "        esac\n"
           "        [[ -n $values ]] && compadd -- ${=values}\n"
           "    elif [[ $PREFIX == -* ]]; then\n"
           "        _describe -o option flags\n"
           "        return\n"
           "    elif ((${#list})); then\n"
           "        _describe word list\n"
           "    fi\n"
           "    [[ -n $files ]] && _files\n"
           "}\n"
           "if [[ ${funcstack[1]} == _quorvel ]]; then\n"
           "    _quorvel \"$@\"\n"
           "else\n"
           "    compdef _quorvel quorvel\n"
           "fi\n";
}

std::string MakeFish(const CLI::App& oProgram)
{
    const SCases oCases = MakeCases(oProgram, " ");
    std::string strScript = "# fish completion for quorvel, made by: quorvel completion fish\n"
                            "function __quorvel_at\n"
                            "    set -l at ''\n"
                            "    set -l skip no\n"
                            "    set -l typed (commandline -opc)\n"
                            "    set -e typed[1]\n"
                            "    for word in $typed\n"
                            "        if test $skip = yes\n"
                            "            set skip no\n"
                            "            continue\n"
                            "        end\n"
                            "        switch \"$at $word\"\n"
                            "            case " +
                            oCases.strLeading +
                            "\n"
                            "                set at \"$at $word\"\n"
                            "            case " +
                            oCases.strTaking +
                            "\n"
                            "                set skip yes\n"
                            "        end\n"
                            "    end\n"
                            "    test \"$at\" = \"$argv[1]\"\n"
                            "end\n"
                            "complete -c quorvel -f\n";
    ForEachApp(oProgram, "", [&](const CLI::App& oApp, const std::string& strPath) {
        const std::string strAt = "complete -c quorvel -n \"__quorvel_at '" + strPath + "'\"";
        const auto fnWord = [&](const std::string& strWord, const std::string& strText) {
            strScript += fmt::format("{} -a {} -d {}\n", strAt, strWord, QuoteFor(EShell::eFish, strText));
        };
        for (const CLI::App* const pVerb : GetVerbs(oApp))
            fnWord(pVerb->get_name(), pVerb->get_description());
        for (const CLI::Option* const pArgument : GetArguments(oApp)) {
            const SOptionValue oValue = GetValue(*pArgument);
            for (const std::string& strChoice : oValue.astrChoices)
                fnWord(strChoice, pArgument->get_description());
            if (oValue.bFile)
                strScript += strAt + " -F\n";
        }
        for (const CLI::Option* const pOption : GetOptions(oApp)) {
            if (pOption == oApp.get_help_ptr() && !strPath.empty())
                continue;
            const SOptionValue oValue = GetValue(*pOption);
            strScript += strPath.empty() ? "complete -c quorvel" : strAt;
            for (const std::string& strName : pOption->get_snames())
                strScript += " -s " + strName;
            for (const std::string& strName : pOption->get_lnames())
                strScript += " -l " + strName;
            if (!oValue.strName.empty() && !oValue.bOptional)
                strScript += oValue.bFile ? " -r" : " -x"; // -x: no files
            if (oValue.bFile)
                strScript += " -F";
            if (!oValue.astrChoices.empty())
                strScript += " -a '" + JoinChoices(oValue) + "'";
            strScript += " -d " + QuoteFor(EShell::eFish, pOption->get_description()) + "\n";
        }
    });
    return strScript;
}

} // namespace

std::string MakeCompletion(const CLI::App& oProgram, EShell eShell)
{
    switch (eShell) {
    case EShell::eBash:
        return MakeBash(oProgram);
    case EShell::eZsh:
        return MakeZsh(oProgram);
    case EShell::eFish:
        break;
    }
    return MakeFish(oProgram);
}
