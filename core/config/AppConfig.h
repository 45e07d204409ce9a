// The one configuration object: settings, binding tables and hub shares, kept in config.json.
//
// Made once at start and read live by everybody; usable before load() with the defaults. Settings
// guard themselves, `lock` guards the tables. Changes reach the disk only by an explicit save().
// Neither load() nor save() ever fails to the caller: both log and go on.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/config/EngineOptions.h"
#include "core/config/Setting.h"
#include "core/diag/Language.h"

namespace zepho {

// What this machine has published to the hub. The delete key is the hub's answer to the upload.
struct HubShare {
    std::string id;
    std::string title;
    std::string deleteKey;
};

// A binding key and the voice id it leads to.
using Binding = std::pair<std::string, std::string>;

class AppConfig {
public:
    static constexpr std::int64_t legacyTimeoutMs = 180000;  // what older versions shipped
    static constexpr std::int64_t maxRequestTimeoutMs = 1800000;
    // How much longer the engine's time-out must be than the request's.
    static constexpr std::int64_t engineTimeoutMarginMs = 60000;

    AppConfig() = default;
    AppConfig(const AppConfig&) = delete;
    AppConfig& operator=(const AppConfig&) = delete;

    // An absent path means config.json in the data root.
    void load(const std::optional<std::string>& path = std::nullopt);
    void save(const std::optional<std::string>& path = std::nullopt) const;
    // Back to the defaults, tables included. Does not save.
    void reset();
    // Brings what was assigned within the bounds that load() keeps to.
    void applyBounds();

    // The address at which a client on this machine reaches the service.
    [[nodiscard]] std::string baseUrl() const;

    // Bindings. A voice id of blanks removes the binding; an airline of blanks is no airline. The
    // look-ups give "" where nothing is bound.
    [[nodiscard]] std::string airlineVoice(std::string_view airline, std::string_view language,
                                           TtsGender gender) const;
    void setAirlineVoice(std::string_view airline, std::string_view language, TtsGender gender,
                         std::string_view voiceId);
    // Of exactly this key, in whatever form a file has brought it.
    void removeAirlineBinding(const std::string& key);
    [[nodiscard]] std::string defaultVoice(std::string_view language, TtsGender gender) const;
    void setDefaultVoice(std::string_view language, TtsGender gender, std::string_view voiceId);
    // All pairs, sorted by key.
    [[nodiscard]] std::vector<Binding> airlinesSnapshot() const;
    [[nodiscard]] std::vector<Binding> defaultsSnapshot() const;
    // The airline codes that have a binding, sorted.
    [[nodiscard]] std::vector<std::string> knownAirlines() const;
    // Removes every binding to this voice.
    void forgetVoice(std::string_view voiceId);

    // Hub shares; ids are compared without regard to case.
    void addHubShare(const HubShare& share);
    [[nodiscard]] std::string hubDeleteKey(std::string_view id) const;
    void removeHubShare(std::string_view id);
    [[nodiscard]] std::vector<HubShare> hubSharesSnapshot() const;

    // Guarding themselves.
    Setting<std::int64_t> port{ZEPHO::defaultHttpPort};
    Setting<std::string> bindAddress{"0.0.0.0"};
    Setting<std::int64_t> rateLimitPerMinute{0};  // 0 means no limit
    Setting<bool> autoStartServer{true};
    Setting<bool> minimizeToTray{true};
    Setting<UiLang> uiLanguage{UiLang::auto_};
    Setting<bool> showAdvanced{false};
    Setting<bool> launchAtLogin{false};
    Setting<std::string> hubUserId{""};
    Setting<std::int64_t> maxTextLength{5000};  // user-perceived characters
    Setting<std::int64_t> queueLimit{64};
    Setting<std::int64_t> requestTimeoutMs{600000};
    Setting<TtsSpeedMode> speedMode{TtsSpeedMode::localStretch};
    Setting<std::int64_t> outputSampleRate{0};  // hertz; 0 means the engine's own rate
    Setting<bool> normalizeOutput{false};
    Setting<bool> autoCreateDefaultVoice{true};
    Setting<bool> cacheEnabled{true};
    Setting<std::int64_t> cacheBudgetMB{0};  // MiB; 0 means no limit
    Setting<EngineOptions> engine{EngineOptions{}};

private:
    using VoiceTable = std::map<std::string, std::string, std::less<>>;

    bool raiseOldTimeouts();
    void setBinding(VoiceTable& table, std::string key, std::string_view voiceId);
    [[nodiscard]] std::string binding(const VoiceTable& table, const std::string& key) const;
    [[nodiscard]] std::vector<Binding> snapshotOf(const VoiceTable& table) const;

    // Held while the file is written, so that no older state follows a newer one; taken before `lock`.
    mutable std::mutex writing;

    // Guarded by lock.
    mutable std::mutex lock;
    VoiceTable defaults;
    std::vector<HubShare> hubShares;
    VoiceTable airlines;
};

}  // namespace zepho
