#include "app/RequestCommand.h"

#include <cmath>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"

namespace zepho {
namespace {

// One word for the shell, whatever is in it.
std::string quoted(const std::string& text) {
    std::string word = "'";
    for (const char c : text) {
        if (c == '\'')
            word += "'\\''";
        else
            word += c;
    }
    return word + "'";
}

}  // namespace

std::string curlLine(const RequestLog& record, const std::string& baseUrl,
                     const std::string& text) {
    Json body = {{"text", text}};
    if (!record.language.empty()) body["language"] = record.language;
    if (!record.voice.empty()) body["voice"] = record.voice;
    if (record.speed != 1.0F) body["speed"] = std::round(double(record.speed) * 1000) / 1000;
    return "curl -sS " + quoted(baseUrl + record.route) +
           " -H 'Content-Type: application/json' -d " + quoted(jsonString(body)) +
           " -o announcement.wav";
}

}  // namespace zepho
