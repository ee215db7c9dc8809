// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/StoreFixture.h"

#include "store/CustomFieldValues.h"
#include "store/MonetaryText.h"

#include <limits>

namespace ledgerfinch {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(FieldNumbers, ReadWithTheFewestDigitsThatReadBack) {
    const std::vector<std::pair<float, std::string>> cases{
        {5.0F, "5.0"},
        {12.5F, "12.5"},
        {0.1F, "0.1"},
        {-3.0F, "-3.0"},
        {16777216.0F, "16777216.0"},
        {33554432.0F, "3.3554432e+07"},
        {1e20F, "1e+20"},
        {0.0001F, "0.0001"},
        {0.00001F, "1e-05"},
        {0.0F, "0.0"},
        {-0.0F, "-0.0"},
        {1.0F / 3, "0.33333334"},
    };
    for (const auto& [number, text] : cases)
        EXPECT_EQ(describeFloat(number), text);
}

TEST(MonetaryTexts, SplitBeforeTheFirstDigit) {
    struct Case {
        std::string text, currency, amount;
        std::optional<float> number;
    };
    const std::vector<Case> cases{
        {"EUR12.50", "EUR", "12.50", 12.5F},
        {"12.50", "", "12.50", 12.5F},
        {"1234", "", "1234", 1234.0F},
        {"EUR", "EUR", "", std::nullopt},
        {"", "", "", std::nullopt},
        {"USD5.", "USD", "5.", 5.0F},
        {"$.50", "$.", "50", 50.0F},
        {"EUR-7", "EUR-", "7", 7.0F},
        {"EUR1.234.5", "EUR", "1.234", 1.234F},
        {"EUR" + std::string(60, '9'), "EUR", std::string(60, '9'), std::nullopt},
    };
    for (const auto& each : cases) {
        const auto parts = splitMonetary(each.text);
        EXPECT_EQ(parts.currency, each.currency) << each.text;
        EXPECT_EQ(parts.amount, each.amount) << each.text;
        EXPECT_EQ(parts.number, each.number) << each.text;
    }
}

class FieldValues : public test::StoreTest {
protected:
    /// What a value becomes for a field of the type; the text "none" when it doesn't fit.
    std::string encoded(const std::optional<std::string>& type, const std::optional<Field_Value>& value) {
        const auto result = encodeFieldValue(type, value, "field", "document", services.logger("test"));
        if (!result) return "none";
        return result->value.value_or("-") + " " + result->text.value_or("-") + " " + result->currency.value_or("-");
    }
    /// The merged document's values, as "field value text".
    std::vector<std::string> values(std::int64_t id) {
        std::vector<std::string> texts;
        for (const auto& value : store().getDocument(id)->custom_field_values())
            texts.push_back(value->ofField()->name().value_or("") + " " + value->value().value_or("-") + " " +
                            value->value_as_string().value_or("-"));
        std::sort(texts.begin(), texts.end());
        return texts;
    }
    void saveFields() {
        store().saveCustomFields(customFields(R"([{"id":1,"name":"Amount","data_type":"monetary"},
            {"id":2,"name":"Due","data_type":"date"},{"id":3,"name":"Number","data_type":"integer"},
            {"id":4,"name":"Kind","data_type":"select"}])"),
                                 Delivery::Complete);
    }
};

TEST_F(FieldValues, AreEncodedByTheFieldsType) {
    const auto text = [](std::string content) {
        return Field_Value::makeString(std::move(content));
    };
    const auto number = [](float content) {
        return Field_Value::makeFloat(content);
    };
    EXPECT_EQ(encoded("string", text("say \"hi\"\n")), R"("say \"hi\"\n" say "hi")"
                                                       "\n -");
    EXPECT_EQ(encoded("url", text("https://a.example/b?c=%20d")),
              R"("https://a.example/b?c=%20d" https://a.example/b?c=%20d -)");
    EXPECT_EQ(encoded("date", text("2001-01-02")).substr(0, 6), "82800 ") << "midnight in Berlin";
    EXPECT_EQ(encoded("boolean", Field_Value::makeBoolean(false)), "false false -");
    EXPECT_EQ(encoded("integer", number(3)), "3 3.0 -");
    EXPECT_EQ(encoded("float", number(2.5)), "2.5 2.5 -");
    EXPECT_EQ(encoded("monetary", text("EUR12.50")), "12.5 12.50 EUR");
    EXPECT_EQ(encoded("monetary", text("1234")), "1234 1234 ");
    EXPECT_EQ(encoded("monetary", text("EUR")), "null  EUR");
    EXPECT_EQ(encoded("documentlink", Field_Value::makeDocLink({4, 7})), "[4,7] - -");
    EXPECT_EQ(encoded("select", number(2)), "2 - -");
    EXPECT_EQ(encoded("holograph", number(2)), "- - -");
    EXPECT_EQ(encoded(std::nullopt, Field_Value::makeBoolean(true)), "- - -");
    EXPECT_EQ(encoded("string", std::nullopt), "- - -");
}

TEST_F(FieldValues, ThatDoNotFitTheTypeAreRefusedAndLogged) {
    const auto text = Field_Value::makeString("2024-13-40");
    const auto number = Field_Value::makeFloat(1);
    for (const char* type : {"boolean", "integer", "float", "select", "documentlink", "date"})
        EXPECT_EQ(encoded(type, text), "none") << type;
    for (const char* type : {"string", "url", "date", "monetary", "boolean", "documentlink"})
        EXPECT_EQ(encoded(type, number), "none") << type;
    for (const char* url : {"", "not a url", "http://a/%zz", "a\nb"})
        EXPECT_EQ(encoded("url", Field_Value::makeString(url)), "none") << url;
    EXPECT_TRUE(log->contains("Received invalid value for custom field <private> on document <private>"));
}

TEST_F(FieldValues, NumbersBeyondEveryRangeLeaveNoValue) {
    for (const float number :
         {std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN(), 1e19F, -1e19F, 0x1p63F})
        EXPECT_EQ(encoded("integer", Field_Value::makeFloat(number)), "- - -") << number;
    EXPECT_EQ(encoded("integer", Field_Value::makeFloat(-0x1p63F)), "-9223372036854775808 -9.223372e+18 -");
    EXPECT_EQ(encoded("float", Field_Value::makeFloat(std::numeric_limits<float>::infinity())), "- - -");
    EXPECT_TRUE(log->contains("Value for custom field <private> has invalid type"));
}

TEST_F(FieldValues, FollowTheServerWhileTheFieldsOnlyGrow) {
    saveFields();
    store().saveDocument(document(R"({"id":1,"title":"t","custom_fields":[{"field":1,"value":"EUR12.50"},
        {"field":2,"value":"2024-13-40"},{"field":3,"value":null},{"field":99,"value":"gone"}]})"));
    EXPECT_THAT(values(1), ElementsAre("Amount 12.5 12.50", "Due - -", "Number - -"));

    store().saveDocument(document(R"({"id":1,"title":"t","custom_fields":[{"field":4,"value":1}]})"));
    EXPECT_THAT(values(1), ElementsAre("Kind 1 -"));
    EXPECT_EQ(store().getDocument(1)->custom_fields().size(), 4U);
    EXPECT_EQ(count<CD_Custom_Field_Value>(), 1U);

    store().saveDocument(document(R"({"id":1,"title":"t"})"));
    EXPECT_THAT(values(1), IsEmpty());
    EXPECT_EQ(store().getDocument(1)->custom_fields().size(), 4U);
}

TEST_F(FieldValues, FieldNamedTwiceHasItsLastFittingValueTwice) {
    saveFields();
    const auto twice = document(R"({"id":1,"title":"t","custom_fields":[{"field":3,"value":1},{"field":3,"value":2},
        {"field":3,"value":"x"}]})");
    store().saveDocument(twice);
    EXPECT_THAT(values(1), ElementsAre("Number 2 2.0", "Number 2 2.0", "Number 2 2.0"));
    EXPECT_EQ(rowsWrittenBy([&] { store().saveDocument(twice); }), 0U);
}

} // namespace
} // namespace ledgerfinch
