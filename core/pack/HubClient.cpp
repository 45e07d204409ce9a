#include "core/pack/HubClient.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/base/Constants.h"
#include "core/base/Json.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/engine/S2Form.h"
#include "core/platform/Errors.h"
#include "core/platform/Files.h"
#include "core/platform/HttpClient.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

// Bounds on what a broken or hostile server can make us hold. A JSON text takes many times its size
// once it is read; tens of thousands of shares stay below this.
constexpr std::size_t maxListBytes = std::size_t{16} << 20;
constexpr std::size_t maxReplyBytes = std::size_t{1} << 20;
// Well above what the service takes, which may raise its limit without a new build of ours.
constexpr std::size_t maxDownloadBytes = std::size_t{64} << 20;

constexpr std::size_t loggedReplyCharacters = 200;

HttpCall requestTo(std::string url, std::chrono::milliseconds time) {
    HttpCall request;
    request.url = std::move(url);
    request.headers = {std::string("User-Agent: Zephon/") + ZEPHO::version};
    request.timeout = time;
    request.connectTimeout = time;
    return request;
}

// A name with a quotation mark must not end the header that carries it: escaped as browsers do.
std::string escapedFileName(std::string_view name) {
    std::string escaped;
    for (const char c : name) {
        switch (c) {
            case '"':
                escaped += "%22";
                break;
            case '\r':
                escaped += "%0D";
                break;
            case '\n':
                escaped += "%0A";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

MultipartForm formOf(const HubUpload& upload, ByteView pack) {
    MultipartForm form{makeBoundary(), {}};
    // One buffer of about the final size, and no growing with megabytes in it.
    form.body.reserve(pack.size() + upload.title.size() + upload.note.size() + 4096);
    form.addField("kind", hubKindWord(upload.kind));
    form.addField("fp", upload.fingerprint);
    form.addField("userid", upload.userId);
    form.addField("title", upload.title);
    form.addField("note", upload.note);
    form.addField("language", upload.language);
    form.addField("gender", upload.gender);
    form.addField("voices", std::to_string(upload.voices));
    form.addField("bindings", std::to_string(upload.bindings));
    form.addField("appversion", ZEPHO::version);
    form.addFile("file", escapedFileName(lastPathComponent(upload.filePath)), pack);
    form.finish();
    return form;
}

HubUploadResult uploadFailed(std::string error) {
    HubUploadResult result;
    result.error = std::move(error);
    return result;
}

std::string tooLargeText(std::int64_t bytes) {
    const double megabytes = static_cast<double>(bytes) / (1 << 20);
    return TF("这个包 %.1f MB,超过了 %d MB 的上限。", megabytes, hubMaxMegabytes) + "\n" +
           T("一次少分享几个音色,或者把参考音频换成 mp3 —— 同样一段话,wav 比 mp3 大好几倍。");
}

HubUploadResult readAccepted(ByteView body) {
    const std::optional<Json> reply = parseJsonObject(body);
    if (!reply) return uploadFailed(T("云分享服务返回的内容看不懂"));
    if (!jBool(&*reply, "ok", false)) {
        std::string error = jStr(&*reply, "error");
        return uploadFailed(error.empty() ? T("云分享服务出错了") : std::move(error));
    }
    HubUploadResult result;
    result.ok = true;
    result.id = jStr(&*reply, "id");
    result.url = jStr(&*reply, "url");
    result.deleteKey = jStr(&*reply, "deleteKey");
    AppLog::info("hub", "uploaded share " + result.id);
    return result;
}

HubUploadResult readDuplicate(ByteView body) {
    const std::optional<Json> reply = parseJsonObject(body);
    const Json* object = reply ? &*reply : nullptr;
    HubUploadResult result;
    result.duplicate = true;
    result.id = jStr(object, "existingId");
    result.dupTitle = jStr(object, "existingTitle");
    result.dupUser = jStr(object, "existingUser");
    result.dupMine = jBool(object, "mine", false);
    return result;
}

HubUploadResult readRefused(int status, ByteView body) {
    AppLog::warn("hub",
                 "upload failed: HTTP " + std::to_string(status) + " " +
                     graphemePrefix(replaceInvalidUtf8(asText(body)), loggedReplyCharacters));
    switch (status) {
        case 413:
            return uploadFailed(TF("服务端说包太大(上限 %d MB)。", hubMaxMegabytes));
        case 429:
            return uploadFailed(T("传得太勤了,歇一会儿再来(每小时最多 5 份)。"));
        default:
            return uploadFailed(TF("上传失败(HTTP %d)", status));
    }
}

}  // namespace

std::string hubPage(HubKind kind, const HubService& service) {
    return service.address + "?a=list&kind=" + std::string(hubKindWord(kind));
}

HubResult hubList(HubKind kind, const HubService& service) {
    HttpCall request = requestTo(hubPage(kind, service), service.listTime);
    request.maxResponseBytes = maxListBytes;
    const HttpReply response = httpSend(request);
    HubResult result;
    if (response.failure != HttpFailure::none) {
        AppLog::warn("hub", "list failed: " + response.error);
        result.error = response.error;
        return result;
    }
    if (response.status != 200) {
        AppLog::warn("hub", "list failed: HTTP " + std::to_string(response.status));
        result.error = TF("云分享服务返回 %d", response.status);
        return result;
    }
    result = hubParseList(replaceInvalidUtf8(asText(response.body)));
    AppLog::info("hub", "listed " + std::to_string(result.items.size()) + " share(s)");
    return result;
}

std::optional<std::string> hubDownload(const HubItem& item, const std::string& to,
                                       const HubService& service) {
    if (!isHttpAddress(item.url)) return T("这一条没有下载地址");
    HttpCall request = requestTo(item.url, service.downloadTime);
    request.followRedirects = true;  // packs may lie on another host than the list
    request.maxResponseBytes = maxDownloadBytes;
    const HttpReply response = httpSend(request);
    if (response.failure != HttpFailure::none) return response.error;
    if (response.status != 200 || response.body.empty())
        return TF("下载失败(HTTP %d)", response.status);
    // What is in the way and does not go shows at the write, which also makes the directories.
    std::error_code ignored;
    std::filesystem::remove(to, ignored);
    try {
        saveFileBytes(to, response.body);
    } catch (const std::exception& error) {
        return describeError(error);
    }
    AppLog::info("hub", "downloaded " + item.fileName + " (" +
                            std::to_string(response.body.size()) + " bytes)");
    return std::nullopt;
}

HubUploadResult hubUpload(const HubUpload& upload, const HubService& service) {
    // One byte more than may go up tells the rest.
    std::optional<FileHead> pack = readFileHead(upload.filePath, hubMaxPackBytes + 1);
    if (!pack) return uploadFailed(T("要上传的文件不在了"));
    if (pack->bytes.size() > hubMaxPackBytes) {
        const auto read = static_cast<std::int64_t>(pack->bytes.size());
        return uploadFailed(tooLargeText(std::max(pack->fileSize, read)));
    }
    const MultipartForm form = formOf(upload, pack->bytes);
    pack.reset();
    HttpCall request = requestTo(service.address + "?a=upload", service.uploadTime);
    if (!isHttpAddress(request.url)) return uploadFailed("bad url");
    request.method = "POST";
    request.headers.push_back("Content-Type: multipart/form-data; boundary=" + form.boundary);
    request.body = form.body;
    request.maxResponseBytes = maxReplyBytes;
    const HttpReply response = httpSend(request);
    if (response.failure != HttpFailure::none) {
        AppLog::warn("hub", "upload failed: " + response.error);
        return uploadFailed(response.error);
    }
    switch (response.status) {
        case 200:
            return readAccepted(response.body);
        case 409:
            return readDuplicate(response.body);
        default:
            return readRefused(response.status, response.body);
    }
}

std::optional<std::string> hubDelete(const std::string& deleteKey, const HubService& service) {
    if (deleteKey.empty()) return T("没有删除凭据 —— 只能删自己在这台机器上传过的。");
    const Bytes body = jsonData(Json{{"deleteKey", deleteKey}});
    HttpCall request = requestTo(service.address + "?a=delete", service.deleteTime);
    request.method = "POST";
    request.headers.emplace_back("Content-Type: application/json");
    request.body = body;
    const HttpReply response = httpSend(request);
    if (response.failure != HttpFailure::none) return response.error;
    if (response.status != 200) return TF("删除失败(HTTP %d)", response.status);
    AppLog::info("hub", "share deleted");
    return std::nullopt;
}

}  // namespace zepho
