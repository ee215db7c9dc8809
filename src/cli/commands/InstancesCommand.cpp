// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/BlockingWork.h"
#include "cli/ConnectScreen.h"
#include "cli/DisplayText.h"
#include "cli/Interruption.h"
#include "cli/ServerFailure.h"
#include "cli/SessionLogin.h"
#include "cli/Table.h"
#include "cli/WaitForScreen.h"
#include "cli/commands/Commands.h"

#include "app/CompositionRoot.h"
#include "connection/InstanceSwitch.h"
#include "connection/Instances.h"
#include "connection/SettingsChange.h"
#include "connection/Status.h"
#include "connection/screens/AddInstanceView.h"
#include "connection/screens/ManageInstancesView.h"
#include "records/JsonWriter.h"

#include <algorithm>
#include <array>
#include <istream>
#include <ostream>

namespace ledgerfinch::cli {
namespace {

ExitCode list(CommandContext& context, CompositionRoot& program, bool asJson) {
    auto& console = context.console();
    auto& defaults = *program.services().defaults;
    const auto active = defaults.string("server").value_or("");
    const auto connected = ConnectedInstances::load(defaults);
    if (asJson) {
        JsonWriter json;
        json.beginArray();
        for (const auto& [address, instance] : connected.instances)
            json.beginObject()
                .member("address", address)
                .member("active", addresses::same(address, active))
                .member("store", instance.store)
                .member("last_successful_sync",
                        instance.lastSuccessfulSync.empty() ? std::nullopt : std::optional(instance.lastSuccessfulSync))
                .member("server_version",
                        instance.serverVersion.empty() ? std::nullopt : std::optional(instance.serverVersion))
                .endObject();
        json.endArray();
        console.out << json.text() << '\n';
        return ExitCode::Ok;
    }
    Table table(console, {{"ACTIVE", Alignment::Left, 0},
                          {"ADDRESS", Alignment::Left, 20},
                          {"VERSION", Alignment::Left, 0},
                          {"LAST SYNC", Alignment::Left, 0}});
    for (const auto& [address, instance] : connected.instances)
        table.add({addresses::same(address, active) ? "*" : "", address, instance.serverVersion,
                   instance.lastSuccessfulSync.empty() ? "never" : instance.lastSuccessfulSync});
    table.finish();
    return ExitCode::Ok;
}

ExitCode add(CommandContext& context, const Arguments& arguments) {
    auto& console = context.console();
    ExitCode failure = ExitCode::Failed;
    const auto input = readLoginInput(console, arguments, arguments.positional(1), "instances", failure);
    if (!input) return failure;
    auto* program = context.program();
    if (!program) return context.failure();
    AddInstanceView view(program->services(), program->core());
    fillIn(view, *input, *program->services().defaults);
    if (!runForm(view, [&] { view.connectToServer(); })) return complainOfInterruption(console);
    if (view.showSuccess()) {
        tellDoubt(console, view, *input);
        console.out << "Instance added! Make it the active one with: ledgerfinch-cli instances use "
                    << printable(input->address()) << '\n';
        return ExitCode::Ok;
    }
    return complainOfConnecting(console, program->services(), view, *input);
}

/// Why the token of a server can't be used; absent when it can.
std::optional<std::string> obstacle(const ApiHandler::Restored& restored, const std::string& address) {
    if (std::holds_alternative<ApiHandler::NoToken>(restored))
        return "No token found for " + printable(address) + ". Log in with: ledgerfinch-cli login " +
               printable(address);
    if (const auto* locked = std::get_if<ApiHandler::SecretsUnavailable>(&restored))
        return "The secret store that keeps the token is locked or doesn't answer: " + printable(locked->reason);
    if (std::holds_alternative<ApiHandler::Refused>(restored)) return failureText(address, 401, status::reasonFor(401));
    return std::nullopt;
}

ExitCode use(CommandContext& context, CompositionRoot& program, const std::string& address) {
    auto& console = context.console();
    auto& services = program.services();
    const auto connected = ConnectedInstances::load(*services.defaults);
    const auto* entry = connected.find(address);
    if (!entry) {
        console.complain("There is no instance " + named(address) + ". See: ledgerfinch-cli instances");
        return ExitCode::NotFound;
    }
    auto& core = program.core();
    Interruption interruption;
    const auto restored = runBlocking([&] {
        return ApiHandler::restore(services, core, entry->first, ApiHandler::Activation::Later,
                                   &interruption.cancellation());
    });
    if (interruption.requested()) return complainOfInterruption(console);
    if (const auto reason = obstacle(restored, entry->first)) {
        console.complain(*reason);
        return ExitCode::Refused;
    }
    SettingsChange settings(*services.defaults);
    // No sync that reads the settings in between may take the one server's date for the other.
    settings.set("lastSuccessfulSync", "");
    settings.set("server", entry->first);
    settings.set("server_version", versionSetting(entry->second));
    settings.set("lastSuccessfulSync", entry->second.lastSuccessfulSync);
    settings.set("offlineMode", false);
    if (const auto& failure = settings.failure())
        return complainOf(console, services, entry->first, ApiError::settingsUnwritable(failure->message));
    settings.keep();
    console.out << "Active now: " << printable(entry->first) << '\n';
    return ExitCode::Ok;
}

bool confirmed(Console& console, const std::string& question) {
    console.err << printable(question) << " All of its local documents go too. [y/N] " << std::flush;
    std::string answer;
    std::getline(console.in, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

ExitCode remove(CommandContext& context, CompositionRoot& program, const std::string& address, bool sure) {
    auto& console = context.console();
    const auto connected = ConnectedInstances::load(*program.services().defaults);
    const auto* entry = connected.find(address);
    if (!entry) {
        console.complain("There is no instance " + named(address) + ". See: ledgerfinch-cli instances");
        return ExitCode::NotFound;
    }
    ManageInstancesView view(program.services(), program.core());
    if (addresses::same(entry->first, view.server().toStdString())) {
        console.complain(view.currentInstanceText().toStdString());
        return ExitCode::Failed;
    }
    view.askToDisconnect(QString::fromStdString(entry->first));
    if (!sure) {
        if (!console.inIsTerminal)
            return complainOfUsage(console, "Removing an instance removes its local documents: say so with --yes.",
                                   "instances");
        if (!confirmed(console, view.removalQuestion().toStdString())) return ExitCode::Failed;
    }
    view.disconnectInstance();
    waitForScreen(view, &ManageInstancesView::changed, [&] { return !view.isRemoving(); });
    if (view.showCurrentInstanceCantBeRemovedAlert()) {
        console.complain(view.currentInstanceText().toStdString());
        return ExitCode::Failed;
    }
    if (const auto& failure = view.failure()) return complainOf(console, program.services(), address, *failure);
    if (ConnectedInstances::load(*program.services().defaults).find(address)) {
        console.complain("The instance could not be removed: no other server is active. Switch and try again.");
        return ExitCode::Failed;
    }
    console.out << "Disconnected from " << printable(entry->first) << ".\n";
    return ExitCode::Ok;
}

constexpr std::array<PositionalDescription, 2> kPositionals{{
    {"ACTION", "list (when there is none), add, use or remove.", PositionalDescription::Occurs::Optional},
    {"ADDRESS", "The server's address, as list shows it.", PositionalDescription::Occurs::Optional},
}};

std::span<const OptionDescription> instanceOptions() {
    static const auto options = [] {
        const auto login = loginOptions();
        std::vector<OptionDescription> all(login.begin(), login.end());
        all.push_back({"yes", "", "Remove without asking; needed where nobody can be asked.", 'y'});
        all.push_back({"json", "", "An array of objects in place of the table."});
        return all;
    }();
    return options;
}

std::vector<std::string_view> optionsOf(std::string_view action) {
    if (action == "use") return {};
    if (action == "remove") return {"yes"};
    if (action != "add") return {"json"};
    std::vector<std::string_view> names;
    for (const auto& option : loginOptions())
        names.push_back(option.name);
    return names;
}

constexpr std::array<ExitCode, 10> kEndsWith{
    ExitCode::Ok,          ExitCode::Failed,   ExitCode::Usage,        ExitCode::BadData, ExitCode::NotFound,
    ExitCode::Unreachable, ExitCode::Internal, ExitCode::CannotCreate, ExitCode::Refused, ExitCode::Interrupted};

class InstancesCommand final : public Command {
public:
    std::string_view name() const override { return "instances"; }
    std::string_view summary() const override { return "List, add, switch and remove servers."; }
    std::string_view description() const override {
        return "Several servers may be connected, each with a local store of its own; one of them is active, "
               "and the other commands work with it.\n\n"
               "list takes --json. add connects a further server and takes the options of login. use makes a "
               "server the active one, if a token is kept for it that it doesn't refuse. remove, which takes --yes, "
               "forgets a server's token, headers and settings, and deletes its local store and its files. The "
               "active server can't be removed.";
    }
    std::span<const PositionalDescription> positionals() const override { return kPositionals; }
    std::span<const OptionDescription> options() const override { return instanceOptions(); }
    std::string objection(std::span<const std::string> words) const override { return objectionToSecrets(words); }
    std::span<const ExitCode> exitCodes() const override { return kEndsWith; }

    ExitCode execute(CommandContext& context, const Arguments& arguments) const override {
        const auto action = arguments.positional(0);
        const auto address = arguments.positional(1);
        constexpr std::array<std::string_view, 4> kActions{"list", "add", "use", "remove"};
        if (!action.empty() && std::find(kActions.begin(), kActions.end(), action) == kActions.end()) {
            std::string sentence = "instances knows list, add, use and remove, not " + named(action) + ".";
            if (const auto meant = nearest(action, kActions)) sentence += " Did you mean " + std::string(*meant) + "?";
            return complainOfUsage(context.console(), sentence, name());
        }
        const bool listing = action.empty() || action == "list";
        if (!listing && address.empty())
            return complainOfUsage(context.console(), "instances " + action + " needs an address.", name());
        if (listing && arguments.positionals().size() > 1)
            return complainOfUsage(context.console(), "instances list takes no further word.", name());
        const std::string given = "instances " + (listing ? std::string("list") : action);
        if (const auto objection = optionOutOfPlace(arguments, options(), optionsOf(action), given))
            return complainOfUsage(context.console(), *objection, name());
        if (action == "add") return add(context, arguments);
        auto* program = listing ? context.programToRead() : context.program();
        if (!program) return context.failure();
        if (action == "use") return use(context, *program, address);
        if (action == "remove") return remove(context, *program, address, arguments.has("yes"));
        return list(context, *program, arguments.has("json"));
    }
};

} // namespace

std::unique_ptr<Command> makeInstancesCommand() {
    return std::make_unique<InstancesCommand>();
}

} // namespace ledgerfinch::cli
