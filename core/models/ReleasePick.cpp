#include "core/models/ReleasePick.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include <nlohmann/json.hpp>

#include "core/base/Addresses.h"
#include "core/base/Constants.h"
#include "core/base/Json.h"
#include "core/diag/Language.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

struct Release {
    std::string version;
    std::string page;
    std::string download;
    std::string notes;
};

UpdateInfo startInfo() {
    UpdateInfo info;
    info.current = ZEPHO::version;
    return info;
}

UpdateInfo without(const std::string& reason) {
    UpdateInfo info = startInfo();
    info.error = reason;
    return info;
}

UpdateInfo of(const Release& best) {
    UpdateInfo info = startInfo();
    info.ok = true;
    info.latest = best.version;
    info.newer = compareVersions(info.latest, info.current) >= 1;
    info.pageUrl = best.page;
    info.downloadUrl = best.download;
    info.notes = best.notes;
    return info;
}

void keepNewest(std::optional<Release>& best, Release release) {
    if (!best || compareVersions(release.version, best->version) >= 1) best = std::move(release);
}

// The piece before the next dot, which goes away with it. Behind the last piece there are empty ones.
std::int64_t nextPiece(std::string_view& rest) {
    const std::size_t dot = std::min(rest.find('.'), rest.size());
    const std::string_view piece = trimmedView(rest.substr(0, dot));
    rest.remove_prefix(std::min(dot + 1, rest.size()));
    return parseDecimalInteger(piece).value_or(0);
}

bool isForThisSystem(std::string_view suffix, std::string_view name) {
    if (name.find("engine") != std::string_view::npos) return false;
    if (suffix == ".dmg" || suffix == ".pkg") return true;
    constexpr std::array<std::string_view, 4> words{"mac", "darwin", "arm64", "universal"};
    return std::any_of(words.begin(), words.end(), [&](std::string_view word) {
        return name.find(word) != std::string_view::npos;
    });
}

// The address of the first asset of the first kind that has one.
std::string downloadOf(const Json& assets) {
    for (const std::string_view suffix : {".dmg", ".pkg", ".zip"}) {
        for (const Json& asset : assets) {
            if (!asset.is_object()) continue;
            const std::string name = lowercased(jStr(&asset, "name"));
            if (!name.ends_with(suffix) || !isForThisSystem(suffix, name)) continue;
            if (std::string url = jStr(&asset, "browser_download_url"); !url.empty()) return url;
            break;
        }
    }
    return {};
}

std::optional<std::string> versionOf(std::string tag) {
    for (const std::string_view prefix : {UpdateSource::macTagPrefix, UpdateSource::tagPrefix})
        if (tag.starts_with(prefix)) return tag.substr(prefix.size());
    return std::nullopt;
}

std::optional<Release> takeRelease(const Json& object) {
    if (!object.is_object()) return std::nullopt;
    if (jBool(&object, "draft", false) || jBool(&object, "prerelease", false)) return std::nullopt;
    const std::optional<std::string> version = versionOf(lowercased(jStr(&object, "tag_name")));
    if (!version || version->empty()) return std::nullopt;
    Release release{*version, jStr(&object, "html_url"), {}, jStr(&object, "body")};
    if (const Json* assets = jArr(&object, "assets")) release.download = downloadOf(*assets);
    return release;
}

}  // namespace

int compareVersions(std::string_view a, std::string_view b) {
    while (!a.empty() || !b.empty()) {
        const std::int64_t left = nextPiece(a);
        const std::int64_t right = nextPiece(b);
        if (left != right) return left > right ? 1 : -1;
    }
    return 0;
}

UpdateInfo pickLatestFromJson(std::string_view text) {
    const Json list = Json::parse(text, nullptr, false);
    if (!list.is_array()) return without(T("GitHub 返回的内容看不懂"));
    std::optional<Release> best;
    for (const Json& each : list)
        if (std::optional<Release> release = takeRelease(each))
            keepNewest(best, std::move(*release));
    return best ? of(*best) : without(T("GitHub 上还没有 Zephon 的发布记录"));
}

UpdateInfo pickLatestFromAtom(std::string_view text) {
    constexpr std::string_view mark = "/releases/tag/";
    constexpr std::string_view prefix = UpdateSource::macTagPrefix;
    std::optional<Release> best;
    std::size_t from = text.find(mark);
    while (from != std::string_view::npos) {
        from += mark.size();
        // Only a tag of this line is read to its end: a hostile text has no quotes to stop at.
        if (lowercased(text.substr(from, prefix.size())) == prefix) {
            from += prefix.size();
            const std::size_t quote = text.find('"', from);
            if (quote == std::string_view::npos) break;
            if (quote > from)
                keepNewest(best, {lowercased(text.substr(from, quote - from)), {}, {}, {}});
            from = quote;
        }
        from = text.find(mark, from);
    }
    return best ? of(*best) : without(T("GitHub 上还没有 Zephon 的发布记录"));
}

}  // namespace zepho
