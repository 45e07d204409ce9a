// The cache page over a real cache: search, order, playing, deleting, the limit.
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QSpinBox>
#include <QTableView>
#include <QWheelEvent>

#include "app/pages/CacheRows.h"
#include "app/widgets/RecordTable.h"
#include "tests/app/WindowFixture.h"

namespace zepho::test {
namespace {

class CachePageTest : public WindowFixture {
protected:
    void SetUp() override {
        WindowFixture::SetUp();
        wav = state->service->synthesizeWav("A line to copy", "en", TtsGender::female, 1);
        state->service->cache.clear();
        put("K1", "anna", "Gate ÄPFEL closes", "en", 3000);
        put("K2", "bert", "Boarding now", "en", 2000);
        put("K3", "anna", "搭乗口が変わりました", "ja", 1000);
        page = &openPage(MainTab::cache);
        table = page->findChild<RecordTable*>("cacheTable");
        ASSERT_TRUE(eventually([&] { return rowsOf(table).rowCount() == 3; }));
    }
    void put(const std::string& key, const std::string& voice, const std::string& text,
             const std::string& language, std::int64_t durationMs) {
        TtsResult clip;
        clip.wav = wav;
        clip.voiceId = voice;
        clip.language = language;
        clip.durationMs = durationMs;
        clip.sampleRate = 44100;
        state->service->cache.put(key, text, clip);
    }
    [[nodiscard]] std::string column(int at) const {
        QStringList cells;
        for (int row = 0; row < rowsOf(table).rowCount(); ++row)
            cells << rowsOf(table).index(row, at).data().toString();
        return fromQt(cells.join("|"));
    }
    void clickRow(int row, Qt::KeyboardModifiers with = Qt::NoModifier) const {
        QTest::mouseClick(table->viewport(), Qt::LeftButton, with,
                          table->visualRect(rowsOf(table).index(row, 0)).center());
    }
    [[nodiscard]] QString label(const char* name) const {
        return page->findChild<QLabel*>(name)->text();
    }
    void type(const QString& text) const {
        page->findChild<QLineEdit*>("cacheFilter")->setText(text);
    }

    SharedBytes wav;
    Page* page = nullptr;
    RecordTable* table = nullptr;
};

TEST_F(CachePageTest, FiltersByVoiceAndTextAndSortsEachColumn) {
    EXPECT_EQ(column(0), "anna|bert|anna");
    type("äpf");
    EXPECT_EQ(column(5), "Gate ÄPFEL closes");
    type("nothing");
    EXPECT_EQ(column(5), "");
    EXPECT_TRUE(label("cacheSummary").startsWith("3 条(显示 0)"));
    type("");
    auto* const voices = page->findChild<QComboBox*>("cacheVoice");
    voices->setFocus();
    QTest::keyClick(voices, Qt::Key_Down);
    EXPECT_EQ(voices->currentText(), "anna");
    EXPECT_EQ(column(0), "anna|anna");
    table->sortByColumn(3, Qt::AscendingOrder);
    EXPECT_EQ(column(3), "1.00 s|3.00 s");
    // A refresh keeps the voice, the order and the text.
    put("K4", "anna", "Zone A", "en", 2500);
    click(*page, "Refresh");
    ASSERT_TRUE(eventually([&] { return rowsOf(table).rowCount() == 3; }));
    EXPECT_EQ(column(3), "1.00 s|2.50 s|3.00 s");
    // The names of the library take the place of the ids.
    state->voices = {VoiceInfo{}};
    state->voices[0].id = "ANNA";
    state->voices[0].display = "Anna Müller";
    emit state->voicesChanged();
    EXPECT_TRUE(eventually([&] { return voices->currentText() == "Anna Müller"; }));
    type("müller");
    EXPECT_EQ(column(0), "Anna Müller|Anna Müller|Anna Müller");
}

TEST_F(CachePageTest, DeletesWhatIsSelectedEvenOutOfSight) {
    clickRow(0);
    clickRow(1, Qt::ControlModifier);
    type("搭乗口");
    ASSERT_EQ(column(0), "anna");
    EXPECT_EQ(table->selectedIds(), (std::set<std::string>{"K1", "K2"}));
    click(*page, "Delete");
    ASSERT_TRUE(eventually([&] { return label("cacheStatus") == "Deleted 2 cache entries"; }));
    EXPECT_TRUE(eventually([&] { return table->selectedIds().empty(); }));
    EXPECT_EQ(state->service->cache.stats().count, 1);
    EXPECT_TRUE(state->service->cache.contains("K3"));
    EXPECT_FALSE(button(*page, "Delete")->isEnabled());
    click(*page, "Clear all");
    answerMessage();
    ASSERT_TRUE(eventually([&] { return label("cacheStatus") == "Cache cleared"; }));
    EXPECT_EQ(state->service->cache.stats().count, 0);
}

TEST_F(CachePageTest, PlaysAClipAndDropsOneThatHasVanished) {
    clickRow(1);
    click(*page, "Play");
    EXPECT_TRUE(eventually([&] { return state->playing; }));
    click(*page, "Stop playback");
    EXPECT_TRUE(eventually([&] { return !state->playing; }));
    std::filesystem::remove(state->service->cache.directory() + "K1.wav");
    clickRow(0);
    click(*page, "Play");
    EXPECT_EQ(answerMessage(),
              "That cache file could not be read, so it was dropped from the index.");
    EXPECT_TRUE(eventually([&] { return rowsOf(table).rowCount() == 2; }));
    EXPECT_EQ(column(5), "Boarding now|搭乗口が変わりました");
    click(*page, "Open cache folder");
    ASSERT_EQ(opened.size(), 1U);
    EXPECT_EQ(fromQt(opened[0]), state->service->cache.directory());
}

TEST_F(CachePageTest, ALimitHoldsAtOnceAndNegativeIsNone) {
    auto* const cap = page->findChild<QSpinBox*>("cacheCap");
    const auto enter = [&](const QString& text) {
        cap->selectAll();
        QTest::keyClicks(cap, text);
        QTest::keyClick(cap, Qt::Key_Return);
    };
    EXPECT_TRUE(label("cacheSummary").contains("/ no cap · 命中 0 / 未命中 "));
    const std::string large(1100000, 'x');
    TtsResult clip;
    clip.wav = SharedBytes(toBytes(large));
    for (const char* key : {"L1", "L2"}) state->service->cache.put(key, "large", clip);
    enter("1");
    EXPECT_EQ(state->config->cacheBudgetMB, 1);
    EXPECT_TRUE(eventually([&] { return state->service->cache.stats().bytes <= 1048576; }));
    enter("-5");
    EXPECT_EQ(state->config->cacheBudgetMB, 0);
    EXPECT_EQ(cap->value(), 0);
    EXPECT_TRUE(eventually([&] { return state->service->cache.stats().budgetBytes == 0; }));
    enter("300");
    EXPECT_EQ(state->config->cacheBudgetMB, 300);
    // What is only typed holds when the field is left.
    cap->setFocus();
    cap->selectAll();
    QTest::keyClicks(cap, "200");
    EXPECT_EQ(state->config->cacheBudgetMB, 300);
    page->findChild<QLineEdit*>("cacheFilter")->setFocus();
    EXPECT_EQ(state->config->cacheBudgetMB, 200);
    // Nothing at all is no number.
    cap->setFocus();
    QTest::keyClick(cap, Qt::Key_End);
    for (int i = 0; i < 3; ++i) QTest::keyClick(cap, Qt::Key_Backspace);
    QTest::keyClick(cap, Qt::Key_Return);
    EXPECT_EQ(state->config->cacheBudgetMB, 200);
}

TEST_F(CachePageTest, NothingStepsTheLimit) {
    auto* const cap = page->findChild<QSpinBox*>("cacheCap");
    const auto turn = [&] {
        const QPointF at = cap->rect().center();
        QWheelEvent up(at, cap->mapToGlobal(at), {}, {0, 120}, Qt::NoButton, Qt::NoModifier,
                       Qt::NoScrollPhase, false);
        QApplication::sendEvent(cap, &up);
        return up.isAccepted();
    };
    EXPECT_FALSE(turn());
    cap->setFocus();
    turn();
    for (const Qt::Key key : {Qt::Key_Up, Qt::Key_Down, Qt::Key_PageUp, Qt::Key_PageDown})
        QTest::keyClick(cap, key);
    // Where the arrows would be.
    QTest::mouseClick(cap, Qt::LeftButton, {}, QPoint(cap->width() - 6, cap->height() / 4));
    QTest::keyClick(cap, Qt::Key_Return);
    EXPECT_EQ(cap->value(), 0);
    EXPECT_EQ(state->config->cacheBudgetMB, 0);
    EXPECT_EQ(state->service->cache.stats().count, 3);
}

}  // namespace
}  // namespace zepho::test
