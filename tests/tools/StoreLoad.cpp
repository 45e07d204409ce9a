// The stores of a data root at work on one thread, so that a tracer can let exactly the nth call of a
// kind fail. Usage: store-load <data root> prepare|work|check [what must be there …]
//
// Tells on stdout, one a line, by a call that no fault is meant for: what was promised ("clip …",
// "voice …", "binding …"), what was refused with words ("told …"), what should be there and is not
// ("missing …"), and "end".
#include <cstdlib>
#include <string>

#include <sys/uio.h>
#include <unistd.h>

#include "core/audio/PcmBuffer.h"
#include "core/base/TtsError.h"
#include "core/config/AppConfig.h"
#include "core/diag/AppLog.h"
#include "core/store/VoiceLibrary.h"
#include "core/store/WavCache.h"

namespace {

using namespace zepho;

constexpr int rounds = 3;

void tell(std::string line) {
    line += '\n';
    const iovec piece{line.data(), line.size()};
    if (::writev(1, &piece, 1) < 0) std::abort();
}

TtsResult clip(int number) {
    PcmBuffer pcm = PcmBuffer::silence(8000, 100 + number);
    TtsResult result;
    result.wav = buildWav(pcm, 1);
    result.sampleRate = 8000;
    result.durationMs = pcm.durationMs();
    return result;
}

struct Stores {
    explicit Stores(const std::string& root)
        : configFile(root + "/data/config.json"),
          config(loaded(configFile)),
          voices(*config, root + "/data/voices.json", root + "/clone/"),
          cache(root + "/temp", 0) {
        voices.load();
    }

    static std::unique_ptr<AppConfig> loaded(const std::string& path) {
        auto made = std::make_unique<AppConfig>();
        made->load(path);
        return made;
    }

    void add(const std::string& name, int number) {
        cache.put("key-" + name, name, clip(number));
        if (cache.contains("key-" + name)) tell("clip key-" + name);
        VoiceCloneSpec spec;
        spec.display = name;
        spec.clips.push_back({buildWav(PcmBuffer::silence(8000, 1000 + number), 1), name});
        try {
            tell("voice " + voices.addClone(spec).id);
        } catch (const TtsError& error) {
            tell("told " + error.message);
        }
        config->setAirlineVoice(name, "", TtsGender::auto_, "voice-of-" + name);
        config->save(configFile);
        tell("binding " + name);
        cache.flush();
    }

    void saveAll() {
        voices.save();
        config->save(configFile);
        cache.flush();
    }

    [[nodiscard]] bool has(const std::string& what) {
        const std::string name = what.substr(what.find(' ') + 1);
        if (what.starts_with("clip ")) return cache.readAudio(name).has_value();
        if (what.starts_with("voice ")) return voices.find(name).has_value();
        return !config->airlineVoice(name, "", TtsGender::auto_).empty();
    }

    const std::string configFile;
    const std::unique_ptr<AppConfig> config;
    VoiceLibrary voices;
    WavCache cache;
};

void tellLog() {
    for (const LogEntry& entry : AppLog::snapshot())
        if (entry.level >= LogLevel::warn &&
            entry.text.find("s; the official guidance") == std::string::npos)
            tell("told " + entry.text);
}

}  // namespace

int main(int count, char** words) {
    if (count < 3) return 2;
    const std::string action = words[2];
    Stores stores(words[1]);
    if (action == "prepare") {
        stores.add("OLD", 0);
    } else {
        for (int at = 3; at < count; ++at)
            if (!stores.has(words[at])) tell(std::string("missing ") + words[at]);
    }
    if (action == "work") {
        for (int round = 1; round <= rounds; ++round)
            stores.add("NEW" + std::to_string(round), round);
        // A save that failed is made good by the next one, whatever it was made for.
        stores.saveAll();
        stores.saveAll();
    }
    tellLog();
    tell("end");
    return 0;
}
