// What the hub page has done in the background: fetching a share into this program, and packing
// something and sending it up.
//
// Free functions that block for as long as the network takes; never on the main thread. Nothing throws:
// what went wrong is a value.
#pragma once

#include <memory>
#include <string>

#include "core/pack/HubClient.h"
#include "core/service/TtsService.h"

namespace zepho {

// What the person has chosen to share.
struct ShareChoice {
    HubKind kind = HubKind::voices;
    std::string userId;
    std::string title;
    std::string note;
    std::string picked;  // a voice id, or a binding key
};

// The three parts of a binding key. Absent for a key with fewer.
struct BindingParts {
    std::string airline;
    std::string language;
    TtsGender gender = TtsGender::auto_;
};
[[nodiscard]] std::optional<BindingParts> bindingParts(const std::string& key);

struct HubFetched {
    std::string downloadError;  // empty where it worked
    std::string importError;    // empty where it worked
    std::string summary;        // of the import
};
// Saves the configuration; leaves no file behind.
[[nodiscard]] HubFetched fetchShare(const HubItem& item, TtsService& service, AppConfig& config,
                                    const HubService& hub);

struct HubSent {
    std::string packingError;  // empty where it worked
    HubUploadResult upload;
};
// A share that went up is known to the configuration, and saved, when this returns.
[[nodiscard]] HubSent sendShare(const ShareChoice& choice, TtsService& service, AppConfig& config,
                                const HubService& hub);

}  // namespace zepho
