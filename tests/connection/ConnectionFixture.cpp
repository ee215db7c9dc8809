// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ConnectionFixture.h"

#include "connection/endpoints/Attributes.h"
#include "connection/endpoints/Documents.h"

namespace ledgerfinch::test {

ConnectionTest::ConnectionTest() {
    auto paths = Paths::standard(folder.path());
    services.paths = paths.value();
    services.log = log;
    services.defaults = std::move(UserDefaults::open(services.paths.config / "settings.ini").value());
    auto memory = std::make_unique<MemorySecretStore>();
    secrets = memory.get();
    services.secrets = std::move(memory);
    services.files = makeFileSystem();
    services.http = std::make_unique<HttpSession>();
    auto standing = std::make_unique<StandingClock>();
    clock = standing.get();
    services.clock = std::move(standing);
    services.idle = makeNullIdleInhibitor();
    mainQueue::sync([this] { core = std::make_unique<CoreDataHandler>(services); });
    server.start();
}

ConnectionTest::~ConnectionTest() {
    mainQueue::sync([this] { core.reset(); });
}

std::shared_ptr<ApiHandler> ConnectionTest::handlerFor(const std::string& user) {
    (void)services.defaults->set(server.url() + "currentUserId", std::int64_t{3});
    return ApiHandler::withToken(services, *core, server.url(), server.token(user));
}

FetchOptions ConnectionTest::options() const {
    return {core->backgroundContext(), {}, {}};
}

void ConnectionTest::mirror(ApiHandler& api) {
    fetchGroups(api, options());
    fetchUsers(api, options());
    ASSERT_EQ(fetchTags(api, options()), 200);
    ASSERT_EQ(fetchDocumentTypes(api, options()), 200);
    ASSERT_EQ(fetchCorrespondents(api, options()), 200);
    ASSERT_EQ(fetchStoragePaths(api, options()), 200);
    ASSERT_EQ(fetchCustomFields(api, options()), 200);
    ASSERT_EQ(fetchSavedViews(api, options()), 200);
    ASSERT_EQ(fetchAllDocuments(api, options()), 200);
}

LoggedRequest ConnectionTest::onlyRequest(std::string_view start) {
    // A request is noted once its answer is out, so it may still be on its way into the log.
    EXPECT_TRUE(server.waitForRequests(1, start)) << start;
    const auto requests = server.requests(start);
    EXPECT_EQ(requests.size(), 1U) << start;
    return requests.empty() ? LoggedRequest{} : requests.front();
}

void ConnectionTest::inStore(const std::function<void(ManagedObjectContext&)>& work) {
    const auto context = core->backgroundContext();
    context->performAndWait([&] { work(*context); });
}

std::string ConnectionTest::everythingWritten() const {
    std::string all = contentOf(services.paths.config / "settings.ini");
    for (const auto& record : log->records())
        all += record.message + "\n";
    return all;
}

std::vector<std::string> keysOf(const std::string& body) {
    std::vector<std::string> keys;
    const auto object = Json::parse(body);
    for (const auto& [key, value] : object.items())
        keys.push_back(key);
    return keys;
}

} // namespace ledgerfinch::test
