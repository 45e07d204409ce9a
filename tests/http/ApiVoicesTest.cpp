// Voices and bindings over the API.
#include <cstring>

#include <gtest/gtest.h>

#include "tests/http/ApiFixture.h"
#include "zephon_client.h"

namespace zepho {
namespace {

class ApiVoicesTest : public test::ApiFixture {
protected:
    // A second of a tone as WAV, in Base64; another level is another clip.
    static std::string clip(float peak = 0.3F) {
        const Bytes wav = buildWav(test::toneOf(1000, peak), 1);
        return zephon::detail::base64({wav.begin(), wav.end()});
    }
    // The bindings after an order, which are saved with it.
    [[nodiscard]] Json bound(const std::string& path, const Json& order) const {
        const Answer answer = put(path, order);
        EXPECT_EQ(answer.status, 200) << answer.body;
        EXPECT_EQ(get(path).json, answer.json);
        AppConfig saved;
        saved.load();
        EXPECT_EQ(saved.airlinesSnapshot(), config->airlinesSnapshot());
        EXPECT_EQ(saved.defaultsSnapshot(), config->defaultsSnapshot());
        return answer.json;
    }
};

TEST_F(ApiVoicesTest, AVoiceIsClonedListedAndDeleted) {
    EXPECT_EQ(get("/v1/voices").json, (Json{{"voices", Json::array()}, {"count", 0}}));
    const Answer made = post("/v1/voices/any/thing/Clone", {{"display", " Desk "},
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
    const Json all = get("/v1/voices/whatever/stands/here").json;
    EXPECT_EQ(all["count"], 2);
    EXPECT_EQ(all["voices"][0], made.json);

    put("/v1/airlines", {{"airline", "CCA"}, {"voice", id}});
    EXPECT_EQ(ask("DELETE", "/v1/voices/" + id).json, (Json{{"removed", id}}));
    EXPECT_EQ(get("/v1/airlines").json, Json::object()) << "its bindings go with it";
    for (const std::string& none : {id, std::string(), std::string("../config.json")})
        EXPECT_EQ(ask("DELETE", "/v1/voices/" + none).error(),
                  "404 not_found: no such voice: " + none);
    EXPECT_EQ(ask("DELETE", "/v1/voices").error(), "404 not_found: no such voice: ");
    EXPECT_EQ(get("/v1/voices").json["count"], 1);

    for (const char* path : {"/v1/voices", "/v1/voices/", "/v1/voices/clones"})
        EXPECT_EQ(post(path, {{"audio", clip()}, {"reference_text", "text"}}).error(),
                  "404 not_found: to create a voice POST /v1/voices/clone with reference audio");
    const std::pair<std::string, std::string> rows[] = {
        {"PUT", "/v1/voices"}, {"POST", "/v1/airlines"}, {"DELETE", "/v1/defaults"}};
    for (const auto& [method, path] : rows)
        EXPECT_EQ(ask(method, path, "{}").error(),
                  "405 method_not_allowed: " + method + " is not allowed on this path");
    EXPECT_EQ(service->voices.count(), 1U);
}

TEST_F(ApiVoicesTest, ClipsAreBase64InItsStrictForm) {
    const std::string good = clip();
    const auto refusal = [this](const Json& body) {
        return post("/v1/voices/clone", body).error().substr(std::strlen("400 bad_audio: "));
    };
    for (const std::string& bad : {good.substr(0, 76) + "\n" + good.substr(76), " " + good,
                                   good.substr(0, good.size() - 1), "-_" + good.substr(2)})
        EXPECT_EQ(refusal({{"audio", bad}, {"reference_text", "t"}}), "audio is not valid base64");
    EXPECT_EQ(refusal({{"audio", 12345}}), "audio is not valid base64") << "a number is its text";
    EXPECT_EQ(
        refusal({{"audio", nullptr}, {"clips", "no array"}}),
        "missing the audio field (base64 reference audio), or use the clips array for several");
    // Valid Base64 of what is no clip, and a clip without its transcript.
    EXPECT_NE(refusal({{"audio", "AAAA"}, {"reference_text", "t"}}), "");
    EXPECT_NE(refusal({{"clips", {{{"audio", good}}}}}), "");
    // The array goes before the single clip.
    for (const Json& list : {Json::array(), Json::array({1, nullptr, Json::array({3})}),
                             Json::array({{{"text", "no audio"}}, {{"audio", ""}, {"text", "t"}}})})
        EXPECT_EQ(refusal({{"clips", list}, {"audio", good}, {"reference_text", "t"}}),
                  "clips contains no usable audio");
    EXPECT_EQ(refusal({{"clips", {{{"audio", good}, {"text", "t"}}, {{"audio", "!!!!"}}}}}),
              "one entry in clips is not valid base64");
    EXPECT_TRUE(std::filesystem::is_empty(ZEPHOPaths::voicesDir())) << "nothing was stored";

    const Json first{{"audio", good}, {"text", ""}, {"reference_text", "second name"}};
    const Json second{
        {"audio", clip(0.2F)}, {"text", "first name"}, {"reference_text", "not this"}};
    const Answer mixed = post("/v1/voices/clone", {{"audio", clip(0.5F)},
                                                   {"reference_text", "not this"},
                                                   {"clips", {5, {{"audio", ""}}, first, second}}});
    ASSERT_EQ(mixed.json["clip_count"], 2) << mixed.body;
    EXPECT_EQ(mixed.json["clips"][0]["text"], "second name");
    EXPECT_EQ(mixed.json["clips"][1]["text"], "first name");
}

TEST_F(ApiVoicesTest, AirlinesAreBoundAndReleased) {
    const std::string id = addVoice().id;
    const auto bind = [this](const Json& order) { return bound("/v1/airlines", order); };
    EXPECT_EQ(bind({{"airline", "CCA"}, {"voice", ""}}), Json::object()) << "nothing to release";
    EXPECT_EQ(bind({{"airline", " cca "}, {"voice", " " + id + " "}}),
              (Json{{"CCA::default", id}}));
    const Json both{{"CCA::default", id}, {"CCA:zh:male", id}};
    EXPECT_EQ(bind({{"airline", "cca"}, {"language", "zh_CN"}, {"gender", "male"}, {"voice", id}}),
              both);
    EXPECT_EQ(get("/v1/tts?text=x&airline=cca").headers.at("X-ZEPHO-Voice"), id);

    EXPECT_EQ(put("/v1/airlines", {{"airline", "CES"}, {"voice", "nobody"}}).error(),
              "404 not_found: no such voice: nobody");
    for (const Json& order : {Json{{"airline", " "}, {"voice", id}}, Json{{"airline", {"CCA"}}}})
        EXPECT_EQ(put("/v1/airlines", order).error(),
                  "400 bad_json: missing airline (ICAO three-letter code)");
    EXPECT_EQ(get("/v1/airlines").json, both);
    EXPECT_EQ(bind({{"airline", "CCA"}}), (Json{{"CCA:zh:male", id}}))
        << "without a voice the binding is released";
}

TEST_F(ApiVoicesTest, DefaultsAreSetAndNeverRemoved) {
    const std::string female = addVoice().id;
    const std::string male = addVoice({}, TtsGender::male).id;
    const auto bind = [this](const Json& order) { return bound("/v1/defaults", order); };
    (void)bind({{"language", "en-US"}, {"female", female}});
    const Json all{{"en:female", female}, {":female", female}, {":male", male}};
    EXPECT_EQ(bind({{"female", female}, {"male", male}}), all);
    EXPECT_EQ(bind({{"female", ""}, {"male", nullptr}}), all);
    EXPECT_EQ(bind({{"gender", "male"}, {"voice", male}}), all);
    EXPECT_EQ(put("/v1/defaults", {{"female", male}, {"male", "nobody"}}).error(),
              "404 not_found: no such voice: nobody");
    EXPECT_EQ(put("/v1/defaults", {{"female", " "}}).error(), "404 not_found: no such voice:  ");
    EXPECT_EQ(get("/v1/defaults").json, all) << "nothing was changed";
}

}  // namespace
}  // namespace zepho
