#include <set>
#include <string>

#include <gtest/gtest.h>

#include "core/base/Hash.h"

namespace zepho {
namespace {

TEST(Hash, KnownValues) {
    EXPECT_EQ(sha256Utf8(""), "E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855");
    EXPECT_EQ(stableHash("a"), 5381 * 33 + 97);
    EXPECT_EQ(stableHash("你好 abc"), INT64_C(8252281270760271987));
}

TEST(Hash, CacheKeyIsTheHashOfWhatChangesTheSound) {
    TtsRequest request;
    request.text = "你好|x";
    request.style = "soft";
    request.speed = 1.25F;
    request.seed = 99;
    VoiceInfo voice;
    voice.id = "v-1";
    voice.profileFile = "p.json";
    voice.style = "calm";
    voice.seed = -7;
    // printf %s 'placeholder|v-1|p.json|calm|-7|1.250|False|44100|99|soft|[soft] 你好|x' | sha256sum
    const std::string key = "4458CCCABE698649E531732805598C49BCFB20AE72704AD5FE725647EC7AAAA0";
    EXPECT_EQ(makeCacheKey(request, voice, "placeholder", 44100, false), key);

    // These act only through the voice.
    TtsRequest other = request;
    other.language = "ja";
    other.gender = TtsGender::male;
    other.airline = "CA";
    other.priority = TtsPriority::high;
    other.sampleRate = 8000;
    EXPECT_EQ(makeCacheKey(other, voice, "placeholder", 44100, false), key);

    std::set<std::string> keys{key};
    keys.insert(makeCacheKey(request, voice, "placeholder", 44100, true));
    keys.insert(makeCacheKey(request, voice, "placeholder", 48000, false));
    keys.insert(makeCacheKey(request, voice, "other", 44100, false));
    request.speed = 1.251F;
    keys.insert(makeCacheKey(request, voice, "placeholder", 44100, false));
    EXPECT_EQ(keys.size(), 5U);
}

}  // namespace
}  // namespace zepho
