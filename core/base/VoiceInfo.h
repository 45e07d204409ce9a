// What the program knows of a voice, and the order to make one. Plain values; any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "core/base/TtsTypes.h"
#include "core/platform/Clock.h"

namespace zepho {

// One stored reference clip.
struct VoiceClip {
    std::string fileName;         // in the clips' directory, without a directory part
    std::string text;             // transcript
    std::int64_t durationMs = 0;  // 0 means not known
};

enum class VoiceKind { cloned, profile };

struct VoiceInfo {
    std::string id;       // stable identity, compared without regard to case; names the clip files
    std::string display;  // shown to people; not unique
    VoiceKind kind = VoiceKind::cloned;
    std::string profileFile;  // for the kind profile
    std::vector<VoiceClip> clips;
    std::string language;  // as normLang() gives it; empty means automatic
    TtsGender gender = TtsGender::auto_;
    std::string style;
    std::string note;
    std::int64_t seed = 0;
    WallTime createdAt = std::chrono::system_clock::now();
};

// One clip offered to the library.
struct VoiceClipInput {
    Bytes audio;
    std::string text;
};

struct VoiceCloneSpec {
    std::string display;
    std::string language;
    TtsGender gender = TtsGender::auto_;
    std::vector<VoiceClipInput> clips;
    std::string style;
    std::string note;
};

// What an engine may want to know of the voice.
struct VoiceHint {
    VoiceHint() = default;
    explicit VoiceHint(const VoiceInfo& voice)
        : language(voice.language),
          gender(voice.gender),
          seed(voice.seed),
          display(voice.display) {}

    std::string language;
    TtsGender gender = TtsGender::auto_;
    std::int64_t seed = 0;
    std::string display;
};

}  // namespace zepho
