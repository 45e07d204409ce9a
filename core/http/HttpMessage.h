// A request and a response as plain values, and what both sides of the text format need.
//
// No sockets and no API here. Pure; any thread.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "core/base/Json.h"
#include "core/platform/Bytes.h"

namespace zepho {

struct HttpRequest {
    std::string method;                          // upper-cased
    std::string path;                            // as sent, percent escapes included
    std::string query;                           // behind the first "?"
    std::map<std::string, std::string> headers;  // names lower-cased, values trimmed
    Bytes body;
    std::string peer;  // the client's address; "?" if it has none

    // The header's value, or the empty text. The name counts without regard to case.
    [[nodiscard]] std::string header(std::string_view name) const;
    // The first value under the key, decoded. What cannot be decoded stands as it was sent.
    [[nodiscard]] std::string queryValue(std::string_view key,
                                         std::string_view fallback = {}) const;
    // The body as UTF-8, invalid sequences replaced.
    [[nodiscard]] std::string bodyText() const;
};

struct HttpResponse {
    int status = 200;
    std::map<std::string, std::string> headers;
    SharedBytes body;

    static HttpResponse json(int status, const Json& value);
    // JSON that has been written already.
    static HttpResponse jsonText(int status, std::string_view object);
    static HttpResponse text(int status, std::string_view text);
    // {"error": code, "message": message}
    static HttpResponse error(int status, std::string_view code, std::string_view message);

    // Whether the body is sent at all: not with 204 and 304.
    [[nodiscard]] bool hasBody() const { return status != 204 && status != 304; }
    // Status line and headers up to the blank line. Control characters inside become blanks, so that
    // no value can begin a header of its own.
    [[nodiscard]] std::string serializeHead() const;
    // Head and body.
    [[nodiscard]] Bytes serialize() const;
};

std::string_view reasonPhrase(int status);

}  // namespace zepho
