#include "core/http/HttpParser.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "core/base/Json.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view headEnd = "\r\n\r\n";
// Far above what any client sends as headers; without it a stream without a blank line would be
// collected for ever.
constexpr std::size_t maxHead = std::size_t{8} * 1024 * 1024;
constexpr std::int64_t maxBody = std::int64_t{1} << 40;

using Outlook = ParseProgress::Outlook;

// Takes the first line from the front of `rest`, its end included.
std::string_view takeLine(std::string_view& rest) {
    const std::string_view line = rest.substr(0, rest.find(lineEnd));
    rest.remove_prefix(std::min(rest.size(), line.size() + lineEnd.size()));
    return line;
}

// Takes the next piece between blanks; empty when there is none left.
std::string_view takeWord(std::string_view& line) {
    line.remove_prefix(std::min(line.size(), line.find_first_not_of(' ')));
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(word.size());
    return word;
}

bool parseRequestLine(std::string_view line, HttpRequest& request) {
    const std::string_view method = takeWord(line);
    const std::string_view target = takeWord(line);
    if (target.empty()) return false;
    request.method = uppercased(method);
    const std::size_t mark = target.find('?');
    request.path = target.substr(0, mark);
    if (mark != std::string_view::npos) request.query = target.substr(mark + 1);
    return true;
}

void parseHeaders(std::string_view rest, HttpRequest& request) {
    while (!rest.empty()) {
        const std::string_view line = takeLine(rest);
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        request.headers.insert_or_assign(lowercased(trimmedView(line.substr(0, colon))),
                                         trimmed(line.substr(colon + 1)));
    }
}

// The body's length; absent when no body can have it. Anything but an integer counts as 0.
std::optional<std::size_t> contentLength(const HttpRequest& request) {
    const auto found = request.headers.find("content-length");
    if (found == request.headers.end()) return 0;
    const std::string& text = found->second;
    const std::size_t sign = text.starts_with('+') || text.starts_with('-') ? 1 : 0;
    if (text.size() == sign || text.find_first_not_of("0123456789", sign) != std::string::npos)
        return 0;
    const std::optional<std::int64_t> length = parseDecimalInteger(text);
    if (!length || *length < 0 || *length > maxBody) return std::nullopt;
    return static_cast<std::size_t>(*length);
}

// Where the body begins, or nothing while the header block is open.
std::optional<std::size_t> findBody(std::string_view text, ParseProgress& progress) {
    // The marker may have begun in what was searched before.
    const std::size_t from = progress.searched - std::min(progress.searched, headEnd.size() - 1);
    const std::size_t found = text.find(headEnd, from);
    if (found != std::string_view::npos) return found + headEnd.size();
    progress.searched = text.size();
    if (text.size() > maxHead) progress.outlook = Outlook::refused;
    return std::nullopt;
}

}  // namespace

std::optional<ParsedRequest> parseRequest(ByteView buffer, const std::string& peer,
                                          ParseProgress& progress) {
    if (progress.outlook != Outlook::open || buffer.size() < progress.needed) return std::nullopt;
    const std::optional<std::size_t> bodyStart = findBody(asText(buffer), progress);
    if (!bodyStart) return std::nullopt;
    std::string_view head = asText(buffer).substr(0, *bodyStart - headEnd.size());
    std::string repaired;
    if (!isValidUtf8(head)) head = repaired = replaceInvalidUtf8(head);

    ParsedRequest parsed;
    HttpRequest& request = parsed.request;
    if (!parseRequestLine(takeLine(head), request)) {
        progress.outlook = Outlook::never;
        return std::nullopt;
    }
    parseHeaders(head, request);
    const std::optional<std::size_t> length = contentLength(request);
    if (!length) {
        progress.outlook = Outlook::refused;
        return std::nullopt;
    }
    parsed.consumed = *bodyStart + *length;
    if (buffer.size() < parsed.consumed) {
        // The header block is read once more when the body is there, and not before.
        progress.needed = parsed.consumed;
        progress.searched = *bodyStart - headEnd.size();
        return std::nullopt;
    }
    request.body.resize(*length);
    if (*length > 0) std::memcpy(request.body.data(), buffer.data() + *bodyStart, *length);
    request.peer = peer;
    return parsed;
}

std::optional<ParsedRequest> parseRequest(ByteView buffer, const std::string& peer) {
    ParseProgress progress;
    return parseRequest(buffer, peer, progress);
}

}  // namespace zepho
