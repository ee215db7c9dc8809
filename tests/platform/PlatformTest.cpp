// SPDX-License-Identifier: GPL-3.0-or-later
// The small parts: log texts, dates, texts, types, identifiers, queues.
#include "platform/Dates.h"
#include "platform/DispatchQueue.h"
#include "platform/Fatal.h"
#include "platform/LogSinks.h"
#include "platform/MimeTypes.h"
#include "platform/Text.h"
#include "platform/Uuid.h"

#include <gtest/gtest.h>

#include <QLocale>

#include <cstdlib>
#include <ctime>
#include <latch>
#include <limits>
#include <set>
#include <thread>

namespace ledgerfinch {
namespace {

TEST(LogMessageTest, ShowsOnlyWhatIsPublic) {
    using Arguments = std::vector<LogArgument>;
    struct Case {
        const char* format;
        Arguments arguments;
        const char* expected;
    };
    const Case cases[] = {
        {"server: %{public}s, token: %s", {"https://a", "abc"}, "server: https://a, token: <private>"},
        {"%@ %{public}@ %{private}d %{private}s", {"a", "b", 1, "c"}, "<private> b <private> <private>"},
        {"%d %ld %lld %{public}ld %f",
         {-1, 2L, std::numeric_limits<std::int64_t>::min(), true, 1.5},
         "-1 2 -9223372036854775808 1 1.500000"},
        {"100%% %{public}s", {"50%s"}, "100% 50%s"},
        {"%{public}s %{public}s", {"one"}, "one <missing>"},
        {"none", {"surplus"}, "none"},
        {"%{public", {"x"}, "%{public"},
        {"5 % 3 %", {"x"}, "5 % 3 %"},
        {"%d", {"text for a number"}, "<private>"},
        {"%{public}s", {42}, "42"},
        {"%{public}s", {"a\nERROR b: forged\r\t\x1b[31m\x7f"}, "a\\nERROR b: forged\\r\\t\\x1b[31m\\x7f"},
        {"%{public}s", {"\u0085|\u2028|\u2029|é"}, "\\u0085|\\u2028|\\u2029|é"},
        {"%{public}s", {"bad \xff\xc2 bytes"}, "bad \uFFFD\uFFFD bytes"},
        {"two\nlines", {}, "two\nlines"},
    };
    for (const auto& [format, arguments, expected] : cases) {
        EXPECT_EQ(expected, renderLogMessage(format, arguments)) << format;
    }
}

TEST(LoggerTest, SinksGetWhatLoggersWrite) {
    const auto first = std::make_shared<MemoryLogSink>();
    const auto second = std::make_shared<MemoryLogSink>();
    const Logger logger(std::make_shared<TeeLogSink>(std::vector<std::shared_ptr<LogSink>>{first, nullptr, second}),
                        "Api");
    logger.error("status %d for %s", 404, std::string("secret"));
    for (const auto& sink : {first, second}) {
        ASSERT_EQ(1U, sink->records().size());
        const auto record = sink->records().front();
        EXPECT_EQ(LogLevel::Error, record.level);
        EXPECT_EQ("net.tallowmere.Ledgerfinch Api", record.subsystem + " " + record.category);
        EXPECT_TRUE(sink->contains("status 404 for <private>"));
        EXPECT_FALSE(sink->contains("secret"));
    }
}

std::string shown(const std::optional<Timestamp>& time) {
    if (!time) return "none";
    const auto rest = (*time - std::chrono::floor<std::chrono::seconds>(*time)).count();
    return dates::formatIso8601Utc(*time) + (rest == 0 ? "" : "+" + std::to_string(rest));
}

TEST(DatesTest, ReadsMomentsStrictly) {
    const std::pair<const char*, const char*> cases[] = {
        {"2024-03-01T12:30:00.123Z", "2024-03-01T12:30:00Z+123000"},
        {"2024-03-01T12:30:00.123456789+01:00", "2024-03-01T11:30:00Z+123456"},
        {"2024-03-01T12:30:00.1-0530", "2024-03-01T18:00:00Z+100000"},
        {"1890-03-01T00:53:28.5+00:53:28", "1890-03-01T00:00:00Z+500000"},
        {"2024-02-29T23:59:59Z", "2024-02-29T23:59:59Z"},
        {"9999-12-31T23:59:59.999999Z", "9999-12-31T23:59:59Z+999999"},
        {"0001-01-01T00:00:00Z", "0001-01-01T00:00:00Z"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(expected, shown(dates::parseDateTime(text))) << text;

    for (const auto* text : {"",
                             "2024-03-01",
                             "2024-03-01T12:30:00",
                             "2024-03-01T12:30:00.Z",
                             "2024-03-01T12:30:00.1234567890Z",
                             "2024-03-01T12:30Z",
                             "2024-03-01 12:30:00Z",
                             "2024-03-01t12:30:00z",
                             "2024-02-30T00:00:00Z",
                             "2023-02-29T00:00:00Z",
                             "2024-13-01T00:00:00Z",
                             "2024-00-01T00:00:00Z",
                             "2024-03-01T24:00:00Z",
                             "2024-03-01T12:60:00Z",
                             "2024-03-01T12:30:60Z",
                             "0000-03-01T12:30:00Z",
                             "12024-03-01T12:30:00Z",
                             "2024-03-01T12:30:00Zx",
                             " 2024-03-01T12:30:00Z",
                             "2024-03-01T12:30:00+24:00",
                             "2024-03-01T12:30:00+1:00",
                             "2024-03-01T12:30:00+01",
                             "2024-03-01T12:30:00+010000",
                             "2024-03-01T12:30:00.5",
                             "2024-3-1T12:30:00Z",
                             "+024-03-01T12:30:00Z",
                             "2024-03-01T12:30:00,5Z",
                             "2024-03-01T-1:30:00Z"}) {
        EXPECT_EQ("none", shown(dates::parseDateTime(text))) << text;
    }
    EXPECT_EQ("none", shown(dates::parseFractional("2024-03-01T12:30:00Z")));
    EXPECT_EQ("none", shown(dates::parseWholeSecond("2024-03-01T12:30:00.5Z")));
}

class ZoneTest : public testing::Test {
protected:
    ~ZoneTest() override { use("Europe/Berlin"); }
    static void use(const char* zone) {
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
};

TEST_F(ZoneTest, DaysBeginWithTheirFirstMoment) {
    struct Case {
        const char* zone;
        const char* day;
        const char* begin;
        const char* shownAs;
    };
    const Case cases[] = {
        {"Europe/Berlin", "2024-03-01", "2024-02-29T23:00:00Z", "2024-03-01"},
        {"Europe/Berlin", "2024-07-01", "2024-06-30T22:00:00Z", "2024-07-01"},
        {"Europe/Berlin", "2024-10-27", "2024-10-26T22:00:00Z", "2024-10-27"},
        {"America/Sao_Paulo", "2018-11-04", "2018-11-04T03:00:00Z", "2018-11-04"}, // begins at 01:00
        {"America/Sao_Paulo", "2018-02-18", "2018-02-18T03:00:00Z", "2018-02-18"},
        {"America/St_Johns", "2006-10-29", "2006-10-29T02:30:00Z", "2006-10-29"}, // midnight comes twice
        {"Pacific/Apia", "2011-12-30", "2011-12-30T10:00:00Z", "2011-12-31"},     // was left out
        {"Pacific/Kiritimati", "2024-03-01", "2024-02-29T10:00:00Z", "2024-03-01"},
        {"UTC", "0001-01-01", "0001-01-01T00:00:00Z", "0001-01-01"},
        {"UTC", "9999-12-31", "9999-12-31T00:00:00Z", "9999-12-31"},
    };
    for (const auto& [zone, day, begin, shownAs] : cases) {
        use(zone);
        const auto time = dates::parseDateOnly(day);
        EXPECT_EQ(begin, shown(time)) << zone << " " << day;
        ASSERT_TRUE(time);
        EXPECT_EQ(shownAs, dates::formatDateOnly(*time)) << zone;
        EXPECT_NE(shownAs, dates::formatDateOnly(*time - std::chrono::microseconds(1))) << zone;
    }
    for (const auto* text : {"2024-13-40", "2024-02-30", "2024-3-1", "20240301", "2024-03-01T00:00:00Z", "", "x"}) {
        EXPECT_FALSE(dates::parseDateOnly(text)) << text;
    }
}

TEST(DatesTest, ShowsNumericDatesWithTheWholeYear) {
    const auto day = *dates::parseDateOnly("2024-03-01");
    const std::pair<QLocale, const char*> cases[] = {
        {QLocale(QLocale::German, QLocale::Germany), "01.03.2024"},
        {QLocale(QLocale::English, QLocale::UnitedStates), "3/1/2024"},
        {QLocale(QLocale::English, QLocale::UnitedKingdom), "01/03/2024"},
        {QLocale::c(), "3/1/2024"},
    };
    for (const auto& [locale, expected] : cases) {
        QLocale::setDefault(locale);
        EXPECT_EQ(expected, dates::formatNumericDate(day));
    }
}

TEST(DatesTest, ReferenceDatesGoThereAndBack) {
    EXPECT_EQ(0.0, dates::secondsSinceReferenceDate(*dates::parseWholeSecond("2001-01-01T00:00:00Z")));
    const auto time = *dates::parseFractional("2024-03-01T12:30:00.123456Z");
    EXPECT_EQ(time, dates::fromSecondsSinceReferenceDate(dates::secondsSinceReferenceDate(time)));
    for (const double wild :
         {1e300, -1e300, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_FALSE(dates::formatIso8601Utc(dates::fromSecondsSinceReferenceDate(wild)).empty());
    }
}

TEST(TextTest, ComparesVersionsByTheirNumbers) {
    const char* const ascending[] = {"",
                                     "1",
                                     "1.0.0",
                                     "1.9.0",
                                     "1.14.0",
                                     "1.14.5",
                                     "1.14.5-beta",
                                     "2",
                                     "2.10",
                                     "10",
                                     "99999999999999999999998",
                                     "99999999999999999999999",
                                     "a",
                                     "ä"};
    for (std::size_t first = 0; first < std::size(ascending); ++first) {
        for (std::size_t second = 0; second < std::size(ascending); ++second) {
            EXPECT_EQ(first <=> second, text::compareNumeric(ascending[first], ascending[second]))
                << ascending[first] << " " << ascending[second];
        }
    }
    EXPECT_EQ(std::strong_ordering::equal, text::compareNumeric("1.01.000", "1.1.0"));
}

TEST(TextTest, ListsTextsAsAPersonExpects) {
    EXPECT_LT(text::compareLocalizedStandard("file 9", "File 10"), 0);
    EXPECT_LT(text::compareLocalizedStandard("apple", "Banana"), 0);
    EXPECT_LT(text::compareLocalizedStandard("Äpfel", "Birnen"), 0);
    EXPECT_EQ(0, text::compareLocalizedStandard("invoice", "INVOICE"));
}

TEST(TextTest, ByteCountsReadLikeAPersonsNumbers) {
    QLocale::setDefault(QLocale::c());
    const std::pair<std::int64_t, const char*> cases[] = {{0, "Zero KB"},          {1, "1 byte"},
                                                          {999, "999 bytes"},      {1000, "1 KB"},
                                                          {1'500, "2 KB"},         {999'499, "999 KB"},
                                                          {999'500, "1 MB"},       {1'500'000, "1.5 MB"},
                                                          {2'000'000'000, "2 GB"}, {2'345'678'901, "2.35 GB"}};
    for (const auto& [bytes, expected] : cases)
        EXPECT_EQ(expected, text::formatByteCount(bytes));
    QLocale::setDefault(QLocale(QLocale::German));
    EXPECT_EQ("1,5 MB", text::formatByteCount(1'500'000));
    QLocale::setDefault(QLocale::c());
}

TEST(TextTest, RepairsUtf8) {
    for (const auto* valid : {"", "abc", "äöü€😀", "\x7f\xF4\x8F\xBF\xBF"}) {
        EXPECT_TRUE(text::isValidUtf8(valid));
        EXPECT_EQ(valid, text::toValidUtf8(valid));
    }
    const std::pair<std::string, const char*> broken[] = {
        {"a\xffz", "a\uFFFDz"},
        {"\xc0\xaf", "\uFFFD\uFFFD"},
        {"\xed\xa0\x80", "\uFFFD\uFFFD\uFFFD"},
        {"\xf4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"x\xe2\x82", "x\uFFFD\uFFFD"},
        {"\x80", "\uFFFD"},
    };
    for (const auto& [bytes, expected] : broken) {
        EXPECT_FALSE(text::isValidUtf8(bytes));
        EXPECT_EQ(expected, text::toValidUtf8(bytes));
    }
    EXPECT_EQ("a%20b%2F%C3%A4-._~%00", text::percentEncoded(std::string("a b/ä-._~\0", 11)));
}

TEST(MimeTypesTest, KnowsTheTypesOfDocuments) {
    const std::pair<const char*, const char*> preferred[] = {
        {"application/pdf", "pdf"},
        {"image/jpeg", "jpeg"},
        {"image/png; charset=binary", "png"},
        {"IMAGE/TIFF", "tiff"},
        {"text/plain", "txt"},
        {"image/heic", "heic"},
        {"application/vnd.oasis.opendocument.presentation", "odp"},
        {"application/vnd.openxmlformats-officedocument.wordprocessingml.document", "docx"},
        {"application/xml", "xml"}};
    for (const auto& [type, extension] : preferred) {
        EXPECT_EQ(extension, mimeTypes::preferredExtension(type)) << type;
    }
    EXPECT_EQ("application/pdf", mimeTypes::forExtension("PDF"));
    EXPECT_EQ("image/jpeg", mimeTypes::forExtension("jpg"));
    for (const auto* unknown :
         {"", "undefined", "application/x-nonsense", "../../etc/passwd", "application/octet-stream;/"}) {
        const auto extension = mimeTypes::preferredExtension(unknown);
        EXPECT_TRUE(!extension || extension == "bin") << unknown;
        EXPECT_FALSE(mimeTypes::forExtension(unknown)) << unknown;
    }
    EXPECT_TRUE(mimeTypes::sameType("application/x-pdf", "application/pdf; version=1.7"));
    EXPECT_FALSE(mimeTypes::sameType("image/png", "image/jpeg"));
    EXPECT_TRUE(mimeTypes::looksLikeImage("\xFF\xD8\xFF\xE0"));
    EXPECT_FALSE(mimeTypes::looksLikeImage("%PDF-1.7"));
}

TEST(UuidTest, ReadsWritesAndDiffers) {
    const auto uuid = Uuid::parse("0f8fad5b-d9cb-469f-A165-70867728950e");
    ASSERT_TRUE(uuid);
    EXPECT_EQ("0F8FAD5B-D9CB-469F-A165-70867728950E", uuid->text());
    for (const auto* wrong : {"", "0f8fad5b-d9cb-469f-a165-70867728950", "0f8fad5bd9cb469fa16570867728950e",
                              "0f8fad5b-d9cb-469f-a165-70867728950g", "0f8fad5b_d9cb-469f-a165-70867728950e",
                              "{0f8fad5b-d9cb-469f-a165-70867728950}", "../../../../../../../../../etc/passw"}) {
        EXPECT_FALSE(Uuid::parse(wrong)) << wrong;
    }
    std::set<Uuid> made;
    for (int count = 0; count < 1000; ++count) {
        const auto random = Uuid::random();
        EXPECT_EQ(random, Uuid::parse(random.text()));
        EXPECT_EQ('4', random.text()[14]);
        made.insert(random);
    }
    EXPECT_EQ(1000U, made.size());
}

TEST(DispatchQueueTest, RunsTasksInOrderAndFinishesThemAtTheEnd) {
    std::vector<int> order;
    {
        DispatchQueue queue("a label of more than fifteen characters");
        EXPECT_FALSE(queue.isCurrent());
        for (int number = 0; number < 1000; ++number)
            queue.async([&order, number] { order.push_back(number); });
        queue.sync([&] {
            EXPECT_TRUE(queue.isCurrent());
            EXPECT_EQ(1000U, order.size());
            queue.sync([&] { order.push_back(1000); });
        });
        EXPECT_EQ(1001U, order.size());
        EXPECT_THROW(queue.sync([] { throw std::runtime_error("told"); }), std::runtime_error);
        queue.async([&] { order.push_back(1001); });
    }
    EXPECT_EQ(1002U, order.size());
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(DispatchQueueTest, MayBeDroppedByItsOwnTask) {
    auto queue = std::make_shared<DispatchQueue>("dropped");
    std::latch ran(2);
    auto* raw = queue.get();
    raw->async([&ran, queue = std::move(queue)]() mutable {
        queue->async([&ran] { ran.count_down(); });
        queue.reset();
        ran.count_down();
    });
    ran.wait();
}

TEST(MainQueueTest, RunsOnTheMainThreadInOrder) {
    ASSERT_FALSE(mainQueue::isCurrent());
    std::vector<int> order;
    for (int number = 0; number < 10; ++number)
        mainQueue::async([&order, number] { order.push_back(number); });
    mainQueue::sync([&] {
        EXPECT_TRUE(mainQueue::isCurrent());
        mainQueue::sync([&] { order.push_back(10); });
    });
    EXPECT_EQ(11U, order.size());
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_THROW(mainQueue::sync([] { throw std::runtime_error("told"); }), std::runtime_error);
    std::latch ran(20);
    for (int count = 0; count < 20; ++count)
        runOnUtilityQueue([&] { ran.count_down(); });
    ran.wait();
}

TEST(FatalTest, EndsWithItsTextAndStatus) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(fatal("The settings can't be opened."), testing::ExitedWithCode(70), "The settings can't be opened.");
    setFatalHandler([](const std::string& message) { throw std::runtime_error(message); });
    EXPECT_THROW(fatal("told"), std::runtime_error);
    setFatalHandler({});
}

} // namespace
} // namespace ledgerfinch
