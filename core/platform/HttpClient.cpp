#include "core/platform/HttpClient.h"

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <string_view>

#include <curl/curl.h>

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
    received.body.insert(received.body.end(), data, data + bytes);
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

struct ListFree {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct HandleFree {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using HeaderList = std::unique_ptr<curl_slist, ListFree>;
using Handle = std::unique_ptr<CURL, HandleFree>;

void append(HeaderList& list, const char* header) {
    if (curl_slist* grown = curl_slist_append(list.get(), header)) {
        (void)list.release();
        list.reset(grown);
    }
}

HeaderList headersOf(const HttpRequest& request) {
    HeaderList list;
    for (const std::string& header : request.headers) append(list, header.c_str());
    // A large body is not held back for a "100 Continue" that simple servers never send.
    append(list, "Expect:");
    return list;
}

long milliseconds(std::chrono::milliseconds time) {
    // 0 would mean no limit.
    return std::clamp<long>(time.count(), 1, std::numeric_limits<int>::max());
}

void describeMethod(CURL* handle, const HttpRequest& request) {
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

void describe(CURL* handle, const HttpRequest& request) {
    curl_easy_setopt(handle, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, milliseconds(request.timeout));
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, milliseconds(request.connectTimeout));
    // Time-outs by signal would hit any thread of the program.
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    if (request.direct) curl_easy_setopt(handle, CURLOPT_NOPROXY, "*");
    describeMethod(handle, request);
}

HttpFailure failureOf(CURLcode code, const Received& received) {
    if (code == CURLE_OK) return HttpFailure::none;
    if (received.tooLarge) return HttpFailure::tooLarge;
    return code == CURLE_OPERATION_TIMEDOUT ? HttpFailure::timedOut : HttpFailure::transport;
}

HttpResponse failed(const char* words) {
    HttpResponse response;
    response.failure = HttpFailure::transport;
    response.error = words;
    return response;
}

}  // namespace

HttpResponse httpSend(const HttpRequest& request) {
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (ready != CURLE_OK) return failed(curl_easy_strerror(ready));
    const Handle handle(curl_easy_init());
    if (!handle) return failed(curl_easy_strerror(CURLE_FAILED_INIT));
    describe(handle.get(), request);
    const HeaderList headers = headersOf(request);
    curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers.get());
    Received received;
    received.limit = request.maxResponseBytes;
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, receive);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &received);
    curl_easy_setopt(handle.get(), CURLOPT_HEADERFUNCTION, receiveHead);
    curl_easy_setopt(handle.get(), CURLOPT_HEADERDATA, &received);
    std::array<char, CURL_ERROR_SIZE> words{};
    curl_easy_setopt(handle.get(), CURLOPT_ERRORBUFFER, words.data());

    const CURLcode code = curl_easy_perform(handle.get());
    if (code == CURLE_OK && !received.headEnded) return failed("the response ends in its head");
    HttpResponse response;
    response.failure = failureOf(code, received);
    if (code == CURLE_OK) {
        long status = 0;
        curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
        response.status = static_cast<int>(status);
        response.body = std::move(received.body);
    } else {
        response.error = words[0] != '\0' ? words.data() : curl_easy_strerror(code);
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

}  // namespace zepho
