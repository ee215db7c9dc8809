// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/CommandLine.h"

#include "cli/DisplayText.h"
#include "cli/Version.h"

#include <ostream>

namespace ledgerfinch::cli {
namespace {

class RunContext final : public CommandContext {
public:
    RunContext(Console& console, const CommandLine::MakeProgram& make, LaunchOptions options)
        : m_console(console), m_make(make), m_options(std::move(options)) {}

    Console& console() override { return m_console; }
    CompositionRoot* program() override { return program(FileAccess::Write); }
    CompositionRoot* programToRead() override { return program(FileAccess::Read); }
    ExitCode failure() const override { return m_failure; }

private:
    CompositionRoot* program(FileAccess access) {
        if (m_program || m_tried) return m_program.get();
        m_tried = true;
        m_options.access = access;
        auto made = m_make(std::move(m_options));
        if (made) {
            m_program = std::move(made).value();
        } else {
            m_console.complain(printable(made.error().message));
            if (made.error().code == static_cast<int>(LaunchError::Folders)) m_failure = ExitCode::CannotCreate;
        }
        return m_program.get();
    }

    Console& m_console;
    const CommandLine::MakeProgram& m_make;
    LaunchOptions m_options;
    std::unique_ptr<CompositionRoot> m_program;
    bool m_tried = false;
    ExitCode m_failure = ExitCode::Internal;
};

std::vector<OptionDescription> optionsOf(const Command* command) {
    const auto global = globalOptions();
    std::vector<OptionDescription> options(global.begin(), global.end());
    if (command) {
        const auto own = command->options();
        options.insert(options.end(), own.begin(), own.end());
    }
    return options;
}

/// Where the command's name stands: the first word that is neither an option nor an option's value.
std::size_t commandPosition(std::span<const std::string> words) {
    std::size_t position = 0;
    while (position < words.size()) {
        const auto& word = words[position];
        if (word.size() < 2 || word[0] != '-') break;
        ++position;
        if (word == "--data-dir") ++position;
    }
    return std::min(position, words.size());
}

ExitCode complainOfCommand(const Console& console, const std::string& word) {
    std::vector<std::string_view> names;
    for (const auto& command : allCommands())
        names.push_back(command->name());
    std::string sentence = "Unknown command " + named(word) + ".";
    if (const auto meant = nearest(word, names)) sentence += " Did you mean " + std::string(*meant) + "?";
    return complainOfUsage(console, sentence);
}

LaunchOptions launchOptions(const Arguments& arguments) {
    LaunchOptions options;
    if (const auto folder = arguments.value("data-dir")) options.dataDirectory = *folder;
    options.verbose = arguments.has("verbose");
    return options;
}

} // namespace

CommandLine::CommandLine(Console& console, MakeProgram makeProgram)
    : m_console(console), m_makeProgram(std::move(makeProgram)) {}

ExitCode CommandLine::run(std::span<const std::string> words) {
    const std::size_t position = commandPosition(words);
    const Command* command = nullptr;
    std::vector<std::string> rest(words.begin(), words.end());
    if (position < words.size()) {
        command = findCommand(words[position]);
        if (!command) return complainOfCommand(m_console, words[position]);
        rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(position));
    }
    const std::string_view commandName = command ? command->name() : std::string_view();
    if (command)
        if (const auto objection = command->objection(rest); !objection.empty())
            return complainOfUsage(m_console, objection, commandName);
    const auto options = optionsOf(command);
    const auto arguments = parseArguments(rest, options);
    if (!arguments) return complainOfUsage(m_console, arguments.error().message, commandName);

    if (arguments->has("version")) {
        m_console.out << "ledgerfinch-cli " << kVersion << '\n' << std::flush;
        return ExitCode::Ok;
    }
    if (!command || arguments->has("help")) {
        m_console.out << (command ? helpText(*command) : helpText()) << std::flush;
        return ExitCode::Ok;
    }
    if (arguments->value("data-dir") == "") return complainOfUsage(m_console, "--data-dir needs the name of a folder.");
    if (const auto checked = checkPositionals(*arguments, command->positionals(), commandName); !checked)
        return complainOfUsage(m_console, checked.error().message, commandName);
    RunContext context(m_console, m_makeProgram, launchOptions(*arguments));
    const ExitCode code = command->execute(context, *arguments);
    m_console.out.flush();
    return code;
}

} // namespace ledgerfinch::cli
