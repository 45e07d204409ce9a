// The client of the hub, the service on the internet where people share clone packs: list, download,
// upload, delete.
//
// Each operation blocks its thread until there is an answer or none can come, and so belongs on a
// background thread. Nothing is kept between two of them. Every failure is a value with a sentence
// for the person who asked; nothing throws. There are no accounts: who holds the delete key that
// came back from an upload can take that share down.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "core/base/Addresses.h"
#include "core/pack/HubList.h"

namespace zepho {

// What the service takes at most. It is the service's own limit; here it only saves a vain upload.
inline constexpr int hubMaxMegabytes = 10;
inline constexpr std::size_t hubMaxPackBytes = std::size_t{hubMaxMegabytes} << 20;

// Where the hub is, and how long each whole exchange with it may take.
struct HubService {
    std::string address = ZEPHO::hubAddress;
    std::chrono::milliseconds listTime{20'000};
    std::chrono::milliseconds downloadTime{120'000};
    std::chrono::milliseconds uploadTime{180'000};
    std::chrono::milliseconds deleteTime{30'000};
};

// What goes up with a pack.
struct HubUpload {
    HubKind kind = HubKind::voices;
    std::string filePath;
    std::string userId;
    std::string title;
    std::string note;
    std::string language;
    std::string gender;
    std::string fingerprint;  // of the pack's content; the hub keeps each content once
    int voices = 0;
    int bindings = 0;
};

struct HubUploadResult {
    bool ok = false;
    std::string error;
    std::string id;
    std::string url;
    std::string deleteKey;
    // The same content is there already; `id` and the rest say under which title and by whom.
    bool duplicate = false;
    std::string dupTitle;
    std::string dupUser;
    bool dupMine = false;
};

// The address of the list of a kind.
[[nodiscard]] std::string hubPage(HubKind kind, const HubService& service = {});

[[nodiscard]] HubResult hubList(HubKind kind, const HubService& service = {});

// Fetches the item's pack into the file `to`. Gives what went wrong, or nothing.
[[nodiscard]] std::optional<std::string> hubDownload(const HubItem& item, const std::string& to,
                                                     const HubService& service = {});

[[nodiscard]] HubUploadResult hubUpload(const HubUpload& upload, const HubService& service = {});

// Gives what went wrong, or nothing.
[[nodiscard]] std::optional<std::string> hubDelete(const std::string& deleteKey,
                                                   const HubService& service = {});

}  // namespace zepho
