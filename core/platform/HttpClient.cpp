#include "core/platform/HttpClient.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

#include "core/platform/CurlHandles.h"

namespace zepho {
namespace {

struct Received {
    Bytes body;
    std::size_t limit = 0;
    bool tooLarge = false;
    bool headEnded = false;
};

std::size_t receive(char* data, std::size_t size, std::size_t count, void* user) {
    auto& received = *static_cast<Received*>(user);
    const std::size_t bytes = size * count;
    if (bytes > received.limit - received.body.size()) {
        received.tooLarge = true;
        return CURL_WRITEFUNC_ERROR;
    }
    appendText(received.body, {data, bytes});
    return bytes;
}

// One line of the head. The library itself takes a stream that ends between two of them for a whole
// response.
std::size_t receiveHead(char* data, std::size_t size, std::size_t count, void* user) {
    const std::string_view line(data, size * count);
    bool& headEnded = static_cast<Received*>(user)->headEnded;
    // A "100 Continue" has a head before the response's own; fields behind a body come here too.
    if (line.starts_with("HTTP/")) headEnded = false;
    if (line == "\r\n" || line == "\n") headEnded = true;
    return line.size();
}

void describeMethod(CURL* handle, const HttpCall& request) {
    if (request.method == "GET") return;
    if (request.method == "HEAD") {
        curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
        return;
    }
    curl_easy_setopt(handle, CURLOPT_POST, 1L);
    // A null pointer would make the library ask a callback for the body.
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS,
                     request.body.empty() ? "" : asText(request.body).data());
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(request.body.size()));
    if (request.method != "POST")
        curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method.c_str());
}

void describe(CURL* handle, const HttpCall& request) {
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, curlMilliseconds(request.timeout));
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, curlMilliseconds(request.connectTimeout));
    if (request.direct) curl_easy_setopt(handle, CURLOPT_NOPROXY, "*");
    if (request.followRedirects) followRedirects(handle, request.url);
    describeMethod(handle, request);
}

HttpFailure failureOf(CURLcode code, const Received& received) {
    if (code == CURLE_OK) return HttpFailure::none;
    if (received.tooLarge) return HttpFailure::tooLarge;
    return code == CURLE_OPERATION_TIMEDOUT ? HttpFailure::timedOut : HttpFailure::transport;
}

HttpReply failed(const char* words) {
    HttpReply response;
    response.failure = HttpFailure::transport;
    response.error = words;
    return response;
}

}  // namespace

HttpReply httpSend(const HttpCall& request) {
    if (const CURLcode ready = curlReady(); ready != CURLE_OK)
        return failed(curl_easy_strerror(ready));
    const CurlHandle handle(curl_easy_init());
    if (!handle) return failed(curl_easy_strerror(CURLE_FAILED_INIT));
    CurlWords words{};
    describeExchange(handle.get(), request.url, words);
    describe(handle.get(), request);
    const CurlHeaders headers = curlHeaders(request.headers);
    curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers.get());
    Received received;
    received.limit = request.maxResponseBytes;
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, receive);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &received);
    curl_easy_setopt(handle.get(), CURLOPT_HEADERFUNCTION, receiveHead);
    curl_easy_setopt(handle.get(), CURLOPT_HEADERDATA, &received);

    const CURLcode code = curl_easy_perform(handle.get());
    if (code == CURLE_OK && !received.headEnded) return failed("the response ends in its head");
    HttpReply response;
    response.failure = failureOf(code, received);
    if (code == CURLE_OK) {
        long status = 0;
        curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
        response.status = static_cast<int>(status);
        response.body = std::move(received.body);
    } else {
        response.error = curlWords(code, words);
    }
    // The library only knows that we stopped taking bytes.
    if (received.tooLarge)
        response.error = "the response has more than " + std::to_string(received.limit) + " bytes";
    return response;
}

bool isHttpAddress(const std::string& text) {
    const std::unique_ptr<CURLU, void (*)(CURLU*)> address(curl_url(), curl_url_cleanup);
    return address != nullptr &&
           curl_url_set(address.get(), CURLUPART_URL, text.c_str(), 0) == CURLUE_OK;
}

std::string_view httpStatusPhrase(int status) {
    struct Row {
        int status;
        std::string_view phrase;
    };
    static constexpr std::array rows{
        Row{100, "Continue"},
        Row{101, "Switching Protocols"},
        Row{200, "OK"},
        Row{201, "Created"},
        Row{202, "Accepted"},
        Row{203, "Non-Authoritative Information"},
        Row{204, "No Content"},
        Row{205, "Reset Content"},
        Row{206, "Partial Content"},
        Row{300, "Multiple Choices"},
        Row{301, "Moved Permanently"},
        Row{302, "Found"},
        Row{303, "See Other"},
        Row{304, "Not Modified"},
        Row{307, "Temporary Redirect"},
        Row{308, "Permanent Redirect"},
        Row{400, "Bad Request"},
        Row{401, "Unauthorized"},
        Row{402, "Payment Required"},
        Row{403, "Forbidden"},
        Row{404, "Not Found"},
        Row{405, "Method Not Allowed"},
        Row{406, "Not Acceptable"},
        Row{407, "Proxy Authentication Required"},
        Row{408, "Request Timeout"},
        Row{409, "Conflict"},
        Row{410, "Gone"},
        Row{411, "Length Required"},
        Row{412, "Precondition Failed"},
        Row{413, "Content Too Large"},
        Row{414, "URI Too Long"},
        Row{415, "Unsupported Media Type"},
        Row{416, "Range Not Satisfiable"},
        Row{417, "Expectation Failed"},
        Row{421, "Misdirected Request"},
        Row{422, "Unprocessable Content"},
        Row{426, "Upgrade Required"},
        Row{429, "Too Many Requests"},
        Row{451, "Unavailable For Legal Reasons"},
        Row{500, "Internal Server Error"},
        Row{501, "Not Implemented"},
        Row{502, "Bad Gateway"},
        Row{503, "Service Unavailable"},
        Row{504, "Gateway Timeout"},
        Row{505, "HTTP Version Not Supported"},
    };
    const auto* found = std::find_if(rows.begin(), rows.end(),
                                     [&](const Row& row) { return row.status == status; });
    return found == rows.end() ? std::string_view() : found->phrase;
}

}  // namespace zepho
