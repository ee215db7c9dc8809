// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/TestModel.h"

#include <random>

namespace ledgerfinch::testing {
namespace {

struct Accepted {
    const char* format;
    const char* printed;
};

TEST(PredicateLanguage, PrintsWhatItParsed) {
    const Accepted table[] = {
        {"id = 5", "id == 5"},
        {"id==-5", "id == -5"},
        {"archive_serial_number >5 AND archive_serial_number != ''",
         "archive_serial_number > 5 AND archive_serial_number != ''"},
        {"a => 1 and b =< 2 or not c <> 3", "(a >= 1 AND b <= 2) OR NOT c != 3"},
        {"a=1||b=2&&!c=3", "a == 1 OR (b == 2 AND NOT c == 3)"},
        {"(a = 1 OR (b = 2 OR c = 3))", "a == 1 OR (b == 2 OR c == 3)"},
        {"NOT (a = 1 AND b = 2)", "NOT (a == 1 AND b == 2)"},
        {"owner.id != 3 OR owner == nil", "owner.id != 3 OR owner == nil"},
        {"title = \"it's\\n\"", "title == 'it\\'s\\n'"},
        {"serial = 1.5 OR serial = 1e3", "serial == 1.5 OR serial == 1000.0"},
        {"id = 99999999999999999999", "id == 1e+20"},
        {"flag = YES AND other = false", "flag == TRUE AND other == FALSE"},
        {"created => CAST(725846400.0, \"NSDate\")", "created >= CAST(725846400.0, \"NSDate\")"},
        {"modified < 2001-01-02T00:00:00Z", "modified < CAST(86400.0, \"NSDate\")"},
        {"nothing.at.all = other.path", "nothing.at.all == other.path"},
        {"TRUEPREDICATE", "TRUEPREDICATE"},
        {"order = 1 AND android = 2", "order == 1 AND android == 2"},
    };
    for (const auto& [format, printed] : table) {
        SCOPED_TRACE(format);
        auto predicate = Predicate::parse(format);
        ASSERT_TRUE(predicate) << predicate.error().message;
        EXPECT_EQ(predicate->predicateFormat(), printed);
        auto again = Predicate::parse(printed);
        ASSERT_TRUE(again);
        EXPECT_EQ(again->predicateFormat(), printed);
    }
}

TEST(PredicateLanguage, RefusesWithThePosition) {
    const std::pair<const char*, int> table[] = {
        {"", 1},
        {"id", 3},
        {"id =", 5},
        {"id = 5 AND", 11},
        {"(id = 5", 8},
        {"id = 5)", 7},
        {"id = 'open", 11},
        {"id = 5 6", 8},
        {"id ~ 5", 4},
        {"a. = 1", 3},
        {"id = %d", 7},
        {"id = 5x", 6},
        {"x = CAST(1, \"NSData\")", 13},
        {"id = %q", 7},
        {"title == 'a'b'", 13},
    };
    for (const auto& [format, position] : table) {
        SCOPED_TRACE(format);
        const auto predicate = Predicate::parse(format);
        ASSERT_FALSE(predicate);
        EXPECT_EQ(predicate.error().code, position) << predicate.error().message;
    }
    EXPECT_FALSE(Predicate::parse("id = %d", {std::int64_t{1}, std::int64_t{2}})) << "an argument too many";
    EXPECT_FALSE(Predicate::parse(std::string(100'000, '('))) << "nesting has a bound";
    EXPECT_FALSE(Predicate::parse(std::string(100'000, '!')));
    EXPECT_TRUE(Predicate::parse(std::string(100, '(') + "id = 1" + std::string(100, ')')));
}

TEST(PredicateLanguage, JoinsPredicates) {
    const auto one = *Predicate::parse("id = %d", {std::int64_t{1}});
    const auto two = *Predicate::parse("title = %@", {std::string("it's")});
    EXPECT_EQ(Predicate::allOf({}).predicateFormat(), "TRUEPREDICATE");
    EXPECT_EQ(Predicate::anyOf({}).predicateFormat(), Predicate::nothing().predicateFormat());
    EXPECT_EQ(Predicate::allOf({one}).predicateFormat(), "id == 1");
    EXPECT_EQ(Predicate::allOf({one, Predicate::anyOf({one, two})}).predicateFormat(),
              "id == 1 AND (id == 1 OR title == 'it\\'s')");
}

TEST_F(StoreTest, ComparesByTheKindOfTheAttribute) {
    auto object = paper(*view, 5, "five");
    object->setValue(Paper::Flag, true);
    const Uuid key = Uuid::random();
    object->setValue(Paper::Key, key);
    object->setValue(Paper::Created, Timestamp(std::chrono::seconds(978307200 + 60)));
    auto bank = named<Sender>(*view, 3, "bank");
    object->setToOne(Paper::Sender, bank.get());
    const std::pair<std::string, bool> table[] = {
        {"serial = ''", true},
        {"serial != ''", false},
        {"id > ''", true},
        {"id = '5'", true},
        {"id = '5.0'", true},
        {"id = 'five'", false},
        {"id != 'five'", false},
        {"NOT id = 'five'", true},
        {"5 = id", true},
        {"4 < id", true},
        {"id < 5.5", true},
        {"id = 5.5", false},
        {"flag = 1", true},
        {"flag = true", true},
        {"flag = 'x'", false},
        {"title < 'g'", true},
        {"title = 5", false},
        {"picture = nil", true},
        {"picture != nil", false},
        {"picture != 5", false},
        {"serial != nil", true},
        {"sender = nil", false},
        {"sender != nil", true},
        {"owner = nil", true},
        {"owner.id != 3", false},
        {"NOT owner.id = 3", true},
        {"owner.name = nil", true},
        {"sender.id = 3", true},
        {"sender.name = 'bank'", true},
        {"created = 60", true},
        {"created < '2001-01-02'", true},
        {"created < 'soon'", false},
        {"id = sender.id", false},
        {"id > sender.id", true},
        {"tags = nil", true},
        {"nonsense = nil", true},
        {"nonsense = 1", false},
        {"nil = nil", true},
        {"5 = '5'", true},
        {"key = '" + key.text() + "'", true},
        {"title = nil OR title < owner.name", false},
        {"sender = 1", false},
        {"serial > 9223372036854775808", false},
        {"serial > -9223372036854775809", true},
        {"id >= nil", false},
    };
    for (const char* when : {"pending", "saved"}) {
        for (const auto& [format, matches] : table) {
            SCOPED_TRACE(std::string(when) + ": " + format);
            EXPECT_EQ(Predicate::parse(format)->evaluate(*object), matches);
            EXPECT_EQ(all<Paper>(*view, format).size(), matches ? 1U : 0U);
        }
        EXPECT_EQ(all<Paper>(*view, "key = %@ AND created = %@ AND id = %d",
                             {key, Timestamp(std::chrono::seconds(978307200 + 60)), std::int64_t{5}})
                      .size(),
                  1U);
        expectOk(view->save());
    }
}

TEST_F(StoreTest, AnswersConditionsOfThousandsOfParts) {
    for (int id = 0; id < 20; ++id)
        paper(*view, id);
    expectOk(view->save());
    std::vector<Predicate> parts;
    for (int id = 10; id < 3000; ++id)
        parts.push_back(*Predicate::parse("id = %d", {std::int64_t{id}}));
    auto found = view->fetch<Paper>({.entity = {}, .predicate = Predicate::anyOf(parts), .sort = {}, .limit = {}});
    ASSERT_TRUE(found) << found.error().message;
    EXPECT_EQ(found->size(), 10U);
}

/// Makes stores, pending changes, conditions and orders by chance, and compares what the store says, what memory says,
/// and what both say together while changes are pending.
class ChanceTest : public StoreTest {
protected:
    template <class T>
    const T& oneOf(const std::vector<T>& list) {
        return list[chance(list.size())];
    }
    std::size_t chance(std::size_t below) { return std::uniform_int_distribution<std::size_t>(0, below - 1)(random); }

    std::string text() {
        return oneOf<std::string>(
            {"", "a", "b", "B", "5", "5.0", "-3", "ä", "a b", "10", "x'y", "\xF0\x9F\x93\x84", "0"});
    }
    std::int64_t number() { return oneOf<std::int64_t>({-3, 0, 1, 2, 5, 10, INT64_MAX, INT64_MIN}); }
    Timestamp time() {
        return Timestamp(std::chrono::seconds(oneOf<std::int64_t>({-5, 0, 978307200, 978307205, 1'700'000'000})));
    }
    Uuid key() { return oneOf(keys); }

    void change(Paper& object) {
        switch (chance(9)) {
        case 0:
            object.setValue(Paper::Id, number());
            break;
        case 1:
            object.setValue(Paper::Title, chance(4) ? Value(text()) : Value());
            break;
        case 2:
            object.setValue(Paper::Created, chance(4) ? Value(time()) : Value());
            break;
        case 3:
            object.setValue(Paper::Serial, number());
            break;
        case 4:
            object.setValue(Paper::Flag, chance(2) == 0);
            break;
        case 5:
            object.setValue(Paper::Key, chance(3) ? Value(key()) : Value());
            break;
        case 6:
            object.setToOne(Paper::Sender, pick(senders).get());
            break;
        case 7:
            object.setToOne(Paper::Owner, pick(persons).get());
            break;
        case 8:
            object.setToOne(Paper::Body, pick(bodies).get());
            break;
        default:
            break;
        }
    }

    template <class T>
    Ref<T> pick(std::vector<Ref<T>>& list) {
        std::erase_if(list, [](const auto& object) { return object->isDeleted(); });
        return list.empty() || chance(4) == 0 ? nullptr : oneOf(list);
    }

    void changeSomething() {
        switch (chance(12)) {
        case 0:
            papers.push_back(view->insert<Paper>());
            break;
        case 1:
            if (auto object = pick(papers); object && chance(3) == 0) view->remove(*object);
            break;
        case 2:
            senders.push_back(named<Sender>(*view, number(), text()));
            break;
        case 3:
            if (auto object = pick(senders); object && chance(4) == 0) view->remove(*object);
            break;
        case 4:
            if (auto object = pick(senders)) object->setValue(Named::Name, text());
            break;
        case 5:
            persons.push_back(named<Person>(*view, number(), text()));
            break;
        case 6:
            if (auto object = pick(persons)) object->setToOne(Person::CanEdit, pick(senders).get());
            break;
        case 7:
            if (auto object = pick(persons); object && chance(4) == 0) view->remove(*object);
            break;
        case 8:
            bodies.push_back(view->insert<Body>());
            bodies.back()->setValue(Body::Text, text());
            break;
        case 9:
            if (auto object = pick(bodies)) object->setToOne(Body::OfPaper, pick(papers).get());
            break;
        case 10:
            if (auto object = pick(bodies); object && chance(4) == 0) view->remove(*object);
            break;
        default:
            break;
        }
        if (auto object = pick(papers)) change(*object);
    }

    std::string path() {
        return oneOf<std::string>({"id",
                                   "serial",
                                   "flag",
                                   "title",
                                   "created",
                                   "key",
                                   "picture",
                                   "sender",
                                   "sender.name",
                                   "sender.id",
                                   "owner.name",
                                   "owner",
                                   "owner.canEdit.name",
                                   "owner.canEdit",
                                   "body",
                                   "body.text",
                                   "body.ofPaper.title",
                                   "tags",
                                   "nonsense.path",
                                   "title.name"});
    }
    std::string literal() {
        switch (chance(8)) {
        case 0:
            return "nil";
        case 1:
            return std::to_string(number() / 2);
        case 2:
            return oneOf<std::string>({"0.5", "5.0", "-1e30", "9223372036854775808"});
        case 3:
            return chance(2) ? "TRUE" : "NO";
        case 4:
            return "'" + key().text() + "'";
        case 5:
            return oneOf<std::string>(
                {"CAST(5.0, \"NSDate\")", "2001-01-01T00:00:00Z", "CAST(-978307205, \"NSDate\")"});
        default: {
            std::string quotedText;
            for (const char c : text())
                quotedText += c == '\'' ? std::string("\\'") : std::string(1, c);
            return "'" + quotedText + "'";
        }
        }
    }
    std::string tree(int depth) {
        if (depth == 0 || chance(3) == 0) {
            const std::string op = oneOf<std::string>({"=", "!=", "<", "<=", ">", ">="});
            if (chance(12) == 0) return literal() + " " + op + " " + literal();
            if (chance(6) == 0) return path() + " " + op + " " + path();
            return chance(6) ? path() + " " + op + " " + literal() : literal() + " " + op + " " + path();
        }
        if (chance(4) == 0) return "NOT (" + tree(depth - 1) + ")";
        std::string joined = "(" + tree(depth - 1);
        const char* joint = chance(2) ? " AND " : " OR ";
        for (std::size_t i = 0; i <= chance(3); ++i)
            joined += joint + tree(depth - 1);
        return joined + ")";
    }
    std::vector<SortDescriptor> order() {
        std::vector<SortDescriptor> sort;
        while (chance(3) != 0 && sort.size() < 3)
            sort.push_back({path(), chance(2) ? SortOrder::Ascending : SortOrder::Descending,
                            chance(3) ? SortComparison::Plain : SortComparison::LocalizedStandard});
        return sort;
    }

    std::mt19937 random{20'26};
    std::vector<Uuid> keys{Uuid::random(), Uuid::random()};
    std::vector<Ref<Paper>> papers;
    std::vector<Ref<Sender>> senders;
    std::vector<Ref<Person>> persons;
    std::vector<Ref<Body>> bodies;
};

TEST_F(ChanceTest, StoreAndMemoryAndBothTogetherAnswerAlike) {
    for (int round = 0; round < 25; ++round) {
        for (int i = 0; i < 25; ++i)
            changeSomething();
        struct Question {
            FetchRequest request;
            std::string text;
            std::vector<ObjectID> whilePending;
        };
        std::vector<Question> questions;
        for (int i = 0; i < 30; ++i) {
            const std::string text = tree(3);
            SCOPED_TRACE(text);
            auto predicate = Predicate::parse(text);
            ASSERT_TRUE(predicate) << predicate.error().message;
            const std::string printed = predicate->predicateFormat();
            auto again = Predicate::parse(printed);
            ASSERT_TRUE(again) << printed;
            ASSERT_EQ(again->predicateFormat(), printed);

            Question question{
                {.entity = "Paper", .predicate = i % 2 ? *predicate : *again, .sort = order(), .limit = {}}, text, {}};
            auto found = view->fetchIDs(question.request);
            ASSERT_TRUE(found) << found.error().message;
            question.whilePending = *found;
            std::vector<ObjectID> inMemory;
            for (const auto& object : papers)
                if (!object->isDeleted() && predicate->evaluate(*object)) inMemory.push_back(object->objectID());
            std::sort(inMemory.begin(), inMemory.end());
            std::sort(found->begin(), found->end());
            ASSERT_EQ(*found, inMemory);
            ASSERT_EQ(*view->count(question.request), inMemory.size());
            questions.push_back(std::move(question));
        }
        expectOk(view->save());
        for (const Question& question : questions) {
            SCOPED_TRACE(question.text);
            auto found = container->fetchIDs(question.request);
            ASSERT_TRUE(found) << found.error().message;
            ASSERT_EQ(*found, question.whilePending) << "after the save, by the store alone";
            FetchRequest window = question.request;
            window.offset = 3;
            window.limit = 4;
            const auto size = static_cast<std::ptrdiff_t>(found->size());
            const std::vector<ObjectID> cut(found->begin() + std::min<std::ptrdiff_t>(3, size),
                                            found->begin() + std::min<std::ptrdiff_t>(7, size));
            ASSERT_EQ(*view->fetchIDs(window), cut);
        }
        // Every relation, read anew, is what memory had.
        std::vector<std::pair<ObjectID, ObjectID>> relations;
        const auto read = [&] {
            relations.clear();
            for (const auto& object : papers)
                if (!object->isDeleted())
                    for (const std::size_t relation : {Paper::Sender, Paper::Owner, Paper::Body})
                        relations.emplace_back(object->objectID(), object->toOneID(relation));
            for (const auto& object : bodies)
                if (!object->isDeleted()) relations.emplace_back(object->objectID(), object->toOneID(Body::OfPaper));
            return relations;
        };
        const auto before = read();
        view->refreshAllUnchanged();
        ASSERT_EQ(before, read());
    }
}

} // namespace
} // namespace ledgerfinch::testing
