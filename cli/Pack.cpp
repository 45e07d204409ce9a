// zephonctl pack: voices from a clone pack into running services, and from a data root into a pack.
//
// A service takes voices one by one and gives no recordings away. So an import unpacks here and clones
// each voice over HTTP, and an export reads the files of a service, on its own machine.
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <system_error>

#include <nlohmann/json.hpp>

#include "cli/Commands.h"
#include "core/base/TtsError.h"
#include "core/base/TtsTypes.h"
#include "core/config/AppConfig.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/Language.h"
#include "core/pack/ClonePack.h"
#include "core/pack/PackManifest.h"
#include "core/platform/Errors.h"
#include "core/platform/Files.h"
#include "core/platform/Unicode.h"
#include "core/platform/Uuid.h"
#include "core/store/VoiceLibrary.h"

namespace zephonctl {
namespace {

namespace fs = std::filesystem;

// A data root of this call alone.
class ScratchRoot {
public:
    ScratchRoot()
        : path(fs::temp_directory_path() /
               ("zephonctl-" + std::to_string(zepho::Uuid::make().high))) {
        fs::create_directory(path);
        fs::permissions(path, fs::perms::owner_all);
        ::setenv("ZEPHO_HOME", path.c_str(), 1);
        zepho::ZEPHOPaths::ensureDirectories();
    }
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;
    ~ScratchRoot() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }

private:
    const fs::path path;
};

// The same rule as between two machines that exchange packs.
bool isSame(const zephon::Voice& there, const zepho::VoiceInfo& here) {
    return zepho::lowercased(there.display) == zepho::lowercased(here.display) &&
           there.language == here.language && there.gender == zepho::ttsGenderCode(here.gender);
}

zephon::CloneOrder orderOf(const zepho::VoiceInfo& voice, const zepho::VoiceLibrary& library) {
    zephon::CloneOrder order;
    order.display = voice.display;
    order.language = voice.language;
    order.gender = zepho::ttsGenderCode(voice.gender);
    order.style = voice.style;
    order.note = voice.note;
    for (const zepho::VoiceClip& clip : voice.clips)
        if (const auto bytes = zepho::loadFileBytes(library.clipPath(clip)))
            order.clips.push_back({zephon::Bytes(bytes->begin(), bytes->end()), clip.text});
    return order;
}

struct Taken {
    int added = 0;
    int reused = 0;
    int bindings = 0;
};

Taken giveTo(zephon::Client& client, const std::string& url, const zepho::VoiceLibrary& library,
             const zepho::AppConfig& config) {
    Taken taken;
    const std::vector<zephon::Voice> known = valueOf(client.voices(), url);
    std::map<std::string, std::string> ids;  // from the id here to the id there
    for (const zepho::VoiceInfo& voice : library.all()) {
        std::string id;
        for (const zephon::Voice& one : known)
            if (id.empty() && isSame(one, voice)) id = one.id;
        ++(id.empty() ? taken.added : taken.reused);
        if (id.empty()) id = valueOf(client.clone(orderOf(voice, library)), url).id;
        ids[voice.id] = id;
    }
    for (const auto& [key, voice] : config.airlinesSnapshot()) {
        const auto parts = zepho::splitAirlineKey(key);
        const auto id = ids.find(voice);
        if (!parts || id == ids.end()) continue;
        (void)valueOf(client.bind(std::string(parts->airline), std::string(parts->language),
                                  std::string(zepho::ttsGenderCode(parts->gender)), id->second),
                      url);
        ++taken.bindings;
    }
    return taken;
}

}  // namespace

int importPack(const Common& common, const std::string& file) try {
    const std::string pack = fs::absolute(file);
    zepho::setUiLang(zepho::UiLang::en);
    const ScratchRoot scratch;
    zepho::AppConfig config;
    zepho::VoiceLibrary library(config);
    const zepho::PackSummary summary = zepho::importPack(pack, library, config);
    for (const std::string& note : summary.notes) std::cerr << note << '\n';
    for (const std::string& url : common.urls) {
        zephon::Client client = common.client(url);
        const Taken taken = giveTo(client, url, library, config);
        if (common.json)
            printJson(
                common, url,
                nlohmann::json{
                    {"added", taken.added}, {"reused", taken.reused}, {"bindings", taken.bindings}}
                    .dump());
        else
            std::cout << url << ": " << taken.added << " voices added, " << taken.reused
                      << " were there, " << taken.bindings << " bindings\n";
    }
    return summary.notes.empty() ? done : notInOrder;
} catch (const zepho::TtsError& failure) {
    throw Failure{wrongUsage, file + ": " + failure.message};
}

int exportPack(const Common& common, const ExportOptions& options) try {
    zepho::setUiLang(zepho::UiLang::en);
    if (!options.dataRoot.empty())
        ::setenv("ZEPHO_HOME", fs::absolute(options.dataRoot).c_str(), 1);
    if (!zepho::fileExists(zepho::ZEPHOPaths::voicesFile()))
        throw Failure{wrongUsage, "no voices below " + zepho::ZEPHOPaths::dataRoot() +
                                      "; --data-root names the data root of a service"};
    zepho::AppConfig config;
    config.load();
    zepho::VoiceLibrary library(config);
    library.load();
    const std::string to = fs::absolute(options.file);
    std::vector<std::string> keys;
    for (const auto& [key, voice] : config.airlinesSnapshot()) keys.push_back(key);
    const zepho::PackSummary summary = options.voices.empty()
                                           ? zepho::exportPack(to, keys, library, config)
                                           : zepho::exportVoicePack(to, options.voices, library);
    if (common.json)
        std::cout << nlohmann::json{{"voices", summary.voices},
                                    {"bindings", summary.bindings},
                                    {"clips", summary.clips},
                                    {"bytes", summary.bytes}}
                         .dump()
                  << std::endl;
    else
        std::cout << summary.describe() << '\n';
    return summary.notes.empty() ? done : notInOrder;
} catch (const std::system_error& failure) {
    throw Failure{outputFailed, zepho::describeError(failure)};
}

}  // namespace zephonctl
