// Any bytes as the release host's answer, as JSON and as an Atom feed: there is a release or a reason,
// the release is really in the text, and none in the feed is newer.
#include <string>

#include "core/base/Addresses.h"
#include "core/models/ReleasePick.h"
#include "core/platform/Require.h"
#include "core/platform/Unicode.h"
#include "fuzz/Slices.h"

namespace {

using namespace zepho;

void checkInfo(const UpdateInfo& info) {
    require(info.ok == info.error.empty(), "neither a release nor a reason, or both");
    require(!info.current.empty(), "no version of our own");
    if (!info.ok) {
        require(!info.newer && info.latest.empty() && info.downloadUrl.empty(), "half a release");
        return;
    }
    require(!info.latest.empty(), "a release without a version");
    require(info.newer == (compareVersions(info.latest, info.current) == 1), "newer or not");
}

void checkOrder(std::string_view text) {
    const std::string_view first = text.substr(0, text.size() / 3);
    const std::string_view second = text.substr(first.size(), text.size() / 3);
    const std::string_view third = text.substr(first.size() + second.size());
    require(compareVersions(first, first) == 0, "unequal to itself");
    const int forth = compareVersions(first, second);
    require(forth >= -1 && forth <= 1 && compareVersions(second, first) == -forth,
            "two orders of one pair");
    if (forth >= 0 && compareVersions(second, third) >= 0)
        require(compareVersions(first, third) >= 0, "an order in a circle");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = asText({data, size});
    checkOrder(text);
    checkInfo(pickLatestFromJson(text));

    const UpdateInfo fromFeed = pickLatestFromAtom(text);
    checkInfo(fromFeed);
    if (!isValidUtf8(text)) return 0;
    const std::string lower = lowercased(text);
    const std::string lead = "/releases/tag/" + std::string(UpdateSource::macTagPrefix);
    if (fromFeed.ok)
        require(lower.find(lead + fromFeed.latest + "\"") != std::string::npos, "made up");
    return 0;
}
