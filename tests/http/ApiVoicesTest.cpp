// Voices and bindings over the API.
#include <cstring>

#include <gtest/gtest.h>

#include "tests/http/ApiFixture.h"
#include "zephon_client.h"

namespace zepho {
namespace {

class ApiVoicesTest : public test::ApiFixture {
protected:
    // A tone as WAV, in Base64.
    static std::string clip(int ms = 1000) {
        const Bytes wav = buildWav(test::toneOf(ms, 0.3F), 1);
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
    EXPECT_EQ(get("/v1/voices/whatever/stands/here").json,
              (Json{{"voices", Json::array({made.json})}, {"count", 1}}));

    for (const char* none : {"", "nobody", "../config.json"})
        EXPECT_EQ(ask("DELETE", "/v1/voices/" + std::string(none)).error(),
                  "404 not_found: no such voice: " + std::string(none));
    put("/v1/airlines", {{"airline", "CCA"}, {"voice", id}});
    EXPECT_EQ(ask("DELETE", "/v1/voices/" + id).json, (Json{{"removed", id}}));
    EXPECT_EQ(get("/v1/airlines").json, Json::object()) << "its bindings go with it";
    EXPECT_EQ(get("/v1/voices").json["count"], 0);
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
    EXPECT_TRUE(refusal({{"audio", nullptr}, {"clips", "no array"}}).starts_with("missing "));
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

    // Each of these lengths ends in Base64 in another way.
    const Json clips{5,
                     {{"audio", ""}},
                     {{"audio", good}, {"text", ""}, {"reference_text", "one"}},
                     {{"audio", clip(1001)}, {"text", "two"}, {"reference_text", "not this"}},
                     {{"audio", clip(1002)}, {"text", "three"}}};
    const Json made =
        post("/v1/voices/clone",
             {{"audio", clip(2000)}, {"reference_text", "not this"}, {"clips", clips}})
            .json["clips"];
    ASSERT_EQ(made.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(made[i]["duration_ms"], 1000 + i);
    EXPECT_EQ(made[0]["text"], "one");
    EXPECT_EQ(made[1]["text"], "two");
}

TEST_F(ApiVoicesTest, BindingsAreSetAndReleased) {
    const std::string id = addVoice().id;
    const auto bind = [this](const Json& order) { return bound("/v1/airlines", order); };
    EXPECT_EQ(bind({{"airline", "CCA"}, {"voice", ""}}), Json::object()) << "nothing to release";
    EXPECT_EQ(bind({{"airline", " cca "}, {"voice", " " + id + " "}}),
              (Json{{"CCA::default", id}}));
    const Json both{{"CCA::default", id}, {"CCA:zh:male", id}};
    EXPECT_EQ(bind({{"airline", "cca"}, {"language", "zh_CN"}, {"gender", "male"}, {"voice", id}}),
              both);
    const std::string missing = "400 bad_json: missing airline (ICAO three-letter code)";
    EXPECT_EQ(put("/v1/airlines", {{"airline", " "}, {"voice", id}}).error(), missing);
    EXPECT_EQ(put("/v1/airlines", {{"airline", {"CCA"}}}).error(), missing);
    EXPECT_EQ(put("/v1/airlines", {{"airline", "CES"}, {"voice", "nobody"}}).error(),
              "404 not_found: no such voice: nobody");
    EXPECT_EQ(ask("DELETE", "/v1/airlines").error(),
              "405 method_not_allowed: DELETE is not allowed on this path");
    EXPECT_EQ(get("/v1/airlines").json, both);
    EXPECT_EQ(bind({{"airline", "CCA"}}), (Json{{"CCA:zh:male", id}}))
        << "without a voice the binding is released";

    // Defaults are never released.
    (void)bound("/v1/defaults", {{"language", "en-US"}, {"female", id}});
    const Json all{{"en:female", id}, {":female", id}, {":male", id}};
    for (const Json& order : {Json{{"female", id}, {"male", id}},
                              Json{{"female", ""}, {"male", nullptr}}, Json{{"voice", id}}})
        EXPECT_EQ(bound("/v1/defaults", order), all);
    for (const char* none : {"nobody", " "})
        EXPECT_EQ(put("/v1/defaults", {{"language", "fr"}, {"female", id}, {"male", none}}).error(),
                  "404 not_found: no such voice: " + std::string(none));
    EXPECT_EQ(get("/v1/defaults").json, all) << "nothing was changed";
}

}  // namespace
}  // namespace zepho
