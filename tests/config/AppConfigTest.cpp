#include <algorithm>

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

TEST_F(AppConfigTest, WritesTheDefaultsWhereThereIsNoFile) {
    AppConfig config;
    config.load(path);
    EXPECT_TRUE(wasLogged("no config file; using defaults and writing one: " + path));
    const Json root = fileJson();
    EXPECT_EQ(root["version"], "0.3.26220");
    EXPECT_EQ(root["server"], Json::parse(R"({"port":17150,"bind":"0.0.0.0",
        "rateLimitPerMinute":0,"autoStart":true,"minimizeToTray":true,"showAdvanced":false,
        "launchAtLogin":false,"uiLanguage":"auto"})"));
    EXPECT_EQ(root["synthesis"], Json::parse(R"({"maxTextLength":5000,"queueLimit":64,
        "timeoutMs":600000,"speedMode":"stretch","outputSampleRate":0,"normalizeOutput":false,
        "autoDefaultVoice":true})"));
    EXPECT_EQ(root["cache"], Json::parse(R"({"enabled":true,"budgetMB":0})"));
    EXPECT_EQ(root["engine"], Json::parse(R"({"modelFile":"","compute":"auto","gpuLayers":-1,
        "threads":0,"useMirror":true,"packageBaseUrl":"","timeoutMs":900000,"maxNewTokens":1024,
        "temperature":0.58,"topP":0.8,"topK":40,"repetitionPenalty":1.1,"extraArgs":""})"));
    EXPECT_EQ(root["hub"], Json::parse(R"({"userId":"","shares":[]})"));
    EXPECT_EQ(root["airlineVoices"], Json::object());
    EXPECT_EQ(root["defaultVoices"], Json::object());
}

TEST_F(AppConfigTest, KeepsWhatWasSavedKeyForKey) {
    AppConfig config;
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
    EXPECT_EQ(fileJson()["engine"]["temperature"], 0.1235);
    EXPECT_NE(fileText().find("ops/desk"), std::string::npos) << "slashes stay as they are";

    AppConfig again;
    again.load(path);
    EXPECT_EQ(again.port, 18000);
    EXPECT_EQ(again.baseUrl(), "http://127.0.0.1:18000");
    EXPECT_EQ(again.uiLanguage, UiLang::ja);
    EXPECT_EQ(again.speedMode, TtsSpeedMode::localResample);
    EXPECT_TRUE(again.normalizeOutput);
    EXPECT_EQ(again.hubUserId.get(), "ops/desk");
    EXPECT_EQ(again.engine.get().compute, ComputeBackend::metal);
    EXPECT_EQ(again.engine.get().extraArgs, "--min-tokens 8");
    EXPECT_EQ(again.airlineVoice("CA", "zh", TtsGender::female), "V1");
    EXPECT_EQ(again.defaultVoice("auto", TtsGender::auto_), "V2");
    EXPECT_EQ(again.hubDeleteKey("a1"), "key");

    again.reset();
    EXPECT_EQ(again.port, 17150);
    EXPECT_EQ(again.hubUserId.get(), "");
    EXPECT_EQ(again.engine.get(), EngineOptions{});
    EXPECT_TRUE(again.airlinesSnapshot().empty());
    EXPECT_TRUE(again.hubSharesSnapshot().empty());
    EXPECT_EQ(again.baseUrl(), "http://127.0.0.1:17150");
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
        {R"({"server":{"port":null}})", port, 17150},
        {R"({"server":[]})", port, 17150},
        {R"({"cache":{"budgetMB":-5}})", budget, 0},
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

    AppConfig config;
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
}

TEST_F(AppConfigTest, HubSharesReplaceInPlaceWithoutRegardToCase) {
    AppConfig config;
    config.addHubShare({"A", "one", "ka"});
    config.addHubShare({"B", "two", "kb"});
    config.addHubShare({"a", "uno", "kc"});
    config.addHubShare({"", "none", "kd"});
    config.addHubShare({"C", "none", ""});
    const auto shares = config.hubSharesSnapshot();
    ASSERT_EQ(shares.size(), 2U);
    EXPECT_EQ(shares[0].id, "a");
    EXPECT_EQ(shares[0].title, "uno");
    EXPECT_EQ(config.hubDeleteKey("b"), "kb");
    config.removeHubShare("A");
    EXPECT_EQ(config.hubSharesSnapshot().size(), 1U);
    EXPECT_EQ(config.hubDeleteKey("A"), "");
}

}  // namespace
}  // namespace zepho
