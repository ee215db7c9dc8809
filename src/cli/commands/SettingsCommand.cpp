// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/DisplayText.h"
#include "cli/Table.h"
#include "cli/commands/Commands.h"

#include "app/CompositionRoot.h"
#include "platform/Text.h"
#include "records/JsonWriter.h"
#include "shell/SettingsCatalogue.h"

#include <algorithm>
#include <array>
#include <ostream>

namespace ledgerfinch::cli {
namespace {

std::string_view kindName(settings::Kind kind) {
    switch (kind) {
    case settings::Kind::text:
        return "text";
    case settings::Kind::boolean:
        return "true or false";
    case settings::Kind::integer:
        return "whole number";
    case settings::Kind::choice:
        return "choice";
    }
    return "";
}

/// Of a value in the table; get shows the whole.
constexpr std::size_t kLongestShown = 40;

ExitCode list(Console& console, const UserDefaults& defaults, bool asJson) {
    if (asJson) {
        JsonWriter json;
        json.beginArray();
        for (const auto& setting : settings::catalogue()) {
            json.beginObject()
                .member("key", setting.name)
                .member("value", settings::displayText(defaults, setting))
                .member("default", setting.defaultText)
                .member("kind", kindName(setting.kind))
                .member("meaning", setting.meaning)
                .member("changeable", setting.access == settings::Access::open);
            json.key("choices").value(setting.choices).endObject();
        }
        json.endArray();
        console.out << json.text() << '\n';
        return ExitCode::Ok;
    }
    Table table(console,
                {{"KEY", Alignment::Left, 0}, {"VALUE", Alignment::Left, 12}, {"MEANING", Alignment::Left, 12}});
    for (const auto& setting : settings::catalogue())
        table.add({std::string(setting.name),
                   truncated(printable(settings::displayText(defaults, setting)), kLongestShown),
                   std::string(setting.meaning)});
    table.finish();
    return ExitCode::Ok;
}

/// The setting of this name; null after having said that there is none.
const settings::Description* known(Console& console, const std::string& key) {
    if (const auto* setting = settings::find(key)) return setting;
    std::vector<std::string_view> names;
    for (const auto& setting : settings::catalogue())
        names.push_back(setting.name);
    std::string sentence = "There is no setting " + named(key) + ".";
    if (const auto meant = nearest(key, names)) sentence += " Did you mean " + std::string(*meant) + "?";
    console.complain(sentence);
    return nullptr;
}

constexpr std::array<PositionalDescription, 3> kPositionals{{
    {"ACTION", "list (when there is none), get or set.", PositionalDescription::Occurs::Optional},
    {"KEY", "The setting's name, as list shows it.", PositionalDescription::Occurs::Optional},
    {"VALUE", "The new value.", PositionalDescription::Occurs::Optional},
}};
constexpr std::array<OptionDescription, 1> kOptions{
    {{"json", "", "JSON: list gives an array of objects, get one text."}}};

constexpr std::array<ExitCode, 6> kEndsWith{ExitCode::Ok,       ExitCode::Usage,    ExitCode::BadData,
                                            ExitCode::NotFound, ExitCode::Internal, ExitCode::CannotCreate};

class SettingsCommand final : public Command {
public:
    std::string_view name() const override { return "settings"; }
    std::string_view summary() const override { return "List, read and change settings."; }
    std::string_view description() const override {
        return "Settings have the same names and meanings as in the app, which sees a change at once. A value "
               "that is private reads <private>; what belongs to a store or a login is changed by the commands "
               "that keep both in step. list and get take --json.";
    }
    std::span<const PositionalDescription> positionals() const override { return kPositionals; }
    std::span<const OptionDescription> options() const override { return kOptions; }
    std::span<const ExitCode> exitCodes() const override { return kEndsWith; }

    ExitCode execute(CommandContext& context, const Arguments& arguments) const override {
        auto& console = context.console();
        const auto action = arguments.positional(0).empty() ? std::string("list") : arguments.positional(0);
        const std::size_t given = arguments.positionals().size();
        if (action != "list" && action != "get" && action != "set")
            return complainOfUsage(
                console, "settings knows list, get KEY and set KEY VALUE, not " + named(action) + ".", name());
        const std::size_t expected = action == "set" ? 3 : action == "get" ? 2 : std::min<std::size_t>(given, 1);
        if (given != expected)
            return complainOfUsage(console,
                                   action == "set"   ? "settings set needs a key and a value."
                                   : action == "get" ? "settings get needs a key."
                                                     : "settings list takes no further word.",
                                   name());
        if (action == "set" && arguments.has("json"))
            return complainOfUsage(console, "settings set takes no --json.", name());
        if (action == "set" && !text::isValidUtf8(arguments.positional(2))) {
            console.complain("VALUE isn't text in UTF-8.");
            return ExitCode::BadData;
        }
        auto* program = action == "set" ? context.program() : context.programToRead();
        if (!program) return context.failure();
        auto& defaults = *program->services().defaults;
        if (action == "list") return list(console, defaults, arguments.has("json"));
        const auto* setting = known(console, arguments.positional(1));
        if (!setting) return ExitCode::NotFound;
        return action == "get" ? get(console, defaults, *setting, arguments.has("json"))
                               : set(console, defaults, *setting, arguments.positional(2));
    }

private:
    static ExitCode get(Console& console, const UserDefaults& defaults, const settings::Description& setting,
                        bool asJson) {
        const auto value = settings::displayText(defaults, setting);
        console.out << (asJson ? jsonQuoted(value) : printable(value)) << '\n';
        return ExitCode::Ok;
    }

    static ExitCode set(Console& console, UserDefaults& defaults, const settings::Description& setting,
                        const std::string& value) {
        const auto stored = settings::setFromText(defaults, setting.name, value);
        if (stored) return ExitCode::Ok;
        // A number of the system's: the value was right, but the file of settings could not be written.
        const bool unwritten = stored.error().code > 0;
        console.complain((unwritten ? "The setting could not be kept: " : "") + printable(stored.error().message));
        return unwritten ? ExitCode::CannotCreate : ExitCode::BadData;
    }
};

} // namespace

std::unique_ptr<Command> makeSettingsCommand() {
    return std::make_unique<SettingsCommand>();
}

} // namespace ledgerfinch::cli
