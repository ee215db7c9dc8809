// SPDX-License-Identifier: GPL-3.0-or-later
// What a login, a logout or a removal leaves behind when it doesn't go through, and what it tells then.
#include "connection/ConnectionFixture.h"

#include "connection/CustomHeaders.h"
#include "connection/KeychainHandler.h"
#include "connection/LoginRecord.h"
#include "connection/RemoveInstance.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace ledgerfinch::test {
namespace {

using ::testing::HasSubstr;

class LoginTrace : public ConnectionTest {
protected:
    static constexpr auto kAccount = KeychainHandler::kAccount;

    /// A folder in the place of the settings' lock file: nothing can be written until it is gone.
    void blockSettings(bool block = true) {
        const auto lock = services.paths.config / "settings.ini.lock";
        std::filesystem::remove_all(lock);
        if (block) std::filesystem::create_directory(lock);
    }
    std::shared_ptr<ApiHandler> login(Cancellation* cancellation = nullptr) {
        return ApiHandler::login(services, *core, server.url(), "alice", "alice-pass", cancellation);
    }
    /// The token and the settings, as far as they are about the server.
    std::string trace() {
        const auto reading = secrets->read(server.url(), kAccount);
        const auto connected = ConnectedInstances::load(*services.defaults);
        const auto* entry = connected.find(server.url());
        return (reading.state == SecretState::Found ? reading.data : "no token") + ", " +
               (entry ? entry->second.store + " " + entry->second.serverVersion : "no entry") + ", " +
               (services.defaults->integer(server.url() + "currentUserId") ? "user" : "no user") + ", " +
               services.defaults->string("server").value_or("no server");
    }
    void cancelOn(const std::string& path, Cancellation& cancellation) {
        Fault fault;
        fault.rewrite = [&cancellation](const std::string& body, const std::string&) {
            cancellation.cancel();
            return body;
        };
        server.faults().clear();
        server.faults().onPath(path, fault, 1);
    }
};

TEST_F(LoginTrace, ACancelledLoginTakesBackWhatItHasKept) {
    const auto before = trace();
    Cancellation cancellation;
    cancelOn("GET /api/ui_settings/", cancellation);
    const auto cancelled = login(&cancellation);
    EXPECT_EQ(cancelled->failure(), ApiError::cancelled());
    EXPECT_EQ(trace(), before);

    // A server that was known keeps its entry, and the token that it had.
    server.faults().clear();
    ASSERT_EQ(login()->Error(), "Success");
    ASSERT_TRUE(KeychainHandler(services).saveToken("older", server.url()).ok());
    ASSERT_TRUE(updateInstance(*services.defaults, server.url(), std::nullopt, "1.2.3").ok());
    (void)services.defaults->remove(server.url() + "currentUserId");
    const auto known = trace();
    Cancellation second;
    cancelOn("GET /api/ui_settings/", second);
    (void)login(&second);
    EXPECT_EQ(trace(), known);
}

TEST_F(LoginTrace, AnUndoneLoginSparesWhatOthersSavedMeanwhile) {
    LoginRecord record(services, server.url(), server.url());
    ASSERT_FALSE(record.keep("mine", std::nullopt));
    ASSERT_TRUE(KeychainHandler(services).saveToken("newer", server.url()).ok());
    record.undo();
    EXPECT_EQ(secrets->read(server.url(), kAccount).data, "newer");
    record.undo();
}

TEST_F(LoginTrace, SettingsThatCannotBeWrittenAreToldAsSuch) {
    const auto before = trace();
    blockSettings();
    const auto refused = login();
    ASSERT_TRUE(refused->failure());
    EXPECT_EQ(refused->failure()->kind, ApiError::Case::settingsUnwritable);
    EXPECT_TRUE(refused->failure()->isLocal());
    EXPECT_THAT(refused->Error(), HasSubstr("The settings could not be written: "));
    EXPECT_EQ(refused->Token(), "");
    EXPECT_EQ(trace(), before);
    blockSettings(false);
    EXPECT_EQ(trace(), before) << "nor afterwards";

    secrets->setLocked(true);
    const auto locked = login();
    ASSERT_TRUE(locked->failure());
    EXPECT_EQ(locked->failure()->kind, ApiError::Case::secretsUnavailable);
    secrets->setLocked(false);
    EXPECT_EQ(trace(), before);
    EXPECT_EQ(login()->Error(), "Success");
}

TEST_F(LoginTrace, ALogoutTellsWhyItDidNotComeAbout) {
    ASSERT_EQ(login()->Error(), "Success");
    (void)services.defaults->set("biometricUnlock", true);
    secrets->setLocked(true);
    auto failure = logOut(services);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind, ApiError::Case::secretsNotRemoved);
    EXPECT_EQ(services.defaults->boolean("biometricUnlock"), true);
    secrets->setLocked(false);
    EXPECT_EQ(secrets->read(server.url(), kAccount).state, SecretState::Found);

    blockSettings();
    failure = logOut(services);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind, ApiError::Case::settingsUnwritable);
    blockSettings(false);
    EXPECT_EQ(logOut(services), std::nullopt);
    EXPECT_EQ(secrets->read(server.url(), kAccount).state, SecretState::Missing);
    EXPECT_EQ(services.defaults->boolean("biometricUnlock"), false);
    // Nothing to write, nothing to fail.
    blockSettings();
    EXPECT_EQ(logOut(services), std::nullopt);
    blockSettings(false);
}

TEST_F(LoginTrace, ARemovedInstanceLeavesNothingInSettingsAndSecrets) {
    ASSERT_EQ(login()->Error(), "Success");
    ASSERT_TRUE(registerInstance(*services.defaults, "https://stays").ok());
    ASSERT_TRUE(KeychainHandler(services).saveToken("stays", "https://stays").ok());
    CustomHeaders custom;
    custom.headers.emplace_back(Uuid::random(), CustomHeader{"X-Proxy", "key"});
    ASSERT_TRUE(storeCustomHeaders(*services.defaults, server.url() + "/", custom).ok());
    (void)services.defaults->set("server", "https://stays");

    secrets->setLocked(true);
    const auto locked = removeInstance(services, server.url());
    ASSERT_TRUE(locked.error);
    EXPECT_EQ(locked.error->kind, ApiError::Case::secretsNotRemoved);
    secrets->setLocked(false);
    EXPECT_NE(ConnectedInstances::load(*services.defaults).find(server.url()), nullptr) << "for another try";

    const auto removed = removeInstance(services, server.url() + "/");
    EXPECT_FALSE(removed.error);
    ASSERT_TRUE(removed.entry);
    EXPECT_TRUE(removed.ownedStore);
    const auto settings = contentOf(services.paths.config / "settings.ini");
    EXPECT_EQ(settings.find("127.0.0.1"), std::string::npos) << settings;
    EXPECT_EQ(secrets->read(server.url(), kAccount).state, SecretState::Missing);
    EXPECT_EQ(secrets->read("https://stays", kAccount).data, "stays");
    EXPECT_NE(ConnectedInstances::load(*services.defaults).find("https://stays"), nullptr);
    EXPECT_FALSE(removeInstance(services, server.url()).entry);
}

} // namespace
} // namespace ledgerfinch::test
