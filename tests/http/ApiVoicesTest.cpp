// Voices and bindings over the API.
#include <gtest/gtest.h>

#include "core/platform/Files.h"
#include "tests/http/ApiFixture.h"

namespace zepho {
namespace {

class ApiVoicesTest : public test::ApiFixture {
protected:
    // A second of a tone as WAV, in Base64; another level is another clip.
    static std::string clip(float peak = 0.3F) {
        return test::base64(buildWav(test::toneOf(1000, peak), 1));
    }
    [[nodiscard]] std::string cloneRefusal(const Json& body) const {
        const std::size_t before = service->voices.count();
        const std::string error = errorOf(post("/v1/voices/clone", body));
        EXPECT_EQ(service->voices.count(), before);
        return error;
    }
};

TEST_F(ApiVoicesTest, AVoiceIsClonedListedAndDeleted) {
    EXPECT_EQ(get("/v1/voices").json, (Json{{"voices", Json::array()}, {"count", 0}}));
    const Answer made = post("/v1/voices/clone", {{"display", " Desk "},
                                                  {"language", "zh-CN"},
                                                  {"gender", "F"},
                                                  {"style", "calm"},
                                                  {"note", "from a test"},
                                                  {"audio", clip()},
                                                  {"reference_text", "one two three"}});
    ASSERT_EQ(made.status, 200) << made.body;
    const std::string id = made.json["id"];
    EXPECT_EQ(made.body,
              R"({"clip_count":1,"clips":[{"duration_ms":1000,"file":")" + id +
                  R"(-0.wav","text":"one two three"}],"display":"Desk","gender":"female","id":")" +
                  id +
                  R"(","kind":"cloned","language":"zh","note":"from a test","style":"calm",)"
                  R"("voice_profile":""})");

    (void)addVoice();
    const Json all = get("/v1/voices").json;
    EXPECT_EQ(all["count"], 2);
    EXPECT_EQ(all["voices"][0], made.json);
    EXPECT_EQ(get("/v1/voices/whatever/stands/here").json, all);

    put("/v1/airlines", {{"airline", "CCA"}, {"voice", id}});
    const Answer removed = ask("DELETE", "/v1/voices/" + id);
    EXPECT_EQ(removed.json, (Json{{"removed", id}}));
    EXPECT_EQ(get("/v1/airlines").json, Json::object()) << "its bindings go with it";
    EXPECT_EQ(errorOf(ask("DELETE", "/v1/voices/" + id)), "404 not_found: no such voice: " + id);
    EXPECT_EQ(get("/v1/voices").json["count"], 1);
}

TEST_F(ApiVoicesTest, WhatCannotBeDeletedOrMadeIsRefused) {
    for (const char* id : {"", "a%20b", "../config.json"})
        EXPECT_EQ(errorOf(ask("DELETE", "/v1/voices/" + std::string(id))),
                  "404 not_found: no such voice: " + std::string(id));
    EXPECT_EQ(errorOf(ask("DELETE", "/v1/voices")), "404 not_found: no such voice: ");
    const std::string hint =
        "404 not_found: to create a voice POST /v1/voices/clone with reference audio";
    const Json good{{"audio", clip()}, {"reference_text", "text"}};
    for (const char* path : {"/v1/voices", "/v1/voices/", "/v1/voices/clones"})
        EXPECT_EQ(errorOf(post(path, good)), hint) << path;
    EXPECT_EQ(service->voices.count(), 0U);
    EXPECT_EQ(post("/v1/voices/any/thing/Clone", good).status, 200);

    const struct {
        std::string method, path;
    } rows[] = {{"PUT", "/v1/voices"},      {"PATCH", "/v1/voices/x"}, {"POST", "/v1/airlines"},
                {"DELETE", "/v1/airlines"}, {"POST", "/v1/defaults"},  {"DELETE", "/v1/defaults"}};
    for (const auto& row : rows)
        EXPECT_EQ(errorOf(ask(row.method, row.path, "{}")),
                  "405 method_not_allowed: " + row.method + " is not allowed on this path");
}

TEST_F(ApiVoicesTest, ClipsAreBase64InItsStrictForm) {
    const std::string good = clip();
    const Json usable{{"audio", good}, {"text", "t"}};
    const std::string badAudio = "400 bad_audio: ";
    const std::string notBase64 = badAudio + "audio is not valid base64";
    const std::string missing =
        badAudio +
        "missing the audio field (base64 reference audio), or use the clips array for several";
    const std::string unusable = badAudio + "clips contains no usable audio";
    for (const std::string& bad :
         {good.substr(0, 76) + "\n" + good.substr(76), " " + good, good.substr(0, good.size() - 1),
          "-_" + good.substr(2), "data:audio/wav;base64," + good, std::string("====")})
        EXPECT_EQ(cloneRefusal({{"audio", bad}, {"reference_text", "t"}}), notBase64);
    EXPECT_EQ(cloneRefusal({{"audio", 12345}}), notBase64) << "a number is its text";
    EXPECT_EQ(cloneRefusal({{"audio", nullptr}, {"clips", "no array"}}), missing);
    // Valid Base64 of what is no clip, and a clip without its transcript.
    for (const Json& body :
         {Json{{"audio", "AAAA"}, {"reference_text", "t"}},
          Json{{"audio", good}, {"reference_text", " \n"}}, Json{{"clips", {{{"audio", good}}}}}})
        EXPECT_TRUE(cloneRefusal(body).starts_with(badAudio));
    // The array goes before the single clip.
    for (const Json& list : {Json::array(), Json::array({1, nullptr, Json::array({3})}),
                             Json::array({{{"text", "no audio"}}, {{"audio", ""}, {"text", "t"}}})})
        EXPECT_EQ(cloneRefusal({{"clips", list}, {"audio", good}, {"reference_text", "t"}}),
                  unusable);
    EXPECT_EQ(cloneRefusal({{"clips", {usable, {{"audio", "!!!!"}, {"text", "t"}}}}}),
              badAudio + "one entry in clips is not valid base64");
    EXPECT_TRUE(std::filesystem::is_empty(ZEPHOPaths::voicesDir())) << "nothing was stored";

    const Answer mixed =
        post("/v1/voices/clone",
             {{"audio", clip(0.5F)},
              {"reference_text", "not this"},
              {"clips",
               {5,
                {{"audio", ""}},
                {{"audio", good}, {"text", ""}, {"reference_text", "second name"}},
                {{"audio", clip(0.2F)}, {"text", "first name"}, {"reference_text", "not this"}}}}});
    ASSERT_EQ(mixed.status, 200) << mixed.body;
    ASSERT_EQ(mixed.json["clip_count"], 2);
    EXPECT_EQ(mixed.json["clips"][0]["text"], "second name");
    EXPECT_EQ(mixed.json["clips"][1]["text"], "first name");
}

TEST_F(ApiVoicesTest, WhatIsSentOverASocketLastsARestart) {
    const auto send = [this](const std::string& method, const std::string& target,
                             const Json& body = nullptr) {
        test::HttpClient client(static_cast<int>(config->port.get()));
        return client.request(method, target, body.is_null() ? "" : body.dump()).value();
    };
    startListening();
    const Bytes wav = buildWav(test::toneOf(2000, 0.3F), 1);
    const test::ClientResponse made = send(
        "POST", "/v1/voices/clone", {{"audio", test::base64(wav)}, {"reference_text", "the clip"}});
    ASSERT_EQ(made.status, 200) << made.body;
    const std::string id = Json::parse(made.body)["id"];
    send("PUT", "/v1/airlines", {{"airline", "CCA"}, {"voice", id}});
    const std::string line = "/v1/tts?text=Now+boarding&airline=CCA";
    EXPECT_EQ(send("GET", line).headers.at("x-zepho-voice"), id);
    // What the engine gets to imitate is the clip as it came.
    EXPECT_EQ(asText(engine->calls().back().referenceAudio), asText(wav));
    EXPECT_EQ(engine->calls().back().referenceText, "the clip");
    const std::string voices = send("GET", "/v1/voices").body;

    http.reset();
    restart();
    http = TtsHttpService::make(service);
    startListening();
    EXPECT_EQ(send("GET", "/v1/voices").body, voices);
    EXPECT_EQ(send("GET", line).headers.at("x-zepho-cache"), "hit");
    EXPECT_EQ(send("DELETE", "/v1/voices/" + id).status, 200);
    EXPECT_EQ(send("GET", "/v1/airlines").body, "{}");
    EXPECT_TRUE(std::filesystem::is_empty(ZEPHOPaths::voicesDir()));
}

TEST_F(ApiVoicesTest, AirlinesAreBoundAndReleased) {
    const std::string id = addVoice().id;
    const auto bind = [this](const Json& body) {
        const Answer answer = put("/v1/airlines", body);
        EXPECT_EQ(answer.status, 200) << answer.body;
        EXPECT_EQ(get("/v1/airlines").json, answer.json);
        AppConfig saved;
        saved.load();
        EXPECT_EQ(saved.airlinesSnapshot(), config->airlinesSnapshot());
        return answer.json;
    };
    EXPECT_EQ(bind({{"airline", "CCA"}, {"voice", ""}}), Json::object()) << "nothing to release";
    const Json one = bind({{"airline", " cca "}, {"voice", " " + id + " "}});
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(one.begin().value(), id);
    EXPECT_EQ(config->airlineVoice("CCA", "", TtsGender::auto_), id);
    const Json two =
        bind({{"airline", "cca"}, {"language", "zh_CN"}, {"gender", "male"}, {"voice", id}});
    EXPECT_EQ(two.size(), 2U);
    EXPECT_EQ(config->airlineVoice("CCA", "zh", TtsGender::male), id);
    EXPECT_EQ(get("/v1/tts?text=x&airline=cca").headers.at("X-ZEPHO-Voice"), id);
    Json rest = two;
    rest.erase(one.begin().key());
    EXPECT_EQ(bind({{"airline", "CCA"}}), rest) << "without a voice the binding is released";

    const auto before = config->airlinesSnapshot();
    EXPECT_EQ(errorOf(put("/v1/airlines", {{"airline", "CES"}, {"voice", "nobody"}})),
              "404 not_found: no such voice: nobody");
    for (const Json& body : {Json{{"airline", " "}, {"voice", id}}, Json{{"airline", {"CCA"}}}})
        EXPECT_EQ(errorOf(put("/v1/airlines", body)),
                  "400 bad_json: missing airline (ICAO three-letter code)");
    EXPECT_EQ(config->airlinesSnapshot(), before);
}

TEST_F(ApiVoicesTest, DefaultsAreSetAndNeverRemoved) {
    const std::string female = addVoice().id;
    const std::string male = addVoice({}, TtsGender::male).id;
    ASSERT_NE(male, female);
    EXPECT_EQ(put("/v1/defaults", {{"language", "en-US"}, {"female", female}}).json.size(), 1U);
    EXPECT_EQ(config->defaultVoice("en", TtsGender::female), female);
    const Answer answer = put("/v1/defaults", {{"female", female}, {"male", male}});
    EXPECT_EQ(answer.json.size(), 3U);
    EXPECT_EQ(config->defaultVoice("", TtsGender::male), male);
    EXPECT_EQ(config->defaultVoice("", TtsGender::auto_), "") << "not settable here";
    AppConfig saved;
    saved.load();
    EXPECT_EQ(saved.defaultsSnapshot(), config->defaultsSnapshot());

    for (const Json& body :
         {Json{{"female", ""}, {"male", nullptr}}, Json{{"gender", "male"}, {"voice", male}}})
        EXPECT_EQ(put("/v1/defaults", body).json, answer.json);
    EXPECT_EQ(errorOf(put("/v1/defaults", {{"female", male}, {"male", "nobody"}})),
              "404 not_found: no such voice: nobody");
    EXPECT_EQ(errorOf(put("/v1/defaults", {{"female", " "}})), "404 not_found: no such voice:  ");
    EXPECT_EQ(get("/v1/defaults").json, answer.json) << "nothing was changed";
}

}  // namespace
}  // namespace zepho
