#include <filesystem>
#include <map>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/base/TtsError.h"
#include "core/config/AppConfig.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/pack/ClonePack.h"
#include "core/pack/PackManifest.h"
#include "core/pack/PackNotes.h"
#include "core/pack/ZipFormat.h"
#include "core/pack/ZipReader.h"
#include "core/platform/Files.h"
#include "core/platform/Unicode.h"
#include "core/store/VoiceLibrary.h"

namespace zepho {
namespace {

constexpr int voicesPerSave = 100;

[[noreturn]] void refuse(std::string message) {
    throw TtsError(TtsErrorCode::badAudio, std::move(message));
}

ZipReader openArchive(const std::string& path) {
    std::error_code error;
    // A pipe would never end, and a device has no size to go by.
    if (!std::filesystem::is_regular_file(path, error)) throw ZipError::notAZip();
    if (std::filesystem::file_size(path, error) > 2 * maxPackBytes)
        throw ZipError::corrupt("the file is too large for a pack");
    ZipReader archive(path);
    archive.refuseBombs(maxPackBytes);
    return archive;
}

ZipReader openPack(const std::string& path) {
    try {
        return openArchive(path);
    } catch (const ZipError& error) {
        refuse(T("这个文件打不开(") + error.what() + T(")。.cln 是个压缩包,选错文件了?"));
    }
}

PackManifest manifestOf(const ZipReader& archive) {
    const std::string name(packManifestName);
    const auto corrupt = [&] { refuse(T("包里的 ") + name + T(" 坏了,读不出来。")); };
    if (!archive.contains(name)) refuse(T("包里没有 ") + name + T(",这不是 Zephon 的克隆包。"));
    std::optional<Json> root;
    try {
        std::uint64_t budget = maxManifestBytes;
        root = parseJsonObject(archive.read(name, budget));
    } catch (const ZipError&) {
        corrupt();
    }
    if (!root) corrupt();
    if (jStr(&*root, "format") != packFormat)
        refuse(T("这个包不是 Zephon 的克隆包(format 对不上)。"));
    std::optional<PackManifest> manifest = readPackManifest(*root);
    if (!manifest) corrupt();
    return std::move(*manifest);
}

// One import: takes the pack's voices in one after the other.
class PackImporter {
public:
    PackImporter(const ZipReader& source, VoiceLibrary& library)
        : archive(source), voices(library) {}

    void takeVoice(const VoiceInfo& offered) {
        ++summary.voices;
        if (const auto same = voices.findAlike(offered.display, offered.language, offered.gender))
            return reuse(offered, same->id);

        const VoiceCloneSpec spec = specOf(offered);
        if (spec.clips.empty()) {
            notes.add(TF("「%@」一段音频都没有,没法导入", nameInNote(offered.display)));
            return;
        }
        // Only a voice that another thread has added just now can have the id that comes next.
        if (const auto added = voices.find(voices.predictId(spec)))
            return reuse(offered, added->id);
        try {
            localIds[offered.id] = voices.addUnsavedClone(spec).id;
            // Each save writes the whole list: too much for every voice of a large pack.
            if (++summary.voicesAdded % voicesPerSave == 0) voices.save();
        } catch (const TtsError& error) {
            notes.add(TF("「%@」导入失败:%@", nameInNote(offered.display), error.message));
        }
    }

    void takeBindings(const std::map<std::string, std::string>& airlines, AppConfig& config) {
        for (const auto& [key, packId] : airlines) {
            const auto parts = splitAirlineKey(key);
            const auto local = localIds.find(packId);
            if (!parts || local == localIds.end() || trimmedView(parts->airline).empty()) continue;
            config.setAirlineVoice(parts->airline, parts->language, parts->gender, local->second);
            ++summary.bindings;
        }
    }

    PackSummary finish() {
        summary.notes = notes.take();
        return std::move(summary);
    }

private:
    void reuse(const VoiceInfo& offered, const std::string& localId) {
        localIds[offered.id] = localId;
        ++summary.voicesReused;
        notes.add(TF("已经有「%@」了,这次没重复导入", nameInNote(offered.display)));
    }

    VoiceCloneSpec specOf(const VoiceInfo& offered) {
        VoiceCloneSpec spec{offered.display, offered.language, offered.gender, {},
                            offered.style,   offered.note};
        for (const VoiceClip& clip : offered.clips) {
            // The name is looked up in the archive only; it never becomes a path.
            try {
                Bytes audio = archive.read(std::string(packAudioFolder) + clip.fileName, budget);
                summary.bytes += static_cast<std::int64_t>(audio.size());
                ++summary.clips;
                spec.clips.push_back({std::move(audio), clip.text});
            } catch (const ZipError&) {
                notes.add(TF("「%@」少了一段音频(%@),这一段跳过", nameInNote(offered.display),
                             nameInNote(clip.fileName)));
            }
        }
        return spec;
    }

    const ZipReader& archive;
    VoiceLibrary& voices;
    PackSummary summary;
    PackNotes notes;
    // Entries may inflate to more than they claim; all of them together may not.
    std::uint64_t budget = maxPackBytes;
    std::map<std::string, std::string> localIds;  // by the id in the pack
};

}  // namespace

PackSummary importPack(const std::string& from, VoiceLibrary& voices, AppConfig& config) {
    const ZipReader archive = openPack(from);
    const PackManifest manifest = manifestOf(archive);
    PackImporter import_(archive, voices);
    try {
        for (const VoiceInfo& voice : manifest.voices) import_.takeVoice(voice);
    } catch (...) {
        // Out of memory. What has come so far is there, and stays.
        voices.save();
        throw;
    }
    // Before the bindings, which else could be on disk without the voices that they lead to.
    voices.save();
    import_.takeBindings(manifest.airlines, config);
    config.save();
    PackSummary summary = import_.finish();
    AppLog::info("clonepack", "imported " + lastPathComponent(from) + ": " + summary.describe());
    return summary;
}

}  // namespace zepho
