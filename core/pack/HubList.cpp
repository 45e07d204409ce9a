#include "core/pack/HubList.h"

#include <algorithm>
#include <map>
#include <tuple>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/diag/Language.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

HubItem itemOf(const Json& object) {
    HubItem item;
    item.id = jStr(&object, "id");
    item.userId = jStr(&object, "userId");
    item.title = jStr(&object, "title");
    item.language = jStr(&object, "language");
    item.gender = jStr(&object, "gender");
    item.voices = jInt(&object, "voices", 0);
    item.bindings = jInt(&object, "bindings", 0);
    item.note = jStr(&object, "note");
    item.appVersion = jStr(&object, "appVersion");
    item.fileName = jStr(&object, "file");
    item.size = jInt(&object, "size", 0);
    item.downloads = jInt(&object, "downloads", 0);
    item.createdAt = parseIso(jStr(&object, "createdAt"));
    item.url = jStr(&object, "url");
    return item;
}

HubResult failed(std::string error) {
    HubResult result;
    result.error = std::move(error);
    return result;
}

// "2025-11-02T08:15:00", which every form but the last begins with.
constexpr std::size_t secondsEnd = 19;

std::optional<WallTime> parseWithFraction(std::string_view text) {
    if (text.size() <= secondsEnd || text[secondsEnd] != '.') return std::nullopt;
    const std::string_view behind = text.substr(secondsEnd + 1);
    const std::size_t digits = std::min(behind.find_first_not_of("0123456789"), behind.size());
    if (digits == 0) return std::nullopt;
    const std::string whole = std::string(text.substr(0, secondsEnd)).append(behind.substr(digits));
    const std::optional<WallTime> second = parseIso8601(whole);
    if (!second) return std::nullopt;

    std::chrono::nanoseconds fraction{0};
    std::chrono::nanoseconds unit{100'000'000};
    // Digits beyond what the clock tells apart add nothing: their unit is 0.
    for (const char digit : behind.substr(0, digits)) {
        fraction += (digit - '0') * unit;
        unit /= 10;
    }
    const auto part = std::chrono::duration_cast<WallTime::duration>(fraction);
    if (*second > WallTime::max() - part) return std::nullopt;
    return *second + part;
}

std::optional<WallTime> parsePlain(std::string_view text) {
    if (text.size() != secondsEnd || text[10] != ' ') return std::nullopt;
    std::string whole(text);
    whole[10] = 'T';
    return parseIso8601(whole.append("Z"));
}

// What an item is sorted by, each part ascending.
struct SortRow {
    std::int64_t rank = 0;
    std::string word;
    std::string id;
    const HubItem* item = nullptr;
};

// A missing date counts as the distant past.
std::int64_t momentOf(const HubItem& item) {
    return item.createdAt ? std::int64_t{item.createdAt->time_since_epoch().count()} : INT64_MIN;
}

// Turns the order of numbers round, and unlike a minus sign has a value for every one.
std::int64_t descending(std::int64_t number) {
    return ~number;
}

SortRow rowOf(const HubItem& item, HubSort sort) {
    SortRow row;
    switch (sort) {
        case HubSort::newest:
            row.rank = descending(momentOf(item));
            break;
        case HubSort::oldest:
            row.rank = momentOf(item);
            break;
        case HubSort::downloads:
            row.rank = descending(item.downloads);
            break;
        case HubSort::title:
            row.word = lowercased(item.title);
            break;
        case HubSort::uploader:
            row.word = lowercased(item.userId);
            break;
    }
    row.id = lowercased(item.id);
    row.item = &item;
    return row;
}

std::vector<std::string> distinctField(const std::vector<HubItem>& items,
                                       std::string HubItem::*field) {
    std::vector<std::string> values;
    values.reserve(items.size());
    for (const HubItem& item : items) values.push_back(item.*field);
    return collectDistinct(values);
}

}  // namespace

std::string_view hubKindWord(HubKind kind) {
    return kind == HubKind::voices ? "voices" : "broadcasts";
}

HubResult hubParseList(std::string_view text) {
    const std::optional<Json> reply = parseJsonObject(text);
    if (!reply) return failed(T("云分享服务返回的内容看不懂"));
    if (!jBool(&*reply, "ok", false)) {
        std::string error = jStr(&*reply, "error");
        return failed(error.empty() ? T("云分享服务出错了") : std::move(error));
    }
    HubResult result;
    result.ok = true;
    const Json* items = jArr(&*reply, "items");
    if (items == nullptr) return result;
    for (const Json& element : *items) {
        if (!element.is_object()) continue;
        HubItem item = itemOf(element);
        if (!item.id.empty() && !item.url.empty()) result.items.push_back(std::move(item));
    }
    return result;
}

std::optional<WallTime> parseIso(std::string_view text) {
    if (const auto time = parseWithFraction(text)) return time;
    if (const auto time = parseIso8601(text)) return time;
    return parsePlain(text);
}

bool HubFilter::matches(const HubItem& item) const {
    if (!language.empty() && !equalsIgnoringCase(language, item.language)) return false;
    if (!gender.empty() && !equalsIgnoringCase(gender, item.gender)) return false;
    if (!userId.empty() && !equalsIgnoringCase(userId, item.userId)) return false;
    const std::string wanted = lowercased(trimmedView(text));
    if (wanted.empty()) return true;
    const auto contains = [&](const std::string& field) {
        return lowercased(field).find(wanted) != std::string::npos;
    };
    return contains(item.title) || contains(item.userId) || contains(item.note);
}

std::vector<HubItem> hubArrange(const std::vector<HubItem>& items, const HubFilter& filter,
                                HubSort sort) {
    // Case is folded once per item and not at every comparison.
    std::vector<SortRow> rows;
    for (const HubItem& item : items)
        if (filter.matches(item)) rows.push_back(rowOf(item, sort));
    std::stable_sort(rows.begin(), rows.end(), [](const SortRow& left, const SortRow& right) {
        return std::tie(left.rank, left.word, left.id) < std::tie(right.rank, right.word, right.id);
    });
    std::vector<HubItem> arranged;
    arranged.reserve(rows.size());
    for (const SortRow& row : rows) arranged.push_back(*row.item);
    return arranged;
}

std::vector<std::string> collectDistinct(const std::vector<std::string>& values) {
    std::map<std::string, std::string> firstSpelling;
    for (const std::string& value : values)
        if (!value.empty()) firstSpelling.try_emplace(lowercased(value), value);
    std::vector<std::string> distinct;
    distinct.reserve(firstSpelling.size());
    for (auto& [folded, spelling] : firstSpelling) distinct.push_back(std::move(spelling));
    return distinct;
}

std::vector<std::string> hubLanguages(const std::vector<HubItem>& items) {
    return distinctField(items, &HubItem::language);
}

std::vector<std::string> hubUploaders(const std::vector<HubItem>& items) {
    return distinctField(items, &HubItem::userId);
}

}  // namespace zepho
