#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/store/VoiceFile.h"
#include "tests/store/VoiceFixture.h"

namespace zepho::test {
namespace {

const WallTime now = *parseIso8601("2026-08-07T07:34:00Z");

VoiceInfo onlyVoice(const std::string& object) {
    const VoiceFileContent content = readVoiceFile(asBytes("{\"voices\":[" + object + "]}"), now);
    EXPECT_EQ(content.voices.size(), 1U) << object;
    return content.voices.empty() ? VoiceInfo() : *content.voices[0];
}

Json written(const VoiceInfo& voice) {
    const Bytes file = writeVoiceFile({std::make_shared<const VoiceInfo>(voice)});
    EXPECT_NE(asText(file).find("\n  \"voices\": ["), std::string_view::npos);
    return parseJsonObject(file).value().at("voices").at(0);
}

TEST(VoiceFile, WhatIsWrittenIsReadAgain) {
    const Json object = Json::parse(R"({"id":"v-1","display":"空港 / \"A\"","kind":"reference",
        "profile":"p/q","clips":[{"file":"v-1-0.wav","text":"one","durationMs":5000},
        {"file":"v-1-1.ogg","text":"two","durationMs":0}],"language":"zh","gender":"male",
        "style":"calm","note":"line\nline","seed":9223372036854775807,
        "createdAt":"2026-08-07T07:34:00Z"})");
    VoiceInfo voice = onlyVoice(object.dump());
    EXPECT_EQ(voice.kind, VoiceKind::profile);
    EXPECT_EQ(voice.clips[1].fileName + voice.clips[1].text, "v-1-1.oggtwo");
    EXPECT_EQ(voice.profileFile + voice.style + voice.language, "p/qcalmzh");
    EXPECT_EQ(voice.createdAt, now);
    voice.createdAt += std::chrono::milliseconds(999);
    EXPECT_EQ(written(voice), object);
    // One broken text does not cost the list.
    voice.note = "half a character: \xE7\xA9";
    EXPECT_EQ(written(voice).at("note"), "half a character: \xEF\xBF\xBD");

    // It is our own file, which holds any number of values.
    std::string clips = "0";
    for (std::size_t i = 0; i < maxJsonValues; ++i) clips += ",0";
    EXPECT_EQ(onlyVoice(R"({"id":"v","clips":[)" + clips + "]}").id, "v");
}

TEST(VoiceFile, OldAndLooseFormsAreTakenOver) {
    const VoiceInfo bare = onlyVoice(R"({"id":7,"clips":{"file":"x"},"createdAt":""})");
    EXPECT_EQ(bare.id + bare.display, "77");
    EXPECT_EQ(bare.kind, VoiceKind::cloned);
    EXPECT_TRUE(bare.clips.empty());
    EXPECT_EQ(bare.createdAt, now);

    const VoiceInfo loose = onlyVoice(R"({"id":"a","display":"","kind":"profile",
        "clips":["x",{"file":12,"text":null,"durationMs":"34"},{"file":["x"]}],
        "refAudio":"ignored.wav","language":"auto","gender":"F","seed":"-5",
        "createdAt":"2026-08-07T15:34:00+08:00"})");
    const Json read = written(loose);
    EXPECT_EQ(read, Json::parse(R"({"id":"a","display":"","kind":"cloned","profile":"",
        "clips":[{"file":"12","text":"","durationMs":34},{"file":"","text":"","durationMs":0}],
        "language":"","gender":"female","style":"","note":"","seed":-5,
        "createdAt":"2026-08-07T07:34:00Z"})"));
    EXPECT_EQ(onlyVoice(R"({"id":"a","kind":"REFERENCE"})").kind, VoiceKind::profile);
    const Json single =
        written(onlyVoice(R"({"id":"a","clips":[],"refAudio":"old.wav","refText":"words"})"));
    EXPECT_EQ(single.at("clips"),
              Json::parse(R"([{"file":"old.wav","text":"words","durationMs":0}])"));
    EXPECT_FALSE(single.contains("refAudio"));
}

}  // namespace
}  // namespace zepho::test
