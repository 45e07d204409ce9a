#include "core/platform/CurlHandles.h"

#include <algorithm>
#include <limits>

namespace zepho {
namespace {

constexpr long maxRedirects = 10;

void append(CurlHeaders& list, const char* header) {
    if (curl_slist* grown = curl_slist_append(list.get(), header)) {
        (void)list.release();
        list.reset(grown);
    }
}

}  // namespace

CURLcode curlReady() {
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    return ready;
}

CurlHeaders curlHeaders(const std::vector<std::string>& headers) {
    CurlHeaders list;
    for (const std::string& header : headers) append(list, header.c_str());
    // A large body is not held back for a "100 Continue" that simple servers never send.
    append(list, "Expect:");
    return list;
}

void describeExchange(CURL* handle, const std::string& url, CurlWords& words) {
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    // Time-outs by signal would hit any thread of the program.
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, words.data());
}

void followRedirects(CURL* handle, const std::string& url) {
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, maxRedirects);
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR,
                     url.starts_with("https:") ? "https" : "http,https");
}

long curlMilliseconds(std::chrono::milliseconds time) {
    return std::clamp<long>(time.count(), 1, std::numeric_limits<int>::max());
}

std::string curlWords(CURLcode code, const CurlWords& words) {
    return words[0] != '\0' ? words.data() : curl_easy_strerror(code);
}

}  // namespace zepho
