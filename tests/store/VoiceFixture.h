// A voice library over a directory of its own, clips to feed it, and a look at what it logged.
#pragma once

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/audio/PcmBuffer.h"
#include "core/base/TtsError.h"
#include "core/config/AppConfig.h"
#include "core/diag/AppLog.h"
#include "core/platform/Files.h"
#include "core/store/VoiceLibrary.h"
#include "tests/support/TempDir.h"

namespace zepho::test {

// A tone, so that cuts and joints show in the samples.
inline Bytes wavOf(int rate, std::int64_t ms, int channels = 1) {
    PcmBuffer pcm;
    pcm.sampleRate = rate;
    for (std::int64_t i = 0; i < rate * ms / 1000; ++i)
        pcm.data.push_back(0.5F * static_cast<float>(std::sin(static_cast<double>(i) / 3)));
    return buildWav(pcm, channels);
}

using Lines = std::vector<std::string>;

inline Lines logged(LogLevel level) {
    Lines lines;
    for (const LogEntry& entry : AppLog::snapshot())
        if (entry.level == level && entry.source == "voices") lines.push_back(entry.text);
    return lines;
}

class VoiceFixture : public testing::Test {
protected:
    VoiceFixture() { AppLog::clear(); }

    [[nodiscard]] std::string voicesFile() const { return dir.file("data/voices.json"); }
    [[nodiscard]] std::string clips() const { return dir.file("clone/"); }

    void loadVoices(std::string_view file) {
        saveFileBytes(voicesFile(), asBytes(file));
        library.load();
    }

    static VoiceCloneSpec specOf(Bytes audio, std::string text, std::string display = "Voice") {
        VoiceCloneSpec spec;
        spec.display = std::move(display);
        spec.clips.push_back({std::move(audio), std::move(text)});
        return spec;
    }

    TempDir dir;
    AppConfig config;
    VoiceLibrary library{config, voicesFile(), clips()};
};

// The error that the call throws; fails the test if it throws none.
template <class Call>
TtsError errorOf(Call call) {
    try {
        call();
    } catch (const TtsError& error) {
        return error;
    }
    ADD_FAILURE() << "no error";
    return {TtsErrorCode::none, ""};
}

}  // namespace zepho::test
