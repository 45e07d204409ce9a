// What the list of shares reads as, and how it is narrowed and ordered.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/pack/HubList.h"

namespace zepho {
namespace {

using std::chrono::milliseconds;
using namespace std::chrono_literals;

WallTime moment(int year, unsigned month, unsigned day, milliseconds ofDay) {
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month),
                                           std::chrono::day(day)};
    return std::chrono::sys_days(date) + ofDay;
}

TEST(HubList, readsEveryFieldOfAShare) {
    const HubResult result = hubParseList(R"({"ok": true, "items": [{
        "id": "s-1", "userId": "kano", "title": "Gate \"A\"", "language": "ja", "gender": "female",
        "voices": 3, "bindings": 7, "note": "夜間", "appVersion": "0.3.26220", "file": "g.cln",
        "size": 5000000000, "downloads": 12, "createdAt": "2025-11-02 08:15:00",
        "url": "https://x.example/g.cln", "more": [1, {"a": null}]}]})");
    ASSERT_TRUE(result.ok);
    const HubItem expected{.id = "s-1",
                           .userId = "kano",
                           .title = "Gate \"A\"",
                           .language = "ja",
                           .gender = "female",
                           .voices = 3,
                           .bindings = 7,
                           .note = "夜間",
                           .appVersion = "0.3.26220",
                           .fileName = "g.cln",
                           .size = 5000000000,
                           .downloads = 12,
                           .createdAt = moment(2025, 11, 2, 8h + 15min),
                           .url = "https://x.example/g.cln"};
    EXPECT_EQ(result.items, std::vector{expected});
}

TEST(HubList, leavesOutWhatIsNoShareAndKeepsTheOrder) {
    const HubResult result = hubParseList(R"({"ok": true, "items": [
        {"id": "z", "url": "u"}, 5, null, "text", [{"id": "n", "url": "u"}],
        {"id": "no-url", "title": "t"}, {"id": "", "url": "u"}, {"url": "u"},
        {"id": "b", "url": ""}, {"id": {"x": 1}, "url": "u"},
        {"id": 17, "url": "u", "title": ["x"], "voices": "4", "size": "big", "downloads": 1e300,
         "createdAt": 5}, {"id": "a", "url": "u"}]})");
    ASSERT_TRUE(result.ok);
    ASSERT_EQ(result.items.size(), 3U);
    EXPECT_EQ(result.items[0].id, "z");
    EXPECT_EQ(result.items[0].title, "");
    EXPECT_EQ(result.items[2].id, "a");
    // Values of other types: what can be read as the type is, the rest is as if missing.
    const HubItem odd = result.items[1];
    EXPECT_EQ(odd.id, "17");
    EXPECT_EQ(odd.title, "");
    EXPECT_EQ(odd.voices, 4);
    EXPECT_EQ(odd.size, 0);
    EXPECT_EQ(odd.downloads, 0);
    EXPECT_FALSE(odd.createdAt);
}

TEST(HubList, tellsALackOfSharesFromAFailure) {
    const std::string unreadable = "Could not read the hub service's response";
    const std::string reported = "The hub service reported an error";
    const std::pair<std::string, std::string> rows[] = {
        {R"({"ok":true})", ""},
        {R"({"ok":true,"items":{"id":"a","url":"u"},"error":"old news"})", ""},
        {"", unreadable},
        {R"([{"id":"a","url":"u"}])", unreadable},
        {std::string(100000, '['), unreadable},
        {R"({"items":[{"id":"a","url":"u"}]})", reported},
        {R"({"ok":false,"error":["x"]})", reported},
        {R"({"ok":false,"error":"closed","items":[{"id":"a","url":"u"}]})", "closed"},
    };
    for (const auto& [reply, error] : rows) {
        const HubResult result = hubParseList(reply);
        EXPECT_EQ(result.ok, error.empty());
        EXPECT_EQ(result.error, error);
        EXPECT_TRUE(result.items.empty());
    }
}

TEST(HubList, readsDatesInTheirThreeForms) {
    const WallTime second = moment(2025, 11, 2, 8h + 15min);
    const std::pair<std::string, std::optional<WallTime>> rows[] = {
        {"2025-11-02T17:15:00.5+09:00", second + 500ms},
        {"2025-11-02T08:15:00.9999999999999999999999Z", second + 999999999ns},
        {"2025-11-02T08:15:00Z", second},
        {"2025-11-02 08:15:00", second},
        {"1969-12-31T23:59:59.750Z", WallTime(-250ms)},
        {"2025-11-02T08:15:00", {}},
        {"2025-11-02T08:15:00.Z", {}},
        {"2025-11-02T08:15:00.2x5Z", {}},
        {"2025-11-02 8:15:00", {}},
        {"2025-02-30 08:15:00", {}},
        // The last second that the clock can tell, and a fraction that it cannot.
        {"2262-04-11T23:47:16.854775807Z", WallTime::max()},
        {"2262-04-11T23:47:16.999Z", {}},
    };
    for (const auto& [text, time] : rows) EXPECT_EQ(parseIso(text), time) << text;
}

TEST(HubList, filtersWithoutRegardToCase) {
    HubItem item;
    item.language = "ja";
    item.gender = "female";
    item.userId = "Kanō";
    item.title = "Gate ÄB calls";
    item.note = "for Terminal 2";
    const auto matches = [&item](const HubFilter& filter) { return filter.matches(item); };
    EXPECT_TRUE(matches({}));
    EXPECT_TRUE(matches({" \t\n\u3000", "JA", "Female", "KANŌ"}));
    EXPECT_TRUE(matches({"  äb CALLS\n", "", "", ""}));
    EXPECT_TRUE(matches({"kanō", "", "", ""}));
    EXPECT_TRUE(matches({"terminal", "", "", ""}));
    EXPECT_FALSE(matches({"female", "", "", ""})) << "not a field that the text looks at";
    EXPECT_FALSE(matches({"gate  äb", "", "", ""}));
    EXPECT_FALSE(matches({"", "j", "", ""}));
    EXPECT_FALSE(matches({"", "ja", "male", ""}));
    EXPECT_FALSE(matches({"", "ja", "female", "Kano"}));
}

HubItem share(const std::string& id, const std::string& title, const std::string& user,
              std::int64_t downloads, std::optional<WallTime> created) {
    HubItem item;
    item.id = id;
    item.title = title;
    item.userId = user;
    item.downloads = downloads;
    item.createdAt = created;
    return item;
}

TEST(HubList, arrangesByEachKeyAndThenById) {
    const WallTime day = moment(2025, 11, 2, 0h);
    const std::vector<HubItem> items = {
        share("d", "beta", "Mio", 3, day + 1ms), share("C", "Alpha", "kano", 3, day),
        share("b", "alpha", "Kano", 0, {}),      share("a", "Éclair", "", -1, day),
        share("E", "", "mio", INT64_MAX, {}),    share("e", "", "mio", INT64_MIN, {}),
    };
    const auto order = [&](HubSort sort, const HubFilter& filter = {}) {
        std::string ids;
        for (const HubItem& item : hubArrange(items, filter, sort)) ids += item.id;
        return ids;
    };
    // "E" and "e" are one id to the order, and stay as they came.
    EXPECT_EQ(order(HubSort::newest), "daCbEe");
    EXPECT_EQ(order(HubSort::oldest), "bEeaCd");
    EXPECT_EQ(order(HubSort::downloads), "ECdbae");
    EXPECT_EQ(order(HubSort::title), "EebCda");
    EXPECT_EQ(order(HubSort::uploader), "abCdEe");
    EXPECT_EQ(order(HubSort::uploader, {"", "", "", "KANO"}), "bC");
    EXPECT_EQ(order(HubSort::newest, {"nothing has this", "", "", ""}), "");
}

TEST(HubList, collectsEachSpellingOnce) {
    std::vector<HubItem> items(4);
    items[0].language = "ZH";
    items[0].userId = "Zoë";
    items[1].language = "zh";
    items[1].userId = "anna";
    items[2].userId = "ZOË";
    items[3].language = "de";
    EXPECT_EQ(hubLanguages(items), (std::vector<std::string>{"de", "ZH"}));
    EXPECT_EQ(hubUploaders(items), (std::vector<std::string>{"anna", "Zoë"}));
}

}  // namespace
}  // namespace zepho
