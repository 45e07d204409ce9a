// Real files and hostile ones, cloned over a socket: from the client's Base64 to the voice that
// speaks, and over a restart.
#include <filesystem>

#include <gtest/gtest.h>

#include "core/audio/WavReader.h"
#include "tests/http/ApiFixture.h"
#include "tests/support/HttpClient.h"
#include "tests/tools/EncodedClips.h"
#include "tests/tools/HostileClips.h"

namespace zepho {
namespace {

class ApiClipsTest : public test::ApiFixture {
protected:
    void SetUp() override {
        ApiFixture::SetUp();
        listen();
    }
    void listen() {
        config->bindAddress = "127.0.0.1";
        http = TtsHttpService::make(service);
        startListening();
    }
    void restartAll() {
        http.reset();
        restart();
        listen();
    }

    struct Spoken {
        int status = 0;
        std::map<std::string, std::string> headers;
        std::string body;
    };
    Spoken send(const std::string& method, const std::string& target,
                const std::string& body = {}) const {
        test::HttpClient client(static_cast<int>(config->port.get()));
        auto answer = client.request(method, target, body);
        if (!answer) throw std::runtime_error("no answer to " + method + " " + target);
        return {answer->status, std::move(answer->headers), std::move(answer->body)};
    }
    Json sendJson(const std::string& method, const std::string& target,
                  const Json& body = nullptr) const {
        const Spoken answer = send(method, target, body.is_null() ? "" : body.dump());
        EXPECT_EQ(answer.status, 200) << answer.body;
        return Json::parse(answer.body);
    }
};

TEST_F(ApiClipsTest, FilesOfEveryKindBecomeVoicesThatLast) {
    const Bytes wav = test::toneWav(44100, 2, 88'200);
    struct File {
        std::string name;
        std::string airline;
        Bytes bytes;
        bool decodable;
    };
    const std::vector<File> files{{"wav", "AAA", wav, true},
                                  {"mp3", "BBB", test::encodeMp3(wav), true},
                                  {"ogg", "CCC", test::encodeVorbis(wav), true},
                                  {"opus", "DDD", test::encodeOpus(wav), false}};
    std::map<std::string, std::string> ids;
    for (const File& file : files) {
        const Json order{{"display", file.name},
                         {"audio", test::base64(file.bytes)},
                         {"reference_text", "the " + file.name}};
        if (!file.decodable) {
            const Spoken refused = send("POST", "/v1/voices/clone", order.dump());
            EXPECT_EQ(refused.status, 400) << refused.body;
            EXPECT_EQ(Json::parse(refused.body)["error"], "bad_audio");
            continue;
        }
        const Json made = sendJson("POST", "/v1/voices/clone", order);
        const std::string id = made["id"];
        ids[file.airline] = id;
        EXPECT_EQ(made["display"], file.name);
        EXPECT_NEAR(made["clips"][0]["duration_ms"].get<double>(), 2000, 60) << file.name;
        sendJson("PUT", "/v1/airlines", {{"airline", file.airline}, {"voice", id}});
        const Spoken line = send("GET", "/v1/tts?text=Now+boarding&airline=" + file.airline);
        EXPECT_EQ(line.status, 200) << line.body;
        EXPECT_EQ(line.headers.at("x-zepho-voice"), id);
        EXPECT_TRUE(parseWav(asBytes(line.body)));
        // What the engine got to imitate is the clip: WAV and MP3 as they came, Ogg as WAV.
        const S2Params params = engine->calls().back();
        const ByteView reference = params.referenceAudio;
        if (file.name == "ogg") {
            const auto wavOfOgg = parseWav(reference);
            ASSERT_TRUE(wavOfOgg);
            EXPECT_NEAR(static_cast<double>(wavOfOgg->durationMs()), 2000, 60);
        } else {
            EXPECT_TRUE(std::equal(reference.begin(), reference.end(), file.bytes.begin(),
                                   file.bytes.end()))
                << file.name;
        }
        EXPECT_EQ(params.referenceText, "the " + file.name);
    }
    const Json voices = sendJson("GET", "/v1/voices");
    EXPECT_EQ(voices["count"], 3);
    const Json airlines = sendJson("GET", "/v1/airlines");
    EXPECT_EQ(airlines.size(), 3U);
    const std::size_t spoken = engine->calls().size();

    restartAll();
    EXPECT_EQ(sendJson("GET", "/v1/voices"), voices);
    EXPECT_EQ(sendJson("GET", "/v1/airlines"), airlines);
    for (const auto& [airline, id] : ids) {
        const Spoken line = send("GET", "/v1/tts?text=Now+boarding&airline=" + airline);
        EXPECT_EQ(line.headers.at("x-zepho-cache"), "hit") << airline;
        EXPECT_EQ(line.headers.at("x-zepho-voice"), id);
        EXPECT_EQ(send("GET", "/v1/tts?text=Last+call&airline=" + airline).status, 200);
    }
    EXPECT_EQ(engine->calls().size(), spoken + 3);
    EXPECT_FALSE(engine->calls().back().referenceAudio.empty());

    for (const auto& [airline, id] : ids) sendJson("DELETE", "/v1/voices/" + id);
    EXPECT_EQ(sendJson("GET", "/v1/airlines"), Json::object());
    EXPECT_TRUE(std::filesystem::is_empty(ZEPHOPaths::voicesDir()));
    restartAll();
    EXPECT_EQ(sendJson("GET", "/v1/voices")["count"], 0);
}

TEST_F(ApiClipsTest, HostileClipsAreAnsweredAndServiceGoesOn) {
    bindVoice();
    std::vector<test::HostileClip> clips = test::hostileOggClips();
    for (auto& clip : test::hostileMp3Clips()) clips.push_back(std::move(clip));
    const Bytes wav = test::toneWav(22050, 2, 22'050);
    for (const auto& [name, good] :
         {std::pair{"ogg", test::encodeVorbis(wav)}, {"mp3", test::encodeMp3(wav)}, {"wav", wav}})
        for (auto& clip : test::damagedClips(name, good, 6)) clips.push_back(std::move(clip));
    for (const test::HostileClip& clip : clips) {
        const std::size_t before = service->voices.count();
        const Spoken answer =
            send("POST", "/v1/voices/clone",
                 Json{{"audio", test::base64(clip.bytes)}, {"reference_text", "t"}}.dump());
        const Json json = Json::parse(answer.body);
        if (answer.status == 200) {
            // A damaged file may hold a clip still, and what it claims must be speakable.
            EXPECT_GE(json["clips"][0]["duration_ms"], 0) << clip.name;
            EXPECT_EQ(send("GET", "/v1/tts?text=x&voice=" + std::string(json["id"])).status, 200)
                << clip.name;
            EXPECT_EQ(send("DELETE", "/v1/voices/" + std::string(json["id"])).status, 200);
        } else {
            EXPECT_EQ(answer.status, 400) << clip.name << " " << answer.body;
            EXPECT_EQ(json["error"], "bad_audio") << clip.name;
            EXPECT_EQ(service->voices.count(), before) << clip.name;
        }
        EXPECT_EQ(send("GET", "/health").status, 200) << clip.name;
    }
    EXPECT_EQ(send("GET", "/v1/tts?text=still+here").status, 200);
    EXPECT_EQ(service->voices.count(), 1U);
}

}  // namespace
}  // namespace zepho
