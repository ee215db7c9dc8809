// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/Command.h"
#include "cli/DisplayText.h"

#include <algorithm>
#include <array>
#include <ostream>
#include <sstream>

namespace ledgerfinch::cli {
namespace {

constexpr std::array<OptionDescription, 4> kGlobalOptions{{
    {"data-dir", "FOLDER",
     "Keep everything below FOLDER, which is made if need be, instead of the folders of your account."},
    {"verbose", "", "Write the log to standard error as well.", 'v'},
    {"help", "", "Show what a command does and which options it takes.", 'h'},
    {"version", "", "Show the version."},
}};

constexpr std::size_t kHelpWidth = 80;
constexpr std::size_t kOptionIndent = 26;
constexpr std::size_t kCodeIndent = 7;

std::string optionForms(const OptionDescription& option) {
    std::string forms = option.letter ? std::string{'-', option.letter} + ", --" : "    --";
    forms += option.name;
    if (!option.argument.empty()) forms += " " + std::string(option.argument);
    return forms;
}

/// The words of a paragraph in lines of the help's width, the first one continuing a line of `column` columns.
std::string wrapped(std::string_view paragraph, std::size_t indent, std::size_t column) {
    std::istringstream words{std::string(paragraph)};
    std::string result;
    std::string word;
    bool first = true;
    while (words >> word) {
        const std::size_t width = displayWidth(word);
        if (!first && column + 1 + width > kHelpWidth) {
            result += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (!first) {
            result += " ";
            ++column;
        }
        result += word;
        column += width;
        first = false;
    }
    return result + "\n";
}

std::string entry(const std::string& left, std::string_view help, std::size_t indent = kOptionIndent) {
    std::string line = "  " + left;
    if (line.size() + 2 > indent)
        line += "\n" + std::string(indent, ' ');
    else
        line.append(indent - line.size(), ' ');
    return line + wrapped(help, indent, indent);
}

std::string paragraphs(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const auto end = text.find("\n\n");
        result += wrapped(text.substr(0, end), 0, 0);
        if (end == std::string_view::npos) break;
        result += "\n";
        text.remove_prefix(end + 2);
    }
    return result;
}

} // namespace

std::string Command::objection(std::span<const std::string>) const {
    return {};
}

std::span<const OptionDescription> globalOptions() {
    return kGlobalOptions;
}

const Command* findCommand(std::string_view name) {
    const auto& commands = allCommands();
    const auto found =
        std::find_if(commands.begin(), commands.end(), [&](const auto& command) { return command->name() == name; });
    return found == commands.end() ? nullptr : found->get();
}

ExitCode complainOfUsage(const Console& console, std::string_view sentence, std::string_view command) {
    console.complain(sentence);
    console.err << "See: ledgerfinch-cli " << (command.empty() ? "" : std::string(command) + " ") << "--help\n";
    console.err.flush();
    return ExitCode::Usage;
}

std::optional<std::string> optionOutOfPlace(const Arguments& arguments, std::span<const OptionDescription> known,
                                            std::span<const std::string_view> allowed, std::string_view action) {
    for (const auto& option : known)
        if (arguments.has(option.name) && std::find(allowed.begin(), allowed.end(), option.name) == allowed.end())
            return std::string(action) + " takes no --" + std::string(option.name) + ".";
    return std::nullopt;
}

std::string usageLine(const Command& command) {
    using Occurs = PositionalDescription::Occurs;
    std::string line = "ledgerfinch-cli " + std::string(command.name());
    if (!command.options().empty()) line += " [OPTION]...";
    for (const auto& positional : command.positionals()) {
        const std::string name(positional.name);
        line += positional.occurs == Occurs::Once ? " " + name : " [" + name + "]";
        if (positional.occurs == Occurs::Any) line += "...";
    }
    return line;
}

std::string helpText() {
    std::string text =
        "Usage: ledgerfinch-cli [OPTION]... COMMAND [WORD]...\n\n" +
        paragraphs("Keeps a whole copy of a document server's metadata and text on this machine, and works with "
                   "it with or without the server.") +
        "\nCommands:\n";
    for (const auto& command : allCommands())
        text += entry(std::string(command->name()), command->summary());
    text += "\nOptions of every command:\n";
    for (const auto& option : kGlobalOptions)
        text += entry(optionForms(option), option.help);
    return text + "\nledgerfinch-cli COMMAND --help tells more about a command.\n";
}

std::string helpText(const Command& command) {
    std::string text = "Usage: " + usageLine(command) + "\n\n" + paragraphs(command.description());
    if (!command.positionals().empty()) {
        text += "\n";
        for (const auto& positional : command.positionals())
            text += entry(std::string(positional.name), positional.help);
    }
    if (!command.options().empty()) {
        text += "\nOptions:\n";
        for (const auto& option : command.options())
            text += entry(optionForms(option), option.help);
    }
    text += "\nOptions of every command:\n";
    for (const auto& option : kGlobalOptions)
        text += entry(optionForms(option), option.help);
    text += "\nIt ends with:\n";
    for (const auto code : command.exitCodes())
        text += entry(std::to_string(toInt(code)), meaningOf(code), kCodeIndent);
    return text;
}

} // namespace ledgerfinch::cli
