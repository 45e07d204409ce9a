// The bindings' rows, and their way to text and back.
#include <gtest/gtest.h>

#include "app/pages/BindingRows.h"
#include "app/pages/BindingText.h"
#include "core/diag/Language.h"

namespace zepho::test {
namespace {

VoiceInfo voiceOf(const std::string& id, const std::string& display) {
    VoiceInfo voice;
    voice.id = id;
    voice.display = display;
    return voice;
}

const std::vector<VoiceInfo> voices{voiceOf("v-1", "Aki"), voiceOf("v-2", "Bea"),
                                    voiceOf("v-3", "Bea")};

TEST(BindingRowsTest, TheFirstFreeSlotIsAnyLanguageFirst) {
    AppConfig config;
    const std::vector<std::string> languages{"zh", "ja"};
    std::string order;
    while (const auto slot = firstFreeSlot("ca", languages, config)) {
        order += slot->language + ":" + std::string(ttsGenderCode(slot->gender)) + " ";
        config.setAirlineVoice("CA", slot->language, slot->gender, "v-1");
    }
    EXPECT_EQ(order,
              ":default :female :male zh:default zh:female zh:male ja:default ja:female ja:male ");
    EXPECT_TRUE(firstFreeSlot("ANA", languages, config));
}

TEST(BindingTextTest, TakesWhatPeopleWrite) {
    setUiLang(UiLang::en);
    const BindingsRead read = bindingsFromText(
        "Airline\tLang\tGender\tVoices\r\n"
        "\r\n"
        " ana \t日本語 (ja)\tFemale\tAKI\r\n"
        "cca; JP ; 男 ; v-2\n"
        "CES,auto,,\"Aki\"\n"
        "ces\t自动\t默认\tBea\tv-3\n",
        voices);
    EXPECT_TRUE(read.errors.empty());
    std::string told;
    for (const BindingRow& row : read.rows) told += row.id + "=" + row.voiceId + " ";
    // The id decides between voices of one name.
    EXPECT_EQ(told, "ANA:ja:female=v-1 CCA:ja:male=v-2 CES::default=v-3 ");
    const auto rows = bindingRows({{"CA::default", "v-3"}, {"CA:ja:female", "v-9"}}, voices);
    EXPECT_EQ(bindingsToText({rows[0]}), "CA\tauto\tdefault\tBea\tv-3\n");
}

TEST(BindingTextTest, TellsTheLineOfEachFault) {
    setUiLang(UiLang::en);
    const BindingsRead read = bindingsFromText(
        "CA\tzh\tmale\tAki\nCA zh\n\tzh\tmale\tAki\nC:A\tzh\tmale\tAki\n\n"
        "CA\tcmn2\tmale\tAki\nCA\tzh\trobot\tAki\nCA\tzh\tmale\tZoe\nCA\tzh\tmale\t\t",
        voices);
    EXPECT_EQ(read.rows.size(), 1U);
    EXPECT_EQ(read.errors,
              (std::vector<std::string>{
                  "Line 2: needs four columns: airline, language, gender, voice.",
                  "Line 3: the airline code is missing.",
                  "Line 4: An airline code cannot contain a colon.", "Line 6: not a language: cmn2",
                  "Line 7: not a gender: robot", "Line 8: no such voice in the library: Zoe",
                  "Line 9: no such voice in the library: "}));
    EXPECT_TRUE(bindingsFromText("\n \r\n", voices).rows.empty());
    EXPECT_FALSE(bindingsFromText("\xff\xfe\t\xc3\t\t\n", voices).errors.empty());
}

}  // namespace
}  // namespace zepho::test
