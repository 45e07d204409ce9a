// The hub page and its share sheet, over a real library and a hub of the tests.
#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QListWidget>

#include <nlohmann/json.hpp>

#include "app/widgets/RecordTable.h"
#include "core/base/Json.h"
#include "core/config/BindingKeys.h"
#include "core/pack/ClonePack.h"
#include "core/platform/Files.h"
#include "tests/app/WindowFixture.h"
#include "tests/pack/HubStandIn.h"
#include "tests/support/TempDir.h"

namespace zepho::test {
namespace {

class HubPageTest : public WindowFixture {
protected:
    void SetUp() override {
        ::setenv("no_proxy", "*", 1);
        around.hub.address = hub.address();
        hub.answerTo("list", {200, jsonString(list())});
        WindowFixture::SetUp();
    }
    void openHub() {
        around.hub.address = hub.address();
        restart();
        page = &openPage(MainTab::hub);
        table = page->findChild<RecordTable*>("hubTable");
        ASSERT_TRUE(eventually([&] { return !state->hubBusy && state->hubAll.size() == 3; }));
    }
    void restart() {
        stop();
        start();
    }
    [[nodiscard]] Json list() const {
        const std::string base = hub.address().substr(0, hub.address().find("/API"));
        return {{"ok", true},
                {"items",
                 {{{"id", "s-1"},
                   {"userId", "mio"},
                   {"title", "Tokyo gates"},
                   {"language", "ja"},
                   {"gender", "female"},
                   {"voices", 1},
                   {"downloads", 7},
                   {"note", "calm"},
                   {"createdAt", "2026-03-02T12:00:00Z"},
                   {"url", base + "/packs/1"}},
                  {{"id", "s-2"},
                   {"userId", "Ben"},
                   {"title", "berlin"},
                   {"language", "de"},
                   {"gender", "male"},
                   {"downloads", 40},
                   {"createdAt", "2026-03-03T12:00:00Z"},
                   {"url", base + "/packs/2"}},
                  {{"id", "../s-3"},
                   {"userId", "mio"},
                   {"title", "Osaka"},
                   {"language", "ja"},
                   {"gender", "male"},
                   {"downloads", 1},
                   {"url", base + "/packs/3"}}}}};
    }
    VoiceInfo addVoice(const std::string& display) {
        const SharedBytes wav =
            state->service->synthesizeWav("A sample of " + display, "en", TtsGender::female, 1);
        VoiceCloneSpec spec;
        spec.display = display;
        spec.language = "ja";
        spec.gender = TtsGender::female;
        spec.clips.push_back({toBytes(asText(wav.view())), "A sample of " + display});
        return state->service->cloneVoice(spec);
    }
    [[nodiscard]] std::string titles() const {
        QStringList cells;
        for (int row = 0; row < rowsOf(table).rowCount(); ++row)
            cells << rowsOf(table).index(row, 0).data().toString();
        return fromQt(cells.join("|"));
    }
    void pick(const char* picker, const QString& text) const {
        auto* const box = page->findChild<QComboBox*>(picker);
        const int at = box->findText(text);
        ASSERT_GE(at, 0) << fromQt(text);
        box->setCurrentIndex(at);
        emit box->activated(at);
    }
    [[nodiscard]] std::string status() const {
        return fromQt(page->findChild<QLabel*>("hubStatus")->text());
    }
    [[nodiscard]] std::vector<std::string> packsInCache() const {
        std::vector<std::string> names;
        for (const auto& file : std::filesystem::directory_iterator(ZEPHOPaths::cacheDir()))
            if (file.path().extension() == ".cln") names.push_back(file.path().filename());
        return names;
    }
    // Fills in the share sheet and presses "Upload".
    void upload(int row, const QString& user, const QString& title) {
        click(*page, page->findChild<QAbstractButton*>("hubShare")->text());
        ASSERT_TRUE(eventually([] { return dialog<QDialog>() != nullptr; }));
        auto* const sheet = dialog<QDialog>();
        sheet->findChild<QListWidget*>("shareList")->setCurrentRow(row);
        sheet->findChild<QLineEdit*>("shareUser")->setText(user);
        if (!title.isNull()) sheet->findChild<QLineEdit*>("shareTitle")->setText(title);
        click(*sheet, "Upload");
    }

    StandInHub hub;
    Page* page = nullptr;
    RecordTable* table = nullptr;
};

TEST_F(HubPageTest, ListsFiltersAndSorts) {
    openHub();
    EXPECT_EQ(titles(), "berlin|Tokyo gates|Osaka");
    EXPECT_EQ(status(), "3 of 3");
    const QAbstractItemModel& model = rowsOf(table);
    EXPECT_EQ(model.index(1, 2).data(), "日本語");
    EXPECT_EQ(model.index(1, 6).data(), "2026-03-02");
    EXPECT_EQ(model.index(2, 6).data(), "");
    pick("hubSort", "By title");
    EXPECT_EQ(titles(), "berlin|Osaka|Tokyo gates");
    pick("hubGender", "Male");
    EXPECT_EQ(titles(), "berlin|Osaka");
    pick("hubLanguage", "日本語");
    EXPECT_EQ(titles(), "Osaka");
    EXPECT_EQ(status(), "1 of 3");
    pick("hubUploader", "Ben");
    EXPECT_EQ(titles(), "");
    pick("hubGender", "All genders");
    pick("hubLanguage", "All languages");
    pick("hubUploader", "All uploaders");
    QTest::keyClicks(page->findChild<QLineEdit*>("hubSearch"), " CALM");
    EXPECT_EQ(titles(), "Tokyo gates");
    click(*page, "Open in browser");
    ASSERT_EQ(opened.size(), 1U);
    EXPECT_EQ(fromQt(opened[0]), hub.address() + "?a=list&kind=voices");
    // Another kind: a new list, and nothing selected.
    table->select("s-1");
    pick("hubKind", "Broadcast");
    EXPECT_TRUE(table->selectedIds().empty());
    EXPECT_EQ(status(), "0 of 0  Fetching the list...");
    EXPECT_FALSE(button(*page, "Refresh")->isEnabled());
    ASSERT_TRUE(eventually([&] { return !state->hubBusy; }));
    EXPECT_EQ(hub.takeSeen().back().query.at("kind"), "broadcasts");
    hub.answerTo("list", {503, ""});
    click(*page, "Refresh");
    EXPECT_TRUE(eventually([&] { return status().find("503") != std::string::npos; })) << status();
}

TEST_F(HubPageTest, DownloadsAndImports) {
    // A pack of another machine.
    const VoiceInfo made = addVoice("Aoi");
    const TempDir dir;
    (void)exportVoicePack(dir.file("a.cln"), {made.id}, state->service->voices);
    (void)state->service->voices.remove(made.id);
    const std::optional<Bytes> pack = loadFileBytes(dir.file("a.cln"));
    ASSERT_TRUE(pack);
    hub.answerTo("/packs/1", {200, std::string(asText(*pack))});
    hub.answerTo("/packs/2", {404, ""});
    hub.answerTo("/packs/3", {200, "no pack at all"});
    openHub();
    EXPECT_FALSE(button(*page, "Download and import")->isEnabled());
    table->select("s-1");
    click(*page, "Download and import");
    EXPECT_FALSE(button(*page, "Download and import")->isEnabled());
    const std::string told = answerMessage();
    EXPECT_EQ(told.find("「Tokyo gates」已导入。\n"), 0U) << told;
    EXPECT_NE(told.find("1 voice(s) (1 new, 0 reused)"), std::string::npos) << told;
    EXPECT_TRUE(state->service->voices.findByDisplay("Aoi"));
    table->select("s-2");
    click(*page, "Download and import");
    EXPECT_EQ(answerMessage(), "Download failed: Download failed (HTTP 404)");
    table->select("../s-3");
    click(*page, "Download and import");
    EXPECT_EQ(answerMessage().find("This share could not be imported: "), 0U);
    EXPECT_TRUE(packsInCache().empty());
    EXPECT_TRUE(button(*page, "Download and import")->isEnabled());
}

TEST_F(HubPageTest, SharesAVoiceAndTakesItDown) {
    addVoice("Aoi");
    openHub();
    int row = 0;
    while (state->voices[static_cast<std::size_t>(row)].display != "Aoi") ++row;
    hub.answerTo("upload", {200, R"({"ok":true,"id":"s-2","url":"u","deleteKey":"secret"})"});
    hub.takeSeen();
    upload(row, " me ", QString());
    const std::string told = answerMessage();
    EXPECT_EQ(told, "分享成功。分享 ID:s-2\nIt shows up in everyone else’s hub list right away.");
    EXPECT_EQ(state->config->hubUserId.get(), "me");
    EXPECT_EQ(state->config->hubDeleteKey("s-2"), "secret");
    const std::vector<HubRequestSeen> seen = hub.takeSeen();
    ASSERT_FALSE(seen.empty());
    std::map<std::string, std::string> fields;
    for (const HubFormPart& part : seen[0].parts) fields[part.name] = part.content;
    EXPECT_EQ(fields["kind"] + fields["userid"] + fields["title"] + fields["language"] +
                  fields["gender"] + fields["voices"] + fields["bindings"],
              "voicesmeAoi · 日本語 · Femalejafemale10");
    EXPECT_EQ(fields["fp"].size(), 64U);
    for (const auto& file :
         std::filesystem::directory_iterator(std::filesystem::temp_directory_path()))
        EXPECT_NE(file.path().filename(), seen[0].parts.back().fileName);

    ASSERT_TRUE(eventually([&] { return !state->hubBusy; }));
    table->select("s-1");
    click(*page, "Unshare");
    EXPECT_EQ(answerMessage().find("This share was not uploaded from this PC"), 0U);
    table->select("s-2");
    EXPECT_EQ(status(), "3 of 3  (you shared this)");
    // What is there already keeps the key that can take it down.
    hub.answerTo("upload", {409, R"({"existingId":"s-2","existingTitle":"Gates","mine":true})"});
    upload(row, "me", "Again");
    EXPECT_EQ(answerMessage().find("这份内容你已经分享过了:「Gates」\n"), 0U);
    EXPECT_EQ(state->config->hubDeleteKey("s-2"), "secret");
    hub.answerTo("upload",
                 {409, R"({"existingId":"x","existingTitle":"Gates","existingUser":"mio"})"});
    upload(row, "me", "Again");
    EXPECT_EQ(answerMessage().find("这份内容已经有人分享了:「Gates」(@mio)\n"), 0U);
    EXPECT_EQ(state->config->hubSharesSnapshot().size(), 1U);
    hub.answerTo("delete", {500, ""});
    click(*page, "Unshare");
    EXPECT_EQ(answerMessage(), "把「berlin」从云分享里撤下来?");
    EXPECT_EQ(answerMessage(), "Takedown failed: Delete failed (HTTP 500)");
    EXPECT_EQ(state->config->hubDeleteKey("s-2"), "secret");
    hub.answerTo("delete", {200, ""});
    click(*page, "Unshare");
    answerMessage();
    ASSERT_TRUE(eventually([&] { return state->config->hubDeleteKey("s-2").empty(); }));
    EXPECT_TRUE(eventually([&] { return status() == "3 of 3"; }));
}

TEST_F(HubPageTest, TheSheetChecksWhatItGets) {
    const VoiceInfo aoi = addVoice("Aoi");
    state->config->setAirlineVoice("ANA", "ja", TtsGender::female, aoi.id);
    state->config->setAirlineVoice("CES", "", TtsGender::auto_, "gone");
    state->config->save();
    openHub();
    pick("hubKind", "Broadcast");
    ASSERT_TRUE(eventually([&] { return !state->hubBusy; }));
    hub.takeSeen();
    // As a file edited by hand may have it.
    state->bindings.front().second = " " + aoi.id + "\n";
    click(*page, "分享Broadcast到云上");
    auto* const sheet = dialog<QDialog>();
    ASSERT_NE(sheet, nullptr);
    auto* const rows = sheet->findChild<QListWidget*>("shareList");
    ASSERT_EQ(rows->count(), 2);
    EXPECT_EQ(rows->item(0)->text(), "ANA [日本語 / Female]   Aoi");
    EXPECT_EQ(rows->item(1)->text(), "CES [Auto / Default]   (voice is gone)");
    auto* const title = sheet->findChild<QLineEdit*>("shareTitle");
    const auto refusal = [&] {
        click(*sheet, "Upload");
        return answerMessage();
    };
    // The focus alone chooses nothing.
    rows->setFocus();
    EXPECT_EQ(refusal(), "Pick one first.");
    rows->setCurrentRow(0);
    const QString suggested = title->text();
    rows->setCurrentRow(1);
    EXPECT_NE(title->text(), suggested);
    title->setText(" ");
    EXPECT_EQ(refusal(), "The user ID cannot be empty — it is how others see who shared it.");
    sheet->findChild<QLineEdit*>("shareUser")->setText("me");
    EXPECT_EQ(refusal(), "The title cannot be empty.");
    // What the person has written is left alone.
    title->setText("Mine");
    rows->setCurrentRow(0);
    EXPECT_EQ(title->text(), "Mine");
    // Changing one's mind sends nothing.
    click(*sheet, "Cancel");
    EXPECT_TRUE(button(*page, "Refresh")->isEnabled());
    EXPECT_TRUE(hub.takeSeen().empty());
}

}  // namespace
}  // namespace zepho::test
