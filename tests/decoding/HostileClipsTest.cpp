// Clips that attack the decoders: the service must outlive each, soon, and keep nothing of it.
#include <chrono>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "core/audio/ClipDecoding.h"
#include "tests/tools/EncodedClips.h"
#include "tests/tools/HostileClips.h"

namespace zepho {
namespace {

using test::HostileClip;

std::size_t openFiles() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// Far above the helper's deadline of three seconds, so that only a hang can reach it.
constexpr std::chrono::seconds hang{20};

void replay(const std::vector<HostileClip>& clips) {
    (void)decodeReference(clips.front().bytes);
    const std::size_t filesBefore = openFiles();
    for (const HostileClip& clip : clips) {
        const auto start = std::chrono::steady_clock::now();
        if (const std::optional<PcmBuffer> pcm = decodeReference(clip.bytes)) {
            EXPECT_FALSE(pcm->isEmpty()) << clip.name;
            EXPECT_GE(pcm->sampleRate, 1) << clip.name;
        }
        EXPECT_LT(std::chrono::steady_clock::now() - start, hang) << clip.name;
    }
    EXPECT_EQ(openFiles(), filesBefore);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a helper is left";
}

TEST(HostileClipsTest, CraftedFiles) {
    replay(test::hostileOggClips());
    replay(test::hostileMp3Clips());
}

TEST(HostileClipsTest, DamagedFiles) {
    const Bytes wav = test::toneWav(22050, 2, 22'050);
    replay(test::damagedClips("ogg", test::encodeVorbis(wav), 60));
    replay(test::damagedClips("mp3", test::encodeMp3(wav), 60));
}

}  // namespace
}  // namespace zepho
