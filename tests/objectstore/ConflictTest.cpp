// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/TestModel.h"

namespace ledgerfinch::testing {
namespace {

/// A paper saved in the view context, and the same one in a context that doesn't merge by itself.
class ConflictTest : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        mine = paper(*view, 1, "Old");
        tag = named<Tag>(*view, 1, "Red");
        expectOk(view->save());
        other = container->newMainContext();
        theirs = other->firstWithID<Paper>(1);
        ASSERT_EQ(theirs->title(), "Old");
    }
    void TearDown() override {
        theirs.reset();
        other.reset();
        mine.reset();
        tag.reset();
        StoreTest::TearDown();
    }
    Ref<Paper> mine;
    Ref<Tag> tag;
    Ref<Paper> theirs;
    std::shared_ptr<ManagedObjectContext> other;
};

TEST_F(ConflictTest, IsSettledPropertyByProperty) {
    for (const auto policy : {MergePolicy::ByPropertyStoreTrump, MergePolicy::ByPropertyObjectTrump}) {
        SCOPED_TRACE(policy == MergePolicy::ByPropertyStoreTrump ? "store trumps" : "object trumps");
        const bool storeWins = policy == MergePolicy::ByPropertyStoreTrump;
        other->setMergePolicy(policy);
        auto bank = named<Sender>(*view, 1, "Bank");
        mine->setTitle("From the view");
        mine->setValue(Paper::Serial, std::int64_t{7});
        mine->setToOne(Paper::Sender, bank.get());
        theirs->setTitle("From the other");
        theirs->setValue(Paper::Flag, !std::get<bool>(theirs->value(Paper::Flag)));
        const Value flag = theirs->value(Paper::Flag);
        expectOk(view->save());
        expectOk(other->save());
        const std::string winner = storeWins ? "From the view" : "From the other";
        EXPECT_EQ(theirs->title(), winner);
        EXPECT_EQ(theirs->value(Paper::Serial), Value(std::int64_t{7})) << "what only the store changed";
        EXPECT_EQ(theirs->value(Paper::Flag), flag) << "what only the object changed";
        EXPECT_EQ(theirs->toOneID(Paper::Sender), bank->objectID());
        EXPECT_FALSE(other->hasChanges());
        EXPECT_EQ(mine->title(), winner) << "merged back";
        EXPECT_EQ(mine->value(Paper::Flag), flag);
        other->refresh(*theirs, MergeChanges::No);
        mine->setTitle("Old");
        mine->setValue(Paper::Serial, std::int64_t{0});
        mine->setToOne(Paper::Sender, nullptr);
        expectOk(view->save());
        other->refresh(*theirs, MergeChanges::No);
        ASSERT_EQ(theirs->title(), "Old");
    }
}

TEST_F(ConflictTest, ARowThatIsGoneTakesTheChangesWithIt) {
    auto note = other->insert<Note>();
    theirs->setTitle("Too late");
    theirs->addToMany(Paper::Notes, *note);
    theirs->addToMany(Paper::Tags, *other->firstWithID<Tag>(1));
    view->remove(*mine);
    expectOk(view->save());
    expectOk(other->save());
    EXPECT_TRUE(theirs->isDeleted());
    EXPECT_FALSE(other->hasChanges());
    EXPECT_EQ(theirs->title(), "Old");
    EXPECT_FALSE(note->isDeleted()) << "the note itself was inserted";
    EXPECT_FALSE(note->toOne(Note::OfPaper));
    EXPECT_EQ(other->firstWithID<Tag>(1)->toManyCount(Tag::Papers), 0U);
    auto check = container->newMainContext();
    EXPECT_EQ(all<Note>(*check).size(), 1U);
    EXPECT_FALSE(check->firstWithID<Paper>(1));
}

TEST_F(ConflictTest, ATargetThatIsGoneLeavesTheRelationEmpty) {
    auto theirTag = other->firstWithID<Tag>(1);
    auto fresh = paper(*other, 2, "Fresh");
    fresh->addToMany(Paper::Tags, *theirTag);
    fresh->addToMany(Paper::Related, *theirs);
    auto body = other->insert<Body>();
    body->setToOne(Body::OfPaper, fresh.get());
    view->remove(*tag);
    expectOk(view->save());
    expectOk(other->save());
    EXPECT_TRUE(theirTag->isDeleted());
    EXPECT_TRUE(fresh->toMany(Paper::Tags).empty());
    EXPECT_EQ(fresh->toManyCount(Paper::Related), 1U);
    EXPECT_EQ(fresh->toOne(Paper::Body), body);
    EXPECT_FALSE(other->hasChanges());
    EXPECT_TRUE(view->firstWithID<Paper>(2));
}

TEST_F(ConflictTest, RowsAttachedMeanwhileGoInTheCascade) {
    ASSERT_EQ(theirs->toManyCount(Paper::Notes), 0U);
    auto note = view->insert<Note>();
    auto body = view->insert<Body>();
    mine->addToMany(Paper::Notes, *note);
    mine->setToOne(Paper::Body, body.get());
    expectOk(view->save());
    other->remove(*theirs);
    expectOk(other->save());
    EXPECT_FALSE(view->firstWithID<Paper>(1));
    EXPECT_TRUE(mine->isDeleted());
    EXPECT_TRUE(note->isDeleted());
    EXPECT_TRUE(body->isDeleted());
    EXPECT_TRUE(all<Note>(*view).empty());
    EXPECT_TRUE(all<Body>(*view).empty());
}

TEST_F(ConflictTest, OneToOneEndsWithOnePartnerThoughBothWereQuick) {
    auto body = view->insert<Body>();
    auto second = paper(*view, 2);
    expectOk(view->save());
    auto theirBody = std::static_pointer_cast<Body>(other->existingObject(body->objectID()));
    ASSERT_FALSE(theirBody->toOne(Body::OfPaper));
    mine->setToOne(Paper::Body, body.get());
    auto theirSecond = other->firstWithID<Paper>(2);
    theirSecond->setToOne(Paper::Body, theirBody.get());
    expectOk(view->save());
    expectOk(other->save());
    EXPECT_EQ(all<Paper>(*view, "body != nil").size(), 1U);
    EXPECT_FALSE(mine->toOne(Paper::Body));
    EXPECT_EQ(body->toOne(Body::OfPaper), second);
}

TEST_F(ConflictTest, PartnersThatAreExchangedDontConflictWithEachOther) {
    other->setMergePolicy(MergePolicy::ByPropertyStoreTrump);
    auto second = paper(*other, 2);
    auto first = other->insert<Body>();
    auto last = other->insert<Body>();
    theirs->setToOne(Paper::Body, first.get());
    second->setToOne(Paper::Body, last.get());
    expectOk(other->save());
    theirs->setToOne(Paper::Body, last.get());
    second->setToOne(Paper::Body, first.get());
    expectOk(other->save());
    for (const char* when : {"saved", "read again"}) {
        SCOPED_TRACE(when);
        EXPECT_EQ(theirs->toOne(Paper::Body), last);
        EXPECT_EQ(second->toOne(Paper::Body), first);
        EXPECT_EQ(last->toOne(Body::OfPaper), theirs);
        other->refreshAllUnchanged();
    }
    theirs->setToOne(Paper::Body, nullptr);
    second->setToOne(Paper::Body, last.get());
    first->setToOne(Body::OfPaper, theirs.get());
    expectOk(other->save());
    other->refreshAllUnchanged();
    EXPECT_EQ(theirs->toOne(Paper::Body), first);
    EXPECT_EQ(second->toOne(Paper::Body), last);
}

TEST_F(ConflictTest, MergesIntoLoadedObjectsUnderUnsavedChanges) {
    auto second = paper(*view, 2, "Second");
    expectOk(view->save());
    std::vector<ChangeSet> told;
    const auto subscription = view->onChange([&](const ChangeSet& changes) { told.push_back(changes); });
    ASSERT_EQ(tag->toManyCount(Tag::Papers), 0U);
    mine->setTitle("Unsaved");
    theirs->setTitle("Saved elsewhere");
    theirs->setValue(Paper::Serial, std::int64_t{3});
    theirs->addToMany(Paper::Tags, *other->firstWithID<Tag>(1));
    other->remove(*other->firstWithID<Paper>(2));
    auto inserted = paper(*other, 3);
    expectOk(other->save());

    EXPECT_FALSE(view->object({})); // any call takes what has arrived
    EXPECT_EQ(mine->title(), "Unsaved");
    EXPECT_EQ(mine->value(Paper::Serial), Value(std::int64_t{3}));
    EXPECT_TRUE(mine->hasChanged("title"));
    EXPECT_FALSE(mine->hasChanged("serial"));
    EXPECT_EQ(tag->toMany(Tag::Papers), (std::vector<Ref<ManagedObject>>{mine}));
    EXPECT_TRUE(second->isDeleted());
    EXPECT_EQ(second->title(), "Second");
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].inserted, std::vector<ObjectID>{inserted->objectID()});
    EXPECT_EQ(told[0].deleted, std::vector<ObjectID>{second->objectID()});
    EXPECT_EQ(told[0].updated, (std::vector<ObjectID>{mine->objectID(), tag->objectID()}));
    expectOk(view->save());
    other->refresh(*theirs, MergeChanges::No);
    EXPECT_EQ(theirs->title(), "Unsaved");
}

TEST_F(ConflictTest, WithoutMergingValuesStayUntilRefreshed) {
    ASSERT_EQ(theirs->title(), "Old");
    mine->setTitle("New");
    expectOk(view->save());
    EXPECT_EQ(theirs->title(), "Old");
    other->refresh(*theirs, MergeChanges::Yes);
    EXPECT_EQ(theirs->title(), "New");
    view->remove(*mine);
    expectOk(view->save());
    EXPECT_FALSE(theirs->isDeleted());
    other->refreshAllUnchanged();
    EXPECT_EQ(theirs->title(), "New") << "the last values";
    EXPECT_TRUE(theirs->isDeleted());
    EXPECT_FALSE(other->existingObject(theirs->objectID()));
}

TEST_F(ConflictTest, RememberedIdsFollowTheStore) {
    EXPECT_FALSE(other->firstWithID<Tag>(2));
    auto blue = named<Tag>(*view, 2, "Blue");
    expectOk(view->save());
    ASSERT_TRUE(other->firstWithID<Tag>(2));
    blue->setValue(Named::Id, std::int64_t{3});
    expectOk(view->save());
    EXPECT_FALSE(other->firstWithID<Tag>(2));
    EXPECT_TRUE(other->firstWithID<Tag>(3));
    expectOk(container->batchDelete("Tag"));
    EXPECT_FALSE(other->firstWithID<Tag>(3));
    EXPECT_FALSE(view->firstWithID<Tag>(1));
    EXPECT_EQ(tag->name(), "Red");
}

TEST_F(ConflictTest, ABatchDeletesInPiecesAndTellsEveryContext) {
    for (int id = 10; id < 1300; ++id) {
        auto object = paper(*view, id);
        auto note = view->insert<Note>();
        object->addToMany(Paper::Notes, *note);
        object->addToMany(Paper::Tags, *tag);
    }
    expectOk(view->save());
    ASSERT_EQ(tag->toManyCount(Tag::Papers), 1290U);
    bool everything = false;
    const auto subscription = view->onChange([&](const ChangeSet& changes) { everything |= changes.everything; });
    const auto written = container->rowsWritten();
    expectOk(container->batchDelete("Paper"));
    EXPECT_TRUE(all<Paper>(*view).empty());
    EXPECT_TRUE(everything);
    EXPECT_TRUE(all<Note>(*view).empty());
    EXPECT_EQ(tag->toManyCount(Tag::Papers), 0U);
    EXPECT_EQ(mine->title(), "Old");
    EXPECT_TRUE(mine->isDeleted());
    EXPECT_GE(container->rowsWritten(), written + 1291 + 1290 + 1290);
    EXPECT_FALSE(container->batchDelete("Nothing"));
}

} // namespace
} // namespace ledgerfinch::testing
