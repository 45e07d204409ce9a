#include "app/pages/HubTransfers.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "app/Outcome.h"
#include "core/config/ZEPHOPaths.h"
#include "core/pack/ClonePack.h"
#include "core/platform/Uuid.h"

namespace zepho {
namespace {

constexpr std::size_t longestName = 100;

// A file that is gone when this is.
class PassingFile {
public:
    explicit PassingFile(std::string where) : path(std::move(where)) {}
    PassingFile(const PassingFile&) = delete;
    PassingFile& operator=(const PassingFile&) = delete;
    ~PassingFile() {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
    const std::string path;
};

// The id comes from a stranger: as part of a file name it must not lead elsewhere.
std::string nameOf(const std::string& id) {
    std::string name = id.substr(0, longestName);
    std::replace_if(
        name.begin(), name.end(),
        [](unsigned char c) {
            const bool plain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                               (c >= 'A' && c <= 'Z') || c == '-' || c == '_' || c == '.';
            return !plain;
        },
        '_');
    return name;
}

std::string temporaryPack() {
    const Uuid id = Uuid::make();
    return (std::filesystem::temp_directory_path() /
            ("zephon-" + std::to_string(id.high) + std::to_string(id.low) + ".cln"))
        .string();
}

}  // namespace

std::optional<BindingParts> bindingParts(const std::string& key) {
    const std::size_t first = key.find(':');
    if (first == std::string::npos) return {};
    const std::size_t second = key.find(':', first + 1);
    if (second == std::string::npos) return {};
    const std::size_t third = std::min(key.find(':', second + 1), key.size());
    return BindingParts{key.substr(0, first), key.substr(first + 1, second - first - 1),
                        ttsGenderFromCode(key.substr(second + 1, third - second - 1))};
}

HubFetched fetchShare(const HubItem& item, TtsService& service, AppConfig& config,
                      const HubService& hub) {
    HubFetched fetched;
    const PassingFile file(ZEPHOPaths::cacheDir() + "hub-" + nameOf(item.id) + ".cln");
    if (const auto failure = hubDownload(item, file.path, hub)) {
        fetched.downloadError = *failure;
        return fetched;
    }
    const Outcome<PackSummary> imported =
        attempt([&] { return importPack(file.path, service.voices, config); });
    if (!imported.ok()) {
        fetched.importError = imported.error;
        return fetched;
    }
    config.save();
    fetched.summary = imported.value->describe();
    return fetched;
}

HubSent sendShare(const ShareChoice& choice, TtsService& service, AppConfig& config,
                  const HubService& hub) {
    HubSent sent;
    HubUpload upload;
    upload.kind = choice.kind;
    upload.userId = choice.userId;
    upload.title = choice.title;
    upload.note = choice.note;
    std::vector<std::string> voiceIds;
    std::vector<std::string> keys;
    if (choice.kind == HubKind::broadcasts) {
        keys.push_back(choice.picked);
        if (const auto parts = bindingParts(choice.picked)) {
            upload.language = parts->language;
            upload.gender = ttsGenderCode(parts->gender);
        }
    } else {
        voiceIds.push_back(choice.picked);
        if (const std::optional<VoiceInfo> voice = service.voices.find(choice.picked)) {
            upload.language = voice->language;
            upload.gender = ttsGenderCode(voice->gender);
        }
    }
    const Outcome<std::string> path = attempt(temporaryPack);
    if (!path.ok()) {
        sent.packingError = path.error;
        return sent;
    }
    const PassingFile file(*path.value);
    const Outcome<PackSummary> packed = attempt([&] {
        return choice.kind == HubKind::broadcasts
                   ? exportPack(file.path, keys, service.voices, config)
                   : exportVoicePack(file.path, voiceIds, service.voices);
    });
    if (!packed.ok()) {
        sent.packingError = packed.error;
        return sent;
    }
    upload.filePath = file.path;
    upload.voices = packed.value->voices;
    upload.bindings = packed.value->bindings;
    upload.fingerprint = packFingerprint(voiceIds, keys, service.voices, config);
    sent.upload = hubUpload(upload, hub);
    // The key must not be lost, even if nobody waits for it any more.
    if (sent.upload.ok) {
        config.addHubShare({sent.upload.id, choice.title, sent.upload.deleteKey});
        config.save();
    }
    return sent;
}

}  // namespace zepho
