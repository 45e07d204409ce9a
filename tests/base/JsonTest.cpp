#include <limits>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/base/JsonObjectText.h"

namespace zepho {
namespace {

// The value as it stands in JSON text, and what each getter makes of it. The defaults are chosen so
// that no value of the table reads the same by chance.
struct Row {
    const char* value;
    const char* asText;
    std::int64_t asInt;
    double asFloat;
    bool asBool;
};

TEST(Json, GettersAcceptExactlyTheirForms) {
    const std::int64_t noInt = -99;
    const double noFloat = -9.5;
    const Row rows[] = {
        {"null", "none", noInt, noFloat, true},
        {"[1]", "none", noInt, noFloat, true},
        {"12", "12", 12, 12, true},
        {"4.9", "4.9", 4, 4.9, true},
        {"-4.9", "-4.9", -4, -4.9, true},
        {"1e30", "1e+30", noInt, 1e30, true},
        {"9223372036854775807", "9223372036854775807", INT64_MAX, 9223372036854775807.0, true},
        {"9223372036854775808", "9223372036854775808", noInt, 9223372036854775808.0, true},
        {"\"\\u300042\\u00a0\"", "\u300042\u00A0", 42, 42, false},
        {"\"+42\"", "+42", 42, 42, false},
        {"\"+-42\"", "+-42", noInt, noFloat, false},
        {"\"4.2\"", "4.2", noInt, 4.2, false},
        {"\"4.2x\"", "4.2x", noInt, noFloat, false},
        {"\"-1.5e2\"", "-1.5e2", noInt, -150, false},
        {"\"0x10\"", "0x10", noInt, noFloat, false},
        {"\"inf\"", "inf", noInt, noFloat, false},
        {"\"9223372036854775808\"", "9223372036854775808", noInt, 9223372036854775808.0, false},
        {"\"1\"", "1", 1, 1, true},
        {"\" TRUE\\n\"", " TRUE\n", noInt, noFloat, true},
        {"\"Yes\"", "Yes", noInt, noFloat, true},
        {"\"wahr\"", "wahr", noInt, noFloat, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value);
        const auto object = parseJsonObject("{\"k\":" + std::string(row.value) + "}");
        ASSERT_TRUE(object);
        EXPECT_EQ(jStr(&*object, "k", "none"), row.asText);
        EXPECT_EQ(jInt(&*object, "k", noInt), row.asInt);
        EXPECT_EQ(jFloat(&*object, "k", noFloat), row.asFloat);
        EXPECT_EQ(jBool(&*object, "k", true), row.asBool);
    }
    const auto flags = parseJsonObject(R"({"yes":true,"no":false})");
    EXPECT_TRUE(jBool(&*flags, "yes", false));
    EXPECT_FALSE(jBool(&*flags, "no", true));
    EXPECT_EQ(jInt(&*flags, "yes", noInt), 1);
    EXPECT_EQ(jFloat(&*flags, "no", noFloat), 0.0);
}

TEST(Json, ParsesOnlyWholeObjects) {
    for (const char* bad :
         {"", "  \n", "[1]", "1", "\"a\"", "null", "{", "{\"a\":1}x", "{\"a\":1,}", "{'a':1}",
          "{\"a\":\"\xFF\"}", "{\"a\":1e999}", "\xFF\xFE"})
        EXPECT_FALSE(parseJsonObject(std::string_view(bad))) << bad;
    // Nesting of any depth must not exhaust the stack.
    const std::string deep = "{\"a\":" + std::string(200000, '[') + std::string(200000, ']') + "}";
    const auto parsed = parseJsonObject(deep);
    ASSERT_TRUE(parsed);
    EXPECT_NE(jArr(&*parsed, "a"), nullptr);
}

TEST(Json, RefusesMoreValuesThanMemoryShouldHold) {
    const auto listOf = [](std::size_t count, const std::string& item) {
        std::string text = "{\"a\":[" + item;
        for (std::size_t i = 1; i < count; ++i) text += "," + item;
        return text + "]}";
    };
    // The object and the list count as well.
    EXPECT_TRUE(parseJsonObject(listOf(maxJsonValues - 1, "0")));
    EXPECT_FALSE(parseJsonObject(listOf(maxJsonValues, "0")));
    EXPECT_FALSE(parseJsonObject(listOf(maxJsonValues / 2 + 1, "[]")));
    // Nothing in a text counts, whatever it looks like.
    const auto text =
        parseJsonObject(R"({"a":"\"[,)" + std::string(3 * maxJsonValues, ',') + "\"}");
    ASSERT_TRUE(text);
    EXPECT_EQ(jStr(&*text, "a").size(), 3 * maxJsonValues + 3);
    EXPECT_FALSE(parseJsonObject("{\"a\":" + std::string(3 * maxJsonValues, '[')));
}

TEST(Json, WritesSlashesAsTheyAreAndFallsBackToAnEmptyObject) {
    const Json value{{"b", "a/b\n音"}, {"a", {1, 2.5, true, nullptr}}};
    EXPECT_EQ(jsonString(value), R"({"a":[1,2.5,true,null],"b":"a/b\n音"})");
    EXPECT_EQ(parseJsonObject(jsonData(value, true)), value);
    EXPECT_EQ(jsonString(Json{{"a", "\xC3"}}), "{}");
    EXPECT_EQ(jsonString(Json{{"a", {std::numeric_limits<double>::quiet_NaN()}}}), "{}");
}

TEST(JsonTest, AnObjectWrittenMemberByMemberReadsLikeOneThatWasBuilt) {
    std::string all;
    for (int byte = 1; byte < 128; ++byte) all += static_cast<char>(byte);
    all += "值 é \xF0\x9F\x98\x80";
    for (const double number : {0.0, -0.0, 1.0, 0.1, 1.0 / 3, 1e-7, 123456789.25, 1e21}) {
        JsonObjectText written;
        written.add("a", all).add("b", true).add("c", -7).add("d", std::int64_t{1} << 53);
        written.add("e", number).add("f", "").add("g", std::size_t{3});
        EXPECT_EQ(written.finish(), jsonString(Json{{"a", all},
                                                    {"b", true},
                                                    {"c", -7},
                                                    {"d", std::int64_t{1} << 53},
                                                    {"e", number},
                                                    {"f", ""},
                                                    {"g", 3}}));
    }
    EXPECT_EQ(JsonObjectText().add("a", "\xFF").finish(), "{}");
    EXPECT_EQ(JsonObjectText().add("a", std::numeric_limits<double>::infinity()).finish(), "{}");
}

}  // namespace
}  // namespace zepho
