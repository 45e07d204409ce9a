// The API over a whole service whose engine does as the test tells.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/http/TtsHttpService.h"
#include "core/platform/Bytes.h"
#include "tests/support/HttpClient.h"
#include "tests/support/ServiceFixture.h"

namespace zepho::test {

inline std::string base64(ByteView bytes) {
    constexpr std::string_view letters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t left = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 3; ++j) group = group << 8 | (j < left ? bytes[i + j] : 0U);
        for (std::size_t j = 0; j < 4; ++j)
            text += j <= left ? letters[group >> (18 - 6 * j) & 63] : '=';
    }
    return text;
}

class ApiFixture : public ServiceFixture {
protected:
    struct Answer {
        int status = 0;
        std::map<std::string, std::string> headers;
        std::string body;
        Json json;  // null where the body is no JSON

        [[nodiscard]] std::string error() const { return json.value("error", ""); }
        [[nodiscard]] std::string message() const { return json.value("message", ""); }
    };

    void SetUp() override {
        ServiceFixture::SetUp();
        config->bindAddress = "127.0.0.1";
        http = TtsHttpService::make(service);
    }
    void TearDown() override {
        http.reset();
        ServiceFixture::TearDown();
    }

    // `target` is a path and perhaps "?" and a query.
    Answer ask(const std::string& method, const std::string& target, const std::string& body = {},
               std::map<std::string, std::string> headers = {},
               const std::string& peer = "127.0.0.1") const {
        HttpRequest request;
        request.method = method;
        request.path = target.substr(0, target.find('?'));
        if (request.path.size() < target.size())
            request.query = target.substr(request.path.size() + 1);
        request.headers = std::move(headers);
        request.body = toBytes(body);
        request.peer = peer;
        const HttpResponse response = http->dispatch(request);
        Answer answer{response.status, response.headers, std::string(asText(response.body)), {}};
        answer.json = Json::parse(answer.body, nullptr, false);
        if (answer.json.is_discarded()) answer.json = nullptr;
        const auto type = answer.headers.find("Content-Type");
        EXPECT_EQ(!answer.json.is_null(),
                  type != answer.headers.end() && type->second == "application/json; charset=utf-8")
            << target;
        return answer;
    }
    Answer get(const std::string& target) const { return ask("GET", target); }
    Answer post(const std::string& target, const Json& body) const {
        return ask("POST", target, body.dump());
    }
    Answer put(const std::string& target, const Json& body) const {
        return ask("PUT", target, body.dump());
    }

    // Status, word and message of an error in one text that a table can hold.
    static std::string errorOf(const Answer& answer) {
        EXPECT_EQ(answer.json.size(), 2U) << answer.body;
        return std::to_string(answer.status) + " " + answer.error() + ": " + answer.message();
    }

    // Listens on a free port, which the settings then tell.
    void startListening() const {
        for (int attempt = 0;; ++attempt) {
            config->port = freePort();
            try {
                http->start();
                return;
            } catch (const TtsError&) {
                // Somebody else took it in between.
                if (attempt == 20) throw;
            }
        }
    }

    // Every line without an airline speaks with this voice.
    VoiceInfo bindVoice() const {
        const VoiceInfo voice = addVoice();
        config->setDefaultVoice("", TtsGender::auto_, voice.id);
        return voice;
    }

    std::shared_ptr<TtsHttpService> http;
};

}  // namespace zepho::test
