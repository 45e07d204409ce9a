#include "core/models/UpdateCheck.h"

#include <chrono>

#include "core/base/Constants.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/platform/HttpClient.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

constexpr const char* logSource = "update";
constexpr std::chrono::seconds timeout{20};
// Thirty releases with long notes are a quarter of it.
constexpr std::size_t maxBodyBytes = 4UL << 20;

struct Fetched {
    bool ok = false;
    std::string text;  // the body, or why there is none
};

Fetched fetch(const std::string& address) {
    if (!isHttpAddress(address)) return {false, "bad url"};
    HttpCall request;
    request.url = address;
    request.headers = {std::string("User-Agent: Zephon/") + ZEPHO::version,
                       "Accept: application/vnd.github+json", "X-GitHub-Api-Version: 2022-11-28"};
    request.timeout = timeout;
    request.connectTimeout = timeout;
    request.maxResponseBytes = maxBodyBytes;
    request.followRedirects = true;
    const HttpReply response = httpSend(request);
    if (response.failure != HttpFailure::none) {
        AppLog::warn(logSource, "GET " + address + " failed: " + response.error);
        return {false, response.error};
    }
    if (response.status == 200 && !response.body.empty())
        return {true, replaceInvalidUtf8(asText(response.body))};
    AppLog::warn(logSource, "GET " + address + " -> HTTP " + std::to_string(response.status));
    if (response.status == 403) return {false, T("GitHub 接口限流了,过一会儿再试")};
    return {false, TF("GitHub 返回 %d", response.status)};
}

void logResult(const char* source, const UpdateInfo& info) {
    AppLog::info(logSource, std::string("update check via ") + source + ": latest " + info.latest +
                                ", running " + info.current +
                                ", newer=" + (info.newer ? "true" : "false"));
}

}  // namespace

UpdateInfo checkForUpdate(const UpdateAddresses& addresses) {
    UpdateInfo result;
    result.current = ZEPHO::version;
    if (const Fetched api = fetch(addresses.api); api.ok) {
        UpdateInfo info = pickLatestFromJson(api.text);
        if (info.ok) {
            logResult("API", info);
            return info;
        }
        result.error = info.error;
    } else {
        result.error = api.text;
    }
    if (const Fetched feed = fetch(addresses.feed); feed.ok) {
        UpdateInfo info = pickLatestFromAtom(feed.text);
        if (info.ok) {
            logResult("atom", info);
            return info;
        }
    }
    if (result.error.empty()) result.error = T("GitHub 上还没有 Zephon 的发布记录");
    return result;
}

}  // namespace zepho
