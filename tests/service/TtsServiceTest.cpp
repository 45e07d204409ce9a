#include <cmath>
#include <future>
#include <set>

#include <gtest/gtest.h>

#include "core/audio/WavReader.h"
#include "core/platform/Files.h"
#include "core/service/TtsService.h"
#include "tests/support/ServiceFixture.h"

namespace zepho {
namespace {

// Of a fresh service.
class DefaultVoiceTest : public test::ServiceFixture {
protected:
    // The error that the line ends in; code none when it is spoken.
    TtsError errorOf(const TtsRequest& request) const {
        try {
            (void)service->synthesize(request);
        } catch (const TtsError& failure) {
            return failure;
        }
        return {TtsErrorCode::none, ""};
    }
};

// All lines speak with one voice.
class TtsServiceTest : public DefaultVoiceTest {
protected:
    void SetUp() override {
        DefaultVoiceTest::SetUp();
        voice = addVoice("calm");
        config->setDefaultVoice("", TtsGender::auto_, voice.id);
    }

    VoiceInfo voice;
};

TEST_F(TtsServiceTest, AllSpeedsOfALineShareOneStoredClip) {
    const TtsResult slow = service->synthesize(lineOf("Gate four", 0.8F));
    const TtsResult fast = service->synthesize(lineOf("Gate four", 1.25F));
    const TtsResult normal = service->synthesize(lineOf("Gate four"));
    const TtsResult nearly = service->synthesize(lineOf("Gate four", 1.005F));
    EXPECT_EQ(engine->calls().size(), 1U);
    EXPECT_EQ(storedClips(), 1U);
    EXPECT_EQ((std::set<std::string>{slow.etag, fast.etag, normal.etag, nearly.etag}.size()), 4U);
    EXPECT_FALSE(slow.fromCache);
    EXPECT_NEAR(static_cast<double>(slow.durationMs), 1500, 60);
    EXPECT_TRUE(fast.fromCache);
    EXPECT_FLOAT_EQ(fast.speed, 1.25F);
    EXPECT_NEAR(static_cast<double>(fast.durationMs), 960, 60);
    EXPECT_EQ(wavDurationMs(fast.wav), fast.durationMs);
    EXPECT_EQ(asText(nearly.wav), asText(normal.wav));

    for (const auto& entry : std::filesystem::directory_iterator(ZEPHOPaths::cacheDir()))
        if (entry.path().extension() == ".wav")
            saveFileBytes(entry.path().string(), asBytes("no audio at all"));
    EXPECT_EQ(asText(service->synthesize(lineOf("Gate four", 1.5F)).wav), "no audio at all");
    EXPECT_TRUE(wasLogged("cached clip could not be parsed for retiming, serving it as-is"));

    config->speedMode = TtsSpeedMode::localResample;
    EXPECT_FALSE(service->synthesize(lineOf("Gate four")).fromCache) << "the mode is in the key";
}

TEST_F(TtsServiceTest, ALineThatTimedOutIsAHitLaterAndARefusedOneCostsNothing) {
    engine->closeGate();
    config->requestTimeoutMs = 30;
    config->queueLimit = 1;
    service->applyConfig();
    EXPECT_EQ(errorOf(lineOf("Delayed")).code, TtsErrorCode::timeout);
    engine->waitForCalls(1);
    EXPECT_EQ(errorOf(lineOf("Waiting")).code, TtsErrorCode::timeout);
    // Not even the reference clip is looked for.
    std::filesystem::remove_all(ZEPHOPaths::voicesDir());
    EXPECT_EQ(errorOf(lineOf("One too many")).code, TtsErrorCode::queueFull);
    EXPECT_FALSE(wasLogged("cannot read reference audio"));
    EXPECT_EQ(service->stats().failed, 3);
    engine->openGate();
    ASSERT_TRUE(test::eventually([&] { return service->isCached(lineOf("Waiting")); }));
    EXPECT_TRUE(service->synthesize(lineOf("Delayed")).fromCache);
    EXPECT_TRUE(wasLogged(" s and went into the cache anyway: [calm] Delayed"));
    EXPECT_EQ(service->stats().totalSynthMs, 0) << "a late line is not counted";
}

TEST_F(TtsServiceTest, TheVoiceSettlesStyleSeedAndReference) {
    (void)service->synthesize(lineOf("Doors closing"));
    TtsRequest own = lineOf("Doors closing");
    own.style = "[urgent]";
    own.seed = 7;
    (void)service->synthesize(own);
    saveFileBytes(ZEPHOPaths::voicesDir() + voice.clips[0].fileName, {});
    (void)service->synthesize(lineOf("Another line"));
    const auto calls = engine->calls();
    ASSERT_EQ(calls.size(), 3U);
    EXPECT_EQ(calls[0].text, "[calm] Doors closing");
    EXPECT_EQ(calls[0].seed, voice.seed);
    EXPECT_EQ(engine->hints()[0].seed, voice.seed);
    // What the engine gets to imitate is the clip as it came.
    EXPECT_EQ(asText(calls[0].referenceAudio), asText(buildWav(test::toneOf(1000, 0.3F), 1)));
    EXPECT_EQ(calls[0].referenceText, "one two three");
    EXPECT_EQ(calls[1].text, "[urgent] Doors closing");
    EXPECT_EQ(calls[1].seed, 7);
    EXPECT_TRUE(calls[2].referenceAudio.empty());
    EXPECT_TRUE(
        wasLogged("reference audio for voice Desk is missing; this request has nothing to "
                  "clone from"));
}

TEST_F(TtsServiceTest, BringsTheClipToItsRateAndLevel) {
    TtsRequest rated = lineOf("Eight");
    rated.sampleRate = 8000;
    const TtsResult result = service->synthesize(rated);
    EXPECT_EQ(result.sampleRate, 8000);
    EXPECT_EQ(result.durationMs, 1200);
    EXPECT_FALSE(service->synthesize(lineOf("Eight")).fromCache) << "another rate, another key";
    rated.sampleRate = 4000000000;
    EXPECT_EQ(errorOf(rated).code, TtsErrorCode::badAudio);

    config->normalizeOutput = true;
    // What is as good as silent stays so.
    for (const auto& [spoken, expected] : {std::pair(0.2F, 0.95F), std::pair(0.000001F, 0.0F)}) {
        engine->peak = spoken;
        const auto clip = parseWav(service->synthesize(lineOf(std::to_string(spoken))).wav);
        float peak = 0;
        for (const float sample : clip.value().data) peak = std::max(peak, std::fabs(sample));
        EXPECT_NEAR(peak, expected, expected / 1000);
    }
    config->outputSampleRate = 4000000000;
    EXPECT_EQ(service->synthesize(lineOf("Set too fine")).sampleRate, 384000);

    // By this rate it speaks for hours.
    engine->rate = 1;
    const auto failed = service->stats().failed;
    EXPECT_EQ(errorOf(lineOf("Endless")).code, TtsErrorCode::engineFailed);
    EXPECT_EQ(service->stats().failed, failed + 1);
}

TEST_F(DefaultVoiceTest, IsMadeOnceAndTellsWhyNot) {
    const TtsResult result = service->synthesize(lineOf("Welcome"));
    EXPECT_EQ(engine->calls().size(), 2U);
    EXPECT_TRUE(engine->calls()[0].text.starts_with(
        "[a calm adult female voice, clear professional broadcast tone] Ladies and gentlemen, "));
    const VoiceInfo voice = service->voices.all().at(0);
    EXPECT_EQ(voice.display, "Default en · Female");
    EXPECT_EQ(result.voiceId, voice.id);
    AppConfig saved;
    saved.load();
    EXPECT_EQ(saved.defaultVoice("en", TtsGender::female), voice.id);
    EXPECT_EQ(service->ensureDefaultVoice("en", TtsGender::female).id, voice.id);
    // Any other language speaks the English sentence; male differs from female by one.
    (void)service->ensureDefaultVoice("fr", TtsGender::female);
    (void)service->ensureDefaultVoice("fr", TtsGender::male);
    EXPECT_EQ(engine->calls()[3].seed, engine->calls()[2].seed + 1);
    EXPECT_EQ(service->voices.count(), 3U);

    engine->silent = true;
    TtsRequest german = lineOf("Guten Tag");
    german.language = "de";
    EXPECT_EQ(errorOf(german).code, TtsErrorCode::badVoice);
    EXPECT_TRUE(
        wasLogged("could not create the default voice: the engine produced no audio while "
                  "creating the default voice"));
    EXPECT_EQ(config->defaultVoice("de", TtsGender::female), "");
    config->autoCreateDefaultVoice = false;
    EXPECT_EQ(
        errorOf(german).message,
        "没有可生成的语音:Deutsch · Female 还没有绑定音色. Bind one on the Broadcast page - to "
        "let this airline speak in any language, set its language to Auto.");
    config->autoCreateDefaultVoice = true;
    engine->silent = false;
    TtsRequest airline = lineOf("Welcome aboard");
    airline.airline = "ca";
    EXPECT_EQ(errorOf(airline).code, TtsErrorCode::badVoice) << "an airline never makes a voice";
}

TEST_F(TtsServiceTest, AClientWaitsBehindNoMoreThanOneBakedLine) {
    std::vector<TtsRequest> lines;
    for (int i = 0; i < 200; ++i) lines.push_back(lineOf("Baked " + std::to_string(i)));
    engine->toneMs = 20;
    engine->closeGate();
    service->prewarmRequests(lines);
    for (std::size_t inside = 1; inside < 10; inside += 2) {
        engine->waitForCalls(inside);  // the last of them is a baked line
        const TtsRequest own = lineOf("Client " + std::to_string(inside));
        auto client = std::async(std::launch::async, [&] { return errorOf(own).code; });
        ASSERT_TRUE(test::eventually([&] { return service->stats().queueDepth == 1; }));
        engine->letOut(1);
        engine->waitForCalls(inside + 1);
        EXPECT_EQ(engine->calls()[inside].text, "[calm] " + own.text);
        engine->letOut(1);
        EXPECT_EQ(client.get(), TtsErrorCode::none);
    }
    engine->openGate();
    ASSERT_TRUE(test::eventually([&] { return service->isCached(lineOf("Baked 199")); }));
    EXPECT_EQ(engine->calls().size(), 205U);
    engine->failing = true;
    service->prewarmRequests({lineOf("Unlucky")});
    ASSERT_TRUE(
        test::eventually([] { return wasLogged("pre-bake failed (told to fail): Unlucky"); }));
}

TEST_F(TtsServiceTest, EndsWhileALineIsInsideTheEngine) {
    engine->closeGate();
    const auto speak = [this](const char* text) { return errorOf(lineOf(text)); };
    auto running = std::async(std::launch::async, speak, "Still speaking");
    engine->waitForCalls(1);
    auto waiting = std::async(std::launch::async, speak, "Waiting");
    ASSERT_TRUE(test::eventually([&] { return service->stats().queueDepth == 1; }));
    service->shutdown();
    EXPECT_EQ(waiting.get().message, "the service is shutting down; this request was dropped");
    engine->openGate();
    EXPECT_EQ(running.get().code, TtsErrorCode::none) << "the running line is finished";
}

}  // namespace
}  // namespace zepho
