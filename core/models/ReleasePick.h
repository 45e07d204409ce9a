// Which release is the newest of this program's line: pure readers of what the release host tells.
// Any thread; nothing throws, whatever the text.
#pragma once

#include <string>
#include <string_view>

namespace zepho {

struct UpdateInfo {
    bool ok = false;     // a release was found
    bool newer = false;  // newer than the running program
    std::string latest;
    std::string current;
    std::string pageUrl;
    std::string downloadUrl;  // of the installer; may be empty
    std::string notes;
    std::string error;  // why there is none
};

// -1, 0 or 1. Compared piece by piece between the dots; a missing piece counts as 0, and so does one
// that is no number.
[[nodiscard]] int compareVersions(std::string_view a, std::string_view b);

[[nodiscard]] UpdateInfo pickLatestFromJson(std::string_view text);
// The feed tells the version only, and one tag prefix counts there.
[[nodiscard]] UpdateInfo pickLatestFromAtom(std::string_view text);

}  // namespace zepho
