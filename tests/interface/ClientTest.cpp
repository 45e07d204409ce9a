// The client against a whole service on a listener of its own.
#include <string>

#include "core/base/Constants.h"
#include "tests/http/ApiFixture.h"
#include "zephon_client.h"

namespace zepho::test {
namespace {

class ClientTest : public ApiFixture {
protected:
    void SetUp() override {
        ApiFixture::SetUp();
        startListening();
    }
    void TearDown() override {
        http->stop();
        ApiFixture::TearDown();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(config->port); }

    static zephon::Line spoken(const std::string& text) {
        zephon::Line line;
        line.text = text;
        line.language = "en";
        line.gender = "female";
        return line;
    }
    zephon::CloneOrder deskOrder() const {
        const ByteView wav = recording;
        zephon::CloneOrder order;
        order.display = "Desk \"A\"";
        order.language = "zh";
        order.gender = "female";
        order.style = "calm";
        order.note = "柜台";
        order.clips.push_back({zephon::Bytes(wav.begin(), wav.end()), "one\ttwo"});
        return order;
    }

    const SharedBytes recording = buildWav(toneOf(1000, 0.3F), 1);
};

TEST_F(ClientTest, SpeaksALineAndAsksWhetherItHasChanged) {
    zephon::Client client(url());
    zephon::Line line = spoken("前往4号登机口 \"now\"");
    line.speed = 1.5;
    line.sampleRate = 16000;
    const auto first = client.speak(line);
    ASSERT_TRUE(first) << first.error.message;
    EXPECT_FALSE(first.value.cacheHit);
    EXPECT_EQ(first.value.engine, "scripted");
    EXPECT_EQ(first.value.sampleRate, 16000);
    EXPECT_NE(first.value.voice, "");
    // 1200 ms at one and a half times the speed.
    EXPECT_NEAR(static_cast<double>(first.value.durationMs), 800, 60);
    EXPECT_NEAR(static_cast<double>(first.value.wav.size()), 44 + 32.0 * 800, 32.0 * 60);

    const auto second = client.speak(line);
    ASSERT_TRUE(second);
    EXPECT_TRUE(second.value.cacheHit);
    EXPECT_EQ(second.value.synthMs, 0);
    EXPECT_EQ(second.value.wav.size(), first.value.wav.size());

    const auto held = client.speak(line, first.value.etag);
    ASSERT_TRUE(held);
    EXPECT_TRUE(held.value.notModified);
    EXPECT_TRUE(held.value.wav.empty());
    EXPECT_EQ(held.value.etag, first.value.etag);
    line.seed = 5;
    line.style = "calm";
    const auto other = client.speak(line, first.value.etag);
    ASSERT_TRUE(other);
    EXPECT_FALSE(other.value.notModified);
    EXPECT_EQ(engine->calls().back().seed, 5);
    // The answer without a body left the connection in order.
    EXPECT_TRUE(client.health());
}

TEST_F(ClientTest, RefusalsTellTheServicesWordAndMessage) {
    zephon::Client client(url());
    bindVoice();
    const auto empty = client.speak(spoken(" "));
    EXPECT_EQ(empty.error.code, zephon::ErrorCode::refused);
    EXPECT_EQ(empty.error.status, 400);
    EXPECT_EQ(empty.error.word, "empty_text");
    EXPECT_NE(empty.error.message, "");
    zephon::Line line = spoken("4");
    line.voice = "nobody";
    EXPECT_EQ(client.speak(line).error.word, "bad_voice");
    engine->failing = true;
    EXPECT_EQ(client.speak(spoken("5")).error.word, "engine_failed");
    EXPECT_EQ(client.clone({}).error.word, "bad_audio");
    EXPECT_EQ(client.removeVoice("a/b c").error.word, "not_found");
    EXPECT_EQ(client.bind("CCA", "", "", "nobody").error.status, 404);
    EXPECT_EQ(client.request("GET", "/v2").value.status, 404);
    config->rateLimitPerMinute = 1;
    (void)client.stats();
    const auto limited = client.stats();
    EXPECT_EQ(limited.error.word, "rate_limited");
    EXPECT_EQ(limited.error.retryAfterSeconds, 60);
}

TEST_F(ClientTest, BakesLinesAhead) {
    zephon::Client client(url());
    engine->closeGate();
    const std::vector<zephon::Line> lines = {spoken("1"), spoken("2"), spoken(" ")};
    const auto ordered = client.prewarm(lines);
    ASSERT_TRUE(ordered) << ordered.error.message;
    EXPECT_EQ(ordered.value.queued, 2);
    EXPECT_EQ(ordered.value.skippedEmpty, 1);
    engine->waitForCalls(1);
    EXPECT_EQ(client.stats().value.prewarmPending, 1);
    EXPECT_TRUE(client.stats().value.busy);
    engine->openGate();
    EXPECT_TRUE(eventually([&] { return client.stats().value.cacheCount == 2; }));
    EXPECT_EQ(client.prewarm(lines).value.cached, 2);
    EXPECT_TRUE(client.speak(lines[1]).value.cacheHit);
    const auto cleared = client.clearCache();
    EXPECT_TRUE(cleared && cleared.value);
    EXPECT_EQ(client.stats().value.cacheCount, 0);
}

TEST_F(ClientTest, KeepsVoicesAndBindings) {
    zephon::Client client(url());
    const auto made = client.clone(deskOrder());
    ASSERT_TRUE(made) << made.error.message;
    EXPECT_EQ(made.value.kind, "cloned");
    const auto voices = client.voices();
    ASSERT_TRUE(voices) << voices.error.message;
    ASSERT_EQ(voices.value.size(), 1U);
    const zephon::Voice& voice = voices.value[0];
    EXPECT_EQ(voice.id, made.value.id);
    EXPECT_EQ(voice.display, "Desk \"A\"");
    EXPECT_EQ(voice.language, "zh");
    EXPECT_EQ(voice.gender, "female");
    EXPECT_EQ(voice.style, "calm");
    EXPECT_EQ(voice.note, "柜台");
    ASSERT_EQ(voice.clips.size(), 1U);
    EXPECT_EQ(voice.clips[0].text, "one\ttwo");
    EXPECT_EQ(voice.clips[0].durationMs, 1000);

    EXPECT_EQ(client.bind("cca", "zh", "female", voice.id).value,
              (zephon::Bindings{{"CCA:zh:female", voice.id}}));
    EXPECT_EQ(client.bindings().value.size(), 1U);
    EXPECT_EQ(client.setDefaults("en", voice.id, "").value,
              (zephon::Bindings{{"en:female", voice.id}}));
    EXPECT_EQ(client.defaults().value.size(), 1U);
    zephon::Line line = spoken("4");
    line.airline = "CCA";
    line.language = "zh";
    EXPECT_EQ(client.speak(line).value.voice, voice.id);
    EXPECT_TRUE(client.bind("CCA", "zh", "female", "").value.empty());
    EXPECT_EQ(client.removeVoice(voice.id).value, voice.id);
    EXPECT_TRUE(client.voices().value.empty());
}

TEST_F(ClientTest, TellsHowTheServiceIs) {
    zephon::Client client(url());
    const auto health = client.health();
    ASSERT_TRUE(health) << health.error.message;
    EXPECT_EQ(health.value.version, ZEPHO::version);
    // The engine of the tests counts as a placeholder.
    EXPECT_EQ(health.value.status, "degraded");
    EXPECT_TRUE(health.value.engineReady);
    zephon::Line line;
    line.text = "登机 & gate=4";
    const auto test = client.selfTest(line);
    ASSERT_TRUE(test) << test.error.message;
    EXPECT_FALSE(test.value.ok);
    ASSERT_EQ(test.value.checks.size(), 4U);
    EXPECT_FALSE(test.value.checks[0].ok);
    EXPECT_TRUE(test.value.checks[2].ok) << test.value.checks[2].detail;
    EXPECT_NE(test.value.report.find(url()), std::string::npos);
    EXPECT_EQ(engine->calls().back().text, line.text);
    AppLog::info("test", "the last line");
    const auto log = client.log(1);
    ASSERT_TRUE(log);
    EXPECT_NE(log.value.find("test: the last line"), std::string::npos);
    EXPECT_EQ(log.value.find('\n'), std::string::npos);
}

TEST_F(ClientTest, ANewServiceAtTheSameAddressGoesUnnoticed) {
    zephon::Client client(url());
    EXPECT_TRUE(client.health());
    http->stop();
    http.reset();  // ends the kept connection with it
    http = TtsHttpService::make(service);
    http->start();
    EXPECT_TRUE(client.health());
}

}  // namespace
}  // namespace zepho::test
