// Pre-bake orders, health, statistics, self test and log over the API.
#include <algorithm>
#include <cctype>

#include <gtest/gtest.h>

#include "tests/http/ApiFixture.h"

namespace zepho {
namespace {

class ApiServiceTest : public test::ApiFixture {
protected:
    void SetUp() override {
        ApiFixture::SetUp();
        voice = bindVoice();
    }
    // The counters of an order; `pending` stands apart, as the worker takes lines meanwhile.
    static Json counters(const Answer& answer) {
        EXPECT_EQ(answer.status, 202) << answer.body;
        Json counted = answer.json;
        EXPECT_TRUE(counted.contains("pending") && counted["pending"].is_number_integer());
        counted.erase("pending");
        return counted;
    }
    static Json counts(int queued, int cached, int skipped) {
        return {{"queued", queued}, {"cached", cached}, {"skipped_empty", skipped}};
    }
    static std::string withoutDigits(std::string text) {
        std::erase_if(text, [](unsigned char c) { return std::isdigit(c) != 0; });
        return text;
    }

    VoiceInfo voice;
};

TEST_F(ApiServiceTest, APrebakeOrderCountsItsLines) {
    ASSERT_EQ(get("/v1/tts?text=known").status, 200);
    engine->closeGate();
    const Answer order = post("/v1/prewarm", {{"items",
                                               {{{"text", "known"}},
                                                {{"text", " known "}, {"speed", 1.7}},
                                                {{"text", "new"}},
                                                {{"text", " \t"}},
                                                {{"speed", 2}},
                                                "no object",
                                                7,
                                                nullptr,
                                                Json::array({{{"text", "x"}}}),
                                                {{"text", "other"}, {"priority", "high"}}}}});
    EXPECT_EQ(counters(order), counts(2, 2, 2));
    EXPECT_TRUE(wasLogged("pre-bake request from 127.0.0.1: queued 2, 2 already cached"));
    engine->waitForCalls(2);
    ASSERT_TRUE(eventually([this] { return service->prewarmPending() == 1; }));
    EXPECT_EQ(post("/v1/prewarm", {{"items", Json::array()}}).json["pending"], 1);
    EXPECT_EQ(get("/v1/stats").json["prewarm_pending"], 1);
    EXPECT_EQ(get("/v1/stats").json["busy"], true);
    engine->openGate();
    EXPECT_TRUE(eventually([this] { return service->stats().cacheCount == 3; }));
    EXPECT_EQ(get("/v1/tts?text=other").headers.at("X-ZEPHO-Cache"), "hit");

    // One line alone: without the array, and as a query.
    EXPECT_EQ(counters(post("/v1/prewarm", {{"text", "known"}})), counts(0, 1, 0));
    EXPECT_EQ(counters(post("/v1/prewarm", {{"text", "alone"}, {"items", {{"text", "no"}}}})),
              counts(1, 0, 0))
        << "items is no array";
    EXPECT_EQ(counters(get("/v1/prewarm?text=known")), counts(0, 1, 0));
    EXPECT_EQ(counters(get("/v1/prewarm?text=asked")), counts(1, 0, 0));
    EXPECT_EQ(counters(get("/v1/prewarm")), counts(0, 0, 1));
    EXPECT_EQ(counters(post("/v1/prewarm", Json::object())), counts(0, 0, 1));
    EXPECT_EQ(counters(post("/v1/prewarm", {{"items", {{{"text", ""}}}}})), counts(0, 0, 1));
    EXPECT_EQ(counters(post("/v1/prewarm", {{"text", "t"}, {"items", Json::array()}})),
              counts(0, 0, 0));
    EXPECT_TRUE(eventually([this] { return service->stats().cacheCount == 5; }));
}

TEST_F(ApiServiceTest, SharedSettingsStandAtTheTop) {
    const VoiceInfo other = service->cloneVoice([] {
        VoiceCloneSpec spec;
        spec.clips.push_back({buildWav(test::toneOf(1000, 0.1F), 1), "another"});
        return spec;
    }());
    config->setAirlineVoice("CCA", "zh", TtsGender::male, other.id);
    const Answer order = post(
        "/v1/prewarm",
        {{"airline", "cca"},
         {"language", "zh"},
         {"gender", "male"},
         {"speed", 1.5},
         {"style", "never shared"},
         {"items",
          {{{"text", "shared"}},
           {{"text", "own"}, {"airline", ""}, {"language", ""}, {"gender", "female"}, {"speed", 1}},
           {{"text", "null"}, {"airline", nullptr}}}}});
    EXPECT_EQ(counters(order), counts(3, 0, 0));
    engine->openGate();
    ASSERT_TRUE(eventually([this] { return service->stats().cacheCount == 3; }));
    const auto spoken = [this](const std::string& query) {
        const Answer answer = get("/v1/tts?" + query);
        EXPECT_EQ(answer.headers.at("X-ZEPHO-Cache"), "hit") << query;
        return answer.headers.at("X-ZEPHO-Voice");
    };
    EXPECT_EQ(spoken("text=shared&airline=CCA&language=zh&gender=male"), other.id);
    EXPECT_EQ(spoken("text=own&gender=female"), voice.id);
    EXPECT_EQ(spoken("text=null&language=zh&gender=male"), voice.id)
        << "a key that is there, even without a value, is the line's own";
    EXPECT_EQ(engine->calls()[0].text, "shared");
    // All speeds share one stored clip; what speed a line had shows in the length that is logged.
    EXPECT_TRUE(wasLogged("pre-baked one entry (0.8 s of audio), 2 left: shared"));
    EXPECT_TRUE(wasLogged("pre-baked one entry (1.2 s of audio), 1 left: own"));
}

TEST_F(ApiServiceTest, HealthAlwaysAnswers) {
    const auto health = [this] {
        const Answer answer = get("/health");
        EXPECT_EQ(answer.status, 200);
        return answer.json;
    };
    Json now = health();
    EXPECT_TRUE(std::string(now["engine_detail"])
                    .ends_with("; it is producing placeholder audio right now"));
    now.erase("engine_detail");
    EXPECT_EQ(now, (Json{{"status", "degraded"},
                         {"version", ZEPHO::version},
                         {"engine", "scripted"},
                         {"engine_ready", true},
                         {"placeholder", true},
                         {"engine_exe", now["engine_exe"]},
                         {"compute", "auto"},
                         {"voices", 1},
                         {"output_sample_rate", 0}}));
    config->outputSampleRate = 16000;
    EngineOptions options = config->engine;
    options.compute = ComputeBackend::cpu;
    config->engine = options;
    EXPECT_EQ(health()["output_sample_rate"], 16000);
    EXPECT_EQ(health()["compute"], "cpu");
    service->unloadModel();
    EXPECT_EQ(health()["status"], "degraded");
    EXPECT_EQ(health()["placeholder"], false);
    EXPECT_EQ(health()["engine_ready"], false);
}

TEST_F(ApiServiceTest, StatisticsAreThoseOfTheService) {
    const auto stats = [this] { return get("/v1/stats").json; };
    Json now = stats();
    EXPECT_EQ(now, (Json{{"total", 0},
                         {"failed", 0},
                         {"cache_hits", 0},
                         {"cache_hit_rate", 0.0},
                         {"cache_bytes", 0},
                         {"cache_count", 0},
                         {"queue_depth", 0},
                         {"prewarm_pending", 0},
                         {"busy", false},
                         {"p50_ms", 0},
                         {"p95_ms", 0},
                         {"rtf", 0.0},
                         {"engine", "scripted"},
                         {"placeholder", true}}));
    EXPECT_TRUE(now["cache_hit_rate"].is_number_float() && now["rtf"].is_number_float());
    (void)get("/v1/tts?text=one");
    (void)get("/v1/tts?text=one");
    engine->failing = true;
    (void)get("/v1/tts?text=two");
    now = stats();
    EXPECT_EQ(now["total"], 3);
    EXPECT_EQ(now["failed"], 1);
    EXPECT_EQ(now["cache_hits"], 1);
    EXPECT_DOUBLE_EQ(now["cache_hit_rate"], 1.0 / 3);
    EXPECT_EQ(now["cache_count"], 1);
    EXPECT_EQ(now["cache_bytes"], 44 + 1200 * 44100 / 1000 * 2);
    EXPECT_DOUBLE_EQ(now["rtf"], static_cast<double>(service->stats().totalSynthMs) / 1200);
}

TEST_F(ApiServiceTest, TheSelfTestReportsInTheLanguageOfTheInterface) {
    struct Words {
        UiLang lang;
        const char* connectivity;
        const char* failed;
        const char* address;
    };
    for (const Words& words :
         {Words{UiLang::en, "This is a connectivity test.",
                "Some checks failed - fix the item shown above.", "Service address: "},
          Words{UiLang::zh, "这是一次连通测试。", "有没过的项,照上面那条改。", "服务地址:"},
          Words{UiLang::ja, "これは接続テストです。",
                "合格しなかった項目があります。上の内容に従って直してください。",
                "サービスのアドレス:"}}) {
        setUiLang(words.lang);
        const Answer answer = get("/v1/selftest");
        EXPECT_EQ(answer.status, 503);
        EXPECT_EQ(engine->calls().back().text, words.connectivity);
        EXPECT_EQ(answer.json["ok"], false);
        EXPECT_EQ(answer.json["endpoint"], http->endpoint());
        const Json& checks = answer.json["checks"];
        ASSERT_EQ(checks.size(), 4U);
        const bool ok[] = {false, true, true, true};
        const char* names[] = {"engine", "voices", "synthesize", "cache"};
        std::string report;
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(checks[i].size(), 3U);
            EXPECT_EQ(checks[i]["name"], names[i]);
            EXPECT_EQ(checks[i]["ok"], ok[i]) << checks[i];
            report += (ok[i] ? "[OK]   " : "[FAIL] ") + std::string(names[i]) + "  " +
                      std::string(checks[i]["detail"]) + "\n";
        }
        report += "\n" + std::string(words.failed) + "\n" + words.address + http->endpoint() + "\n";
        EXPECT_EQ(answer.json["report"], report);

        const Answer text = ask("POST", "/selftest?format=TEXT", "{\"format\":\"json\"}");
        EXPECT_EQ(text.status, 503);
        EXPECT_EQ(text.headers.at("Content-Type"), "text/plain; charset=utf-8");
        // The times differ from run to run.
        EXPECT_EQ(withoutDigits(text.body), withoutDigits(report));
        (void)ask("DELETE", "/v1/cache");
    }
}

TEST_F(ApiServiceTest, TheSelfTestSpeaksAsAsked) {
    const VoiceInfo other = service->cloneVoice([] {
        VoiceCloneSpec spec;
        spec.clips.push_back({buildWav(test::toneOf(1000, 0.1F), 1), "another"});
        return spec;
    }());
    config->setAirlineVoice("CCA", "zh", TtsGender::male, other.id);
    const Json report =
        get("/selftest?text=+Boarding+&airline=cca&language=zh-CN&gender=m&format=json").json;
    EXPECT_EQ(engine->calls().back().text, "Boarding");
    const std::string detail = report["checks"][2]["detail"];
    // This format is shown in Chinese in every language.
    EXPECT_TRUE(detail.starts_with(other.id + " · 44100 Hz · 1.20 秒 · 105884 字节 · 用了 "))
        << detail;
    EXPECT_TRUE(detail.ends_with(" 毫秒")) << detail;
    engine->failing = true;
    const Answer failed = get("/selftest?text=another");
    EXPECT_EQ(failed.status, 503);
    ASSERT_EQ(failed.json["checks"].size(), 4U);
    EXPECT_EQ(failed.json["checks"][2]["detail"], "Synthesis failed: told to fail");
    EXPECT_EQ(failed.json["checks"][3]["ok"], false);
    EXPECT_TRUE(AppLog::requestSnapshot().empty()) << "only /v1/tts records requests";
}

TEST_F(ApiServiceTest, TheLogIsReadFromItsEnd) {
    AppLog::clear();
    EXPECT_EQ(get("/v1/log").body, "");
    for (int i = 0; i < 2100; ++i) AppLog::info("test", "line " + std::to_string(i));
    const auto lines = [this](const std::string& query) {
        const Answer answer = get("/v1/log" + query);
        EXPECT_EQ(answer.status, 200);
        EXPECT_EQ(answer.headers.at("Content-Type"), "text/plain; charset=utf-8");
        EXPECT_TRUE(answer.body.ends_with(" [INFO] test: line 2099")) << "no line feed at the end";
        return std::count(answer.body.begin(), answer.body.end(), '\n') + 1;
    };
    EXPECT_EQ(lines(""), 200);
    EXPECT_EQ(lines("?lines=7"), 7);
    EXPECT_EQ(lines("?lines=0"), 1);
    EXPECT_EQ(lines("?lines=-5"), 1);
    EXPECT_EQ(lines("?lines=5000"), 2000);
    EXPECT_EQ(lines("?lines=many"), 200);
    EXPECT_EQ(lines("?lines="), 200);
    EXPECT_EQ(lines("?lines=1e3"), 200);
    EXPECT_EQ(lines("?lines=99999999999999999999"), 200);
    EXPECT_EQ(get("/v1/log?lines=1").body, AppLog::snapshot().back().formatted());
}

}  // namespace
}  // namespace zepho
