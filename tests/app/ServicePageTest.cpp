// The service page: what it says of the service, and what its buttons do to it.
#include <QClipboard>
#include <QLabel>
#include <QPlainTextEdit>
#include <future>

#include "app/pages/UsageText.h"
#include "app/widgets/StatusDot.h"
#include "core/models/ModelCatalog.h"
#include "core/platform/Files.h"
#include "core/platform/TaskQueue.h"
#include "core/platform/Tcp.h"
#include "tests/app/WindowFixture.h"

namespace zepho::test {
namespace {

class ServicePageTest : public WindowFixture {
protected:
    Page& page() { return openPage(MainTab::service); }
    std::string words(const char* label) {
        return fromQt(page().findChild<QLabel*>(label)->text());
    }
    QPushButton* named(const char* button) { return page().findChild<QPushButton*>(button); }
    StatusDot::Tone tone() {
        return static_cast<StatusDot*>(page().findChild<QWidget*>("statusDot"))->tone();
    }
};

TEST_F(ServicePageTest, TellsTheStateAndFollowsStartAndStop) {
    const std::string first = state->endpoints.front();
    EXPECT_EQ(words("serviceStatus"), "Status: running — " + first);
    EXPECT_EQ(tone(), StatusDot::Tone::warning);  // the placeholder speaks
    click(page(), "Stop");
    EXPECT_FALSE(state->http->isRunning());
    EXPECT_EQ(words("serviceStatus"), "Status: stopped");
    EXPECT_EQ(tone(), StatusDot::Tone::idle);
    state->setLanguage(UiLang::ja);
    EXPECT_EQ(words("serviceStatus"), "ステータス:停止中");
    click(page(), "サービスを開始");
    EXPECT_TRUE(state->http->isRunning());
    EXPECT_EQ(words("serviceStatus"), "ステータス:実行中 —— " + state->endpoints.front());
}

TEST_F(ServicePageTest, UsageOpensWithTheAddressesItListensAt) {
    const std::string all = usageText({"http://a:1", "http://b:1"}, "0.0.0.0", "http://c:1");
    EXPECT_EQ(all.find("# Listening on all interfaces. Other machines can connect via any of "
                       "these:\n#   http://a:1\n#   http://b:1\n"),
              0U);
    EXPECT_NE(all.find("curl -X POST http://a:1/v1/tts \\\n"), std::string::npos);
    EXPECT_NE(all.find("\nA ready-made C++ client lives in Zephon/interface/zephon_client.h\n"),
              std::string::npos);
    EXPECT_EQ(usageText({}, "", "http://c:1").find("# Listening on all"), 0U);
    const std::string one = usageText({}, "127.0.0.1", "http://c:1");
    EXPECT_EQ(one.find("# 只听 127.0.0.1\n"), 0U);
    EXPECT_NE(one.find("http://c:1/v1/tts \\"), std::string::npos);
    named("copyUsage")->click();
    EXPECT_EQ(QGuiApplication::clipboard()->text(),
              page().findChild<QPlainTextEdit*>("usage")->toPlainText());
    page().findChild<QWidget*>("card")->findChildren<QPushButton*>().front()->click();
    EXPECT_EQ(fromQt(QGuiApplication::clipboard()->text()), state->endpoints.front());
}

TEST_F(ServicePageTest, AsksBeforeWhatCannotBeTakenBack) {
    click(page(), "Open data folder");
    EXPECT_EQ(opened, std::vector<QString>{toQt(ZEPHOPaths::dataRoot())});
    (void)state->service->synthesizeWav("hello", "en", TtsGender::female, 1.0F);
    click(page(), "Clear cache");
    EXPECT_EQ(answerMessage("Cancel"),
              "Clear the whole cache? The same sentences will be synthesized again next time.");
    EXPECT_EQ(state->service->cache.stats().count, 1);
    click(page(), "Clear cache");
    answerMessage("OK");
    EXPECT_TRUE(eventually([&] { return state->service->cache.stats().count == 0; }));

    click(page(), "Unload model");
    EXPECT_EQ(answerMessage("OK").find("Unload the model and give the memory back?\n\n"), 0U);
    ASSERT_TRUE(eventually([&] { return named("toggleModel")->text() == "Load model"; }));
    EXPECT_TRUE(state->service->modelUnloaded());
    EXPECT_EQ(words("serviceMessage"), "Model unloaded — memory released");
    ASSERT_TRUE(eventually([&] { return named("toggleModel")->isEnabled(); }));
    click(page(), "Load model");
    EXPECT_TRUE(eventually([&] { return named("toggleModel")->text() == "Unload model"; }));
    EXPECT_FALSE(state->service->modelUnloaded());

    click(page(), "Quit");
    EXPECT_EQ(answerMessage("Cancel"), "The service is still running. Quit anyway?");
    EXPECT_TRUE(state->http->isRunning());
    click(page(), "Quit");
    answerMessage("OK");
    EXPECT_FALSE(state->http->isRunning());
}

TEST_F(ServicePageTest, TheModelMovesInTurnWithWhatElseRestartsTheEngine) {
    std::promise<void> end;
    state->inTurn(
        window.get(), [end = end.get_future().share()] { end.wait(); },
        [](const Outcome<Nothing>&) {});
    click(page(), "Unload model");
    answerMessage();
    // Long enough for one that does not wait.
    QTest::qWait(100);
    EXPECT_FALSE(state->service->modelUnloaded());
    EXPECT_FALSE(named("toggleModel")->isEnabled());
    end.set_value();
    EXPECT_TRUE(eventually([&] { return named("toggleModel")->isEnabled(); }));
    EXPECT_TRUE(state->service->modelUnloaded());
}

class SilentHost : public ServicePageTest {
protected:
    void SetUp() override {
        // Connections are made there, and nothing comes.
        around.modelHost = around.modelMirror = "http://127.0.0.1:" + std::to_string(host.port());
        ServicePageTest::SetUp();
    }

private:
    TaskQueue queue{"test.host"};
    TcpListener host{queue, "127.0.0.1", 0};
};

TEST_F(SilentHost, OffersTheRecommendedModelUntilItIsThere) {
    EXPECT_EQ(named("quickModel")->text(), "一键下载推荐模型(4.53 GB)");
    named("quickModel")->click();
    EXPECT_EQ(answerMessage("OK").find("下载推荐模型 q6_k(4.53 GB)?\n\n"), 0U);
    EXPECT_FALSE(named("quickModel")->isEnabled());
    EXPECT_EQ(named("quickModel")->text(), toQt(state->download.describe()));
    state->downloader->cancel();
    ASSERT_TRUE(eventually([&] { return !state->downloader->busy(); }));
    EXPECT_TRUE(eventually([&] { return named("quickModel")->isEnabled(); }));
    saveFileBytes(ZEPHOPaths::modelsDir() + recommendedVariant().fileName, asBytes("x"));
    state->reloadModels();
    EXPECT_EQ(named("quickModel")->text(), "Model is in place");
    EXPECT_FALSE(named("quickModel")->isEnabled());
}

}  // namespace
}  // namespace zepho::test
