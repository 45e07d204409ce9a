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

class TtsServiceTest : public test::ServiceFixture {
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
    void bindDefault(const VoiceInfo& voice) const {
        config->setDefaultVoice("", TtsGender::auto_, voice.id);
    }
};

TEST_F(TtsServiceTest, RefusesEmptyAndLongTextBeforeAnythingIsCounted) {
    bindDefault(addVoice());
    config->maxTextLength = 3;
    EXPECT_EQ(errorOf(lineOf(" \n\xE3\x80\x80")).code, TtsErrorCode::emptyText);
    const TtsError tooLong = errorOf(lineOf("旅客们好"));
    EXPECT_EQ(tooLong.code, TtsErrorCode::textTooLong);
    EXPECT_EQ(tooLong.message, "text is 4 characters, over the 3 limit");
    EXPECT_EQ(service->stats().total, 0);
    TtsRequest styled = lineOf("旅客们");
    styled.style = "a style does not count";
    EXPECT_EQ(errorOf(styled).code, TtsErrorCode::none);
}

TEST_F(TtsServiceTest, AllSpeedsOfALineShareOneStoredClip) {
    bindDefault(addVoice());
    const TtsResult slow = service->synthesize(lineOf("Gate four", 0.8F));
    const TtsResult fast = service->synthesize(lineOf("Gate four", 1.25F));
    const TtsResult normal = service->synthesize(lineOf("Gate four"));
    const TtsResult nearly = service->synthesize(lineOf("Gate four", 1.005F));
    EXPECT_EQ(engine->calls().size(), 1U);
    EXPECT_EQ(storedClips(), 1U);
    EXPECT_EQ((std::set<std::string>{slow.etag, fast.etag, normal.etag, nearly.etag}.size()), 4U);

    EXPECT_FALSE(slow.fromCache);
    EXPECT_EQ(slow.engine, "scripted");
    EXPECT_NEAR(static_cast<double>(slow.durationMs), 1500, 60);
    EXPECT_TRUE(fast.fromCache);
    EXPECT_EQ(fast.engine, "");
    EXPECT_EQ(fast.gender, TtsGender::auto_);
    EXPECT_FLOAT_EQ(fast.speed, 1.25F);
    EXPECT_NEAR(static_cast<double>(fast.durationMs), 960, 60);
    EXPECT_EQ(normal.durationMs, 1200);
    EXPECT_EQ(wavDurationMs(fast.wav), fast.durationMs);
    EXPECT_TRUE(std::equal(nearly.wav.data(), nearly.wav.data() + nearly.wav.size(),
                           normal.wav.data(), normal.wav.data() + normal.wav.size()));

    config->speedMode = TtsSpeedMode::localResample;
    EXPECT_FALSE(service->synthesize(lineOf("Gate four")).fromCache) << "the mode is in the key";
}

TEST_F(TtsServiceTest, AnswersFromDiskAfterARestart) {
    bindDefault(addVoice());
    config->save();
    const TtsResult first = service->synthesize(lineOf("Last call"));
    restart();
    TtsResult again = service->synthesize(lineOf("Last call"));
    EXPECT_TRUE(again.fromCache);
    EXPECT_EQ(again.etag, first.etag);

    const std::string index = ZEPHOPaths::cacheDir() + "index.json";
    service->shutdown();
    saveFileBytes(index, asBytes("{\"0123456\""));
    restart();
    again = service->synthesize(lineOf("Last call"));
    EXPECT_TRUE(again.fromCache) << "a damaged index does not lose the clip";
    EXPECT_EQ(engine->calls().size(), 1U);
}

TEST_F(TtsServiceTest, ALineThatTimedOutIsAHitLater) {
    bindDefault(addVoice());
    engine->closeGate();
    config->requestTimeoutMs = 30;
    const TtsError late = errorOf(lineOf("Delayed"));
    EXPECT_EQ(late.code, TtsErrorCode::timeout);
    EXPECT_EQ(late.httpStatus(), 504);
    EXPECT_EQ(service->stats().failed, 1);
    engine->openGate();
    ASSERT_TRUE(eventually([&] { return service->isCached(lineOf("Delayed")); }));
    config->requestTimeoutMs = 60000;
    EXPECT_TRUE(service->synthesize(lineOf("Delayed")).fromCache);
    ASSERT_TRUE(eventually([] {
        return wasLogged(
            "a synthesis we had given up on finished after 0 s and went into the cache");
    }));
    EXPECT_EQ(service->stats().totalSynthMs, 0) << "a late line is not counted";
}

TEST_F(TtsServiceTest, OneRunsTheLimitWaitsAndTheNextIsRefused) {
    bindDefault(addVoice());
    config->queueLimit = 2;
    service->applyConfig();
    engine->closeGate();
    std::vector<std::future<TtsErrorCode>> callers;
    const auto call = [&](const std::string& text, TtsPriority priority) {
        TtsRequest request = lineOf(text);
        request.priority = priority;
        callers.push_back(
            std::async(std::launch::async, [this, request] { return errorOf(request).code; }));
    };
    call("first", TtsPriority::normal);
    engine->waitForCalls(1);
    call("second", TtsPriority::normal);
    ASSERT_TRUE(eventually([&] { return service->stats().queueDepth == 1; }));
    call("urgent", TtsPriority::high);
    ASSERT_TRUE(eventually([&] { return service->stats().queueDepth == 2; }));
    const TtsError refused = errorOf(lineOf("third"));
    EXPECT_EQ(refused.code, TtsErrorCode::queueFull);
    EXPECT_EQ(refused.message, "the synthesis queue is full (2 waiting), try again shortly");
    // A refusal costs nothing: not even the reference clip is looked for.
    std::filesystem::remove_all(ZEPHOPaths::voicesDir());
    EXPECT_EQ(errorOf(lineOf("fourth")).code, TtsErrorCode::queueFull);
    EXPECT_FALSE(wasLogged("cannot read reference audio"));
    engine->openGate();
    for (auto& caller : callers) EXPECT_EQ(caller.get(), TtsErrorCode::none);
    EXPECT_EQ(engine->calls()[1].text, "urgent");
}

TEST_F(TtsServiceTest, TheVoiceSettlesStyleSeedAndReference) {
    const VoiceInfo voice = addVoice("calm");
    bindDefault(voice);
    (void)service->synthesize(lineOf("Doors closing"));
    TtsRequest own = lineOf("Doors closing");
    own.style = "[urgent]";
    own.seed = 7;
    (void)service->synthesize(own);
    const auto calls = engine->calls();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].text, "[calm] Doors closing");
    EXPECT_EQ(calls[0].seed, voice.seed);
    EXPECT_EQ(calls[0].referenceText, "one two three");
    EXPECT_GT(calls[0].referenceAudio.size(), 88000U);
    EXPECT_EQ(engine->hints()[0].seed, voice.seed);
    EXPECT_EQ(calls[1].text, "[urgent] Doors closing");
    EXPECT_EQ(calls[1].seed, 7);

    saveFileBytes(ZEPHOPaths::voicesDir() + voice.clips[0].fileName, {});
    (void)service->synthesize(lineOf("Another line"));
    EXPECT_TRUE(engine->calls()[2].referenceAudio.empty());
    EXPECT_TRUE(
        wasLogged("reference audio for voice Desk is missing; this request has nothing to "
                  "clone from"));
}

TEST_F(TtsServiceTest, BringsTheClipToItsRateAndLevel) {
    bindDefault(addVoice());
    TtsRequest at8k = lineOf("Eight");
    at8k.sampleRate = 8000;
    TtsResult result = service->synthesize(at8k);
    EXPECT_EQ(result.sampleRate, 8000);
    EXPECT_EQ(result.durationMs, 1200);
    EXPECT_FALSE(service->synthesize(lineOf("Eight")).fromCache) << "another rate, another key";

    config->normalizeOutput = true;
    engine->peak = 0.2F;
    const auto loud = parseWav(service->synthesize(lineOf("Quiet")).wav);
    ASSERT_TRUE(loud);
    float peak = 0;
    for (const float sample : loud->data) peak = std::max(peak, std::fabs(sample));
    EXPECT_NEAR(peak, 0.95F, 0.001F);
    engine->peak = 0.000001F;
    const auto silence = parseWav(service->synthesize(lineOf("Silence")).wav);
    ASSERT_TRUE(silence);
    for (const float sample : silence->data) ASSERT_EQ(sample, 0.0F);

    TtsRequest absurd = lineOf("Too fine");
    absurd.sampleRate = 4000000000;
    EXPECT_EQ(errorOf(absurd).code, TtsErrorCode::badAudio);
}

TEST_F(TtsServiceTest, ADamagedClipIsServedAsItIs) {
    bindDefault(addVoice());
    (void)service->synthesize(lineOf("Broken"));
    for (const auto& entry : std::filesystem::directory_iterator(ZEPHOPaths::cacheDir()))
        if (entry.path().extension() == ".wav")
            saveFileBytes(entry.path().string(), asBytes("no audio at all"));
    const TtsResult result = service->synthesize(lineOf("Broken", 1.5F));
    EXPECT_EQ(asText(result.wav), "no audio at all");
    EXPECT_FLOAT_EQ(result.speed, 1.5F);
    EXPECT_TRUE(wasLogged("cached clip could not be parsed for retiming, serving it as-is"));
}

TEST_F(TtsServiceTest, AnUnloadedModelStillServesWhatIsCached) {
    bindDefault(addVoice());
    (void)service->synthesize(lineOf("Known"));
    service->unloadModel();
    // The engine's name is in the key, so the clips of the stand-in are not the real engine's.
    const TtsError refused = errorOf(lineOf("Known"));
    EXPECT_EQ(refused.code, TtsErrorCode::engineNotConnected);
    EXPECT_EQ(refused.message,
              "The model is unloaded and this line is not in the cache.\n"
              "To synthesize it now, hit Load model on the Service page.");
    EXPECT_EQ(service->stats().failed, 1);
    EXPECT_EQ(service->stats().total, 2);
}

TEST_F(TtsServiceTest, CountsOnlyWhatReachesTheEngineStage) {
    bindDefault(addVoice());
    (void)service->synthesize(lineOf("One"));
    (void)service->synthesize(lineOf("One"));
    engine->silent = true;
    EXPECT_EQ(errorOf(lineOf("Two")).message, "the engine returned empty audio");
    engine->silent = false;
    engine->failing = true;
    EXPECT_EQ(errorOf(lineOf("Three")).message, "told to fail");
    const ServiceStats stats = service->stats();
    EXPECT_EQ(stats.total, 4);
    EXPECT_EQ(stats.failed, 2);
    EXPECT_EQ(stats.totalAudioMs, 1200);
    EXPECT_EQ(stats.cacheHits, 1);
    EXPECT_EQ(stats.cacheCount, 1);
    EXPECT_DOUBLE_EQ(stats.cacheHitRate, 0.25);
    EXPECT_TRUE(stats.placeholder);
    EXPECT_TRUE(eventually([&] { return !service->stats().busy; }));
}

TEST_F(TtsServiceTest, MakesTheDefaultVoiceOnceAndTellsWhyNot) {
    const TtsResult result = service->synthesize(lineOf("Welcome"));
    const auto calls = engine->calls();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].text,
              "[a calm adult female voice, clear professional broadcast tone] Ladies and "
              "gentlemen, we are now ready for departure. Please fasten your seat belt and stow "
              "your tray table.");
    ASSERT_EQ(service->voices.count(), 1U);
    const VoiceInfo voice = service->voices.all()[0];
    EXPECT_EQ(voice.display, "Default en · Female");
    EXPECT_EQ(voice.note, "default voice the model generated for itself on first use");
    EXPECT_EQ(config->defaultVoice("en", TtsGender::female), voice.id);
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

    TtsRequest airline = lineOf("Welcome aboard");
    airline.airline = "ca";
    EXPECT_EQ(errorOf(airline).code, TtsErrorCode::badVoice);
    EXPECT_EQ(service->voices.count(), 3U) << "an airline never makes a voice";
    config->autoCreateDefaultVoice = false;
    const TtsError none = errorOf(german);
    EXPECT_EQ(none.code, TtsErrorCode::badVoice);
    EXPECT_EQ(
        none.message,
        "没有可生成的语音:Deutsch · Female 还没有绑定音色. Bind one on the Broadcast page - to "
        "let this airline speak in any language, set its language to Auto.");
}

TEST_F(TtsServiceTest, BakesLinesInTheBackground) {
    bindDefault(addVoice());
    (void)service->synthesize(lineOf("Known already"));
    engine->closeGate();
    std::vector<TtsRequest> lines{lineOf("  "), lineOf("Known already"), lineOf("New one"),
                                  lineOf("New two")};
    for (TtsRequest& line : lines) line.priority = TtsPriority::high;
    service->prewarmRequests(lines);
    engine->waitForCalls(2);
    EXPECT_EQ(service->prewarmPending(), 1U);
    EXPECT_EQ(service->stats().queueDepth, 0) << "one baked line at a time in the queue";
    engine->openGate();
    ASSERT_TRUE(eventually([&] { return service->isCached(lineOf("New two")); }));
    EXPECT_EQ(engine->calls().size(), 3U);
    EXPECT_TRUE(wasLogged("queued 3 entries to pre-bake, "));
    ASSERT_TRUE(eventually(
        [] { return wasLogged("pre-baked one entry (1.2 s of audio), 0 left: New two"); }));
    engine->failing = true;
    service->prewarmRequests({lineOf("Unlucky")});
    ASSERT_TRUE(eventually([] { return wasLogged("pre-bake failed (told to fail): Unlucky"); }));
}

TEST_F(TtsServiceTest, AClientWaitsBehindNoMoreThanOneBakedLine) {
    bindDefault(addVoice());
    std::vector<TtsRequest> lines;
    for (int i = 0; i < 200; ++i) lines.push_back(lineOf("Baked " + std::to_string(i)));
    engine->toneMs = 20;
    engine->closeGate();
    service->prewarmRequests(lines);
    for (int round = 0; round < 5; ++round) {
        const std::size_t inside = static_cast<std::size_t>(round) * 2 + 1;
        engine->waitForCalls(inside);  // the last of them is a baked line
        const std::string own = "Client " + std::to_string(round);
        auto client = std::async(std::launch::async, [&] { return errorOf(lineOf(own)).code; });
        ASSERT_TRUE(eventually([&] { return service->stats().queueDepth == 1; }));
        engine->letOut(1);
        engine->waitForCalls(inside + 1);
        EXPECT_EQ(engine->calls()[inside].text, own);
        engine->letOut(1);
        EXPECT_EQ(client.get(), TtsErrorCode::none);
    }
    engine->openGate();
    ASSERT_TRUE(eventually([&] { return service->isCached(lineOf("Baked 199")); }));
    EXPECT_EQ(engine->calls().size(), 205U);
}

TEST_F(TtsServiceTest, TheSelfTestTellsWhichStepFailed) {
    const auto names = [](const std::vector<CheckResult>& lines) {
        std::string text;
        for (const CheckResult& line : lines) text += line.name + (line.ok ? "+ " : "- ");
        return text;
    };
    config->autoCreateDefaultVoice = false;
    auto lines = service->selfTest("", "en", TtsGender::female, "");
    EXPECT_EQ(names(lines), "engine- voices- synthesize- cache- ");
    EXPECT_TRUE(
        lines[0].detail.starts_with("it is producing placeholder audio, not real speech - "));
    EXPECT_TRUE(lines[0].detail.ends_with("; it is producing placeholder audio right now"));
    EXPECT_EQ(lines[3].detail, "the previous check failed, so this one was not run");

    config->autoCreateDefaultVoice = true;
    EXPECT_EQ(names(service->selfTest("", "en", TtsGender::female, "")),
              "engine- voices- synthesize+ cache+ ");
    lines = service->selfTest(" Hello ", "en", TtsGender::female, "");
    EXPECT_EQ(names(lines), "engine- voices+ synthesize+ cache+ ");
    EXPECT_EQ(lines[1].detail, "1 voice(s) in the library");
    config->cacheEnabled = false;
    service->applyConfig();
    lines = service->selfTest("", "en", TtsGender::female, "");
    EXPECT_EQ(names(lines), "engine- voices+ synthesize+ cache- ");
    EXPECT_NE(lines[3].detail.find("caching may be turned off"), std::string::npos);
}

TEST_F(TtsServiceTest, EndsWhileALineIsInsideTheEngine) {
    bindDefault(addVoice());
    engine->closeGate();
    auto running =
        std::async(std::launch::async, [this] { return errorOf(lineOf("Still speaking")).code; });
    engine->waitForCalls(1);
    auto waiting = std::async(std::launch::async, [this] { return errorOf(lineOf("Waiting")); });
    ASSERT_TRUE(eventually([&] { return service->stats().queueDepth == 1; }));
    service->shutdown();
    EXPECT_EQ(waiting.get().message, "the service is shutting down; this request was dropped");
    engine->openGate();
    EXPECT_EQ(running.get(), TtsErrorCode::none) << "the running line is finished";
}

}  // namespace
}  // namespace zepho
