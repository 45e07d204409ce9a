// The form of voices.json: values to bytes and back.
//
// Pure functions without state; any thread. Bytes from the file may be damaged in any way: what does
// not fit is dropped or takes its default, and nothing fails beyond VoiceFileState.
#pragma once

#include <memory>
#include <vector>

#include "core/base/VoiceInfo.h"
#include "core/platform/Bytes.h"
#include "core/platform/Clock.h"

namespace zepho {

// A voice as the library shares it: nobody changes one, a change puts a new one in its place.
using SharedVoice = std::shared_ptr<const VoiceInfo>;

enum class VoiceFileState {
    notAnObject,  // no JSON, or another value than an object on top
    withoutList,  // an object that holds no list of voices
    read,
};

struct VoiceFileContent {
    VoiceFileState state = VoiceFileState::notAnObject;
    std::vector<SharedVoice> voices;  // in the order of the file, ids not checked for being unique
};

// `now` is the date of voices whose own one is absent or unreadable.
[[nodiscard]] VoiceFileContent readVoiceFile(ByteView bytes, WallTime now);
[[nodiscard]] Bytes writeVoiceFile(const std::vector<SharedVoice>& voices);

}  // namespace zepho
