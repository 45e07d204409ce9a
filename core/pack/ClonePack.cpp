#include "core/pack/ClonePack.h"

#include <algorithm>

#include "core/base/Hash.h"
#include "core/config/AppConfig.h"
#include "core/diag/Language.h"
#include "core/pack/PackManifest.h"
#include "core/platform/Files.h"
#include "core/store/VoiceLibrary.h"

namespace zepho {

std::string PackSummary::describe() const {
    std::string text =
        TF("音色 %d 个(新增 %d,复用 %d)· 参考音频 %d 段 · 绑定 %d 条 · %.1f MB", voices,
           voicesAdded, voicesReused, clips, bindings, static_cast<double>(bytes) / 1048576);
    for (const std::string& note : notes) text += "\n· " + note;
    return text;
}

std::string packFingerprint(const std::vector<std::string>& voiceIds,
                            const std::vector<std::string>& airlineKeys, const VoiceLibrary& voices,
                            const AppConfig& config) {
    std::vector<std::string> keys = airlineKeys;
    std::sort(keys.begin(), keys.end());
    std::vector<std::string> ids = voiceIds;
    for (const std::string& key : keys) {
        const auto parts = splitAirlineKey(key);
        if (!parts) continue;
        std::string id = config.airlineVoice(parts->airline, parts->language, parts->gender);
        if (!id.empty()) ids.push_back(std::move(id));
    }
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());

    std::string text;
    for (const std::string& id : ids) {
        const auto voice = voices.find(id);
        if (!voice) continue;
        text += "V|" + voice->display + "|" + voice->language + "|" +
                std::string(ttsGenderCode(voice->gender)) + "|" + voice->style + "\n";
        for (const VoiceClip& clip : voice->clips) {
            const auto audio =
                clip.fileName.empty() ? std::nullopt : loadFileBytes(voices.clipPath(clip));
            text += "C|" + clip.text + "|" + (audio ? sha256Bytes(*audio) : "missing") + "\n";
        }
    }
    for (const std::string& key : keys) text += "B|" + key + "\n";
    return sha256Utf8(text);
}

}  // namespace zepho
