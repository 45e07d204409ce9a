#include "core/store/VoiceLibrary.h"

#include <cstdlib>
#include <utility>

#include "core/base/Hash.h"
#include "core/base/Text.h"
#include "core/base/TtsError.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/platform/Directory.h"
#include "core/platform/Errors.h"
#include "core/platform/Files.h"
#include "core/store/ClipStore.h"
#include "core/store/ReferenceAudio.h"

namespace zepho {
namespace {

// Follows from the id alone, so that a voice that is imported again speaks as before.
std::int64_t seedOf(const std::string& id) {
    // A hash of six characters stays far below the highest number, so it has an absolute value.
    return std::abs(stableHash(sha256Utf8(id).substr(0, 6))) & 0x7FFFFFFF;
}

}  // namespace

VoiceLibrary::VoiceLibrary(AppConfig& settings, std::string file, std::string clips)
    : config(settings), voicesFile(std::move(file)), clipsDirectory(std::move(clips)) {}

void VoiceLibrary::load() {
    {
        const std::lock_guard guard(lock);
        items = VoiceList();
    }
    removeStaleTemporaries(clipsDirectory);
    removeStaleTemporaries(parentDirectory(voicesFile));
    if (fileIsMissing(voicesFile)) return;
    const std::optional<Bytes> bytes = loadFileBytes(voicesFile);
    if (!bytes) {
        AppLog::error("voices", "cannot read the voice library");
        return;
    }
    const VoiceFileContent content = readVoiceFile(*bytes, std::chrono::system_clock::now());
    if (content.state == VoiceFileState::notAnObject)
        AppLog::warn("voices", "voice library is not valid JSON, treating it as empty");
    if (content.state != VoiceFileState::read) return;
    VoiceList loaded(content.voices);
    {
        const std::lock_guard guard(lock);
        items = std::move(loaded);
    }
    AppLog::info("voices",
                 "voice library loaded, " + std::to_string(content.voices.size()) + " voice(s)");
}

void VoiceLibrary::save() {
    const std::lock_guard order(writing);
    std::vector<SharedVoice> voices;
    {
        const std::lock_guard guard(lock);
        voices = items.all();
    }
    try {
        saveFileBytes(voicesFile, writeVoiceFile(voices));
    } catch (const std::exception& failure) {
        AppLog::error("voices", "cannot write the voice library: " + describeError(failure));
    }
}

std::vector<VoiceInfo> VoiceLibrary::all() const {
    return forLanguage({});
}

std::size_t VoiceLibrary::count() const {
    const std::lock_guard guard(lock);
    return items.size();
}

std::vector<VoiceInfo> VoiceLibrary::forLanguage(std::string_view language) const {
    std::vector<SharedVoice> voices;
    {
        const std::lock_guard guard(lock);
        voices = items.all();
    }
    std::vector<VoiceInfo> copies;
    copies.reserve(voices.size());
    for (const SharedVoice& voice : voices)
        if (language.empty() || voice->language == language) copies.push_back(*voice);
    return copies;
}

SharedVoice VoiceLibrary::findShared(std::string_view id) const {
    const std::string_view wanted = trimmedView(id);
    const std::lock_guard guard(lock);
    return items.findById(wanted);
}

std::optional<VoiceInfo> VoiceLibrary::find(std::string_view id) const {
    const SharedVoice voice = findShared(id);
    if (!voice) return std::nullopt;
    return *voice;
}

std::optional<VoiceInfo> VoiceLibrary::findByDisplay(std::string_view name) const {
    SharedVoice voice;
    {
        const std::lock_guard guard(lock);
        voice = items.findByDisplay(trimmedView(name));
    }
    if (!voice) return std::nullopt;
    return *voice;
}

std::optional<VoiceInfo> VoiceLibrary::findAlike(std::string_view display,
                                                 std::string_view language,
                                                 TtsGender gender) const {
    SharedVoice voice;
    {
        const std::lock_guard guard(lock);
        voice = items.findAlike(display, language, gender);
    }
    if (!voice) return std::nullopt;
    return *voice;
}

std::string VoiceLibrary::contentKey(const VoiceCloneSpec& spec) {
    std::string key;
    for (const VoiceClipInput& clip : spec.clips) {
        key += sha256Bytes(clip.audio);
        key += '|';
        key += trimmedView(clip.text);
        key += '\n';
    }
    return key;
}

std::string VoiceLibrary::makeIdLocked(const std::string& key) const {
    const std::string candidate = "v-" + lowercased(sha256Utf8(key).substr(0, 12));
    return items.freeId(candidate);
}

std::string VoiceLibrary::predictId(const VoiceCloneSpec& spec) const {
    // Hashing the clips takes far longer than the list work, so it stays outside the lock.
    const std::string key = contentKey(spec);
    const std::lock_guard guard(lock);
    return makeIdLocked(key);
}

VoiceInfo VoiceLibrary::addClone(const VoiceCloneSpec& spec) {
    VoiceInfo voice = addUnsavedClone(spec);
    save();
    return voice;
}

VoiceInfo VoiceLibrary::addUnsavedClone(const VoiceCloneSpec& spec) {
    if (spec.clips.empty()) throw TtsError(TtsErrorCode::badAudio, T("克隆至少需要一段参考音频"));
    VoiceInfo voice;
    voice.id = predictId(spec);
    voice.display = trimmed(spec.display);
    if (voice.display.empty()) voice.display = voice.id;
    voice.language = normLang(spec.language);
    voice.gender = spec.gender;
    voice.style = trimmed(spec.style);
    voice.note = spec.note;
    voice.seed = seedOf(voice.id);

    std::int64_t totalMs = 0;
    for (const VoiceClipInput& input : spec.clips) {
        voice.clips.push_back(storeClip(clipsDirectory, voice.id, voice.clips.size(), input));
        totalMs += voice.clips.back().durationMs;
    }
    {
        auto shared = std::make_shared<const VoiceInfo>(voice);
        const std::lock_guard guard(lock);
        items.append(std::move(shared));
    }
    AppLog::info("voices", formatText("cloned voice %@ (%@, %d clip(s), %.1f s total)", voice.id,
                                      voice.display, voice.clips.size(),
                                      static_cast<double>(totalMs) / 1000));
    return voice;
}

bool VoiceLibrary::replace(const VoiceInfo& voice) {
    auto shared = std::make_shared<const VoiceInfo>(voice);
    const std::lock_guard guard(lock);
    return items.replace(std::move(shared));
}

void VoiceLibrary::update(const VoiceInfo& voice) {
    if (replace(voice)) save();
}

bool VoiceLibrary::remove(std::string_view id) {
    SharedVoice removed;
    {
        const std::lock_guard guard(lock);
        removed = items.remove(id);
    }
    if (!removed) return false;
    config.forgetVoice(id);
    for (const VoiceClip& clip : removed->clips) deleteClipFile(clipsDirectory, clip);
    save();
    config.save();
    AppLog::info("voices", "deleted voice " + removed->display);
    return true;
}

VoiceInfo VoiceLibrary::addClip(std::string_view voiceId, const VoiceClipInput& input) {
    std::optional<VoiceInfo> voice = find(voiceId);
    if (!voice) throw TtsError(TtsErrorCode::badVoice, T("没有这个音色:") + std::string(voiceId));
    voice->clips.push_back(storeClip(clipsDirectory, voice->id, voice->clips.size(), input));
    replace(*voice);
    save();
    AppLog::info("voices", "added a clip to " + voice->display + ", " +
                               std::to_string(voice->clips.size()) + " in total now");
    return *voice;
}

bool VoiceLibrary::removeClip(std::string_view voiceId, std::int64_t index) {
    std::optional<VoiceInfo> voice = find(voiceId);
    if (!voice) return false;
    if (index < 0 || index >= static_cast<std::int64_t>(voice->clips.size())) return false;
    if (voice->clips.size() == 1)
        throw TtsError(TtsErrorCode::badAudio, T("这是最后一段参考音频了,要删就把整个音色删掉"));
    const VoiceClip removed = voice->clips[static_cast<std::size_t>(index)];
    voice->clips.erase(voice->clips.begin() + index);
    replace(*voice);
    deleteClipFile(clipsDirectory, removed);
    save();
    return true;
}

std::string VoiceLibrary::clipPath(const VoiceClip& clip) const {
    return clipPathIn(clipsDirectory, clip.fileName);
}

std::optional<SharedBytes> VoiceLibrary::referenceAudio(const VoiceInfo& voice) const {
    return zepho::referenceAudio(voice, clipsDirectory);
}

std::string VoiceLibrary::referenceText(const VoiceInfo& voice) {
    return zepho::referenceText(voice);
}

}  // namespace zepho
