// The models page against a stand-in model host.
#include <QComboBox>
#include <QLabel>
#include <QProgressBar>
#include <algorithm>

#include <httplib.h>

#include "app/widgets/StatusDot.h"
#include "core/platform/FileSize.h"
#include "core/platform/Files.h"
#include "tests/app/WindowFixture.h"
#include "tests/models/ModelHost.h"

namespace zepho::test {
namespace {

constexpr std::size_t wholeSize = 400'000;
constexpr std::size_t firstPart = 100'000;
const std::string fileName = "s2-pro-q6_k.gguf";

class ModelsPageTest : public WindowFixture {
protected:
    void configure(AppConfig&) override {
        ::setenv("no_proxy", "*", 1);
        for (std::size_t i = 0; i < wholeSize; ++i) body += static_cast<char>(i * i / 7);
        around.modelHost = host.address();
        around.modelMirror = "http://127.0.0.1:9";
    }
    void TearDown() override {
        goOn.open();
        WindowFixture::TearDown();
    }

    Page& page() { return openPage(MainTab::models); }
    template <class Control>
    Control* find(const char* name) {
        return page().findChild<Control*>(name);
    }
    std::string text(const char* label) { return fromQt(find<QLabel>(label)->text()); }
    bool isGood(const QString& line) {
        for (QWidget* widget : page().findChildren<QWidget*>(line + "Mark"))
            return static_cast<StatusDot*>(widget)->tone() == StatusDot::Tone::good;
        return false;
    }
    static std::string inModels(const std::string& name) { return ZEPHOPaths::modelsDir() + name; }
    bool canDownload() {
        return eventually([&] { return button(page(), "Download")->isEnabled(); });
    }

    std::string body;
    Gate goOn;
    // Sends the first part of the model, and the rest when the gate is open.
    ModelHost host{[this](const httplib::Request& request, httplib::Response& response) {
        if (request.path.find("tokenizer") != std::string::npos) {
            response.set_content("{}", "application/json");
            return;
        }
        response.set_content_provider(
            body.size(), "application/octet-stream",
            [this](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                if (offset < firstPart)
                    length = std::min(length, firstPart - offset);
                else
                    goOn.wait();
                return sink.write(body.data() + offset, length);
            });
    }};
};

TEST_F(ModelsPageTest, DownloadsCancelsResumesAndApplies) {
    page();
    EXPECT_EQ(text("tokenizer"), "missing tokenizer.json — it will be fetched with the model");
    EXPECT_FALSE(isGood("tokenizer"));
    EXPECT_EQ(find<QComboBox>("source")->currentIndex(), 1);
    find<QComboBox>("source")->setCurrentIndex(0);
    EXPECT_FALSE(button(page(), "Cancel")->isEnabled());

    click(page(), "Download");
    EXPECT_EQ(answerMessage("Cancel").find("要下载 s2-pro-q6_k.gguf(4.53 GB)吗?\n"), 0U);
    EXPECT_FALSE(state->downloader->busy());
    click(page(), "Download");
    answerMessage();
    auto* const bar = find<QProgressBar>("bar");
    ASSERT_TRUE(eventually([&] { return bar->maximum() == 1000 && bar->value() == 250; }));
    EXPECT_EQ(text("downloadLine").find(fileName + "  97 KB / 390 KB  (25.0%)"), 0U)
        << text("downloadLine");
    EXPECT_FALSE(button(page(), "Download")->isEnabled());
    click(page(), "Cancel");
    ASSERT_TRUE(eventually(
        [&] { return text("downloadLine") == fileName + " — cancelled (partial kept)"; }));
    EXPECT_EQ(fileSizeOf(inModels(fileName + ".part")), firstPart);
    EXPECT_TRUE(isGood("tokenizer"));

    goOn.open();
    ASSERT_TRUE(canDownload());
    click(page(), "Download");
    answerMessage();
    // The list follows the last report, and nothing comes after that.
    auto* const installed = find<QComboBox>("installed");
    ASSERT_TRUE(eventually([&] { return installed->count() == 2; }));
    EXPECT_EQ(text("downloadLine"), fileName + " — done");
    EXPECT_EQ(bar->value(), 1000);
    EXPECT_EQ(asText(*loadFileBytes(inModels(fileName))), body);
    EXPECT_EQ(host.seen().back().range, "bytes=" + std::to_string(firstPart) + "-");
    EXPECT_TRUE(canDownload());

    EXPECT_TRUE(isGood("modelsFolder"));
    installed->setCurrentIndex(1);
    state->reloadModels();
    EXPECT_EQ(installed->currentText(), toQt(fileName));
    const auto applied = [&](const std::string& model) {
        click(page(), "Apply + restart");
        return eventually([&] {
            AppConfig config;
            config.load();
            return config.engine.get().modelFile == model && !config.engine.get().useMirror &&
                   button(page(), "Apply + restart")->isEnabled();
        });
    };
    EXPECT_TRUE(applied(fileName));
    EXPECT_EQ(text("message"), "Switched to " + fileName + "; restarting the engine…");
    installed->setCurrentIndex(0);
    EXPECT_TRUE(applied(""));
    EXPECT_EQ(text("message"), "Back to auto model pick; restarting the engine…");
}

TEST_F(ModelsPageTest, TellsAFailureAndIsReadyForTheNextTry) {
    page();
    click(page(), "Download");
    EXPECT_NE(answerMessage().find("下载源:hf-mirror.com (China mirror)"), std::string::npos);
    ASSERT_TRUE(
        eventually([&] { return text("downloadLine").find("tokenizer.json — failed: ") == 0; }));
    EXPECT_TRUE(canDownload());
    EXPECT_FALSE(button(page(), "Cancel")->isEnabled());
    std::filesystem::remove_all(ZEPHOPaths::modelsDir());
    click(page(), "Open models folder");
    EXPECT_EQ(answerMessage(), "Cannot open " + ZEPHOPaths::modelsDir());
}

}  // namespace
}  // namespace zepho::test
