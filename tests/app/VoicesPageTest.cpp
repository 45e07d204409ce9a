// The voices page: cloning from files through the clip text sheet, editing, deleting.
#include "tests/app/VoicePagesFixture.h"

namespace zepho::test {
namespace {

class VoicesPageTest : public VoicePagesFixture {
protected:
    static bool drop(QWidget& page, const QStringList& paths, QPoint at) {
        return WindowFixture::drop(control<RecordTable>(page, "voices")->viewport(), paths, at);
    }
    [[nodiscard]] std::vector<VoiceInfo> stored() const { return state->service->voices.all(); }
};

TEST_F(VoicesPageTest, ClonesFromTwoFilesEditsAndDeletes) {
    Page& page = openPage(MainTab::voices);
    EXPECT_FALSE(button(page, "Delete")->isEnabled());
    click(page, "Clone from audio…");
    chooseInDialog({clipFile("keiko one.wav", 1500), clipFile("two.wav", 2500)});
    typeTexts({"first words", "second words"});
    EXPECT_EQ(control<QLineEdit>(*sheet(), "name")->text(), "keiko one");
    type(*sheet(), "name", "Keiko");
    typeLanguage(*sheet(), "JP");
    pickText(*sheet(), "gender", "Female");
    click(*sheet(), "OK");
    ASSERT_TRUE(eventually([&] { return rowsOf(page, "voices") == 1; }));
    EXPECT_EQ(cell(page, "voices", 0, 0), "Keiko");
    EXPECT_EQ(cell(page, "voices", 0, 1), "日本語");
    EXPECT_EQ(cell(page, "voices", 0, 4), "2 clip(s)");
    ASSERT_EQ(stored().size(), 1U);
    EXPECT_EQ(stored()[0].clips[1].text, "second words");
    EXPECT_EQ(control<RecordTable>(page, "voices")->selectedId(), stored()[0].id);

    // The new voice is selected and in the editor.
    QWidget& editor = *control<QWidget>(page, "editor");
    ASSERT_TRUE(editor.isVisible());
    type(editor, "display", "  ");
    click(editor, "Save changes");
    EXPECT_EQ(answerMessage(), "The name cannot be empty.");
    EXPECT_EQ(stored()[0].display, "Keiko");
    type(editor, "display", " Keiko B ");
    type(editor, "style", "calm");
    typeLanguage(editor, "cmn2");
    click(editor, "Save changes");
    ASSERT_TRUE(eventually([&] { return status(page) == "「Keiko B」已更新"; })) << status(page);
    EXPECT_EQ(stored()[0].display, "Keiko B");
    EXPECT_EQ(stored()[0].language, "");
    EXPECT_EQ(stored()[0].style, "calm");
    EXPECT_EQ(stored()[0].gender, TtsGender::female);

    // What is being typed survives a refresh, the selection, too.
    type(editor, "note", "half a no");
    state->refreshAll();
    EXPECT_EQ(control<QLineEdit>(editor, "note")->text(), "half a no");

    QTest::mouseClick(editor.findChildren<QPushButton*>("deleteClip")[0], Qt::LeftButton);
    EXPECT_EQ(answerMessage("OK"), "Delete this clip?\nfirst words");
    ASSERT_TRUE(eventually([&] { return cell(page, "voices", 0, 4) == "1 clip(s)"; }));
    EXPECT_EQ(stored()[0].clips[0].text, "second words");
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const auto deletes = editor.findChildren<QPushButton*>("deleteClip");
    ASSERT_EQ(deletes.size(), 1);
    QTest::mouseClick(deletes[0], Qt::LeftButton);
    EXPECT_EQ(answerMessage(), "this is the last reference clip - delete the whole voice instead");

    click(page, "Delete");
    EXPECT_EQ(answerMessage("Cancel"), "删掉音色「Keiko B」?参考音频也会一起删。");
    EXPECT_EQ(stored().size(), 1U);
    state->config->setAirlineVoice("ANA", "ja", TtsGender::auto_, stored()[0].id);
    click(page, "Delete");
    answerMessage("OK");
    ASSERT_TRUE(eventually([&] { return rowsOf(page, "voices") == 0; }));
    EXPECT_TRUE(state->bindings.empty());
    EXPECT_FALSE(editor.isVisible());
    EXPECT_FALSE(button(page, "Delete")->isEnabled());
}

TEST_F(VoicesPageTest, TheSheetTellsWhatIsWrongBeforeOk) {
    Page& page = openPage(MainTab::voices);
    const std::string broken = files.file("broken.wav");
    saveFileBytes(broken, toBytes("no audio at all"));
    click(page, "Clone from audio…");
    chooseInDialog({clipFile("short.wav", 999), clipFile("good.wav", 1000),
                    clipFile("long.wav", 30001), toQt(broken)});
    ASSERT_TRUE(eventually([] { return sheet() != nullptr; }));
    const auto warnings = sheet()->findChildren<QLabel*>("warning");
    const auto lengths = sheet()->findChildren<QLabel*>("length");
    const auto fields = sheet()->findChildren<QPlainTextEdit*>("transcript");
    ASSERT_EQ(warnings.size(), 4);
    const auto shows = [&](qsizetype i, const QString& part) {
        return eventually([&] { return warnings[i]->text().contains(part); });
    };
    EXPECT_TRUE(shows(0, "only 999 ms"));
    EXPECT_TRUE(shows(2, "30 s"));
    EXPECT_TRUE(shows(3, "does not look like"));
    EXPECT_TRUE(eventually([&] { return lengths[1]->text() == "1.0 s"; }));
    EXPECT_EQ(warnings[1]->text(), "The transcript is missing.");
    EXPECT_EQ(lengths[3]->text(), "—");
    QTest::keyClicks(fields[1], "ten words");
    EXPECT_EQ(warnings[1]->text(), "");
    EXPECT_EQ(control<QLabel>(*sheet(), "summary")->text(),
              "⚠ 3 clip(s) need attention, see above");

    // Playing, and the end of the sheet ends it.
    const auto plays = sheet()->findChildren<QPushButton*>("play");
    QTest::mouseClick(plays[2], Qt::LeftButton);
    EXPECT_TRUE(eventually([&] { return plays[2]->text() == "Stop"; }));
    EXPECT_TRUE(state->playing);
    click(*sheet(), "Cancel");
    EXPECT_TRUE(eventually([&] { return !state->playing; }));
    EXPECT_TRUE(stored().empty());
}

TEST_F(VoicesPageTest, ARefusalIsToldAndWhatWasTypedComesBack) {
    Page& page = openPage(MainTab::voices);
    const QStringList chosen{clipFile("one.wav", 1500), clipFile("two.wav", 1500)};
    click(page, "Clone from audio…");
    chooseInDialog(chosen);
    typeTexts({"said", ""});
    click(*sheet(), "OK");
    EXPECT_EQ(answerMessage().find("a reference clip needs its transcript"), 0U);
    click(page, "Clone from audio…");
    chooseInDialog(chosen);
    ASSERT_TRUE(eventually([] { return sheet() != nullptr; }));
    EXPECT_EQ(sheet()->findChildren<QPlainTextEdit*>("transcript")[0]->toPlainText(), "said");
    QFile::remove(chosen[1]);
    click(*sheet(), "OK");
    EXPECT_EQ(answerMessage(), "Cannot open " + fromQt(chosen[1]));
    EXPECT_TRUE(stored().empty());
}

TEST_F(VoicesPageTest, DroppedFilesJoinTheVoiceUnderThemOrMakeANewOne) {
    Page& page = openPage(MainTab::voices);
    addVoice("Aki");
    EXPECT_FALSE(drop(page, {toQt(files.path())}, QPoint(20, 10))) << "a directory";

    // The first failure stops; what was added before it stays.
    ASSERT_TRUE(drop(page, {clipFile("b.wav", 1300), clipFile("tiny.wav", 500)}, QPoint(20, 10)));
    typeTexts({"more", "too short"});
    EXPECT_EQ(control<QLineEdit>(*sheet(), "name"), nullptr);
    click(*sheet(), "OK");
    EXPECT_NE(answerMessage().find("only 500 ms"), std::string::npos);
    EXPECT_EQ(cell(page, "voices", 0, 4), "2 clip(s)");

    auto* const table = control<RecordTable>(page, "voices");
    drop(page, {clipFile("c.wav", 1300)}, QPoint(20, table->viewport()->height() - 4));
    typeTexts({"new one"});
    type(*sheet(), "name", "");
    click(*sheet(), "OK");
    ASSERT_TRUE(eventually([&] { return rowsOf(page, "voices") == 2; }));
    EXPECT_EQ(cell(page, "voices", 1, 0), "c") << "named after the file";
}

TEST_F(VoicesPageTest, PreviewPlaysTheFirstClip) {
    const std::string id = addVoice("Aki");
    Page& page = openPage(MainTab::voices);
    control<RecordTable>(page, "voices")->select(id);
    click(page, "Preview");
    ASSERT_TRUE(eventually([&] { return state->playing; }));
    EXPECT_EQ(state->player->durationMs(), 1200);
    const std::string clip = state->service->voices.clipPath(stored()[0].clips[0]);
    std::filesystem::remove(clip);
    click(page, "Preview");
    EXPECT_EQ(answerMessage(), "Cannot open " + clip);
}

}  // namespace
}  // namespace zepho::test
