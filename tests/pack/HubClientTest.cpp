// The hub's client against a well-behaved server that is not ours, and against rude ones.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include <gtest/gtest.h>

#include "core/diag/AppLog.h"
#include "core/pack/HubClient.h"
#include "core/platform/Files.h"
#include "tests/models/ModelHost.h"
#include "tests/pack/HubStandIn.h"
#include "tests/support/TempDir.h"

namespace zepho::test {
namespace {

using std::chrono::milliseconds;
using Lines = std::vector<std::string>;

constexpr auto voices = HubKind::voices;

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

    static HubService at(const std::string& address) {
        HubService service;
        service.address = address;
        return service;
    }
    [[nodiscard]] HubUpload uploadOf(const std::string& name, const std::string& content) const {
        const std::string path = directory.file(name);
        saveFileBytes(path, asBytes(content));
        return {HubKind::broadcasts,
                path,
                "kanō",
                "Gate \"A\"\r\n--x",
                "",
                "ja",
                "female",
                "f00d",
                3,
                7};
    }
    // What went wrong; "(none)" where nothing did.
    [[nodiscard]] static std::string download(const std::string& url, const std::string& to,
                                              const HubService& service) {
        HubItem item;
        item.fileName = "gate.cln";
        item.url = url;
        return hubDownload(item, to, service).value_or("(none)");
    }
    [[nodiscard]] std::string contentOf(const std::string& name) const {
        const auto bytes = loadFileBytes(directory.file(name));
        return bytes ? std::string(asText(*bytes)) : "(no file)";
    }
    // The lines of the log since the last call, with the first letter of their level.
    static Lines logged() {
        Lines lines;
        for (const LogEntry& line : AppLog::snapshot())
            lines.push_back(std::string(logLevelName(line.level).substr(0, 1)) + " " + line.source +
                            ": " + line.text);
        AppLog::clear();
        return lines;
    }

    const TempDir directory;
    StandInHub hub;
    const HubService service = at(hub.address());
};

TEST_F(HubClient, asksForTheListOfAKind) {
    hub.answer({200, R"({"ok":true,"items":[{"id":"a","url":"u","title":"broken )"
                     "\xFF"
                     R"( text"},{"id":"b"}]})"});
    const HubResult list = hubList(voices, service);
    ASSERT_TRUE(list.ok);
    ASSERT_EQ(list.items.size(), 1U);
    EXPECT_EQ(list.items[0].title, "broken \uFFFD text");
    EXPECT_TRUE(hubList(HubKind::broadcasts, service).ok);
    EXPECT_EQ(logged(), (Lines{"I hub: listed 1 share(s)", "I hub: listed 1 share(s)"}));
    const std::vector<HubRequestSeen> seen = hub.takeSeen();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].method + seen[0].path, "GET/API/hub.php");
    EXPECT_EQ(seen[0].agent, "Zephon/0.3.26220");
    using Query = std::map<std::string, std::string>;
    EXPECT_EQ(seen[0].query, (Query{{"a", "list"}, {"kind", "voices"}}));
    EXPECT_EQ(seen[1].query, (Query{{"a", "list"}, {"kind", "broadcasts"}}));

    hub.answer({503, R"({"ok":true})"});
    EXPECT_EQ(hubList(voices, service).error, "The hub service returned 503");
    EXPECT_EQ(logged(), Lines{"W hub: list failed: HTTP 503"});
    // A list without an end is not read to it.
    hub.answer({200, std::string((16 << 20) + 1, ' ')});
    EXPECT_EQ(hubList(voices, service).error, "the response has more than 16777216 bytes");
    hub.answer({200, R"({"ok":true})" + std::string((16 << 20) - 11, ' ')});
    EXPECT_TRUE(hubList(voices, service).ok);
    // Nor is a redirect followed.
    hub.takeSeen();
    const RawHost elsewhere([this](RawPeer& peer) {
        peer.send("HTTP/1.1 302 Found\r\nLocation: " + hub.address() +
                  "\r\nContent-Length: 0\r\n\r\n");
    });
    EXPECT_EQ(hubList(voices, at(elsewhere.address())).error, "The hub service returned 302");
    EXPECT_EQ(hub.takeSeen().size(), 0U);
}

TEST_F(HubClient, putsADownloadInItsPlaceWholeOrNotAtAll) {
    const auto get = [&](const std::string& url, const std::string& to) {
        return download(url, directory.file(to), service);
    };
    const std::string pack = packOf(hubMaxPackBytes + 1);
    hub.answer({200, pack});
    EXPECT_EQ(get(hub.address() + "?a=get&id=s%201", "new/s-1.cln"), "(none)");
    EXPECT_TRUE(contentOf("new/s-1.cln") == pack);
    EXPECT_EQ(hub.takeSeen().at(0).query.at("id"), "s 1");
    EXPECT_EQ(logged(), Lines{"I hub: downloaded gate.cln (10485761 bytes)"});
    hub.answer({200, "newer"});
    EXPECT_EQ(get(hub.address(), "new/s-1.cln"), "(none)");
    EXPECT_EQ(contentOf("new/s-1.cln"), "newer");
    AppLog::clear();

    const std::string noUrl = "This entry has no download URL";
    for (const char* url : {"", "packs/1.cln", "http://a b/"})
        EXPECT_EQ(get(url, "new/s-1.cln"), noUrl) << url;
    for (const auto& [status, body] : {std::pair{404, "gone"}, {206, "half of it"}, {200, ""}}) {
        hub.answer({status, body});
        EXPECT_EQ(get(hub.address(), "new/s-1.cln"),
                  "Download failed (HTTP " + std::to_string(status) + ")");
    }
    // What lies on this machine is no download.
    const std::string local = get("file://" + directory.file("new/s-1.cln"), "copy.cln");
    EXPECT_TRUE(local != "(none)" && local != noUrl) << local;

    hub.answer({200, "pack"});
    EXPECT_NE(get(hub.address(), "new/s-1.cln/below").find("new/s-1.cln/"), std::string::npos);
    std::filesystem::create_directories(directory.file("full.cln/inside"));
    EXPECT_NE(get(hub.address(), "full.cln"), "(none)");
    EXPECT_TRUE(directoryExists(directory.file("full.cln/inside")));
    EXPECT_EQ(contentOf("new/s-1.cln"), "newer");
    const std::filesystem::recursive_directory_iterator files(directory.path());
    EXPECT_EQ(
        std::count_if(begin(files), end(files), [](auto& file) { return file.is_regular_file(); }),
        1);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(HubClient, sendsAPackAsAForm) {
    hub.answer({200, R"({"ok":true,"id":"s-9","url":"https://x/9","deleteKey":"k-9","mine":1})"});
    // Exactly as much as the service takes.
    const std::string pack = packOf(hubMaxPackBytes);
    const HubUpload upload = uploadOf("a \"b\".cln", pack);
    const HubUploadResult result = hubUpload(upload, service);
    EXPECT_TRUE(result.ok && !result.duplicate) << result.error;
    EXPECT_EQ(result.id + " " + result.url + " " + result.deleteKey, "s-9 https://x/9 k-9");
    EXPECT_EQ(logged(), Lines{"I hub: uploaded share s-9"});
    // Another upload, another boundary.
    (void)hubUpload(uploadOf("small.cln", "x"), service);

    const std::vector<HubRequestSeen> seen = hub.takeSeen();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].method, "POST");
    EXPECT_EQ(seen[0].query, (std::map<std::string, std::string>{{"a", "upload"}}));
    const std::string formType = "multipart/form-data; boundary=----ZEPHO";
    EXPECT_TRUE(seen[0].contentType.starts_with(formType));
    EXPECT_EQ(seen[0].contentType.size(), formType.size() + 32);
    EXPECT_EQ(seen[0].contentType.find_first_not_of("0123456789ABCDEF", formType.size()),
              std::string::npos);
    EXPECT_NE(seen[1].contentType, seen[0].contentType);
    std::vector<HubFormPart> parts;
    const std::pair<std::string, std::string> fields[] = {
        {"kind", "broadcasts"},     {"fp", "f00d"},  {"userid", "kanō"},
        {"title", upload.title},    {"note", ""},    {"language", "ja"},
        {"gender", "female"},       {"voices", "3"}, {"bindings", "7"},
        {"appversion", "0.3.26220"}};
    for (const auto& [name, content] : fields)
        parts.push_back({name, "", "text/plain; charset=utf-8", content});
    parts.push_back({"file", "a %22b%22.cln", "application/octet-stream", pack});
    ASSERT_EQ(seen[0].parts.size(), parts.size());
    for (std::size_t at = 0; at < parts.size(); ++at)
        EXPECT_TRUE(seen[0].parts[at] == parts[at]) << parts[at].name;
}

TEST_F(HubClient, doesNotSendWhatTheServiceWouldNotTake) {
    const std::string tooLarge(hubMaxPackBytes + 1, 'x');
    EXPECT_EQ(hubUpload(uploadOf("large.cln", tooLarge), service).error,
              "This package is 10.0 MB, over the 10 MB limit.\nShare fewer voices at once, or use "
              "mp3 reference audio — wav is several times larger than mp3 for the same clip.");
    HubUpload upload;
    for (const std::string& path :
         {directory.file("missing.cln"), directory.path(), std::string()}) {
        upload.filePath = path;
        EXPECT_EQ(hubUpload(upload, service).error, "The file to upload is gone") << path;
    }
    EXPECT_EQ(hubUpload(uploadOf("a.cln", "x"), at("not an address")).error, "bad url");
    EXPECT_EQ(hubDelete("", service),
              "No delete credential — you can only take down shares uploaded from this PC.");
    EXPECT_EQ(hub.takeSeen().size(), 0U);
}

TEST_F(HubClient, readsEachAnswerToAnUpload) {
    const std::string unreadable = "Could not read the hub service's response";
    const std::string long_ = "ü" + std::string(199, 'y') + "z";
    const struct {
        int status;
        std::string body;
        std::string error;
        std::string logged = {};
        std::string duplicate = "   ";
    } rows[] = {
        {200, "thanks", unreadable},
        {200, "[true]", unreadable},
        {200, R"({"ok":false,"error":"no wav, please"})", "no wav, please"},
        {200, R"({"id":"a","url":"u","deleteKey":"k"})", "The hub service reported an error"},
        {413, "<h1>413</h1>", "The server rejected the package as too large (limit 10 MB).",
         "413 <h1>413</h1>"},
        {429, "", "Too many uploads — try again later (5 per hour).", "429 "},
        {500, long_, "Upload failed (HTTP 500)", "500 " + long_.substr(0, long_.size() - 1)},
        {403, "\xC3(", "Upload failed (HTTP 403)", "403 \uFFFD("},
        {409, R"({"existingId":"s-3","existingTitle":"門","existingUser":"mio","mine":true})", "",
         "", "s-3 門 mio mine"},
        {409, "already here", ""},
    };
    const HubUpload upload = uploadOf("a.cln", "pack");
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.status) + row.body);
        hub.answer({row.status, row.body});
        const HubUploadResult result = hubUpload(upload, service);
        EXPECT_FALSE(result.ok);
        EXPECT_EQ(result.error, row.error);
        EXPECT_EQ(result.duplicate, row.status == 409);
        const std::string told = result.id + " " + result.dupTitle + " " + result.dupUser + " " +
                                 (result.dupMine ? "mine" : "");
        EXPECT_EQ(told, row.duplicate);
        EXPECT_EQ(result.url + result.deleteKey, "");
        EXPECT_EQ(logged(),
                  row.logged.empty() ? Lines{} : Lines{"W hub: upload failed: HTTP " + row.logged});
    }
}

TEST_F(HubClient, takesAShareDownByItsKey) {
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
    for (const int status : {204, 403}) {
        hub.answer({status, ""});
        EXPECT_EQ(hubDelete("k", service), "Delete failed (HTTP " + std::to_string(status) + ")");
    }
    EXPECT_EQ(logged(), Lines{});
}

// Each operation gives what went wrong.
struct Operation {
    std::string name;
    milliseconds HubService::*time;
    std::function<std::string(const HubService&)> run;
};

TEST_F(HubClient, outlastsRudeHubs) {
    const HubUpload upload = uploadOf("up.cln", std::string(3'000'000, 'u'));
    const Operation operations[] = {
        {"list", &HubService::listTime,
         [](const HubService& at) { return hubList(voices, at).error; }},
        {"download", &HubService::downloadTime,
         [&](const HubService& at) {
             return download(at.address, directory.file("down.cln"), at);
         }},
        {"upload", &HubService::uploadTime,
         [&](const HubService& at) { return hubUpload(upload, at).error; }},
        {"delete", &HubService::deleteTime,
         [](const HubService& at) { return hubDelete("k", at).value_or("(none)"); }}};
    const RawHost dripping([&](RawPeer& peer) {
        peer.readBody();
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n{");
        while (peer.send("x")) std::this_thread::sleep_for(milliseconds(10));
    });
    Gate atLast;
    const RawHost deaf([&](RawPeer&) { atLast.wait(); });
    const OpenAtEnd whateverHappens{atLast};
    for (const Operation& operation : operations) {
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
    const std::string body = R"({"ok":true,"items":[],"id":"a","deleteKey":"k"})";
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    for (const std::string& answer :
         {std::string(), body, ok + "Content-Le", ok + "Content-Length: 1000\r\n\r\n" + body,
          ok + "Transfer-Encoding: chunked\r\n\r\n1\r\n{\r\n"}) {
        const RawHost broken([&](RawPeer& peer) {
            if (!answer.empty()) peer.readBody();
            peer.send(answer);
        });
        for (const Operation& operation : operations) {
            SCOPED_TRACE(answer + ", " + operation.name);
            AppLog::clear();
            const std::string error = operation.run(at(broken.address()));
            EXPECT_NE(error, "");
            // A failure of the transfer and not of what came.
            for (const char* other : {"(none)", "HTTP 200", "hub service"})
                EXPECT_EQ(error.find(other), std::string::npos) << error;
            const bool isLogged = operation.name == "list" || operation.name == "upload";
            EXPECT_EQ(logged(),
                      isLogged ? Lines{"W hub: " + operation.name + " failed: " + error} : Lines{});
        }
    }
    EXPECT_EQ(contentOf("down.cln"), "(no file)");

    // A refusal is heard before the pack is through.
    const RawHost refusing([](RawPeer& peer) {
        peer.send(
            "HTTP/1.1 413 Payload Too Large\r\nConnection: close\r\nContent-Length: 4\r\n\r\nhuge");
        peer.endSending();
        peer.waitUntilGone();
    });
    const HubUpload large = uploadOf("a.cln", std::string(hubMaxPackBytes, 'x'));
    EXPECT_EQ(hubUpload(large, at(refusing.address())).error,
              "The server rejected the package as too large (limit 10 MB).");
}

}  // namespace
}  // namespace zepho::test
