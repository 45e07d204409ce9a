// What the list of shares reads as, and how it is narrowed and ordered.
#include <gtest/gtest.h>

#include "core/pack/HubList.h"
#include "core/platform/Clock.h"

namespace zepho {
namespace {

using namespace std::chrono_literals;

const WallTime moment = *parseIso8601("2025-11-02T08:15:00Z");

TEST(HubList, readsEveryFieldOfWhatIsAShare) {
    const HubResult result = hubParseList(R"({"ok": true, "items": [{
        "id": "s-1", "userId": "kano", "title": "Gate \"A\"", "language": "ja", "gender": "female",
        "voices": 3, "bindings": 7, "note": "夜間", "appVersion": "0.3.26220", "file": "g.cln",
        "size": 5000000000, "downloads": 12, "createdAt": "2025-11-02 08:15:00",
        "url": "https://x.example/g.cln", "more": [1, {"a": null}]},
        5, null, "text", [{"id": "n", "url": "u"}],
        {"id": "no-url", "title": "t"}, {"id": "", "url": "u"}, {"url": "u"},
        {"id": "b", "url": ""}, {"id": {"x": 1}, "url": "u"},
        {"id": 17, "url": "u", "title": ["x"], "voices": "4", "size": "big", "downloads": 1e300,
         "createdAt": 5}]})");
    ASSERT_TRUE(result.ok);
    const HubItem full{.id = "s-1",
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
                       .createdAt = moment,
                       .url = "https://x.example/g.cln"};
    // Values of other types: what can be read as the type is, the rest is as if missing.
    HubItem odd;
    odd.id = "17";
    odd.url = "u";
    odd.voices = 4;
    EXPECT_EQ(result.items, (std::vector{full, odd}));
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
    const std::pair<std::string, std::optional<WallTime>> rows[] = {
        {"2025-11-02T17:15:00.5+09:00", moment + 500ms},
        {"2025-11-02T08:15:00.9999999999999999999999Z", moment + 999999999ns},
        {"1969-12-31T23:59:59.750Z", WallTime(-250ms)},
        {"2025-11-02T08:15:00", {}},
        {"2025-11-02T08:15:00.Z", {}},
        {"2025-11-02T08:15:00.2x5Z", {}},
        {"2025-11-02 8:15:00", {}},
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
    const std::pair<HubFilter, bool> rows[] = {
        {{" \t\n\u3000", "JA", "Female", "KANŌ"}, true},
        {{"  äb CALLS\n", "", "", ""}, true},
        {{"kanō", "", "", ""}, true},
        {{"terminal", "", "", ""}, true},
        {{"female", "", "", ""}, false},  // not a field that the text looks at
        {{"", "j", "", ""}, false},
        {{"", "ja", "male", ""}, false},
        {{"", "ja", "female", "Kano"}, false},
    };
    for (const auto& [filter, matches] : rows)
        EXPECT_EQ(filter.matches(item), matches)
            << filter.text << filter.language << filter.gender << filter.userId;
}

TEST(HubList, arrangesByEachKeyAndThenById) {
    const auto share = [](const char* id, const char* title, const char* user,
                          std::int64_t downloads, std::optional<WallTime> created) {
        HubItem item;
        item.id = id;
        item.title = title;
        item.userId = user;
        item.downloads = downloads;
        item.createdAt = created;
        return item;
    };
    const std::vector<HubItem> items = {
        share("d", "beta", "Mio", 3, moment + 1ms), share("C", "Alpha", "kano", 3, moment),
        share("b", "alpha", "Kano", 0, {}),         share("a", "Éclair", "", -1, moment),
        share("E", "", "mio", INT64_MAX, {}),       share("e", "", "mio", INT64_MIN, {}),
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
    // Of each name the first spelling, once.
    EXPECT_EQ(hubUploaders(items), (std::vector<std::string>{"kano", "Mio"}));
}

}  // namespace
}  // namespace zepho
