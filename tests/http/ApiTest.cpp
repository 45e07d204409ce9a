// The table of paths, the rate limit, and a line in for a WAV out.
#include <future>

#include <gtest/gtest.h>

#include "core/audio/WavReader.h"
#include "core/http/RateLimit.h"
#include "tests/http/ApiFixture.h"
#include "tests/support/HttpClient.h"

namespace zepho {
namespace {

class ApiTest : public test::ApiFixture {
protected:
    void SetUp() override {
        ApiFixture::SetUp();
        voice = bindVoice();
    }
    static RequestLog lastRecord() {
        const auto records = AppLog::requestSnapshot();
        return records.empty() ? RequestLog() : records.back();
    }

    VoiceInfo voice;
};

TEST_F(ApiTest, PathsAreComparedExactly) {
    for (const char* path : {"/", "/v1", "/V1/tts", "/v1/tts/", "/v1//tts", "/v1/health/",
                             "/v1/voicesx", "/v1/airlines/", "/v1/%74ts", "/v1/cache", "", "*"})
        EXPECT_EQ(get(path).error(), "404 not_found: no such path: " + std::string(path));
    // No method check on these, and any method but POST has a query.
    for (const char* target :
         {"/v1/health", "/health", "/v1/stats", "/v1/log", "/v1/tts?text=hello"})
        EXPECT_EQ(ask("BREW", target).status, 200) << target;
}

TEST_F(ApiTest, TheRateLimitCountsByPeerAndSparesHealth) {
    const auto from = [this](const std::string& peer, const std::string& path) {
        return ask("GET", path, "", {}, peer);
    };
    config->rateLimitPerMinute = 3;
    for (const char* path : {"/v1/stats", "/v1/health", "/v1/stats", "/health", "/v1/stats"})
        EXPECT_EQ(from("10.0.0.1", path).status, 200) << path;
    for (const char* path : {"/v1/stats", "/v1/tts?text=x", "/no/such/path", "/selftest"}) {
        const Answer refused = from("10.0.0.1", path);
        EXPECT_EQ(refused.error(), "429 rate_limited: over the limit of 3 requests per minute");
        EXPECT_EQ(refused.headers.at("Retry-After"), "60");
    }
    EXPECT_EQ(from("10.0.0.1", "/health").status, 200);
    EXPECT_EQ(from("10.0.0.2", "/v1/stats").status, 200);
}

TEST(RateLimitTest, TheWindowIsAMinuteFromTheFirstRequest) {
    RateLimit limit;
    const RateLimit::Time start{std::chrono::hours(5)};
    EXPECT_FALSE(limit.refuses("a", 0, start));
    EXPECT_EQ(limit.peers(), 0U) << "no limit, nothing stored";
    const struct {
        int ms, most;
        bool refused;
    } rows[] = {{0, 2, false},     {59000, 2, false},
                {59999, 2, true},  {59999, 3, false},  // the refusal was not counted
                {59999, 3, true},  {60000, 2, false},  // nor has it moved the window
                {60001, 2, false}, {60002, 2, true}};
    for (const auto& [ms, most, refused] : rows)
        EXPECT_EQ(limit.refuses("a", most, start + std::chrono::milliseconds(ms)), refused) << ms;
    EXPECT_EQ(limit.peers(), 1U);
}

TEST_F(ApiTest, ALineIsTheBareFileAndItsHeaders) {
    const Answer first = post("/v1/tts", {{"text", "Gate four"}});
    ASSERT_EQ(first.status, 200) << first.body;
    EXPECT_EQ(parseWav(asBytes(first.body)).value().durationMs(), 1200);
    const std::string etag = first.headers.at("ETag");
    std::map<std::string, std::string> expected{
        {"Content-Type", "audio/wav"},   {"ETag", etag},
        {"X-ZEPHO-Result", "ok"},        {"X-ZEPHO-Engine", "scripted"},
        {"X-ZEPHO-Voice", voice.id},     {"X-ZEPHO-Sample-Rate", "44100"},
        {"X-ZEPHO-Duration-Ms", "1200"}, {"X-ZEPHO-Synth-Ms", first.headers.at("X-ZEPHO-Synth-Ms")},
        {"X-ZEPHO-Cache", "miss"}};
    EXPECT_EQ(first.headers, expected);
    expected["X-ZEPHO-Engine"] = "";
    expected["X-ZEPHO-Synth-Ms"] = "0";
    expected["X-ZEPHO-Cache"] = "hit";
    const Answer again = get("/v1/tts?text=%20Gate+four%0A");
    EXPECT_EQ(again.headers, expected);
    EXPECT_TRUE(again.body == first.body);
    EXPECT_EQ(AppLog::requestSnapshot().size(), 2U);
    const RequestLog record = lastRecord();
    EXPECT_EQ(std::tie(record.status, record.route, record.peer, record.voice, record.audioMs,
                       record.cacheHit),
              std::make_tuple(200, "/v1/tts", "127.0.0.1", voice.id, 1200, true));
    EXPECT_EQ(ask("DELETE", "/v1/cache").json, (Json{{"cleared", true}}));
    EXPECT_EQ(storedClips(), 0U);
}

TEST_F(ApiTest, AClientThatHoldsTheClipIsSparedTheTransfer) {
    const std::string etag = get("/v1/tts?text=held").headers.at("ETag");
    ASSERT_TRUE(etag.size() > 10 && etag.front() == '"' && etag.back() == '"') << etag;
    const std::string bare = etag.substr(1, etag.size() - 2);
    const struct {
        std::string held, line;
        int status;
    } rows[] = {
        {etag, "held", 304},
        {bare, "held", 304},
        {"  " + bare + "\" ", "held", 304},
        {"\"\"", "held", 200},
        {"W/" + etag, "held", 200},
        {bare + "0", "held", 200},
        {etag, "held&speed=1.5", 200},
        {etag, "never+heard", 200},  // the check saves the transfer, not the work
    };
    for (const auto& [held, line, status] : rows) {
        const Answer answer = ask("GET", "/v1/tts?text=" + line, "", {{"if-none-match", held}});
        EXPECT_EQ(answer.status, status) << held << " " << line;
        EXPECT_EQ(lastRecord().status, status);
        EXPECT_EQ(lastRecord().cacheHit, line != "never+heard");
        if (status == 200) continue;
        EXPECT_EQ(answer.body, "");
        const std::map<std::string, std::string> headers{{"ETag", etag}, {"X-ZEPHO-Result", "ok"}};
        EXPECT_EQ(answer.headers, headers);
    }
}

TEST_F(ApiTest, BothFormsOfARequestReachTheService) {
    const struct {
        Json body;
        std::string query;
    } rows[] = {
        {{{"text", "前往 4 号门"}}, "text=%E5%89%8D%E5%BE%80+4+%E5%8F%B7%E9%97%A8"},
        {{{"text", 42}}, "text=42"},
        {{{"text", "fast"}, {"speed", "1.5"}}, "text=fast&speed=1.5"},
        {{{"text", "beyond"}, {"speed", 99}}, "text=beyond&speed=2"},
        {{{"text", "odd"}, {"speed", "1.5x"}}, "text=odd&speed=quick"},
        {{{"text", "rate"}, {"sample_rate", 8000}}, "text=rate&sample_rate=8000"},
        {{{"text", "rate"}, {"sample_rate", "8k"}}, "text=rate&sample_rate="},
        {{{"text", "seeded"}, {"seed", 5.9}}, "text=seeded&seed=5"},
        {{{"text", "styled"}, {"style", "[calm]"}}, "text=styled&style=calm"},
        {{{"text", "named"}, {"voice", voice.id}}, "text=named&voice=" + voice.id},
        {{{"text", "lang"}, {"language", "ZH-cn"}, {"gender", "F"}},
         "text=lang&language=zh&gender=female"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.query);
        const Answer posted = post("/v1/tts", row.body);
        const Answer got = get("/v1/tts?" + row.query);
        EXPECT_EQ(posted.status, 200) << posted.body;
        EXPECT_EQ(posted.headers.at("ETag"), got.headers.at("ETag"));
        // A clip retimed from the cache differs in rounding from one retimed when it was spoken.
        EXPECT_EQ(posted.body.size(), got.body.size());
        EXPECT_EQ(got.headers.at("X-ZEPHO-Cache"), "hit");
    }
    const Answer rated = get("/v1/tts?text=rate&sample_rate=8000&language=ja-JP&speed=1.25");
    EXPECT_EQ(rated.headers.at("X-ZEPHO-Sample-Rate"), "8000");
    EXPECT_EQ(lastRecord().language, "ja");
    EXPECT_FLOAT_EQ(lastRecord().speed, 1.25F);

    // "reference_id" names the voice where "voice" is empty, and in JSON only.
    const Answer none = post("/v1/tts", {{"text", "x"}, {"voice", ""}, {"reference_id", "nobody"}});
    EXPECT_EQ(none.json["error"], "bad_voice");
    EXPECT_EQ(get("/v1/tts?text=x&reference_id=nobody").status, 200);
    EXPECT_EQ(get("/v1/tts?text=x&voice=nobody").status, 404);
}

TEST_F(ApiTest, ErrorsHaveTheirStatusAndAreRecorded) {
    config->maxTextLength = 5;
    const auto error = [this](const std::string& text, const std::string& speaker = {}) {
        const std::string told = post("/v1/tts", {{"text", text}, {"voice", speaker}}).error();
        const RequestLog record = lastRecord();
        EXPECT_EQ(told.substr(0, 3), std::to_string(record.status));
        EXPECT_TRUE(told.ends_with(": " + record.note)) << record.note;
        return told;
    };
    EXPECT_EQ(error(" \t\n"), "400 empty_text: no text to synthesise");
    EXPECT_EQ(error("旅客们你们好"), "413 text_too_long: text is 6 characters, over the 5 limit");
    EXPECT_TRUE(error("x", "nobody").starts_with("404 bad_voice: "));
    engine->failing = true;
    EXPECT_EQ(error("fails"), "500 engine_failed: told to fail");
    engine->failing = false;
    engine->silent = true;
    EXPECT_EQ(error("empty"), "500 engine_failed: the engine returned empty audio");
    service->unloadModel();
    EXPECT_TRUE(error("gone").starts_with("503 engine_not_connected: "));

    // A body that is no object is refused everywhere, and not recorded.
    const std::size_t recorded = AppLog::requestSnapshot().size();
    const std::pair<const char*, const char*> routes[] = {{"POST", "/v1/tts"},
                                                          {"POST", "/v1/prewarm"},
                                                          {"POST", "/v1/voices/clone"},
                                                          {"PUT", "/v1/airlines"},
                                                          {"PUT", "/v1/defaults"}};
    for (const auto& [method, path] : routes)
        for (const char* body : {"", "[{\"text\":\"x\"}]", "text=x"})
            EXPECT_EQ(ask(method, path, body).error(),
                      "400 bad_json: request body is not valid JSON")
                << path << " " << body;
    EXPECT_EQ(AppLog::requestSnapshot().size(), recorded);
}

TEST_F(ApiTest, ListensWhereTheSettingsSay) {
    for (int attempt = 0; !http->isRunning(); ++attempt) {
        config->port = test::freePort();
        try {
            http->start();
        } catch (const TtsError&) {
            // Somebody else took it in between.
            if (attempt == 20) throw;
        }
    }
    http->start();
    EXPECT_TRUE(http->isRunning()) << "a start takes the place of the server before";
    const int port = static_cast<int>(config->port.get());
    EXPECT_EQ(http->endpoint(), "http://127.0.0.1:" + std::to_string(port));
    test::HttpClient kept(port);
    EXPECT_EQ(kept.request("GET", "/v1/none").value().status, 404);
    http->stop();
    EXPECT_FALSE(http->isRunning());
    EXPECT_THROW(test::HttpClient{port}, std::runtime_error);
    // A connection that outlives the API object is told so or ended, and never hangs.
    http.reset();
    if (const auto late = kept.request("GET", "/health"))
        EXPECT_NE(late->body.find("\"shutting_down\""), std::string::npos);
    else
        EXPECT_TRUE(kept.endsWithin(std::chrono::seconds(10)));
}

TEST_F(ApiTest, ManyClientsAtOnceGetTheirOwnLines) {
    std::vector<std::future<void>> clients;
    for (int client = 0; client < 8; ++client)
        clients.push_back(std::async(std::launch::async, [this, client] {
            for (int i = 0; i < 20; ++i) {
                const std::string text = "line" + std::to_string((client * 7 + i) % 12);
                const Answer spoken = get("/v1/tts?text=" + text);
                EXPECT_EQ(spoken.status, 200) << spoken.body;
                EXPECT_EQ(get("/v1/stats").status, 200);
                put("/v1/airlines", {{"airline", "A" + text}, {"voice", ""}});
                if (i % 10 == 9) ask("DELETE", "/v1/cache");
            }
        }));
    for (auto& client : clients) client.get();
    EXPECT_EQ(service->stats().total, 160);
    EXPECT_EQ(service->stats().failed, 0);
}

}  // namespace
}  // namespace zepho
