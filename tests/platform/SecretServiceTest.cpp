// SPDX-License-Identifier: GPL-3.0-or-later
// The secret store against a real keyring daemon, on a session bus and with a home folder of the test's own.
#include "platform/ChildProcess.h"
#include "platform/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <memory>

namespace ledgerfinch {
namespace {

using test::ChildProcess;

class SecretServiceTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(0, std::system("command -v gnome-keyring-daemon >/dev/null"))
            << "the package gnome-keyring is needed";
        ASSERT_EQ(0, std::system("command -v dbus-daemon >/dev/null")) << "the package dbus-daemon is needed";
        std::filesystem::create_directory(folder / "run");
        std::filesystem::permissions(folder / "run", std::filesystem::perms::owner_all);
        environment = {{"HOME", folder.path().string()},
                       {"XDG_RUNTIME_DIR", (folder / "run").string()},
                       {"XDG_DATA_HOME", (folder / "data").string()},
                       {"XDG_CURRENT_DESKTOP", ""},
                       {"DISPLAY", ""},
                       {"WAYLAND_DISPLAY", ""},
                       {"GNOME_KEYRING_CONTROL", ""},
                       {"DBUS_SESSION_BUS_ADDRESS", ""}};
    }

    void startBus() {
        // Without folders of services, so that nothing is started behind our back.
        test::put(folder / "bus.conf",
                  "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
                  "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\"><busconfig><type>session</type>"
                  "<listen>unix:dir=" +
                      folder.path().string() +
                      "</listen><policy context=\"default\">"
                      "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/>"
                      "</policy></busconfig>");
        bus =
            std::make_unique<ChildProcess>(std::vector<std::string>{"dbus-daemon", "--nofork", "--print-address",
                                                                    "--config-file=" + (folder / "bus.conf").string()},
                                           environment);
        const auto address = bus->readLine();
        ASSERT_FALSE(address.empty());
        environment["DBUS_SESSION_BUS_ADDRESS"] = address;
        environment["DBUS_SYSTEM_BUS_ADDRESS"] = address;
    }

    void startKeyring(bool unlocked) {
        std::vector<std::string> command{"gnome-keyring-daemon", "--foreground", "--components=secrets"};
        if (unlocked) command.emplace_back("--unlock");
        keyring = std::make_unique<ChildProcess>(command, environment);
        if (unlocked) keyring->write("\n");
        keyring->closeInput();
        waitForOwner("org.freedesktop.secrets");
    }

    /// Asks the bus until somebody owns the name.
    void waitForOwner(const std::string& name) {
        const auto question = "i=0; until dbus-send --session --print-reply --dest=org.freedesktop.DBus / "
                              "org.freedesktop.DBus.NameHasOwner string:" +
                              name +
                              " 2>/dev/null | grep -q true; do i=$((i+1)); [ $i -gt 2000 ] && exit 1; done; echo up";
        ChildProcess shell({"sh", "-c", question}, environment);
        ASSERT_EQ("up", shell.readLine());
    }

    std::unique_ptr<ChildProcess> probe(const std::string& argument = {}) {
        return std::make_unique<ChildProcess>(
            std::vector<std::string>{LF_SECRET_PROBE, argument.empty() ? (folder / "secrets").string() : argument},
            environment);
    }

    test::TemporaryFolder folder;
    std::map<std::string, std::string> environment;
    std::unique_ptr<ChildProcess> bus;
    std::unique_ptr<ChildProcess> keyring;
};

TEST_F(SecretServiceTest, KeepsSecretsInTheKeyring) {
    startBus();
    startKeyring(true);
    {
        const auto first = probe();
        EXPECT_EQ("Secret Service", first->ask("kind"));
        EXPECT_EQ("silent", first->ask("log"));
        EXPECT_EQ("missing", first->ask("read https://a"));
        EXPECT_EQ("done", first->ask("remove https://a"));
        EXPECT_EQ("done", first->ask("save https://a one"));
        EXPECT_EQ("done", first->ask("save https://a two"));
        EXPECT_EQ("done", first->ask("save https://A other"));
        EXPECT_EQ("done", first->ask("save https://b binary"));
        EXPECT_EQ("found two", first->ask("read https://a"));
    }
    const auto second = probe();
    EXPECT_EQ("found two", second->ask("read https://a"));
    EXPECT_EQ("found other", second->ask("read https://A"));
    EXPECT_EQ("found binary", second->ask("read https://b"));
    EXPECT_EQ("done", second->ask("remove https://a"));
    EXPECT_EQ("missing", second->ask("read https://a"));
    EXPECT_EQ("found other", second->ask("read https://A"));
    EXPECT_FALSE(std::filesystem::exists(folder / "secrets"));
}

TEST_F(SecretServiceTest, LockedOrGoneIsNotMissing) {
    startBus();
    startKeyring(true);
    const auto asking = probe();
    EXPECT_EQ("done", asking->ask("save https://a one"));
    keyring.reset();
    EXPECT_EQ("unavailable 7", asking->ask("read https://a"));
    EXPECT_EQ("failed 7", asking->ask("save https://a two"));

    startKeyring(false);
    for (const auto& locked : {probe(), probe("service")}) {
        EXPECT_EQ("unavailable 1", locked->ask("read https://a"));
        EXPECT_EQ("unavailable 1", locked->ask("read https://never-saved"));
        EXPECT_TRUE(locked->ask("save https://a two").starts_with("failed "));
    }
    keyring.reset();
    startKeyring(true);
    EXPECT_EQ("found one", probe()->ask("read https://a"));
    EXPECT_EQ("found one", asking->ask("read https://a"));
}

TEST_F(SecretServiceTest, WithoutAServiceAFileHoldsThem) {
    for (const bool withBus : {false, true}) {
        if (withBus) {
            startBus();
        } else {
            environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + (folder / "nothing").string();
        }
        const auto asking = probe();
        EXPECT_EQ("file", asking->ask("kind"));
        EXPECT_EQ("No secret service answers, tokens are kept in a file that only you can read: " +
                      (folder / "secrets").string(),
                  asking->ask("log"));
        EXPECT_EQ("done", asking->ask("save https://a one"));
        EXPECT_EQ("found one", asking->ask("read https://a"));
        EXPECT_EQ("unavailable 7", probe("service")->ask("read https://a"));
    }
}

} // namespace
} // namespace ledgerfinch
