// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ConnectionFixture.h"

#include "connection/CustomHeaders.h"
#include "connection/InstanceSwitch.h"
#include "connection/KeychainHandler.h"
#include "connection/screens/AddInstanceView.h"
#include "connection/screens/LoginView.h"
#include "connection/screens/ManageInstancesView.h"

#include <filesystem>
#include <future>
#include <thread>

namespace ledgerfinch::test {
namespace {

class Screens : public ConnectionTest {
protected:
    static constexpr auto kAccount = KeychainHandler::kAccount;

    /// "127.0.0.1:port", as a person types it.
    QString typedServer() { return QString::fromStdString(server.url().substr(std::string("http://").size())); }

    template <class View>
    std::shared_ptr<View> make() {
        std::shared_ptr<View> view;
        mainQueue::sync([&] {
            // Screens live and die on the main thread.
            view = std::shared_ptr<View>(new View(services, *core),
                                         [](View* dying) { mainQueue::sync([dying] { delete dying; }); });
        });
        return view;
    }
    template <class Form>
    std::shared_ptr<Form> form(const QString& user = QStringLiteral("alice"),
                               const QString& password = QStringLiteral("alice-pass")) {
        auto view = make<Form>();
        mainQueue::sync([&] {
            view->setConnectionProtocol(QStringLiteral("http://"));
            view->setServer(typedServer());
            view->setUser(user);
            view->setPass(password);
        });
        return view;
    }
    /// Starts something on the main thread and waits until the screen isn't busy any more.
    template <class View, class Start, class Signal, class Busy>
    void runUntilIdle(const std::shared_ptr<View>& view, Start start, Signal signal, Busy busy) {
        std::promise<void> idle;
        bool told = false;
        QMetaObject::Connection connection;
        mainQueue::sync([&] {
            connection = QObject::connect(view.get(), signal, [&] {
                if (told || busy(*view)) return;
                told = true;
                idle.set_value();
            });
            start(*view);
            if (!busy(*view) && !told) {
                told = true;
                idle.set_value();
            }
        });
        ASSERT_EQ(idle.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
        mainQueue::sync([&] { QObject::disconnect(connection); });
    }
    template <class Form>
    void submit(const std::shared_ptr<Form>& view) {
        runUntilIdle(
            view,
            [](Form& each) {
                if constexpr (std::is_same_v<Form, LoginView>)
                    each.login();
                else
                    each.connectToServer();
            },
            &ConnectForm::isBusyChanged, [](Form& each) { return each.isBusy(); });
    }
    template <class Form>
    std::string errorOf(const std::shared_ptr<Form>& view) {
        std::string text;
        mainQueue::sync([&] { text = view->error().toStdString(); });
        return text;
    }
};

using LoginScreen = Screens;

TEST_F(LoginScreen, TheServerHasItsOwnStoreBeforeItIsLoggedIn) {
    (void)services.defaults->set("offlineMode", true);
    (void)services.defaults->set("useiCloud", true);
    (void)services.defaults->set("lastSuccessfulSync", "2020-01-01");
    EXPECT_TRUE(core->isOfflineStore());
    const auto view = form<LoginView>();
    std::vector<std::string> atLogin;
    mainQueue::sync([&] {
        view->setServer(typedServer() + QStringLiteral("/"));
        QObject::connect(view.get(), &LoginView::loggedInChanged, [&] {
            atLogin = {core->storeName(), view->error().toStdString(), view->apiHandler()->Token()};
        });
    });
    submit(view);
    const auto connected = ConnectedInstances::load(*services.defaults);
    const auto* entry = connected.find(server.url());
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->first, server.url() + "/") << "as it was given";
    EXPECT_EQ(atLogin, (std::vector<std::string>{entry->second.store, "Success", server.token("alice")}));
    EXPECT_FALSE(core->isOfflineStore());
    EXPECT_EQ(services.defaults->boolean("offlineMode"), false);
    EXPECT_EQ(services.defaults->boolean("useiCloud"), false);
    EXPECT_EQ(services.defaults->string("lastSuccessfulSync"), "") << "another server's date";

    // A second login to the same server finds its store again.
    (void)updateInstance(*services.defaults, server.url(), "2026-11-22", "2.20.15");
    submit(form<LoginView>());
    EXPECT_EQ(ConnectedInstances::load(*services.defaults).instances.size(), 1U);
    EXPECT_EQ(services.defaults->string("lastSuccessfulSync"), "2026-11-22");
    EXPECT_EQ(services.defaults->string("server_version"), "2.20.15");
}

TEST_F(LoginScreen, FailuresLeaveEverythingAsItWas) {
    const auto view = form<LoginView>(QStringLiteral("alice"), QStringLiteral("wrong"));
    submit(view);
    EXPECT_EQ(errorOf(view), "Server responded: 400");
    mainQueue::sync([&] { view->setServer(QStringLiteral("no good")); });
    submit(view);
    EXPECT_EQ(errorOf(view), "Server address is invalid!");
    EXPECT_FALSE(view->loggedIn());
    EXPECT_TRUE(core->isOfflineStore());
    EXPECT_FALSE(services.defaults->string(ConnectedInstances::kKey));
    (void)onlyRequest("POST ");
}

TEST_F(LoginScreen, ATokenIsTriedThenKept) {
    const auto view = form<LoginView>();
    mainQueue::sync([&] {
        EXPECT_EQ(view->switchLoginText(), QStringLiteral("Log in with token"));
        view->setLoginWithToken(true);
        EXPECT_EQ(view->switchLoginText(), QStringLiteral("Log in with username"));
        view->setToken(QStringLiteral("refused"));
        EXPECT_EQ(view->customHeadersText(), QStringLiteral("Add custom headers"));
        view->customHeaders()->add();
        view->customHeaders()->setHeader(0, QStringLiteral("X-Proxy"));
        view->customHeaders()->setValue(0, QStringLiteral("key"));
        EXPECT_EQ(view->customHeadersText(), QStringLiteral("Edit custom headers"));
    });
    submit(view);
    EXPECT_EQ(errorOf(view), "Invalid credentials");
    EXPECT_EQ(secrets->read(server.url(), kAccount).state, SecretState::Missing);
    EXPECT_EQ(onlyRequest("GET ").request.header("x-proxy"), "key") << "the first request carries them";

    mainQueue::sync([&] { view->setToken(QString::fromStdString(server.token("bob"))); });
    server.faults().onPath("GET /api/documents/", Fault::answer(500));
    submit(view);
    EXPECT_EQ(errorOf(view), "Success");
    EXPECT_TRUE(view->loggedIn());
    EXPECT_EQ(secrets->read(server.url(), kAccount).data, server.token("bob"));
}

TEST_F(LoginScreen, TheWindowLivesOnAndTheLoginCanBeCancelled) {
    server.faults().onPath("POST /api/token/", Fault::stall());
    const auto view = form<LoginView>();
    mainQueue::sync([&] {
        view->login();
        EXPECT_TRUE(view->isBusy());
    });
    // The main thread answers while the server doesn't.
    mainQueue::sync([&] {
        view->cancel();
        EXPECT_FALSE(view->isBusy());
    });
    server.faults().clear();
    submit(view);
    EXPECT_EQ(errorOf(view), "Success");

    server.faults().onPath("POST /api/token/", Fault::stall());
    const auto dying = form<LoginView>();
    mainQueue::sync([&] { dying->login(); });
}

TEST_F(LoginScreen, WhatACancelledLoginHasKeptIsTakenBack) {
    // The token is kept by the time that the user is asked for.
    server.faults().onPath("GET /api/ui_settings/", Fault::stall());
    auto view = form<LoginView>();
    mainQueue::sync([&] { view->login(); });
    ASSERT_TRUE(server.waitForRequests(1, "POST /api/token/"));
    while (secrets->read(server.url(), kAccount).state != SecretState::Found)
        std::this_thread::yield();
    mainQueue::sync([&] { view->cancel(); });
    view.reset(); // waits for what is under way
    EXPECT_EQ(secrets->read(server.url(), kAccount).state, SecretState::Missing);
    EXPECT_EQ(ConnectedInstances::load(*services.defaults).find(server.url()), nullptr);

    // So it is when the answer is in, but the person is quicker than the screen.
    server.faults().clear();
    view = form<LoginView>();
    mainQueue::sync([&] {
        view->login();
        // Meanwhile the worker ends; what it wants of the main thread has to wait.
        while (!services.defaults->integer(server.url() + "currentUserId"))
            std::this_thread::yield();
        view->cancel();
    });
    view.reset();
    EXPECT_EQ(secrets->read(server.url(), kAccount).state, SecretState::Missing);
    EXPECT_EQ(ConnectedInstances::load(*services.defaults).find(server.url()), nullptr);
    EXPECT_TRUE(core->isOfflineStore());
}

TEST_F(LoginScreen, TroubleOnThisDeviceIsNotToldAsTheServers) {
    const auto lock = services.paths.config / "settings.ini.lock";
    auto view = form<LoginView>();
    std::filesystem::remove(lock);
    std::filesystem::create_directory(lock);
    submit(view);
    EXPECT_EQ(errorOf(view).find("The settings could not be written: "), 0U) << errorOf(view);
    EXPECT_EQ(view->failure()->kind, ApiError::Case::settingsUnwritable);
    EXPECT_EQ(server.requestCount(), 0U) << "no password is sent for nothing";
    // The room runs out when all but the last step is done.
    std::filesystem::remove(lock);
    mainQueue::sync([&] {
        QObject::connect(view.get(), &LoginView::apiHandlerChanged,
                         [&] { std::filesystem::remove(lock), std::filesystem::create_directory(lock); });
    });
    submit(view);
    EXPECT_EQ(view->failure()->kind, ApiError::Case::settingsUnwritable);
    EXPECT_FALSE(view->loggedIn());
    EXPECT_TRUE(core->isOfflineStore());
    EXPECT_FALSE(services.defaults->string("server"));
    view.reset();
    EXPECT_EQ(secrets->read(server.url(), kAccount).state, SecretState::Missing);
    std::filesystem::remove(lock);

    secrets->setLocked(true);
    view = form<LoginView>();
    submit(view);
    EXPECT_EQ(view->failure()->kind, ApiError::Case::secretsUnavailable);
    secrets->setLocked(false);
    submit(view);
    EXPECT_EQ(errorOf(view), "Success");
    EXPECT_FALSE(view->failure());
}

TEST_F(LoginScreen, ACheckThatNobodyAnsweredIsNoReasonToAskOn) {
    server.faults().onPath("GET /api/documents/", Fault::dropConnection());
    const auto view = form<LoginView>();
    mainQueue::sync([&] {
        view->setLoginWithToken(true);
        view->setToken(QString::fromStdString(server.token("bob")));
    });
    submit(view);
    EXPECT_EQ(errorOf(view), "Success");
    EXPECT_EQ(server.requestCount("GET /api/ui_settings/"), 0U);
    EXPECT_NE(view->reason(), QString()) << "the person should know";
    server.faults().clear();
    submit(view);
    EXPECT_EQ(view->reason(), QString());
}

using AddInstanceScreen = Screens;

TEST_F(AddInstanceScreen, AnInstanceIsAddedWithAllOfItOrNotAtAll) {
    const auto view = form<AddInstanceView>();
    const auto lock = services.paths.config / "settings.ini.lock";
    std::filesystem::remove(lock);
    std::filesystem::create_directory(lock);
    submit(view);
    EXPECT_EQ(view->failure()->kind, ApiError::Case::settingsUnwritable);
    EXPECT_FALSE(view->showSuccess());
    std::filesystem::remove(lock);
    secrets->setLocked(true);
    submit(view);
    EXPECT_EQ(view->failure()->kind, ApiError::Case::secretsUnavailable);
    secrets->setLocked(false);
    EXPECT_EQ(ConnectedInstances::load(*services.defaults).find(server.url()), nullptr);
    EXPECT_EQ(secrets->read(server.url(), kAccount).state, SecretState::Missing);

    server.faults().onPath("POST ", Fault::redirect("https://elsewhere.example/login"));
    submit(view);
    EXPECT_EQ(errorOf(view), "Unexpected response: 302\n");
    EXPECT_NE(view->reason().toStdString().find("https://elsewhere.example."), std::string::npos);
}

TEST_F(AddInstanceScreen, ConnectsWithoutTouchingTheActiveServer) {
    (void)services.defaults->set("server", "https://active");
    const auto view = form<AddInstanceView>();
    mainQueue::sync([&] {
        view->setServer(typedServer() + QStringLiteral("/"));
        for (const auto* value : {"one", "two"}) {
            view->customHeaders()->add();
            view->customHeaders()->setHeader(view->customHeaders()->count() - 1, QStringLiteral("X-Proxy"));
            view->customHeaders()->setValue(view->customHeaders()->count() - 1, QString::fromLatin1(value));
        }
    });
    submit(view);
    EXPECT_EQ(errorOf(view), "");
    EXPECT_TRUE(view->showSuccess());
    const auto connected = ConnectedInstances::load(*services.defaults);
    ASSERT_TRUE(connected.instances.contains(server.url()));
    EXPECT_EQ(connected.instances.at(server.url()).lastSuccessfulSync, "");
    EXPECT_EQ(secrets->read(server.url(), kAccount).data, server.token("alice"));
    EXPECT_EQ(services.defaults->string("server"), "https://active");
    EXPECT_TRUE(core->isOfflineStore());
    const auto asked = onlyRequest("POST /api/token/").request;
    EXPECT_EQ(asked.header("x-proxy"), "one,two");
    EXPECT_EQ(keysOf(asked.body), (std::vector<std::string>{"username", "password"}));
    EXPECT_NE(AllCustomHeaders::load(*services.defaults).find(server.url()), nullptr);
}

TEST_F(AddInstanceScreen, TellsEveryFailureByItsText) {
    const auto view = form<AddInstanceView>(QStringLiteral("alice"), QStringLiteral("wrong"));
    submit(view);
    EXPECT_EQ(errorOf(view), "Invalid credentials");
    const std::vector<std::pair<Fault, std::string>> cases{
        {Fault::answer(503, "busy", "text/plain"), "Unexpected response: 503\nbusy"},
        {Fault::answer(400, R"({"username":["missing"]})"), "Unexpected response: 400\n{\"username\":[\"missing\"]}"},
        {Fault::answer(200, "{}"), "Unexpected response: 200\n{}"},
        {Fault::answer(200, R"({"token":"a b"})"), "Unexpected response: 200\n"},
        {Fault::answer(500, "\xff\xfe"), "Unexpected response: 500\n"},
        {Fault::dropConnection(), "Couldn't connect to server"},
        {Fault::cutBody(4), "Couldn't connect to server"}};
    for (const auto& [fault, text] : cases) {
        server.faults().clear();
        server.faults().onPath("POST ", fault);
        submit(view);
        EXPECT_EQ(errorOf(view), text);
    }
    mainQueue::sync([&] { view->setServer(QStringLiteral("a b")); });
    submit(view);
    EXPECT_EQ(errorOf(view), "Invalid URL");
    EXPECT_FALSE(view->showSuccess());
    EXPECT_FALSE(services.defaults->string(ConnectedInstances::kKey));
    EXPECT_EQ(secrets->read(server.url(), kAccount).state, SecretState::Missing);
}

class InstanceScreens : public Screens {
protected:
    void SetUp() override {
        other.generate(5);
        other.start();
        server.generate(4);
        for (const auto& [address, token] : {std::pair(server.url(), server.token()), {other.url(), other.token()}}) {
            ASSERT_TRUE(registerInstance(*services.defaults, address).ok());
            ASSERT_TRUE(KeychainHandler(services).saveToken(token, address).ok());
        }
        activate(server.url());
    }
    void activate(const std::string& address) {
        (void)services.defaults->set("server", address);
        (void)services.defaults->set(address + "currentUserId", std::int64_t{3});
        mainQueue::sync([&] { ASSERT_TRUE(core->moveToStore(storeOf(address)).ok()); });
    }
    std::string storeOf(const std::string& address) {
        return ConnectedInstances::load(*services.defaults).find(address)->second.store;
    }
    PaperlessServer other;
};

TEST_F(InstanceScreens, ADisconnectedServerLeavesNothingBehind) {
    activate(other.url());
    mirror(*ApiHandler::withToken(services, *core, other.url(), other.token()));
    Uuid uuid;
    inStore([&](ManagedObjectContext& context) { uuid = *context.firstWithID<CD_Document>(1)->uuid(); });
    ASSERT_TRUE(core->documentFiles().storeFile(DocumentFiles::kDocuments, uuid, "a.pdf", "paper").ok());
    ASSERT_TRUE(storeCustomHeaders(*services.defaults, other.url(), {}).ok());
    activate(server.url());
    mirror(*ApiHandler::withToken(services, *core, server.url(), server.token()));
    const auto otherStore = storeOf(other.url());

    const auto view = make<ManageInstancesView>();
    const auto disconnect = [&](const std::string& address) {
        mainQueue::sync([&] {
            view->askToDisconnect(QString::fromStdString(address));
            EXPECT_TRUE(view->showRemovalAlert());
            EXPECT_EQ(view->removalQuestion().toStdString(), "Disconnect from Instance " + address + "?");
        });
        runUntilIdle(
            view, [](ManageInstancesView& each) { each.disconnectInstance(); }, &ManageInstancesView::changed,
            [](ManageInstancesView& each) { return each.isRemoving(); });
    };
    disconnect(server.url() + "/");
    EXPECT_TRUE(view->showCurrentInstanceCantBeRemovedAlert());
    EXPECT_EQ(ConnectedInstances::load(*services.defaults).instances.size(), 2U);

    disconnect(other.url());
    EXPECT_FALSE(view->showCurrentInstanceCantBeRemovedAlert());
    EXPECT_EQ(ConnectedInstances::load(*services.defaults).find(other.url()), nullptr);
    EXPECT_EQ(AllCustomHeaders::load(*services.defaults).find(other.url()), nullptr);
    EXPECT_EQ(secrets->read(other.url(), kAccount).state, SecretState::Missing);
    EXPECT_FALSE(core->documentFiles().existingDocumentFile(uuid));
    EXPECT_EQ(core->storeName(), storeOf(server.url())) << "the active store stays open";
    EXPECT_EQ(localIds<CD_Document>().size(), 4U);
    mainQueue::sync([&] { ASSERT_TRUE(core->moveToStore(otherStore).ok()); });
    EXPECT_TRUE(localIds<CD_Document>().empty());
    EXPECT_TRUE(localIds<CD_Tag>().empty());
}

TEST_F(InstanceScreens, SwitchingGoesStepByStepAndOnlyWithAToken) {
    (void)updateInstance(*services.defaults, other.url(), "2026-11-01", "2.7.2");
    (void)services.defaults->set("server_version", "2.20.15");
    std::vector<std::string> steps;
    const auto state = [&] {
        return services.defaults->string("server").value_or("") + " " +
               services.defaults->string("server_version").value_or("none") + " " + core->storeName() + " " +
               services.defaults->string("lastSuccessfulSync").value_or("");
    };
    const auto before = state();
    DispatchQueue queue("updateData");
    const auto switchTo = [&](const std::string& address) {
        std::promise<bool> finished;
        InstanceSwitchSteps parts;
        parts.clearList = [&] {
            steps.push_back("clear " + state());
        };
        parts.useHandler = [&](const std::shared_ptr<ApiHandler>& handler) {
            steps.push_back("handler " + handler->Server() + " " + state());
        };
        parts.setLoggedIn = [&](bool loggedIn) {
            steps.push_back(loggedIn ? "in" : "out " + state());
        };
        parts.refreshAndSync = [&] {
            steps.emplace_back("sync");
        };
        parts.finished = [&](bool made) {
            EXPECT_TRUE(mainQueue::isCurrent());
            finished.set_value(made);
        };
        switchInstance(services, *core, queue, address, parts);
        return finished.get_future().get();
    };
    EXPECT_FALSE(switchTo("https://unknown"));
    KeychainHandler(services).removeToken(other.url());
    EXPECT_FALSE(switchTo(other.url()));
    ASSERT_TRUE(KeychainHandler(services).saveToken("refused", other.url()).ok());
    EXPECT_FALSE(switchTo(other.url()));
    EXPECT_TRUE(steps.empty());
    EXPECT_EQ(state(), before);

    ASSERT_TRUE(KeychainHandler(services).saveToken(other.token(), other.url() + "/").ok());
    EXPECT_TRUE(switchTo(other.url() + "/"));
    const auto there = other.url() + " 2.7.2 " + storeOf(other.url()) + " ";
    EXPECT_EQ(steps, (std::vector<std::string>{"clear " + before, "handler " + other.url() + " " + there,
                                               "out " + there + "2026-11-01", "sync"}));
}

TEST_F(InstanceScreens, AServerWhoseTokenCannotBeRemovedStays) {
    const auto view = make<ManageInstancesView>();
    const auto disconnect = [&] {
        mainQueue::sync([&] { view->askToDisconnect(QString::fromStdString(other.url())); });
        runUntilIdle(
            view, [](ManageInstancesView& each) { each.disconnectInstance(); }, &ManageInstancesView::changed,
            [](ManageInstancesView& each) { return each.isRemoving(); });
    };
    secrets->setLocked(true);
    disconnect();
    EXPECT_EQ(view->error().toStdString().find("The token could not be removed: "), 0U);
    EXPECT_NE(ConnectedInstances::load(*services.defaults).find(other.url()), nullptr);
    secrets->setLocked(false);
    disconnect();
    EXPECT_EQ(view->error(), QString());
    EXPECT_EQ(ConnectedInstances::load(*services.defaults).find(other.url()), nullptr);
}

class Following : public InstanceScreens {
protected:
    /// Follows "server" and tells what the screens were told, in order.
    std::vector<std::string> follow() {
        std::vector<std::string> told;
        std::promise<void> finished;
        InstanceSwitchSteps steps;
        steps.clearList = [&] {
            told.emplace_back("clear");
        };
        steps.useHandler = [&](const std::shared_ptr<ApiHandler>& handler) {
            told.push_back(handler->isInert() ? "no handler" : "handler " + handler->Server());
        };
        steps.setLoggedIn = [&](bool in) {
            told.emplace_back(in ? "in" : "out");
        };
        steps.refreshAndSync = [&] {
            told.emplace_back("sync");
        };
        steps.refresh = [&] {
            told.emplace_back("refresh");
        };
        steps.tell = [&](const std::string& reason) {
            told.push_back(reason);
        };
        steps.finished = [&](bool made) {
            if (!made) told.emplace_back("nothing");
            finished.set_value();
        };
        followActiveServer(services, *core, m_queue, steps);
        finished.get_future().get();
        return told;
    }

private:
    DispatchQueue m_queue{"follow"};
};

TEST_F(Following, AChangedServerIsFollowedToTheEndWithOrWithoutItsToken) {
    (void)services.defaults->set("server", other.url());
    EXPECT_EQ(follow(), (std::vector<std::string>{"clear", "handler " + other.url(), "sync"}));
    EXPECT_EQ(core->storeName(), storeOf(other.url()));

    const auto loggedOut = [](const std::string& reason) {
        return std::vector<std::string>{"clear", "no handler", "refresh", reason, "out"};
    };
    KeychainHandler(services).removeToken(server.url());
    (void)services.defaults->set("server", server.url());
    EXPECT_EQ(follow(), loggedOut("No token found"));
    EXPECT_EQ(core->storeName(), storeOf(server.url())) << "no store of the one server with settings of the other";

    ASSERT_TRUE(KeychainHandler(services).saveToken("refused", other.url()).ok());
    (void)services.defaults->set("server", other.url());
    EXPECT_EQ(follow(), loggedOut("The server didn't accept the stored token. Please log in again."));
    EXPECT_EQ(core->storeName(), storeOf(other.url()));

    (void)services.defaults->set("server", "https://without.an.entry");
    EXPECT_EQ(follow(), std::vector<std::string>{"nothing"});
    EXPECT_EQ(core->storeName(), storeOf(other.url()));
}

TEST_F(Following, ASwitchThatCannotBeWrittenDownIsNotMade) {
    const auto lock = services.paths.config / "settings.ini.lock";
    std::filesystem::remove(lock);
    std::filesystem::create_directory(lock);
    std::string reason;
    std::promise<bool> finished;
    DispatchQueue queue("updateData");
    InstanceSwitchSteps steps;
    steps.tell = [&](const std::string& text) {
        reason = text;
    };
    steps.finished = [&](bool made) {
        finished.set_value(made);
    };
    switchInstance(services, *core, queue, other.url(), steps);
    EXPECT_FALSE(finished.get_future().get());
    EXPECT_EQ(reason.find("The settings could not be written: "), 0U);
    EXPECT_EQ(services.defaults->string("server"), server.url());
    EXPECT_EQ(core->storeName(), storeOf(server.url()));
    std::filesystem::remove(lock);
}

TEST_F(InstanceScreens, DisconnectingNeverEmptiesAStoreThatIsNotTheEntrysOwn) {
    const auto setStore = [&](const std::string& store) {
        ASSERT_TRUE(registerInstance(*services.defaults, other.url()).ok());
        ASSERT_TRUE(changeInstances(*services.defaults, [&](ConnectedInstances& all) {
                        all.instances.at(other.url()).store = store;
                    }).ok());
    };
    const auto tagIn = [&](const std::string& store, bool write) {
        bool there = false;
        mainQueue::sync([&] { ASSERT_TRUE(core->moveToStore(store).ok()); });
        Tag kept;
        kept.id = 1;
        if (write) core->saveTag(kept, core->backgroundContext());
        there = !localIds<CD_Tag>().empty();
        mainQueue::sync([&] { ASSERT_TRUE(core->moveToStore(storeOf(server.url())).ok()); });
        return there;
    };
    ASSERT_TRUE(registerInstance(*services.defaults, "https://third").ok());
    for (const auto& store : {std::string("Ledgerfinch"), storeOf("https://third")}) {
        ASSERT_TRUE(tagIn(store, true));
        setStore(store);
        const auto view = make<ManageInstancesView>();
        mainQueue::sync([&] { view->askToDisconnect(QString::fromStdString(other.url())); });
        runUntilIdle(
            view, [](ManageInstancesView& each) { each.disconnectInstance(); }, &ManageInstancesView::changed,
            [](ManageInstancesView& each) { return each.isRemoving(); });
        EXPECT_EQ(ConnectedInstances::load(*services.defaults).find(other.url()), nullptr);
        EXPECT_TRUE(tagIn(store, false)) << store;
    }
}

TEST_F(InstanceScreens, TheLatestChoiceWinsAndAFailedSwitchChangesNothing) {
    (void)services.defaults->set("offlineMode", true);
    DispatchQueue queue("updateData");
    int synced = 0;
    const auto start = [&](const std::string& address, std::promise<bool>& finished) {
        InstanceSwitchSteps parts;
        parts.refreshAndSync = [&] {
            ++synced;
        };
        parts.finished = [&](bool made) {
            finished.set_value(made);
        };
        switchInstance(services, *core, queue, address, parts);
    };
    const auto ownStore = storeOf(other.url());
    const auto setStore = [&](const std::string& store) {
        (void)changeInstances(*services.defaults,
                              [&](ConnectedInstances& all) { all.instances.at(other.url()).store = store; });
    };
    setStore("Ledgerfinch");
    std::promise<bool> refused;
    start(other.url(), refused);
    EXPECT_FALSE(refused.get_future().get()) << "the store of offline mode";
    EXPECT_EQ(services.defaults->boolean("offlineMode"), true);
    EXPECT_EQ(services.defaults->string("server"), server.url());
    EXPECT_EQ(core->storeName(), storeOf(server.url()));

    setStore(ownStore);
    std::promise<bool> first;
    std::promise<bool> second;
    mainQueue::sync([&] {
        start(server.url(), first);
        start(other.url(), second);
    });
    EXPECT_FALSE(first.get_future().get());
    EXPECT_TRUE(second.get_future().get());
    EXPECT_EQ(synced, 1);
    EXPECT_EQ(services.defaults->boolean("offlineMode"), false);
    EXPECT_EQ(core->storeName(), ownStore);
}

} // namespace
} // namespace ledgerfinch::test
