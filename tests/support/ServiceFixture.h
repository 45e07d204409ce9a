// A service of its own in an empty data root, with an engine that does as the test tells.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "core/audio/PcmBuffer.h"
#include "core/config/AppConfig.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/service/TtsService.h"
#include "tests/support/ScriptedEngine.h"
#include "tests/support/Watching.h"

namespace zepho::test {

class ServiceFixture : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::remove_all(ZEPHOPaths::dataRoot());
        ZEPHOPaths::ensureDirectories();
        AppLog::clear();
        setUiLang(UiLang::en);
        config->load();
        service = TtsService::make(config, engine);
    }
    void TearDown() override {
        engine->openGate();
        if (service) service->shutdown();
        // The pre-bake worker may hold the service for the line that it is at.
        const std::weak_ptr<TtsService> ended = service;
        service.reset();
        EXPECT_TRUE(eventually([&] { return ended.expired(); }));
    }
    // As after a restart of the program.
    void restart() {
        service->shutdown();
        service.reset();
        config = std::make_shared<AppConfig>();
        config->load();
        service = TtsService::make(config, engine);
    }

    VoiceInfo addVoice(const std::string& style = {}, TtsGender gender = TtsGender::female) const {
        VoiceCloneSpec spec;
        spec.display = "Desk";
        spec.gender = gender;
        spec.style = style;
        spec.clips.push_back({buildWav(toneOf(1000, 0.3F), 1), "one two three"});
        return service->cloneVoice(spec);
    }
    static TtsRequest lineOf(const std::string& text, float speed = 1.0F) {
        return TtsRequest::make(text, "en", TtsGender::female, speed);
    }
    static std::size_t storedClips() {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(ZEPHOPaths::cacheDir()))
            count += entry.path().extension() == ".wav" ? 1 : 0;
        return count;
    }
    static bool wasLogged(const std::string& text) {
        for (const LogEntry& line : AppLog::snapshot())
            if (line.text.find(text) != std::string::npos) return true;
        return false;
    }

    std::shared_ptr<AppConfig> config = std::make_shared<AppConfig>();
    std::shared_ptr<ScriptedEngine> engine = std::make_shared<ScriptedEngine>();
    std::shared_ptr<TtsService> service;
};

}  // namespace zepho::test
