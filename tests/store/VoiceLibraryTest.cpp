#include <barrier>
#include <thread>

#include <unistd.h>

#include "core/audio/ClipDecoding.h"
#include "core/platform/Unicode.h"
#include "tests/store/VoiceFixture.h"
#include "tests/tools/EncodedClips.h"

namespace zepho::test {
namespace {

class VoiceLibraryTest : public VoiceFixture {};

TEST_F(VoiceLibraryTest, CloneIsNamedAndSeededByItsContent) {
    VoiceCloneSpec spec = specOf(buildWav(PcmBuffer::silence(8000, 5000), 1), " hello\n", "  ");
    spec.language = "zh-CN";
    spec.style = " calm ";
    spec.note = " kept ";
    // These were worked out with sha256sum and plain arithmetic.
    const std::string expected =
        "5CCC6EA77499FC2640A45E65B4901737952304F875ACB037A0B2427685085D23|hello\n";
    EXPECT_EQ(VoiceLibrary::contentKey(spec), expected);
    EXPECT_EQ(library.predictId(spec), "v-f43de0c65d88");
    const VoiceInfo first = library.addClone(spec);
    EXPECT_EQ(first.id, "v-f43de0c65d88");
    EXPECT_EQ(first.seed, 2129746363);
    EXPECT_EQ(first.display, first.id);
    EXPECT_EQ(first.language, "zh");
    EXPECT_EQ(first.style, "calm");
    EXPECT_EQ(first.note, " kept ");
    EXPECT_EQ(first.clips.at(0).fileName, "v-f43de0c65d88-0.wav");
    EXPECT_EQ(first.clips.at(0).text, "hello");
    EXPECT_EQ(loadFileBytes(clips() + "v-f43de0c65d88-0.wav"), spec.clips[0].audio);

    spec.display = " Other ";
    const VoiceInfo second = library.addClone(spec);
    EXPECT_EQ(second.id, "v-f43de0c65d88-1");
    EXPECT_EQ(second.seed, 7450555);
    EXPECT_EQ(second.display, "Other");
    EXPECT_EQ(library.addClone(spec).id, "v-f43de0c65d88-2");
    EXPECT_EQ(library.predictId(spec), "v-f43de0c65d88-3");
    // The lowest suffix that is free, however far the voices had come.
    EXPECT_TRUE(library.remove(second.id));
    EXPECT_EQ(library.addClone(spec).id, second.id);
    EXPECT_EQ(library.predictId(spec), "v-f43de0c65d88-3");
    // The order of the clips counts, and blanks within a text.
    spec.clips.push_back({toBytes("two"), "c"});
    const std::string pair = VoiceLibrary::contentKey(spec);
    std::swap(spec.clips[0], spec.clips[1]);
    EXPECT_NE(VoiceLibrary::contentKey(spec), pair);
    EXPECT_NE(VoiceLibrary::contentKey(specOf(toBytes("one"), "a  b")),
              VoiceLibrary::contentKey(specOf(toBytes("one"), "a b")));
}

TEST_F(VoiceLibraryTest, ClipLengthDecidesRefusalAndWarning) {
    EXPECT_EQ(errorOf([&] { library.addClone(specOf(wavOf(8000, 999), "text")); }).message,
              "the reference clip is only 999 ms, too short (the vendor recommends 5-30 s)");
    const std::string unstable = " s; the official guidance is 5-30 s, cloning may be unstable";
    using Lines = std::vector<std::string>;
    const std::pair<std::int64_t, Lines> cases[] = {
        {1000, {"reference audio is only 1.0" + unstable}},
        {4999, {"reference audio is only 5.0" + unstable}},
        {5000, {}},
        {30000, {}},
        {30001,
         {"reference audio is 30 s, over the 30 s the vendor recommends; it will be trimmed"}},
    };
    for (const auto& [ms, warning] : cases) {
        AppLog::clear();
        EXPECT_EQ(library.addClone(specOf(wavOf(8000, ms), "text")).clips[0].durationMs, ms);
        EXPECT_EQ(logged(LogLevel::warn), warning);
    }
    VoiceCloneSpec spec = specOf(encodeMp3(wavOf(16000, 6000)), "one");
    spec.clips.push_back({encodeVorbis(wavOf(16000, 7000)), "two"});
    spec.clips.push_back({toBytes("ID3 and nothing behind it"), "three"});
    const VoiceInfo voice = library.addClone(spec);
    EXPECT_EQ(voice.clips[0].fileName, voice.id + "-0.mp3");
    EXPECT_NEAR(static_cast<double>(voice.clips[0].durationMs), 6000, 150);
    EXPECT_EQ(voice.clips[1].fileName, voice.id + "-1.ogg");
    EXPECT_EQ(voice.clips[1].durationMs, 7000);
    EXPECT_EQ(voice.clips[2].durationMs, 0);
    EXPECT_EQ(
        logged(LogLevel::warn).back(),
        "cannot decode this .mp3 clip; duration unknown and it cannot join a multi-clip merge");
}

TEST_F(VoiceLibraryTest, RefusesWhatIsNoReference) {
    const Bytes opus = encodeOpus(wavOf(48000, 5000));
    const struct {
        VoiceCloneSpec spec;
        std::string message;
    } cases[] = {
        {{}, "cloning needs at least one reference clip"},
        {specOf({}, "text"), "this clip has no audio data"},
        {specOf(toBytes("junk"), " \n\t"),
         "a reference clip needs its transcript (the vendor contract makes reference_text "
         "mandatory)"},
        {specOf(toBytes("junk, and no audio"), "text"),
         "this audio does not look like WAV, MP3 or Ogg"},
        {specOf(toBytes("OggS and then nothing"), "text"), *oggResultText(OggResult::failed)},
        {specOf(opus, "text"), *oggResultText(OggResult::opus)},
    };
    for (const auto& [spec, message] : cases) {
        const TtsError error = errorOf([&, &refused = spec] { library.addClone(refused); });
        EXPECT_EQ(error.code, TtsErrorCode::badAudio);
        EXPECT_EQ(error.message, message);
    }
    EXPECT_EQ(library.count(), 0U);
    EXPECT_FALSE(fileExists(voicesFile()));

    // A failure at the second clip leaves the list alone; the first clip stays behind.
    VoiceCloneSpec two = specOf(wavOf(8000, 5000), "text");
    two.clips.push_back({wavOf(8000, 10), "text"});
    errorOf([&] { library.addClone(two); });
    EXPECT_EQ(library.count(), 0U);
    EXPECT_TRUE(fileExists(clips() + library.predictId(two) + "-0.wav"));

    std::filesystem::remove_all(clips());
    saveFileBytes(dir.file("clone"), asBytes("a file where the directory should be"));
    const TtsError error = errorOf([&] { library.addClone(specOf(wavOf(8000, 5000), "text")); });
    EXPECT_EQ(error.code, TtsErrorCode::cloneFailed);
    EXPECT_EQ(error.message.rfind("cannot save the reference audio: ", 0), 0U) << error.message;
    EXPECT_EQ(library.count(), 0U);
}

TEST_F(VoiceLibraryTest, ClipsAndVoicesAreAddedAndRemoved) {
    const VoiceInfo voice = library.addClone(specOf(wavOf(8000, 5000), "one"));
    EXPECT_EQ(errorOf([&] {
                  library.addClip(" nobody", {{}, ""});
              }).message,
              "no such voice:  nobody");
    for (const int index : {5, -1}) EXPECT_FALSE(library.removeClip(voice.id, index));
    EXPECT_FALSE(library.removeClip("nobody", 0));
    EXPECT_FALSE(library.remove("nobody"));
    EXPECT_EQ(errorOf([&] { library.removeClip(voice.id, 0); }).message,
              "this is the last reference clip - delete the whole voice instead");

    library.addClip(" " + uppercased(voice.id), {wavOf(8000, 6000), " two "});
    const VoiceInfo three = library.addClip(voice.id, {wavOf(8000, 7000), "three"});
    ASSERT_EQ(three.clips.size(), 3U);
    EXPECT_EQ(three.clips[1].fileName, voice.id + "-1.wav");
    EXPECT_EQ(three.clips[1].text, "two");
    EXPECT_TRUE(library.removeClip(voice.id, 1));
    EXPECT_FALSE(fileExists(clips() + voice.id + "-1.wav"));
    // The number of clips names the next file, and here takes over a name in use.
    const VoiceInfo again = library.addClip(voice.id, {wavOf(8000, 8000), "four"});
    EXPECT_EQ(again.clips[1].fileName, again.clips[2].fileName);
    VoiceLibrary reader(config, voicesFile(), clips());
    reader.load();
    EXPECT_EQ(reader.find(voice.id)->clips.at(2).durationMs, 8000);

    config.setAirlineVoice("CA", "zh", TtsGender::female, uppercased(voice.id));
    config.setDefaultVoice("", TtsGender::auto_, voice.id);
    config.setDefaultVoice("zh", TtsGender::auto_, "other");
    EXPECT_TRUE(library.remove(uppercased(voice.id)));
    EXPECT_FALSE(fileExists(clips() + voice.clips[0].fileName));
    AppConfig saved;
    saved.load();
    EXPECT_TRUE(saved.airlinesSnapshot().empty());
    EXPECT_EQ(saved.defaultsSnapshot(), (std::vector<Binding>{{"zh:default", "other"}}));
    reader.load();
    EXPECT_EQ(reader.count(), 0U);
}

TEST_F(VoiceLibraryTest, FirstMatchWinsWithoutRegardToCase) {
    writeVoicesFile(R"({"voices":[
        {"id":"Ab","display":"Ångström","language":"zh"},
        {"id":"aB","display":"second","language":"zh"},
        {"id":"c","display":"SECOND"}]})");
    library.load();
    EXPECT_EQ(library.find(" AB\n")->display, "Ångström");
    EXPECT_EQ(library.findByDisplay(" åNGSTRÖM ")->id, "Ab");
    EXPECT_EQ(library.findByDisplay("Second")->id, "aB");
    EXPECT_FALSE(library.find(""));
    EXPECT_EQ(library.forLanguage("zh").size(), 2U);
    EXPECT_EQ(library.forLanguage("").size(), 3U);

    VoiceInfo changed = *library.find("ab");
    changed.id = "AB";
    changed.display = "renamed";
    library.update(changed);
    changed.id = "unknown";
    library.update(changed);
    EXPECT_EQ(library.count(), 3U);
    EXPECT_FALSE(library.findByDisplay("ångström"));
    EXPECT_EQ(library.findByDisplay("RENAMED")->id, "AB");
    EXPECT_FALSE(library.findAlike("ångström", "zh", TtsGender::auto_));
    EXPECT_EQ(library.findAlike("RENAMED", "zh", TtsGender::auto_)->id, "AB");
    EXPECT_FALSE(library.findAlike("second", "ja", TtsGender::auto_));
    EXPECT_EQ(library.findAlike("second", "", TtsGender::auto_)->id, "c");
    EXPECT_FALSE(library.findAlike("second", "zh", TtsGender::male));
    // With the first one gone the second of the same id is the voice, and later ones are still found.
    EXPECT_TRUE(library.remove("ab"));
    EXPECT_EQ(library.find("ab")->display, "second");
    EXPECT_EQ(library.find("c")->display, "SECOND");
    EXPECT_TRUE(library.remove("ab"));
    EXPECT_FALSE(library.find("ab"));
}

TEST_F(VoiceLibraryTest, NamesFromOutsideNeverLeadOutOfTheClipDirectory) {
    saveFileBytes(dir.file("victim.wav"), wavOf(8000, 5000));
    saveFileBytes(clips() + "sub/victim.wav", wavOf(8000, 5000));
    writeVoicesFile(R"({"voices":[
        {"id":"a","clips":[{"file":"../victim.wav","text":"x"}]},
        {"id":"b","clips":[{"file":"sub/victim.wav","text":"x"},{"file":"..","text":"x"}]},
        {"id":"c","refAudio":")" +
                    dir.file("victim.wav") + R"("},
        {"id":"../d","clips":[{"file":"none.wav","text":"x"}]}]})");
    library.load();
    ASSERT_EQ(library.count(), 4U);
    for (const VoiceInfo& voice : library.all()) {
        if (voice.id.front() != '.') {
            for (const VoiceClip& clip : voice.clips) EXPECT_EQ(library.clipPath(clip), "");
        }
        EXPECT_FALSE(library.referenceAudio(voice)) << voice.id;
    }
    EXPECT_EQ(logged(LogLevel::warn).front(), "cannot read reference audio (../victim.wav)");
    EXPECT_EQ(errorOf([&] {
                  library.addClip("../d", {wavOf(8000, 5000), "x"});
              }).code,
              TtsErrorCode::cloneFailed);
    EXPECT_FALSE(fileExists(dir.file("d-1.wav")));
    EXPECT_TRUE(library.removeClip("b", 0));
    for (const char* id : {"a", "b", "c", "../d"}) EXPECT_TRUE(library.remove(id));
    EXPECT_TRUE(fileExists(dir.file("victim.wav")));
    EXPECT_TRUE(fileExists(clips() + "sub/victim.wav"));
}

TEST_F(VoiceLibraryTest, DamagedFilesLeaveAnEmptyLibrary) {
    const auto reload = [&] {
        AppLog::clear();
        library.load();
        return library.count();
    };
    writeVoicesFile(R"({"voices":[{"id":"a"},{"id":""},7,{"display":"nameless"}]})");
    EXPECT_EQ(reload(), 1U);
    for (const char* text : {"", "[]", "{\"voices\":["}) {
        writeVoicesFile(text);
        EXPECT_EQ(reload(), 0U) << text;
        EXPECT_EQ(
            logged(LogLevel::warn),
            (std::vector<std::string>{"voice library is not valid JSON, treating it as empty"}));
        EXPECT_EQ(readVoicesFile(), text);
    }
    for (const char* text : {"{}", R"({"voices":{}})"}) {
        writeVoicesFile(text);
        EXPECT_EQ(reload(), 0U) << text;
        EXPECT_TRUE(AppLog::snapshot().empty());
    }
    // Nor does one pass for missing of which the system does not even tell whether it is there.
    std::filesystem::remove(voicesFile());
    std::filesystem::create_symlink(voicesFile(), voicesFile());
    EXPECT_EQ(reload(), 0U);
    EXPECT_EQ(logged(LogLevel::error), (std::vector<std::string>{"cannot read the voice library"}));
    std::filesystem::remove(voicesFile());
    std::filesystem::create_directory(voicesFile());
    EXPECT_EQ(reload(), 0U);
    EXPECT_EQ(logged(LogLevel::error), (std::vector<std::string>{"cannot read the voice library"}));
    // Nor can it be written: logged, and the list in memory goes on.
    library.addClone(specOf(wavOf(8000, 5000), "text"));
    EXPECT_EQ(library.count(), 1U);
    EXPECT_EQ(logged(LogLevel::error).back().rfind("cannot write the voice library: ", 0), 0U);
}

TEST_F(VoiceLibraryTest, WritesThatWereKilledAreSweptAtTheLoad) {
    // No process has a number as high as the first one's.
    const std::string dead = clips() + "v-1-0.wav.zepho-tmp-2147483646-0";
    const std::string living = clips() + "v-1-0.wav.zepho-tmp-" + std::to_string(::getpid()) + "-9";
    saveFileBytes(dead, asBytes("half"));
    saveFileBytes(living, asBytes("half"));
    library.load();
    EXPECT_FALSE(fileExists(dead));
    EXPECT_TRUE(fileExists(living));
}

TEST_F(VoiceLibraryTest, NewestListReachesTheDiskWhoeverSaves) {
    constexpr int writerCount = 4;
    std::string text = R"({"voices":[{"id":"0"},{"id":"1"},{"id":"2"},{"id":"3"})";
    for (int i = 0; i < 300; ++i) text += R"(,{"id":"more)" + std::to_string(i) + "\"}";
    writeVoicesFile(text + "]}");
    library.load();
    const auto told = [](const VoiceLibrary& from) {
        std::string all;
        for (const VoiceInfo& voice : from.all())
            all += voice.id + " " + voice.note + " " + std::to_string(voice.clips.size()) + "\n";
        return all;
    };
    for (int round = 0; round < 25; ++round) {
        std::barrier start(writerCount);
        std::vector<std::thread> writers;
        for (int writer = 0; writer < writerCount; ++writer)
            writers.emplace_back([&, writer] {
                VoiceInfo own = *library.find(std::to_string(writer));
                own.note = std::to_string(round);
                start.arrive_and_wait();
                library.update(own);
                if (round % 5 != 0) return;
                const Bytes clip = wavOf(1000, 5000 + writer);
                const VoiceInfo voice = library.addClone(specOf(clip, "text"));
                library.addClip(voice.id, {clip, "more"});
                if (writer % 2 == 0) (void)library.remove(voice.id);
                (void)library.resolve(TtsRequest::make("x", "zh", TtsGender::male, 1));
            });
        for (std::thread& writer : writers) writer.join();
        // Every change has returned, so the file must hold all of them.
        VoiceLibrary onDisk(config, voicesFile(), clips());
        onDisk.load();
        ASSERT_EQ(told(onDisk), told(library));
        for (int writer = 0; writer < writerCount; ++writer)
            ASSERT_EQ(onDisk.find(std::to_string(writer))->note, std::to_string(round));
    }
    EXPECT_EQ(library.count(), 304U + 2 * 5);
}

}  // namespace
}  // namespace zepho::test
