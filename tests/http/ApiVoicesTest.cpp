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
    EXPECT_EQ(made.json, (Json{{"id", id},
                               {"display", "Desk"},
                               {"kind", "cloned"},
                               {"voice_profile", ""},
                               {"language", "zh"},
                               {"gender", "female"},
                               {"style", "calm"},
                               {"note", "from a test"},
                               {"clip_count", 1},
                               {"clips", Json::array({{{"file", made.json["clips"][0]["file"]},
                                                       {"text", "one two three"},
                                                       {"duration_ms", 1000}}})}}));
    const std::string file = made.json["clips"][0]["file"];
    EXPECT_TRUE(std::filesystem::exists(ZEPHOPaths::voicesDir() + file)) << file;

    const Answer second =
        post("/v1/voices/CLONE",
             {{"display", "Other"},
              {"clips",
               {{{"audio", clip(0.2F)}, {"text", "a"}}, {{"audio", clip(0.1F)}, {"text", 7}}}}});
    ASSERT_EQ(second.status, 200) << second.body;
    EXPECT_EQ(second.json["clip_count"], 2);
    EXPECT_EQ(second.json["clips"][1]["text"], "7");
    EXPECT_EQ(second.json["gender"], "default");
    EXPECT_EQ(second.json["language"], "");
    const Json all{{"voices", {made.json, second.json}}, {"count", 2}};
    EXPECT_EQ(get("/v1/voices").json, all);
    EXPECT_EQ(get("/v1/voices/whatever/stands/here").json, all);
    EXPECT_EQ(get("/v1/voices/").json, all);

    put("/v1/airlines", {{"airline", "CCA"}, {"voice", id}});
    const Answer removed = ask("DELETE", "/v1/voices/" + id);
    EXPECT_EQ(removed.status, 200);
    EXPECT_EQ(removed.json, (Json{{"removed", id}}));
    EXPECT_EQ(get("/v1/airlines").json, Json::object()) << "its bindings go with it";
    EXPECT_EQ(errorOf(ask("DELETE", "/v1/voices/" + id)), "404 not_found: no such voice: " + id);
    EXPECT_EQ(get("/v1/voices").json["count"], 1);
}

TEST_F(ApiVoicesTest, WhatCannotBeDeletedOrMadeIsRefused) {
    EXPECT_EQ(errorOf(ask("DELETE", "/v1/voices")), "404 not_found: no such voice: ");
    EXPECT_EQ(errorOf(ask("DELETE", "/v1/voices/")), "404 not_found: no such voice: ");
    EXPECT_EQ(errorOf(ask("DELETE", "/v1/voices/a%20b")), "404 not_found: no such voice: a%20b");
    EXPECT_EQ(errorOf(ask("DELETE", "/v1/voices/../config.json")),
              "404 not_found: no such voice: ../config.json");
    const std::string hint =
        "404 not_found: to create a voice POST /v1/voices/clone with reference audio";
    const Json good{{"audio", clip()}, {"reference_text", "text"}};
    for (const char* path : {"/v1/voices", "/v1/voices/", "/v1/voices/clone/", "/v1/voices/clones"})
        EXPECT_EQ(errorOf(post(path, good)), hint) << path;
    EXPECT_EQ(errorOf(ask("POST", "/v1/voices", "nothing")).substr(0, 12), "400 bad_json")
        << "the body is looked at first";
    EXPECT_EQ(service->voices.count(), 0U);
    EXPECT_EQ(post("/v1/voices/any/thing/Clone", good).status, 200);

    for (const char* method : {"PUT", "PATCH", "HEAD", "OPTIONS"})
        for (const char* path : {"/v1/voices", "/v1/voices/x", "/v1/voices/clone"})
            EXPECT_EQ(errorOf(ask(method, path)), "405 method_not_allowed: " + std::string(method) +
                                                      " is not allowed on this path");
    for (const char* method : {"POST", "DELETE", "PATCH"})
        for (const char* path : {"/v1/airlines", "/v1/defaults"})
            EXPECT_EQ(
                errorOf(ask(method, path, "{}")),
                "405 method_not_allowed: " + std::string(method) + " is not allowed on this path");
}

TEST_F(ApiVoicesTest, AudioIsBase64InItsStrictForm) {
    const std::string notBase64 = "400 bad_audio: audio is not valid base64";
    const std::string good = clip();
    for (const std::string& bad :
         {good.substr(0, 76) + "\n" + good.substr(76), good + "\r\n", " " + good,
          good.substr(0, good.size() - 1), good + "=", "-_" + good.substr(2),
          std::string("data:audio/wav;base64,") + good, std::string("===="), std::string("A")})
        EXPECT_EQ(cloneRefusal({{"audio", bad}, {"reference_text", "t"}}), notBase64);
    const std::string missing =
        "400 bad_audio: missing the audio field (base64 reference audio), or use the clips array "
        "for several";
    EXPECT_EQ(cloneRefusal(Json::object()), missing);
    EXPECT_EQ(cloneRefusal({{"audio", ""}}), missing);
    EXPECT_EQ(cloneRefusal({{"audio", nullptr}, {"clips", "no array"}}), missing);
    EXPECT_EQ(cloneRefusal({{"audio", 12345}}), notBase64) << "a number is its text";
    // Valid Base64 of what is no clip, and a clip without its transcript.
    EXPECT_TRUE(
        cloneRefusal({{"audio", "AAAA"}, {"reference_text", "t"}}).starts_with("400 bad_audio: "));
    EXPECT_TRUE(cloneRefusal({{"audio", good}}).starts_with("400 bad_audio: "));
    EXPECT_TRUE(
        cloneRefusal({{"audio", good}, {"reference_text", " \n"}}).starts_with("400 bad_audio: "));
}

TEST_F(ApiVoicesTest, TheArrayOfClipsGoesBeforeTheSingleOne) {
    const std::string unusable = "400 bad_audio: clips contains no usable audio";
    for (const Json& list : {Json::array(), Json::array({1, "two", nullptr, Json::array({3})}),
                             Json::array({{{"text", "no audio"}}, {{"audio", ""}, {"text", "t"}}})})
        EXPECT_EQ(cloneRefusal({{"clips", list}, {"audio", clip()}, {"reference_text", "t"}}),
                  unusable);
    EXPECT_EQ(
        cloneRefusal(
            {{"clips", {{{"audio", clip()}, {"text", "t"}}, {{"audio", "!!!!"}, {"text", "t"}}}}}),
        "400 bad_audio: one entry in clips is not valid base64");
    EXPECT_TRUE(std::filesystem::is_empty(ZEPHOPaths::voicesDir())) << "nothing was stored";
    EXPECT_TRUE(cloneRefusal({{"clips", {{{"audio", clip()}}}}}).starts_with("400 bad_audio: "))
        << "no transcript";

    const Answer mixed =
        post("/v1/voices/clone",
             {{"audio", clip(0.5F)},
              {"reference_text", "not this"},
              {"clips",
               {5,
                {{"audio", ""}},
                {{"audio", clip()}, {"text", ""}, {"reference_text", "second name"}},
                {{"audio", clip(0.2F)}, {"text", "first name"}, {"reference_text", "not this"}}}}});
    ASSERT_EQ(mixed.status, 200) << mixed.body;
    ASSERT_EQ(mixed.json["clip_count"], 2);
    EXPECT_EQ(mixed.json["clips"][0]["text"], "second name");
    EXPECT_EQ(mixed.json["clips"][1]["text"], "first name");
    const Answer single = post(
        "/v1/voices/clone",
        {{"audio", clip(0.5F)}, {"reference_text", "this"}, {"clips", {{"audio", "an object"}}}});
    ASSERT_EQ(single.status, 200) << single.body;
    EXPECT_EQ(single.json["clips"][0]["text"], "this");
}

TEST_F(ApiVoicesTest, AirlinesAreBoundAndReleased) {
    const std::string id = addVoice().id;
    EXPECT_EQ(get("/v1/airlines").json, Json::object());
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
    for (const Json& body : {Json::object(), Json{{"airline", " "}, {"voice", id}},
                             Json{{"airline", nullptr}}, Json{{"airline", {"CCA"}}}})
        EXPECT_EQ(errorOf(put("/v1/airlines", body)),
                  "400 bad_json: missing airline (ICAO three-letter code)");
    EXPECT_EQ(errorOf(ask("PUT", "/v1/airlines", "[]")),
              "400 bad_json: request body is not valid JSON");
    EXPECT_EQ(config->airlinesSnapshot(), before);
}

TEST_F(ApiVoicesTest, DefaultsAreSetAndNeverRemoved) {
    const std::string female = addVoice().id;
    const Answer other =
        post("/v1/voices/clone", {{"audio", clip(0.6F)}, {"reference_text", "another"}});
    const std::string male = other.json["id"];
    EXPECT_EQ(get("/v1/defaults").json, Json::object());
    Answer answer = put("/v1/defaults", {{"language", "en-US"}, {"female", female}});
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.json.size(), 1U);
    EXPECT_EQ(config->defaultVoice("en", TtsGender::female), female);
    answer = put("/v1/defaults", {{"female", female}, {"male", male}});
    EXPECT_EQ(answer.json.size(), 3U);
    EXPECT_EQ(config->defaultVoice("", TtsGender::male), male);
    EXPECT_EQ(config->defaultVoice("", TtsGender::auto_), "") << "not settable here";
    EXPECT_EQ(get("/v1/defaults").json, answer.json);
    AppConfig saved;
    saved.load();
    EXPECT_EQ(saved.defaultsSnapshot(), config->defaultsSnapshot());

    for (const Json& body : {Json::object(), Json{{"female", ""}, {"male", nullptr}},
                             Json{{"gender", "male"}, {"voice", male}}}) {
        const Answer same = put("/v1/defaults", body);
        EXPECT_EQ(same.status, 200);
        EXPECT_EQ(same.json, answer.json);
    }
    EXPECT_EQ(errorOf(put("/v1/defaults", {{"female", male}, {"male", "nobody"}})),
              "404 not_found: no such voice: nobody");
    EXPECT_EQ(errorOf(put("/v1/defaults", {{"female", "x"}, {"male", "y"}})),
              "404 not_found: no such voice: x");
    EXPECT_EQ(errorOf(put("/v1/defaults", {{"female", " "}})), "404 not_found: no such voice:  ");
    EXPECT_EQ(get("/v1/defaults").json, answer.json) << "nothing was changed";
    EXPECT_EQ(errorOf(ask("PUT", "/v1/defaults", "")),
              "400 bad_json: request body is not valid JSON");
}

}  // namespace
}  // namespace zepho
