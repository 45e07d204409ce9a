// HTTP requests to other programs, over libcurl.
//
// httpSend() blocks the calling thread until there is a response or none can come. No cookies, no
// cache, nothing kept between two calls; any thread, any number at a time. For bodies that are too
// large for memory see HttpTransfer.h.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/platform/Bytes.h"

namespace zepho {

// The server's side has HttpRequest and HttpResponse (core/http); one program holds both.
struct HttpCall {
    std::string method = "GET";
    std::string url;                   // http or https
    std::vector<std::string> headers;  // "Name: value"
    ByteView body;                     // borrowed for the call; sent unless the method is GET
    std::chrono::milliseconds timeout{60000};  // of the whole exchange
    std::chrono::milliseconds connectTimeout{10000};
    std::size_t maxResponseBytes = 64UL << 20;
    // Never by way of a proxy, whatever the environment asks for.
    bool direct = false;
    // Otherwise a redirect is a response like any other.
    bool followRedirects = false;
};

enum class HttpFailure {
    none,       // there is a response, of whatever status
    timedOut,   // no whole response in the time given
    tooLarge,   // the response exceeds its limit
    transport,  // refused, reset, not HTTP, …
    cancelled,  // by the caller (HttpTransfer.h)
};

struct HttpReply {
    HttpFailure failure = HttpFailure::none;
    std::string error;  // the failure in the library's words
    int status = 0;
    Bytes body;
};

[[nodiscard]] HttpReply httpSend(const HttpCall& request);

// Whether the text is an address with a scheme and a host.
[[nodiscard]] bool isHttpAddress(const std::string& text);

// The standard reason phrase, "Not Found"; empty for a status that has none.
[[nodiscard]] std::string_view httpStatusPhrase(int status);

}  // namespace zepho
