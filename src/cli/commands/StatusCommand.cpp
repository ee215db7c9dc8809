// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/BlockingWork.h"
#include "cli/DisplayText.h"
#include "cli/Version.h"
#include "cli/commands/Commands.h"

#include "app/CompositionRoot.h"
#include "platform/Text.h"
#include "records/JsonWriter.h"
#include "store/RepairList.h"

#include <array>
#include <ostream>

namespace ledgerfinch::cli {
namespace {

struct Count {
    std::string_view key;   ///< in JSON
    std::string_view label; ///< for a person
    std::string_view entity;
};
constexpr std::array<Count, 9> kCounts{{
    {"documents", "Documents", CD_Document::kEntityName},
    {"tags", "Tags", CD_Tag::kEntityName},
    {"correspondents", "Correspondents", CD_Correspondent::kEntityName},
    {"document_types", "Document types", CD_Document_Type::kEntityName},
    {"storage_paths", "Storage paths", CD_Storage_Path::kEntityName},
    {"custom_fields", "Custom fields", CD_Custom_Field::kEntityName},
    {"saved_views", "Saved views", CD_Saved_View::kEntityName},
    {"users", "Users", CD_User::kEntityName},
    {"groups", "Groups", CD_Group::kEntityName},
}};

struct StoreStatus {
    std::string name;
    std::filesystem::path file;
    std::int64_t bytes = 0;
    std::array<std::int64_t, kCounts.size()> counts{};
    std::size_t refused = 0;
    std::size_t unresolved = 0;
};

struct Status {
    std::string server;
    bool offline = false;
    std::string serverVersion;
    std::string lastSync;
    std::optional<StoreStatus> store;
    DocumentFiles::Statistics downloads;
    std::string secrets;
    std::filesystem::path data;
};

StoreStatus statusOfStore(CoreDataHandler& core) {
    StoreStatus status;
    const auto container = core.persistenceContainer();
    const auto context = core.viewContext();
    status.name = core.storeName();
    status.file = container->file();
    std::error_code ignored;
    status.bytes = static_cast<std::int64_t>(std::filesystem::file_size(status.file, ignored));
    for (std::size_t index = 0; index < kCounts.size(); ++index) {
        FetchRequest request;
        request.entity = kCounts[index].entity;
        if (const auto count = context->count(request)) status.counts[index] = static_cast<std::int64_t>(*count);
    }
    const RepairList repairs(core);
    status.refused = repairs.entries(RepairList::kRefused).size();
    status.unresolved = repairs.entries(RepairList::kUnresolved).size();
    return status;
}

Status gather(CompositionRoot& program) {
    auto& services = program.services();
    auto& defaults = *services.defaults;
    Status status;
    status.server = defaults.string("server").value_or("");
    status.offline = defaults.boolean("offlineMode").value_or(false);
    status.serverVersion = defaults.string("server_version").value_or("");
    status.lastSync = defaults.string("lastSuccessfulSync").value_or("");
    status.data = services.paths.container;
    std::error_code ignored;
    if (std::filesystem::exists(program.activeStoreFile(), ignored)) {
        auto& core = program.core();
        status.store = statusOfStore(core);
        status.downloads = core.documentFiles().downloadedFileStatistics();
    }
    // Only which store it is; no secret is read.
    status.secrets = runBlocking([&] { return services.secrets->kind(); });
    return status;
}

class Lines {
public:
    explicit Lines(Console& console) : m_console(console) {}
    void add(std::string_view label, std::string_view value) {
        m_console.out << padded(std::string(label) + ":", 18) << ' ' << printable(value) << '\n';
    }

private:
    Console& m_console;
};

std::string serverText(const Status& status) {
    if (status.offline) return "none (offline mode)";
    return status.server.empty() ? "none yet (connect with: ledgerfinch-cli login URL)" : status.server;
}

void writeLines(Console& console, const Status& status) {
    Lines lines(console);
    lines.add("Program", kVersion);
    lines.add("Server", serverText(status));
    lines.add("Server version", status.serverVersion.empty() ? "unknown" : status.serverVersion);
    lines.add("Last sync", status.lastSync.empty() ? "never" : status.lastSync);
    if (status.store) {
        lines.add("Store", status.store->file.string() + " (" + text::formatByteCount(status.store->bytes) + ")");
        for (std::size_t index = 0; index < kCounts.size(); ++index)
            lines.add(kCounts[index].label, std::to_string(status.store->counts[index]));
        lines.add("Unsent or refused", std::to_string(status.store->refused));
        lines.add("Unresolved", std::to_string(status.store->unresolved));
        lines.add("Files here",
                  std::to_string(status.downloads.files) + " (" + text::formatByteCount(status.downloads.bytes) + ")");
    } else {
        lines.add("Store", "none yet");
    }
    lines.add("Tokens kept in", status.secrets);
    lines.add("Data folder", status.data.string());
}

std::optional<std::string> orNull(const std::string& text) {
    return text.empty() ? std::nullopt : std::optional(text);
}

void writeJson(Console& console, const Status& status) {
    JsonWriter json;
    json.beginObject()
        .member("version", kVersion)
        .member("server", orNull(status.server))
        .member("offline_mode", status.offline)
        .member("server_version", orNull(status.serverVersion))
        .member("last_successful_sync", orNull(status.lastSync));
    json.key("store");
    if (status.store) {
        json.beginObject()
            .member("name", status.store->name)
            .member("file", status.store->file.string())
            .member("bytes", status.store->bytes)
            .member("refused", status.store->refused)
            .member("unresolved", status.store->unresolved);
        for (std::size_t index = 0; index < kCounts.size(); ++index)
            json.member(kCounts[index].key, status.store->counts[index]);
        json.endObject();
    } else {
        json.null();
    }
    json.key("downloads").beginObject();
    json.member("files", status.downloads.files).member("bytes", status.downloads.bytes).endObject();
    json.member("secret_store", status.secrets).member("data_folder", status.data.string()).endObject();
    console.out << json.text() << '\n';
}

constexpr std::array<OptionDescription, 1> kOptions{{{"json", "", "One object in place of lines."}}};

constexpr std::array<ExitCode, 4> kEndsWith{ExitCode::Ok, ExitCode::Usage, ExitCode::Internal, ExitCode::CannotCreate};

class StatusCommand final : public Command {
public:
    std::string_view name() const override { return "status"; }
    std::string_view summary() const override { return "Show the server, the local store and what is in it."; }
    std::string_view description() const override {
        return "Shows the active server, when it was last synced, what the local store holds, how many records wait to "
               "be "
               "mended by the next sync, how many files are here, and where tokens are kept. The network is not "
               "touched.";
    }
    std::span<const OptionDescription> options() const override { return kOptions; }
    std::span<const ExitCode> exitCodes() const override { return kEndsWith; }

    ExitCode execute(CommandContext& context, const Arguments& arguments) const override {
        auto* program = context.programToRead();
        if (!program) return context.failure();
        const Status status = gather(*program);
        if (arguments.has("json"))
            writeJson(context.console(), status);
        else
            writeLines(context.console(), status);
        return ExitCode::Ok;
    }
};

} // namespace

std::unique_ptr<Command> makeStatusCommand() {
    return std::make_unique<StatusCommand>();
}

} // namespace ledgerfinch::cli
