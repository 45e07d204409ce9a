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
    static RequestLog lastRecord() {
        const auto records = AppLog::requestSnapshot();
        return records.empty() ? RequestLog() : records.back();
    }
};

TEST_F(ApiTest, PathsAreComparedExactly) {
    bindVoice();
    for (const char* path : {"/", "/v1", "/V1/tts", "/v1/tts/", "/v1//tts", "/v1/health/",
                             "/v1/voicesx", "/v1/airlines/", "/v1/%74ts", "/v1/cache/", "", "*"})
        EXPECT_EQ(errorOf(get(path)), "404 not_found: no such path: " + std::string(path));
    EXPECT_EQ(errorOf(ask("POST", "/v1/cache")), "404 not_found: no such path: /v1/cache");
    // No method check on these.
    for (const char* path : {"/v1/health", "/health", "/v1/stats", "/v1/log"})
        for (const char* method : {"GET", "POST", "BREW"})
            EXPECT_EQ(ask(method, path).status, 200) << path;
    EXPECT_EQ(ask("PUT", "/v1/tts?text=hello").status, 200) << "any method but POST has a query";
    EXPECT_EQ(ask("DELETE", "/v1/prewarm?text=hello").status, 202);
}

TEST_F(ApiTest, TheRateLimitCountsByPeerAndSparesHealth) {
    bindVoice();
    config->rateLimitPerMinute = 3;
    const auto from = [this](const std::string& peer, const std::string& path) {
        return ask("GET", path, "", {}, peer);
    };
    for (int i = 0; i < 3; ++i) EXPECT_EQ(from("10.0.0.1", "/v1/stats").status, 200);
    for (const char* path : {"/v1/stats", "/v1/tts?text=x", "/no/such/path", "/selftest"}) {
        const Answer refused = from("10.0.0.1", path);
        EXPECT_EQ(errorOf(refused), "429 rate_limited: over the limit of 3 requests per minute");
        EXPECT_EQ(refused.headers.at("Retry-After"), "60");
    }
    EXPECT_EQ(from("10.0.0.1", "/health").status, 200);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(from("10.0.0.3", "/v1/health").status, 200);
    EXPECT_EQ(from("10.0.0.3", "/v1/none").status, 404) << "health is not counted either";
    config->rateLimitPerMinute = 4;
    EXPECT_EQ(from("10.0.0.1", "/v1/stats").status, 200) << "refusals were not counted";
    EXPECT_EQ(from("10.0.0.1", "/v1/stats").status, 429);
    config->rateLimitPerMinute = 0;
    for (int i = 0; i < 5; ++i) EXPECT_EQ(from("10.0.0.1", "/v1/stats").status, 200);
}

TEST(RateLimitTest, TheWindowIsAMinuteFromTheFirstRequest) {
    RateLimit limit;
    const RateLimit::Time start{std::chrono::hours(5)};
    const auto at = [&](int ms) {
        return limit.refuses("a", 2, start + std::chrono::milliseconds(ms));
    };
    EXPECT_FALSE(limit.refuses("a", 0, start));
    EXPECT_EQ(limit.peers(), 0U) << "no limit, nothing stored";
    EXPECT_FALSE(at(0));
    EXPECT_FALSE(at(59000));
    EXPECT_TRUE(at(59999));
    EXPECT_FALSE(at(60000)) << "a refusal does not move the window";
    EXPECT_FALSE(at(60001));
    EXPECT_TRUE(at(60002));
    EXPECT_FALSE(at(120000));
    EXPECT_EQ(limit.peers(), 1U);
}

TEST_F(ApiTest, ALineIsTheBareFileAndItsHeaders) {
    const VoiceInfo voice = bindVoice();
    const Answer first = post("/v1/tts", {{"text", "Gate four"}});
    ASSERT_EQ(first.status, 200) << first.body;
    const auto wav = parseWav(asBytes(first.body));
    ASSERT_TRUE(wav);
    EXPECT_EQ(wav->durationMs(), 1200);
    const auto etag = first.headers.at("ETag");
    EXPECT_TRUE(etag.size() > 10 && etag.front() == '"' && etag.back() == '"') << etag;
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
    const Answer again = get("/v1/tts?text=Gate+four");
    EXPECT_EQ(again.headers, expected);
    EXPECT_TRUE(again.body == first.body);
    const RequestLog record = lastRecord();
    EXPECT_EQ(record.status, 200);
    EXPECT_EQ(record.route, "/v1/tts");
    EXPECT_EQ(record.peer, "127.0.0.1");
    EXPECT_EQ(record.voice, voice.id);
    EXPECT_EQ(record.audioMs, 1200);
    EXPECT_TRUE(record.cacheHit);
    EXPECT_EQ(AppLog::requestSnapshot().size(), 2U);

    ASSERT_EQ(storedClips(), 1U);
    EXPECT_EQ(ask("DELETE", "/v1/cache").json, (Json{{"cleared", true}}));
    EXPECT_EQ(storedClips(), 0U);
    EXPECT_EQ(get("/v1/tts?text=%20Gate%20four%0A").headers.at("X-ZEPHO-Cache"), "miss");
}

TEST_F(ApiTest, AClientThatHoldsTheClipIsSparedTheTransfer) {
    bindVoice();
    const Answer whole = get("/v1/tts?text=Gate+four");
    const std::string quoted = whole.headers.at("ETag");
    const std::string bare = quoted.substr(1, quoted.size() - 2);
    for (const std::string& held : {quoted, bare, "  " + quoted + " ", bare + "\""}) {
        const Answer same = ask("GET", "/v1/tts?text=Gate+four", "", {{"if-none-match", held}});
        EXPECT_EQ(same.status, 304) << held;
        EXPECT_EQ(same.body, "");
        EXPECT_EQ(same.headers,
                  (std::map<std::string, std::string>{{"ETag", quoted}, {"X-ZEPHO-Result", "ok"}}));
        EXPECT_EQ(lastRecord().status, 304);
        EXPECT_TRUE(lastRecord().cacheHit);
    }
    for (const std::string& held : {std::string("\"\""), "W/" + quoted, bare + "0"})
        EXPECT_EQ(ask("GET", "/v1/tts?text=Gate+four", "", {{"if-none-match", held}}).status, 200)
            << held;
    const std::map<std::string, std::string> holding{{"if-none-match", quoted}};
    EXPECT_EQ(ask("GET", "/v1/tts?text=Gate+four&speed=1.5", "", holding).status, 200)
        << "each speed has a tag of its own";
    // The check saves the transfer, not the work.
    const Answer unspoken = ask("GET", "/v1/tts?text=Never+heard", "", holding);
    EXPECT_EQ(unspoken.headers.at("X-ZEPHO-Cache"), "miss");
}

TEST_F(ApiTest, BothFormsOfARequestReachTheService) {
    const VoiceInfo voice = bindVoice();
    const auto sameLine = [this](const Json& body, const std::string& query) {
        const Answer posted = post("/v1/tts", body);
        const Answer got = get("/v1/tts?" + query);
        EXPECT_EQ(posted.status, 200) << posted.body;
        EXPECT_EQ(posted.headers.at("ETag"), got.headers.at("ETag")) << query;
        // A clip retimed from the cache differs in rounding from one retimed when it was spoken.
        EXPECT_EQ(posted.body.size(), got.body.size()) << query;
        EXPECT_EQ(got.headers.at("X-ZEPHO-Cache"), "hit") << query;
    };
    sameLine({{"text", "前往 4 号门"}}, "text=%E5%89%8D%E5%BE%80+4+%E5%8F%B7%E9%97%A8");
    sameLine({{"text", 42}}, "text=42");
    sameLine({{"text", "fast"}, {"speed", "1.5"}}, "text=fast&speed=1.5");
    sameLine({{"text", "beyond"}, {"speed", 99}}, "text=beyond&speed=2");
    sameLine({{"text", "odd"}, {"speed", "1.5x"}}, "text=odd&speed=quick");
    sameLine({{"text", "rate"}, {"sample_rate", "8000"}}, "text=rate&sample_rate=8000");
    sameLine({{"text", "rate"}, {"sample_rate", "8k"}}, "text=rate&sample_rate=");
    sameLine({{"text", "seeded"}, {"seed", 5.9}}, "text=seeded&seed=5");
    sameLine({{"text", "styled"}, {"style", "[calm]"}}, "text=styled&style=calm");
    sameLine({{"text", "named"}, {"voice", voice.id}}, "text=named&voice=" + voice.id);
    sameLine({{"text", "lang"}, {"language", "ZH-cn"}, {"gender", "F"}},
             "text=lang&language=zh&gender=female");
    EXPECT_EQ(engine->calls().back().text, "lang");
    EXPECT_EQ(post("/v1/tts", {{"text", "rate"}, {"sample_rate", 8000}})
                  .headers.at("X-ZEPHO-Sample-Rate"),
              "8000");
    EXPECT_EQ(get("/v1/tts?text=rate&language=ja-JP&speed=1.25").status, 200);
    EXPECT_EQ(lastRecord().language, "ja");
    EXPECT_FLOAT_EQ(lastRecord().speed, 1.25F);

    // "reference_id" names the voice where "voice" is empty, and in JSON only.
    const Json none{{"text", "x"}, {"voice", ""}, {"reference_id", "nobody"}};
    EXPECT_EQ(post("/v1/tts", none).error(), "bad_voice");
    EXPECT_EQ(get("/v1/tts?text=x&reference_id=nobody").status, 200);
    EXPECT_EQ(get("/v1/tts?text=x&voice=nobody").status, 404);
}

TEST_F(ApiTest, ABodyThatIsNoObjectIsRefusedAndNotRecorded) {
    bindVoice();
    for (const char* path : {"/v1/tts", "/v1/prewarm", "/v1/voices", "/v1/voices/clone"})
        for (const std::string& body :
             {std::string(), std::string("[{\"text\":\"x\"}]"), std::string("null"),
              std::string("{"), std::string("{} {}"), std::string("{\"text\":\"\xFF\xFE\"}"),
              std::string("text=x"), std::string(100000, '['), std::string("{}\0x", 4)})
            EXPECT_EQ(errorOf(ask("POST", path, body)),
                      "400 bad_json: request body is not valid JSON")
                << path << " " << body.substr(0, 40);
    EXPECT_TRUE(AppLog::requestSnapshot().empty());
    const std::string deep = "{\"text\":" + std::string(200000, '[') + std::string(200000, ']');
    EXPECT_EQ(ask("POST", "/v1/tts", deep + "}").error(), "empty_text") << "no stack runs out";
}

TEST_F(ApiTest, EveryErrorHasItsStatusAndIsRecorded) {
    bindVoice();
    config->maxTextLength = 5;
    const auto error = [this](const Json& body) {
        const std::string text = errorOf(post("/v1/tts", body));
        const RequestLog record = lastRecord();
        EXPECT_EQ(text.substr(0, 3), std::to_string(record.status));
        EXPECT_TRUE(text.ends_with(": " + record.note)) << record.note;
        return text;
    };
    EXPECT_EQ(error({{"text", " \t\n"}}), "400 empty_text: no text to synthesise");
    EXPECT_EQ(error({{"text", "旅客们你们好"}}),
              "413 text_too_long: text is 6 characters, over the 5 limit");
    EXPECT_TRUE(error({{"text", "x"}, {"voice", "nobody"}}).starts_with("404 bad_voice: "));
    engine->failing = true;
    EXPECT_EQ(error({{"text", "fails"}}), "500 engine_failed: told to fail");
    engine->failing = false;
    engine->silent = true;
    EXPECT_EQ(error({{"text", "empty"}}), "500 engine_failed: the engine returned empty audio");
    engine->silent = false;

    engine->closeGate();
    config->queueLimit = 1;
    config->requestTimeoutMs = 20;
    service->applyConfig();
    const std::size_t before = engine->calls().size();
    EXPECT_TRUE(error({{"text", "slow"}}).starts_with("504 timeout: "));
    engine->waitForCalls(before + 1);
    config->requestTimeoutMs = 60000;
    auto waiting = std::async(std::launch::async, [this] { return get("/v1/tts?text=wait"); });
    ASSERT_TRUE(eventually([this] { return service->stats().queueDepth == 1; }));
    EXPECT_TRUE(error({{"text", "full"}}).starts_with("503 queue_full: "));
    engine->openGate();
    EXPECT_EQ(waiting.get().status, 200);

    service->unloadModel();
    EXPECT_TRUE(error({{"text", "gone"}}).starts_with("503 engine_not_connected: "));
}

TEST_F(ApiTest, ListensWhereTheSettingsSay) {
    bindVoice();
    startListening();
    const std::string address = "http://127.0.0.1:" + std::to_string(config->port.get());
    EXPECT_EQ(http->allEndpoints(), std::vector<std::string>{address});
    const int port = static_cast<int>(config->port.get());
    {
        test::HttpClient client(port);
        const std::string etag = client.request("GET", "/v1/tts?text=hello")->headers.at("etag");
        const auto same =
            client.request("GET", "/v1/tts?text=hello", "", "If-None-Match: " + etag + "\r\n");
        EXPECT_EQ(same.value().status, 304);
        EXPECT_EQ(client.request("GET", "/v1/none").value().status, 404)
            << "the stream is in step after a 304";
    }
    http->start();
    EXPECT_TRUE(http->isRunning()) << "a start takes the place of the server before";

    const auto second = TtsHttpService::make(service);
    EXPECT_THROW(second->start(), TtsError);
    EXPECT_FALSE(second->isRunning());

    test::HttpClient kept(port);
    ASSERT_TRUE(kept.request("GET", "/health"));
    http->stop();
    EXPECT_FALSE(http->isRunning());
    EXPECT_THROW(test::HttpClient{port}, std::runtime_error);
    // A connection that outlives the API object is told so or ended, and never hangs.
    http.reset();
    if (const auto late = kept.request("GET", "/health")) {
        EXPECT_EQ(late->status, 503);
        EXPECT_NE(late->body.find("\"shutting_down\""), std::string::npos);
    } else {
        EXPECT_TRUE(kept.endsWithin(std::chrono::seconds(10)));
    }
}

TEST_F(ApiTest, ManyClientsAtOnceGetTheirOwnLines) {
    bindVoice();
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
