// The commands about voices and their bindings. Each may go to several services, one after the other.
#include <iostream>

#include <nlohmann/json.hpp>

#include "cli/Commands.h"

namespace zephonctl {
namespace {

// A column of a table for people; wide characters take two places.
std::string padded(const std::string& text, std::size_t width) {
    std::size_t places = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte & 0xC0U) != 0x80) places += byte >= 0xE3 && byte <= 0xED ? 2 : 1;
    }
    return text + std::string(places < width ? width - places : 1, ' ');
}

std::string bindingsJson(const zephon::Bindings& bindings) {
    return nlohmann::json(bindings).dump();
}

void printBindings(const Common& common, const std::string& url, const zephon::Bindings& bindings) {
    if (common.json) return printJson(common, url, bindingsJson(bindings));
    printHeading(common, url);
    for (const auto& [key, voice] : bindings) std::cout << padded(key, 24) << voice << '\n';
}

}  // namespace

int listVoices(const Common& common) {
    for (const std::string& url : common.urls) {
        zephon::Client client = common.client(url);
        if (common.json) {
            printJson(common, url, fetch(client, url, "/v1/voices"));
            continue;
        }
        const std::vector<zephon::Voice> voices = valueOf(client.voices(), url);
        printHeading(common, url);
        std::cout << padded("ID", 17) << padded("LANGUAGE", 10) << padded("GENDER", 9)
                  << padded("CLIPS", 7) << "NAME\n";
        for (const zephon::Voice& voice : voices)
            std::cout << padded(voice.id, 17)
                      << padded(voice.language.empty() ? "any" : voice.language, 10)
                      << padded(voice.gender, 9) << padded(std::to_string(voice.clips.size()), 7)
                      << voice.display << '\n';
    }
    return done;
}

int removeVoice(const Common& common, const std::string& voice) {
    for (const std::string& url : common.urls) {
        zephon::Client client = common.client(url);
        const std::string id = valueOf(client.removeVoice(voiceId(client, url, voice)), url);
        if (common.json)
            printJson(common, url, nlohmann::json{{"removed", id}}.dump());
        else
            std::cout << url << ": removed " << id << '\n';
    }
    return done;
}

int clone(const Common& common, CloneOptions options) {
    if (options.clips.size() != options.texts.size())
        throw Failure{wrongUsage, "each --clip needs one --text, what is said in it"};
    for (std::size_t i = 0; i < options.clips.size(); ++i) {
        const std::string bytes = readInput(options.clips[i]);
        options.order.clips.push_back(
            {zephon::Bytes(bytes.begin(), bytes.end()), options.texts[i]});
    }
    for (const std::string& url : common.urls) {
        zephon::Client client = common.client(url);
        const zephon::Voice voice = valueOf(client.clone(options.order), url);
        if (!options.airline.empty())
            (void)valueOf(client.bind(options.airline, options.order.language, options.order.gender,
                                      voice.id),
                          url);
        if (common.json)
            printJson(common, url,
                      nlohmann::json{{"id", voice.id}, {"display", voice.display}}.dump());
        else
            std::cout << url << ": " << voice.id << '\n';
    }
    return done;
}

int bind(const Common& common, const BindOptions& options) {
    const bool changes = options.remove || !options.voice.empty();
    if (options.remove && (!options.voice.empty() || options.isDefault))
        throw Failure{wrongUsage, "--remove takes an airline's binding away, without a --voice"};
    if (changes && options.airline.empty() != options.isDefault)
        throw Failure{wrongUsage, "bind a voice to an --airline or as a --default"};
    if (changes && options.isDefault && options.gender != "female" && options.gender != "male")
        throw Failure{wrongUsage, "a default voice is bound for -g female or -g male"};
    for (const std::string& url : common.urls) {
        zephon::Client client = common.client(url);
        if (!changes) {
            zephon::Bindings all = valueOf(client.bindings(), url);
            // A default has no airline in front, so the two never meet.
            all.merge(valueOf(client.defaults(), url));
            printBindings(common, url, all);
            continue;
        }
        const std::string id = options.remove ? std::string() : voiceId(client, url, options.voice);
        const bool isFemale = options.gender == "female";
        printBindings(
            common, url,
            valueOf(
                options.isDefault
                    ? client.setDefaults(options.language, isFemale ? id : "", isFemale ? "" : id)
                    : client.bind(options.airline, options.language, options.gender, id),
                url));
    }
    return done;
}

}  // namespace zephonctl
