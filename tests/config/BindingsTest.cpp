#include <gtest/gtest.h>

#include "core/config/AppConfig.h"

namespace zepho {
namespace {

TEST(Bindings, AreSetRemovedAndForgotten) {
    AppConfig config;
    config.setAirlineVoice("  ", "zh", TtsGender::female, "v");
    EXPECT_TRUE(config.airlinesSnapshot().empty());
    config.setAirlineVoice(" ca", "zh", TtsGender::female, " Voice ");
    config.setAirlineVoice("ANA", "", TtsGender::auto_, "other");
    config.setDefaultVoice("", TtsGender::auto_, "voice");
    EXPECT_EQ(config.airlineVoice("Ca", "zh-TW", TtsGender::female), "Voice");
    EXPECT_EQ(config.airlineVoice("CA", "zh", TtsGender::auto_), "");
    EXPECT_EQ(config.airlineVoice(" ", "zh", TtsGender::auto_), "");
    EXPECT_EQ(config.knownAirlines(), (std::vector<std::string>{"ANA", "CA"}));

    config.forgetVoice("  ");
    config.forgetVoice(" VOICE ");
    EXPECT_EQ(config.airlinesSnapshot(), (std::vector<Binding>{{"ANA::default", "other"}}));
    EXPECT_TRUE(config.defaultsSnapshot().empty());
    config.setAirlineVoice("ANA", "auto", TtsGender::auto_, " \t");
    EXPECT_TRUE(config.airlinesSnapshot().empty());
}

}  // namespace
}  // namespace zepho
