#include <barrier>
#include <thread>

#include <unistd.h>

#include "core/audio/ClipDecoding.h"
#include "core/platform/Unicode.h"
#include "tests/store/VoiceFixture.h"
#include "tests/tools/EncodedClips.h"

namespace zepho::test {
namespace {

class VoiceLibraryTest : public VoiceFixture {
protected:
    TtsError refusalOf(const VoiceCloneSpec& spec) {
        return errorOf([&] { library.addClone(spec); });
    }
};

TEST_F(VoiceLibraryTest, CloneIsNamedAndSeededByItsContent) {
    VoiceCloneSpec spec = specOf(buildWav(PcmBuffer::silence(8000, 5000), 1), " hello\n", "  ");
    spec.style = " calm ";
    spec.note = " kept ";
    // These were worked out with sha256sum and plain arithmetic.
    const VoiceInfo first = library.addClone(spec);
    EXPECT_EQ(first.id, "v-f43de0c65d88");
    EXPECT_EQ(first.seed, 2129746363);
    EXPECT_EQ(first.display, first.id);
    EXPECT_EQ(first.style + first.note, "calm kept ");
    EXPECT_EQ(first.clips.at(0).fileName, "v-f43de0c65d88-0.wav");
    EXPECT_EQ(first.clips.at(0).text, "hello");

    spec.display = " Other ";
    const VoiceInfo second = library.addClone(spec);
    EXPECT_EQ(second.id, "v-f43de0c65d88-1");
    EXPECT_EQ(second.seed, 7450555);
    EXPECT_EQ(second.display, "Other");
    EXPECT_EQ(library.addClone(spec).id, "v-f43de0c65d88-2");
    // The lowest suffix that is free, however far the voices had come.
    EXPECT_TRUE(library.remove(second.id));
    EXPECT_EQ(library.addClone(spec).id, second.id);
    EXPECT_EQ(library.predictId(spec), "v-f43de0c65d88-3");
    // The order of the clips counts, and blanks within a text.
    spec.clips.push_back({toBytes("two"), "a b"});
    const std::string pair = library.predictId(spec);
    spec.clips[1].text = "a  b";
    EXPECT_NE(library.predictId(spec), pair);
    spec.clips[1].text = "a b";
    std::swap(spec.clips[0], spec.clips[1]);
    EXPECT_NE(library.predictId(spec), pair);
}

TEST_F(VoiceLibraryTest, WarnsOfClipsThatServeBadly) {
    const std::string unstable = " s; the official guidance is 5-30 s, cloning may be unstable";
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
    const std::pair<VoiceCloneSpec, std::string> cases[] = {
        {{}, "cloning needs at least one reference clip"},
        {specOf({}, "text"), "this clip has no audio data"},
        {specOf(toBytes("junk"), " \n\t"),
         "a reference clip needs its transcript (the vendor contract makes reference_text "
         "mandatory)"},
        {specOf(toBytes("junk, and no audio"), "text"),
         "this audio does not look like WAV, MP3 or Ogg"},
        {specOf(wavOf(8000, 999), "text"),
         "the reference clip is only 999 ms, too short (the vendor recommends 5-30 s)"},
        {specOf(toBytes("OggS and then nothing"), "text"), *oggResultText(OggResult::failed)},
        {specOf(encodeOpus(wavOf(48000, 5000)), "text"), *oggResultText(OggResult::opus)},
    };
    for (const auto& [spec, message] : cases) {
        const TtsError error = refusalOf(spec);
        EXPECT_EQ(error.code, TtsErrorCode::badAudio);
        EXPECT_EQ(error.message, message);
    }
    EXPECT_FALSE(fileExists(voicesFile()));
    // A failure at the second clip leaves the list alone; the first clip stays behind.
    VoiceCloneSpec two = specOf(wavOf(8000, 5000), "text");
    two.clips.push_back({wavOf(8000, 10), "text"});
    refusalOf(two);
    EXPECT_TRUE(fileExists(clips() + library.predictId(two) + "-0.wav"));

    std::filesystem::remove_all(clips());
    saveFileBytes(dir.file("clone"), asBytes("a file where the directory should be"));
    const TtsError error = refusalOf(specOf(wavOf(8000, 5000), "text"));
    EXPECT_EQ(error.code, TtsErrorCode::cloneFailed);
    EXPECT_TRUE(error.message.starts_with("cannot save the reference audio: ")) << error.message;
    EXPECT_EQ(library.count(), 0U);
}

TEST_F(VoiceLibraryTest, ClipsAndVoicesAreAddedAndRemoved) {
    const VoiceInfo voice = library.addClone(specOf(wavOf(8000, 5000), "one"));
    EXPECT_EQ(errorOf([&] {
                  library.addClip(" nobody", {{}, ""});
              }).message,
              "no such voice:  nobody");
    for (const int index : {5, 1, -1}) EXPECT_FALSE(library.removeClip(voice.id, index));
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
    library.load();
    EXPECT_EQ(library.find(voice.id)->clips.at(2).durationMs, 8000);

    config.setAirlineVoice("CA", "zh", TtsGender::female, uppercased(voice.id));
    config.setDefaultVoice("", TtsGender::auto_, voice.id);
    config.setDefaultVoice("zh", TtsGender::auto_, "other");
    EXPECT_TRUE(library.remove(uppercased(voice.id)));
    EXPECT_FALSE(fileExists(clips() + voice.clips[0].fileName));
    AppConfig saved;
    saved.load();
    EXPECT_TRUE(saved.airlinesSnapshot().empty());
    EXPECT_EQ(saved.defaultsSnapshot(), (std::vector<Binding>{{"zh:default", "other"}}));
    library.load();
    EXPECT_EQ(library.count(), 0U);
}

TEST_F(VoiceLibraryTest, FirstMatchWinsWithoutRegardToCase) {
    loadVoices(R"({"voices":[
        {"id":"Ab","display":"Ångström","language":"zh"},
        {"id":"aB","display":"second","language":"zh"},
        {"id":"c","display":"SECOND"}]})");
    EXPECT_EQ(library.find(" AB\n")->display, "Ångström");
    EXPECT_EQ(library.findByDisplay(" åNGSTRÖM ")->id, "Ab");
    EXPECT_EQ(library.findByDisplay("Second")->id, "aB");
    EXPECT_FALSE(library.find(""));
    EXPECT_EQ(library.forLanguage("zh").size(), 2U);

    VoiceInfo changed = *library.find("ab");
    changed.id = "AB";
    changed.display = "renamed";
    library.update(changed);
    changed.id = "unknown";
    library.update(changed);
    EXPECT_EQ(library.count(), 3U);
    EXPECT_FALSE(library.findByDisplay("ångström"));
    constexpr auto any = TtsGender::auto_;
    EXPECT_EQ(library.findAlike("RENAMED", "zh", any)->id, "AB");
    EXPECT_EQ(library.findAlike("second", "", any)->id, "c");
    // With the first one gone the second of the same id is the voice, and later ones are still found.
    EXPECT_TRUE(library.remove("ab"));
    EXPECT_EQ(library.find("ab")->display, "second");
    EXPECT_EQ(library.find("c")->display, "SECOND");
    EXPECT_TRUE(library.remove("ab"));
    EXPECT_FALSE(library.find("ab"));
}

TEST_F(VoiceLibraryTest, NamesFromOutsideNeverLeadOutOfTheClipDirectory) {
    const std::string victims[] = {dir.file("victim.wav"), clips() + "sub/victim.wav"};
    for (const std::string& victim : victims) saveFileBytes(victim, wavOf(8000, 5000));
    loadVoices(R"({"voices":[
        {"id":"a","clips":[{"file":"../victim.wav","text":"x"}]},
        {"id":"b","clips":[{"file":"sub/victim.wav","text":"x"},{"file":"..","text":"x"}]},
        {"id":"c","refAudio":")" +
               victims[0] + R"("},{"id":"../d","clips":[{"file":"none.wav","text":"x"}]}]})");
    for (const VoiceInfo& voice : library.all())
        EXPECT_FALSE(library.referenceAudio(voice)) << voice.id;
    EXPECT_EQ(logged(LogLevel::warn).front(), "cannot read reference audio (../victim.wav)");
    EXPECT_EQ(errorOf([&] {
                  library.addClip("../d", {wavOf(8000, 5000), "x"});
              }).code,
              TtsErrorCode::cloneFailed);
    EXPECT_FALSE(fileExists(dir.file("d-1.wav")));
    EXPECT_TRUE(library.removeClip("b", 0));
    for (const char* id : {"a", "b", "c", "../d"}) EXPECT_TRUE(library.remove(id));
    for (const std::string& victim : victims) EXPECT_TRUE(fileExists(victim));
}

TEST_F(VoiceLibraryTest, DamagedFilesLeaveAnEmptyLibrary) {
    const auto reload = [&] {
        AppLog::clear();
        library.load();
        return library.count();
    };
    // Writes that were killed are swept; no process has a number as high as the first one's.
    const std::string killed = clips() + "v-1-0.wav.zepho-tmp-2147483646-0";
    const std::string living = clips() + "v-1-0.wav.zepho-tmp-" + std::to_string(::getpid()) + "-9";
    for (const std::string& path : {killed, living}) saveFileBytes(path, asBytes("half"));
    loadVoices(R"({"voices":[{"id":"a"},{"id":""},7,{"display":"nameless"}]})");
    EXPECT_EQ(library.count(), 1U);
    EXPECT_FALSE(fileExists(killed));
    EXPECT_TRUE(fileExists(living));
    for (const std::string text : {"", "[]", "{\"voices\":[", "{}", R"({"voices":{}})"}) {
        saveFileBytes(voicesFile(), asBytes(text));
        EXPECT_EQ(reload(), 0U) << text;
        const bool isObject = text.ends_with('}');
        EXPECT_EQ(
            logged(LogLevel::warn),
            isObject ? Lines{} : Lines{"voice library is not valid JSON, treating it as empty"});
        EXPECT_EQ(asText(*loadFileBytes(voicesFile())), text);
    }
    // Nor does one pass for missing of which the system does not even tell whether it is there.
    std::filesystem::remove(voicesFile());
    std::filesystem::create_symlink(voicesFile(), voicesFile());
    EXPECT_EQ(reload(), 0U);
    EXPECT_EQ(logged(LogLevel::error).size(), 1U);
    std::filesystem::remove(voicesFile());
    std::filesystem::create_directory(voicesFile());
    EXPECT_EQ(reload(), 0U);
    EXPECT_EQ(logged(LogLevel::error), Lines{"cannot read the voice library"});
    // Nor can it be written: logged, and the list in memory goes on.
    library.addClone(specOf(wavOf(8000, 5000), "text"));
    EXPECT_EQ(library.count(), 1U);
    EXPECT_TRUE(logged(LogLevel::error).back().starts_with("cannot write the voice library: "));
}

TEST_F(VoiceLibraryTest, NewestListReachesTheDiskWhoeverSaves) {
    constexpr int writerCount = 4;
    std::string text = R"({"voices":[{"id":"0"},{"id":"1"},{"id":"2"},{"id":"3"})";
    for (int i = 0; i < 300; ++i) text += R"(,{"id":"more)" + std::to_string(i) + "\"}";
    loadVoices(text + "]}");
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
        // Every change has returned, so the file must hold all of them already.
        const auto onDisk = loadFileBytes(voicesFile());
        library.save();
        ASSERT_EQ(loadFileBytes(voicesFile()), onDisk);
        for (int writer = 0; writer < writerCount; ++writer)
            ASSERT_EQ(library.find(std::to_string(writer))->note, std::to_string(round));
    }
    EXPECT_EQ(library.count(), 304U + 2 * 5);
}

}  // namespace
}  // namespace zepho::test
