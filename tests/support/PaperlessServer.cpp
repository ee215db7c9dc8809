// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServer.h"

#include "support/PaperlessServerEndpoints.h"
#include "support/PaperlessServerHttp.h"
#include "support/PaperlessServerRoutes.h"
#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerTasks.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace ledgerfinch::support {

namespace {

std::optional<Kind> kindOf(std::string_view table) {
    for (auto kind : allKinds) {
        if (namesOf(kind).path == table) return kind;
    }
    return std::nullopt;
}

/// Calls the function with the table of this name.
template <typename StateType, typename Function>
auto onTable(StateType& state, std::string_view name, Function function) {
    if (auto kind = kindOf(name)) return function(state.table(*kind));
    if (name == "custom_fields") return function(state.customFields);
    if (name == "saved_views") return function(state.savedViews);
    if (name == "users") return function(state.users);
    if (name == "groups") return function(state.groups);
    if (name == "share_links") return function(state.shareLinks);
    throw std::invalid_argument("The sample server has no table " + std::string(name));
}

template <typename Record>
void apply(State&, Record& record, const Json& fields) {
    applyFields(record, fields);
}

void apply(State& state, CustomField& field, const Json& fields) {
    applyFields(state, field, fields);
}

/// An empty state that still doesn't repeat a revision.
State emptied(const State& old) {
    State state;
    state.revision = old.revision + 1;
    state.taskPace = old.taskPace;
    state.release = old.release;
    state.leavesRemovedOptions = old.leavesRemovedOptions;
    state.refusesDuplicates = old.refusesDuplicates;
    state.loginLimit = old.loginLimit;
    state.clockShift = old.clockShift;
    return state;
}

bool startsWith(const LoggedRequest& logged, std::string_view start) {
    if (start.empty()) return true;
    return (logged.request.method + " " + logged.request.target).starts_with(start);
}

Json documentJson(const State& state, const Document& document) {
    std::string text;
    DocumentShape shape;
    shape.fullPermissions = true;
    // Authors as objects, since only these forms can say that an author is gone.
    auto hasGoneAuthor = std::any_of(document.notes.begin(), document.notes.end(),
                                     [](const Note& note) { return !note.user.has_value(); });
    if (hasGoneAuthor) shape.api.hasNoteAuthors = true;
    appendDocument(text, state, document, shape);
    return Json::parse(text);
}

} // namespace

PaperlessServer::PaperlessServer() : m_routes(std::make_unique<Routes>()) {
    auto respond = [this](const Request& request) {
        Answer answer;
        {
            std::lock_guard lock(m_mutex);
            changeModeBefore(request);
            answer = m_routes->answer(m_state, request);
        }
        std::lock_guard lock(m_logMutex);
        if (m_logging) {
            m_log.push_back({request, answer.status});
            m_logged.notify_all();
        }
        return answer;
    };
    m_face = std::make_unique<HttpFace>(respond, m_faults);
    clear();
}

PaperlessServer::~PaperlessServer() {
    stop();
}

void PaperlessServer::seedFromRecordings(RecordedMoment moment, const std::string& server) {
    std::lock_guard lock(m_mutex);
    m_state = emptied(m_state);
    seedRecorded(m_state, dataFolder() / "paperless" / ("seed" + (server.empty() ? server : "-" + server) + ".json"),
                 moment);
}

void PaperlessServer::generate(std::size_t documents, const SampleOptions& options) {
    std::lock_guard lock(m_mutex);
    m_state = emptied(m_state);
    generateSamples(m_state, documents, options);
}

void PaperlessServer::clear() {
    std::lock_guard lock(m_mutex);
    m_state = emptied(m_state);
    seedUsers(m_state);
}

void PaperlessServer::start(int port) {
    m_face->start(port);
}

void PaperlessServer::stop() {
    m_face->stop();
}

std::string PaperlessServer::url() const {
    return "http://127.0.0.1:" + std::to_string(port());
}

int PaperlessServer::port() const {
    return m_face->port();
}

void PaperlessServer::finishTasks() {
    std::lock_guard lock(m_mutex);
    for (auto& [id, task] : m_state.tasks) {
        while (task.state != TaskState::Done)
            support::advanceTask(m_state, task);
    }
}

void PaperlessServer::advanceTask(Id task) {
    std::lock_guard lock(m_mutex);
    auto found = m_state.tasks.find(task);
    if (found != m_state.tasks.end()) support::advanceTask(m_state, found->second);
}

PaperlessServerFaults& PaperlessServer::faults() {
    return m_faults;
}

std::string PaperlessServer::token(std::string_view user) const {
    auto all = tokens();
    auto found = all.find(std::string(user));
    return found == all.end() ? std::string() : found->second;
}

std::map<std::string, std::string> PaperlessServer::tokens() const {
    std::lock_guard lock(m_mutex);
    std::map<std::string, std::string> result;
    for (const auto& [id, user] : m_state.users)
        result[user.username] = user.token;
    return result;
}

Id PaperlessServer::addDocument(const Json& fields) {
    std::lock_guard lock(m_mutex);
    Document document;
    document.id = fields.value("id", Id(0));
    if (document.id == 0) document.id = m_state.takeId("documents");
    m_state.reserveId("documents", document.id);
    document.title = "Document " + std::to_string(document.id);
    document.added = document.modified = document.filed = m_state.now();
    document.created = localDateText(document.added);
    document.originalFileName = "document_" + std::to_string(document.id) + ".pdf";
    document.owner = 3;
    document.pageCount = 1;
    applyFields(m_state, document, fields);
    for (auto& note : document.notes) {
        if (note.id == 0) note.id = m_state.takeId("notes");
        m_state.reserveId("notes", note.id);
    }
    auto id = document.id;
    m_state.documents[id] = std::move(document);
    m_state.changed();
    return id;
}

bool PaperlessServer::editDocument(Id id, const Json& fields) {
    std::lock_guard lock(m_mutex);
    auto found = m_state.documents.find(id);
    if (found == m_state.documents.end()) return false;
    found->second.modified = m_state.now();
    applyFields(m_state, found->second, fields);
    m_state.changed();
    return true;
}

bool PaperlessServer::removeDocument(Id id) {
    std::lock_guard lock(m_mutex);
    m_state.changed();
    return m_state.documents.erase(id) > 0;
}

std::optional<Json> PaperlessServer::document(Id id) const {
    std::lock_guard lock(m_mutex);
    const auto* found = m_state.liveDocument(id);
    return found == nullptr ? std::nullopt : std::optional(documentJson(m_state, *found));
}

std::vector<Json> PaperlessServer::documents() const {
    std::lock_guard lock(m_mutex);
    std::vector<Json> list;
    for (const auto& [id, document] : m_state.documents) {
        if (!document.deletedAt) list.push_back(documentJson(m_state, document));
    }
    return list;
}

std::vector<Id> PaperlessServer::documentIds() const {
    std::lock_guard lock(m_mutex);
    std::vector<Id> ids;
    for (const auto& [id, document] : m_state.documents) {
        if (!document.deletedAt) ids.push_back(id);
    }
    return ids;
}

Id PaperlessServer::add(std::string_view table, const Json& fields) {
    std::lock_guard lock(m_mutex);
    return onTable(m_state, table, [&](auto& records) {
        typename std::decay_t<decltype(records)>::mapped_type record;
        record.id = fields.value("id", Id(0));
        if (record.id == 0) record.id = m_state.takeId(std::string(table));
        m_state.reserveId(std::string(table), record.id);
        apply(m_state, record, fields);
        auto id = record.id;
        records[id] = std::move(record);
        m_state.changed();
        return id;
    });
}

bool PaperlessServer::edit(std::string_view table, Id id, const Json& fields) {
    std::lock_guard lock(m_mutex);
    return onTable(m_state, table, [&](auto& records) {
        auto found = records.find(id);
        if (found == records.end()) return false;
        apply(m_state, found->second, fields);
        m_state.changed();
        return true;
    });
}

bool PaperlessServer::remove(std::string_view table, Id id) {
    std::lock_guard lock(m_mutex);
    auto exists = onTable(m_state, table, [&](auto& records) { return records.contains(id); });
    if (!exists) return false;
    if (auto kind = kindOf(table)) {
        removeAttribute(m_state, *kind, id);
    } else if (table == "custom_fields") {
        removeCustomField(m_state, id);
    } else if (table == "users") {
        removeUser(m_state, id);
    } else if (table == "groups") {
        removeGroup(m_state, id);
    } else {
        onTable(m_state, table, [&](auto& records) { return records.erase(id); });
        m_state.changed();
    }
    return true;
}

Json PaperlessServer::recordJson(std::string_view table, Id id) const {
    if (auto kind = kindOf(table)) {
        AttributeShape shape;
        shape.fullPermissions = true;
        return attributeJson(m_state, *kind, m_state.table(*kind).at(id), shape);
    }
    if (table == "custom_fields") return customFieldJson(m_state.customFields.at(id), {}, std::nullopt);
    if (table == "saved_views") return savedViewJson(m_state.savedViews.at(id), {}, true, {});
    if (table == "users") return userJson(m_state, m_state.users.at(id));
    if (table == "groups") return groupJson(m_state.groups.at(id));
    return shareLinkJson(m_state.shareLinks.at(id));
}

std::vector<Id> PaperlessServer::idsOf(std::string_view table) const {
    return onTable(m_state, table, [](const auto& records) {
        std::vector<Id> ids;
        for (const auto& [id, record] : records)
            ids.push_back(id);
        return ids;
    });
}

std::optional<Json> PaperlessServer::record(std::string_view table, Id id) const {
    std::lock_guard lock(m_mutex);
    auto ids = idsOf(table);
    if (std::find(ids.begin(), ids.end(), id) == ids.end()) return std::nullopt;
    return recordJson(table, id);
}

std::vector<Json> PaperlessServer::records(std::string_view table) const {
    std::lock_guard lock(m_mutex);
    std::vector<Json> list;
    for (auto id : idsOf(table))
        list.push_back(recordJson(table, id));
    return list;
}

std::vector<LoggedRequest> PaperlessServer::requests() const {
    return requests({});
}

std::vector<LoggedRequest> PaperlessServer::requests(std::string_view start) const {
    std::lock_guard lock(m_logMutex);
    std::vector<LoggedRequest> list;
    std::copy_if(m_log.begin(), m_log.end(), std::back_inserter(list),
                 [&](const LoggedRequest& logged) { return startsWith(logged, start); });
    return list;
}

std::size_t PaperlessServer::requestCount(std::string_view start) const {
    std::lock_guard lock(m_logMutex);
    return std::size_t(std::count_if(m_log.begin(), m_log.end(),
                                     [&](const LoggedRequest& logged) { return startsWith(logged, start); }));
}

void PaperlessServer::clearRequests() {
    std::lock_guard lock(m_logMutex);
    m_log.clear();
}

bool PaperlessServer::waitForRequests(std::size_t count, std::string_view start,
                                      std::chrono::milliseconds timeout) const {
    std::unique_lock lock(m_logMutex);
    return m_logged.wait_for(lock, timeout, [&] {
        return std::size_t(std::count_if(m_log.begin(), m_log.end(), [&](const LoggedRequest& logged) {
                   return startsWith(logged, start);
               })) >= count;
    });
}

void PaperlessServer::setLogging(bool on) {
    std::lock_guard lock(m_logMutex);
    m_logging = on;
}

std::filesystem::path PaperlessServer::dataFolder() {
    if (const auto* folder = std::getenv("LF_TEST_DATA"); folder != nullptr && *folder != '\0') return folder;
    return LEDGERFINCH_TEST_DATA;
}

} // namespace ledgerfinch::support
