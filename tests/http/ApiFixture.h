// The API over a whole service whose engine does as the test tells.
#pragma once

#include <map>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "core/http/TtsHttpService.h"
#include "tests/support/ServiceFixture.h"

namespace zepho::test {

class ApiFixture : public ServiceFixture {
protected:
    struct Answer {
        int status = 0;
        std::map<std::string, std::string> headers;
        std::string body;
        Json json;  // null where the body is no JSON

        // Status, word and message of an error in one text that a table can hold.
        [[nodiscard]] std::string error() const {
            EXPECT_EQ(json.size(), 2U) << body;
            return std::to_string(status) + " " + json.value("error", "") + ": " +
                   json.value("message", "");
        }
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
        const std::size_t mark = std::min(target.find('?'), target.size());
        HttpRequest request;
        request.method = method;
        request.path = target.substr(0, mark);
        if (mark < target.size()) request.query = target.substr(mark + 1);
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

    // Every line without an airline speaks with this voice.
    VoiceInfo bindVoice() const {
        const VoiceInfo voice = addVoice();
        config->setDefaultVoice("", TtsGender::auto_, voice.id);
        return voice;
    }

    std::shared_ptr<TtsHttpService> http;
};

}  // namespace zepho::test
