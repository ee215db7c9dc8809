// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ActiveStore.h"
#include "cli/DocumentText.h"
#include "cli/Table.h"
#include "cli/commands/Commands.h"

#include <algorithm>
#include <array>
#include <functional>
#include <ostream>

namespace ledgerfinch::cli {
namespace {

struct Column {
    std::string_view name;
    std::string_view header;
    Alignment alignment;
    std::size_t shrinksTo;
    std::string (*text)(const CD_Document&);
};

constexpr auto kLeft = Alignment::Left;
constexpr auto kRight = Alignment::Right;

const std::array<Column, 12> kColumns{{
    {"id", "ID", kRight, 0,
     [](const CD_Document& document) {
         return std::to_string(document.id());
     }},
    {"created", "CREATED", kLeft, 0,
     [](const CD_Document& document) {
         return dayText(document.created());
     }},
    {"title", "TITLE", kLeft, 12, titleText},
    {"correspondent", "CORRESPONDENT", kLeft, 8,
     [](const CD_Document& document) {
         return nameText(document.correspondent());
     }},
    {"type", "TYPE", kLeft, 6,
     [](const CD_Document& document) {
         return nameText(document.document_type());
     }},
    {"tags", "TAGS", kLeft, 6, tagsText},
    {"asn", "ASN", kRight, 0, serialNumberText},
    {"added", "ADDED", kLeft, 0,
     [](const CD_Document& document) {
         return dayText(document.added());
     }},
    {"modified", "MODIFIED", kLeft, 0,
     [](const CD_Document& document) {
         return dayText(document.modified());
     }},
    {"owner", "OWNER", kLeft, 6, ownerText},
    {"path", "PATH", kLeft, 6,
     [](const CD_Document& document) {
         return nameText(document.storage_path());
     }},
    {"file", "FILE", kLeft, 8,
     [](const CD_Document& document) {
         return document.original_file_name().value_or("");
     }},
}};
constexpr std::string_view kDefaultColumns = "id,created,asn,title,correspondent,type,tags";

/// Words of the command line, and the server's spelling that the settings hold.
struct SortKey {
    std::string_view name;
    std::string_view serverKey;
    std::string_view keyPath;
};
constexpr std::array<SortKey, 9> kSortKeys{{
    {"created", "created", "created"},
    {"added", "added", "added"},
    {"modified", "modified", "modified"},
    {"title", "title", "title"},
    {"asn", "archive_serial_number", "archive_serial_number"},
    {"correspondent", "correspondent__name", "correspondent.name"},
    {"type", "document_type__name", "document_type.name"},
    {"id", "id", "id"},
    {"owner", "owner__username", "owner.username"},
}};

template <class Entries>
std::vector<std::string_view> names(const Entries& entries) {
    std::vector<std::string_view> list;
    for (const auto& entry : entries)
        list.push_back(entry.name);
    return list;
}

std::string choices(std::string_view what, std::string_view given, const std::vector<std::string_view>& known) {
    std::string sentence = "Unknown " + std::string(what) + " " + named(given) + ".";
    if (const auto meant = nearest(given, known)) sentence += " Did you mean " + std::string(*meant) + "?";
    sentence += " There are:";
    for (std::size_t index = 0; index < known.size(); ++index)
        sentence += (index ? ", " : " ") + std::string(known[index]);
    return sentence + ".";
}

Result<std::vector<const Column*>> chosenColumns(std::string_view list) {
    std::vector<const Column*> chosen;
    while (true) {
        const auto comma = list.find(',');
        const auto name = list.substr(0, comma);
        const auto found =
            std::find_if(kColumns.begin(), kColumns.end(), [&](const Column& column) { return column.name == name; });
        if (found == kColumns.end()) return Error{choices("column", name, names(kColumns))};
        chosen.push_back(&*found);
        if (comma == std::string_view::npos) return chosen;
        list.remove_prefix(comma + 1);
    }
}

/// The order that --sort asks for; absent without it.
Result<std::optional<SortDescriptor>> givenSort(const Arguments& arguments) {
    const auto given = arguments.value("sort");
    if (!given) return std::optional<SortDescriptor>();
    std::string_view name = *given;
    const bool descending = name.starts_with('-');
    if (descending) name.remove_prefix(1);
    const auto found = std::find_if(kSortKeys.begin(), kSortKeys.end(),
                                    [&](const SortKey& key) { return key.name == name || key.serverKey == name; });
    if (found == kSortKeys.end()) return Error{choices("sort key", name, names(kSortKeys))};
    return std::optional(
        SortDescriptor{std::string(found->keyPath), descending ? SortOrder::Descending : SortOrder::Ascending});
}

/// The order that the settings say.
SortDescriptor storedSort(const UserDefaults& defaults) {
    SortDescriptor sort{"created", SortOrder::Descending};
    const auto stored = defaults.string("defaultOrderByKey").value_or("created");
    for (const auto& key : kSortKeys)
        if (key.serverKey == stored) sort.keyPath = key.keyPath;
    if (defaults.boolean("defaultOrderAscending").value_or(false)) sort.order = SortOrder::Ascending;
    return sort;
}

/// Calls back with one document after the other; ends when the reader is gone.
void forEachDocument(CoreDataHandler& core, const std::vector<ObjectID>& ids, const std::ostream& out,
                     const std::function<void(const CD_Document&)>& callback) {
    const auto context = core.viewContext();
    for (const auto& id : ids) {
        if (!out.good()) return;
        const auto object = context->object(id);
        if (!object) continue;
        const auto& document = static_cast<const CD_Document&>(*object);
        (void)document.id(); // loads it, so that a row that just went is seen
        if (!document.isDeleted()) callback(document);
    }
}

void writeTable(Console& console, CoreDataHandler& core, const std::vector<ObjectID>& ids,
                const std::vector<const Column*>& columns) {
    std::vector<TableColumn> tableColumns;
    for (const auto* column : columns)
        tableColumns.push_back({std::string(column->header), column->alignment, column->shrinksTo});
    Table table(console, std::move(tableColumns));
    forEachDocument(core, ids, console.out, [&](const CD_Document& document) {
        std::vector<std::string> cells;
        for (const auto* column : columns)
            cells.push_back(column->text(document));
        table.add(std::move(cells));
    });
    table.finish();
}

void writeJson(Console& console, CoreDataHandler& core, const std::vector<ObjectID>& ids) {
    console.out << '[';
    bool first = true;
    forEachDocument(core, ids, console.out, [&](const CD_Document& document) {
        JsonWriter json;
        json.beginObject();
        writeDocumentMembers(json, document);
        json.endObject();
        console.out << (first ? "\n" : ",\n") << json.text();
        first = false;
    });
    console.out << (first ? "]\n" : "\n]\n");
}

constexpr std::array<PositionalDescription, 0> kNoPositionals{};
constexpr std::array<OptionDescription, 5> kOptions{{
    {"columns", "NAMES",
     "Columns in this order, joined by commas: id, created, title, correspondent, type, tags, asn, added, modified, "
     "owner, "
     "path, file."},
    {"limit", "N", "At most N documents.", 'n'},
    {"sort", "KEY",
     "Order by created, added, modified, title, asn, correspondent, type, id or owner; with a dash before the key from "
     "the "
     "highest to the lowest.",
     's'},
    {"descending", "", "From the highest to the lowest."},
    {"json", "", "An array of objects in place of the table."},
}};

constexpr std::array<ExitCode, 6> kEndsWith{ExitCode::Ok,           ExitCode::Usage, ExitCode::Internal,
                                            ExitCode::CannotCreate, ExitCode::Busy,  ExitCode::Refused};

class ListCommand final : public Command {
public:
    std::string_view name() const override { return "list"; }
    std::string_view summary() const override { return "List documents."; }
    std::string_view description() const override {
        return "Lists the documents of the local store; the network is not touched. Without --sort they come in the "
               "order "
               "that the settings say, the latest first unless changed.\n\n"
               "On a terminal the table is fitted into its width. With --json every member of every document is there: "
               "ids are "
               "numbers, what is absent is null, days are written 2024-03-01 and moments 2024-03-01T12:30:00Z.";
    }
    std::span<const PositionalDescription> positionals() const override { return kNoPositionals; }
    std::span<const OptionDescription> options() const override { return kOptions; }
    std::span<const ExitCode> exitCodes() const override { return kEndsWith; }

    ExitCode execute(CommandContext& context, const Arguments& arguments) const override {
        auto& console = context.console();
        const auto columns = chosenColumns(arguments.value("columns").value_or(std::string(kDefaultColumns)));
        if (!columns) return complainOfUsage(console, columns.error().message, name());
        const auto sort = givenSort(arguments);
        if (!sort) return complainOfUsage(console, sort.error().message, name());
        FetchRequest request;
        request.entity = CD_Document::kEntityName;
        if (const auto limit = arguments.value("limit")) {
            const auto number = wholeNumber(*limit);
            if (!number || *number < 0)
                return complainOfUsage(console, "--limit needs a whole number, 0 or more.", name());
            request.limit = static_cast<std::size_t>(*number);
        }
        auto* program = context.programToRead();
        if (!program) return context.failure();
        auto order = sort->value_or(storedSort(*program->services().defaults));
        if (arguments.has("descending")) order.order = SortOrder::Descending;
        request.sort = {std::move(order)};

        ExitCode failure = ExitCode::Ok;
        auto* core = storeToRead(context, *program, failure);
        if (!core) return failure;
        const auto ids = core->persistenceContainer()->fetchIDs(request);
        if (!ids) {
            console.complain("The local store can't be read: " + printable(ids.error().message));
            return ids.error().code == static_cast<int>(StoreErrorCode::Busy) ? ExitCode::Busy : ExitCode::Internal;
        }
        if (arguments.has("json"))
            writeJson(console, *core, *ids);
        else
            writeTable(console, *core, *ids, *columns);
        return ExitCode::Ok;
    }
};

} // namespace

std::unique_ptr<Command> makeListCommand() {
    return std::make_unique<ListCommand>();
}

} // namespace ledgerfinch::cli
