#include <deque>
#include <future>
#include <set>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/config/AppConfig.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/pack/ClonePack.h"
#include "core/pack/PackManifest.h"
#include "core/pack/PackNotes.h"
#include "core/pack/ZipWriter.h"
#include "core/platform/Files.h"
#include "core/platform/Thread.h"
#include "core/store/VoiceLibrary.h"

namespace zepho {
namespace {

constexpr std::size_t packingThreads = 2;

// A clip's entry, or nothing if its file cannot be read.
std::optional<PackedEntry> packClip(const std::string& path, const std::string& fileName) {
    nameThisThread("pack-clip");
    std::optional<Bytes> audio = path.empty() ? std::nullopt : loadFileBytes(path);
    if (!audio) return std::nullopt;
    return packEntry({std::string(packAudioFolder) + fileName, std::move(*audio)});
}

// Collects what goes into a pack, and writes it in the order in which it was collected, whichever
// clip is compressed first.
class PackBuilder {
public:
    explicit PackBuilder(const VoiceLibrary& library) : voices(library) {}

    void bind(const std::string& key, const std::string& voiceId) {
        manifest.airlines[key] = voiceId;
        ++summary.bindings;
    }

    // False if a voice of that id came before.
    bool isNew(const std::string& voiceId) { return seen.insert(voiceId).second; }

    void add(const VoiceInfo& voice) {
        manifest.voices.push_back(voice);
        ++summary.voices;
        for (const VoiceClip& clip : voice.clips)
            steps.push_back({voices.clipPath(clip), clip.fileName,
                             TF("%@ 少了一段参考音频(%@),包里没有它", nameInNote(voice.display),
                                nameInNote(clip.fileName))});
    }

    void note(std::string text) { steps.push_back({"", "", std::move(text)}); }

    PackSummary write(const std::string& to) {
        refuseIf(!isWithinPackLimits(manifest), to);
        next = steps.begin();
        saveFilePieces(to, [&](Bytes& piece) {
            const bool more = addClip(to);
            if (!more) addEnd(to);
            archive.takeOut(piece);
            return more;
        });
        summary.notes = notes.take();
        return std::move(summary);
    }

private:
    // One clip to pack, or with an empty path only the note.
    struct Step {
        std::string path;
        std::string fileName;
        std::string failure;
    };

    struct Packing {
        Step step;
        std::future<std::optional<PackedEntry>> entry;
    };

    static void refuseIf(bool tooLarge, const std::string& to) {
        if (tooLarge) throw std::system_error(std::make_error_code(std::errc::file_too_large), to);
    }

    // The next clip, or its note; false after the last.
    bool addClip(const std::string& to) {
        // As many clips as are being compressed are in memory.
        for (; running.size() < packingThreads && next != steps.end(); ++next)
            running.push_back(
                {*next, std::async(std::launch::async, packClip, next->path, next->fileName)});
        if (running.empty()) return false;
        Packing packing = std::move(running.front());
        running.pop_front();
        const std::optional<PackedEntry> entry = packing.entry.get();
        if (!entry) {
            notes.add(packing.step.failure);
            return true;
        }
        archive.add(*entry);
        ++summary.clips;
        summary.bytes += static_cast<std::int64_t>(entry->usize);
        refuseIf(static_cast<std::uint64_t>(summary.bytes) > maxPackBytes - maxManifestBytes, to);
        return true;
    }

    void addEnd(const std::string& to) {
        const Bytes json =
            jsonData(packManifestJson(manifest, std::chrono::system_clock::now()), true);
        refuseIf(json.size() > maxManifestBytes, to);
        archive.add(packManifestName, json);
        static_cast<void>(archive.finish());
    }

    const VoiceLibrary& voices;
    PackManifest manifest;
    PackSummary summary;
    PackNotes notes;
    std::set<std::string> seen;
    std::vector<Step> steps;
    std::vector<Step>::const_iterator next;
    std::deque<Packing> running;
    ZipWriter archive;
};

}  // namespace

PackSummary exportPack(const std::string& to, const std::vector<std::string>& airlineKeys,
                       const VoiceLibrary& voices, const AppConfig& config) {
    PackBuilder pack(voices);
    for (const std::string& key : airlineKeys) {
        const auto parts = splitAirlineKey(key);
        if (!parts) continue;
        const std::string id = config.airlineVoice(parts->airline, parts->language, parts->gender);
        if (id.empty()) continue;
        pack.bind(key, id);
        if (!pack.isNew(id)) continue;
        if (const auto voice = voices.find(id))
            pack.add(*voice);
        else
            pack.note(TF("绑定 %@ 指向的音色 %@ 已经不在了,没打进包里", key, id));
    }
    PackSummary summary = pack.write(to);
    AppLog::info("clonepack", "exported " + lastPathComponent(to) + ": " + summary.describe());
    return summary;
}

PackSummary exportVoicePack(const std::string& to, const std::vector<std::string>& voiceIds,
                            const VoiceLibrary& voices) {
    PackBuilder pack(voices);
    for (const std::string& id : voiceIds) {
        if (!pack.isNew(id)) continue;
        if (const auto voice = voices.find(id))
            pack.add(*voice);
        else
            pack.note(TF("音色 %@ 已经不在了,没打进包里", id));
    }
    PackSummary summary = pack.write(to);
    AppLog::info("clonepack",
                 "exported voices-only pack " + lastPathComponent(to) + ": " + summary.describe());
    return summary;
}

}  // namespace zepho
