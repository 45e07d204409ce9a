#include <array>

#include "core/base/Text.h"
#include "tests/store/VoiceFixture.h"

namespace zepho::test {
namespace {

class VoiceRoutingTest : public VoiceFixture {
protected:
    void addVoice(const std::string& id) {
        present += (present.empty() ? "" : ",") + ("{\"id\":\"" + id + "\"}");
        writeVoicesFile("{\"voices\":[" + present + "]}");
        library.load();
    }

    std::string idFor(const std::string& airline, const std::string& language, TtsGender gender) {
        TtsRequest request;
        request.airline = airline;
        request.language = language;
        request.gender = gender;
        const ResolvedVoice found = library.resolve(request);
        EXPECT_FALSE(found.explicit_);
        return found.voice ? found.voice->id : "";
    }

    std::string present;
};

constexpr auto any = TtsGender::auto_;
constexpr auto female = TtsGender::female;
constexpr auto male = TtsGender::male;

TEST_F(VoiceRoutingTest, ExplicitVoiceNeverFallsBack) {
    addVoice("Own");
    config.setDefaultVoice("", any, "Own");
    TtsRequest request;
    request.voiceId = " own ";
    const ResolvedVoice found = library.resolve(request);
    EXPECT_TRUE(found.explicit_);
    EXPECT_EQ(found.voice->id, "Own");
    request.voiceId = "gone";
    const TtsError error = errorOf([&] { (void)library.resolve(request); });
    EXPECT_EQ(error.code, TtsErrorCode::badVoice);
    EXPECT_EQ(error.message, "没有这个音色:gone");
}

TEST_F(VoiceRoutingTest, VanishedVoiceIsLoggedAndTheBindingStays) {
    config.setAirlineVoice("CA", "", any, "gone");
    EXPECT_EQ(idFor("CA", "zh", female), "");
    EXPECT_EQ(logged(LogLevel::warn),
              (std::vector<std::string>{"the voice a binding points at is gone: gone"}));
    AppLog::clear();
    EXPECT_EQ(library.availableGenders("CA", "zh"), (std::set<TtsGender>{any}));
    EXPECT_EQ(idFor("CA", "", any).size() + idFor("MU", "", any).size(), 0U);
    EXPECT_EQ(logged(LogLevel::warn).size(), 1U);  // nothing is said where nothing is bound
    EXPECT_EQ(config.airlinesSnapshot().size(), 1U);
}

struct Bound {
    std::string airline;  // empty for the default table
    std::string language;
    TtsGender gender = any;
    std::string id;
};

// The best binding by a score, found by looking at every one of them.
std::string bestByScore(const std::vector<Bound>& bindings, const std::string& airline,
                        const std::string& language, TtsGender gender) {
    int best = -1;
    std::string id;
    for (const Bound& binding : bindings) {
        const bool exactLanguage = binding.language == language;
        const bool exactGender = binding.gender == gender;
        if (binding.airline != airline) continue;
        if (!exactLanguage && !binding.language.empty()) continue;
        if (!exactGender && binding.gender != any) continue;
        const int score = (exactLanguage ? 2 : 0) + (exactGender ? 1 : 0);
        if (score > best) id = binding.id;
        best = std::max(best, score);
    }
    return id;
}

TEST_F(VoiceRoutingTest, EveryTableGivesTheBestBinding) {
    constexpr std::array genders{any, female, male};
    const std::array<std::string, 3> languages{"", "zh", "ja"};
    const std::array<std::string, 4> asked{"", "auto", "zh-CN", "en"};
    // Every third binding leads to a voice that is not there.
    for (int i = 0; i < 18; ++i)
        if (i % 3 != 2) addVoice("v" + std::to_string(i));
    for (unsigned pattern = 0; pattern < 512; ++pattern) {
        const unsigned bits = pattern | ((pattern * 37 + 11) % 512) << 9;
        std::vector<Bound> bindings;
        config.reset();
        for (unsigned i = 0; i < 18; ++i) {
            if ((bits >> i & 1) == 0) continue;
            const Bound binding{i < 9 ? "CA" : "", languages.at(i / 3 % 3), genders.at(i % 3),
                                "v" + std::to_string((i * 7 + 1) % 18)};
            bindings.push_back(binding);
            if (i < 9)
                config.setAirlineVoice("CA", binding.language, binding.gender, binding.id);
            else
                config.setDefaultVoice(binding.language, binding.gender, binding.id);
        }
        // Blanks are an airline, if one without bindings.
        for (const char* airline : {"CA", "", "MU", " "}) {
            for (const std::string& language : asked) {
                std::set<TtsGender> resolvable;
                for (const TtsGender gender : genders) {
                    const std::string spoken = normLang(language);
                    std::string expected = bestByScore(bindings, airline, spoken, gender);
                    if (!expected.empty() && std::stoi(expected.substr(1)) % 3 == 2) expected = "";
                    if (!expected.empty()) resolvable.insert(gender);
                    ASSERT_EQ(idFor(airline, language, gender), expected)
                        << "bindings " << bits << " for " << airline << ":" << language << ":"
                        << ttsGenderCode(gender);
                }
                if (resolvable.empty()) resolvable.insert(any);
                ASSERT_EQ(library.availableGenders(airline, language), resolvable);
            }
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
