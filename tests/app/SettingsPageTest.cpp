// The settings page over a running service: what is saved, applied, refused and reset.
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <atomic>

#include <httplib.h>

#include "core/platform/Files.h"
#include "core/platform/LoginItem.h"
#include "core/platform/PlatformPaths.h"
#include "tests/app/WindowFixture.h"
#include "tests/models/ModelHost.h"
#include "tests/support/HttpClient.h"

namespace zepho::test {
namespace {

class SettingsPageTest : public WindowFixture {
protected:
    void configure(AppConfig& config) override {
        config.port = freePort();
        config.showAdvanced = true;
        EngineOptions engine = config.engine;
        engine.topP = 0.1234F;
        config.engine = engine;
        ::setenv("no_proxy", "*", 1);
        around.updates = {releases.address() + "/api", releases.address() + "/feed"};
    }

    Page& page() { return openPage(MainTab::settings); }
    template <class Control>
    Control* find(const char* name) {
        return page().findChild<Control*>(name);
    }
    void type(const char* field, const QString& text) {
        auto* const edit = find<QLineEdit>(field);
        edit->selectAll();
        QTest::keyClick(edit, Qt::Key_Delete);
        QTest::keyClicks(edit, text);
    }
    std::string save() {
        click(page(), "Save & apply");
        return answerMessage();
    }
    static AppConfig& stored(AppConfig& config) {
        config.load();
        return config;
    }
    static bool wasWarned(const std::string& text) {
        for (const LogEntry& line : AppLog::snapshot())
            if (line.level == LogLevel::warn && line.source == "ui" && line.text.find(text) == 0)
                return true;
        return false;
    }
    static int statusAt(int port) {
        HttpClient client(port);
        const auto answer = client.request("GET", "/v1/health");
        return answer ? answer->status : 0;
    }

    std::atomic<int> answer{0};
    ModelHost releases{[this](const httplib::Request& request, httplib::Response& response) {
        const bool api = request.path == "/api";
        if (answer == 0 || !api) {
            response.status = 500;
            return;
        }
        response.body = answer == 1
                            ? R"([{"tag_name":"zepho-v0.3.26220"}])"
                            : R"([{"tag_name":"zepho-v9.1","html_url":"https://p.example/9",)"
                              R"("assets":[{"name":"z.dmg","browser_download_url":)"
                              R"("https://d.example/z"}]}])";
    }};
};

TEST_F(SettingsPageTest, APortThatIsNoneChangesNothing) {
    const Bytes before = *loadFileBytes(ZEPHOPaths::configFile());
    const std::int64_t port = state->config->port;
    page();
    for (const char* wrong : {"0", "65536", "abc", "", "80.5", "99999999999999999999"}) {
        type("port", wrong);
        type("rateLimit", "99");
        EXPECT_EQ(save(), "Port must be a number between 1 and 65535.") << wrong;
        EXPECT_EQ(state->config->rateLimitPerMinute, 0);
    }
    EXPECT_EQ(*loadFileBytes(ZEPHOPaths::configFile()), before);
    EXPECT_EQ(statusAt(static_cast<int>(port)), 200);
}

TEST_F(SettingsPageTest, ANewPortMovesTheListenerAndTheSameOneLeavesItAlone) {
    HttpClient open(static_cast<int>(state->config->port));
    ASSERT_TRUE(open.request("GET", "/v1/health"));
    page();
    type("rateLimit", "1000");
    EXPECT_EQ(save(), "Settings saved");
    const auto still = open.request("GET", "/v1/health");
    ASSERT_TRUE(still) << "the listener was restarted";
    EXPECT_EQ(still->status, 200);

    const int next = freePort();
    type("port", QString(" %1 ").arg(next));
    EXPECT_EQ(save(), "Settings saved");
    EXPECT_TRUE(state->serverRunning);
    EXPECT_EQ(statusAt(next), 200);
    EXPECT_TRUE(open.endsWithin(std::chrono::seconds(30)));
    AppConfig config;
    EXPECT_EQ(stored(config).port, next);

    // A service that is stopped stays so.
    state->stopServer();
    type("port", QString::number(freePort()));
    EXPECT_EQ(save(), "Settings saved");
    EXPECT_FALSE(state->http->isRunning());
}

TEST_F(SettingsPageTest, TakesWhatParsesAndKeepsTheRest) {
    page();
    type("queueLimit", "many");
    type("maxText", " 120 ");
    type("gpuLayers", "5000");
    type("threads", "4x");
    // As those write who do not press keys.
    find<QLineEdit>("timeoutMs")->setText("90000");
    type("temperature", "0.715");
    type("repetitionPenalty", "nan");
    type("bind", "127.0.0.1");
    find<QCheckBox>("cacheEnabled")->setChecked(false);
    find<QComboBox>("speedMode")->setCurrentIndex(1);
    find<QComboBox>("compute")->setCurrentIndex(2);
    find<QComboBox>("language")->setCurrentIndex(2);
    EXPECT_EQ(find<QLabel>("computeLine")->text(),
              "Metal (Apple silicon GPU) — not in this engine build");
    EXPECT_EQ(save(), "設定を保存しました");
    EXPECT_NE(button(page(), "保存して適用"), nullptr) << "the language changes at once";

    AppConfig config;
    stored(config);
    const EngineOptions engine = config.engine;
    EXPECT_EQ(config.queueLimit, 64);
    EXPECT_EQ(config.maxTextLength, 120);
    EXPECT_EQ(config.requestTimeoutMs, 90000);
    EXPECT_EQ(engine.gpuLayers, 999);
    EXPECT_EQ(engine.threads, 0);
    EXPECT_FLOAT_EQ(engine.temperature, 0.715F);
    EXPECT_FLOAT_EQ(engine.repetitionPenalty, 1.1F);
    EXPECT_FLOAT_EQ(engine.topP, 0.1234F);
    EXPECT_EQ(engine.compute, ComputeBackend::metal);
    EXPECT_FALSE(config.cacheEnabled);
    EXPECT_EQ(config.speedMode, TtsSpeedMode::localResample);
    EXPECT_TRUE(state->config->engine.get() == engine);
    EXPECT_FALSE(state->service->cache.enabled);
    EXPECT_EQ(find<QLineEdit>("queueLimit")->text(), "64");
    EXPECT_EQ(find<QLineEdit>("gpuLayers")->text(), "999");
}

TEST_F(SettingsPageTest, ResetsAfterAQuestion) {
    state->stopServer();
    page();
    type("rateLimit", "7");
    EXPECT_EQ(save(), "Settings saved");
    state->config->setAirlineVoice("CA", "zh", TtsGender::female, "v");
    type("maxText", "77");
    click(page(), "Reset to defaults");
    EXPECT_EQ(answerMessage("Cancel"), "Reset every setting to its default?");
    EXPECT_EQ(state->config->rateLimitPerMinute, 7);
    EXPECT_EQ(find<QLineEdit>("maxText")->text(), "77");
    click(page(), "Reset to defaults");
    answerMessage();
    EXPECT_EQ(find<QLineEdit>("rateLimit")->text(), "0");
    EXPECT_EQ(find<QLineEdit>("maxText")->text(), "5000");
    EXPECT_FALSE(find<QWidget>("advanced")->isVisible());
    EXPECT_TRUE(eventually([&] {
        AppConfig config;
        return stored(config).rateLimitPerMinute == 0 && config.port == ZEPHO::defaultHttpPort &&
               config.airlinesSnapshot().empty();
    }));
    EXPECT_TRUE(eventually([&] { return state->bindings.empty(); }));
}

TEST_F(SettingsPageTest, StartsAtLoginWhenAsked) {
    page();
    auto* const toggle = find<QCheckBox>("launchAtLogin");
    const auto saveWith = [&](bool launch) {
        toggle->setChecked(launch);
        EXPECT_EQ(save(), "Settings saved");
        return std::string(asText(loadFileBytes(loginItemPath()).value_or(Bytes())));
    };
    EXPECT_EQ(saveWith(true), loginItemText(executablePath()));
    // That of a place where the program is no more.
    saveFileBytes(loginItemPath(), asBytes(loginItemText("/old/zephon")));
    EXPECT_EQ(saveWith(true), loginItemText(executablePath()));
    saveWith(false);
    EXPECT_FALSE(fileExists(loginItemPath()));

    std::string inTheWay = parentDirectory(loginItemPath());
    std::filesystem::remove_all(inTheWay);
    inTheWay.pop_back();
    saveFileBytes(inTheWay, {});
    EXPECT_FALSE(wasWarned("cannot change login item: "));
    saveWith(true);
    EXPECT_TRUE(wasWarned("cannot change login item: "));
}

TEST_F(SettingsPageTest, ChecksForUpdates) {
    page();
    auto* const result = find<QLabel>("updateResult");
    const auto check = [&](int with) {
        answer = with;
        click(page(), "Check for updates");
        EXPECT_EQ(result->text(), "Checking...");
        EXPECT_TRUE(eventually([&] { return !state->updateChecking; }));
        return fromQt(result->text());
    };
    EXPECT_EQ(check(0), "Cannot check: GitHub returned 500");
    EXPECT_EQ(button(page(), "Open release page"), nullptr);
    EXPECT_EQ(check(1), "已是最新(0.3.26220)");
    EXPECT_EQ(button(page(), "Download"), nullptr);
    EXPECT_EQ(check(2), "有新版 9.1,点右边去下载");
    click(page(), "Download");
    click(page(), "Open release page");
    EXPECT_EQ(opened, (std::vector<QString>{"https://d.example/z", "https://p.example/9"}));
}

TEST_F(SettingsPageTest, OpensTheFolderAndRestartsTheEngine) {
    click(page(), "Models folder");
    EXPECT_EQ(opened.back(), toQt(ZEPHOPaths::modelsDir()));
    click(page(), "Engine log");
    EXPECT_EQ(answerMessage().find("No engine log yet"), 0U);
    click(page(), "Restart engine");
    EXPECT_TRUE(eventually([&] { return button(page(), "Restart engine")->isEnabled(); }));
}

}  // namespace
}  // namespace zepho::test
