// Any bytes as the hub's list of shares. What is read is complete, stays the same when it is written
// as a reply and read again, and every order is a true order of the same shares.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/pack/HubList.h"
#include "core/platform/Bytes.h"
#include "core/platform/Require.h"
#include "core/platform/Unicode.h"

namespace {

using namespace zepho;

nlohmann::json replyOf(const std::vector<HubItem>& items) {
    nlohmann::json list = nlohmann::json::array();
    for (const HubItem& item : items)
        list.push_back({{"id", item.id},
                        {"userId", item.userId},
                        {"title", item.title},
                        {"language", item.language},
                        {"gender", item.gender},
                        {"voices", item.voices},
                        {"bindings", item.bindings},
                        {"note", item.note},
                        {"appVersion", item.appVersion},
                        {"file", item.fileName},
                        {"size", item.size},
                        {"downloads", item.downloads},
                        {"createdAt", item.createdAt ? formatIso8601(*item.createdAt) : ""},
                        {"url", item.url}});
    return {{"ok", true}, {"items", list}};
}

HubItem inWholeSeconds(HubItem item) {
    if (item.createdAt) item.createdAt = std::chrono::floor<std::chrono::seconds>(*item.createdAt);
    return item;
}

bool inOrder(const HubItem& left, const HubItem& right, HubSort sort) {
    const auto byId = [&] { return lowercased(left.id) <= lowercased(right.id); };
    const auto ascending = [&](const auto& first, const auto& second) {
        return first < second || (first == second && byId());
    };
    switch (sort) {
        // An absent moment is less than every moment.
        case HubSort::newest:
            return right.createdAt < left.createdAt ||
                   (left.createdAt == right.createdAt && byId());
        case HubSort::oldest:
            return ascending(left.createdAt, right.createdAt);
        case HubSort::downloads:
            return right.downloads < left.downloads ||
                   (left.downloads == right.downloads && byId());
        case HubSort::title:
            return ascending(lowercased(left.title), lowercased(right.title));
        case HubSort::uploader:
            return ascending(lowercased(left.userId), lowercased(right.userId));
    }
    return false;
}

void checkOrders(const std::vector<HubItem>& items) {
    for (const HubSort sort : {HubSort::newest, HubSort::oldest, HubSort::downloads, HubSort::title,
                               HubSort::uploader}) {
        const std::vector<HubItem> arranged = hubArrange(items, {}, sort);
        require(std::is_permutation(arranged.begin(), arranged.end(), items.begin(), items.end()),
                "a share was lost or made up");
        for (std::size_t at = 1; at < arranged.size(); ++at)
            require(inOrder(arranged[at - 1], arranged[at], sort),
                    "two shares the wrong way round");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = replaceInvalidUtf8(asText(ByteView(data, size)));
    if (const auto time = parseIso(text))
        require(parseIso(formatIso8601(*time)) == std::chrono::floor<std::chrono::seconds>(*time),
                "a moment reads as another one");

    const HubResult result = hubParseList(text);
    if (!result.ok) {
        require(!result.error.empty() && result.items.empty(), "a failure without words");
        return 0;
    }
    require(result.error.empty(), "an error beside a list");
    std::vector<HubItem> expected;
    for (const HubItem& item : result.items) {
        require(!item.id.empty() && !item.url.empty(), "a share that cannot be fetched");
        const HubFilter own{{}, item.language, item.gender, item.userId};
        require(own.matches(item), "a share does not match its own fields");
        expected.push_back(inWholeSeconds(item));
    }
    require(hubParseList(replyOf(result.items).dump()).items == expected, "a field changed");
    // The check of the order is slow where there are many.
    if (result.items.size() <= 64) checkOrders(result.items);
    require(hubLanguages(result.items).size() <= result.items.size(), "a language made up");
    return 0;
}
