// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ActiveStore.h"
#include "cli/CustomFieldText.h"
#include "cli/DisplayText.h"
#include "cli/DocumentText.h"
#include "cli/commands/Commands.h"
#include "store/ServerShadow.h"

#include <algorithm>
#include <array>
#include <ostream>

namespace ledgerfinch::cli {
namespace {

/// "Label:   value" lines, values of several lines set in.
class Page {
public:
    explicit Page(Console& console) : m_console(console) {}

    void line(std::string_view label, std::string_view value) {
        m_console.out << heading(padded(std::string(printable(label)) + ":", kLabelWidth)) << ' ' << printable(value)
                      << '\n';
    }
    void section(std::string_view title) { m_console.out << '\n' << heading(std::string(title)) << '\n'; }
    void text(std::string_view text, std::string_view indent) {
        const std::string shown = printable(text, LineBreaks::Keep);
        std::string_view rest = shown;
        while (true) {
            const auto end = rest.find('\n');
            m_console.out << indent << rest.substr(0, end) << '\n';
            if (end == std::string_view::npos || end + 1 == rest.size()) return;
            rest.remove_prefix(end + 1);
        }
    }

private:
    [[nodiscard]] std::string heading(std::string text) const {
        return m_console.colour ? "\x1b[1m" + text + "\x1b[0m" : text;
    }

    static constexpr std::size_t kLabelWidth = 15;
    Console& m_console;
};

std::string momentForPerson(const std::optional<Timestamp>& time) {
    return momentText(time).value_or("");
}

template <class Members, class Name>
std::string joined(const Members& members, Name name) {
    std::vector<std::string> texts;
    for (const auto& member : members)
        texts.push_back(name(*member));
    std::sort(texts.begin(), texts.end());
    std::string all;
    for (const auto& text : texts)
        all += (all.empty() ? "" : ", ") + text;
    return all;
}

std::vector<Ref<CD_Note>> sortedNotes(const CD_Document& document) {
    auto notes = document.notes();
    std::stable_sort(notes.begin(), notes.end(), [](const Ref<CD_Note>& first, const Ref<CD_Note>& second) {
        return first->created() < second->created();
    });
    return notes;
}

std::string localFile(const CoreDataHandler& core, const CD_Document& document) {
    const auto uuid = document.uuid();
    const auto file = uuid ? core.documentFiles().existingDocumentFile(*uuid) : std::nullopt;
    return file ? file->string() : std::string();
}

void writePage(Console& console, const CoreDataHandler& core, const CD_Document& document) {
    Page page(console);
    page.line("ID", std::to_string(document.id()));
    page.line("Title", titleText(document));
    page.line("Created", dayText(document.created()));
    page.line("Serial number", serialNumberText(document));
    page.line("Correspondent", nameText(document.correspondent()));
    page.line("Document type", nameText(document.document_type()));
    page.line("Storage path", nameText(document.storage_path()));
    page.line("Tags", tagsText(document));
    page.line("Added", momentForPerson(document.added()));
    page.line("Modified", momentForPerson(document.modified()));
    page.line("Original file", document.original_file_name().value_or(""));
    page.line("File here", localFile(core, document));
    page.line("Owner", ownerText(document));
    // Lists of the server leave it out, so that false may as well mean unknown.
    if (document.user_can_change()) page.line("May be changed", "yes");
    page.line("Viewers", joined(document.viewable_by_user(), userText));
    page.line("Viewer groups", joined(document.viewable_by_group(), groupText));
    page.line("Editors", joined(document.editable_by_user(), userText));
    page.line("Editor groups", joined(document.editable_by_group(), groupText));

    if (const auto fields = customFieldLines(document); !fields.empty()) {
        page.section("Custom fields");
        for (const auto& field : fields)
            page.line("  " + field.name, field.text);
    }
    if (const auto notes = sortedNotes(document); !notes.empty()) {
        page.section("Notes");
        for (const auto& note : notes) {
            const auto user = note->user();
            page.text("  " + momentForPerson(note->created()) + (user ? " " + userText(*user) : std::string()), "");
            page.text(note->note().value_or(""), "    ");
        }
    }
}

template <class Members, class Name>
void writeMembers(JsonWriter& json, std::string_view key, const Members& members, std::string_view nameKey, Name name) {
    json.key(key).beginArray();
    for (const auto& member : members)
        json.beginObject().member("id", member->id()).member(nameKey, name(*member)).endObject();
    json.endArray();
}

void writeRights(JsonWriter& json, const CD_Document& document) {
    const auto userName = [](const CD_User& user) {
        return user.username();
    };
    const auto groupName = [](const CD_Group& group) {
        return group.name();
    };
    json.key("permissions").beginObject();
    json.key("view").beginObject();
    writeMembers(json, "users", document.viewable_by_user(), "username", userName);
    writeMembers(json, "groups", document.viewable_by_group(), "name", groupName);
    json.endObject().key("change").beginObject();
    writeMembers(json, "users", document.editable_by_user(), "username", userName);
    writeMembers(json, "groups", document.editable_by_group(), "name", groupName);
    json.endObject().endObject();
}

void writeJson(Console& console, const CoreDataHandler& core, const CD_Document& document) {
    JsonWriter json;
    json.beginObject();
    writeDocumentMembers(json, document);
    json.member("user_can_change", document.user_can_change() ? std::optional(true) : std::nullopt);
    const auto file = localFile(core, document);
    json.member("file", file.empty() ? std::nullopt : std::optional(file));
    json.key("custom_fields").beginArray();
    for (const auto& field : customFieldLines(document))
        json.beginObject()
            .member("id", field.id)
            .member("name", field.name)
            .member("data_type", field.dataType)
            .rawMember("value", field.json)
            .member("text", field.text)
            .endObject();
    json.endArray().key("notes").beginArray();
    for (const auto& note : sortedNotes(document)) {
        const auto user = note->user();
        json.beginObject()
            .member("id", note->id())
            .member("note", note->note())
            .member("created", momentText(note->created()))
            .member("user", user ? user->username() : std::nullopt)
            .endObject();
    }
    json.endArray();
    writeRights(json, document);
    const auto content = document.content();
    json.member("content", content ? content->content() : std::nullopt).endObject();
    console.out << json.text() << '\n';
}

constexpr std::array<PositionalDescription, 1> kPositionals{{{"ID", "The document's number on the server."}}};
constexpr std::array<OptionDescription, 2> kOptions{{
    {"content", "", "Show the document's text and nothing else; not with --json."},
    {"json", "", "One object with everything, the text included."},
}};

constexpr std::array<ExitCode, 6> kEndsWith{ExitCode::Ok,       ExitCode::Usage,        ExitCode::NotFound,
                                            ExitCode::Internal, ExitCode::CannotCreate, ExitCode::Refused};

class ShowCommand final : public Command {
public:
    std::string_view name() const override { return "show"; }
    std::string_view summary() const override { return "Show everything about one document."; }
    std::string_view description() const override {
        return "Shows a document of the local store: its fields, tags, rights, custom fields and notes. The network is "
               "not "
               "touched.";
    }
    std::span<const PositionalDescription> positionals() const override { return kPositionals; }
    std::span<const OptionDescription> options() const override { return kOptions; }
    std::span<const ExitCode> exitCodes() const override { return kEndsWith; }

    ExitCode execute(CommandContext& context, const Arguments& arguments) const override {
        auto& console = context.console();
        const auto id = wholeNumber(arguments.positional(0));
        if (!id) return complainOfUsage(console, "ID is a whole number, the one in the first column of list.", name());
        if (arguments.has("json") && arguments.has("content"))
            return complainOfUsage(console, "--json holds the text already: give it without --content.", name());
        auto* program = context.programToRead();
        if (!program) return context.failure();
        ExitCode failure = ExitCode::Ok;
        auto* core = storeToRead(context, *program, failure);
        if (!core) return failure;
        const auto document = core->getDocument(*id);
        if (!document) {
            console.complain("There is no document " + std::to_string(*id) + " in the local store.");
            return ExitCode::NotFound;
        }
        if (arguments.has("json")) {
            writeJson(console, *core, *document);
        } else if (arguments.has("content")) {
            const auto content = document->content();
            Page(console).text(content ? content->content().value_or("") : std::string(), "");
        } else {
            writePage(console, *core, *document);
        }
        return ExitCode::Ok;
    }
};

} // namespace

std::unique_ptr<Command> makeShowCommand() {
    return std::make_unique<ShowCommand>();
}

} // namespace ledgerfinch::cli
