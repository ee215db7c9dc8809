// SPDX-License-Identifier: GPL-3.0-or-later
// A document server for tests, demos and benchmarks: real HTTP on 127.0.0.1, records in memory, the answers of a
// Paperless-ngx 2.20.15.
#pragma once

#include "support/PaperlessServerFaults.h"
#include "support/PaperlessServerModes.h"
#include "support/PaperlessServerRecords.h"
#include "support/PaperlessServerSamples.h"
#include "support/PaperlessServerSeed.h"
#include "support/PaperlessServerWire.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch::support {

class HttpFace;
class Routes;

struct LoggedRequest {
    Request request; ///< method, target, path, query, headers (names in lower case), body, form parts
    int status = 0;
};

/// All members are safe to call from any thread, also while the server answers.
class PaperlessServer {
public:
    PaperlessServer();
    ~PaperlessServer();
    PaperlessServer(const PaperlessServer&) = delete;
    PaperlessServer& operator=(const PaperlessServer&) = delete;

    // Data to begin with. Both replace what is there.

    /// The recorded server's 252 documents (259 after the uploads) and their attributes. Others of the same kind are
    /// "2.20.15-again", "2.7.2" (112 documents) and "3.0.5"; the mode is set apart from that.
    void seedFromRecordings(RecordedMoment moment = RecordedMoment::AfterUploads, const std::string& server = {});
    /// Five users (admin, alice, bob, carol, dora), attributes and `documents` made-up documents.
    void generate(std::size_t documents, const SampleOptions& options = {});
    /// The five users and nothing else.
    void clear();

    // The server itself.

    /// Starts on 127.0.0.1; port 0 takes a free one. Throws std::runtime_error when it can't.
    void start(int port = 0);
    void stop();
    /// "http://127.0.0.1:12345", without a slash at the end. Keeps its value after stop().
    std::string url() const;
    int port() const;
    /// Which release it is from the next request on; the default is 2.20.15. The records stay and show themselves in
    /// the form of the other release: a server that is upgraded, or set back, while a client talks to it.
    void setMode(ServerMode mode);
    /// The same before the request that follows the next `requests` ones whose "METHOD /path?query" begin with `start`.
    void setModeAfter(std::size_t requests, ServerMode mode, std::string start = {});
    /// All it holds, to be put back later as from a backup: what came since is gone, and ids are given again.
    State snapshot() const;
    void restore(State records);
    ServerMode mode() const;
    /// A document goes on giving the id of a select option that is no more, as it does until the worker cleaned up.
    void setLeavesRemovedOptions(bool on);
    /// Release 3 makes a second document of a file it has, unless it is told to refuse it as the others do.
    void setRefusesDuplicates(bool on);
    /// Logins a minute and address before 429. Empty, the default: 5 for release 3, else any number. 0: any number.
    void setLoginLimit(std::optional<std::size_t> perMinute);
    /// What x-version says from now on, until the mode changes; the API versions stay those of the mode.
    void setVersion(std::string version);
    /// Sets the server's clock; it goes on from there.
    void setTime(Micros time);
    /// How uploads become documents; the default is one step per look at the task.
    void setTaskPace(TaskPace pace);
    /// Takes the pending and started tasks to their end, or one of them a step on.
    void finishTasks();
    void advanceTask(Id task);
    PaperlessServerFaults& faults();

    // Accounts.

    static std::string password(std::string_view user) { return std::string(user) + "-pass"; }
    std::string token(std::string_view user = "admin") const;
    std::map<std::string, std::string> tokens() const;

    // Documents, as JSON in the form of the server with full permissions.

    /// Fields as in the record; what is missing gets a default. The change is dated now. Returns the id.
    Id addDocument(const Json& fields = Json::object());
    /// Dates the change now unless the fields have "modified". False when there is no such document.
    bool editDocument(Id id, const Json& fields);
    /// Removes it for good.
    bool removeDocument(Id id);
    std::optional<Json> document(Id id) const;
    /// All that aren't in the trash, by id.
    std::vector<Json> documents() const;
    std::vector<Id> documentIds() const;

    // Everything else by the name in its path: "tags", "correspondents", "document_types", "storage_paths",
    // "custom_fields", "saved_views", "users", "groups", "share_links". Other names throw std::invalid_argument.

    Id add(std::string_view table, const Json& fields);
    bool edit(std::string_view table, Id id, const Json& fields);
    /// Mentions of the record go too, as the server removes them.
    bool remove(std::string_view table, Id id);
    std::optional<Json> record(std::string_view table, Id id) const;
    std::vector<Json> records(std::string_view table) const;

    /// Runs a function on the records, under the lock.
    template <typename Function>
    auto withState(Function function) {
        std::lock_guard lock(m_mutex);
        m_state.changed();
        return function(m_state);
    }

    // What was asked, in order of arrival.

    std::vector<LoggedRequest> requests() const;
    /// Those whose "METHOD /path?query" begins with this text.
    std::vector<LoggedRequest> requests(std::string_view start) const;
    std::size_t requestCount(std::string_view start = {}) const;
    void clearRequests();
    /// Waits until so many requests that begin with this text were answered; false after the time.
    bool waitForRequests(std::size_t count, std::string_view start = {},
                         std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
    /// Request logging costs memory; benchmarks switch it off.
    void setLogging(bool on);

    /// The folder of recorded data: LF_TEST_DATA or the source tree's.
    static std::filesystem::path dataFolder();

private:
    struct ModeChange {
        std::size_t left = 0; ///< requests before it
        ServerMode mode = ServerMode::V2_20;
        std::string start;
    };
    void become(ServerMode mode);
    void changeModeBefore(const Request& request);
    Json recordJson(std::string_view table, Id id) const;
    std::vector<Id> idsOf(std::string_view table) const;

    mutable std::mutex m_mutex;
    State m_state;
    std::unique_ptr<Routes> m_routes;
    std::vector<ModeChange> m_modeChanges;
    PaperlessServerFaults m_faults;
    mutable std::mutex m_logMutex;
    mutable std::condition_variable m_logged;
    std::vector<LoggedRequest> m_log;
    bool m_logging = true;
    std::unique_ptr<HttpFace> m_face;
};

} // namespace ledgerfinch::support
