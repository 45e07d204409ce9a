// The voices that the system can speak with: their list in voices.json, their reference clips, and
// the routing from a request to a voice.
//
// One object for the life of the service, used from any thread. `lock` is held for list work only;
// files are read and written outside it, and the configuration's lock is never taken under it.
// Operations throw TtsError where their comment says so; the disk's failures to take the list are
// logged and the list in memory goes on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/VoiceInfo.h"
#include "core/config/AppConfig.h"
#include "core/config/ZEPHOPaths.h"
#include "core/platform/Bytes.h"
#include "core/store/VoiceList.h"

namespace zepho {

// Whom a request reached. `explicit_` tells that it named the voice itself.
struct ResolvedVoice {
    std::optional<VoiceInfo> voice;
    bool explicit_ = false;
};

class VoiceLibrary {
public:
    // `settings` holds the bindings and outlives the library. `clips` ends in "/".
    explicit VoiceLibrary(AppConfig& settings, std::string file = ZEPHOPaths::voicesFile(),
                          std::string clips = ZEPHOPaths::voicesDir());
    VoiceLibrary(const VoiceLibrary&) = delete;
    VoiceLibrary& operator=(const VoiceLibrary&) = delete;

    // Replaces the list by that of the file; once at start. Never writes.
    void load();
    // Of saves at the same time the one with the newest list is the last to reach the disk.
    void save();

    // The list, in the order in which the voices came.
    [[nodiscard]] std::vector<VoiceInfo> all() const;
    [[nodiscard]] std::size_t count() const;
    // The voices of exactly this language; all of them for the empty text.
    [[nodiscard]] std::vector<VoiceInfo> forLanguage(std::string_view language) const;
    // Trimmed and without regard to case; the first match in the list.
    [[nodiscard]] std::optional<VoiceInfo> find(std::string_view id) const;
    [[nodiscard]] std::optional<VoiceInfo> findByDisplay(std::string_view name) const;

    // The first voice with this name without regard to case, and exactly this language and gender.
    [[nodiscard]] std::optional<VoiceInfo> findAlike(std::string_view display,
                                                     std::string_view language,
                                                     TtsGender gender) const;

    // What makes two clones the same: their clips and transcripts, in order, and nothing else.
    [[nodiscard]] static std::string contentKey(const VoiceCloneSpec& spec);
    // The id that addClone() would give now.
    [[nodiscard]] std::string predictId(const VoiceCloneSpec& spec) const;
    // Throws badAudio and cloneFailed; clips that were stored before the failure stay behind.
    VoiceInfo addClone(const VoiceCloneSpec& spec);
    // The same but for the save, which is the caller's, after one or after several.
    VoiceInfo addUnsavedClone(const VoiceCloneSpec& spec);
    // Puts the voice in the place of the one with its id, and saves. No such voice: does nothing.
    void update(const VoiceInfo& voice);
    // Also removes the voice's bindings and clips. False if there is no such voice.
    bool remove(std::string_view id);

    // Throws badVoice, badAudio and cloneFailed.
    VoiceInfo addClip(std::string_view voiceId, const VoiceClipInput& input);
    // False for an unknown voice or clip; throws badAudio for the voice's only clip.
    bool removeClip(std::string_view voiceId, std::int64_t index);
    // Empty where the clip's file name is unusable.
    [[nodiscard]] std::string clipPath(const VoiceClip& clip) const;

    // What the engine gets as the voice's reference; see ReferenceAudio.h.
    [[nodiscard]] std::optional<SharedBytes> referenceAudio(const VoiceInfo& voice) const;
    [[nodiscard]] static std::string referenceText(const VoiceInfo& voice);

    // The voice for a request: the one it names, else the one bound to its airline, language and
    // gender, else none. Throws badVoice if the named one does not exist.
    [[nodiscard]] ResolvedVoice resolve(const TtsRequest& request) const;
    // The genders for which resolve() finds a bound voice; auto_ alone where there is none.
    [[nodiscard]] std::set<TtsGender> availableGenders(std::string_view airline,
                                                       std::string_view language) const;
    // A placeholder for what is not bound; it is in no list.
    [[nodiscard]] static VoiceInfo fallbackVoice(std::string_view language, TtsGender gender);

private:
    [[nodiscard]] std::string makeIdLocked(const std::string& key) const;
    [[nodiscard]] SharedVoice findShared(std::string_view id) const;
    bool replace(const VoiceInfo& voice);

    // Constant after construction.
    AppConfig& config;
    const std::string voicesFile;
    const std::string clipsDirectory;

    // Held while the file is written, so that no older list follows a newer one; taken before `lock`.
    std::mutex writing;

    // Guarded by lock.
    mutable std::mutex lock;
    VoiceList items;
};

}  // namespace zepho
