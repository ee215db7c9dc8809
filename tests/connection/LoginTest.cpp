// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ConnectionFixture.h"

#include "connection/CustomHeaders.h"
#include "connection/KeychainHandler.h"
#include "connection/endpoints/Attributes.h"
#include "connection/endpoints/Files.h"

namespace ledgerfinch::test {
namespace {

using Login = ConnectionTest;

constexpr auto kAccount = KeychainHandler::kAccount;

void setHeaders(Services& services, const std::string& server,
                const std::vector<std::pair<std::string, std::string>>& entries) {
    CustomHeaders custom;
    for (const auto& [name, value] : entries)
        custom.headers.emplace_back(Uuid::random(), CustomHeader{name, value});
    ASSERT_TRUE(storeCustomHeaders(*services.defaults, server, custom).ok());
}

TEST_F(Login, WithAPasswordKeepsTheTokenAndLearnsTheUser) {
    const auto given = server.url() + "/";
    const auto handler = ApiHandler::login(services, *core, given, "alice", "alice-pass");
    EXPECT_EQ(handler->Error(), "Success");
    EXPECT_EQ(handler->Server(), server.url());
    EXPECT_EQ(handler->Token(), server.token("alice"));
    EXPECT_EQ(services.defaults->string("server"), given);
    EXPECT_EQ(secrets->read(server.url(), kAccount).data, server.token("alice"));

    const auto asked = onlyRequest("POST ").request;
    EXPECT_EQ(asked.target, "/api/token/");
    EXPECT_EQ(keysOf(asked.body), (std::vector<std::string>{"username", "password"}));
    EXPECT_EQ(asked.header("content-type"), "application/json");
    EXPECT_EQ(asked.header("authorization"), "");

    const auto settings = onlyRequest("GET /api/ui_settings/").request;
    EXPECT_EQ(settings.header("accept"), "application/json; version=2");
    EXPECT_EQ(settings.header("authorization"), "Token " + server.token("alice"));
    // The id that was fetched reaches the next handler.
    EXPECT_EQ(handler->currentUserID(), 0);
    EXPECT_EQ(ApiHandler::withToken(services, *core, given, handler->Token())->currentUserID(), 4);
    (void)onlyRequest("GET /api/ui_settings/");
}

TEST_F(Login, TellsEveryFailureByItsText) {
    struct Case {
        std::optional<Fault> fault;
        std::string password;
        std::string error;
    };
    const auto elsewhere = "http://127.0.0.1:9/api/token/";
    const std::vector<Case> cases{
        {std::nullopt, "wrong", "Server responded: 400"},
        {Fault::answer(200, "{}"), "alice-pass", "Login Information incorrect!"},
        {Fault::answer(200, R"({"token":7})"), "alice-pass", "Login Information incorrect!"},
        {Fault::answer(503, "busy", "text/plain"), "alice-pass", "Server responded: 503"},
        {Fault::answer(500, R"({"token":"stray"})"), "alice-pass", "Server responded: 500"},
        {Fault::htmlPage(), "alice-pass", "Couldn't connect to server"},
        {Fault::redirect(elsewhere), "alice-pass", "Server responded: 302"},
    };
    for (const auto& each : cases) {
        server.faults().clear();
        if (each.fault) server.faults().onPath("POST /api/token/", *each.fault);
        const auto handler = ApiHandler::login(services, *core, server.url(), "alice", each.password);
        EXPECT_EQ(handler->Error(), each.error);
        EXPECT_EQ(handler->Token(), "");
        EXPECT_EQ(secrets->read(server.url(), kAccount).state, SecretState::Missing) << each.error;
    }
    EXPECT_EQ(server.requestCount("GET "), 0U);
}

TEST_F(Login, TellsWhyNobodyAnswered) {
    for (const auto& fault : {Fault::cutBody(5), Fault::dropConnection(), Fault::garbage()}) {
        server.faults().clear();
        server.faults().onPath("POST /api/token/", fault);
        const auto handler = ApiHandler::login(services, *core, server.url(), "alice", "alice-pass");
        EXPECT_NE(handler->Error(), "Success");
        EXPECT_NE(handler->Error(), "Couldn't connect to server");
        EXPECT_EQ(handler->Token(), "");
    }
    server.stop();
    const auto handler = ApiHandler::login(services, *core, server.url(), "alice", "alice-pass");
    EXPECT_TRUE(log->contains("URLSession returned error: " + handler->Error()));
}

TEST_F(Login, ATokenThatCannotBeKeptIsNoSuccess) {
    secrets->setLocked(true);
    const auto handler = ApiHandler::login(services, *core, server.url(), "alice", "alice-pass");
    EXPECT_NE(handler->Error(), "Success");
    EXPECT_TRUE(log->contains("Keychainhandler: Error: "));
}

TEST_F(Login, WithoutAServerTouchesNothing) {
    const auto handler = ApiHandler::login(services, *core, "", "a", "b");
    EXPECT_TRUE(handler->isInert());
    EXPECT_FALSE(services.defaults->string("server"));
    EXPECT_TRUE(ApiHandler::inert(services, *core)->isInert());
}

TEST_F(Login, ATypedTokenPassesUnlessTheServerRefusesIt) {
    const auto check = [this](const std::string& token) {
        return ApiHandler::checkToken(services, server.url() + "/", token);
    };
    EXPECT_EQ(check(server.token("bob")), std::nullopt);
    const auto asked = onlyRequest("GET ").request;
    EXPECT_EQ(asked.target, "/api/documents/?query=");
    EXPECT_EQ(check("nonsense"), ApiError::invalidCredentials());
    EXPECT_EQ(check("two\r\nlines"), ApiError::invalidCredentials());
    server.faults().onPath("GET /api/documents/", Fault::answer(500));
    EXPECT_EQ(check(server.token("bob")), std::nullopt);
    server.stop();
    EXPECT_EQ(check(server.token("bob")), std::nullopt);
    EXPECT_EQ(ApiHandler::checkToken(services, "http://a b", "t"), ApiError::invalidURL());
    EXPECT_FALSE(services.defaults->string("server"));
}

TEST_F(Login, RestoresFromTheSecretStoreUnderEitherForm) {
    using Handler = std::shared_ptr<ApiHandler>;
    const auto restore = [this](const std::string& address) {
        return ApiHandler::restore(services, *core, address);
    };
    EXPECT_TRUE(std::holds_alternative<ApiHandler::NoToken>(restore(server.url())));
    secrets->setLocked(true);
    EXPECT_TRUE(std::holds_alternative<ApiHandler::SecretsUnavailable>(restore(server.url())));
    secrets->setLocked(false);

    ASSERT_TRUE(KeychainHandler(services).saveToken("refused", server.url()).ok());
    EXPECT_TRUE(std::holds_alternative<ApiHandler::Refused>(restore(server.url())));

    // Kept under the form with the slash; the older one without must not be found any more.
    ASSERT_TRUE(KeychainHandler(services).saveToken(server.token("bob"), server.url() + "/").ok());
    (void)services.defaults->set("offlineMode", true);
    auto restored = restore(server.url());
    ASSERT_TRUE(std::holds_alternative<Handler>(restored));
    EXPECT_EQ(std::get<Handler>(restored)->Token(), server.token("bob"));
    EXPECT_EQ(services.defaults->boolean("offlineMode"), false);
    EXPECT_FALSE(services.defaults->string("server"));

    server.stop();
    EXPECT_TRUE(std::holds_alternative<Handler>(restore(server.url()))) << "local data stays usable";
}

TEST_F(Login, OnlyTheTagsFetchErasesARefusedToken) {
    ASSERT_TRUE(KeychainHandler(services).saveToken("stale", server.url() + "/").ok());
    (void)services.defaults->set(server.url() + "currentUserId", std::int64_t{3});
    const auto handler = ApiHandler::withToken(services, *core, server.url(), "stale");
    EXPECT_EQ(fetchCorrespondents(*handler, options()), 401);
    EXPECT_EQ(handler->Token(), "stale");
    EXPECT_EQ(fetchTags(*handler, options()), 401);
    EXPECT_EQ(handler->Token(), "");
    EXPECT_EQ(secrets->read(server.url() + "/", kAccount).state, SecretState::Missing);
    EXPECT_TRUE(log->contains("server didn't accept stored token!"));

    // A token that was obtained meanwhile isn't the refused one.
    const auto older = ApiHandler::withToken(services, *core, server.url(), "stale");
    ASSERT_TRUE(KeychainHandler(services).saveToken("fresh", server.url()).ok());
    EXPECT_EQ(fetchTags(*older, options()), 401);
    EXPECT_EQ(secrets->read(server.url(), kAccount).data, "fresh");
}

TEST_F(Login, CustomHeadersGoAlongButNeverReplaceTheToken) {
    server.generate(1);
    setHeaders(services, server.url() + "/",
               {{"Authorization", "Basic stolen"}, {"Accept", "text/custom"}, {"X-Proxy", "proxy-secret"}});
    const auto handler = handlerFor("admin");
    EXPECT_EQ(fetchTags(*handler, options()), 200);
    const auto list = onlyRequest("GET /api/tags/").request;
    EXPECT_EQ(list.header("authorization"), "Token " + server.token("admin"));
    EXPECT_EQ(list.header("x-proxy"), "proxy-secret");
    EXPECT_EQ(list.header("accept"), "application/json; version=2");
    (void)downloadThumbnail(*handler, 1);
    EXPECT_EQ(onlyRequest("GET /api/documents/1/thumb/").request.header("accept"), "text/custom");

    (void)ApiHandler::login(services, *core, server.url(), "alice", "alice-pass");
    EXPECT_EQ(onlyRequest("POST /api/token/").request.header("x-proxy"), "proxy-secret");
}

TEST_F(Login, SecretsStayOutOfLogAndSettings) {
    setHeaders(services, server.url(), {{"X-Proxy", "proxy-secret"}});
    const auto settings = contentOf(services.paths.config / "settings.ini");
    const auto handler = ApiHandler::login(services, *core, server.url(), "alice", "alice-pass");
    (void)ApiHandler::login(services, *core, server.url(), "alice", "wrong-password");
    (void)ApiHandler::checkToken(services, server.url(), "typed-token");
    (void)fetchTags(*handler, options());
    server.faults().onPath("GET /api/users/", Fault::redirect("http://127.0.0.1:9/"));
    (void)fetchUsers(*handler, options());
    std::string written;
    for (const auto& record : log->records())
        written += record.message + "\n";
    EXPECT_EQ(written.find("proxy-secret"), std::string::npos);
    written += contentOf(services.paths.config / "settings.ini");
    for (const auto& secret :
         {server.token("alice"), std::string("alice-pass"), std::string("wrong-password"), std::string("typed-token")})
        EXPECT_EQ(written.find(secret), std::string::npos) << secret;
    EXPECT_NE(written.find("HEADERS: X-Proxy: <private>"), std::string::npos);
}

TEST_F(Login, HalfALoginLeavesNothing) {
    Cancellation cancellation;
    Fault cancelling;
    cancelling.rewrite = [&](const std::string& body, const std::string&) {
        cancellation.cancel();
        return body;
    };
    server.faults().onPath("POST ", cancelling, 1);
    (void)ApiHandler::login(services, *core, server.url(), "alice", "alice-pass", &cancellation);
    (void)ApiHandler::login(services, *core, server.url(), "alice", "wrong");
    EXPECT_FALSE(services.defaults->string("server"));
    EXPECT_FALSE(services.defaults->string(ConnectedInstances::kKey));
    EXPECT_EQ(secrets->read(server.url(), kAccount).state, SecretState::Missing);
    // Where the token can't be kept the entry is there, but the server isn't active.
    secrets->setLocked(true);
    (void)ApiHandler::login(services, *core, server.url(), "alice", "alice-pass");
    EXPECT_FALSE(services.defaults->string("server"));
    secrets->setLocked(false);
    const auto later =
        ApiHandler::login(services, *core, server.url(), "alice", "alice-pass", nullptr, ApiHandler::Activation::Later);
    EXPECT_EQ(later->Error(), "Success");
    EXPECT_FALSE(services.defaults->string("server"));
    EXPECT_NE(ConnectedInstances::load(*services.defaults).find(server.url()), nullptr);
}

TEST_F(Login, WhoDoesNotAnswerIsAskedOnce) {
    ASSERT_TRUE(KeychainHandler(services).saveToken(server.token(), server.url()).ok());
    server.faults().onPath("GET /api/documents/", Fault::dropConnection());
    EXPECT_TRUE(std::holds_alternative<std::shared_ptr<ApiHandler>>(
        ApiHandler::restore(services, *core, server.url(), ApiHandler::Activation::Later)));
    EXPECT_EQ(server.requestCount("GET /api/ui_settings/"), 0U);
    EXPECT_FALSE(services.defaults->boolean("offlineMode"));
}

TEST_F(Login, ARefusedTokenIsRememberedWhereTheSecretsAreLocked) {
    ASSERT_TRUE(KeychainHandler(services).saveToken("fresh", server.url()).ok());
    (void)services.defaults->set(server.url() + "currentUserId", std::int64_t{3});
    const auto handler = ApiHandler::withToken(services, *core, server.url(), "stale");
    EXPECT_FALSE(handler->isTokenRefused());
    secrets->setLocked(true);
    EXPECT_EQ(fetchTags(*handler, options()), 401);
    secrets->setLocked(false);
    EXPECT_TRUE(handler->isTokenRefused());
    EXPECT_EQ(handler->Token(), "");
    EXPECT_EQ(secrets->read(server.url(), kAccount).data, "fresh");
}

} // namespace
} // namespace ledgerfinch::test
