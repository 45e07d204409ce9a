#include <filesystem>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/pack/ClonePack.h"
#include "core/pack/PackManifest.h"
#include "core/pack/ZipReader.h"
#include "core/pack/ZipWriter.h"
#include "tests/pack/ZipForge.h"
#include "tests/store/VoiceFixture.h"

namespace zepho::test {
namespace {

class ClonePackTest : public VoiceFixture {
protected:
    VoiceInfo addVoice(const std::string& display, const std::string& language, TtsGender gender,
                       int clipCount = 1) {
        VoiceCloneSpec spec{display, language, gender, {}, "calm", "a note"};
        for (int i = 0; i < clipCount; ++i)
            spec.clips.push_back({wavOf(8000, 5000 + i), display + std::to_string(i)});
        return library.addClone(spec);
    }
    // An archive, written by the test alone, of a manifest and audio entries.
    static Bytes archiveOf(const std::string& manifest, const std::vector<ZipEntry>& audio = {}) {
        ZipWriter writer;
        for (const ZipEntry& entry : audio) writer.add("audio/" + entry.name, entry.data);
        writer.add("cln.json", asBytes(manifest));
        return writer.finish();
    }
    [[nodiscard]] Json manifest() const {
        return parseJsonObject(ZipReader(pack).read("cln.json")).value_or(Json());
    }
    PackSummary importFrom(const std::string& path) {
        return importPack(path, elsewhere, otherConfig);
    }

    std::string pack = dir.file("out/voices.cln");
    // Another machine: a library and a configuration of its own.
    TempDir otherDir;
    AppConfig otherConfig;
    VoiceLibrary elsewhere{otherConfig, otherDir.file("data/voices.json"), otherDir.file("clone/")};
};

TEST_F(ClonePackTest, CarriesVoicesAndBindingsToAnotherMachine) {
    const VoiceInfo anna = addVoice("Anna", "zh", TtsGender::female, 2);
    const VoiceInfo bert = addVoice("Bert", "", TtsGender::auto_);
    config.setAirlineVoice("CA", "zh", TtsGender::female, anna.id);
    config.setAirlineVoice("CA", "zh", TtsGender::auto_, anna.id);
    config.setAirlineVoice("MU", "", TtsGender::auto_, bert.id);
    const std::vector<std::string> keys{"MU::default", "ca:zh-CN:f",   "CA:zh:default:more",
                                        "CA:zh",       "XX:en:female", ""};
    const PackSummary written = exportPack(pack, keys, library, config);
    EXPECT_EQ(written.bytes, 3 * 44 + 16 * (5000 + 5001 + 5000));
    EXPECT_EQ(written.describe(),
              "2 voice(s) (0 new, 0 reused) · 3 clip(s) · 3 binding(s) · 0.2 MB");

    const ZipReader archive(pack);
    EXPECT_EQ(archive.names().size(), 4U);
    EXPECT_EQ(archive.read("audio/" + anna.id + "-1.wav"), wavOf(8000, 5001));
    Json told = manifest();
    EXPECT_TRUE(parseIso8601(told["exportedAt"].get<std::string>()));
    told.erase("exportedAt");
    const Json bertsClips{{{"file", bert.id + "-0.wav"}, {"text", "Bert0"}, {"durationMs", 5000}}};
    EXPECT_EQ(told["voices"][1]["clips"].size(), 2U);
    told["voices"][1].erase("clips");
    const auto voiceJson = [](const VoiceInfo& voice, const char* gender) {
        return Json{{"id", voice.id},   {"display", voice.display}, {"language", voice.language},
                    {"gender", gender}, {"style", "calm"},          {"note", "a note"}};
    };
    Json expected{
        {"format", "zepho-clone-pack"},
        {"version", 1},
        {"voices", {voiceJson(bert, "default"), voiceJson(anna, "female")}},
        {"airlines",
         {{"CA:zh:default:more", anna.id}, {"MU::default", bert.id}, {"ca:zh-CN:f", anna.id}}}};
    expected["voices"][0]["clips"] = bertsClips;
    EXPECT_EQ(told, expected);

    EXPECT_EQ(importFrom(pack).describe(),
              "2 voice(s) (2 new, 0 reused) · 3 clip(s) · 3 binding(s) · 0.2 MB");
    const auto copy = elsewhere.findAlike("anna", "zh", TtsGender::female);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->style + ", " + copy->note, "calm, a note");
    ASSERT_EQ(copy->clips.size(), 2U);
    EXPECT_EQ(loadFileBytes(elsewhere.clipPath(copy->clips[1])), wavOf(8000, 5001));
    EXPECT_EQ(otherConfig.airlinesSnapshot().size(), 3U);
    AppConfig saved;
    saved.load();
    EXPECT_EQ(saved.airlineVoice("CA", "zh", TtsGender::female), copy->id);
    VoiceLibrary onDisk{otherConfig, otherDir.file("data/voices.json"), otherDir.file("clone/")};
    onDisk.load();
    EXPECT_EQ(onDisk.count(), 2U);

    // Once more: nothing new, but the bindings are as the pack says again.
    otherConfig.setAirlineVoice("CA", "zh", TtsGender::female, "someone else");
    EXPECT_EQ(importFrom(pack).describe(),
              "2 voice(s) (0 new, 2 reused) · 0 clip(s) · 3 binding(s) · 0.0 MB\n"
              "· 已经有「Bert」了,这次没重复导入\n· 已经有「Anna」了,这次没重复导入");
    EXPECT_EQ(elsewhere.count(), 2U);
    EXPECT_EQ(otherConfig.airlineVoice("CA", "zh", TtsGender::female), copy->id);

    // The same audio is a voice of its own under another name, in another language, or for another
    // gender.
    VoiceInfo changed = anna;
    const auto addedOnceMore = [&] {
        library.update(changed);
        EXPECT_EQ(exportVoicePack(pack, {anna.id, anna.id}, library).voices, 1);
        EXPECT_EQ(manifest()["airlines"], Json::object());
        return importFrom(pack).voicesAdded;
    };
    changed.display = "Anna the second";
    EXPECT_EQ(addedOnceMore(), 1);
    EXPECT_EQ(addedOnceMore(), 0);
    EXPECT_EQ(elsewhere.findByDisplay("Anna the second")->id, copy->id + "-1");
    changed.language = "ja";
    EXPECT_EQ(addedOnceMore(), 1);
    changed.gender = TtsGender::male;
    EXPECT_EQ(addedOnceMore(), 1);
}

TEST_F(ClonePackTest, NotesWhatIsMissing) {
    const VoiceInfo anna = addVoice("Anna", "zh", TtsGender::female, 2);
    const std::string lost = anna.clips[0].fileName;
    std::filesystem::remove(clips() + lost);
    config.setAirlineVoice("CA", "zh", TtsGender::female, "gone");
    config.setAirlineVoice("MU", "zh", TtsGender::female, anna.id);
    const std::vector<std::string> keys{"CA:zh:female", "MU:zh:female"};
    const PackSummary bound = exportPack(pack, keys, library, config);
    EXPECT_EQ(bound.notes, (Lines{"绑定 CA:zh:female 指向的音色 gone 已经不在了,没打进包里",
                                  "Anna 少了一段参考音频(" + lost + "),包里没有它"}));
    EXPECT_EQ(bound.clips, 1);
    EXPECT_EQ(bound.bindings, 2);
    EXPECT_EQ(manifest()["voices"][0]["clips"].size(), 2U) << "still listed";

    const PackSummary taken = importFrom(pack);
    EXPECT_EQ(taken.notes, Lines{"「Anna」少了一段音频(" + lost + "),这一段跳过"});
    EXPECT_EQ(taken.bindings, 1) << "the binding of the voice that is gone falls away";
    EXPECT_EQ(elsewhere.all().at(0).clips.size(), 1U);
    EXPECT_EQ(exportVoicePack(pack, {"gone", "gone"}, library).notes,
              Lines{"音色 gone 已经不在了,没打进包里"});
    EXPECT_EQ(importFrom(pack).voices, 0);
}

TEST_F(ClonePackTest, NotesStayFewAndShortWhateverThePackSays) {
    std::string name;
    for (int i = 0; i < 100000; ++i) name += "名";
    std::string tower = "x";
    for (int i = 0; i < 1000; ++i) tower += "\xCC\x81";
    Json clips = Json::array();
    for (int i = 0; i < 1000; ++i) clips.push_back({{"file", std::to_string(i)}});
    const Json voices{{{"display", tower}, {"clips", {{{"file", name}}}}},
                      {{"display", name}, {"clips", clips}}};
    saveFileBytes(pack, archiveOf(Json{{"format", packFormat}, {"voices", voices}}.dump()));
    const Lines notes = importFrom(pack).notes;
    const std::string shown = name.substr(0, 60 * 3) + "…";
    ASSERT_EQ(notes.size(), 201U);
    EXPECT_EQ(notes[0], "「" + tower.substr(0, 599) + "…」少了一段音频(" + shown + "),这一段跳过");
    EXPECT_EQ(notes[2], "「" + shown + "」少了一段音频(0),这一段跳过");
    EXPECT_EQ(notes[200], "… +803");
}

TEST_F(ClonePackTest, FingerprintTellsTheContentAndNothingElse) {
    loadVoices(R"({"voices":[
        {"id":"v-1","display":"Anna","language":"zh","gender":"female","style":"calm","seed":4,
         "clips":[{"file":"a.wav","text":"hello"},{"file":"","text":"none"}]},
        {"id":"v-2","display":"Bert","gender":"male","clips":[{"file":"b.wav","text":"hi"}]}]})");
    saveFileBytes(clips() + "a.wav", asBytes("abc"));
    saveFileBytes(clips() + "b.wav", asBytes("def"));
    config.setAirlineVoice("CA", "zh", TtsGender::female, "v-1");
    const auto of = [&](const Lines& ids, const Lines& keys = {}) {
        return packFingerprint(ids, keys, library, config);
    };
    // Worked out with sha256sum.
    const std::string bound = of({"v-1"}, {"CA:zh:female"});
    EXPECT_EQ(bound, "2CAA3E6150AA156693358BC073EE5CAA0AA6AF504F2922260418E2664AB4732F");
    EXPECT_EQ(of({}, {"CA:zh:female"}), bound);
    EXPECT_EQ(of({"v-1"}, {"MU:en:male", "CA:zh:female"}),
              of({"v-1"}, {"CA:zh:female", "MU:en:male"}));
    const std::string both = of({"v-1", "v-2"});
    EXPECT_EQ(of({"v-2", "v-1", "v-2", "unknown"}), both);

    const VoiceInfo kept = *library.find("v-1");
    const auto changed = [&](auto change) {
        VoiceInfo voice = kept;
        change(voice);
        library.update(voice);
        return of({"v-1", "v-2"});
    };
    EXPECT_EQ(changed([](VoiceInfo& voice) { voice.note = "changed"; }), both);
    EXPECT_EQ(changed([](VoiceInfo& voice) { voice.seed = 99; }), both);
    EXPECT_NE(changed([](VoiceInfo& voice) { voice.display = "Anne"; }), both);
    EXPECT_NE(changed([](VoiceInfo& voice) { std::swap(voice.clips[0], voice.clips[1]); }), both);
    std::filesystem::remove(clips() + "b.wav");
    EXPECT_NE(changed([](VoiceInfo&) {}), both);
}

TEST_F(ClonePackTest, RefusesWhatIsNoPack) {
    const VoiceInfo anna = addVoice("Anna", "zh", TtsGender::female);
    exportVoicePack(pack, {anna.id}, library);
    const Bytes good = *loadFileBytes(pack);
    const auto cannotOpen = [](const std::string& why) {
        return "cannot open this file (" + why +
               "). A .cln is a zip package - did you pick the wrong file?";
    };
    const std::string notAZip = cannotOpen("not a zip archive");
    const std::string broken = "the cln.json inside the pack is corrupt and cannot be read.";
    const std::string wrongFormat = "this is not an Zephon clone pack (format does not match).";
    const std::string start = R"({"format":"zepho-clone-pack",)";
    std::string many = start + R"("voices":[{})";
    for (std::size_t i = 0; i < maxPackVoices; ++i) many += ",{}";
    const std::pair<Bytes, std::string> cases[] = {
        {{}, notAZip},
        {Bytes(good.begin(), good.end() - 30), notAZip},
        {forgeZip({{"cln.json", toBytes("{}"), 0, 600U << 20}}),
         cannotOpen("corrupt zip: the entries claim more than 512 MB")},
        {forgeZip({{"CLN.json", toBytes("{}"), 0, 2}}),
         "the pack has no cln.json - this is not an Zephon clone pack."},
        {forgeZip({{"cln.json", toBytes("{}"), 12, 2}}), broken},
        {forgeZip({{"cln.json", zeroBomb(64U << 20), 8, 2}}), broken},
        {archiveOf(start + "\"a\":\"\xff\"}"), broken},
        {archiveOf(std::string(1000000, '[')), broken},
        {archiveOf(many + "]}"), broken},
        {archiveOf("{\"deep\":" + std::string(300000, '[') + std::string(300000, ']') + "}"),
         wrongFormat},
        {archiveOf(R"({"format":["zepho-clone-pack"]})"), wrongFormat},
    };
    const auto expectRefused = [&](const std::string& file, const std::string& message) {
        const TtsError error = errorOf([&] { importFrom(file); });
        EXPECT_EQ(error.code, TtsErrorCode::badAudio);
        EXPECT_EQ(error.message, message);
    };
    for (const auto& [file, message] : cases) {
        saveFileBytes(pack, file);
        expectRefused(pack, message);
    }
    expectRefused(dir.file("missing.cln"), notAZip);
    expectRefused(dir.path(), notAZip);
    EXPECT_FALSE(fileExists(otherDir.file("data/voices.json")));
}

TEST_F(ClonePackTest, KeepsToItsLimitsBothWays) {
    struct Case {
        std::size_t voices, clips, names, bindings;
        bool fits;
    };
    constexpr std::size_t most = maxPackItems - maxPackVoices;
    for (const Case& each :
         {Case{maxPackVoices, most, most, maxPackItems, true},
          Case{maxPackVoices + 1, 0, 1, 0, false},
          Case{maxPackVoices, most + 1, most + 1, 0, false}, Case{1, 3 * maxEntryUses, 3, 0, true},
          Case{1, 3 * maxEntryUses + 1, 3, 0, false}, Case{1, 1, 1, maxPackItems + 1, false}}) {
        PackManifest manifest;
        manifest.voices.resize(each.voices);
        for (std::size_t i = 0; i < each.clips; ++i)
            manifest.voices[i % each.voices].clips.push_back(
                {std::to_string(i % each.names), "t", 0});
        for (std::size_t i = 0; i < each.bindings; ++i)
            manifest.airlines[std::to_string(i) + "::"] = "a";
        EXPECT_EQ(readPackManifest(packManifestJson(manifest, {})).has_value(), each.fits)
            << each.voices << " " << each.clips << " " << each.bindings;
    }

    std::string clips = R"({"file":"a.wav","text":"t"})";
    for (std::size_t i = 0; i < maxEntryUses; ++i) clips += R"(,{"file":"a.wav","text":"t"})";
    loadVoices(R"({"voices":[{"id":"v","clips":[)" + clips + "]}]}");
    EXPECT_THROW(static_cast<void>(exportVoicePack(pack, {"v"}, library)), std::system_error);
    EXPECT_FALSE(fileExists(pack));
}

TEST_F(ClonePackTest, TakesWhatIsGoodOfADamagedPack) {
    saveFileBytes(pack, archiveOf(R"({"format":"zepho-clone-pack","version":"seven",
        "voices":["text",7,null,
            {"id":"a","display":"Anna","language":"zh_CN","gender":7,"style":null,"note":12,
             "clips":[{"file":"音-①.wav","text":"one","durationMs":"long"},
                      {"file":"gone.wav","text":"two"},"text",{}]},
            {"id":"b","display":"Short","clips":[{"file":"good.wav","text":"t"},
                                                 {"file":"short.wav","text":"t"}]},
            {"id":"c","display":"Empty","clips":{}},
            {"id":5,"display":"Evil","clips":[{"file":"../../evil.wav","text":"t"},
                                              {"file":"/etc/passwd","text":"t"}]},
            {"id":"again","display":"ANNA","language":"zh","clips":[]}],
        "airlines":{" ca :zh-cn:F":"a","MU:zh:male":"b","HU::":"again","  :zh:male":"a",
                    "CZ:zh":"a","FM:zh:male":5,"ZH:zh:male":"nobody","3U:en:male:x":"5"}})",
                                  {{"音-①.wav", wavOf(8000, 5000)},
                                   {"good.wav", wavOf(8000, 5000)},
                                   {"short.wav", wavOf(8000, 999)},
                                   {"../../evil.wav", wavOf(8000, 6000)},
                                   {"/etc/passwd", wavOf(8000, 7000)}}));
    const PackSummary taken = importFrom(pack);
    EXPECT_EQ(taken.voices, 5);
    EXPECT_EQ(taken.voicesAdded, 2);
    EXPECT_EQ(taken.voicesReused, 1);
    EXPECT_EQ(taken.clips, 5);
    EXPECT_EQ(
        taken.notes,
        (Lines{"「Anna」少了一段音频(gone.wav),这一段跳过", "「Anna」少了一段音频(),这一段跳过",
               "「Short」导入失败:the reference clip is only 999 ms, too short (the vendor "
               "recommends 5-30 s)",
               "「Empty」一段音频都没有,没法导入", "已经有「ANNA」了,这次没重复导入"}));
    const auto anna = elsewhere.findByDisplay("Anna");
    ASSERT_TRUE(anna);
    EXPECT_EQ(anna->note, "12");
    EXPECT_EQ(anna->gender, TtsGender::auto_);
    const auto evil = elsewhere.findByDisplay("Evil");
    ASSERT_TRUE(evil);
    EXPECT_EQ(evil->clips[0].fileName, evil->id + "-0.wav");
    EXPECT_EQ(otherConfig.airlinesSnapshot(), (std::vector<Binding>{{"3U:en:male", evil->id},
                                                                    {"CA:zh:female", anna->id},
                                                                    {"HU::default", anna->id}}));
    EXPECT_EQ(taken.bindings, 3);
    for (const auto& file : std::filesystem::recursive_directory_iterator(otherDir.path()))
        EXPECT_EQ(file.path().string().find("evil"), std::string::npos);
    EXPECT_FALSE(fileExists(dir.file("evil.wav")));
}

}  // namespace
}  // namespace zepho::test
