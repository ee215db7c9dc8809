// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/TestModel.h"

namespace ledgerfinch::testing {
namespace {

using ::testing::Test;

Timestamp at(std::int64_t seconds) {
    return Timestamp(std::chrono::seconds(seconds));
}

TEST_F(StoreTest, EveryKindOfValueComesBackAfterReopening) {
    const Uuid key = Uuid::random();
    const std::string bytes("\0\x01\xff\0", 4);
    auto object = paper(*view, 7, "Übersicht \xF0\x9F\x93\x84");
    object->setValue(Paper::Key, key);
    object->setValue(Paper::Created, Timestamp(std::chrono::microseconds(-1234567890123)));
    object->setValue(Paper::Serial, std::int64_t{-9'000'000'000'000'000'000});
    object->setValue(Paper::Flag, true);
    object->setValue(Paper::Picture, Blob{bytes});
    const ObjectID id = object->objectID();
    auto empty = paper(*view, 8);
    empty->setValue(Paper::Picture, Blob{});
    empty->setValue(Paper::Title, std::string());
    const ObjectID emptyID = empty->objectID();
    expectOk(view->save());
    object.reset();
    empty.reset();
    close();
    open();

    auto again = std::static_pointer_cast<Paper>(view->existingObject(id));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->id(), 7);
    EXPECT_EQ(again->title(), "Übersicht \xF0\x9F\x93\x84");
    EXPECT_EQ(again->value(Paper::Key), Value(key));
    EXPECT_EQ(again->value(Paper::Created), Value(Timestamp(std::chrono::microseconds(-1234567890123))));
    EXPECT_EQ(again->value(Paper::Serial), Value(std::int64_t{-9'000'000'000'000'000'000}));
    EXPECT_EQ(again->value(Paper::Flag), Value(true));
    EXPECT_EQ(again->value(Paper::Picture), Value(Blob{bytes}));

    auto blank = view->existingObject(emptyID);
    ASSERT_TRUE(blank);
    EXPECT_EQ(blank->value(Paper::Picture), Value(Blob{})) << "empty isn't absent";
    EXPECT_EQ(blank->value(Paper::Title), Value(std::string()));
    EXPECT_EQ(blank->value(Paper::Key), Value());
    EXPECT_EQ(blank->value(Paper::Serial), Value(std::int64_t{0}));
    EXPECT_EQ(blank->value("no such attribute"), Value());
}

TEST_F(StoreTest, OneRowIsOneObjectInAContextAndAnotherInTheNext) {
    auto object = paper(*view, 1);
    expectOk(view->save());
    EXPECT_EQ(view->object(object->objectID()), object);
    EXPECT_EQ(view->firstWithID<Paper>(1), object);
    ASSERT_EQ(all<Paper>(*view).size(), 1U);
    EXPECT_EQ(all<Paper>(*view).front(), object);
    auto form = container->newMainContext();
    EXPECT_NE(form->object(object->objectID()), object);
    ObjectID foreign = object->objectID();
    ++foreign.store;
    EXPECT_FALSE(view->object(foreign));
    EXPECT_FALSE(view->object({}));
    EXPECT_FALSE(view->existingObject({container->identity(), foreign.entity, 4711}));
}

TEST_F(StoreTest, AChangeThatIsNoneWritesNothing) {
    auto object = paper(*view, 1, "One");
    auto tag = named<Tag>(*view, 1, "Red");
    object->setToMany(Paper::Tags, std::vector<Ref<ManagedObject>>{tag});
    expectOk(view->save());
    const auto written = container->rowsWritten();
    EXPECT_GE(written, 3U);
    int changes = 0;
    const auto subscription = view->onChange([&](const ChangeSet&) { ++changes; });

    object->setTitle("One");
    object->setToMany(Paper::Tags, std::vector<Ref<ManagedObject>>{tag, nullptr, tag});
    object->addToMany(Paper::Tags, *tag);
    EXPECT_FALSE(view->hasChanges());
    object->setTitle("Two");
    EXPECT_TRUE(object->hasChanged("title"));
    object->setTitle("One");
    object->removeFromMany(Paper::Tags, *tag);
    EXPECT_TRUE(tag->hasChanged("papers"));
    object->addToMany(Paper::Tags, *tag);
    EXPECT_FALSE(object->hasChanged("title"));
    EXPECT_FALSE(object->isUpdated());
    EXPECT_FALSE(view->hasChanges());
    Paper::hookLog().clear();
    expectOk(view->save());
    EXPECT_EQ(container->rowsWritten(), written);
    EXPECT_EQ(changes, 0);
    EXPECT_TRUE(Paper::hookLog().empty());
}

TEST_F(StoreTest, BothSidesOfARelationAgreeWhicheverIsSet) {
    auto first = paper(*view, 1);
    auto second = paper(*view, 2);
    auto sender = named<Sender>(*view, 1, "Bank");
    auto red = named<Tag>(*view, 1, "Red");
    auto body = view->insert<Body>();
    const auto check = [&](const char* when) {
        SCOPED_TRACE(when);
        EXPECT_EQ(first->toOne(Paper::Sender), sender);
        EXPECT_EQ(sender->toManyCount(Sender::Papers), 2U);
        EXPECT_EQ(sender->toMany(Sender::Papers), (std::vector<Ref<ManagedObject>>{first, second}));
        EXPECT_EQ(red->toMany(Tag::Papers), (std::vector<Ref<ManagedObject>>{first}));
        EXPECT_EQ(first->toMany(Paper::Tags), (std::vector<Ref<ManagedObject>>{red}));
        EXPECT_EQ(body->toOne(Body::OfPaper), second);
        EXPECT_EQ(second->toOne(Paper::Body), body);
        EXPECT_FALSE(first->toOne(Paper::Body));
        EXPECT_EQ(first->toMany(Paper::Related), (std::vector<Ref<ManagedObject>>{second}));
        EXPECT_EQ(second->toMany(Paper::RelatedBy), (std::vector<Ref<ManagedObject>>{first}));
        EXPECT_TRUE(second->toMany(Paper::Related).empty());
    };
    first->setToOne(Paper::Sender, sender.get());
    sender->addToMany(Sender::Papers, *second);
    red->addToMany(Tag::Papers, *first);
    first->setToOne(Paper::Body, body.get());
    body->setToOne(Body::OfPaper, second.get()); // stolen from the first
    first->addToMany(Paper::Related, *second);
    check("pending");
    expectOk(view->save());
    check("saved");
    view->refreshAllUnchanged();
    EXPECT_TRUE(first->isFault());
    check("read again");

    // From the other side, and back to nothing.
    second->setToOne(Paper::Body, nullptr);
    sender->setToMany(Sender::Papers, {});
    red->setToMany(Tag::Papers, std::vector<Ref<ManagedObject>>{second});
    EXPECT_FALSE(body->toOne(Body::OfPaper));
    EXPECT_FALSE(first->toOne(Paper::Sender));
    EXPECT_TRUE(first->toMany(Paper::Tags).empty());
    expectOk(view->save());
    view->refreshAllUnchanged();
    EXPECT_FALSE(body->toOne(Body::OfPaper));
    EXPECT_TRUE(sender->toMany(Sender::Papers).empty());
    EXPECT_EQ(second->toMany(Paper::Tags), (std::vector<Ref<ManagedObject>>{red}));
}

TEST_F(StoreTest, AToOneSideOfAToManyHoldsASingleTarget) {
    auto bank = named<Sender>(*view, 1, "Bank");
    auto shop = named<Sender>(*view, 2, "Shop");
    auto ann = named<Person>(*view, 1, "Ann");
    auto bob = named<Person>(*view, 2, "Bob");
    bank->setToMany(Sender::Editors, std::vector<Ref<ManagedObject>>{ann, bob});
    expectOk(view->save());
    shop->setToMany(Sender::Editors, std::vector<Ref<ManagedObject>>{ann});
    EXPECT_EQ(ann->toOne(Person::CanEdit), shop);
    EXPECT_EQ(bank->toMany(Sender::Editors), (std::vector<Ref<ManagedObject>>{bob}));
    expectOk(view->save());
    view->refreshAllUnchanged();
    EXPECT_EQ(bank->toMany(Sender::Editors), (std::vector<Ref<ManagedObject>>{bob}));
    EXPECT_EQ(shop->toMany(Sender::Editors), (std::vector<Ref<ManagedObject>>{ann}));
}

TEST_F(StoreTest, DeletingCascadesAndNullifies) {
    auto doomed = paper(*view, 1, "Doomed");
    auto other = paper(*view, 2);
    auto body = view->insert<Body>();
    auto note = view->insert<Note>();
    auto sender = named<Sender>(*view, 1, "Bank");
    auto red = named<Tag>(*view, 1, "Red");
    doomed->setToOne(Paper::Body, body.get());
    doomed->addToMany(Paper::Notes, *note);
    doomed->setToOne(Paper::Sender, sender.get());
    other->setToOne(Paper::Sender, sender.get());
    doomed->addToMany(Paper::Tags, *red);
    other->addToMany(Paper::Tags, *red);
    expectOk(view->save());
    ASSERT_EQ(red->toManyCount(Tag::Papers), 2U);

    view->remove(*doomed);
    EXPECT_TRUE(doomed->isDeleted());
    EXPECT_TRUE(body->isDeleted());
    EXPECT_TRUE(note->isDeleted());
    EXPECT_EQ(red->toMany(Tag::Papers), (std::vector<Ref<ManagedObject>>{other}));
    EXPECT_EQ(sender->toMany(Sender::Papers), (std::vector<Ref<ManagedObject>>{other}));
    EXPECT_TRUE(all<Note>(*view).empty());
    view->rollback();
    EXPECT_FALSE(doomed->isDeleted());
    EXPECT_EQ(red->toManyCount(Tag::Papers), 2U);
    EXPECT_EQ(all<Note>(*view).size(), 1U);

    view->remove(*doomed);
    view->remove(*sender);
    EXPECT_FALSE(other->toOne(Paper::Sender));
    EXPECT_TRUE(other->hasChanged("sender"));
    expectOk(view->save());
    EXPECT_EQ(doomed->title(), "Doomed") << "the last values stay";
    EXPECT_TRUE(doomed->isDeleted());
    EXPECT_FALSE(doomed->isInserted());
    doomed->setTitle("dropped");
    EXPECT_FALSE(view->hasChanges());
    EXPECT_FALSE(other->toOne(Paper::Sender));
    close();
    open();
    EXPECT_EQ(all<Paper>(*view).size(), 1U);
    EXPECT_TRUE(all<Body>(*view).empty());
    EXPECT_TRUE(all<Note>(*view).empty());
    EXPECT_TRUE(all<Sender>(*view).empty());
    EXPECT_EQ(all<Tag>(*view).front()->toManyCount(Tag::Papers), 1U);
}

TEST_F(StoreTest, RollbackForgetsEverythingPending) {
    auto stored = paper(*view, 1, "Stored");
    auto red = named<Tag>(*view, 1, "Red");
    expectOk(view->save());
    auto fresh = paper(*view, 2, "Fresh");
    stored->setTitle("Changed");
    stored->addToMany(Paper::Tags, *red);
    fresh->addToMany(Paper::Tags, *red);
    EXPECT_EQ(red->toManyCount(Tag::Papers), 2U);
    view->rollback();
    EXPECT_FALSE(view->hasChanges());
    EXPECT_EQ(stored->title(), "Stored");
    EXPECT_TRUE(fresh->isDeleted());
    EXPECT_FALSE(fresh->isInserted());
    EXPECT_EQ(red->toManyCount(Tag::Papers), 0U);
    EXPECT_EQ(all<Paper>(*view).size(), 1U);
    // An insertion that is removed again never was.
    auto brief = paper(*view, 3);
    red->addToMany(Tag::Papers, *brief);
    view->remove(*brief);
    EXPECT_FALSE(view->hasChanges());
    EXPECT_TRUE(red->toMany(Tag::Papers).empty());
}

TEST_F(StoreTest, SaveOnlyLeavesTheRestPending) {
    auto first = paper(*view, 1, "First");
    auto second = paper(*view, 2, "Second");
    auto red = named<Tag>(*view, 1, "Red");
    auto body = view->insert<Body>();
    expectOk(view->save());
    first->setTitle("First, edited");
    first->addToMany(Paper::Tags, *red);
    first->setToOne(Paper::Body, body.get());
    auto note = view->insert<Note>();
    first->addToMany(Paper::Notes, *note); // travels along: it holds the relation
    auto blue = named<Tag>(*view, 2, "Blue");
    first->addToMany(Paper::Tags, *blue); // so does an insertion that it points to
    second->setTitle("Second, edited");
    second->addToMany(Paper::Tags, *red);
    auto third = paper(*view, 3);

    expectOk(view->saveOnly(*first));
    EXPECT_FALSE(first->isUpdated());
    EXPECT_FALSE(note->isInserted());
    EXPECT_FALSE(blue->isInserted());
    EXPECT_TRUE(second->isUpdated());
    EXPECT_TRUE(second->hasChanged("tags"));
    EXPECT_TRUE(third->isInserted());
    auto other = container->newMainContext();
    EXPECT_EQ(other->firstWithID<Paper>(1)->title(), "First, edited");
    EXPECT_EQ(other->firstWithID<Paper>(1)->toManyCount(Paper::Tags), 2U);
    EXPECT_EQ(other->firstWithID<Paper>(1)->toManyCount(Paper::Notes), 1U);
    EXPECT_EQ(other->firstWithID<Paper>(2)->title(), "Second");
    EXPECT_EQ(other->firstWithID<Tag>(1)->toManyCount(Tag::Papers), 1U);
    EXPECT_FALSE(other->firstWithID<Paper>(3));
    expectOk(view->save());
    EXPECT_FALSE(view->hasChanges());
    EXPECT_EQ(other->firstWithID<Tag>(1)->toManyCount(Tag::Papers), 2U);
    EXPECT_TRUE(other->firstWithID<Paper>(3));
}

TEST_F(StoreTest, RefreshForgetsOrKeepsChanges) {
    auto object = paper(*view, 1, "Stored");
    auto red = named<Tag>(*view, 1, "Red");
    expectOk(view->save());
    auto other = container->newMainContext();
    auto theirs = other->firstWithID<Paper>(1);
    theirs->setTitle("Theirs");
    theirs->setValue(Paper::Serial, std::int64_t{5});
    view->setAutomaticallyMergesChangesFromParent(false);
    object->setTitle("Mine");
    object->addToMany(Paper::Tags, *red);
    expectOk(other->save());

    EXPECT_EQ(object->value(Paper::Serial), Value(std::int64_t{0}));
    view->refresh(*object, MergeChanges::Yes);
    EXPECT_EQ(object->title(), "Mine");
    EXPECT_EQ(object->value(Paper::Serial), Value(std::int64_t{5}));
    EXPECT_EQ(object->toManyCount(Paper::Tags), 1U);
    view->refresh(*object, MergeChanges::No);
    EXPECT_TRUE(object->isFault());
    EXPECT_EQ(object->title(), "Theirs");
    EXPECT_EQ(red->toManyCount(Tag::Papers), 0U);
    EXPECT_FALSE(view->hasChanges());
    auto fresh = paper(*view, 2, "Fresh");
    view->refresh(*fresh, MergeChanges::No);
    EXPECT_TRUE(fresh->isInserted());
    EXPECT_EQ(fresh->title(), "Fresh");
}

TEST_F(StoreTest, HooksTellWhatIsSaved) {
    auto object = paper(*view, 1);
    object->titleAtSave = "Stamped";
    expectOk(view->save());
    EXPECT_EQ(Paper::hookLog(), (std::vector<std::string>{"will inserted", "did inserted"}));
    EXPECT_EQ(object->title(), "Stamped");
    object->titleAtSave.clear();
    Paper::hookLog().clear();
    auto red = named<Tag>(*view, 1, "Red");
    object->addToMany(Paper::Tags, *red);
    expectOk(view->save());
    EXPECT_EQ(Paper::hookLog(), (std::vector<std::string>{"will updated", "did updated"}));
    EXPECT_FALSE(object->isUpdated());
    Paper::hookLog().clear();
    view->remove(*object);
    expectOk(view->save());
    EXPECT_EQ(Paper::hookLog(), (std::vector<std::string>{"will deleted", "did deleted"}));
}

TEST_F(StoreTest, ObjectsOutliveTheirContext) {
    auto form = container->newMainContext();
    auto loaded = paper(*form, 1, "Loaded");
    auto red = named<Tag>(*form, 1, "Red");
    loaded->addToMany(Paper::Tags, *red);
    expectOk(form->save());
    auto fault = form->object({container->identity(), 0, loaded->objectID().row + 1});
    form.reset();
    EXPECT_FALSE(loaded->context());
    EXPECT_EQ(loaded->title(), "Loaded");
    loaded->setTitle("dropped");
    EXPECT_EQ(loaded->title(), "Loaded");
    EXPECT_FALSE(loaded->toOne(Paper::Sender));
    EXPECT_TRUE(loaded->toMany(Paper::Tags).empty());
    EXPECT_EQ(fault->value(Paper::Id), Value(std::int64_t{0}));
    EXPECT_EQ(fault->value(Paper::Title), Value());
}

TEST_F(StoreTest, FetchSortsWithAbsentFirstAndRowsAsTies) {
    auto bank = named<Sender>(*view, 1, "bank");
    auto shop = named<Sender>(*view, 2, "Shop 10");
    auto store = named<Sender>(*view, 3, "Shop 9");
    for (const auto& [id, sender] :
         std::vector<std::pair<int, Ref<Sender>>>{{1, shop}, {2, nullptr}, {3, bank}, {4, store}, {5, shop}}) {
        auto object = paper(*view, id);
        object->setToOne(Paper::Sender, sender.get());
        if (id != 2) object->setValue(Paper::Created, at(10 - id));
    }
    const auto ids = [&](std::vector<SortDescriptor> sort) {
        std::vector<std::int64_t> result;
        for (const auto& object : all<Paper>(*view, "TRUEPREDICATE", {}, std::move(sort)))
            result.push_back(object->id());
        return result;
    };
    using L = std::vector<std::int64_t>;
    for (const char* when : {"pending", "saved"}) {
        SCOPED_TRACE(when);
        EXPECT_EQ(ids({}), (L{1, 2, 3, 4, 5}));
        EXPECT_EQ(ids({{"created", SortOrder::Ascending}}), (L{2, 5, 4, 3, 1}));
        EXPECT_EQ(ids({{"created", SortOrder::Descending}}), (L{1, 3, 4, 5, 2}));
        EXPECT_EQ(ids({{"sender.name", SortOrder::Ascending}}), (L{2, 1, 5, 4, 3}));
        EXPECT_EQ(ids({{"sender.name", SortOrder::Descending}}), (L{3, 4, 1, 5, 2}));
        EXPECT_EQ(ids({{"sender.name", SortOrder::Ascending, SortComparison::LocalizedStandard}}), (L{2, 3, 4, 1, 5}));
        EXPECT_EQ(ids({{"no.such.key", SortOrder::Ascending}, {"sender", SortOrder::Descending}}), (L{1, 2, 3, 4, 5}));
        auto window =
            view->fetch<Paper>({.entity = {}, .predicate = {}, .sort = {{"created"}}, .limit = 2, .offset = 1});
        ASSERT_TRUE(window);
        ASSERT_EQ(window->size(), 2U);
        EXPECT_EQ(window->front()->id(), 5);
        EXPECT_EQ(*view->count({.entity = "Paper", .predicate = {}, .sort = {}, .limit = {}, .offset = 2}), 3U);
        expectOk(view->save());
    }
    EXPECT_FALSE(view->fetch({.entity = "Nothing", .predicate = {}, .sort = {}, .limit = {}}));
}

TEST_F(StoreTest, LooksUpIdsThroughPendingChanges) {
    auto first = paper(*view, 5, "First");
    auto second = paper(*view, 5, "Second");
    EXPECT_EQ(view->firstWithID<Paper>(5), first);
    expectOk(view->save());
    EXPECT_EQ(view->firstWithID<Paper>(5), first);
    EXPECT_FALSE(view->firstWithID<Paper>(6));
    first->setValue(Paper::Id, std::int64_t{6});
    EXPECT_EQ(view->firstWithID<Paper>(6), first);
    EXPECT_EQ(view->firstWithID<Paper>(5), second);
    EXPECT_EQ(*view->max("Paper", "id"), std::optional<std::int64_t>(6));
    view->remove(*second);
    EXPECT_FALSE(view->firstWithID<Paper>(5));
    view->rollback();
    EXPECT_EQ(view->firstWithID<Paper>(5), first);
    EXPECT_FALSE(view->firstWithID<Paper>(6));
    auto third = paper(*view, 6);
    EXPECT_EQ(view->firstWithID<Paper>(6), third);
    view->remove(*first);
    view->remove(*second);
    EXPECT_EQ(*view->max("Paper", "id"), std::optional<std::int64_t>(6));
    expectOk(view->save());
    EXPECT_FALSE(view->firstWithID<Paper>(5));
    EXPECT_EQ(view->firstWithID<Paper>(6), third);
    EXPECT_EQ(*view->max("Tag", "id"), std::nullopt);
    EXPECT_FALSE(view->max("Tag", "name"));
}

} // namespace
} // namespace ledgerfinch::testing
