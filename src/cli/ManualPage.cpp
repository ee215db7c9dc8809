// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ManualPage.h"

#include "cli/Command.h"
#include "cli/Version.h"

namespace ledgerfinch::cli {
namespace {

/// Text as roff takes it: backslashes and dashes escaped, no line that begins as a request.
std::string roff(std::string_view text) {
    std::string result;
    bool lineStart = true;
    for (const char character : text) {
        if (lineStart && (character == '.' || character == '\'')) result += "\\&";
        if (character == '\\')
            result += "\\e";
        else if (character == '-')
            result += "\\-";
        else
            result.push_back(character);
        lineStart = character == '\n';
    }
    return result;
}

std::string paragraphs(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const auto end = text.find("\n\n");
        result += (result.empty() ? "" : ".PP\n") + roff(text.substr(0, end)) + "\n";
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 2);
    }
    return result;
}

std::string optionEntry(const OptionDescription& option) {
    std::string forms = "\\fB";
    if (option.letter) forms += "\\-" + std::string(1, option.letter) + "\\fR, \\fB";
    forms += "\\-\\-" + roff(option.name) + "\\fR";
    if (!option.argument.empty()) forms += " \\fI" + roff(option.argument) + "\\fR";
    return ".TP\n" + forms + "\n" + roff(option.help) + "\n";
}

std::string commandSection(const Command& command) {
    std::string page = ".SS \"" + roff(usageLine(command)) + "\"\n" + paragraphs(command.description());
    for (const auto& positional : command.positionals())
        page += ".TP\n\\fI" + roff(positional.name) + "\\fR\n" + roff(positional.help) + "\n";
    for (const auto& option : command.options())
        page += optionEntry(option);
    page += ".PP\nEnds with";
    const auto codes = command.exitCodes();
    for (std::size_t index = 0; index < codes.size(); ++index)
        page += (index == 0 ? " " : index + 1 < codes.size() ? ", " : " or ") + std::to_string(toInt(codes[index]));
    return page + "; see EXIT STATUS.\n";
}

std::string exitStatus() {
    std::string page = ".SH EXIT STATUS\n";
    for (const auto& [code, meaning] : kExitCodes)
        page += ".TP\n\\fB" + std::to_string(toInt(code)) + "\\fR\n" + roff(meaning) + "\n";
    return page;
}

constexpr std::string_view kAround =
    ".SH ENVIRONMENT\n"
    ".TP\n\\fBNO_COLOR\\fR\nSet to any text: no colours.\n"
    ".TP\n\\fBTERM\\fR\nUnset, empty or dumb: neither colours nor a line of progress.\n"
    ".TP\n\\fBCOLUMNS\\fR\nThe width that tables are fitted into, on a terminal.\n"
    ".TP\n\\fBXDG_DATA_HOME\\fR, \\fBXDG_CONFIG_HOME\\fR, \\fBXDG_STATE_HOME\\fR\n"
    "Where the local stores and files, the settings, and logs and locks lie, each in a folder \\(lqledgerfinch\\(rq.\n"
    ".SH SECURITY\n"
    "Passwords and tokens are never taken from the command line, where every user of the machine could read them.\n"
    "Tokens are kept in the desktop's secret store; where there is none, in a file that only its owner can read.\n"
    "Control characters in texts that come from the server are written out, never sent to the terminal.\n"
    ".SH EXAMPLES\n"
    ".nf\n"
    "ledgerfinch\\-cli login https://papers.example.org \\-\\-user ada\n"
    "ledgerfinch\\-cli sync\n"
    "ledgerfinch\\-cli list \\-\\-sort \\-added \\-\\-limit 20\n"
    "ledgerfinch\\-cli list \\-\\-json | jq '.[].title'\n"
    "ledgerfinch\\-cli download 42 \\-\\-output ~/Documents\n"
    ".fi\n";

} // namespace

std::string manualPage() {
    std::string page =
        ".\\\" Made by: ledgerfinch-cli help --man\n"
        ".TH LEDGERFINCH\\-CLI 1 \"\" \"Ledgerfinch " +
        std::string(kVersion) + "\" \"User Commands\"\n" +
        ".SH NAME\nledgerfinch\\-cli \\- a document server's archive on the command line\n"
        ".SH SYNOPSIS\n\\fBledgerfinch\\-cli\\fR [\\fIOPTION\\fR]... \\fICOMMAND\\fR [\\fIWORD\\fR]...\n"
        ".SH DESCRIPTION\n"
        "Keeps a whole copy of a document server's metadata and text on this machine, and works with it with or\n"
        "without the server. list, show, status, logs, settings and the list of instances never touch the network, "
        "and\n"
        "work on folders that can only be read.\n"
        ".SH OPTIONS\nEvery command takes these.\n";
    for (const auto& option : globalOptions())
        page += optionEntry(option);
    page += ".SH COMMANDS\n";
    for (const auto& command : allCommands())
        page += commandSection(*command);
    return page + exitStatus() + std::string(kAround);
}

} // namespace ledgerfinch::cli
