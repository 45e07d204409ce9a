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

TEST(BindingRowsTest, SplitSortedAndNamed) {
    const auto rows = bindingRows({{"CA:zh:male", "V-1"},
                                   {"CA:zh:female", "v-9"},
                                   {"ANA::default", "v-2"},
                                   {"CA::default", "v-2"},
                                   {"odd", "v-1"}},
                                  voices);
    std::string told;
    for (const BindingRow& row : rows)
        told += row.airline + "/" + row.language + "/" + std::string(ttsGenderCode(row.gender)) +
                "=" + row.voiceName + " ";
    EXPECT_EQ(told,
              "ANA//default=Bea CA//default=Bea CA/zh/female= CA/zh/male=Aki odd//default=Aki ");
    // From the exact to the general, never to another gender or airline.
    EXPECT_EQ(fallbackOf(rows[3], rows), &rows[1]);
    EXPECT_EQ(fallbackOf(rows[1], rows), nullptr);
    const auto more = bindingRows({{"CA:zh:default", "v-1"},
                                   {"CA:zh:female", "v-1"},
                                   {"CA::female", "v-1"},
                                   {"CA::default", "v-1"}},
                                  voices);
    EXPECT_EQ(fallbackOf(more[3], more)->id, "CA:zh:default");
    EXPECT_EQ(fallbackOf(more[2], more)->id, "CA::default");
    EXPECT_EQ(fallbackOf(more[1], more)->id, "CA::default");
}

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

TEST(BindingTextTest, WhatIsCopiedComesBack) {
    const auto rows = bindingRows(
        {{"CA:zh:male", "v-1"}, {"CA::default", "v-3"}, {"CA:ja:female", "v-9"}}, voices);
    EXPECT_EQ(bindingsToText({rows[0]}), "CA\tauto\tdefault\tBea\tv-3\n");
    const BindingsRead read = bindingsFromText(bindingsToText({rows[0], rows[2]}), voices);
    ASSERT_EQ(read.rows.size(), 2U);
    EXPECT_EQ(read.rows[0].id, "CA::default");
    EXPECT_EQ(read.rows[0].voiceId, "v-3") << "the id decides between voices of one name";
    EXPECT_EQ(read.rows[1].id, "CA:zh:male");
    EXPECT_TRUE(read.errors.empty());
}

TEST(BindingTextTest, TakesWhatPeopleWrite) {
    setUiLang(UiLang::en);
    const BindingsRead read = bindingsFromText(
        "Airline\tLang\tGender\tVoices\r\n"
        "\r\n"
        " ana \t日本語 (ja)\tFemale\tAKI\r\n"
        "cca; JP ; 男 ; v-2\n"
        "CES,auto,,\"Aki\"\n"
        "ces\t自动\t默认\tBea\n",
        voices);
    EXPECT_TRUE(read.errors.empty());
    std::string told;
    for (const BindingRow& row : read.rows) told += row.id + "=" + row.voiceId + " ";
    EXPECT_EQ(told, "ANA:ja:female=v-1 CCA:ja:male=v-2 CES::default=v-2 ");
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
