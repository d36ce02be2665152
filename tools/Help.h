// What the command line says of itself: the help, and what manual pages and completions are made from.
#ifndef QUORVEL_TOOL_HELP_H
#define QUORVEL_TOOL_HELP_H

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

/// An exit status as text.
struct SStatusText {
    const char* pStatus;
    const char* pText;
};

/// The exit statuses, for help and manual.
constexpr SStatusText STATUS_TEXTS[] = {
    {"0", "done"},
    {"1", "the gateway refused the operation"},
    {"2", "wrong arguments"},
    {"3", "a comparison or verification found a difference"},
    {"4", "no connection, no answer in time, or a spoiled one"},
    {"5", "a file or an image cannot be read or written"},
    {"128+n", "ended by signal n"},
    {"141", "done, but nobody has read all of the output"},
};

/// What follows the one-line text of a verb or group.
struct SFooter {
    std::vector<std::string> astrParagraphs; ///< a line that begins with a blank is to stay as it is
    std::vector<std::string> astrExamples;   ///< command lines
};

/// The value of an option.
struct SOptionValue {
    std::string strName;                  ///< such as HOST; empty: there is none
    bool bOptional = false;               ///< then it follows '='
    bool bFile = false;                   ///< it names a file
    std::vector<std::string> astrChoices; ///< the words it can be, if only some
};

/// @return the groups and verbs within a group or the program
std::vector<const CLI::App*> GetVerbs(const CLI::App& oApp);

/// @return true for a group, false for a verb
bool IsGroup(const CLI::App& oApp);

/// @return the options, that for help last
std::vector<const CLI::Option*> GetOptions(const CLI::App& oApp);

/// @return the arguments without a name of their own
std::vector<const CLI::Option*> GetArguments(const CLI::App& oApp);

/// @return the option's names with their dashes, short ones first
std::vector<std::string> GetNames(const CLI::Option& oOption);

/// @return what is known of an option's or argument's value
SOptionValue GetValue(const CLI::Option& oOption);

/// @return an option as it is written, such as "-g, --gateway HOST"
std::string GetOptionText(const CLI::Option& oOption);

/// @return what an option or argument is for, with default or choices
std::string GetMeaning(const CLI::Option& oOption);

/// @return the words that lead to a group or verb, such as "quorvel spi"
std::string GetPath(const CLI::App& oApp);

/// @return the usage line, such as "quorvel [OPTIONS] spi transfer BYTES..."
std::string GetUsage(const CLI::App& oApp);

/// @return the footer in parts: paragraphs are separated by blank lines, examples begin with "quorvel "
SFooter GetFooter(const CLI::App& oApp);

/// Formats the help.
class CHelp : public CLI::FormatterBase
{
  public:
    /// @return the text that --help prints
    std::string make_help(const CLI::App* pApp, std::string strName, CLI::AppFormatMode eMode) const override;
};

#endif
