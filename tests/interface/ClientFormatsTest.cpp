// The text formats inside the client: JSON, Base64, addresses.
#include <locale>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "zephon_client.h"

namespace zephon {
namespace {

using detail::Json;

// As the other reader would have it.
nlohmann::json likeOther(const Json& value) {
    if (value.kind == Json::Kind::null) return nullptr;
    if (value.kind == Json::Kind::boolean) return value.boolean;
    if (value.kind == Json::Kind::number) return value.number;
    if (value.kind == Json::Kind::text) return value.text;
    const bool isArray = value.kind == Json::Kind::array;
    nlohmann::json whole = isArray ? nlohmann::json::array() : nlohmann::json::object();
    for (std::size_t i = 0; i < value.items.size(); ++i)
        (isArray ? whole.emplace_back() : whole[value.names[i]]) = likeOther(value.items[i]);
    return whole;
}

TEST(ClientJson, AgreesWithAnotherReader) {
    const std::string good = R"( {"text":"\u767b\u673a\ud83d\ude00 \"\\\/\b\f\n\r\t",
        "list":[1,-2.5,0,-0.0,1e3,2E-2,12345678901,true,false,null,[],{}],"":{"a":[[[]]]}} )";
    std::vector<std::string> texts = {good, "1", "\"登\"", "[]", "{}", "null", " true ", "-0"};
    // Everything that is cut off, and everything with one byte changed.
    for (std::size_t i = 0; i < good.size(); ++i) texts.push_back(good.substr(0, i));
    for (std::size_t i = 0; i < good.size(); ++i)
        for (const char c : std::string("\"\\{}[],:0.eE-+tu \x01"))
            texts.push_back(good.substr(0, i) + c + good.substr(i + 1));
    for (const char* text : {"01", "1.", ".5", "+1", "1e", "1e+", "--1", "nulll", "[1,]",
                             "{\"a\":1,}", "\"\\x\"", "\"\\u12\"", "\"\\ud800\"", "\"\\udc00\"",
                             "\"\\ud800\\u0041\"", "{} {}", "1e999", "\xff"})
        texts.emplace_back(text);

    int valid = 0;
    for (const std::string& text : texts) {
        const nlohmann::json other = nlohmann::json::parse(text, nullptr, false);
        Json value;
        const bool read = Json::read(text, value);
        ASSERT_EQ(read, !other.is_discarded()) << text;
        if (!read) continue;
        EXPECT_EQ(likeOther(value), other) << text;
        ++valid;
    }
    EXPECT_GT(valid, 500);
}

TEST(ClientJson, RefusesWhatNobodyHonestSends) {
    Json value;
    for (const std::string& text :
         {std::string(R"({"a":1,"b":2,"a":1})"), std::string(1000000, '['), std::string("1\0", 2)})
        EXPECT_FALSE(Json::read(text, value)) << text.substr(0, 40);
}

// A program may have set a locale in which 1.25 is written 1,25 and 1000 is 1.000.
TEST(ClientFormats, NumbersDoNotFollowTheLocale) {
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Comma));
    Line line;
    line.text = "\"4\"\n";
    line.speed = 1.25;
    line.sampleRate = 16000;
    const std::string text = detail::lineText(line);
    Json value;
    const bool read = Json::read("[1000,1.25]", value);
    std::locale::global(before);
    EXPECT_EQ(text, R"({"text":"\"4\"\u000a","speed":1.25,"sample_rate":16000})");
    ASSERT_TRUE(read);
    EXPECT_EQ(value.items[0].number, 1000);
    EXPECT_EQ(value.items[1].number, 1.25);
}

TEST(ClientFormats, Addresses) {
    const auto authority = [](const std::string& url) {
        detail::Address address;
        return detail::Address::read(url, address) ? address.authority() : "none";
    };
    EXPECT_EQ(authority("http://10.0.0.7:8080"), "10.0.0.7:8080");
    EXPECT_EQ(authority("HTTP://desk.local/"), "desk.local:17150");
    EXPECT_EQ(authority("http://[::1]"), "[::1]:17150");
    EXPECT_EQ(authority("http://[fe80::1]:80/"), "[fe80::1]:80");
    for (const char* bad :
         {"", "http://", "https://desk", "desk:17150", "http://desk:", "http://desk:0",
          "http://desk:65536", "http://desk:1a", "http://desk/v1", "http://a b", "http://a@b",
          "http://[::1", "http://[]", "http://desk\r\nX: 1", "http://:80"})
        EXPECT_EQ(authority(bad), "none") << bad;
}

}  // namespace
}  // namespace zephon
