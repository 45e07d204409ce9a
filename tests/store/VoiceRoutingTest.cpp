#include "tests/store/VoiceFixture.h"

namespace zepho::test {
namespace {

constexpr auto any = TtsGender::auto_;
constexpr auto female = TtsGender::female;
constexpr auto male = TtsGender::male;

class VoiceRoutingTest : public VoiceFixture {
protected:
    std::string idFor(const std::string& airline, const std::string& language, TtsGender gender) {
        TtsRequest request;
        request.airline = airline;
        request.language = language;
        request.gender = gender;
        const ResolvedVoice found = library.resolve(request);
        EXPECT_FALSE(found.explicit_);
        return found.voice ? found.voice->id : "";
    }
};

TEST_F(VoiceRoutingTest, VoiceThatIsGoneIsAnErrorWhereNamedAndLoggedWhereBound) {
    loadVoices(R"({"voices":[{"id":"Own"}]})");
    config.setDefaultVoice("", any, "Own");
    TtsRequest request;
    request.voiceId = " own ";
    EXPECT_TRUE(library.resolve(request).explicit_);
    EXPECT_EQ(library.resolve(request).voice->id, "Own");
    request.voiceId = "gone";
    const TtsError error = errorOf([&] { (void)library.resolve(request); });
    EXPECT_EQ(error.code, TtsErrorCode::badVoice);
    EXPECT_EQ(error.message, "没有这个音色:gone");

    config.setAirlineVoice("CA", "zh", female, "gone");
    config.setAirlineVoice("CA", "", any, "Own");
    AppLog::clear();
    EXPECT_EQ(library.availableGenders("CA", "zh-CN"), (std::set{any, male}));
    EXPECT_EQ(library.availableGenders("MU", "zh"), std::set{any});
    EXPECT_EQ(idFor("MU", "zh", female), "");
    EXPECT_TRUE(logged(LogLevel::warn).empty()) << "nothing is said where nothing is bound";
    EXPECT_EQ(idFor("CA", "zh", female), "");
    EXPECT_EQ(logged(LogLevel::warn), Lines{"the voice a binding points at is gone: gone"});
    EXPECT_EQ(config.airlinesSnapshot().size(), 2U);
}

TEST_F(VoiceRoutingTest, BestBindingOfTheOneTableWins) {
    struct Place {
        std::string language;
        TtsGender gender;
    };
    // For a woman's voice in Chinese, the best one first; and what is none for her.
    const std::vector<Place> ranked{{"zh", female}, {"zh", any}, {"", female}, {"", any}};
    const Place others[] = {{"zh", male}, {"ja", female}, {"ja", any}, {"", male}};
    loadVoices(R"({"voices":[{"id":"0"},{"id":"1"},{"id":"2"},{"id":"3"},{"id":"other"}]})");
    const auto bind = [&](const std::string& airline, const Place& place, const std::string& id) {
        if (airline.empty())
            config.setDefaultVoice(place.language, place.gender, id);
        else
            config.setAirlineVoice(airline, place.language, place.gender, id);
    };
    for (const std::string airline : {"CA", ""}) {
        for (std::size_t best = 0; best <= ranked.size(); ++best) {
            SCOPED_TRACE(airline + " " + std::to_string(best));
            config.reset();
            for (const Place& place : others) bind(airline, place, "other");
            for (const Place& place : ranked) bind(airline.empty() ? "CA" : "", place, "other");
            for (std::size_t at = best; at < ranked.size(); ++at)
                bind(airline, ranked[at], std::to_string(at));
            const std::string ids[] = {"0", "1", "2", "3", ""};
            EXPECT_EQ(idFor(airline, "zh-CN", female), ids[best]);
            EXPECT_EQ(idFor(airline, "zh", any), ids[std::min<std::size_t>(best | 1, 4)]);
            for (const char* language : {"", "auto", "en"})
                EXPECT_EQ(idFor(airline, language, female), ids[std::max<std::size_t>(best, 2)]);
            const std::set<TtsGender> all{any, female, male};
            EXPECT_EQ(library.availableGenders(airline, "zh"), best < 4 ? all : std::set{male});
            // Blanks are an airline, too.
            for (const char* unbound : {"MU", " "}) EXPECT_EQ(idFor(unbound, "zh", female), "");
        }
    }
}

TEST_F(VoiceRoutingTest, PlaceholderVoiceIsSteadyAndStoredNowhere) {
    const VoiceInfo voice = VoiceLibrary::fallbackVoice("zh", female);
    EXPECT_EQ(voice.id, "(auto):zh:female");
    EXPECT_EQ(voice.display, "未绑定(中文·Female)");
    EXPECT_EQ(voice.seed, 30614327);  // worked out by hand
    EXPECT_EQ(VoiceLibrary::fallbackVoice("zh", any).seed, voice.seed - 31);
    EXPECT_GT(VoiceLibrary::fallbackVoice(std::string(40, '\xFE'), male).seed, 0);
}

}  // namespace
}  // namespace zepho::test
