// SPDX-License-Identifier: GPL-3.0-or-later
#include "faultvfs/FaultVfs.h"
#include "objectstore/TestModel.h"

#include <functional>
#include <sqlite3.h>

namespace ledgerfinch::testing {
namespace {

struct Kind {
    const char* name;
    unsigned operations;
    int code;
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

class FaultTest : public ::testing::TestWithParam<Kind> {
protected:
    void SetUp() override { FaultVfs::install(); }
    void TearDown() override { FaultVfs::clear(); }
};

/// What a store holds, as one text.
std::string contentOf(ManagedObjectContext& context) {
    std::string text;
    auto papers = context.fetch<Paper>({.entity = {}, .predicate = {}, .sort = {{"id"}}, .limit = {}});
    if (!papers) return papers.error().message;
    for (const auto& paper : *papers) {
        text += std::to_string(paper->id()) + " " + paper->title();
        if (const auto body = paper->toOne(Paper::Body))
            if (const auto* bodyText = std::get_if<std::string>(&body->value(Body::Text)))
                text += " " + bodyText->substr(0, 2) + std::to_string(bodyText->size());
        for (const auto& tag : paper->toMany(Paper::Tags))
            text += " " + std::static_pointer_cast<Tag>(tag)->name();
        text += " notes:" + std::to_string(paper->toManyCount(Paper::Notes)) + "\n";
    }
    return text;
}

/// A piece of work where each step is tried until it succeeds; a fault strikes at most once.
class Work {
public:
    Work(const std::filesystem::path& folder, const Logger& log) : m_folder(folder), m_log(log) {}

    void run() {
        open();
        if (!m_container) return;
        auto red = m_view->insert<Tag>();
        auto blue = m_view->insert<Tag>();
        step([&] {
            red->setValue(Named::Name, std::string("Red"));
            blue->setValue(Named::Name, std::string("Blue"));
        });
        std::vector<Ref<Paper>> papers;
        for (int id = 1; id <= 3; ++id) {
            auto paper = m_view->insert<Paper>();
            auto body = m_view->insert<Body>();
            auto note = m_view->insert<Note>();
            papers.push_back(paper);
            step([&] {
                paper->setValue(Paper::Id, std::int64_t{id});
                paper->setTitle("Paper");
                body->setValue(Body::Text, std::string(6000, static_cast<char>('a' + id)));
                paper->setToOne(Paper::Body, body.get());
                paper->setToMany(Paper::Tags, std::vector<Ref<ManagedObject>>{red, blue});
                paper->addToMany(Paper::Notes, *note);
            });
            m_view->refresh(*paper, MergeChanges::No);
        }
        step([&] {
            papers[0]->removeFromMany(Paper::Tags, *red);
            papers[0]->setTitle("Changed");
        });
        step([&] { m_view->remove(*papers[1]); });
        batchDelete();
    }

    /// With no fault any more.
    std::string result() {
        m_view.reset();
        m_container.reset();
        open();
        if (!m_container) return "can't be opened";
        const auto verified = m_container->verify();
        EXPECT_TRUE(verified) << verified.error().message;
        return contentOf(*m_view);
    }

private:
    void open() {
        for (int attempt = 0; attempt < 3 && !m_container; ++attempt) {
            auto opened = PersistentContainer::open(archiveModel(),
                                                    {.file = m_folder / "store.sqlite", .vfs = FaultVfs::kName}, m_log);
            if (opened) {
                m_container = *opened;
            } else {
                EXPECT_TRUE(FaultVfs::hasStruck()) << opened.error().message;
            }
        }
        ASSERT_TRUE(m_container);
        m_view = m_container->viewContext();
    }

    /// A change and its save. What a failure left pending is saved by the next try; a change that couldn't be made at
    /// all, because reading failed, is made again.
    void step(const std::function<void()>& change) {
        for (int attempt = 0; attempt < 3; ++attempt) {
            change();
            const bool hadChanges = m_view->hasChanges();
            const auto saved = m_view->save();
            if (saved) {
                EXPECT_FALSE(m_view->hasChanges());
                return;
            }
            EXPECT_TRUE(FaultVfs::hasStruck()) << saved.error().message;
            EXPECT_EQ(m_view->hasChanges(), hadChanges) << "everything is still pending";
            EXPECT_NE(saved.error().code, 0);
        }
        ADD_FAILURE() << "the save never succeeded";
    }

    void batchDelete() {
        for (int attempt = 0; attempt < 3; ++attempt)
            if (m_container->batchDelete("Note")) return;
        ADD_FAILURE() << "the batch never succeeded";
    }

    std::filesystem::path m_folder;
    Logger m_log;
    std::shared_ptr<PersistentContainer> m_container;
    std::shared_ptr<ManagedObjectContext> m_view;
};

TEST_P(FaultTest, EachOperationInTurnFailsAndTheWorkReachesTheSameState) {
    const Logger log(std::make_shared<MemoryLogSink>(), "FaultTest");
    std::string expected;
    {
        TemporaryFolder folder;
        Work work(folder.path, log);
        work.run();
        expected = work.result();
        ASSERT_NE(expected.find("1 Changed"), std::string::npos) << expected;
    }
    int number = 1;
    for (bool struck = true; struck; ++number) {
        SCOPED_TRACE(number);
        TemporaryFolder folder;
        Work work(folder.path, log);
        FaultVfs::failAt(GetParam().operations, number, GetParam().code);
        work.run();
        struck = FaultVfs::hasStruck();
        FaultVfs::clear();
        ASSERT_EQ(work.result(), expected);
        if (HasFailure()) break;
    }
    EXPECT_GT(number, 2) << "the faults never struck";
    RecordProperty("operations", number);
}

INSTANTIATE_TEST_SUITE_P(All, FaultTest,
                         ::testing::Values(Kind{"DiskFull", FaultVfs::Write, SQLITE_FULL},
                                           Kind{"WriteFails", FaultVfs::Write, SQLITE_IOERR_WRITE},
                                           Kind{"SyncFails", FaultVfs::Sync, SQLITE_IOERR_FSYNC},
                                           Kind{"OpenFails", FaultVfs::Open, SQLITE_CANTOPEN},
                                           Kind{"LockFails", FaultVfs::Lock, SQLITE_IOERR_LOCK},
                                           Kind{"ReadFails", FaultVfs::Read, SQLITE_IOERR_READ},
                                           Kind{"TruncateFails", FaultVfs::Truncate, SQLITE_IOERR_TRUNCATE}),
                         [](const auto& parameter) { return parameter.param.name; });

/// A disk that stays full: everything stays pending, insertions and reading go on, and once there is room all is saved.
TEST(FullDisk, LosesNothing) {
    FaultVfs::install();
    TemporaryFolder folder;
    const Logger log(std::make_shared<MemoryLogSink>(), "FaultTest");
    auto container =
        *PersistentContainer::open(archiveModel(), {.file = folder.path / "store.sqlite", .vfs = FaultVfs::kName}, log);
    auto view = container->viewContext();
    auto first = view->insert<Paper>();
    first->setTitle("First");
    ASSERT_TRUE(view->save());
    FaultVfs::failAt(FaultVfs::Write, 1, SQLITE_FULL, FaultVfs::Lasting::Yes);
    first->setTitle("Changed");
    for (int id = 1; id < 400; ++id) // more than one block of rows
        view->insert<Paper>()->setValue(Paper::Id, std::int64_t{id});
    for (int attempt = 0; attempt < 3; ++attempt) {
        const auto saved = view->save();
        ASSERT_FALSE(saved);
        EXPECT_EQ(saved.error().code, static_cast<int>(StoreErrorCode::Full)) << saved.error().message;
    }
    EXPECT_EQ(*view->count({.entity = "Paper", .predicate = {}, .sort = {}, .limit = {}}), 400U);
    EXPECT_FALSE(container->batchDelete("Paper"));
    FaultVfs::clear();
    ASSERT_TRUE(view->save());
    auto check = container->newMainContext();
    EXPECT_EQ(*check->count({.entity = "Paper", .predicate = {}, .sort = {}, .limit = {}}), 400U);
    EXPECT_EQ(*check->count(
                  {.entity = "Paper", .predicate = *Predicate::parse("title = 'Changed'"), .sort = {}, .limit = {}}),
              1U);
    EXPECT_TRUE(container->verify());
}

} // namespace
} // namespace ledgerfinch::testing
