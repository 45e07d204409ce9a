// Any bytes as voices.json: what is read stays the same when it is written and read again, and no
// clip leads out of its directory.
#include <cstddef>
#include <cstdint>
#include <string>

#include "core/platform/Require.h"
#include "core/store/ClipStore.h"
#include "core/store/VoiceFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace zepho;
    const WallTime now{};
    const VoiceFileContent content = readVoiceFile(ByteView(data, size), now);
    if (content.state != VoiceFileState::read) {
        require(content.voices.empty(), "voices without a list");
        return 0;
    }
    const Bytes written = writeVoiceFile(content.voices);
    const VoiceFileContent again = readVoiceFile(written, now + std::chrono::hours(1));
    require(again.state == VoiceFileState::read, "our own file does not read");
    require(again.voices.size() == content.voices.size(), "a voice got lost");
    require(writeVoiceFile(again.voices) == written, "a field changed on the way");
    for (const SharedVoice& voice : content.voices) {
        require(!voice->id.empty(), "a voice without an id");
        for (const VoiceClip& clip : voice->clips) {
            const std::string path = clipPathIn("clone/", clip.fileName);
            require(path.empty() || path.rfind('/') == 5, "another directory");
            require(path != "clone/." && path != "clone/..", "no file's name");
        }
    }
    return 0;
}
