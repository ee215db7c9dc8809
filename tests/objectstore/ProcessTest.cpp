// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/TestModel.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <random>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace ledgerfinch::testing {
namespace {

/// The other process: a line in, a line out.
class Writer {
public:
    explicit Writer(const std::filesystem::path& file) {
        int in[2];
        int out[2];
        if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        std::string program = LF_STORE_WRITER;
        std::string argument = file.string();
        char* arguments[] = {program.data(), argument.data(), nullptr};
        if (::posix_spawn(&m_process, program.c_str(), &actions, nullptr, arguments, environ) != 0) std::abort();
        posix_spawn_file_actions_destroy(&actions);
        ::close(in[0]);
        ::close(out[1]);
        m_in = ::fdopen(in[1], "w");
        m_out = ::fdopen(out[0], "r");
    }
    ~Writer() { end(0); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    void send(const std::string& line) {
        std::fprintf(m_in, "%s\n", line.c_str());
        std::fflush(m_in);
    }
    std::string receive() {
        char line[512];
        if (!std::fgets(line, sizeof line, m_out)) return {};
        std::string text = line;
        if (!text.empty() && text.back() == '\n') text.pop_back();
        return text;
    }
    std::string ask(const std::string& line) {
        send(line);
        return receive();
    }
    /// Kills it with a signal, or lets it end; what it still said can be received.
    void end(int signal) {
        if (m_process == 0) return;
        if (m_in) std::fclose(std::exchange(m_in, nullptr));
        if (signal) ::kill(m_process, signal);
        int status = 0;
        if (!signal) {
            while (!receive().empty()) {
            }
        }
        ::waitpid(m_process, &status, 0);
        if (!signal) std::fclose(std::exchange(m_out, nullptr));
        m_process = 0;
    }

private:
    pid_t m_process = 0;
    std::FILE* m_in = nullptr;
    std::FILE* m_out = nullptr;
};

class ProcessTest : public StoreTest {
protected:
    std::filesystem::path file() const { return folder.path / "archive.sqlite"; }
};

TEST_F(ProcessTest, SeesWhatAnotherProcessSaves) {
    auto first = paper(*view, 1, "Old");
    auto doomed = paper(*view, 2, "Doomed");
    expectOk(view->save());
    int remote = 0;
    const auto subscription = container->onRemoteChange([&] { ++remote; });
    ChangeSet told;
    const auto watching = view->onChange([&](const ChangeSet& changes) { told = changes; });
    Writer writer(file());
    ASSERT_EQ(writer.receive(), "ready");

    EXPECT_FALSE(view->firstWithID<Paper>(3));
    ASSERT_EQ(writer.ask("insert 3"), "done");
    auto third = view->firstWithID<Paper>(3);
    ASSERT_TRUE(third) << "a remembered miss is forgotten at once";
    EXPECT_EQ(third->title(), "Paper 3");
    EXPECT_EQ(third->toManyCount(Paper::Tags), 2U);
    EXPECT_EQ(remote, 1);

    ASSERT_EQ(writer.ask("title 1 New"), "done");
    EXPECT_EQ(first->title(), "Old");
    container->processRemoteChanges();
    EXPECT_EQ(remote, 2);
    EXPECT_TRUE(view->object(first->objectID()));
    EXPECT_EQ(first->title(), "New");
    EXPECT_EQ(told.updated, std::vector<ObjectID>{first->objectID()});

    ASSERT_EQ(writer.ask("delete 2"), "done");
    ASSERT_EQ(all<Paper>(*view).size(), 2U);
    EXPECT_TRUE(doomed->isDeleted());
    EXPECT_EQ(doomed->title(), "Doomed");
    EXPECT_EQ(told.deleted, std::vector<ObjectID>{doomed->objectID()});

    // Our own saves aren't taken for theirs, and theirs are never missed among ours.
    const int before = remote;
    first->setTitle("Ours");
    expectOk(view->save());
    container->processRemoteChanges();
    EXPECT_EQ(remote, before);
    ASSERT_EQ(writer.ask("title 3 Theirs"), "done");
    first->setTitle("Ours again");
    expectOk(view->save());
    EXPECT_EQ(third->title(), "Theirs");
    EXPECT_EQ(writer.ask("title 1 Last"), "done");
    EXPECT_EQ(all<Paper>(*view, "title = 'Last'").size(), 1U);
}

TEST_F(ProcessTest, TwoProcessesWriteTheSameRowsAndNothingIsLost) {
    for (int id = 1; id <= 5; ++id)
        paper(*view, id, "Start");
    expectOk(view->save());
    Writer writer(file());
    ASSERT_EQ(writer.receive(), "ready");
    constexpr int kSteps = 300;
    writer.send("titles " + std::to_string(kSteps));
    for (int step = 1; step <= kSteps; ++step) {
        auto object = view->firstWithID<Paper>(step % 5 + 1);
        ASSERT_TRUE(object);
        object->setValue(Paper::Serial, std::int64_t{step});
        paper(*view, 200'000 + step);
        expectOk(view->save());
    }
    ASSERT_EQ(writer.receive(), "done");
    EXPECT_EQ(all<Paper>(*view).size(), 5U + 2 * kSteps);
    for (int id = 1; id <= 5; ++id) {
        const auto object = view->firstWithID<Paper>(id);
        const int last = kSteps - (kSteps + 1 - id) % 5;
        EXPECT_EQ(object->value(Paper::Serial), Value(std::int64_t{last}));
        EXPECT_EQ(object->title(), "Step " + std::to_string(last));
    }
    EXPECT_EQ(all<Tag>(*view).front()->toManyCount(Tag::Papers), std::size_t{kSteps});
}

TEST_F(ProcessTest, KeepsEveryAcknowledgedSaveThroughKills) {
    close();
    std::mt19937 random(7);
    std::int64_t next = 1;
    std::vector<std::int64_t> acknowledged;
    for (int round = 0; round < 12; ++round) {
        SCOPED_TRACE(round);
        Writer writer(file());
        ASSERT_EQ(writer.receive(), "ready");
        writer.send("stream " + std::to_string(next));
        const int saves = std::uniform_int_distribution<int>(0, 60)(random);
        for (int i = 0; i < saves; ++i) {
            const std::string line = writer.receive();
            ASSERT_EQ(line, "saved " + std::to_string(next));
            acknowledged.push_back(next++);
        }
        ::usleep(std::uniform_int_distribution<useconds_t>(0, 3000)(random)); // anywhere inside of a save
        writer.end(SIGKILL);
        for (std::string line = writer.receive(); line.starts_with("saved "); line = writer.receive())
            acknowledged.push_back(next++);
        open();
        expectOk(container->verify());
        for (const std::int64_t id : acknowledged)
            ASSERT_TRUE(view->firstWithID<Paper>(id)) << id;
        for (const auto& object : all<Paper>(*view)) {
            ASSERT_TRUE(object->toOne(Paper::Body)) << "half a save";
            ASSERT_EQ(object->toManyCount(Paper::Tags), 2U);
        }
        next = view->max("Paper", "id").value().value_or(0) + 1;
        close();
    }
    EXPECT_GT(acknowledged.size(), 50U);
    open();
}

TEST_F(ProcessTest, AKillWhileTheStoreIsMadeLeavesOneThatOpens) {
    close();
    std::mt19937 random(9);
    for (int round = 0; round < 12; ++round) {
        SCOPED_TRACE(round);
        std::filesystem::remove_all(folder.path);
        std::filesystem::create_directory(folder.path);
        Writer writer(file());
        ::usleep(std::uniform_int_distribution<useconds_t>(0, 40'000)(random));
        writer.end(SIGKILL);
        open();
        paper(*view, 1);
        expectOk(view->save());
        expectOk(container->verify());
        close();
    }
    open();
}

} // namespace
} // namespace ledgerfinch::testing
