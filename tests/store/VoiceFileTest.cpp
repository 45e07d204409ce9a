#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/store/VoiceFile.h"
#include "tests/store/VoiceFixture.h"

namespace zepho::test {
namespace {

const WallTime now = *parseIso8601("2026-08-07T07:34:00Z");

VoiceInfo onlyVoice(const std::string& object) {
    const VoiceFileContent content = readVoiceFile(asBytes("{\"voices\":[" + object + "]}"), now);
    EXPECT_EQ(content.state, VoiceFileState::read);
    EXPECT_EQ(content.voices.size(), 1U) << object;
    return content.voices.empty() ? VoiceInfo() : *content.voices[0];
}

Json written(const VoiceInfo& voice) {
    const auto root = parseJsonObject(writeVoiceFile({std::make_shared<const VoiceInfo>(voice)}));
    return root.value().at("voices").at(0);
}

TEST(VoiceFile, WhatIsWrittenIsReadAgain) {
    VoiceInfo voice;
    voice.id = "v-1";
    voice.display = "空港 / \"A\"";
    voice.kind = VoiceKind::profile;
    voice.profileFile = "p/q";
    voice.clips = {{"v-1-0.wav", "one", 5000}, {"v-1-1.ogg", "two", 0}};
    voice.language = "zh";
    voice.gender = TtsGender::male;
    voice.style = "calm";
    voice.note = "line\nline";
    voice.seed = INT64_MAX;
    voice.createdAt = now + std::chrono::milliseconds(999);
    const Json object = written(voice);
    EXPECT_EQ(object, Json::parse(R"({"id":"v-1","display":"空港 / \"A\"","kind":"reference",
        "profile":"p/q","clips":[{"file":"v-1-0.wav","text":"one","durationMs":5000},
        {"file":"v-1-1.ogg","text":"two","durationMs":0}],"language":"zh","gender":"male",
        "style":"calm","note":"line\nline","seed":9223372036854775807,
        "createdAt":"2026-08-07T07:34:00Z"})"));
    const VoiceInfo back = onlyVoice(object.dump());
    EXPECT_EQ(written(back), object);
    EXPECT_EQ(back.createdAt, now);
    const Bytes bytes = writeVoiceFile({std::make_shared<const VoiceInfo>(voice)});
    EXPECT_NE(asText(bytes).find("空港 / "), std::string_view::npos);
    EXPECT_NE(asText(bytes).find("\n  \"voices\": ["), std::string_view::npos);

    // One broken text does not cost the list.
    voice.note = "half a character: \xE7\xA9";
    EXPECT_EQ(written(voice).at("note"), "half a character: \xEF\xBF\xBD");
}

TEST(VoiceFile, HoldsAnyNumberOfValues) {
    std::string clips = "0";
    for (std::size_t i = 0; i < maxJsonValues; ++i) clips += ",0";
    EXPECT_EQ(onlyVoice(R"({"id":"v","clips":[)" + clips + "]}").id, "v");
}

TEST(VoiceFile, OldAndLooseFormsAreTakenOver) {
    const VoiceInfo bare = onlyVoice(R"({"id":7,"clips":{"file":"x"},"createdAt":""})");
    EXPECT_EQ(bare.id, "7");
    EXPECT_EQ(bare.display, "7");
    EXPECT_EQ(bare.kind, VoiceKind::cloned);
    EXPECT_TRUE(bare.clips.empty());
    EXPECT_EQ(bare.createdAt, now);

    const VoiceInfo loose = onlyVoice(R"({"id":"a","display":"","kind":"profile",
        "clips":["x",{"file":12,"text":null,"durationMs":"34"},{"file":["x"]}],
        "refAudio":"ignored.wav","language":"auto","gender":"F","seed":"-5",
        "createdAt":"2026-08-07T15:34:00+08:00"})");
    EXPECT_EQ(loose.display, "");
    EXPECT_EQ(loose.kind, VoiceKind::cloned);
    ASSERT_EQ(loose.clips.size(), 2U);
    EXPECT_EQ(loose.clips[0].fileName, "12");
    EXPECT_EQ(loose.clips[0].text, "");
    EXPECT_EQ(loose.clips[0].durationMs, 34);
    EXPECT_EQ(loose.clips[1].fileName, "");
    EXPECT_EQ(loose.language, "");
    EXPECT_EQ(loose.gender, TtsGender::female);
    EXPECT_EQ(loose.seed, -5);
    EXPECT_EQ(loose.createdAt, now);
    EXPECT_EQ(onlyVoice(R"({"id":"a","kind":"REFERENCE"})").kind, VoiceKind::profile);

    const VoiceInfo single =
        onlyVoice(R"({"id":"a","clips":[],"refAudio":"old.wav","refText":"words"})");
    ASSERT_EQ(single.clips.size(), 1U);
    EXPECT_EQ(single.clips[0].fileName, "old.wav");
    EXPECT_EQ(single.clips[0].text, "words");
    EXPECT_FALSE(written(single).contains("refAudio"));
}

}  // namespace
}  // namespace zepho::test
