#include "core/store/ClipStore.h"

#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "core/audio/AudioSniffing.h"
#include "core/base/TtsError.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/platform/Errors.h"
#include "core/platform/Files.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

[[noreturn]] void refuse(std::string text) {
    throw TtsError(TtsErrorCode::badAudio, std::move(text));
}

[[noreturn]] void failStoring(const std::exception& error) {
    throw TtsError(TtsErrorCode::cloneFailed, T("参考音频存不下来:") + describeError(error));
}

// The clip's length if it decodes, otherwise 0. Refuses what the engine could not imitate.
std::int64_t checkedDuration(ByteView audio, std::string_view extension) {
    const OggDecoding decoding = decodeClip(audio);
    if (extension == ".ogg" && decoding.result != OggResult::ok)
        refuse(oggResultText(decoding.result).value_or(std::string()));
    if (!decoding.pcm) {
        AppLog::warn("voices", "cannot decode this " + std::string(extension) +
                                   " clip; duration unknown and it cannot join a multi-clip merge");
        return 0;
    }
    const std::int64_t duration = decoding.pcm->durationMs();
    const double seconds = static_cast<double>(duration) / 1000;
    if (duration < shortestClipMs)
        refuse(TF("参考音频只有 %d 毫秒,太短了(官方建议 5~30 秒)", duration));
    if (duration < goodClipMs)
        AppLog::warn("voices", formatText("reference audio is only %.1f s; the official guidance "
                                          "is 5-30 s, cloning may be unstable",
                                          seconds));
    if (duration > referenceCapMs)
        AppLog::warn("voices", formatText("reference audio is %.0f s, over the 30 s the vendor "
                                          "recommends; it will be trimmed",
                                          seconds));
    return duration;
}

}  // namespace

std::string clipPathIn(const std::string& directory, std::string_view fileName) {
    constexpr std::string_view separators("/\0", 2);
    if (fileName.empty() || fileName == "." || fileName == "..") return {};
    if (fileName.find_first_of(separators) != std::string_view::npos) return {};
    return directory + std::string(fileName);
}

OggDecoding decodeClip(ByteView bytes) {
    if (looksLikeOgg(bytes)) return decodeOgg(bytes);
    return {OggResult::notVorbis, decodeReference(bytes)};
}

VoiceClip storeClip(const std::string& directory, const std::string& voiceId, std::size_t index,
                    const VoiceClipInput& input) {
    if (input.audio.empty()) refuse(T("这一段没有音频数据"));
    VoiceClip clip;
    clip.text = trimmed(input.text);
    if (clip.text.empty()) refuse(T("参考音频必须配上它的转写(官方契约里 reference_text 是必填)"));
    const std::string extension(sniffExtension(input.audio));
    if (extension.empty()) refuse(T("这段音频不像 WAV、MP3 或 Ogg"));
    clip.durationMs = checkedDuration(input.audio, extension);

    clip.fileName = voiceId + "-" + std::to_string(index) + extension;
    const std::string path = clipPathIn(directory, clip.fileName);
    try {
        if (path.empty())
            throw std::system_error(std::make_error_code(std::errc::invalid_argument),
                                    clip.fileName);
        saveFileBytes(path, input.audio);
    } catch (const std::system_error& failure) {
        failStoring(failure);
    }
    return clip;
}

void deleteClipFile(const std::string& directory, const VoiceClip& clip) {
    const std::string path = clipPathIn(directory, clip.fileName);
    if (path.empty()) return;
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
}

}  // namespace zepho
