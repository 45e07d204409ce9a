// The hub's client against a well-behaved server that is not ours, and against rude ones.
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "core/diag/AppLog.h"
#include "core/pack/HubClient.h"
#include "core/platform/Files.h"
#include "tests/models/ModelHost.h"
#include "tests/pack/HubStandIn.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using std::chrono::milliseconds;
using test::HubRequestSeen;
using test::RawHost;
using test::RawPeer;

HubItem shareAt(const std::string& url) {
    HubItem item;
    item.id = "s-1";
    item.fileName = "gate.cln";
    item.url = url;
    return item;
}

// Bytes of every value, with the pieces in them that frame a form.
std::string packOf(std::size_t size) {
    std::string bytes;
    while (bytes.size() < size) {
        for (int value = 0; value < 256; ++value) bytes += static_cast<char>(value);
        bytes += "\r\n------ZEPHO--\r\n\r\n--";
    }
    bytes.resize(size);
    return bytes;
}

class HubClient : public testing::Test {
protected:
    static void SetUpTestSuite() {
        // A proxy of the machine that runs the tests would be asked for this machine's servers.
        ::setenv("no_proxy", "*", 1);
    }
    void SetUp() override { AppLog::clear(); }

    [[nodiscard]] HubService at(const std::string& address) const {
        HubService service;
        service.address = address;
        return service;
    }
    [[nodiscard]] HubUpload uploadOf(const std::string& name, const std::string& content) const {
        saveFileBytes(directory.file(name), asBytes(content));
        return {HubKind::broadcasts,
                directory.file(name),
                "kanō",
                "Gate \"A\"\r\n--x",
                "",
                "ja",
                "female",
                "f00d",
                3,
                7};
    }
    [[nodiscard]] std::string contentOf(const std::string& name) const {
        const auto bytes = loadFileBytes(directory.file(name));
        return bytes ? std::string(asText(*bytes)) : "(no file)";
    }
    [[nodiscard]] std::size_t fileCount() const {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path()))
            count += entry.is_regular_file() ? 1 : 0;
        return count;
    }
    // The lines of the log, with the first letter of their level.
    static std::vector<std::string> logged() {
        std::vector<std::string> lines;
        for (const LogEntry& line : AppLog::snapshot())
            lines.push_back(std::string(logLevelName(line.level).substr(0, 1)) + " " + line.source +
                            ": " + line.text);
        return lines;
    }
    using Lines = std::vector<std::string>;

    const test::TempDir directory;
    test::StandInHub hub;
    const HubService service = at(hub.address());
};

TEST_F(HubClient, asksForTheListOfAKind) {
    hub.answer({200, R"({"ok":true,"items":[{"id":"a","url":"u","title":"broken )"
                     "\xFF"
                     R"( text"},{"id":"b"}]})"});
    const HubResult voices = hubList(HubKind::voices, service);
    ASSERT_TRUE(voices.ok);
    ASSERT_EQ(voices.items.size(), 1U);
    EXPECT_EQ(voices.items[0].title, "broken \uFFFD text");
    EXPECT_TRUE(hubList(HubKind::broadcasts, service).ok);
    const std::vector<HubRequestSeen> seen = hub.takeSeen();
    ASSERT_EQ(seen.size(), 2U);
    for (const HubRequestSeen& request : seen) {
        EXPECT_EQ(request.method, "GET");
        EXPECT_EQ(request.path, "/API/hub.php");
        EXPECT_EQ(request.query.at("a"), "list");
        EXPECT_EQ(request.agent, "Zephon/0.3.26220");
    }
    EXPECT_EQ(seen[0].query.at("kind"), "voices");
    EXPECT_EQ(seen[1].query.at("kind"), "broadcasts");
    EXPECT_EQ(logged(), (Lines{"I hub: listed 1 share(s)", "I hub: listed 1 share(s)"}));
}

TEST_F(HubClient, saysWhyThereIsNoList) {
    hub.answer({503, R"({"ok":true})"});
    EXPECT_EQ(hubList(HubKind::voices, service).error, "The hub service returned 503");
    hub.answer({200, R"({"ok":false,"error":"closed"})"});
    EXPECT_EQ(hubList(HubKind::voices, service).error, "closed");
    EXPECT_EQ(logged(), (Lines{"W hub: list failed: HTTP 503", "I hub: listed 0 share(s)"}));
    // A list without an end is not read to it.
    hub.answer({200, std::string((16 << 20) + 1, ' ')});
    EXPECT_EQ(hubList(HubKind::voices, service).error, "the response has more than 16777216 bytes");
    hub.answer({200, R"({"ok":true})" + std::string((16 << 20) - 11, ' ')});
    EXPECT_TRUE(hubList(HubKind::voices, service).ok);
}

TEST_F(HubClient, putsADownloadInItsPlaceWhole) {
    const std::string pack = packOf(hubMaxPackBytes + 1);
    hub.answer({200, pack});
    const std::string url = hub.address() + "?a=get&id=s%201";
    EXPECT_EQ(hubDownload(shareAt(url), directory.file("cache/hub/s-1.cln"), service),
              std::nullopt);
    EXPECT_TRUE(contentOf("cache/hub/s-1.cln") == pack);
    const std::vector<HubRequestSeen> seen = hub.takeSeen();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].query.at("id"), "s 1");
    EXPECT_EQ(logged(), Lines{"I hub: downloaded gate.cln (10485761 bytes)"});

    hub.answer({200, "newer"});
    EXPECT_EQ(hubDownload(shareAt(url), directory.file("cache/hub/s-1.cln"), service),
              std::nullopt);
    EXPECT_EQ(contentOf("cache/hub/s-1.cln"), "newer");
    EXPECT_EQ(fileCount(), 1U);
}

TEST_F(HubClient, aFailedDownloadLeavesEverythingAsItWas) {
    saveFileBytes(directory.file("old.cln"), asBytes("old"));
    const auto failureOf = [&](const std::string& url, const std::string& to = "old.cln") {
        return hubDownload(shareAt(url), directory.file(to), service).value_or("(none)");
    };
    for (const char* url : {"", "packs/1.cln", "http://a b/"})
        EXPECT_EQ(failureOf(url), "This entry has no download URL") << url;
    hub.answer({404, "gone"});
    EXPECT_EQ(failureOf(hub.address()), "Download failed (HTTP 404)");
    hub.answer({206, "half of it"});
    EXPECT_EQ(failureOf(hub.address()), "Download failed (HTTP 206)");
    hub.answer({200, ""});
    EXPECT_EQ(failureOf(hub.address()), "Download failed (HTTP 200)");
    // What lies on this machine is no download.
    const std::string local = failureOf("file://" + directory.file("old.cln"), "copy.cln");
    EXPECT_NE(local, "(none)");
    EXPECT_NE(local, "This entry has no download URL");
    EXPECT_EQ(contentOf("old.cln"), "old");

    hub.answer({200, "pack"});
    EXPECT_NE(failureOf(hub.address(), "old.cln/below.cln").find("old.cln/"), std::string::npos);
    std::filesystem::create_directories(directory.file("full.cln/inside"));
    EXPECT_NE(failureOf(hub.address(), "full.cln"), "(none)");
    EXPECT_TRUE(directoryExists(directory.file("full.cln/inside")));
    EXPECT_EQ(contentOf("old.cln"), "old");
    EXPECT_EQ(fileCount(), 1U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(HubClient, sendsAPackAsAForm) {
    hub.answer({200, R"({"ok":true,"id":"s-9","url":"https://x/9","deleteKey":"k-9","mine":1})"});
    // Exactly as much as the service takes.
    const std::string pack = packOf(hubMaxPackBytes);
    const HubUpload upload = uploadOf("a \"b\".cln", pack);
    const HubUploadResult result = hubUpload(upload, service);
    EXPECT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.id, "s-9");
    EXPECT_EQ(result.url, "https://x/9");
    EXPECT_EQ(result.deleteKey, "k-9");
    EXPECT_FALSE(result.duplicate);
    EXPECT_EQ(logged(), Lines{"I hub: uploaded share s-9"});

    const std::vector<HubRequestSeen> seen = hub.takeSeen();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].method, "POST");
    EXPECT_EQ(seen[0].query, (std::map<std::string, std::string>{{"a", "upload"}}));
    const std::string formType = "multipart/form-data; boundary=----ZEPHO";
    EXPECT_EQ(seen[0].contentType.find(formType), 0U);
    EXPECT_EQ(seen[0].contentType.size(), formType.size() + 32);
    EXPECT_EQ(seen[0].contentType.find_first_not_of("0123456789ABCDEF", formType.size()),
              std::string::npos);
    const std::vector<std::pair<std::string, std::string>> fields = {
        {"kind", "broadcasts"},     {"fp", "f00d"},  {"userid", "kanō"},
        {"title", upload.title},    {"note", ""},    {"language", "ja"},
        {"gender", "female"},       {"voices", "3"}, {"bindings", "7"},
        {"appversion", "0.3.26220"}};
    ASSERT_EQ(seen[0].parts.size(), fields.size() + 1);
    for (std::size_t at = 0; at < fields.size(); ++at) {
        EXPECT_EQ(seen[0].parts[at].name, fields[at].first);
        EXPECT_EQ(seen[0].parts[at].content, fields[at].second);
        EXPECT_EQ(seen[0].parts[at].fileName, "");
    }
    const test::HubFormPart& file = seen[0].parts.back();
    EXPECT_EQ(file.name, "file");
    EXPECT_EQ(file.fileName, "a %22b%22.cln");
    EXPECT_EQ(file.contentType, "application/octet-stream");
    EXPECT_TRUE(file.content == pack);

    // Another upload, another boundary.
    (void)hubUpload(uploadOf("small.cln", "x"), service);
    const std::vector<HubRequestSeen> next = hub.takeSeen();
    ASSERT_EQ(next.size(), 1U);
    EXPECT_NE(next[0].contentType, seen[0].contentType);
}

TEST_F(HubClient, doesNotSendWhatTheServiceWouldNotTake) {
    const HubUploadResult tooLarge =
        hubUpload(uploadOf("large.cln", std::string(hubMaxPackBytes + 1, 'x')), service);
    const std::string advice =
        "Share fewer voices at once, or use mp3 reference audio — wav is several times larger than "
        "mp3 for the same clip.";
    EXPECT_FALSE(tooLarge.ok);
    EXPECT_EQ(tooLarge.error, "This package is 10.0 MB, over the 10 MB limit.\n" + advice);
    HubUpload upload;
    for (const std::string& path :
         {directory.file("missing.cln"), directory.path(), std::string()}) {
        upload.filePath = path;
        EXPECT_EQ(hubUpload(upload, service).error, "The file to upload is gone") << path;
    }
    EXPECT_EQ(hubUpload(uploadOf("a.cln", "x"), at("not an address")).error, "bad url");
    EXPECT_EQ(hub.takeSeen().size(), 0U);
}

TEST_F(HubClient, readsEachAnswerToAnUpload) {
    const std::string unreadable = "Could not read the hub service's response";
    const std::string reported = "The hub service reported an error";
    const std::string long_ = "ü" + std::string(199, 'y') + "z";
    const struct {
        int status;
        std::string body;
        std::string error;
        std::string logged;
    } rows[] = {
        {200, "thanks", unreadable, ""},
        {200, "[true]", unreadable, ""},
        {200, R"({"ok":false,"error":"no wav, please"})", "no wav, please", ""},
        {200, R"({"id":"a","url":"u","deleteKey":"k"})", reported, ""},
        {413, "<h1>413</h1>", "The server rejected the package as too large (limit 10 MB).",
         "413 <h1>413</h1>"},
        {429, "", "Too many uploads — try again later (5 per hour).", "429 "},
        {500, long_, "Upload failed (HTTP 500)", "500 " + long_.substr(0, long_.size() - 1)},
        {403, "\xC3(", "Upload failed (HTTP 403)", "403 \uFFFD("},
    };
    const HubUpload upload = uploadOf("a.cln", "pack");
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.status) + row.body);
        AppLog::clear();
        hub.answer({row.status, row.body});
        const HubUploadResult result = hubUpload(upload, service);
        EXPECT_FALSE(result.ok);
        EXPECT_EQ(result.error, row.error);
        EXPECT_FALSE(result.duplicate);
        EXPECT_EQ(result.id + result.url + result.deleteKey, "");
        EXPECT_EQ(logged(),
                  row.logged.empty() ? Lines{} : Lines{"W hub: upload failed: HTTP " + row.logged});
    }
}

TEST_F(HubClient, tellsADuplicateFromAFailure) {
    const HubUpload upload = uploadOf("a.cln", "pack");
    hub.answer(
        {409, R"({"existingId":"s-3","existingTitle":"門","existingUser":"mio","mine":true})"});
    HubUploadResult result = hubUpload(upload, service);
    EXPECT_FALSE(result.ok);
    EXPECT_TRUE(result.duplicate);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.id, "s-3");
    EXPECT_EQ(result.dupTitle, "門");
    EXPECT_EQ(result.dupUser, "mio");
    EXPECT_TRUE(result.dupMine);
    hub.answer({409, "already here"});
    result = hubUpload(upload, service);
    EXPECT_TRUE(result.duplicate);
    EXPECT_FALSE(result.dupMine);
    EXPECT_EQ(result.id + result.dupTitle + result.dupUser, "");
}

TEST_F(HubClient, takesAShareDownByItsKey) {
    EXPECT_EQ(hubDelete("", service),
              "No delete credential — you can only take down shares uploaded from this PC.");
    EXPECT_EQ(hub.takeSeen().size(), 0U);

    // The status alone decides.
    hub.answer({200, R"({"ok":false,"error":"not read"})"});
    EXPECT_EQ(hubDelete("k/\"9\"\n", service), std::nullopt);
    EXPECT_EQ(hubDelete("\xFF", service), std::nullopt);
    EXPECT_EQ(logged(), (Lines{"I hub: share deleted", "I hub: share deleted"}));
    const std::vector<HubRequestSeen> seen = hub.takeSeen();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].method, "POST");
    EXPECT_EQ(seen[0].query, (std::map<std::string, std::string>{{"a", "delete"}}));
    EXPECT_EQ(seen[0].contentType, "application/json");
    EXPECT_EQ(seen[0].body, R"({"deleteKey":"k/\"9\"\n"})");
    EXPECT_EQ(seen[1].body, "{}");

    for (const int status : {204, 403, 500}) {
        hub.answer({status, ""});
        EXPECT_EQ(hubDelete("k", service), "Delete failed (HTTP " + std::to_string(status) + ")");
    }
    EXPECT_EQ(logged().size(), 2U);
}

// Each operation as "what went wrong"; "(none)" where nothing did.
struct Operation {
    std::string name;
    milliseconds HubService::*time;
    std::function<std::string(const HubService&)> run;
};

class RudeHub : public HubClient {
protected:
    std::vector<Operation> operations() {
        const HubUpload upload = uploadOf("up.cln", std::string(3'000'000, 'u'));
        const std::string to = directory.file("down.cln");
        return {
            {"list", &HubService::listTime,
             [](const HubService& hub) {
                 const HubResult result = hubList(HubKind::voices, hub);
                 return result.ok ? "(none)" : result.error;
             }},
            {"download", &HubService::downloadTime,
             [to](const HubService& hub) {
                 return hubDownload(shareAt(hub.address), to, hub).value_or("(none)");
             }},
            {"upload", &HubService::uploadTime,
             [upload](const HubService& hub) {
                 const HubUploadResult result = hubUpload(upload, hub);
                 return result.ok ? "(none)" : result.error;
             }},
            {"delete", &HubService::deleteTime,
             [](const HubService& hub) { return hubDelete("k", hub).value_or("(none)"); }},
        };
    }
};

TEST_F(RudeHub, doesNotWaitLongerThanItsTime) {
    RawHost dripping([&](RawPeer& peer) {
        peer.readBody();
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n{");
        while (peer.send("x")) std::this_thread::sleep_for(milliseconds(10));
    });
    test::Gate atLast;
    RawHost deaf([&](RawPeer&) { atLast.wait(); });
    const test::OpenAtEnd whateverHappens{atLast};
    for (const Operation& operation : operations()) {
        for (const RawHost* server : {&dripping, &deaf}) {
            SCOPED_TRACE(operation.name);
            // Only this operation's own time is short: with another's the test would run out of its.
            HubService hurried = at(server->address());
            hurried.listTime = hurried.downloadTime = hurried.uploadTime = hurried.deleteTime =
                std::chrono::hours(1);
            hurried.*operation.time = milliseconds(150);
            const std::string error = operation.run(hurried);
            EXPECT_NE(error.find("timed out"), std::string::npos) << error;
        }
    }
    EXPECT_EQ(contentOf("down.cln"), "(no file)");
}

TEST_F(RudeHub, takesNothingFromABrokenAnswer) {
    const std::string body = R"({"ok":true,"items":[],"id":"a","deleteKey":"k"})";
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    for (const std::string& answer :
         {std::string(), body, ok + "Content-Le", ok + "Content-Length: 1000\r\n\r\n" + body,
          ok + "Transfer-Encoding: chunked\r\n\r\n1\r\n{\r\n"}) {
        RawHost server([&](RawPeer& peer) {
            if (!answer.empty()) peer.readBody();
            peer.send(answer);
        });
        for (const Operation& operation : operations()) {
            SCOPED_TRACE(answer + ", " + operation.name);
            AppLog::clear();
            const std::string error = operation.run(at(server.address()));
            EXPECT_NE(error, "");
            EXPECT_NE(error, "(none)");
            // A failure of the transfer and not of what came.
            EXPECT_EQ(error.find("HTTP 200"), std::string::npos) << error;
            EXPECT_EQ(error.find("hub service"), std::string::npos) << error;
            const bool isLogged = operation.name == "list" || operation.name == "upload";
            EXPECT_EQ(logged(),
                      isLogged ? Lines{"W hub: " + operation.name + " failed: " + error} : Lines{});
        }
    }
    EXPECT_EQ(contentOf("down.cln"), "(no file)");
}

TEST_F(RudeHub, followsNoRedirectOfTheList) {
    const RawHost server([this](RawPeer& peer) {
        peer.send("HTTP/1.1 302 Found\r\nLocation: " + hub.address() +
                  "\r\nContent-Length: 0\r\n\r\n");
    });
    EXPECT_EQ(hubList(HubKind::voices, at(server.address())).error, "The hub service returned 302");
    EXPECT_EQ(hub.takeSeen().size(), 0U);
}

TEST_F(RudeHub, hearsARefusalBeforeThePackIsThrough) {
    const RawHost server([](RawPeer& peer) {
        peer.send(
            "HTTP/1.1 413 Payload Too Large\r\nConnection: close\r\nContent-Length: 4\r\n\r\nhuge");
        peer.endSending();
        peer.waitUntilGone();
    });
    const HubUpload upload = uploadOf("a.cln", std::string(hubMaxPackBytes, 'x'));
    EXPECT_EQ(hubUpload(upload, at(server.address())).error,
              "The server rejected the package as too large (limit 10 MB).");
    EXPECT_EQ(logged(), Lines{"W hub: upload failed: HTTP 413 huge"});
}

}  // namespace
}  // namespace zepho
