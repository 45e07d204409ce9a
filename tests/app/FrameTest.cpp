// The window around the pages: state, side bar, status line, tray menu, closing, single instance.
#include <QListWidget>
#include <QTcpServer>

#include "app/SingleInstance.h"
#include "app/StatusLine.h"
#include "core/audio/PcmBuffer.h"
#include "tests/app/WindowFixture.h"

namespace zepho::test {
namespace {

using FrameTest = WindowFixture;

TEST_F(FrameTest, ShowsNinePagesInOrderAndSwitchesLanguageAtOnce) {
    auto* const sidebar = window->findChild<QListWidget*>("sidebar");
    const auto titles = [&] {
        QStringList all;
        for (int i = 0; i < sidebar->count(); ++i) all << sidebar->item(i)->text();
        return all.join(",");
    };
    EXPECT_EQ(titles(), "Service,Preview,Voices,Broadcast,Community hub,Cache,Models,Log,Settings");
    EXPECT_EQ(window->windowTitle(), "Zephon — Fish S2 Pro Speech Service");
    QTest::keyClick(window.get(), Qt::Key_9, Qt::ControlModifier);
    EXPECT_EQ(window->tab(), MainTab::settings);
    // Every page lives through every language.
    for (const MainTabInfo& info : mainTabs) openPage(info.tab);
    state->setLanguage(UiLang::zh);
    EXPECT_EQ(titles(), "服务,试听,音色,广播,云分享,缓存,模型,日志,设置");
    state->setLanguage(UiLang::ja);
    EXPECT_EQ(window->windowTitle(), "Zephon —— Fish S2 Pro 音声サービス");
    EXPECT_EQ(state->langTick, 2);
}

TEST_F(FrameTest, StatusLineTellsWhatTheServiceDoes) {
    ServiceStats stats;
    stats.queueDepth = 3;
    stats.busy = true;
    stats.prewarmPending = 7;
    stats.cacheBytes = 3 * 1048576 / 2;
    stats.cacheHitRate = 0.5;
    stats.totalSynthMs = 500;
    stats.totalAudioMs = 2000;
    stats.engineName = "s2";
    EXPECT_EQ(
        StatusLine::textOf(stats),
        "队列 3 (busy) · 7 left to pre-bake · 请求 0(失败 0) · 缓存 0 条 / 1.5 MB / 命中率 50% · "
        "p50 0 ms · p95 0 ms · 实时率 0.25 · s2");
    EXPECT_NE(StatusLine::textOf({}).find("实时率 0.00"), std::string::npos);
}

TEST_F(FrameTest, MenuStartsAndStopsTheService) {
    const auto entries = [&] {
        QStringList shown;
        for (const QAction* action : window->trayItem().contextMenu().actions())
            if (!action->isSeparator() && action->isVisible()) shown << action->text();
        return shown;
    };
    ASSERT_TRUE(state->serverRunning);
    EXPECT_EQ(entries()[0], "Status: running — " + toQt(state->endpoints.front()));
    EXPECT_EQ(entries().mid(1),
              (QStringList{"⚠ placeholder audio (no model yet)", "Show window", "Stop", "Quit"}));
    QAction* const server = window->trayItem().contextMenu().actions()[4];
    server->trigger();
    EXPECT_FALSE(state->http->isRunning());
    EXPECT_EQ(entries()[0], "Status: stopped");
    EXPECT_EQ(server->text(), "Start");
    server->trigger();
    EXPECT_TRUE(state->http->isRunning());
}

TEST_F(FrameTest, WithoutATrayClosingAsksAndNeverHides) {
    ASSERT_FALSE(window->trayItem().isThere());
    window->close();
    EXPECT_EQ(answerMessage("Cancel"), "The service is still running. Quit anyway?");
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(state->http->isRunning());
    // The program's own loop ends by the answer, and by nothing else.
    QTimer::singleShot(0, window.get(), [&] { window->close(); });
    QTimer answers;
    QObject::connect(&answers, &QTimer::timeout, &answers, [] {
        if (dialog<QMessageBox>() != nullptr) answerMessage("OK");
    });
    answers.start(10);
    QTimer::singleShot(30000, qApp, [] { QCoreApplication::exit(2); });
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_FALSE(state->http->isRunning());
}

class TakenPortTest : public WindowFixture {
protected:
    void configure(AppConfig& config) override {
        ASSERT_TRUE(other.listen(QHostAddress::LocalHost));
        usePort(config, other.serverPort());
    }
    QTcpServer other;
};

TEST_F(TakenPortTest, ATakenPortIsToldAndTheWindowLives) {
    const std::string told = answerMessage();
    EXPECT_EQ(told.find("Cannot start the service: "), 0U) << told;
    EXPECT_FALSE(state->serverRunning);
    other.close();
    state->startServer();
    EXPECT_TRUE(state->serverRunning);
    EXPECT_TRUE(noMessage());
}

TEST_F(FrameTest, ASecondStartShowsTheFirst) {
    auto first = std::make_unique<SingleInstance>();
    ASSERT_FALSE(first->isTaken());
    int shown = 0;
    const SingleInstance second;
    ASSERT_TRUE(second.isTaken());
    int answers = 0;
    const auto ask = [&] {
        state->inBackground(
            window.get(), [&] { return second.askToShow(std::chrono::seconds(60)); },
            [&](const Outcome<bool>& reply) { answers += reply.ok() && *reply.value ? 1 : 0; });
    };
    // The first has only won its lock. The turn of the loop lets the second find that out.
    ask();
    QTest::qWait(200);
    first->listen();
    EXPECT_TRUE(eventually([&] { return answers == 1; }));
    EXPECT_EQ(shown, 0);
    first->showBy([&] { ++shown; });
    EXPECT_EQ(shown, 1);
    ask();
    EXPECT_TRUE(eventually([&] { return answers == 2; }));
    EXPECT_EQ(shown, 2);
    first.reset();
    const SingleInstance third;
    EXPECT_FALSE(third.isTaken());
    EXPECT_FALSE(second.askToShow(std::chrono::milliseconds(1)));
}

TEST_F(FrameTest, APageThatHasGoneGetsNoCallback) {
    auto page = std::make_unique<QObject>();
    bool called = false;
    bool after = false;
    state->inBackground(
        page.get(), [] {}, [&](const Outcome<Nothing>&) { called = true; });
    page.reset();
    state->inBackground(
        window.get(), [] { throw std::runtime_error("no luck"); },
        [&](const Outcome<Nothing>& outcome) {
            EXPECT_FALSE(outcome.ok());
            EXPECT_NE(outcome.error.find("no luck"), std::string::npos);
            after = true;
        });
    ASSERT_TRUE(eventually([&] { return after; }));
    EXPECT_FALSE(called);
}

TEST_F(FrameTest, ClipsBeginAndStopInTheOrderOfTheClicks) {
    const SharedBytes clip = buildWav(PcmBuffer::silence(8000, 60000), 1);
    for (int round = 0; round < 20; ++round) {
        int begun = 0;
        for (int i = 0; i < 4; ++i) {
            state->stopPlaying();
            state->play(clip, 60000, [&](bool sounds) { begun += sounds ? 1 : 0; });
        }
        ASSERT_TRUE(eventually([&] { return begun == 4; }));
        EXPECT_TRUE(state->player->isPlaying());
        state->play(clip, 60000);
        state->stopPlaying();
        ASSERT_TRUE(eventually([&] { return !state->playing; }));
        EXPECT_FALSE(state->player->isPlaying());
    }
}

}  // namespace
}  // namespace zepho::test
