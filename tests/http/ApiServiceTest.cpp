// Pre-bake orders, health, statistics, self test and log over the API.
#include <algorithm>

#include <gtest/gtest.h>

#include "tests/http/ApiFixture.h"

namespace zepho {
namespace {

class ApiServiceTest : public test::ApiFixture {
protected:
    void SetUp() override {
        ApiFixture::SetUp();
        voice = bindVoice();
        // Another one for the male Chinese lines of CCA.
        other = addVoice({}, TtsGender::male);
        config->setAirlineVoice("CCA", "zh", TtsGender::male, other.id);
    }
    // What an order is answered with; `pending` stands apart, as the worker takes lines meanwhile.
    static std::string counters(Answer answer) {
        EXPECT_EQ(answer.status, 202) << answer.body;
        EXPECT_EQ(answer.json.erase("pending"), 1U);
        return answer.json.dump();
    }

    VoiceInfo voice;
    VoiceInfo other;
};

TEST_F(ApiServiceTest, APrebakeOrderCountsItsLines) {
    (void)get("/v1/tts?text=known");
    engine->closeGate();
    const Answer order = ask("POST", "/v1/prewarm", R"({"items": [
        {"text": "known"}, {"text": " known ", "speed": 1.7}, {"text": "new"}, {"text": " \t"},
        {"speed": 2}, "no object", null, [{"text": "x"}], {"text": "other", "priority": "high"}]})");
    EXPECT_EQ(counters(order), R"({"cached":2,"queued":2,"skipped_empty":2})");
    EXPECT_TRUE(wasLogged("pre-bake request from 127.0.0.1: queued 2, 2 already cached"));
    engine->waitForCalls(2);
    EXPECT_EQ(post("/v1/prewarm", {{"items", Json::array()}}).json["pending"], 1);
    EXPECT_EQ(get("/v1/stats").json["prewarm_pending"], 1);
    EXPECT_EQ(get("/v1/stats").json["busy"], true);
    engine->openGate();
    EXPECT_TRUE(test::eventually([this] { return service->stats().cacheCount == 3; }));

    // One line alone: without an array, and as a query.
    EXPECT_EQ(counters(post("/v1/prewarm", {{"text", "alone"}, {"items", {{"text", "no"}}}})),
              R"({"cached":0,"queued":1,"skipped_empty":0})");
    EXPECT_EQ(counters(get("/v1/prewarm?text=known")),
              R"({"cached":1,"queued":0,"skipped_empty":0})");
    EXPECT_TRUE(test::eventually([this] { return service->stats().cacheCount == 4; }));
}

TEST_F(ApiServiceTest, SharedSettingsOfAnOrderStandAtTheTop) {
    const Answer order = ask("POST", "/v1/prewarm", R"({
        "airline": "cca", "language": "zh", "gender": "male", "speed": 1.5, "style": "never shared",
        "items": [{"text": "shared"},
                  {"text": "own", "airline": "", "language": "", "gender": "female", "speed": 1},
                  {"text": "null", "airline": null}]})");
    EXPECT_EQ(counters(order), R"({"cached":0,"queued":3,"skipped_empty":0})");
    ASSERT_TRUE(test::eventually([this] { return service->stats().cacheCount == 3; }));
    const std::pair<std::string, std::string> rows[] = {
        {"text=shared&airline=CCA&language=zh&gender=male", other.id},
        {"text=own&gender=female", voice.id},
        // A key that is there, even without a value, is the line's own.
        {"text=null&language=zh&gender=male", voice.id},
    };
    for (const auto& [query, speaker] : rows) {
        const Answer answer = get("/v1/tts?" + query);
        EXPECT_EQ(answer.headers.at("X-ZEPHO-Cache"), "hit") << query;
        EXPECT_EQ(answer.headers.at("X-ZEPHO-Voice"), speaker) << query;
    }
    // All speeds share one stored clip; what speed a line had shows in the length that is logged.
    EXPECT_TRUE(wasLogged("pre-baked one entry (0.8 s of audio), 2 left: shared"));
    EXPECT_TRUE(wasLogged("pre-baked one entry (1.2 s of audio), 1 left: own"));
}

TEST_F(ApiServiceTest, HealthAndStatisticsTellOfTheService) {
    Json health = get("/health").json;
    EXPECT_TRUE(std::string(health["engine_detail"])
                    .ends_with("; it is producing placeholder audio right now"));
    health.erase("engine_detail");
    health.erase("engine_exe");
    EXPECT_EQ(health.dump(),
              R"({"compute":"auto","engine":"scripted","engine_ready":true,)"
              R"("output_sample_rate":0,"placeholder":true,"status":"degraded","version":")" +
                  std::string(ZEPHO::version) + R"(","voices":2})");
    EXPECT_EQ(
        get("/v1/stats").body,
        R"({"busy":false,"cache_bytes":0,"cache_count":0,"cache_hit_rate":0.0,"cache_hits":0,)"
        R"("engine":"scripted","failed":0,"p50_ms":0,"p95_ms":0,"placeholder":true,)"
        R"("prewarm_pending":0,"queue_depth":0,"rtf":0.0,"total":0})");
    for (const char* text : {"one", "one", ""}) (void)get("/v1/tts?text=" + std::string(text));
    engine->failing = true;
    (void)get("/v1/tts?text=two");
    const Json stats = get("/v1/stats").json;
    const std::pair<const char*, double> rows[] = {
        {"total", 3},  // only what reaches the engine or the cache
        {"failed", 1},
        {"cache_hits", 1},
        {"cache_hit_rate", 1.0 / 3},
        {"cache_count", 1},
        {"cache_bytes", 44 + 1200 * 44100 / 1000 * 2},
        {"rtf", static_cast<double>(service->stats().totalSynthMs) / 1200},
    };
    for (const auto& [name, value] : rows) EXPECT_DOUBLE_EQ(stats[name], value) << name;

    service->unloadModel();
    health = get("/health").json;
    EXPECT_EQ(health["placeholder"], false);
    EXPECT_EQ(health["engine_ready"], false);
}

TEST_F(ApiServiceTest, TheSelfTestSpeaksAsAskedAndReports) {
    Json checks;
    const auto outcome = [&](const std::string& query) {
        const Answer answer = get("/selftest?" + query);
        EXPECT_EQ(answer.status, 503) << "the placeholder is no engine";
        EXPECT_EQ(answer.json["ok"], false);
        EXPECT_EQ(answer.json["endpoint"], http->endpoint());
        checks = answer.json["checks"];
        std::string names;
        std::string report;
        for (const Json& check : checks) {
            const std::string name = check["name"];
            names += name + (check["ok"] ? "+ " : "- ");
            report += (check["ok"] ? "[OK]   " : "[FAIL] ") + name + "  ";
            report += std::string(check["detail"]) + "\n";
        }
        EXPECT_EQ(answer.json["report"],
                  report + "\nSome checks failed - fix the item shown above.\nService address: " +
                      http->endpoint() + "\n");
        return names;
    };
    EXPECT_EQ(outcome("text=+Boarding+&airline=cca&language=zh-CN&gender=m"),
              "engine- voices+ synthesize+ cache+ ");
    EXPECT_EQ(engine->calls().back().text, "Boarding");
    const std::string detail = checks.at(2)["detail"];
    // This format is shown in Chinese in every language.
    EXPECT_TRUE(detail.starts_with(other.id + " · 44100 Hz · 1.20 秒 · 105884 字节 · 用了 "))
        << detail;
    const Answer text = ask("POST", "/v1/selftest?format=TEXT");
    EXPECT_EQ(text.headers.at("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_TRUE(text.body.starts_with("[FAIL] engine  ")) << text.body;

    // Each step that fails keeps its place, with its reason.
    config->cacheEnabled = false;
    service->applyConfig();
    EXPECT_EQ(outcome(""), "engine- voices+ synthesize+ cache- ");
    EXPECT_EQ(engine->calls().back().text, "This is a connectivity test.");
    engine->failing = true;
    for (const VoiceInfo& each : service->voices.all()) (void)service->voices.remove(each.id);
    EXPECT_EQ(outcome(""), "engine- voices- synthesize- cache- ");
    EXPECT_EQ(checks[3]["detail"], "the previous check failed, so this one was not run");
    EXPECT_TRUE(AppLog::requestSnapshot().empty()) << "only /v1/tts records requests";
}

TEST_F(ApiServiceTest, TheLogIsReadFromItsEnd) {
    AppLog::clear();
    EXPECT_EQ(get("/v1/log").body, "");
    for (int i = 0; i < 2100; ++i) AppLog::info("test", "line " + std::to_string(i));
    const std::pair<std::string, int> rows[] = {{"", 200},    {"-5", 1},
                                                {"7", 7},     {"5000", 2000},
                                                {"1e3", 200}, {"99999999999999999999", 200}};
    for (const auto& [lines, count] : rows) {
        const Answer answer = get("/v1/log?lines=" + lines);
        EXPECT_EQ(answer.headers.at("Content-Type"), "text/plain; charset=utf-8");
        EXPECT_TRUE(answer.body.ends_with(" [INFO] test: line 2099")) << "no line feed at the end";
        EXPECT_EQ(std::count(answer.body.begin(), answer.body.end(), '\n'), count - 1) << lines;
    }
}

}  // namespace
}  // namespace zepho
