#include "Manual.h"

#include "Help.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace
{

// Groups so small that they are told with the program.
bool IsOfProgram(const CLI::App& oApp)
{
    return !IsGroup(oApp) || oApp.get_name() == "digital" || oApp.get_name() == "analog";
}

std::string Escape(const std::string& strText)
{
    std::string strEscaped = strText.starts_with('.') ? "\\&" : "";
    for (const char cChar : strText) {
        switch (cChar) {
        case '\\':
            strEscaped += "\\e";
            break;
        case '-':
            strEscaped += "\\-";
            break;
        case '\'':
            strEscaped += "\\(aq";
            break;
        case '"':
            strEscaped += "\\(dq";
            break;
        case '`':
            strEscaped += "\\(ga";
            break;
        case '^':
            strEscaped += "\\(ha";
            break;
        case '~':
            strEscaped += "\\(ti";
            break;
        default:
            strEscaped += cChar;
        }
    }
    return strEscaped;
}

// What is to be typed is bold, what is to be replaced italic.
std::string Mark(const std::string& strUsage)
{
    std::string strMarked;
    for (std::size_t i = 0; i < strUsage.size();) {
        const auto fnIsWord = [](unsigned char cChar) { return std::isalnum(cChar) != 0 || cChar == '-'; };
        std::size_t nEnd = i;
        while (nEnd < strUsage.size() && fnIsWord(static_cast<unsigned char>(strUsage[nEnd])))
            ++nEnd;
        const std::string strWord = strUsage.substr(i, nEnd - i);
        if (strWord.empty()) {
            strMarked += Escape(strUsage.substr(i++, 1));
            continue;
        }
        const bool bTyped = strWord[0] == '-' || std::islower(static_cast<unsigned char>(strWord[0])) != 0;
        strMarked += fmt::format("\\f{}{}\\fR", bTyped ? 'B' : 'I', Escape(strWord));
        i = nEnd;
    }
    return strMarked;
}

std::string MakeEntry(const std::string& strName, const std::string& strText)
{
    return ".TP\n" + strName + "\n" + Escape(strText) + "\n";
}

std::string MakeOptions(const CLI::App& oApp)
{
    std::string strText;
    for (const CLI::Option* const pArgument : GetArguments(oApp))
        strText += MakeEntry(Mark(pArgument->get_name(true)), GetMeaning(*pArgument));
    for (const CLI::Option* const pOption : GetOptions(oApp)) {
        if (pOption != oApp.get_help_ptr() || oApp.get_parent() == nullptr)
            strText += MakeEntry(Mark(GetOptionText(*pOption)), GetMeaning(*pOption));
    }
    return strText;
}

std::string MakeFooter(const CLI::App& oApp)
{
    std::string strText;
    const SFooter oFooter = GetFooter(oApp);
    for (const std::string& strParagraph : oFooter.astrParagraphs) {
        std::istringstream oLines(strParagraph);
        strText += ".PP\n";
        bool bFirst = true;
        for (std::string strLine; std::getline(oLines, strLine); bFirst = false) {
            if (strLine.starts_with(' '))
                strText += ".nf\n" + Escape(strLine) + "\n.fi\n";
            else
                strText += (bFirst ? "" : ".br\n") + Escape(strLine) + "\n";
        }
    }
    if (oFooter.astrExamples.empty())
        return strText;
    strText += fmt::format(".PP\nExample{}:\n.PP\n.RS 4\n.nf\n", oFooter.astrExamples.size() == 1 ? "" : "s");
    for (const std::string& strExample : oFooter.astrExamples)
        strText += "\\fB" + Escape(strExample) + "\\fR\n";
    return strText + ".fi\n.RE\n";
}

std::string MakeSentence(const CLI::App& oApp)
{
    return Escape(oApp.get_description()) + (oApp.get_description().ends_with('.') ? "\n" : ".\n");
}

// A verb, or a group and all that is in it.
std::string MakeVerb(const CLI::App& oApp, const CLI::App& oPage)
{
    const std::string strTitle = GetPath(oApp).substr(GetPath(oPage).size() + 1);
    std::string strText = fmt::format(".SS \"{}\"\n", Escape(strTitle));
    if (!IsGroup(oApp))
        strText += Mark(GetUsage(oApp)) + "\n.PP\n";
    strText += MakeSentence(oApp) + MakeOptions(oApp) + MakeFooter(oApp);
    for (const CLI::App* const pVerb : GetVerbs(oApp))
        strText += MakeVerb(*pVerb, oPage);
    return strText;
}

std::string GetPageName(const CLI::App& oApp)
{
    std::string strName = GetPath(oApp);
    std::replace(strName.begin(), strName.end(), ' ', '-');
    return strName;
}

std::string MakePage(const CLI::App& oApp)
{
    const CLI::App& oProgram = oApp.get_parent() == nullptr ? oApp : *oApp.get_parent();
    std::string strTitle = GetPageName(oApp);
    std::transform(strTitle.begin(), strTitle.end(), strTitle.begin(),
                   [](unsigned char cChar) { return static_cast<char>(std::toupper(cChar)); });
    std::string strName = oApp.get_description();
    while (strName.ends_with('.'))
        strName.pop_back();

    std::string strVerbs;
    std::string strGroups;
    std::string strSeeAlso = &oApp == &oProgram ? "" : ".BR quorvel (1),\n";
    for (const CLI::App* const pVerb : GetVerbs(oApp)) {
        if (&oApp != &oProgram || IsOfProgram(*pVerb))
            strVerbs += MakeVerb(*pVerb, oApp);
    }
    for (const CLI::App* const pGroup : GetVerbs(oProgram)) {
        if (IsOfProgram(*pGroup))
            continue;
        const std::string strPage = Escape(GetPageName(*pGroup));
        if (&oApp == &oProgram)
            strGroups += fmt::format(".TP\n\\fB{}\\fR\n{}; see\n.BR {} (1).\n", Escape(pGroup->get_name()),
                                     Escape(pGroup->get_description()), strPage);
        if (pGroup != &oApp)
            strSeeAlso += fmt::format(".BR {} (1),\n", strPage);
    }

    std::string strPage = fmt::format(".\\\" Made from the command line of quorvel.\n"
                                      ".TH \"{}\" 1 \"\" \"{}\" \"User Commands\"\n.nh\n.ad l\n"
                                      ".SH NAME\n{} \\- {}\n.SH SYNOPSIS\n{}\n.SH DESCRIPTION\n{}",
                                      Escape(strTitle), Escape(oProgram.version()), Escape(GetPageName(oApp)),
                                      Escape(strName), Mark(GetUsage(oApp)), MakeSentence(oApp));
    strPage += MakeFooter(oApp);
    if (&oApp == &oProgram)
        strPage += ".SH OPTIONS\nThe options hold everywhere, in front of a verb and behind it.\n" +
                   MakeOptions(oApp) + ".SH GROUPS\n" + strGroups;
    else
        strPage += ".PP\nThe options of\n.BR quorvel (1)\nhold here, too.\n" + MakeOptions(oApp);
    strPage += ".SH VERBS\n" + strVerbs + ".SH EXIT STATUS\n";
    for (const SStatusText& oStatus : STATUS_TEXTS)
        strPage += MakeEntry(fmt::format("\\fB{}\\fR", oStatus.pStatus), oStatus.pText);
    return strPage + ".SH SEE ALSO\n" + strSeeAlso + ".BR quorvel\\-sim (1)\n";
}

} // namespace

std::map<std::string, std::string> MakeManuals(const CLI::App& oProgram)
{
    std::map<std::string, std::string> astrPages{{GetPageName(oProgram) + ".1", MakePage(oProgram)}};
    for (const CLI::App* const pGroup : GetVerbs(oProgram)) {
        if (!IsOfProgram(*pGroup))
            astrPages[GetPageName(*pGroup) + ".1"] = MakePage(*pGroup);
    }
    return astrPages;
}
