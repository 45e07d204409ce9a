// The log page: levels, following, requests, what can be taken away from it.
#include <QClipboard>
#include <QComboBox>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QScrollBar>

#include "app/DiagnosticsBundle.h"
#include "app/RequestCommand.h"
#include "app/widgets/LogView.h"
#include "app/widgets/RecordTable.h"
#include "core/pack/ZipReader.h"
#include "core/platform/Files.h"
#include "tests/app/WindowFixture.h"
#include "tests/support/TempDir.h"

namespace zepho::test {
namespace {

class LogPageTest : public WindowFixture {
protected:
    void SetUp() override {
        WindowFixture::SetUp();
        page = &openPage(MainTab::log);
        lines = page->findChild<LogView*>("logLines");
        requests = page->findChild<RecordTable*>("requests");
        QCoreApplication::processEvents();
        click(*page, "Clear");
    }
    [[nodiscard]] int lineCount() const { return rowsOf(lines).rowCount(); }
    [[nodiscard]] QString line(int row) const {
        return rowsOf(lines).index(row, 0).data().toString();
    }
    static RequestLog request(int elapsedMs, int audioMs, const std::string& voice) {
        RequestLog record;
        record.id = Uuid::make();
        record.time = std::chrono::system_clock::now();
        record.route = "/v1/tts";
        record.language = "ja";
        record.voice = voice;
        record.speed = 1.25F;
        record.status = 200;
        record.elapsedMs = elapsedMs;
        record.audioMs = audioMs;
        return record;
    }
    [[nodiscard]] std::string row(int at) const {
        QStringList cells;
        for (int column = 1; column < 8; ++column)
            cells << rowsOf(requests).index(at, column).data().toString();
        return fromQt(cells.join("|"));
    }

    Page* page = nullptr;
    LogView* lines = nullptr;
    RecordTable* requests = nullptr;
};

TEST_F(LogPageTest, ShowsLinesFromALevelOnInItsColours) {
    AppLog::debug("test", "one");
    AppLog::info("test", "two");
    AppLog::warn("test", "three");
    AppLog::error("test", "four\nand more");
    ASSERT_TRUE(eventually([&] { return lineCount() == 4; }));
    EXPECT_TRUE(line(0).endsWith(" [DEBUG] test: one")) << fromQt(line(0));
    EXPECT_TRUE(line(3).endsWith(" [ERROR] test: four and more"));
    const QVariant color = rowsOf(lines).index(3, 0).data(Qt::ForegroundRole);
    EXPECT_EQ(color.value<QColor>(), Theme::tones().bad);
    auto* const level = page->findChild<QComboBox*>("logLevel");
    level->setCurrentText("WARN");
    EXPECT_EQ(lineCount(), 2);
    AppLog::info("test", "unseen");
    AppLog::error("test", "five");
    ASSERT_TRUE(eventually([&] { return lineCount() == 3; }));
    level->setCurrentText("DEBUG");
    EXPECT_EQ(lineCount(), 6);
    click(*page, "Clear");
    EXPECT_EQ(lineCount(), 0);
}

TEST_F(LogPageTest, FollowsTheEndAndKeepsTheSelection) {
    const auto write = [](int from, int to) {
        for (int i = from; i < to; ++i) AppLog::info("test", "line " + std::to_string(i));
    };
    write(0, 1800);
    ASSERT_TRUE(eventually([&] { return lineCount() == 1800; }));
    const auto atEnd = [&] {
        const QScrollBar* const bar = lines->verticalScrollBar();
        return bar->maximum() > 0 && bar->value() == bar->maximum();
    };
    EXPECT_TRUE(eventually(atEnd));
    lines->selectionModel()->select(rowsOf(lines).index(700, 0), QItemSelectionModel::Select);
    lines->verticalScrollBar()->setValue(0);
    // The mirror drops its oldest; what is selected stays so as long as it is there.
    write(1800, 2010);
    ASSERT_TRUE(eventually([&] { return lineCount() == 1510; }));
    EXPECT_TRUE(eventually(atEnd));
    EXPECT_TRUE(line(0).endsWith("line 500"));
    EXPECT_TRUE(line(1509).endsWith("line 2009"));
    QTest::keyClick(lines, Qt::Key_C, Qt::ControlModifier);
    EXPECT_TRUE(QApplication::clipboard()->text().endsWith("[INFO] test: line 700"));
    // Out of sight it catches up later, whatever has happened meanwhile.
    openPage(MainTab::cache);
    write(0, 5000);
    ASSERT_TRUE(eventually([&] { return state->logLines.back().text == "line 4999"; }));
    openPage(MainTab::log);
    EXPECT_EQ(lineCount(), static_cast<int>(state->logLines.size()));
    EXPECT_TRUE(line(lineCount() - 1).endsWith("line 4999"));
    EXPECT_TRUE(eventually(atEnd));
}

TEST_F(LogPageTest, ShowsRequestsNewestFirstAndCopiesThemAsACommand) {
    state->voices = {VoiceInfo{}};
    state->voices[0].id = "v1";
    state->voices[0].display = "Aoi";
    emit state->voicesChanged();
    AppLog::request(request(900, 1500, "V1"));
    RequestLog failed = request(30, 0, "");
    failed.status = 400;
    failed.note = "no text";
    AppLog::request(failed);
    ASSERT_TRUE(eventually([&] { return rowsOf(requests).rowCount() == 2; }));
    EXPECT_EQ(row(0), "/v1/tts||400|30 ms|—|—|no text");
    EXPECT_EQ(row(1), "/v1/tts|Aoi|200|900 ms|1.50 s|—|");
    QTest::mouseClick(requests->viewport(), Qt::LeftButton, Qt::NoModifier,
                      requests->visualRect(rowsOf(requests).index(1, 1)).center());
    RequestLog hit = request(4, 2000, "o'neil");
    hit.cacheHit = true;
    AppLog::request(hit);
    ASSERT_TRUE(eventually([&] { return rowsOf(requests).rowCount() == 3; }));
    click(*page, "Copy as curl");
    EXPECT_EQ(fromQt(QApplication::clipboard()->text()),
              "curl -sS '" + state->endpoints.front() +
                  "/v1/tts' -H 'Content-Type: application/json' -d "
                  R"('{"language":"ja","speed":1.25,"text":"the sentence to speak","voice":"V1"}')"
                  " -o announcement.wav");
    EXPECT_NE(curlLine(hit, "http://h", "it's").find(R"("text":"it'\''s","voice":"o'\''neil"})"),
              std::string::npos);
    click(*page, "Clear");
    EXPECT_EQ(rowsOf(requests).rowCount(), 0);
    EXPECT_FALSE(button(*page, "Copy as curl")->isEnabled());
}

TEST_F(LogPageTest, SavesTheLogAndOpensTheEngines) {
    click(*page, "Engine log");
    EXPECT_EQ(answerMessage().find("No engine log yet"), 0U);
    const std::string log = ZEPHOPaths::engineLog();
    saveFileBytes(log, asBytes("up\n"));
    click(*page, "Engine log");
    ASSERT_EQ(opened.size(), 1U);
    EXPECT_EQ(fromQt(opened[0]), log);
    const TempDir dir;
    AppLog::warn("test", "keep this");
    click(*page, "Save log…");
    chooseInDialog({toQt(dir.file("out.log"))});
    auto* const status = page->findChild<QLabel*>("logStatus");
    ASSERT_TRUE(eventually([&] { return status->text().startsWith("Saved to "); }));
    const std::optional<Bytes> saved = loadFileBytes(dir.file("out.log"));
    ASSERT_TRUE(saved);
    EXPECT_NE(asText(*saved).find("[WARN] test: keep this\n"), std::string_view::npos);
    saveFileBytes(dir.file("blocked"), asBytes("x"));
    click(*page, "Save log…");
    chooseInDialog({toQt(dir.file("blocked/out.log"))});
    EXPECT_EQ(answerMessage().find("Saving failed: "), 0U);
}

TEST_F(LogPageTest, TheDiagnosticsHoldNoDeleteKey) {
    state->config->addHubShare({"s-1", "Gates", "K-very-secret"});
    state->config->save();
    // Where nobody meant it to be, and from an earlier run of the program.
    AppLog::info("hub", "answer: {\"deleteKey\":\"K-very-secret\"}");
    saveFileBytes(ZEPHOPaths::engineLog(),
                  asBytes(std::string(400000, 'x') + "\nlast words K-very-secret\n"));
    const TempDir dir;
    click(*page, "Diagnostics…");
    ASSERT_TRUE(eventually([] { return dialog<QDialog>() != nullptr; }));
    auto* const sheet = dialog<QDialog>();
    auto* const files = sheet->findChild<QListWidget*>("diagnosticsFiles");
    auto* const content = sheet->findChild<QPlainTextEdit*>("diagnosticsContent");
    ASSERT_EQ(files->count(), 5);
    std::vector<std::string> shown;
    for (int i = 0; i < files->count(); ++i) {
        files->setCurrentRow(i);
        shown.push_back(fromQt(content->toPlainText()));
    }
    click(*sheet, "Save as…");
    chooseInDialog({toQt(dir.file("d.zip"))});
    auto* const status = page->findChild<QLabel*>("logStatus");
    ASSERT_TRUE(eventually([&] { return status->text().startsWith("Saved to "); }));
    ZipReader archive(dir.file("d.zip"));
    std::size_t at = 0;
    for (const char* name : {"about.json", "config.json", "log.txt", "stats.json", "engine.log"}) {
        const std::string text(asText(archive.read(name)));
        EXPECT_EQ(text.find("very-secret"), std::string::npos) << name;
        EXPECT_EQ(text, shown[at++]) << name;
    }
    EXPECT_NE(shown[0].find("0.3.26220"), std::string::npos);
    EXPECT_NE(shown[1].find("Gates"), std::string::npos);
    EXPECT_NE(shown[2].find("(removed)"), std::string::npos);
    EXPECT_NE(shown[3].find("\"placeholder\": true"), std::string::npos);
    EXPECT_EQ(shown[4], "last words (removed)\n");
}

}  // namespace
}  // namespace zepho::test
