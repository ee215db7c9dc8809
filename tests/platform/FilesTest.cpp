// SPDX-License-Identifier: GPL-3.0-or-later
// What lies on the disk: files, the log, settings, the file of secrets, the standard folders.
#include "platform/FileSystem.h"
#include "platform/LogSinks.h"
#include "platform/Paths.h"
#include "platform/SecretStore.h"
#include "platform/UserDefaults.h"

#include "platform/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace ledgerfinch {
namespace {

namespace fs = std::filesystem;
using test::contentOf;
using test::entriesIn;
using test::modeOf;
using test::put;
using testing::ElementsAre;
using testing::HasSubstr;

/// Runs in a process of its own; true when the work returned true.
template <class Work>
bool inChild(Work&& work) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(work() ? 0 : 1);
    int status = 1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class FilesTest : public testing::Test {
protected:
    test::TemporaryFolder folder;
    std::unique_ptr<FileSystem> files = makeFileSystem();
};

TEST_F(FilesTest, WritesWholeFilesThatOnlyTheirUserReads) {
    ASSERT_TRUE(files->createDirectories(folder / "a/b/c/"));
    EXPECT_EQ(0700U, modeOf(folder / "a/b"));
    const auto file = folder / "a/b/c/" / std::string(250, 'n');
    const std::string bytes("one\0two", 7);
    ASSERT_TRUE(files->write(file, bytes));
    EXPECT_EQ(0600U, modeOf(file));
    EXPECT_EQ(bytes, *files->read(file, 7));
    EXPECT_FALSE(files->read(file, 6));
    EXPECT_EQ(7, *files->size(file));
    ASSERT_TRUE(files->write(file, ""));
    EXPECT_EQ("", *files->read(file, 0));
    EXPECT_EQ(1, entriesIn(folder / "a/b/c"));
    EXPECT_FALSE(files->write(folder / "missing/file", "x"));
    EXPECT_FALSE(files->read(folder / "a", 100));
    EXPECT_FALSE(files->createDirectories(file / "below"));
}

TEST_F(FilesTest, FailedWriteLeavesTheOldFileAndNothingElse) {
    const auto file = folder / "document";
    ASSERT_TRUE(files->write(file, "the old text"));
    // A limit on the size of files stands in for a full disk.
    EXPECT_TRUE(inChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{4096, 4096};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        return !files->write(file, std::string(100'000, 'x'));
    }));
    EXPECT_EQ("the old text", contentOf(file));
    EXPECT_EQ(1, entriesIn(folder.path()));
    fs::create_directory(folder / "occupied");
    EXPECT_FALSE(files->write(folder / "occupied", "x"));
    EXPECT_EQ(2, entriesIn(folder.path()));
}

TEST_F(FilesTest, ListsWithoutTemporaryFiles) {
    put(folder / "b", "");
    put(folder / "a", "");
    put(folder / ".b.part-1234", "");
    put(folder / ".hidden", "");
    EXPECT_THAT(*files->list(folder.path()), ElementsAre(".hidden", "a", "b"));
    EXPECT_TRUE(files->list(folder / "missing")->empty());
    EXPECT_FALSE(files->list(folder / "a"));
}

TEST_F(FilesTest, RemovesLinksButNeverWhatTheyPointTo) {
    fs::create_directories(folder / "kept/inner");
    put(folder / "kept/inner/file", "kept");
    fs::create_directories(folder / "gone/deep/deeper");
    fs::create_directory_symlink(folder / "kept", folder / "gone/deep/link");
    fs::create_directory_symlink(folder / "kept", folder / "link");
    EXPECT_TRUE(files->removeAll(folder / "link/"));
    EXPECT_FALSE(fs::is_symlink(folder / "link"));
    EXPECT_TRUE(files->removeAll(folder / "gone"));
    EXPECT_FALSE(files->exists(folder / "gone"));
    EXPECT_EQ("kept", contentOf(folder / "kept/inner/file"));
    EXPECT_TRUE(files->removeAll(folder / "gone"));
}

TEST_F(FilesTest, CopiesWholeFoldersOrNothing) {
    fs::create_directories(folder / "from/inner");
    put(folder / "from/inner/file", "text");
    fs::create_symlink("/etc/passwd", folder / "from/link");
    ASSERT_TRUE(files->copyAll(folder / "from", folder / "to"));
    EXPECT_EQ("text", contentOf(folder / "to/inner/file"));
    EXPECT_EQ(0700U, modeOf(folder / "to/inner"));
    EXPECT_TRUE(fs::is_symlink(folder / "to/link"));
    EXPECT_FALSE(files->copyAll(folder / "from", folder / "to"));
    EXPECT_FALSE(files->copyAll(folder / "from", folder / "from/inner/copy"));
    EXPECT_FALSE(files->copyAll(folder / "missing", folder / "other"));
    ASSERT_EQ(0, ::mkfifo((folder / "from/inner/pipe").c_str(), 0600));
    EXPECT_FALSE(files->copyAll(folder / "from", folder / "other"));
    EXPECT_THAT(entriesIn(folder.path()), 2);
}

TEST_F(FilesTest, LockHasOneHolder) {
    const auto path = folder / "lock";
    {
        auto lock = FileLock::tryLock(path);
        ASSERT_TRUE(lock);
        EXPECT_FALSE(FileLock::tryLock(path));
        EXPECT_TRUE(inChild([&] { return !FileLock::tryLock(path); }));
        const FileLock moved = std::move(*lock);
        EXPECT_FALSE(FileLock::tryLock(path));
    }
    EXPECT_TRUE(FileLock::tryLock(path));
}

TEST_F(FilesTest, LogKeepsSevenDaysOfWholeLines) {
    const auto now = std::chrono::system_clock::now();
    for (const auto* old : {"ledgerfinch-2020-01-01.log", "ledgerfinch-2020-13-01.log", "other.log"}) {
        fs::create_directories(folder / "log");
        put(folder / (std::string("log/") + old), "2020-01-01T00:00:00.000Z DEBUG X: old\n");
    }
    auto sink = FileLogSink::open(folder / "log");
    ASSERT_TRUE(sink);
    EXPECT_FALSE(fs::exists(folder / "log/ledgerfinch-2020-01-01.log"));
    EXPECT_TRUE(fs::exists(folder / "log/ledgerfinch-2020-13-01.log"));
    EXPECT_TRUE(fs::exists(folder / "log/other.log"));

    const auto write = [&](FileLogSink& to, std::chrono::system_clock::time_point time, const std::string& message) {
        to.write({time, LogLevel::Info, "s", "Api", message});
    };
    write(**sink, now - std::chrono::hours(48), "two days ago");
    write(**sink, now, "first\nline");
    EXPECT_TRUE(inChild([&] {
        auto other = FileLogSink::open(folder / "log");
        if (other) write(**other, now, "another process");
        return other.ok();
    }));
    const auto lines = readStoredLog(folder / "log", now - std::chrono::hours(24), 100);
    ASSERT_EQ(2U, lines.size());
    EXPECT_THAT(lines[0], HasSubstr("Z INFO Api: first\\nline"));
    EXPECT_THAT(lines[1], HasSubstr("another process"));
    EXPECT_EQ(3U, readStoredLog(folder / "log", now - std::chrono::hours(72), 100).size());
    EXPECT_THAT(readStoredLog(folder / "log", now - std::chrono::hours(72), 1), ElementsAre(HasSubstr("another")));
    for (const auto& entry : fs::directory_iterator(folder / "log")) {
        if (entry.path().filename().string().starts_with("ledgerfinch-202") && entry.file_size() > 50) {
            EXPECT_EQ(0600U, modeOf(entry.path()) & 0666U) << entry.path();
        }
    }
}

TEST_F(FilesTest, LogOfADayEndsWhenItIsFull) {
    auto sink = FileLogSink::open(folder.path());
    ASSERT_TRUE(sink);
    const auto now = std::chrono::system_clock::now();
    const std::string big(1024 * 1024, 'x');
    for (int count = 0; count < 20; ++count)
        (*sink)->write({now, LogLevel::Debug, "s", "c", big});
    const auto lines = readStoredLog(folder.path(), now - std::chrono::seconds(1), 1);
    ASSERT_EQ(1U, lines.size());
    EXPECT_THAT(lines[0], HasSubstr("full and ends here"));
    std::uintmax_t size = 0;
    for (const auto& entry : fs::directory_iterator(folder.path()))
        size += entry.file_size();
    EXPECT_LT(size, 18U * 1024 * 1024);
    put(folder / "file", "");
    EXPECT_FALSE(FileLogSink::open(folder / "file"));
}

class DefaultsTest : public FilesTest {
protected:
    std::unique_ptr<UserDefaults> open() {
        auto opened = UserDefaults::open(file);
        EXPECT_TRUE(opened.ok()) << (opened ? "" : opened.error().message);
        return opened ? std::move(*opened) : nullptr;
    }

    const fs::path file = folder / "config/settings.ini";
};

TEST_F(DefaultsTest, TypesAndAnyTextSurvive) {
    const std::string texts[] = {"",
                                 "true",
                                 "17",
                                 " blanks ",
                                 "a=b;c#d[e]%41",
                                 "line\nbreak\r\ttab",
                                 "\"quoted\\\"",
                                 "[General]",
                                 "äöü😀",
                                 std::string("nul\0x", 5),
                                 "\xff\xfe not text",
                                 "{\"a\": [1]}"};
    {
        const auto defaults = open();
        for (const auto& text : texts) {
            ASSERT_TRUE(defaults->set("key " + text, text));
            ASSERT_TRUE(defaults->set("https://host:8000/" + text, std::int64_t{-5}));
        }
        ASSERT_TRUE(defaults->set("flag", true));
        ASSERT_TRUE(defaults->set("number", std::numeric_limits<std::int64_t>::min()));
        ASSERT_TRUE(defaults->set("literal", "true"));
    }
    EXPECT_EQ(0600U, modeOf(file));
    const auto defaults = open();
    for (const auto& text : texts) {
        EXPECT_EQ(text, defaults->string("key " + text));
        EXPECT_EQ(-5, defaults->integer("https://host:8000/" + text));
        EXPECT_EQ(std::nullopt, defaults->integer("key " + text));
        EXPECT_EQ(std::nullopt, defaults->boolean("key " + text));
    }
    EXPECT_EQ(true, defaults->boolean("flag"));
    EXPECT_EQ(std::nullopt, defaults->integer("flag"));
    EXPECT_EQ(std::nullopt, defaults->string("number"));
    EXPECT_EQ(std::numeric_limits<std::int64_t>::min(), defaults->integer("number"));
    EXPECT_EQ("true", defaults->string("literal"));
    ASSERT_TRUE(defaults->remove("flag"));
    EXPECT_EQ(std::nullopt, open()->boolean("flag"));
}

TEST_F(DefaultsTest, OddFilesKeepTheirLinesAndTakeTheNextWrite) {
    fs::create_directories(file.parent_path());
    const std::string odd[] = {
        "",
        "garbage without an end",
        std::string("\0\xff\xfe\n===\n=\n[Other]\nkey=theirs", 27),
        "[General]\nkey=\"torn\nserver=https://by.hand\n; note\n\n[Other]\nkey=1\n",
        "[General\r\nkey=%zz\r\n%zz=1\r\n",
        "[General]\nkey=1\nkey=2\nkey=\"x\\q\"\n",
    };
    for (const auto& content : odd) {
        put(file, content);
        const auto defaults = open();
        ASSERT_TRUE(defaults->set("key", "mine")) << content;
        EXPECT_EQ("mine", open()->string("key")) << content;
        const auto written = contentOf(file);
        for (const auto* kept :
             {"garbage without an end", "[Other]", "=theirs", "\"torn", "server=https://by.hand", "; note", "%zz=1"}) {
            if (content.find(kept) != std::string::npos) {
                EXPECT_THAT(written, HasSubstr(kept));
            }
        }
    }
    put(file, odd[3]);
    EXPECT_EQ("https://by.hand", open()->string("server"));
    EXPECT_EQ(std::nullopt, open()->integer("key"));
}

TEST_F(DefaultsTest, ProcessesAndThreadsMergePerKey) {
    const auto defaults = open();
    constexpr int kWrites = 30;
    std::thread sibling([&] {
        for (int number = 0; number < kWrites; ++number) {
            EXPECT_TRUE(defaults->set("thread" + std::to_string(number), std::int64_t{number}));
        }
    });
    EXPECT_TRUE(inChild([&] {
        auto other = UserDefaults::open(file);
        bool good = other.ok();
        for (int number = 0; good && number < kWrites; ++number) {
            good = (*other)->set("process" + std::to_string(number), std::int64_t{number}).ok();
        }
        return good;
    }));
    sibling.join();
    for (int number = 0; number < kWrites; ++number) {
        EXPECT_EQ(number, defaults->integer("thread" + std::to_string(number)));
        EXPECT_EQ(number, defaults->integer("process" + std::to_string(number)));
    }
    EXPECT_EQ(2, entriesIn(file.parent_path())) << "the file and its lock";
}

TEST_F(DefaultsTest, TellsOfEachChangedKeyOnce) {
    const auto defaults = open();
    std::vector<std::string> changed;
    {
        const auto subscription = defaults->onChange([&](std::string_view key) {
            changed.emplace_back(key);
            (void)defaults->string(key); // nothing is locked
        });
        (void)defaults->set("a", "1");
        (void)defaults->set("a", "1");
        const auto other = open();
        (void)other->set("b", true);
        (void)other->set("a", "2");
        defaults->reload();
        EXPECT_THAT(changed, ElementsAre("a", "a", "b"));
        changed.clear();
        put(file, "[General]\nb=true\n");
        EXPECT_EQ(std::nullopt, defaults->string("a"));
        EXPECT_THAT(changed, ElementsAre("a"));
        (void)defaults->remove("missing");
        fs::remove(file);
        defaults->reload();
        EXPECT_THAT(changed, ElementsAre("a", "b"));
    }
    (void)defaults->set("c", "unheard");
    EXPECT_EQ(2U, changed.size());
    auto outliving = defaults->onChange([](std::string_view) {});
    auto moved = std::move(outliving);
}

TEST_F(DefaultsTest, ValueHoldsForTheProcessWhenItCannotBeWritten) {
    const auto defaults = open();
    (void)defaults->set("key", "old");
    EXPECT_TRUE(inChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{4, 4};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        return !defaults->set("key", "new") && defaults->string("key") == "new" && !defaults->remove("key") &&
               !defaults->string("key");
    }));
    EXPECT_EQ("old", defaults->string("key"));
    fs::create_directory(folder / "a folder");
    EXPECT_FALSE(UserDefaults::open(folder / "a folder"));
    fs::create_symlink(file, folder / "link.ini");
    EXPECT_TRUE((*UserDefaults::open(folder / "link.ini"))->set("key", "through the link"));
    EXPECT_TRUE(fs::is_symlink(folder / "link.ini"));
    EXPECT_EQ("through the link", defaults->string("key"));
}

TEST_F(DefaultsTest, WhatThePresentFileHoldsIsPutBackWithoutAWrite) {
    const auto defaults = open();
    (void)defaults->set("key", "old");
    const auto lock = file.string() + ".lock";
    fs::remove(lock);
    fs::create_directory(lock); // nothing can be written
    EXPECT_FALSE(defaults->set("key", "new"));
    EXPECT_FALSE(defaults->set("other", "new"));
    EXPECT_TRUE(defaults->set("key", "old"));
    EXPECT_TRUE(defaults->remove("other"));
    EXPECT_EQ("old", defaults->string("key"));
    EXPECT_FALSE(defaults->string("other"));
    fs::remove(lock);
    // What was put back doesn't hide what another process writes.
    EXPECT_TRUE(open()->set("key", "theirs"));
    EXPECT_EQ("theirs", defaults->string("key"));
}

TEST_F(FilesTest, SecretFileKeepsSecretsFromOthers) {
    const auto file = folder / "state/secrets";
    const auto store = makeFileSecretStore(file);
    const std::string secret("tok\ten\n%41\0#", 12);
    EXPECT_EQ(SecretState::Missing, store->read("https://a", "app").state);
    EXPECT_TRUE(store->remove("https://a", "app"));
    ASSERT_TRUE(store->save("first", "https://a", "app"));
    ASSERT_TRUE(store->save(secret, "https://a", "app"));
    ASSERT_TRUE(store->save("", "https://A", "app"));
    EXPECT_EQ(0700U, modeOf(file.parent_path()));
    EXPECT_EQ(0600U, modeOf(file));
    const auto again = makeFileSecretStore(file);
    EXPECT_EQ(secret, again->read("https://a", "app").data);
    EXPECT_EQ(SecretState::Found, again->read("https://A", "app").state);
    ASSERT_TRUE(again->remove("https://a", "app"));
    EXPECT_EQ(SecretState::Missing, store->read("https://a", "app").state);

    fs::permissions(file, fs::perms::group_read, fs::perm_options::add);
    EXPECT_EQ(SecretState::Unavailable, store->read("https://A", "app").state);
    EXPECT_FALSE(store->save("x", "https://a", "app"));
    fs::permissions(file, fs::perms::group_read, fs::perm_options::remove);
    EXPECT_EQ(SecretState::Found, store->read("https://A", "app").state);
    fs::rename(file, folder / "elsewhere");
    fs::create_symlink(folder / "elsewhere", file);
    EXPECT_EQ(SecretState::Unavailable, store->read("https://A", "app").state);
    fs::remove(file);
    fs::permissions(file.parent_path(), fs::perms::others_write, fs::perm_options::add);
    EXPECT_FALSE(store->save("x", "https://a", "app"));
}

TEST_F(FilesTest, StandardFoldersFollowTheEnvironment) {
    EXPECT_TRUE(inChild([&] {
        ::setenv("HOME", folder.path().c_str(), 1);
        ::setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", "relative", 1);
        ::unsetenv("XDG_STATE_HOME");
        const auto paths = Paths::standard(std::nullopt);
        return paths && paths->container == folder / "data/ledgerfinch" &&
               paths->config == folder / ".config/ledgerfinch" && paths->state == folder / ".local/state/ledgerfinch" &&
               modeOf(paths->state) == 0700U;
    }));
    const auto paths = Paths::standard(folder / "own");
    ASSERT_TRUE(paths);
    EXPECT_EQ(folder / "own/container", paths->container);
    EXPECT_TRUE(fs::is_directory(folder / "own/config"));
    put(folder / "file", "");
    const auto blocked = Paths::standard(folder / "file");
    ASSERT_FALSE(blocked);
    EXPECT_THAT(blocked.error().message, HasSubstr((folder / "file").string()));
}

} // namespace
} // namespace ledgerfinch
