// The preview page: the request that its controls make, and what becomes of it.
#include <QComboBox>
#include <QLabel>
#include <QPlainTextEdit>
#include <QSlider>

#include "app/widgets/WaveformView.h"
#include "core/platform/Files.h"
#include "tests/app/WindowFixture.h"
#include "tests/support/TempDir.h"

namespace zepho::test {
namespace {

class PreviewPageTest : public WindowFixture {
protected:
    Page& page() { return openPage(MainTab::preview); }
    template <class Control>
    Control* the(const char* control) {
        return page().findChild<Control*>(control);
    }
    QPlainTextEdit* text() { return the<QPlainTextEdit>("text"); }
    QPushButton* play() { return the<QPushButton>("synthesize"); }
    std::string message() { return fromQt(the<QLabel>("message")->text()); }
    void type(const char* line) {
        text()->selectAll();
        text()->setFocus();
        QTest::keyClicks(text(), line);
    }
    // Synthesizes what is typed and waits for the clip's end of the work.
    void speak() {
        play()->click();
        EXPECT_FALSE(play()->isEnabled());
        EXPECT_EQ(play()->text(), "Synthesizing…");
        ASSERT_TRUE(eventually([&] { return play()->isEnabled(); }));
    }
    void drop(const QStringList& paths) {
        QWidget* const where = text()->viewport();
        EXPECT_TRUE(WindowFixture::drop(where, paths, where->rect().center()));
    }
};

TEST_F(PreviewPageTest, SpeaksATypedLineAndTellsOfIt) {
    click(page(), "Synthesize & play");
    EXPECT_EQ(answerMessage(), "Type something to synthesize first.");
    type("  hello there ");
    the<QSlider>("speed")->setValue(150);
    QTest::keyClick(text(), Qt::Key_Return, Qt::ControlModifier);
    ASSERT_TRUE(eventually([&] { return state->lastResult.has_value(); }));
    EXPECT_FLOAT_EQ(state->lastResult->speed, 1.5F);
    EXPECT_NE(message().find(" · fresh · "), std::string::npos) << message();
    // The auto-made voice has come into the list.
    ASSERT_EQ(state->voices.size(), 1U);
    EXPECT_NE(message().find("音色 " + state->voices[0].display), std::string::npos) << message();
    ASSERT_TRUE(eventually([&] { return state->playing; }));
    EXPECT_TRUE(eventually([&] { return the<WaveformView>("outline")->position() > 0; }));
    QTest::keyClick(text(), Qt::Key_Escape);
    EXPECT_TRUE(eventually([&] { return !state->playing; }));
    speak();
    EXPECT_NE(message().find("from cache"), std::string::npos) << message();
    // What was typed is still there after a look at other pages.
    openPage(MainTab::service);
    EXPECT_EQ(text()->toPlainText(), "  hello there ");
}

TEST_F(PreviewPageTest, PicksTheVoiceInThreeWays) {
    auto* const mode = the<QComboBox>("mode");
    mode->setCurrentIndex(1);
    EXPECT_TRUE(the<QLabel>("noAirline")->isVisible());
    EXPECT_FALSE(the<QComboBox>("airline")->isVisible());
    const VoiceInfo made = state->service->ensureDefaultVoice("ja", TtsGender::male);
    const VoiceInfo other = state->service->ensureDefaultVoice("en", TtsGender::female);
    state->config->setAirlineVoice("CCA", "en", TtsGender::female, made.id);
    state->reloadVoices();
    state->reloadBindings();
    EXPECT_FALSE(the<QLabel>("noAirline")->isVisible());
    EXPECT_EQ(the<QComboBox>("airline")->currentText(), "CCA");
    the<QLineEdit>("language")->setText("EN-us");
    EXPECT_EQ(the<QComboBox>("languages")->currentData().toString(), "en");
    the<QComboBox>("gender")->setCurrentIndex(1);
    type("by airline");
    speak();
    ASSERT_TRUE(state->lastResult) << message();
    EXPECT_EQ(state->lastResult->voiceId, made.id);
    EXPECT_EQ(state->lastResult->language, "en");
    mode->setCurrentIndex(0);
    speak();
    EXPECT_EQ(state->lastResult->voiceId, other.id);
    mode->setCurrentIndex(2);
    EXPECT_FALSE(the<QLineEdit>("language")->isVisible());
    auto* const voice = the<QComboBox>("voice");
    voice->setCurrentIndex(voice->findData(toQt(made.id)));
    state->reloadVoices();
    EXPECT_EQ(voice->currentData().toString(), toQt(made.id));
    the<QLineEdit>("style")->setText("calm");
    speak();
    EXPECT_EQ(state->lastResult->voiceId, made.id);
    EXPECT_EQ(state->lastResult->language, "");
    EXPECT_EQ(state->service->cache.stats().count, 3);
    state->service->unloadModel();
    type("not cached");
    speak();
    EXPECT_EQ(message().find("Synthesis failed: The model is unloaded"), 0U) << message();
}

TEST_F(PreviewPageTest, SavesTheLastClip) {
    click(page(), "Save as WAV");
    EXPECT_EQ(answerMessage(), "No audio has been synthesized yet.");
    type("keep me");
    speak();
    const TempDir place;
    click(page(), "Save as WAV");
    chooseInDialog({toQt(place.file("kept"))});
    ASSERT_TRUE(eventually([&] { return fileExists(place.file("kept.wav")); }));
    const auto kept = loadFileBytes(place.file("kept.wav"));
    ASSERT_TRUE(kept);
    EXPECT_EQ(asText(*kept), asText(state->lastResult->wav));
    EXPECT_TRUE(eventually([&] { return message().find("Saved: ") == 0; }));
    click(page(), "Save as WAV");
    chooseInDialog({"/proc/nowhere/kept.wav"});
    EXPECT_EQ(answerMessage().find("Cannot save it: "), 0U);
}

TEST_F(PreviewPageTest, TakesADroppedTextFile) {
    const TempDir place;
    const auto file = [&](const char* name, const std::string& content) {
        saveFileBytes(place.file(name), asBytes(content));
        return toQt(place.file(name));
    };
    type("typed before");
    drop({file("good.txt", "\xEF\xBB\xBFご搭乗ください。\nnow")});
    ASSERT_TRUE(eventually([&] { return text()->toPlainText() == "ご搭乗ください。\nnow"; }));
    text()->undo();
    EXPECT_EQ(text()->toPlainText(), "typed before");
    drop({file("latin.txt", "caf\xE9")});
    EXPECT_EQ(answerMessage(), "This file is not UTF-8 text: latin.txt");
    drop({file("big.txt", std::string(256 * 1024 + 1, 'a'))});
    EXPECT_EQ(answerMessage(), "This file is too large (limit 256 KB): big.txt");
    drop({toQt(place.file("gone.txt"))});
    EXPECT_EQ(answerMessage(), "Cannot read this file: gone.txt");
    drop({toQt(place.file("good.txt")), toQt(place.file("big.txt"))});
    EXPECT_EQ(answerMessage(), "Drop one text file at a time.");
    EXPECT_EQ(text()->toPlainText(), "typed before");
}

}  // namespace
}  // namespace zepho::test
