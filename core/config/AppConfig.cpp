#include "core/config/AppConfig.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <system_error>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/config/BindingKeys.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/platform/Errors.h"
#include "core/platform/Files.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

constexpr std::int64_t maxEngineTimeoutMs =
    AppConfig::maxRequestTimeoutMs + AppConfig::engineTimeoutMarginMs;
constexpr std::int64_t unbounded = std::numeric_limits<std::int64_t>::max();

// One line of config.json. The engine's options are read into and written from a copy, as they are
// one setting. reset is absent where the field belongs to the engine, which is reset whole.
struct SettingRow {
    const char* section;
    const char* key;
    std::function<void(AppConfig&, EngineOptions&, const Json*)> read;
    std::function<Json(const AppConfig&, const EngineOptions&)> write;
    std::function<void(AppConfig&)> reset;
};

// How a value of each type is read from a section, with the present value as fallback, and written.
struct Number {
    std::int64_t low;
    std::int64_t high;
    [[nodiscard]] std::int64_t read(const Json* section, const char* key, std::int64_t now) const {
        return std::clamp(jInt(section, key, now), low, high);
    }
    [[nodiscard]] Json write(std::int64_t value) const { return value; }
};

struct Flag {
    [[nodiscard]] bool read(const Json* section, const char* key, bool now) const {
        return jBool(section, key, now);
    }
    [[nodiscard]] Json write(bool value) const { return value; }
};

struct PlainText {
    [[nodiscard]] std::string read(const Json* section, const char* key,
                                   const std::string& now) const {
        return jStr(section, key, now);
    }
    [[nodiscard]] Json write(const std::string& value) const { return value; }
};

// A float stands in the file with four decimals, not with the long tail of its binary value.
struct Decimal {
    [[nodiscard]] float read(const Json* section, const char* key, float now) const {
        const auto value = static_cast<float>(jFloat(section, key, static_cast<double>(now)));
        return std::isfinite(value) ? value : now;
    }
    [[nodiscard]] Json write(float value) const {
        return std::round(static_cast<double>(value) * 10000) / 10000;
    }
};

template <class Value>
struct Code {
    std::string_view (*codeOf)(Value);
    Value (*fromCode)(std::string_view);
    [[nodiscard]] Value read(const Json* section, const char* key, Value now) const {
        return fromCode(jStr(section, key, codeOf(now)));
    }
    [[nodiscard]] Json write(Value value) const { return codeOf(value); }
};

template <class Value, class Form>
SettingRow row(const char* section, const char* key, Setting<Value> AppConfig::*field, Form form) {
    return {section, key,
            [=](AppConfig& config, EngineOptions&, const Json* values) {
                config.*field = form.read(values, key, (config.*field).get());
            },
            [=](const AppConfig& config, const EngineOptions&) {
                return form.write((config.*field).get());
            },
            [=](AppConfig& config) { (config.*field).reset(); }};
}

template <class Value, class Form>
SettingRow row(const char* section, const char* key, Value EngineOptions::*field, Form form) {
    return {
        section, key,
        [=](AppConfig&, EngineOptions& engine, const Json* values) {
            engine.*field = form.read(values, key, engine.*field);
        },
        [=](const AppConfig&, const EngineOptions& engine) { return form.write(engine.*field); },
        nullptr};
}

// Every setting but the hub's: load, save and reset derive from this table.
const std::vector<SettingRow>& settingRows() {
    using Config = AppConfig;
    using Engine = EngineOptions;
    static const std::vector<SettingRow> rows{
        row("server", "port", &Config::port, Number{1, 65535}),
        row("server", "bind", &Config::bindAddress, PlainText{}),
        row("server", "rateLimitPerMinute", &Config::rateLimitPerMinute, Number{0, unbounded}),
        row("server", "autoStart", &Config::autoStartServer, Flag{}),
        row("server", "minimizeToTray", &Config::minimizeToTray, Flag{}),
        row("server", "showAdvanced", &Config::showAdvanced, Flag{}),
        row("server", "launchAtLogin", &Config::launchAtLogin, Flag{}),
        row("server", "uiLanguage", &Config::uiLanguage, Code<UiLang>{uiLangCode, uiLangFromCode}),
        row("synthesis", "maxTextLength", &Config::maxTextLength, Number{1, 100000}),
        row("synthesis", "queueLimit", &Config::queueLimit, Number{1, 4096}),
        row("synthesis", "timeoutMs", &Config::requestTimeoutMs,
            Number{1000, Config::maxRequestTimeoutMs}),
        row("synthesis", "speedMode", &Config::speedMode,
            Code<TtsSpeedMode>{ttsSpeedModeCode, ttsSpeedModeFromCode}),
        row("synthesis", "outputSampleRate", &Config::outputSampleRate, Number{0, unbounded}),
        row("synthesis", "normalizeOutput", &Config::normalizeOutput, Flag{}),
        row("synthesis", "autoDefaultVoice", &Config::autoCreateDefaultVoice, Flag{}),
        row("cache", "enabled", &Config::cacheEnabled, Flag{}),
        row("cache", "budgetMB", &Config::cacheBudgetMB, Number{0, 8192}),
        row("engine", "modelFile", &Engine::modelFile, PlainText{}),
        row("engine", "compute", &Engine::compute,
            Code<ComputeBackend>{computeBackendCode, computeBackendFromCode}),
        row("engine", "gpuLayers", &Engine::gpuLayers, Number{-1, 999}),
        row("engine", "threads", &Engine::threads, Number{0, 256}),
        row("engine", "useMirror", &Engine::useMirror, Flag{}),
        row("engine", "packageBaseUrl", &Engine::packageBaseUrl, PlainText{}),
        row("engine", "timeoutMs", &Engine::timeoutMs, Number{5000, maxEngineTimeoutMs}),
        row("engine", "maxNewTokens", &Engine::maxNewTokens, Number{64, 16384}),
        row("engine", "temperature", &Engine::temperature, Decimal{}),
        row("engine", "topP", &Engine::topP, Decimal{}),
        row("engine", "topK", &Engine::topK, Number{0, 1000}),
        row("engine", "repetitionPenalty", &Engine::repetitionPenalty, Decimal{}),
        row("engine", "extraArgs", &Engine::extraArgs, PlainText{}),
    };
    return rows;
}

std::vector<HubShare> readShares(const Json* hub) {
    std::vector<HubShare> shares;
    const Json* list = jArr(hub, "shares");
    if (list == nullptr) return shares;
    for (const Json& item : *list) {
        if (!item.is_object()) continue;
        const auto member = [&item](const char* key) {
            const auto found = item.find(key);
            return found == item.end() ? std::string() : jsonText(*found);
        };
        HubShare share{member("id"), member("title"), member("deleteKey")};
        if (!share.id.empty() && !share.deleteKey.empty()) shares.push_back(std::move(share));
    }
    return shares;
}

using VoiceTable = std::map<std::string, std::string, std::less<>>;

VoiceTable readBindings(const Json* entries, std::string (*normalize)(std::string_view)) {
    VoiceTable table;
    if (entries == nullptr) return table;
    for (const auto& [key, value] : entries->items()) {
        if (!value.is_string()) continue;
        const auto& voiceId = value.get_ref<const std::string&>();
        if (!trimmedView(voiceId).empty()) table[normalize(key)] = voiceId;
    }
    return table;
}

std::string pathOrDefault(const std::optional<std::string>& path) {
    return path ? *path : ZEPHOPaths::configFile();
}

}  // namespace

void AppConfig::load(const std::optional<std::string>& path) {
    const std::string file = pathOrDefault(path);
    if (fileIsMissing(file)) {
        AppLog::info("config", "no config file; using defaults and writing one: " + file);
        save(path);
        return;
    }
    const std::optional<Bytes> bytes = loadFileBytes(file);
    if (!bytes) {
        AppLog::error("config", "cannot read config; using defaults");
        return;
    }
    const std::optional<Json> root = parseOwnJsonObject(*bytes);
    if (!root) {
        AppLog::warn("config", "config is not valid JSON; using defaults");
        return;
    }

    EngineOptions options = engine;
    for (const SettingRow& line : settingRows())
        line.read(*this, options, jObj(&*root, line.section));
    engine = options;
    const bool changed = raiseOldTimeouts();

    const Json* hub = jObj(&*root, "hub");
    auto airlineTable = readBindings(jObj(&*root, "airlineVoices"), normalizeAirlineKey);
    auto defaultTable = readBindings(jObj(&*root, "defaultVoices"), normalizeDefaultKey);
    {
        const std::lock_guard guard(lock);
        if (hub != nullptr) {
            hubUserId = jStr(hub, "userId");
            hubShares = readShares(hub);
        }
        airlines = std::move(airlineTable);
        defaults = std::move(defaultTable);
    }
    AppLog::info("config", "config loaded: " + file);
    if (changed) save(path);
}

// Lifts time-outs under which a long announcement could never finish. True if something changed.
bool AppConfig::raiseOldTimeouts() {
    EngineOptions options = engine;
    bool changed = false;
    if (requestTimeoutMs == legacyTimeoutMs && options.timeoutMs == legacyTimeoutMs) {
        requestTimeoutMs = 600000;
        options.timeoutMs = 900000;
        AppLog::info("config",
                     "raised the old 180 s timeouts to 600 s / 900 s — on Apple silicon the codec "
                     "runs on CPU and a 12 s announcement takes about 260 s, so 180 s gave up "
                     "before it could ever finish");
        changed = true;
    }
    const std::int64_t needed =
        std::min(requestTimeoutMs + engineTimeoutMarginMs, maxEngineTimeoutMs);
    if (options.timeoutMs < needed) {
        AppLog::info("config",
                     formatText("engine timeout %d ms was shorter than the synthesis timeout %d "
                                "ms; raised it to %d ms — a shorter one cuts the HTTP request off "
                                "while s2 keeps going, and every request after that gets a 503",
                                options.timeoutMs, requestTimeoutMs.get(), needed));
        options.timeoutMs = needed;
        changed = true;
    }
    engine = options;
    return changed;
}

void AppConfig::save(const std::optional<std::string>& path) const {
    const std::string file = pathOrDefault(path);
    const std::lock_guard oneAtATime(writing);
    Json shares = Json::array();
    Json airlineVoices = Json::object();
    Json defaultVoices = Json::object();
    std::string userId;
    {
        const std::lock_guard guard(lock);
        for (const HubShare& share : hubShares)
            shares.push_back(
                {{"id", share.id}, {"title", share.title}, {"deleteKey", share.deleteKey}});
        for (const auto& [key, voiceId] : airlines) airlineVoices[key] = voiceId;
        for (const auto& [key, voiceId] : defaults) defaultVoices[key] = voiceId;
        userId = hubUserId;
    }
    Json root = {{"version", ZEPHO::version},
                 {"hub", {{"userId", userId}, {"shares", std::move(shares)}}},
                 {"airlineVoices", std::move(airlineVoices)},
                 {"defaultVoices", std::move(defaultVoices)}};
    const EngineOptions options = engine;
    for (const SettingRow& line : settingRows())
        root[line.section][line.key] = line.write(*this, options);
    try {
        saveFileBytes(file, jsonData(root, true));
    } catch (const std::system_error& failure) {
        AppLog::error("config", "cannot write config: " + describeError(failure));
    }
}

void AppConfig::reset() {
    for (const SettingRow& line : settingRows())
        if (line.reset) line.reset(*this);
    engine.reset();
    hubUserId.reset();
    const std::lock_guard guard(lock);
    airlines.clear();
    defaults.clear();
    hubShares.clear();
}

void AppConfig::applyBounds() {
    EngineOptions options = engine;
    // Without a file to read from, a line reads its present value.
    for (const SettingRow& line : settingRows()) line.read(*this, options, nullptr);
    engine = options;
    raiseOldTimeouts();
}

std::string AppConfig::baseUrl() const {
    const std::string address = bindAddress;
    const bool everywhere = address.empty() || address == "0.0.0.0";
    return "http://" + (everywhere ? std::string("127.0.0.1") : address) + ":" +
           std::to_string(port);
}

}  // namespace zepho
