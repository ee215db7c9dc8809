// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/DisplayText.h"
#include "cli/commands/Commands.h"

#include "app/CompositionRoot.h"
#include "platform/Dates.h"
#include "platform/LogSinks.h"
#include "records/JsonWriter.h"

#include <algorithm>
#include <array>
#include <ostream>

namespace ledgerfinch::cli {
namespace {

constexpr std::array<OptionDescription, 3> kOptions{{
    {"since", "WHEN",
     "From this day (2024-03-01), this moment (2024-03-01T12:30:00Z), or so long ago (30m, 12h, 3d). One day ago "
     "unless said otherwise."},
    {"limit", "N", "At most the N newest lines.", 'n'},
    {"json", "", "An array of texts in place of lines."},
}};

using SystemTime = std::chrono::system_clock::time_point;

/// Within what the system's clock can hold. Before all lines and after them stays so.
SystemTime within(Timestamp time, SystemTime now) {
    const Timestamp latest = std::chrono::time_point_cast<std::chrono::microseconds>(now + std::chrono::days(1));
    return SystemTime(std::clamp(time, Timestamp(), latest));
}

std::optional<SystemTime> moment(std::string_view text, SystemTime now) {
    if (const auto day = dates::parseDateOnly(text)) return within(*day, now);
    if (const auto exact = dates::parseDateTime(text)) return within(*exact, now);
    const auto amount = text.empty() ? std::nullopt : wholeNumber(text.substr(0, text.size() - 1));
    constexpr std::int64_t kMost = 100'000;
    if (!amount || *amount < 0 || *amount > kMost) return std::nullopt;
    switch (text.back()) {
    case 'm':
        return now - std::chrono::minutes(*amount);
    case 'h':
        return now - std::chrono::hours(*amount);
    case 'd':
        return now - std::min<std::chrono::system_clock::duration>(std::chrono::days(*amount), now.time_since_epoch());
    default:
        return std::nullopt;
    }
}

constexpr std::array<ExitCode, 4> kEndsWith{ExitCode::Ok, ExitCode::Usage, ExitCode::Internal, ExitCode::CannotCreate};

class LogsCommand final : public Command {
public:
    std::string_view name() const override { return "logs"; }
    std::string_view summary() const override { return "Show the log of the last days."; }
    std::string_view description() const override {
        return "Shows the stored lines of the log. Private values were never stored: they read <private>.";
    }
    std::span<const OptionDescription> options() const override { return kOptions; }
    std::span<const ExitCode> exitCodes() const override { return kEndsWith; }

    ExitCode execute(CommandContext& context, const Arguments& arguments) const override {
        auto& console = context.console();
        std::size_t limit = 100'000;
        if (const auto given = arguments.value("limit")) {
            const auto number = wholeNumber(*given);
            if (!number || *number < 0)
                return complainOfUsage(console, "--limit needs a whole number, 0 or more.", name());
            limit = static_cast<std::size_t>(*number);
        }
        auto* program = context.programToRead();
        if (!program) return context.failure();
        const std::chrono::system_clock::time_point now = program->services().clock->now();
        auto since = now - std::chrono::seconds(86'400);
        if (const auto given = arguments.value("since")) {
            const auto parsed = moment(*given, now);
            if (!parsed)
                return complainOfUsage(console, "--since needs a day, a moment, or a time like 30m, 12h or 3d.",
                                       name());
            since = *parsed;
        }
        const auto lines = readStoredLog(program->logFolder(), since, limit);
        if (arguments.has("json")) {
            JsonWriter json;
            json.value(lines);
            console.out << json.text() << '\n';
            return ExitCode::Ok;
        }
        for (const auto& line : lines)
            console.out << printable(line) << '\n';
        return ExitCode::Ok;
    }
};

} // namespace

std::unique_ptr<Command> makeLogsCommand() {
    return std::make_unique<LogsCommand>();
}

} // namespace ledgerfinch::cli
