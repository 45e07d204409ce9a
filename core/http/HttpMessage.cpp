#include "core/http/HttpMessage.h"

#include <algorithm>
#include <optional>

#include <nlohmann/json.hpp>

#include "core/platform/Unicode.h"

namespace zepho {
namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Absent for an incomplete escape, and where the result is not UTF-8.
std::optional<std::string> percentDecoded(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        if (text.size() - i < 3) return std::nullopt;
        const int high = hexDigit(text[i + 1]);
        const int low = hexDigit(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        result += static_cast<char>(high * 16 + low);
        i += 2;
    }
    if (!isValidUtf8(result)) return std::nullopt;
    return result;
}

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

void appendPrintable(std::string& target, std::string_view text) {
    const std::size_t start = target.size();
    target += text;
    if (std::none_of(text.begin(), text.end(), isControl)) return;
    std::replace_if(target.begin() + static_cast<std::ptrdiff_t>(start), target.end(), isControl,
                    ' ');
}

void appendHeader(std::string& target, std::string_view name, std::string_view value) {
    appendPrintable(target, name);
    target += ": ";
    appendPrintable(target, value);
    target += "\r\n";
}

}  // namespace

std::string HttpRequest::header(std::string_view name) const {
    const auto found = headers.find(lowercased(name));
    return found == headers.end() ? std::string() : found->second;
}

std::string HttpRequest::queryValue(std::string_view key, std::string_view fallback) const {
    std::string_view rest = query;
    while (!rest.empty()) {
        const std::string_view piece = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(rest.size(), piece.size() + 1));
        const std::size_t equals = piece.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string_view name = piece.substr(0, equals);
        if (percentDecoded(name).value_or(std::string(name)) != key) continue;
        std::string value(piece.substr(equals + 1));
        std::replace(value.begin(), value.end(), '+', ' ');
        return percentDecoded(value).value_or(value);
    }
    return std::string(fallback);
}

std::string HttpRequest::bodyText() const {
    return replaceInvalidUtf8(asText(body));
}

HttpResponse HttpResponse::json(int status, const Json& value) {
    return jsonText(status, jsonString(value));
}

HttpResponse HttpResponse::jsonText(int status, std::string_view object) {
    return {status, {{"Content-Type", "application/json; charset=utf-8"}}, toBytes(object)};
}

HttpResponse HttpResponse::text(int status, std::string_view text) {
    return {status, {{"Content-Type", "text/plain; charset=utf-8"}}, toBytes(text)};
}

HttpResponse HttpResponse::error(int status, std::string_view code, std::string_view message) {
    return json(status, Json{{"error", code}, {"message", message}});
}

std::string HttpResponse::serializeHead() const {
    const std::string length = std::to_string(body.size());
    std::string head;
    head.reserve(256);
    head += "HTTP/1.1 ";
    head += std::to_string(status);
    head += ' ';
    head += reasonPhrase(status);
    head += "\r\n";
    // The two that every response has take their places in the order of names.
    bool needsConnection = !headers.contains("Connection");
    bool needsLength = true;
    const auto fillUpTo = [&](const std::string* name) {
        if (needsConnection && (name == nullptr || *name > "Connection")) {
            head += "Connection: keep-alive\r\n";
            needsConnection = false;
        }
        if (needsLength && (name == nullptr || *name >= "Content-Length")) {
            head += "Content-Length: ";
            head += length;
            head += "\r\n";
            needsLength = false;
        }
    };
    for (const auto& [name, value] : headers) {
        fillUpTo(&name);
        if (name != "Content-Length") appendHeader(head, name, value);
    }
    fillUpTo(nullptr);
    head += "\r\n";
    return head;
}

Bytes HttpResponse::serialize() const {
    Bytes bytes = toBytes(serializeHead());
    if (hasBody()) appendBytes(bytes, body);
    return bytes;
}

std::string_view reasonPhrase(int status) {
    switch (status) {
        case 202:
            return "Accepted";
        case 204:
            return "No Content";
        case 304:
            return "Not Modified";
        case 400:
            return "Bad Request";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 413:
            return "Payload Too Large";
        case 429:
            return "Too Many Requests";
        case 500:
            return "Internal Server Error";
        case 503:
            return "Service Unavailable";
        case 504:
            return "Gateway Timeout";
        default:
            return "OK";
    }
}

}  // namespace zepho
