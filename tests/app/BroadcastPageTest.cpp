// The broadcast page: bindings, copies, rows as text, clone packs.
#include <QClipboard>
#include <QMenu>
#include <QTextDocumentFragment>

#include "core/platform/Files.h"
#include "tests/app/VoicePagesFixture.h"

namespace zepho::test {
namespace {

class BroadcastPageTest : public VoicePagesFixture {
protected:
    // What the rows say, one a line.
    static std::string shown(QWidget& page) {
        std::string all;
        for (int row = 0; row < rowsOf(page, "bindings"); ++row) {
            for (int column = 0; column < 4; ++column)
                all += (column > 0 ? " " : "") + fromQt(cell(page, "bindings", row, column));
            all += "\n";
        }
        return all;
    }
    static RecordTable& table(QWidget& page) { return *control<RecordTable>(page, "bindings"); }
    // As a reader sees it.
    static std::string tip(QWidget& page, int row) {
        const QAbstractItemModel* const model = control<QTableView>(page, "bindings")->model();
        const QString text = model->index(row, 0).data(Qt::ToolTipRole).toString();
        return fromQt(
            Qt::mightBeRichText(text) ? QTextDocumentFragment::fromHtml(text).toPlainText() : text);
    }
    [[nodiscard]] std::string bound(const std::string& airline, const std::string& language,
                                    TtsGender gender = TtsGender::auto_) const {
        return state->config->airlineVoice(airline, language, gender);
    }
};

TEST_F(BroadcastPageTest, BindsReplacesAndUnbinds) {
    const std::string aki = addVoice("Aki");
    const std::string bea = addVoice("Bea");
    Page& page = openPage(MainTab::broadcast);
    click(page, "Add");
    EXPECT_EQ(answerMessage(),
              "Enter an airline code first (ICAO three-letter, e.g. ANA, CCA, CES).");
    click(page, "Delete");
    EXPECT_EQ(answerMessage(), "Select a row above first.");
    type(page, "airline", " ana ");
    click(page, "Add");
    EXPECT_EQ(answerMessage(),
              "Pick a voice first. If there is none, clone one on the Voices page.");
    typeLanguage(page, "jp");
    pickText(page, "gender", "Female");
    pickText(page, "voice", "Aki");
    click(page, "Add");
    EXPECT_EQ(shown(page), "ANA 日本語 Female Aki\n");
    EXPECT_EQ(status(page), "已新增 ANA · 日本語 · Female");
    EXPECT_EQ(table(page).selectedId(), "ANA:ja:female");
    // The same slot again takes the other voice; the language may be a code without a name.
    pickText(page, "voice", "Bea");
    click(page, "Add");
    EXPECT_EQ(shown(page), "ANA 日本語 Female Bea\n");
    typeLanguage(page, "xx");
    click(page, "Add");
    EXPECT_EQ(bound("ANA", "xx", TtsGender::female), bea);

    // A copy takes the next free slot.
    click(page, "Copy");
    EXPECT_EQ(table(page).selectedId(), "ANA::default");
    click(page, "Delete");
    table(page).select("ANA:xx:female");

    // On disk, too.
    EXPECT_TRUE(eventually([] {
        AppConfig saved;
        saved.load();
        return saved.airlinesSnapshot().size() == 2;
    }));
    // Through a change of language the selection and the form stay.
    state->setLanguage(UiLang::ja);
    state->setLanguage(UiLang::en);
    EXPECT_EQ(table(page).selectedId(), "ANA:xx:female");
    EXPECT_EQ(control<QComboBox>(page, "language")->currentText(), "xx");
    click(page, "Delete");
    EXPECT_EQ(shown(page), "ANA 日本語 Female Bea\n");
}

TEST_F(BroadcastPageTest, ABindingWhoseVoiceIsGone) {
    state->config->setAirlineVoice("CA", "zh", TtsGender::male, "v-gone");
    state->config->setAirlineVoice("CA", "", TtsGender::auto_, addVoice("Aki"));
    state->reloadBindings();
    Page& page = openPage(MainTab::broadcast);
    EXPECT_EQ(shown(page), "CA Auto Default Aki\nCA 中文 Male this voice no longer exists\n");
    EXPECT_EQ(tip(page, 1), "Without this row: Aki (CA · Auto · Default)");
    table(page).select("CA:zh:male");
    click(page, "Copy");
    EXPECT_EQ(answerMessage(),
              "The voice this row points at is gone — pick one first, then duplicate.");
    click(page, "Delete");
    EXPECT_EQ(shown(page), "CA Auto Default Aki\n");
    table(page).select("CA::default");
    click(page, "Preview");
    EXPECT_TRUE(eventually([&] { return state->playing; }));
}

TEST_F(BroadcastPageTest, AToolTipShowsMarkupInANameAsItStands) {
    const std::string name = R"(<b>Aki</b> &amp; <img src="x">)";
    state->config->setAirlineVoice("CA", "zh", TtsGender::male, addVoice("Bea"));
    state->config->setAirlineVoice("CA", "", TtsGender::auto_, addVoice(name));
    state->reloadBindings();
    EXPECT_EQ(tip(openPage(MainTab::broadcast), 1),
              "Without this row: " + name + " (CA · Auto · Default)");
}

TEST_F(BroadcastPageTest, RowsGoThroughTheClipboardAsText) {
    const std::string aki = addVoice("Aki");
    addVoice("Bea");
    state->config->setAirlineVoice("ANA", "ja", TtsGender::male, aki);
    state->config->setAirlineVoice("CA", "", TtsGender::auto_, aki);
    state->reloadBindings();
    Page& page = openPage(MainTab::broadcast);
    QClipboard* const clipboard = QGuiApplication::clipboard();
    table(page).setFocus();
    QTest::keyClick(&table(page), Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(fromQt(clipboard->text()),
              "ANA\tja\tmale\tAki\t" + aki + "\nCA\tauto\tdefault\tAki\t" + aki + "\n");
    table(page).select("CA::default");
    QTest::keyClick(&table(page), Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(fromQt(clipboard->text()), "CA\tauto\tdefault\tAki\t" + aki + "\n");

    const auto paste = [&](const QString& text) {
        clipboard->setText(text);
        QTest::keyClick(&table(page), Qt::Key_V, Qt::ControlModifier);
    };
    const auto before = state->config->airlinesSnapshot();
    paste("CES\tzh\tfemale\tBea\nCES\tzh\trobot\tBea\n");
    EXPECT_EQ(answerMessage(),
              "The pasted text has faults, so nothing was bound:\nLine 2: not a gender: robot");
    paste("CES\tzh\tfemale\tBea\nANA\tja\tmale\tBea");
    EXPECT_EQ(answerMessage("Cancel"),
              "Pasting replaces the voice of 1 existing binding(s). Continue?");
    EXPECT_EQ(state->config->airlinesSnapshot(), before);
    paste("CES\tzh\tfemale\tBea\nANA\tja\tmale\tBea");
    answerMessage("OK");
    EXPECT_EQ(shown(page), "ANA 日本語 Male Bea\nCA Auto Default Aki\nCES 中文 Female Bea\n");
}

TEST_F(BroadcastPageTest, APackGoesToAnotherDataRoot) {
    Page* page = &openPage(MainTab::broadcast);
    click(*page, "Export .cln…");
    EXPECT_EQ(answerMessage(), "No bindings yet — nothing to export.");
    state->config->setAirlineVoice("ANA", "ja", TtsGender::female, addVoice("Aki"));
    state->config->setAirlineVoice("CA", "", TtsGender::auto_, addVoice("Bea"));
    state->reloadBindings();
    const std::string before = shown(*page);

    // One at a time.
    const auto canPack = [&] {
        const bool exports = button(*page, "Export .cln…")->isEnabled();
        EXPECT_EQ(button(*page, "Import .cln…")->isEnabled(), exports);
        return exports;
    };
    // With a row selected the button asks which.
    const auto exportTo = [&](const std::string& path, const QString& which) {
        click(*page, "Export .cln…");
        if (!which.isEmpty()) {
            auto* const menu = dialog<QMenu>();
            ASSERT_NE(menu, nullptr);
            for (QAction* action : menu->actions())
                if (action->text() == which) action->trigger();
            menu->close();
        }
        chooseInDialog({toQt(path)});
        EXPECT_FALSE(canPack());
    };
    exportTo(files.file("all"), "");
    EXPECT_EQ(answerMessage().find("Export finished: 2 voice(s)"), 0U);
    ASSERT_TRUE(fileExists(files.file("all.cln")));
    table(*page).select("CA::default");
    exportTo(files.file("one.cln"), "Only CA · Auto · Default");
    EXPECT_EQ(answerMessage().find("Export finished: 1 voice(s)"), 0U);
    stop();
    std::filesystem::remove_all(ZEPHOPaths::dataRoot());
    SetUp();
    page = &openPage(MainTab::broadcast);
    ASSERT_EQ(shown(*page), "");
    const auto import = [&](const std::string& path) {
        click(*page, "Import .cln…");
        chooseInDialog({toQt(path)});
        EXPECT_FALSE(canPack());
    };
    import(files.file("all.cln"));
    EXPECT_EQ(answerMessage().find("Import finished: 2 voice(s) (2 new"), 0U);
    EXPECT_EQ(shown(*page), before);
    EXPECT_EQ(state->voices.size(), 2U);
    saveFileBytes(files.file("broken.cln"), toBytes("no zip"));
    import(files.file("broken.cln"));
    EXPECT_EQ(answerMessage().find("cannot open this file ("), 0U);
    EXPECT_TRUE(canPack());
    EXPECT_EQ(shown(*page), before);
}

}  // namespace
}  // namespace zepho::test
