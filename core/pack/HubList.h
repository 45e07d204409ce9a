// The list of shares on the hub: how its reply is read, and how the list is narrowed and ordered here.
//
// Plain values and pure functions; any thread; nothing throws. The reply comes from a stranger:
// whatever its bytes are, there is a result.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/platform/Clock.h"

namespace zepho {

enum class HubKind { voices, broadcasts };
// "voices", "broadcasts": the form on the wire.
[[nodiscard]] std::string_view hubKindWord(HubKind kind);

enum class HubSort { newest, oldest, downloads, title, uploader };

// One share.
struct HubItem {
    std::string id;
    std::string userId;  // the uploader's signature; anybody may sign as anybody
    std::string title;
    std::string language;
    std::string gender;
    std::int64_t voices = 0;    // in the pack
    std::int64_t bindings = 0;  // in the pack
    std::string note;
    std::string appVersion;  // the build that uploaded it
    std::string fileName;
    std::int64_t size = 0;  // bytes
    std::int64_t downloads = 0;
    std::optional<WallTime> createdAt;
    std::string url;  // where the pack is fetched

    bool operator==(const HubItem&) const = default;
};

struct HubResult {
    bool ok = false;
    std::string error;
    std::vector<HubItem> items;
};

// The reply to a list request. Shares without an id or an address are left out.
[[nodiscard]] HubResult hubParseList(std::string_view text);

// A moment with or without a fraction of a second, and "2025-11-02 08:15:00" in universal time.
[[nodiscard]] std::optional<WallTime> parseIso(std::string_view text);

// What the person wants to see. Empty means no condition; case never matters.
struct HubFilter {
    std::string text;  // anywhere in title, uploader or note
    std::string language;
    std::string gender;
    std::string userId;

    [[nodiscard]] bool matches(const HubItem& item) const;
};

// The items that match, in order; equal ones go by id.
[[nodiscard]] std::vector<HubItem> hubArrange(const std::vector<HubItem>& items,
                                              const HubFilter& filter, HubSort sort);

// Without empty values and repetitions (the first spelling stays), sorted, all without regard to case.
[[nodiscard]] std::vector<std::string> collectDistinct(const std::vector<std::string>& values);
[[nodiscard]] std::vector<std::string> hubLanguages(const std::vector<HubItem>& items);
[[nodiscard]] std::vector<std::string> hubUploaders(const std::vector<HubItem>& items);

}  // namespace zepho
