// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerSeed.h"

#include "support/PaperlessServerWire.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace ledgerfinch::support {

namespace {

template <typename T>
void take(const Json& fields, const char* key, T& target) {
    auto found = fields.find(key);
    if (found != fields.end() && !found->is_null()) target = found->get<T>();
}

template <typename T>
void take(const Json& fields, const char* key, std::optional<T>& target) {
    auto found = fields.find(key);
    if (found == fields.end()) return;
    target = found->is_null() ? std::nullopt : std::optional<T>(found->get<T>());
}

void takeTime(const Json& fields, const char* key, Micros& target) {
    auto found = fields.find(key);
    if (found != fields.end() && found->is_string()) target = parseTime(found->get<std::string>()).value_or(target);
}

void takeTime(const Json& fields, const char* key, std::optional<Micros>& target) {
    auto found = fields.find(key);
    if (found == fields.end()) return;
    target = found->is_string() ? parseTime(found->get<std::string>()) : std::nullopt;
}

void takePermissions(const Json& fields, ObjectPermissions& target) {
    auto found = fields.find("permissions");
    if (found == fields.end()) found = fields.find("set_permissions");
    if (found == fields.end() || !found->is_object()) return;
    auto ids = [&](const char* action, const char* key) {
        return found->value(action, Json::object()).value(key, std::vector<Id>{});
    };
    target = {ids("view", "users"), ids("view", "groups"), ids("change", "users"), ids("change", "groups")};
    target.normalise();
}

Note noteFrom(const Json& fields) {
    Note note;
    take(fields, "id", note.id);
    take(fields, "note", note.text);
    takeTime(fields, "created", note.created);
    auto user = fields.find("user");
    if (user != fields.end()) take(user->is_object() ? *user : fields, user->is_object() ? "id" : "user", note.user);
    return note;
}

HistoryEntry historyFrom(const Json& fields) {
    HistoryEntry entry;
    take(fields, "id", entry.id);
    takeTime(fields, "timestamp", entry.time);
    take(fields, "action", entry.action);
    take(fields, "changes", entry.changes);
    take(fields, "actor", entry.actor);
    return entry;
}

/// A select value comes as an index into the options.
CustomFieldValue valueFrom(const State& state, const Json& fields) {
    CustomFieldValue value{fields.at("field").get<Id>(), fields.value("value", Json())};
    auto field = state.customFields.find(value.field);
    if (field == state.customFields.end() || field->second.dataType != "select") return value;
    if (value.value.is_number_integer()) {
        auto index = value.value.get<std::size_t>();
        value.value = index < field->second.options.size() ? Json(field->second.options[index].id) : Json();
    }
    return value;
}

/// A record that is null goes, an unknown one comes, of any other the keys that differ.
void changeRecords(Json& list, const Json& changes) {
    for (const auto& [key, fields] : changes.items()) {
        auto id = std::stoll(key);
        auto found = std::find_if(list.begin(), list.end(), [&](const Json& one) { return one.at("id") == id; });
        if (fields.is_null()) {
            if (found != list.end()) list.erase(found);
        } else if (found == list.end()) {
            list.push_back(fields);
        } else {
            found->update(fields);
        }
    }
}

Json readFile(const std::filesystem::path& file) {
    std::ifstream stream(file);
    if (!stream) throw std::runtime_error("Can't read " + file.string());
    auto json = Json::parse(stream);
    if (!json.contains("base")) return json;
    auto base = readFile(file.parent_path() / json["base"].get<std::string>());
    for (const auto& [table, changes] : json.at("changes").items())
        changeRecords(base[table], changes);
    base.update(json);
    return base;
}

template <typename Record, typename Table, typename Apply>
void fill(State& state, const char* name, const Json& list, Table& table, Apply apply) {
    for (const auto& fields : list) {
        Record record;
        record.id = fields.at("id").get<Id>();
        apply(record, fields);
        state.reserveId(name, record.id);
        table[record.id] = std::move(record);
    }
}

Task taskFrom(const Json& fields) {
    Task task;
    task.id = fields.at("id").get<Id>();
    take(fields, "task_id", task.taskId);
    take(fields, "task_file_name", task.fileName);
    takeTime(fields, "date_created", task.created);
    takeTime(fields, "date_done", task.done);
    task.state = TaskState::Done;
    task.succeeded = fields.value("status", "") == "SUCCESS";
    take(fields, "result", task.result);
    take(fields, "acknowledged", task.acknowledged);
    std::string related;
    take(fields, "related_document", related);
    if (!related.empty()) (task.succeeded ? task.relatedDocument : task.duplicateOf) = std::stoll(related);
    take(fields, "owner", task.owner);
    return task;
}

} // namespace

void applyFields(const State& state, Document& document, const Json& fields) {
    take(fields, "correspondent", document.correspondent);
    take(fields, "document_type", document.documentType);
    take(fields, "storage_path", document.storagePath);
    take(fields, "title", document.title);
    take(fields, "content", document.content);
    take(fields, "tags", document.tags);
    std::string created;
    take(fields, fields.contains("created_date") ? "created_date" : "created", created);
    if (!created.empty()) document.created = localDateText(parseTime(created).value_or(0));
    if (!created.empty()) document.createdTime.reset();
    takeTime(fields, "created", document.createdTime);
    takeTime(fields, "modified", document.modified);
    takeTime(fields, "added", document.added);
    takeTime(fields, "deleted_at", document.deletedAt);
    take(fields, "archive_serial_number", document.archiveSerialNumber);
    take(fields, "original_file_name", document.originalFileName);
    if (fields.contains("archived_file_name")) document.hasArchive = fields["archived_file_name"].is_string();
    take(fields, "owner", document.owner);
    takePermissions(fields, document.permissions);
    if (fields.contains("notes")) {
        document.notes.clear();
        for (const auto& note : fields["notes"])
            document.notes.push_back(noteFrom(note));
    }
    if (fields.contains("custom_fields")) {
        document.customFields.clear();
        for (const auto& value : fields["custom_fields"])
            document.customFields.push_back(valueFrom(state, value));
    }
    take(fields, "page_count", document.pageCount);
    take(fields, "mime_type", document.mimeType);
    take(fields, "checksum", document.checksum);
    if (fields.contains("history")) {
        document.history.clear();
        for (const auto& entry : fields["history"])
            document.history.push_back(historyFrom(entry));
    }
}

void applyFields(Attribute& attribute, const Json& fields) {
    take(fields, "name", attribute.name);
    take(fields, "match", attribute.match);
    take(fields, "matching_algorithm", attribute.matchingAlgorithm);
    take(fields, "is_insensitive", attribute.isInsensitive);
    take(fields, "owner", attribute.owner);
    takePermissions(fields, attribute.permissions);
    take(fields, "color", attribute.color);
    take(fields, "is_inbox_tag", attribute.isInboxTag);
    take(fields, "parent", attribute.parent);
    take(fields, "path", attribute.path);
}

void applyFields(State& state, CustomField& field, const Json& fields) {
    take(fields, "name", field.name);
    take(fields, "data_type", field.dataType);
    auto extra = fields.value("extra_data", Json());
    if (field.dataType != "select") {
        if (fields.contains("extra_data")) field.extraData = std::move(extra);
        return;
    }
    if (!extra.is_object() || !extra.contains("select_options")) return;
    field.options.clear();
    for (const auto& option : extra["select_options"]) {
        if (option.is_object() && option.contains("id")) {
            field.options.push_back(
                {option["id"].get<std::string>(), option.value("label", Json()), option.begin().key() == "id"});
        } else {
            auto number = std::to_string(state.takeId("select_options"));
            field.options.push_back({"opt" + sha1Hex("option " + number).substr(0, 13), option, false});
        }
    }
}

void applyFields(SavedView& view, const Json& fields) {
    take(fields, "name", view.name);
    take(fields, "sort_field", view.sortField);
    take(fields, "sort_reverse", view.sortReverse);
    if (fields.contains("filter_rules")) {
        view.filterRules.clear();
        for (const auto& rule : fields["filter_rules"]) {
            FilterRule read;
            take(rule, "rule_type", read.ruleType);
            take(rule, "value", read.value);
            view.filterRules.push_back(std::move(read));
        }
    }
    if (fields.contains("page_size")) view.pageSize = fields["page_size"];
    if (fields.contains("display_mode")) view.displayMode = fields["display_mode"];
    if (fields.contains("display_fields")) view.displayFields = fields["display_fields"];
    take(fields, "owner", view.owner);
    auto takeFlag = [&](const char* key, std::set<Id>& users) {
        if (!fields.contains(key)) return;
        users.erase(view.owner.value_or(0));
        if (fields[key].get<bool>()) users.insert(view.owner.value_or(0));
    };
    takeFlag("show_on_dashboard", view.onDashboardOf);
    takeFlag("show_in_sidebar", view.inSidebarOf);
    takePermissions(fields, view.permissions);
}

void applyFields(ShareLink& link, const Json& fields) {
    takeTime(fields, "created", link.created);
    takeTime(fields, "expiration", link.expiration);
    take(fields, "slug", link.slug);
    take(fields, "document", link.document);
    take(fields, "file_version", link.fileVersion);
    take(fields, "owner", link.owner);
}

void applyFields(User& user, const Json& fields) {
    take(fields, "username", user.username);
    take(fields, "email", user.email);
    take(fields, "password", user.password);
    take(fields, "first_name", user.firstName);
    take(fields, "last_name", user.lastName);
    takeTime(fields, "date_joined", user.dateJoined);
    take(fields, "is_staff", user.isStaff);
    take(fields, "is_active", user.isActive);
    take(fields, "is_superuser", user.isSuperuser);
    take(fields, "groups", user.groups);
    take(fields, "user_permissions", user.permissions);
    take(fields, "token", user.token);
    take(fields, "settings", user.settings);
}

void applyFields(Group& group, const Json& fields) {
    take(fields, "name", group.name);
    take(fields, "permissions", group.permissions);
}

void takeShownViews(State& state, User& user) {
    auto views = user.settings.find("saved_views");
    auto places = std::pair{"dashboard_views_visible_ids", "sidebar_views_visible_ids"};
    auto takeIds = [&](const char* key) {
        auto ids = views != user.settings.end() && views->is_object() ? views->value(key, Json()) : Json();
        if (views != user.settings.end() && views->is_object()) views->erase(key);
        return ids.is_array() ? ids.get<std::set<Id>>() : std::set<Id>{};
    };
    auto dashboard = takeIds(places.first), sidebar = takeIds(places.second);
    auto show = [&](std::set<Id>& users, bool shown) {
        users.erase(user.id);
        if (shown) users.insert(user.id);
    };
    for (auto& [id, view] : state.savedViews) {
        show(view.onDashboardOf, dashboard.contains(id));
        show(view.inSidebarOf, sidebar.contains(id));
    }
}

void seedRecorded(State& state, const std::filesystem::path& file, RecordedMoment moment) {
    auto json = readFile(file);
    fill<User>(state, "users", json.at("users"), state.users, [](User& user, const Json& fields) {
        applyFields(user, fields);
        user.password = user.username + "-pass";
        user.token = sha1Hex(user.username);
    });
    auto plain = [](auto& record, const Json& fields) {
        applyFields(record, fields);
    };
    fill<Group>(state, "groups", json.at("groups"), state.groups, plain);
    for (auto kind : allKinds) {
        auto name = std::string(namesOf(kind).path);
        fill<Attribute>(state, name.c_str(), json.at(name), state.table(kind), plain);
    }
    fill<CustomField>(state, "custom_fields", json.at("custom_fields"), state.customFields,
                      [&](CustomField& field, const Json& fields) { applyFields(state, field, fields); });
    fill<SavedView>(state, "saved_views", json.at("saved_views"), state.savedViews, plain);
    fill<ShareLink>(state, "share_links", json.at("share_links"), state.shareLinks, plain);
    for (auto& [id, user] : state.users) {
        if (user.settings.contains("saved_views")) takeShownViews(state, user);
    }
    state.reserveId("saved_views", json.at("last_saved_view").get<Id>());
    auto firstUpload = json.at("first_upload").get<Id>();
    for (const auto& fields : json.at("documents")) {
        Document document;
        document.id = fields.at("id").get<Id>();
        applyFields(state, document, fields);
        if (document.id >= firstUpload)
            state.fileTexts[document.originalFileName.value_or("")] = {document.content, {}};
        if (document.id >= firstUpload && moment == RecordedMoment::BeforeUploads) continue;
        document.filed = document.modified;
        for (const auto& note : document.notes)
            state.reserveId("notes", note.id);
        state.reserveId("documents", document.id);
        state.documents[document.id] = std::move(document);
    }
    if (moment == RecordedMoment::AfterUploads) {
        for (const auto& fields : json.at("tasks")) {
            auto task = taskFrom(fields);
            state.reserveId("tasks", task.id);
            state.tasks[task.id] = std::move(task);
        }
    }
    const auto dates = json.value("read_dates", Json::object());
    for (const auto& [name, date] : dates.items())
        state.fileTexts[name].date = date;
    state.changed();
}

void seedUsers(State& state) {
    std::vector<std::string> all, viewing;
    for (const char* model : {"correspondent", "customfield", "document", "documenttype", "note", "paperlesstask",
                              "savedview", "sharelink", "storagepath", "tag", "uisettings"}) {
        for (const char* action : {"add_", "change_", "delete_", "view_"})
            all.push_back(std::string(action) + model);
        viewing.push_back(std::string("view_") + model);
    }
    state.groups[1] = {1, "Buchhaltung", all};
    state.groups[2] = {2, "Leser / readers", viewing};
    struct Person {
        const char* name;
        const char* first;
        const char* last;
        std::vector<Id> groups;
        std::vector<std::string> permissions;
    };
    Id id = 3;
    for (const auto& person :
         {Person{"admin", "Ada", "Admin", {}, {}}, Person{"alice", "Alice", "Änderer", {1}, all},
          Person{"bob", "Bob", "", {2}, viewing}, Person{"carol", "", "", {}, {}}, Person{"dora", "", "", {}, all}}) {
        User user;
        user.id = id++;
        user.username = person.name;
        user.password = user.username + "-pass";
        user.email = user.username + "@example.org";
        user.firstName = person.first;
        user.lastName = person.last;
        user.dateJoined = 1'700'000'000 * second;
        user.isStaff = user.isSuperuser = user.username == "admin";
        user.isActive = user.username != "dora";
        user.groups = person.groups;
        user.permissions = person.permissions;
        user.token = sha1Hex(user.username);
        state.users[user.id] = std::move(user);
    }
    state.reserveId("users", id - 1);
    state.reserveId("groups", 2);
    state.changed();
}

} // namespace ledgerfinch::support
