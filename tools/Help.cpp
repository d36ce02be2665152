#include "Help.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

namespace
{

constexpr std::size_t WIDTH = 79;
constexpr std::size_t NAME_WIDTH = 28;

// Breaks a text into lines; the first one goes on at a column, the others are indented.
std::string Wrap(const std::string& strText, std::size_t nColumn, std::size_t nIndent)
{
    std::string strWrapped;
    std::istringstream oWords(strText);
    std::string strWord;
    for (bool bFirst = true; oWords >> strWord; bFirst = false) {
        if (!bFirst && nColumn + 1 + strWord.size() > WIDTH) {
            strWrapped += "\n" + std::string(nIndent, ' ');
            nColumn = nIndent;
        } else if (!bFirst) {
            strWrapped += ' ';
            ++nColumn;
        }
        strWrapped += strWord;
        nColumn += strWord.size();
    }
    return strWrapped + "\n";
}

std::string MakeEntry(const std::string& strName, const std::string& strText)
{
    std::string strEntry = "  " + strName;
    if (strEntry.size() + 2 > NAME_WIDTH)
        strEntry += "\n" + std::string(NAME_WIDTH, ' ');
    else
        strEntry.resize(NAME_WIDTH, ' ');
    return strEntry + Wrap(strText, NAME_WIDTH, NAME_WIDTH);
}

std::string MakeVerbs(const CLI::App& oApp)
{
    std::string strGroups;
    std::string strVerbs;
    for (const CLI::App* const pVerb : GetVerbs(oApp)) {
        if (!IsGroup(*pVerb)) {
            strVerbs += MakeEntry(pVerb->get_name(), pVerb->get_description());
            continue;
        }
        strGroups += MakeEntry(pVerb->get_name(), pVerb->get_description());
        std::string strInner;
        for (const CLI::App* const pInner : GetVerbs(*pVerb))
            strInner += (strInner.empty() ? "" : ", ") + pInner->get_name();
        strGroups += std::string(NAME_WIDTH + 2, ' ') + Wrap(strInner, NAME_WIDTH + 2, NAME_WIDTH + 2);
    }
    return (strGroups.empty() ? "" : "\nGroups, and their verbs:\n" + strGroups) +
           (strVerbs.empty() ? "" : "\nVerbs:\n" + strVerbs);
}

std::string MakeFooter(const CLI::App& oApp)
{
    std::string strText;
    const SFooter oFooter = GetFooter(oApp);
    for (const std::string& strParagraph : oFooter.astrParagraphs) {
        std::istringstream oLines(strParagraph);
        strText += "\n";
        for (std::string strLine; std::getline(oLines, strLine);)
            strText += strLine.starts_with(' ') ? strLine + "\n" : Wrap(strLine, 0, 0);
    }
    if (!oFooter.astrExamples.empty())
        strText += oFooter.astrExamples.size() == 1 ? "\nExample:\n" : "\nExamples:\n";
    for (const std::string& strExample : oFooter.astrExamples)
        strText += "  " + strExample + "\n";
    return strText;
}

void CollectOptions(const CLI::App& oApp, bool bPositional, std::vector<const CLI::Option*>& apOptions)
{
    for (const CLI::Option* const pOption : oApp.get_options()) {
        if (!pOption->get_group().empty() && pOption->get_positional() == bPositional)
            apOptions.push_back(pOption);
    }
    // What has no name only groups options.
    for (const CLI::App* const pInner :
         oApp.get_subcommands([](const CLI::App* pApp) { return pApp->get_name().empty(); }))
        CollectOptions(*pInner, bPositional, apOptions);
}

} // namespace

std::vector<const CLI::App*> GetVerbs(const CLI::App& oApp)
{
    return oApp.get_subcommands(
        [](const CLI::App* pApp) { return !pApp->get_name().empty() && !pApp->get_group().empty(); });
}

bool IsGroup(const CLI::App& oApp)
{
    return !GetVerbs(oApp).empty();
}

std::vector<const CLI::Option*> GetOptions(const CLI::App& oApp)
{
    std::vector<const CLI::Option*> apOptions;
    CollectOptions(oApp, false, apOptions);
    std::stable_partition(apOptions.begin(), apOptions.end(),
                          [&](const CLI::Option* pOption) { return pOption != oApp.get_help_ptr(); });
    return apOptions;
}

std::vector<const CLI::Option*> GetArguments(const CLI::App& oApp)
{
    std::vector<const CLI::Option*> apOptions;
    CollectOptions(oApp, true, apOptions);
    return apOptions;
}

std::vector<std::string> GetNames(const CLI::Option& oOption)
{
    std::vector<std::string> astrNames;
    for (const std::string& strName : oOption.get_snames())
        astrNames.push_back("-" + strName);
    for (const std::string& strName : oOption.get_lnames())
        astrNames.push_back("--" + strName);
    return astrNames;
}

SOptionValue GetValue(const CLI::Option& oOption)
{
    SOptionValue oValue;
    const bool bFlag = oOption.get_items_expected_max() == 0;
    oValue.strName = oOption.get_type_name();
    oValue.bOptional = oOption.get_items_expected_min() == 0;
    if (oValue.strName.starts_with('[') && oValue.strName.ends_with(']'))
        oValue.strName = oValue.strName.substr(1, oValue.strName.size() - 2);
    if (oValue.strName.empty() && !bFlag)
        oValue.strName = "VALUE";
    if (oValue.strName == "UINT" || oValue.strName == "INT")
        oValue.strName = "N";
    oValue.bFile = (oValue.strName + oOption.get_name(true)).find("FILE") != std::string::npos;
    if (oValue.strName.find('|') != std::string::npos) {
        std::istringstream oWords(oValue.strName);
        for (std::string strWord; std::getline(oWords, strWord, '|');) {
            if (strWord.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-_+.") == std::string::npos)
                oValue.astrChoices.push_back(strWord);
        }
    }
    return oValue;
}

std::string GetOptionText(const CLI::Option& oOption)
{
    const SOptionValue oValue = GetValue(oOption);
    std::string strText = fmt::format("{}", fmt::join(GetNames(oOption), ", "));
    if (oValue.strName.empty())
        return strText;
    if (oValue.bOptional)
        return strText + "[=" + oValue.strName + "]";
    const bool bMany = oOption.get_expected_max() >= CLI::detail::expected_max_vector_size &&
                       oOption.get_allow_extra_args() && !oValue.strName.ends_with("...");
    return strText + " " + oValue.strName + (bMany ? "..." : "");
}

std::string GetMeaning(const CLI::Option& oOption)
{
    std::string strText = oOption.get_description();
    if (oOption.get_positional()) {
        const SOptionValue oValue = GetValue(oOption);
        if (!oValue.astrChoices.empty())
            strText += fmt::format(" ({})", fmt::join(oValue.astrChoices, ", "));
    } else if (oOption.get_required()) {
        strText += " (needed)";
    }
    if (!oOption.get_default_str().empty())
        strText += " (default: " + oOption.get_default_str() + ")";
    return strText;
}

std::string GetPath(const CLI::App& oApp)
{
    return oApp.get_parent() == nullptr ? oApp.get_name()
                                        : GetPath(*oApp.get_parent()) + " " + oApp.get_name();
}

std::string GetUsage(const CLI::App& oApp)
{
    std::string strUsage = GetPath(oApp);
    strUsage.insert(std::min(strUsage.find(' '), strUsage.size()), " [OPTIONS]");
    for (const CLI::Option* const pArgument : GetArguments(oApp)) {
        std::string strName = pArgument->get_name(true);
        if (pArgument->get_expected_max() > 1)
            strName += "...";
        strUsage += pArgument->get_required() ? " " + strName : " [" + strName + "]";
    }
    if (!IsGroup(oApp))
        return strUsage;
    return strUsage + (oApp.get_parent() == nullptr ? " [GROUP] VERB ..." : " VERB ...");
}

SFooter GetFooter(const CLI::App& oApp)
{
    SFooter oFooter;
    std::istringstream oLines(oApp.get_footer());
    bool bNew = true;
    for (std::string strLine; std::getline(oLines, strLine);) {
        if (strLine.starts_with("quorvel ")) {
            oFooter.astrExamples.push_back(strLine);
            bNew = true;
        } else if (strLine.empty()) {
            bNew = true;
        } else {
            if (std::exchange(bNew, false))
                oFooter.astrParagraphs.push_back(strLine);
            else
                oFooter.astrParagraphs.back() += "\n" + strLine;
        }
    }
    return oFooter;
}

std::string CHelp::make_help(const CLI::App* pApp, std::string /*strName*/,
                             CLI::AppFormatMode /*eMode*/) const
{
    const bool bProgram = pApp->get_parent() == nullptr;
    std::string strHelp = Wrap(pApp->get_description(), 0, 0) + "\nUsage: " + GetUsage(*pApp) + "\n";
    const auto apArguments = GetArguments(*pApp);
    if (!apArguments.empty())
        strHelp += "\nArguments:\n";
    for (const CLI::Option* const pArgument : apArguments)
        strHelp += MakeEntry(pArgument->get_name(true), GetMeaning(*pArgument));
    strHelp += MakeVerbs(*pApp) + "\nOptions:\n";
    for (const CLI::Option* const pOption : GetOptions(*pApp))
        strHelp += MakeEntry(GetOptionText(*pOption), GetMeaning(*pOption));
    strHelp += MakeFooter(*pApp);
    if (!bProgram)
        return strHelp + "\nThe options of the program hold here, too: see quorvel --help.\n";
    strHelp +=
        "\n" +
        Wrap("These options hold everywhere, in front of a verb and behind it. Each group and each verb "
             "has a help of its own.",
             0, 0) +
        "\nExit status:\n";
    for (const SStatusText& oStatus : STATUS_TEXTS)
        strHelp += fmt::format("  {:<7}{}\n", oStatus.pStatus, oStatus.pText);
    return strHelp;
}
