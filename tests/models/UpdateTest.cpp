// Picking the newest release, and asking for it.
#include <cstdlib>

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include "core/diag/AppLog.h"
#include "core/models/UpdateCheck.h"
#include "tests/models/ModelHost.h"
#include "tests/support/HttpClient.h"

namespace zepho {
namespace {

using nlohmann::json;
using test::ModelHost;

constexpr const char* noneFound = "No Zephon release found on GitHub";

json assetsOf(const std::vector<std::string>& names) {
    json assets = json::array();
    for (const std::string& name : names)
        assets.push_back({{"name", name}, {"browser_download_url", "https://d/" + name}});
    return assets;
}

json release(const std::string& tag, const std::vector<std::string>& assets = {}) {
    return {{"tag_name", tag},
            {"html_url", "https://p/" + tag},
            {"body", "about " + tag},
            {"assets", assetsOf(assets)}};
}

std::string linkTo(const std::string& tag) {
    return "<link href=\"https://g/x/releases/tag/" + tag + "\"/>\n";
}

std::string fiftyMegabytesOf(char letter) {
    std::string text;
    text.resize(50'000'000, letter);
    return text;
}

TEST(CompareVersions, goesPieceByPiece) {
    const struct {
        const char *a, *b;
        int result;
    } rows[] = {{"0.3", "0.3.0", 0},     {"0.10", "0.9", 1},   {"0.3rc1", "0.1", -1},
                {" 1 .\n2\t", "1.2", 0}, {"1..2", "1.0.2", 0}, {"2", "1.9.9", 1},
                {"-1", "0", -1},         {"1", "", 1},         {"99999999999999999999", "1", -1}};
    for (const auto& row : rows) {
        EXPECT_EQ(compareVersions(row.a, row.b), row.result) << row.a << " against " << row.b;
        EXPECT_EQ(compareVersions(row.b, row.a), -row.result) << row.b << " against " << row.a;
    }
}

TEST(PickLatest, takesTheNewestReleaseOfThisLineFromJson) {
    json draft = release("zepho-v9.0");
    draft["draft"] = true;
    json early = release("zepho-v8.0");
    early["prerelease"] = true;
    const json list{draft,
                    early,
                    release("zepho-windows-v7.0"),
                    release("v7.0"),
                    release("zepho-v"),
                    release("zepho-macos-v0.3.1"),
                    release("Zepho-MacOS-v0.4.1", {"z.dmg"}),
                    release("zepho-v0.4.1", {"later.dmg"}),
                    json(1),
                    json(),
                    json::array(),
                    {{"tag_name", nullptr}}};
    const UpdateInfo info = pickLatestFromJson(list.dump());
    EXPECT_TRUE(info.ok);
    EXPECT_TRUE(info.newer);
    EXPECT_EQ(info.latest, "0.4.1");
    EXPECT_EQ(info.pageUrl, "https://p/Zepho-MacOS-v0.4.1");
    EXPECT_EQ(info.downloadUrl, "https://d/z.dmg");
    EXPECT_EQ(info.notes, "about Zepho-MacOS-v0.4.1");
    EXPECT_EQ(info.error, "");

    // What runs is not newer than itself.
    for (const char* old : {"zepho-v0.3.26220", "zepho-v0.3"}) {
        const UpdateInfo same = pickLatestFromJson(json{release(old)}.dump());
        EXPECT_TRUE(same.ok);
        EXPECT_FALSE(same.newer);
    }
    EXPECT_EQ(pickLatestFromJson(json{release("v1")}.dump()).error, noneFound);
    for (const char* broken : {"", "{}", "[", "[{\"tag_name\": \"zepho-v1\"}", "\xff", "null"}) {
        const UpdateInfo bad = pickLatestFromJson(broken);
        EXPECT_FALSE(bad.ok);
        EXPECT_EQ(bad.error, "Could not read GitHub’s response") << broken;
    }
    EXPECT_FALSE(pickLatestFromJson(std::string(1'000'000, '[')).ok);
}

TEST(PickLatest, choosesTheInstallerAmongTheAssets) {
    const struct {
        std::vector<std::string> assets;
        std::string chosen;
    } rows[] = {
        {{}, ""},
        {{"engine-cuda.zip", "zepho-macos.zip"}, "https://d/zepho-macos.zip"},
        {{"a-mac.zip", "b.pkg", "c.dmg", "d.dmg"}, "https://d/c.dmg"},
        {{"a-mac.zip", "b.pkg"}, "https://d/b.pkg"},
        {{"Engine-mac.DMG", "Z.DMG"}, "https://d/Z.DMG"},
        {{"engine.dmg", "engine-arm64.zip", "notes.zip", "z.exe", "z.dmg.asc"}, ""},
        {{"z-universal.zip", "z-Darwin.ZIP"}, "https://d/z-universal.zip"},
        {{"z-arm64.zip.sha256", "z-Darwin.ZIP"}, "https://d/z-Darwin.ZIP"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(pickLatestFromJson(json{release("zepho-v1", row.assets)}.dump()).downloadUrl,
                  row.chosen);
    json odd = release("zepho-v1");
    odd["assets"] = json{{"name", "z.dmg"}};
    EXPECT_TRUE(pickLatestFromJson(json{odd}.dump()).ok);
    // An asset without an address leaves the choice to the next kind.
    odd["assets"] = json::array({7, json{{"name", "z.dmg"}}});
    odd["assets"].push_back(assetsOf({"z.pkg"})[0]);
    EXPECT_EQ(pickLatestFromJson(json{odd}.dump()).downloadUrl, "https://d/z.pkg");
}

TEST(PickLatest, searchesTheFeedForTags) {
    const UpdateInfo info = pickLatestFromAtom(
        "<feed>" + linkTo("zepho-macos-v0.3.9") + linkTo("zepho-v5.0") + linkTo("v6") +
        linkTo("Zepho-macOS-v0.10.0") + linkTo("zepho-macos-v0.10") + linkTo("zepho-macos-v"));
    EXPECT_TRUE(info.ok);
    EXPECT_TRUE(info.newer);
    EXPECT_EQ(info.latest, "0.10.0");
    EXPECT_EQ(info.downloadUrl + info.notes + info.pageUrl, "");
    for (const std::string& text :
         {std::string(), linkTo("zepho-v5.0"), std::string("/releases/tag/zepho-macos-v9")}) {
        EXPECT_FALSE(pickLatestFromAtom(text).ok);
        EXPECT_EQ(pickLatestFromAtom(text).error, noneFound);
    }
    // Text made to keep the search busy ends it as soon.
    std::string hostile;
    while (hostile.size() < 4'000'000) hostile += "/releases/tag/zepho-macos-v";
    EXPECT_FALSE(pickLatestFromAtom(hostile).ok);
}

class CheckForUpdate : public testing::Test {
protected:
    CheckForUpdate() {
        ::setenv("no_proxy", "*", 1);
        AppLog::clear();
    }
    struct Answer {
        int status = 200;
        std::string body;
    };
    UpdateInfo check(const Answer& api, const Answer& feed) {
        ModelHost host([&](const httplib::Request& request, httplib::Response& response) {
            if (request.path == "/api") {
                seen = request.headers;
                response.set_redirect("/moved");
                return;
            }
            const Answer& answer = request.path == "/moved" ? api : feed;
            response.status = answer.status;
            response.body = answer.body;
        });
        return checkForUpdate({host.address() + "/api", host.address() + "/feed"});
    }
    static bool wasLogged(const std::string& text) {
        for (const LogEntry& line : AppLog::snapshot())
            if (line.text.find(text) != std::string::npos) return true;
        return false;
    }
    httplib::Headers seen;
};

TEST_F(CheckForUpdate, asksTheListAndFallsBackToTheFeed) {
    const Answer list{200, json{release("zepho-v0.4.0")}.dump()};
    const Answer feed{200, linkTo("zepho-macos-v0.2")};
    EXPECT_EQ(check(list, {500, ""}).latest, "0.4.0");
    EXPECT_TRUE(wasLogged("update check via API: latest 0.4.0, running 0.3.26220, newer=true"));
    EXPECT_EQ(seen.find("User-Agent")->second, "Zephon/0.3.26220");
    EXPECT_EQ(seen.find("Accept")->second, "application/vnd.github+json");
    EXPECT_EQ(seen.find("X-GitHub-Api-Version")->second, "2022-11-28");

    for (const Answer& api : {Answer{403, ""}, Answer{200, "[]"}, Answer{200, "<html>"},
                              Answer{200, fiftyMegabytesOf(' ')}}) {
        const UpdateInfo info = check(api, feed);
        EXPECT_TRUE(info.ok);
        EXPECT_EQ(info.latest, "0.2");
        EXPECT_FALSE(info.newer);
    }
    EXPECT_TRUE(wasLogged("update check via atom: latest 0.2, running 0.3.26220, newer=false"));
    EXPECT_TRUE(wasLogged("/api -> HTTP 403"));
}

TEST_F(CheckForUpdate, tellsWhyTheListFailedWhenBothDo) {
    const Answer noFeed{503, "no"};
    EXPECT_EQ(check({403, ""}, noFeed).error, "GitHub API rate limit reached - try again shortly");
    EXPECT_EQ(check({502, ""}, noFeed).error, "GitHub returned 502");
    EXPECT_EQ(check({200, ""}, {200, ""}).error, "GitHub returned 200");
    EXPECT_EQ(check({200, "[]"}, noFeed).error, noneFound);
    EXPECT_EQ(check({200, "\xff["}, {200, "<feed/>"}).error, "Could not read GitHub’s response");
    const UpdateInfo large = check({200, fiftyMegabytesOf('[')}, {200, fiftyMegabytesOf('<')});
    EXPECT_FALSE(large.ok);
    EXPECT_NE(large.error, "");
    EXPECT_EQ(large.current, "0.3.26220");
    EXPECT_EQ(checkForUpdate({"no address", ""}).error, "bad url");

    const std::string nobody = "http://127.0.0.1:" + std::to_string(test::freePort());
    const UpdateInfo refused = checkForUpdate({nobody, nobody});
    EXPECT_FALSE(refused.ok);
    EXPECT_TRUE(wasLogged("GET " + nobody + " failed: " + refused.error));
}

}  // namespace
}  // namespace zepho
