// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/TestModel.h"

#include <atomic>
#include <future>
#include <thread>

namespace ledgerfinch::testing {
namespace {

using ThreadTest = StoreTest;

TEST_F(ThreadTest, APrivateContextRunsBlocksOneAtATimeOnAnyThread) {
    auto background = container->newBackgroundContext();
    std::vector<int> order; // guarded by the context
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i) {
                background->performAndWait([&] {
                    const auto size = order.size();
                    auto object = paper(*background, static_cast<int>(size));
                    background->performAndWait([&] { order.push_back(1); }); // nests
                    EXPECT_EQ(order.size(), size + 1);
                });
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    std::promise<std::thread::id> ran;
    background->perform([&] { ran.set_value(std::this_thread::get_id()); });
    EXPECT_NE(ran.get_future().get(), std::this_thread::get_id());
    background->performAndWait([&] { expectOk(background->save()); });
    EXPECT_EQ(all<Paper>(*view).size(), 80U);
}

TEST_F(ThreadTest, ABlockThatIsQueuedRunsThoughTheContextIsLetGo) {
    std::atomic<int> runs{0};
    {
        auto background = container->newBackgroundContext();
        for (int i = 0; i < 10; ++i)
            background->perform([&runs, i, this, raw = background.get()] {
                paper(*raw, i);
                EXPECT_TRUE(raw->save());
                ++runs;
            });
    }
    EXPECT_EQ(runs, 10);
    std::promise<void> ended;
    {
        auto background = container->newBackgroundContext();
        auto* raw = background.get();
        // The last one to hold the context is its own block.
        raw->perform([holder = std::make_shared<std::shared_ptr<ManagedObjectContext>>(std::move(background)),
                      &ended]() mutable {
            holder->reset();
            ended.set_value();
        });
    }
    ended.get_future().wait();
}

TEST_F(ThreadTest, ManyContextsReadAndWriteOneStore) {
    constexpr int kWriters = 2;
    constexpr int kSaves = 60;
    for (int id = 1; id <= 5; ++id)
        paper(*view, id, "Start");
    auto red = named<Tag>(*view, 1, "Red");
    expectOk(view->save());
    std::atomic<int> running{kWriters};
    std::vector<std::thread> threads;
    for (int writer = 0; writer < kWriters; ++writer) {
        threads.emplace_back([&, writer] {
            auto context = container->newBackgroundContext();
            context->setAutomaticallyMergesChangesFromParent(writer == 0);
            context->setMergePolicy(writer == 0 ? MergePolicy::ByPropertyObjectTrump
                                                : MergePolicy::ByPropertyStoreTrump);
            Ref<ManagedObject> kept; // let go on this thread, outside of the context
            for (int step = 0; step < kSaves; ++step) {
                context->performAndWait([&] {
                    auto object = context->firstWithID<Paper>(step % 5 + 1);
                    ASSERT_TRUE(object);
                    object->setValue(writer == 0 ? Paper::Serial : Paper::Id + 6,
                                     writer == 0 ? Value(std::int64_t{step}) : Value(Blob{"x"}));
                    auto fresh = paper(*context, 1000 * (writer + 1) + step);
                    fresh->addToMany(Paper::Tags, *context->firstWithID<Tag>(1));
                    const auto saved = context->save();
                    ASSERT_TRUE(saved) << saved.error().message;
                    kept = fresh;
                });
            }
            --running;
        });
    }
    threads.emplace_back([&] {
        while (running > 0) {
            const auto ids = container->fetchIDs(
                {.entity = "Paper", .predicate = *Predicate::parse("serial > 3"), .sort = {{"title"}}, .limit = {}});
            EXPECT_TRUE(ids || ids.error().code == static_cast<int>(StoreErrorCode::Busy)) << ids.error().message;
        }
    });
    threads.emplace_back([&] {
        while (running > 0) {
            container->interruptFetches();
            container->processRemoteChanges();
            std::this_thread::yield();
        }
    });
    std::size_t seen = 0;
    while (running > 0) {
        const auto papers = all<Paper>(*view);
        EXPECT_GE(papers.size(), seen);
        seen = papers.size();
        for (const auto& object : papers)
            EXPECT_FALSE(object->isDeleted());
        EXPECT_LE(red->toManyCount(Tag::Papers), std::size_t{kWriters * kSaves});
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(all<Paper>(*view).size(), 5U + kWriters * kSaves);
    EXPECT_EQ(red->toManyCount(Tag::Papers), std::size_t{kWriters * kSaves});
    for (int id = 1; id <= 5; ++id) {
        EXPECT_EQ(view->firstWithID<Paper>(id)->value(Paper::Serial), Value(std::int64_t{kSaves - 6 + id}));
        EXPECT_EQ(view->firstWithID<Paper>(id)->value(Paper::Picture), Value(Blob{"x"}));
    }
}

TEST_F(ThreadTest, AListFetchEndsWhenInterrupted) {
    for (int id = 0; id < 2000; ++id)
        paper(*view, id, std::string(20, static_cast<char>('a' + id % 26)));
    expectOk(view->save());
    // Long enough that it is under way: every title compared with every other locale-aware, again and again.
    std::atomic<bool> ended{false};
    std::thread interrupter([&] {
        while (!ended) {
            container->interruptFetches();
            std::this_thread::yield();
        }
    });
    bool interrupted = false;
    for (int attempt = 0; attempt < 200 && !interrupted; ++attempt) {
        const auto ids =
            container->fetchIDs({.entity = "Paper",
                                 .predicate = {},
                                 .sort = {{"title", SortOrder::Ascending, SortComparison::LocalizedStandard}},
                                 .limit = {}});
        interrupted = !ids && ids.error().code == static_cast<int>(StoreErrorCode::Busy);
    }
    ended = true;
    interrupter.join();
    EXPECT_TRUE(interrupted);
    EXPECT_TRUE(container->fetchIDs({.entity = "Paper", .predicate = {}, .sort = {}, .limit = {}}));
}

} // namespace
} // namespace ledgerfinch::testing
