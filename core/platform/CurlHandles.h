// What both forms of the HTTP client need of libcurl. For the sources of this folder only.
#pragma once

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <curl/curl.h>

namespace zepho {

struct CurlListFree {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct CurlHandleFree {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using CurlHeaders = std::unique_ptr<curl_slist, CurlListFree>;
using CurlHandle = std::unique_ptr<CURL, CurlHandleFree>;
using CurlWords = std::array<char, CURL_ERROR_SIZE>;

// Initialises the library on first use; its code says whether it is ready.
CURLcode curlReady();

// "Name: value" each. The handle borrows the list.
CurlHeaders curlHeaders(const std::vector<std::string>& headers);

// HTTP/1.1 over http or https, no signals; failures are put into words in `words`.
void describeExchange(CURL* handle, const std::string& url, CurlWords& words);
// Redirects are followed with the same headers, but never from https to http.
void followRedirects(CURL* handle, const std::string& url);

// A time limit in the library's form, in which 0 would mean none.
long curlMilliseconds(std::chrono::milliseconds time);

std::string curlWords(CURLcode code, const CurlWords& words);

}  // namespace zepho
