// Picking the newest release, and asking for it.
#include <cstdlib>

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include "core/models/UpdateCheck.h"
#include "tests/models/ModelHost.h"
#include "tests/support/HttpClient.h"
#include "tests/support/Watching.h"

namespace zepho {
namespace {

using nlohmann::json;

constexpr const char* noneFound = "No Zephon release found on GitHub";

json release(const std::string& tag, const std::vector<std::string>& assets = {}) {
    json made{{"tag_name", tag}, {"html_url", "https://p/" + tag}, {"body", "about " + tag}};
    made["assets"] = json::array();
    for (const std::string& name : assets)
        made["assets"].push_back({{"name", name}, {"browser_download_url", "https://d/" + name}});
    return made;
}

std::string linkTo(const std::string& tag) {
    return "<link href=\"https://g/x/releases/tag/" + tag + "\"/>\n";
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
    json list{draft, early, json(1), json(), json::array(), {{"tag_name", nullptr}}};
    for (const char* tag : {"zepho-windows-v7.0", "v7.0", "zepho-v", "zepho-macos-v0.3.1"})
        list.push_back(release(tag));
    list.push_back(release("Zepho-MacOS-v0.4.1", {"z.dmg"}));
    list.push_back(release("zepho-v0.4.1", {"later.dmg"}));
    const UpdateInfo info = pickLatestFromJson(list.dump());
    EXPECT_TRUE(info.ok && info.newer);
    EXPECT_EQ(info.latest, "0.4.1");
    EXPECT_EQ(info.pageUrl, "https://p/Zepho-MacOS-v0.4.1");
    EXPECT_EQ(info.downloadUrl, "https://d/z.dmg");
    EXPECT_EQ(info.notes, "about Zepho-MacOS-v0.4.1");
    EXPECT_EQ(info.error, "");

    const UpdateInfo same = pickLatestFromJson(json{release("zepho-v0.3.26220")}.dump());
    EXPECT_TRUE(same.ok && !same.newer) << "what runs is not newer than itself";
    EXPECT_EQ(pickLatestFromJson(json{release("v1")}.dump()).error, noneFound);
    const std::string deep(1'000'000, '[');
    for (const std::string& broken : {std::string(), std::string("{}"), std::string("\xff"), deep})
        EXPECT_EQ(pickLatestFromJson(broken).error, "Could not read GitHub’s response");
}

TEST(PickLatest, choosesTheInstallerAmongTheAssets) {
    const auto chosen = [](const json& one) {
        const UpdateInfo info = pickLatestFromJson(json{one}.dump());
        EXPECT_TRUE(info.ok);
        return info.downloadUrl;
    };
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"engine-cuda.zip", "zepho-macos.zip"}, "https://d/zepho-macos.zip"},
        {{"a-mac.zip", "b.pkg", "c.dmg", "d.dmg"}, "https://d/c.dmg"},
        {{"a-mac.zip", "b.pkg"}, "https://d/b.pkg"},
        {{"Engine-mac.DMG", "Z.DMG"}, "https://d/Z.DMG"},
        {{"engine.dmg", "engine-arm64.zip", "notes.zip", "z.exe", "z.dmg.asc"}, ""},
        {{"z-universal.zip", "z-Darwin.ZIP"}, "https://d/z-universal.zip"},
        {{"z-arm64.zip.sha256", "z-Darwin.ZIP"}, "https://d/z-Darwin.ZIP"},
    };
    for (const auto& [assets, address] : rows)
        EXPECT_EQ(chosen(release("zepho-v1", assets)), address);
    // An asset without an address leaves the choice to the next kind.
    json odd = release("zepho-v1", {"z.pkg"});
    odd["assets"].insert(odd["assets"].begin(), {json(7), json{{"name", "z.dmg"}}});
    EXPECT_EQ(chosen(odd), "https://d/z.pkg");
    odd["assets"] = json{{"name", "z.dmg"}};
    EXPECT_EQ(chosen(odd), "");
}

TEST(PickLatest, searchesTheFeedForTags) {
    const UpdateInfo info = pickLatestFromAtom(
        "<feed>" + linkTo("zepho-macos-v0.3.9") + linkTo("zepho-v5.0") + linkTo("v6") +
        linkTo("Zepho-macOS-v0.10.0") + linkTo("zepho-macos-v0.10") + linkTo("zepho-macos-v"));
    EXPECT_TRUE(info.ok && info.newer);
    EXPECT_EQ(info.latest, "0.10.0");
    EXPECT_EQ(info.downloadUrl + info.notes + info.pageUrl, "");
    // Text made to keep the search busy ends it as soon.
    std::string hostile;
    while (hostile.size() < 4'000'000) hostile += "/releases/tag/zepho-macos-v";
    for (const std::string& text : {std::string(), linkTo("zepho-v5.0"), hostile}) {
        EXPECT_FALSE(pickLatestFromAtom(text).ok);
        EXPECT_EQ(pickLatestFromAtom(text).error, noneFound);
    }
}

TEST(CheckForUpdate, asksTheListAndThenTheFeed) {
    struct Answer {
        int status;
        std::string body;
    };
    ::setenv("no_proxy", "*", 1);
    AppLog::clear();
    httplib::Headers seen;
    const auto check = [&seen](const Answer& api, const Answer& feed) {
        test::ModelHost host([&](const httplib::Request& request, httplib::Response& response) {
            if (request.path == "/api") {
                seen = request.headers;
                response.set_redirect("/moved");
                return;
            }
            const Answer& answer = request.path == "/moved" ? api : feed;
            response.status = answer.status;
            response.body = answer.body;
        });
        const UpdateInfo info = checkForUpdate({host.address() + "/api", host.address() + "/feed"});
        EXPECT_EQ(info.ok, info.error.empty());
        EXPECT_EQ(info.current, "0.3.26220");
        return info;
    };
    const Answer list{200, json{release("zepho-v0.4.0")}.dump()};
    const Answer feed{200, linkTo("zepho-macos-v0.2")};
    const Answer noFeed{503, "no"};
    EXPECT_EQ(check(list, noFeed).latest, "0.4.0");
    EXPECT_EQ(seen.find("User-Agent")->second, "Zephon/0.3.26220");
    EXPECT_EQ(seen.find("Accept")->second, "application/vnd.github+json");
    EXPECT_EQ(seen.find("X-GitHub-Api-Version")->second, "2022-11-28");

    const std::pair<Answer, std::string> rows[] = {
        {{403, ""}, "GitHub API rate limit reached - try again shortly"},
        {{502, ""}, "GitHub returned 502"},
        {{200, ""}, "GitHub returned 200"},
        {{200, "[]"}, noneFound},
        {{200, "\xff["}, "Could not read GitHub’s response"},
    };
    for (const auto& [api, error] : rows) {
        EXPECT_EQ(check(api, feed).latest, "0.2");
        EXPECT_EQ(check(api, noFeed).error, error);
    }
    EXPECT_EQ(
        test::countLogLines("update check via atom: latest 0.2, running 0.3.26220, newer=false"),
        5);
    EXPECT_EQ(check({200, "[]"}, {200, ""}).error, noneFound);
    // More than anybody would send, and each would be an answer else.
    const std::string large(50'000'000, ' ');
    EXPECT_FALSE(check({200, large + list.body}, {200, large + feed.body}).ok);

    EXPECT_EQ(checkForUpdate({"no address", ""}).error, "bad url");
    const std::string nobody = "http://127.0.0.1:" + std::to_string(test::freePort());
    EXPECT_NE(checkForUpdate({nobody, nobody}).error, "");
}

}  // namespace
}  // namespace zepho
