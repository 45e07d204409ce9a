#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "core/base/Json.h"
#include "core/config/AppConfig.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/platform/Files.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

class AppConfigTest : public testing::Test {
protected:
    void write(const std::string& text) const { saveFileBytes(path, asBytes(text)); }
    [[nodiscard]] std::string fileText() const {
        const auto bytes = loadFileBytes(path);
        return bytes ? std::string(asText(*bytes)) : std::string();
    }
    [[nodiscard]] Json fileJson() const {
        const auto parsed = parseJsonObject(fileText());
        return parsed ? *parsed : Json();
    }
    static bool wasLogged(const std::string& text) {
        const auto lines = AppLog::snapshot();
        return std::any_of(lines.begin(), lines.end(), [&](const LogEntry& line) {
            return line.text.find(text) != std::string::npos;
        });
    }

    test::TempDir dir;
    std::string path = dir.file("data/config.json");
};

TEST_F(AppConfigTest, KeepsWhatWasSavedKeyForKey) {
    AppConfig config;
    config.load(path);
    EXPECT_TRUE(wasLogged("no config file; using defaults and writing one: " + path));
    const std::string defaults = fileText();
    config.port = 18000;
    config.bindAddress = "127.0.0.1";
    config.uiLanguage = UiLang::ja;
    config.speedMode = TtsSpeedMode::localResample;
    config.normalizeOutput = true;
    config.cacheBudgetMB = 12;
    config.hubUserId = "ops/desk";
    EngineOptions engine;
    engine.compute = ComputeBackend::metal;
    engine.temperature = 0.123456F;
    engine.extraArgs = "--min-tokens 8";
    config.engine = engine;
    config.setAirlineVoice("ca", "zh-CN", TtsGender::female, "V1");
    config.setDefaultVoice("", TtsGender::auto_, "V2");
    config.addHubShare({"A1", "", "key"});
    config.save(path);
    EXPECT_EQ(fileJson(), Json::parse(R"({"version":"0.3.26220",
        "server":{"port":18000,"bind":"127.0.0.1","rateLimitPerMinute":0,"autoStart":true,
        "minimizeToTray":true,"showAdvanced":false,"launchAtLogin":false,"uiLanguage":"ja"},
        "synthesis":{"maxTextLength":5000,"queueLimit":64,"timeoutMs":600000,
        "speedMode":"resample","outputSampleRate":0,"normalizeOutput":true,
        "autoDefaultVoice":true},
        "cache":{"enabled":true,"budgetMB":12},
        "engine":{"modelFile":"","compute":"metal","gpuLayers":-1,"threads":0,"useMirror":true,
        "packageBaseUrl":"","timeoutMs":900000,"maxNewTokens":1024,"temperature":0.1235,
        "topP":0.8,"topK":40,"repetitionPenalty":1.1,"extraArgs":"--min-tokens 8"},
        "hub":{"userId":"ops/desk","shares":[{"id":"A1","title":"","deleteKey":"key"}]},
        "airlineVoices":{"CA:zh:female":"V1"},"defaultVoices":{":default":"V2"}})"));
    EXPECT_NE(fileText().find("ops/desk"), std::string::npos) << "slashes stay as they are";

    AppConfig again;
    again.load(path);
    const Json saved = fileJson();
    again.save(path);
    EXPECT_EQ(fileJson(), saved);
    EXPECT_EQ(again.baseUrl(), "http://127.0.0.1:18000");
    EXPECT_EQ(again.airlineVoice("CA", "zh", TtsGender::female), "V1");
    EXPECT_EQ(again.hubDeleteKey("a1"), "key");
    again.reset();
    EXPECT_EQ(again.baseUrl(), "http://127.0.0.1:17150");
    again.save(path);
    EXPECT_EQ(fileText(), defaults);
}

TEST_F(AppConfigTest, AppliesBoundsAndKeepsDefaultsForWrongTypes) {
    struct Case {
        const char* text;
        std::function<std::int64_t(const AppConfig&)> value;
        std::int64_t expected;
    };
    const auto port = [](const AppConfig& c) { return c.port.get(); };
    const auto budget = [](const AppConfig& c) { return c.cacheBudgetMB.get(); };
    const auto speedMode = [](const AppConfig& c) {
        return static_cast<std::int64_t>(c.speedMode.get());
    };
    const auto compute = [](const AppConfig& c) {
        return static_cast<std::int64_t>(c.engine.get().compute);
    };
    const auto as = [](auto code) { return static_cast<std::int64_t>(code); };
    const Case cases[] = {
        {R"({"server":{"port":0}})", port, 1},
        {R"({"server":{"port":70000}})", port, 65535},
        {R"({"server":{"port":" 8080 "}})", port, 8080},
        {R"({"server":{"port":[1]}})", port, 17150},
        {R"({"server":[]})", port, 17150},
        {R"({"cache":{"budgetMB":9000}})", budget, 8192},
        {R"({"synthesis":{"speedMode":"STRETCH "}})", speedMode, as(TtsSpeedMode::localStretch)},
        {R"({"synthesis":{"speedMode":"warp"}})", speedMode, as(TtsSpeedMode::engine)},
        {R"({"engine":{"compute":"GPU"}})", compute, as(ComputeBackend::metal)},
        {R"({"engine":{"gpuLayers":-7}})",
         [](const AppConfig& c) { return c.engine.get().gpuLayers; }, -1},
        {R"({"synthesis":{"maxTextLength":1e30}})",
         [](const AppConfig& c) { return c.maxTextLength.get(); }, 5000},
        {R"({"engine":{"temperature":1e300}})",
         [](const AppConfig& c) { return c.engine.get() == EngineOptions{} ? 1 : 0; }, 1},
    };
    for (const Case& one : cases) {
        write(one.text);
        AppConfig config;
        config.load(path);
        EXPECT_EQ(one.value(config), one.expected) << one.text;
        EXPECT_EQ(fileText(), one.text) << "a load alone does not rewrite the file";
    }
}

TEST_F(AppConfigTest, RaisesOldAndShortTimeouts) {
    struct Case {
        const char* text;
        std::int64_t request, engine;
        bool rewritten;
    };
    const Case cases[] = {
        {R"({"synthesis":{"timeoutMs":180000},"engine":{"timeoutMs":180000}})", 600000, 900000,
         true},
        {R"({"synthesis":{"timeoutMs":180000}})", 180000, 900000, false},
        {R"({"synthesis":{"timeoutMs":1800000},"engine":{"timeoutMs":900000}})", 1800000, 1860000,
         true},
        {R"({"synthesis":{"timeoutMs":200000},"engine":{"timeoutMs":180000}})", 200000, 260000,
         true},
        {R"({"synthesis":{"timeoutMs":600000},"engine":{"timeoutMs":660000}})", 600000, 660000,
         false},
    };
    for (const Case& one : cases) {
        write(one.text);
        AppConfig config;
        config.load(path);
        EXPECT_EQ(config.requestTimeoutMs, one.request) << one.text;
        EXPECT_EQ(config.engine.get().timeoutMs, one.engine) << one.text;
        EXPECT_EQ(fileText() != one.text, one.rewritten) << one.text;
        if (one.rewritten) {
            EXPECT_EQ(fileJson()["engine"]["timeoutMs"], one.engine);
        }
    }
}

TEST_F(AppConfigTest, ABadFileNeverStopsTheStartAndStays) {
    for (const std::string text : {"", "{", "[1,2]", "\xff\xfe{}", "{\"a\":1e999}"}) {
        write(text);
        AppConfig config;
        config.load(path);
        EXPECT_EQ(config.port, 17150);
        EXPECT_EQ(fileText(), text);
    }
    EXPECT_TRUE(wasLogged("config is not valid JSON; using defaults"));

    // One of which the system does not even tell whether it is there is not written anew.
    AppLog::clear();
    std::filesystem::create_symlink("loop", dir.file("loop"));
    AppConfig config;
    config.load(dir.file("loop"));
    EXPECT_TRUE(wasLogged("cannot read config; using defaults"));
    EXPECT_TRUE(std::filesystem::is_symlink(dir.file("loop")));

    AppLog::clear();
    config.load(dir.path());  // a directory: there, but unreadable
    EXPECT_TRUE(wasLogged("cannot read config; using defaults"));
    config.save(path + "/below-a-file");
    EXPECT_TRUE(wasLogged("cannot write config: "));
}

TEST_F(AppConfigTest, ReadsTablesAndSharesWithTheirRules) {
    write(R"({"airlineVoices":{" ca : zh_CN :F":" v1 ","CES:en:male":"  ","MU":"x","A:b":7},
              "defaultVoices":{"EN-us:M:rest":"v2"},
              "hub":{"userId":9,"shares":[{"id":123,"title":null,"deleteKey":"k"},
                     {"id":"","deleteKey":"k"},{"id":"x"},"junk"]}})");
    AppConfig config;
    config.load(path);
    EXPECT_EQ(config.airlinesSnapshot(),
              (std::vector<Binding>{{"CA:zh:female", " v1 "}, {"MU", "x"}}));
    EXPECT_EQ(config.defaultsSnapshot(), (std::vector<Binding>{{"en:male", "v2"}}));
    EXPECT_EQ(config.hubUserId.get(), "9");
    ASSERT_EQ(config.hubSharesSnapshot().size(), 1U);
    EXPECT_EQ(config.hubSharesSnapshot()[0].id, "123");

    write(R"({"server":{}})");
    config.load(path);
    EXPECT_TRUE(config.airlinesSnapshot().empty()) << "an absent table empties the one in memory";
    EXPECT_EQ(config.hubSharesSnapshot().size(), 1U) << "an absent hub section keeps the shares";

    // Replaced in place, without regard to case; nothing without an id or a key.
    for (const HubShare& share : {HubShare{"A", "one", "ka"},
                                  {"B", "two", "kb"},
                                  {"a", "uno", "kc"},
                                  {"", "none", "kd"},
                                  {"C", "none", ""}})
        config.addHubShare(share);
    const auto shares = config.hubSharesSnapshot();
    ASSERT_EQ(shares.size(), 3U);
    EXPECT_EQ(shares[1].title, "uno");
    EXPECT_EQ(config.hubDeleteKey("b"), "kb");
    config.removeHubShare("A");
    EXPECT_EQ(config.hubDeleteKey("a"), "");
}

}  // namespace
}  // namespace zepho
