#include <csignal>
#include <filesystem>

#include <nlohmann/json.hpp>
#include <sys/resource.h>

#include "core/base/Hash.h"
#include "core/base/Json.h"
#include "core/pack/ClonePack.h"
#include "core/pack/PackManifest.h"
#include "core/pack/ZipReader.h"
#include "core/pack/ZipWriter.h"
#include "tests/pack/ZipForge.h"
#include "tests/store/VoiceFixture.h"

namespace zepho::test {
namespace {

using Notes = std::vector<std::string>;

// Another machine: a library and a configuration of its own.
struct Machine {
    TempDir dir;
    AppConfig config;
    VoiceLibrary library{config, dir.file("data/voices.json"), dir.file("clone/")};
};

class ClonePackTest : public VoiceFixture {
protected:
    VoiceInfo addVoice(const std::string& display, const std::string& language, TtsGender gender,
                       int clipCount = 1) {
        VoiceCloneSpec spec;
        spec.display = display;
        spec.language = language;
        spec.gender = gender;
        spec.style = "calm";
        spec.note = "a note";
        for (int i = 0; i < clipCount; ++i)
            spec.clips.push_back({wavOf(8000, 5000 + i, 1, 3 + i), display + std::to_string(i)});
        return library.addClone(spec);
    }
    // The pack, written by the test alone, of a manifest and audio entries.
    std::string writePack(const std::string& manifest, const std::vector<ZipEntry>& audio = {}) {
        ZipWriter writer;
        for (const ZipEntry& entry : audio) writer.add("audio/" + entry.name, entry.data);
        writer.add("cln.json", asBytes(manifest));
        saveFileBytes(pack, writer.finish());
        return pack;
    }
    [[nodiscard]] Json manifest() const {
        return parseJsonObject(ZipReader(pack).read("cln.json")).value_or(Json());
    }

    std::string pack = dir.file("out/voices.cln");
    Machine other;
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
    std::vector<std::string> names{"audio/" + anna.id + "-0.wav", "audio/" + anna.id + "-1.wav",
                                   "audio/" + bert.id + "-0.wav", "cln.json"};
    std::sort(names.begin(), names.end());
    EXPECT_EQ(archive.names(), names);
    EXPECT_EQ(archive.read("audio/" + anna.id + "-1.wav"), wavOf(8000, 5001, 1, 4));
    Json told = manifest();
    EXPECT_TRUE(parseIso8601(told["exportedAt"].get<std::string>()));
    told.erase("exportedAt");
    const auto voiceJson = [](const VoiceInfo& voice) {
        Json clips = Json::array();
        for (int i = 0; i < static_cast<int>(voice.clips.size()); ++i)
            clips.push_back({{"file", voice.id + "-" + std::to_string(i) + ".wav"},
                             {"text", voice.display + std::to_string(i)},
                             {"durationMs", 5000 + i}});
        return Json{{"id", voice.id},
                    {"display", voice.display},
                    {"language", voice.language},
                    {"gender", voice.display == "Anna" ? "female" : "default"},
                    {"style", "calm"},
                    {"note", "a note"},
                    {"clips", clips}};
    };
    EXPECT_EQ(told, (Json{{"format", "zepho-clone-pack"},
                          {"version", 1},
                          {"voices", {voiceJson(bert), voiceJson(anna)}},
                          {"airlines",
                           {{"CA:zh:default:more", anna.id},
                            {"MU::default", bert.id},
                            {"ca:zh-CN:f", anna.id}}}}));

    const PackSummary taken = importPack(pack, other.library, other.config);
    EXPECT_EQ(taken.describe(), "2 voice(s) (2 new, 0 reused) · 3 clip(s) · 3 binding(s) · 0.2 MB");
    const auto copy = other.library.findByDisplay("anna");
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->language, "zh");
    EXPECT_EQ(copy->gender, TtsGender::female);
    EXPECT_EQ(copy->style, "calm");
    EXPECT_EQ(copy->note, "a note");
    ASSERT_EQ(copy->clips.size(), 2U);
    EXPECT_EQ(loadFileBytes(other.library.clipPath(copy->clips[1])), wavOf(8000, 5001, 1, 4));
    EXPECT_EQ(other.config.airlineVoice("CA", "zh", TtsGender::female), copy->id);
    EXPECT_EQ(other.config.airlinesSnapshot().size(), 3U);
    AppConfig saved;
    saved.load();
    EXPECT_EQ(saved.airlineVoice("CA", "zh", TtsGender::female), copy->id);
    VoiceLibrary onDisk{other.config, other.dir.file("data/voices.json"), other.dir.file("clone/")};
    onDisk.load();
    EXPECT_EQ(onDisk.count(), 2U);

    // Once more: nothing new, but the bindings are as the pack says again.
    other.config.setAirlineVoice("CA", "zh", TtsGender::female, "someone else");
    const PackSummary again = importPack(pack, other.library, other.config);
    EXPECT_EQ(again.describe(),
              "2 voice(s) (0 new, 2 reused) · 0 clip(s) · 3 binding(s) · 0.0 MB\n"
              "· 已经有「Bert」了,这次没重复导入\n· 已经有「Anna」了,这次没重复导入");
    EXPECT_EQ(other.library.count(), 2U);
    EXPECT_EQ(other.config.airlineVoice("CA", "zh", TtsGender::female), copy->id);

    // The same audio under another name is a voice of its own.
    VoiceInfo renamed = anna;
    renamed.display = "Anna the second";
    library.update(renamed);
    const PackSummary voicesOnly = exportVoicePack(pack, {anna.id, anna.id}, library);
    EXPECT_EQ(voicesOnly.voices, 1);
    EXPECT_EQ(manifest()["airlines"], Json::object());
    EXPECT_EQ(importPack(pack, other.library, other.config).voicesAdded, 1);
    EXPECT_EQ(other.library.findByDisplay("Anna the second")->id, copy->id + "-1");
    // And so is it in another language, or for another gender.
    const auto takenAs = [&](const std::string& language, TtsGender gender) {
        renamed.language = language;
        renamed.gender = gender;
        library.update(renamed);
        exportVoicePack(pack, {anna.id}, library);
        return importPack(pack, other.library, other.config).voicesAdded;
    };
    EXPECT_EQ(takenAs("zh", TtsGender::female), 0);
    EXPECT_EQ(takenAs("ja", TtsGender::female), 1);
    EXPECT_EQ(takenAs("ja", TtsGender::male), 1);
}

TEST_F(ClonePackTest, NotesWhatIsMissingOnExport) {
    const VoiceInfo anna = addVoice("Anna", "zh", TtsGender::female, 2);
    std::filesystem::remove(library.clipPath(anna.clips[0]));
    config.setAirlineVoice("CA", "zh", TtsGender::female, "gone");
    config.setAirlineVoice("MU", "zh", TtsGender::female, anna.id);
    const std::vector<std::string> keys{"CA:zh:female", "MU:zh:female"};
    const PackSummary bound = exportPack(pack, keys, library, config);
    EXPECT_EQ(bound.notes,
              (Notes{"绑定 CA:zh:female 指向的音色 gone 已经不在了,没打进包里",
                     "Anna 少了一段参考音频(" + anna.clips[0].fileName + "),包里没有它"}));
    EXPECT_EQ(bound.clips, 1);
    EXPECT_EQ(bound.bindings, 2);
    EXPECT_EQ(manifest()["voices"][0]["clips"].size(), 2U) << "still listed";

    const PackSummary taken = importPack(pack, other.library, other.config);
    EXPECT_EQ(taken.notes,
              Notes{"「Anna」少了一段音频(" + anna.clips[0].fileName + "),这一段跳过"});
    EXPECT_EQ(taken.voicesAdded, 1);
    EXPECT_EQ(taken.bindings, 1) << "the binding of the voice that is gone falls away";
    EXPECT_EQ(other.library.all()[0].clips.size(), 1U);

    EXPECT_EQ(exportVoicePack(pack, {"gone", "gone"}, library).notes,
              Notes{"音色 gone 已经不在了,没打进包里"});
    EXPECT_EQ(importPack(pack, other.library, other.config).voices, 0);
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
    writePack(Json{{"format", packFormat}, {"voices", voices}}.dump());
    const Notes notes = importPack(pack, other.library, other.config).notes;
    const std::string shown = name.substr(0, 60 * 3) + "…";
    ASSERT_EQ(notes.size(), 201U);
    EXPECT_EQ(notes[0], "「" + tower.substr(0, 599) + "…」少了一段音频(" + shown + "),这一段跳过");
    EXPECT_EQ(notes[2], "「" + shown + "」少了一段音频(0),这一段跳过");
    EXPECT_EQ(notes[200], "… +803");
}

TEST_F(ClonePackTest, LeavesNoHalfPackBehind) {
    const VoiceInfo anna = addVoice("Anna", "zh", TtsGender::female, 2);
    saveFileBytes(pack, asBytes("the pack before"));
    // The disk takes only a part of the file, as a full one would.
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    rlimit usual{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &usual), 0);
    const rlimit small{4096, usual.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_THROW(static_cast<void>(exportVoicePack(pack, {anna.id}, library)), std::system_error);
    ::setrlimit(RLIMIT_FSIZE, &usual);
    std::signal(SIGXFSZ, before);
    EXPECT_EQ(asText(*loadFileBytes(pack)), "the pack before");
    const auto files = std::filesystem::directory_iterator(dir.file("out"));
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST_F(ClonePackTest, FingerprintTellsTheContentAndNothingElse) {
    writeVoicesFile(R"({"voices":[
        {"id":"v-1","display":"Anna","language":"zh","gender":"female","style":"calm","seed":4,
         "clips":[{"file":"a.wav","text":"hello"},{"file":"","text":"none"}]},
        {"id":"v-2","display":"Bert","gender":"male","clips":[{"file":"b.wav","text":"hi"}]}]})");
    saveFileBytes(clips() + "a.wav", asBytes("abc"));
    saveFileBytes(clips() + "b.wav", asBytes("def"));
    library.load();
    config.setAirlineVoice("CA", "zh", TtsGender::female, "v-1");
    const std::vector<std::string> key{"CA:zh:female"};
    const auto of = [&](const std::vector<std::string>& ids,
                        const std::vector<std::string>& keys = {}) {
        return packFingerprint(ids, keys, library, config);
    };
    // Worked out with sha256sum.
    EXPECT_EQ(of({"v-1"}, key), "2CAA3E6150AA156693358BC073EE5CAA0AA6AF504F2922260418E2664AB4732F");
    EXPECT_EQ(of({}), "E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855");

    const std::string both = of({"v-1", "v-2"});
    EXPECT_EQ(of({"v-2", "v-1", "v-2", "unknown"}), both);
    EXPECT_EQ(of({}, key), of({"v-1"}, key));
    EXPECT_NE(of({"v-1"}, key), of({"v-1"}));
    EXPECT_EQ(of({"v-1"}, {"MU:en:male", "CA:zh:female"}),
              of({"v-1"}, {"CA:zh:female", "MU:en:male"}));

    const auto changed = [&](auto change) {
        const VoiceInfo kept = *library.find("v-1");
        VoiceInfo voice = kept;
        change(voice);
        library.update(voice);
        const std::string result = of({"v-1", "v-2"});
        library.update(kept);
        return result;
    };
    EXPECT_EQ(changed([](VoiceInfo& voice) { voice.note = "changed"; }), both);
    EXPECT_EQ(changed([](VoiceInfo& voice) { voice.seed = 99; }), both);
    EXPECT_NE(changed([](VoiceInfo& voice) { voice.display = "Anne"; }), both);
    EXPECT_NE(changed([](VoiceInfo& voice) { std::swap(voice.clips[0], voice.clips[1]); }), both);
    std::filesystem::remove(clips() + "b.wav");
    EXPECT_NE(of({"v-1", "v-2"}), both);
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
    const auto withManifest = [](const std::string& text) {
        ZipWriter writer;
        writer.add("cln.json", asBytes(text));
        return writer.finish();
    };
    std::string many = R"({"format":"zepho-clone-pack","voices":[{})";
    for (std::size_t i = 0; i < maxPackVoices; ++i) many += ",{}";
    const struct {
        Bytes file;
        std::string message;
    } cases[] = {
        {{}, notAZip},
        {Bytes(good.begin(), good.end() - 30), notAZip},
        {forgeZip({{"cln.json", toBytes("{}"), 0, 600U << 20}}),
         cannotOpen("corrupt zip: the entries claim more than 512 MB")},
        {forgeZip({{"CLN.json", toBytes("{}"), 0, 2}}),
         "the pack has no cln.json - this is not an Zephon clone pack."},
        {forgeZip({{"cln.json", toBytes("{}"), 12, 2}}), broken},
        {forgeZip({{"cln.json", zeroBomb(64U << 20), 8, 2}}), broken},
        {withManifest(R"({"format":"zepho-clone-pack","a":")"
                      "\xff"
                      R"("})"),
         broken},
        {withManifest(std::string(1000000, '[')), broken},
        {withManifest(many + "]}"), broken},
        {withManifest("{\"deep\":" + std::string(300000, '[') + std::string(300000, ']') + "}"),
         wrongFormat},
        {withManifest(R"({"format":["zepho-clone-pack"]})"), wrongFormat},
    };
    const auto refused = [&](const std::string& file, const std::string& message) {
        const TtsError error = errorOf([&] { importPack(file, other.library, other.config); });
        EXPECT_EQ(error.code, TtsErrorCode::badAudio);
        EXPECT_EQ(error.message, message);
    };
    for (const auto& [file, message] : cases) {
        saveFileBytes(pack, file);
        refused(pack, message);
    }
    refused(dir.file("missing.cln"), notAZip);
    refused(dir.path(), notAZip);
    EXPECT_EQ(other.library.count(), 0U);
    EXPECT_FALSE(fileExists(other.dir.file("data/voices.json")));
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
    writeVoicesFile(R"({"voices":[{"id":"v","clips":[)" + clips + "]}]}");
    library.load();
    EXPECT_THROW(static_cast<void>(exportVoicePack(pack, {"v"}, library)), std::system_error);
    EXPECT_FALSE(fileExists(pack));
}

TEST_F(ClonePackTest, TakesWhatIsGoodOfADamagedPack) {
    writePack(R"({"format":"zepho-clone-pack","version":"seven",
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
               {"/etc/passwd", wavOf(8000, 7000)}});
    const PackSummary taken = importPack(pack, other.library, other.config);
    EXPECT_EQ(taken.voices, 5);
    EXPECT_EQ(taken.voicesAdded, 2);
    EXPECT_EQ(taken.voicesReused, 1);
    EXPECT_EQ(taken.clips, 5);
    EXPECT_EQ(
        taken.notes,
        (Notes{"「Anna」少了一段音频(gone.wav),这一段跳过", "「Anna」少了一段音频(),这一段跳过",
               "「Short」导入失败:the reference clip is only 999 ms, too short (the vendor "
               "recommends 5-30 s)",
               "「Empty」一段音频都没有,没法导入", "已经有「ANNA」了,这次没重复导入"}));
    const auto anna = other.library.findByDisplay("Anna");
    ASSERT_TRUE(anna);
    EXPECT_EQ(anna->note, "12");
    EXPECT_EQ(anna->gender, TtsGender::auto_);
    const auto evil = other.library.findByDisplay("Evil");
    ASSERT_TRUE(evil);
    EXPECT_EQ(evil->clips[0].fileName, evil->id + "-0.wav");
    EXPECT_EQ(other.config.airlinesSnapshot(), (std::vector<Binding>{{"3U:en:male", evil->id},
                                                                     {"CA:zh:female", anna->id},
                                                                     {"HU::default", anna->id}}));
    EXPECT_EQ(taken.bindings, 3);
    for (const auto& file : std::filesystem::recursive_directory_iterator(other.dir.path()))
        EXPECT_EQ(file.path().string().find("evil"), std::string::npos);
    EXPECT_FALSE(fileExists(dir.file("evil.wav")));
}

}  // namespace
}  // namespace zepho::test
