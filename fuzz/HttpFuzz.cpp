// Any bytes as what a client sends. However they are cut on their way, the same requests come out of
// them in the same order; and the answers to them, one behind the other, read back as they were made.
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/http/HttpMessage.h"
#include "core/http/HttpParser.h"
#include "core/platform/Require.h"
#include "core/platform/Unicode.h"
#include "fuzz/Slices.h"

namespace {

using namespace zepho;

struct Cut {
    std::vector<HttpRequest> requests;
    ParseProgress::Outlook outlook = ParseProgress::Outlook::open;
};

bool same(const HttpRequest& left, const HttpRequest& right) {
    return left.method == right.method && left.path == right.path && left.query == right.query &&
           left.headers == right.headers && left.body == right.body && left.peer == right.peer;
}

Cut cutAtOnce(ByteView stream) {
    Cut cut;
    ParseProgress progress;
    while (auto parsed = parseRequest(stream, "peer", progress)) {
        require(parsed->consumed >= 4 && parsed->consumed <= stream.size(), "more than there is");
        require(parsed->request.body.size() < parsed->consumed, "a body without a head");
        stream = stream.subspan(parsed->consumed);
        cut.requests.push_back(std::move(parsed->request));
        progress = {};
    }
    cut.outlook = progress.outlook;
    return cut;
}

// As a connection does it: a buffer that grows by what came, and what was learnt so far.
Cut cutInPieces(ByteView stream, std::size_t pieceSize) {
    Cut cut;
    ParseProgress progress;
    Bytes buffer;
    while (!stream.empty() && progress.outlook == ParseProgress::Outlook::open) {
        const ByteView piece = stream.first(std::min(pieceSize, stream.size()));
        stream = stream.subspan(piece.size());
        appendBytes(buffer, piece);
        while (auto parsed = parseRequest(buffer, "peer", progress)) {
            buffer.erase(buffer.begin(),
                         buffer.begin() + static_cast<std::ptrdiff_t>(parsed->consumed));
            cut.requests.push_back(std::move(parsed->request));
            progress = {};
        }
    }
    cut.outlook = progress.outlook;
    return cut;
}

// The answer to a request: everything in it that a client can choose comes back in a header.
HttpResponse answerTo(const HttpRequest& request, std::size_t number) {
    HttpResponse response;
    response.status = request.path.size() % 7 == 0 ? 304 : 200;
    response.headers["ETag"] = request.header("if-none-match");
    response.headers["X-Number"] = std::to_string(number);
    response.headers["X-Path"] = request.path;
    response.headers["X-Query"] = request.queryValue("text", request.query);
    response.body = request.body;
    return response;
}

// Takes one answer from the front of the stream as a client would that knows nothing of ours.
void readAnswer(std::string_view& stream, const HttpResponse& made, std::size_t number) {
    const std::size_t end = stream.find("\r\n\r\n");
    require(end != std::string_view::npos, "a head without an end");
    std::string_view head = stream.substr(0, end + 2);
    stream.remove_prefix(end + 4);
    require(head.starts_with("HTTP/1.1 " + std::to_string(made.status) + " "), "no status line");
    head.remove_prefix(head.find("\r\n") + 2);
    std::size_t length = 0;
    std::size_t lines = 0;
    bool numbered = false;
    for (; !head.empty(); ++lines) {
        const std::string_view line = head.substr(0, head.find("\r\n"));
        head.remove_prefix(line.size() + 2);
        for (const char c : line)
            require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F, "a control character");
        const std::size_t colon = line.find(": ");
        require(colon != std::string_view::npos, "a line that is no header");
        const std::string_view name = line.substr(0, colon);
        const std::string_view value = line.substr(colon + 2);
        if (name == "Content-Length")
            std::from_chars(value.data(), value.data() + value.size(), length);
        if (name == "X-Number") numbered = value == std::to_string(number);
    }
    require(lines == made.headers.size() + 2, "a header made up or lost");
    require(numbered, "an answer out of its turn");
    require(length == made.body.size(), "another length");
    if (made.status == 304) return;
    require(stream.substr(0, length) == asText(made.body.view()), "another body");
    stream.remove_prefix(length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Slices slices(data, size);
    const std::size_t pieceSize = 1 + slices.byte() % 64;
    const ByteView stream = slices.rest();
    const Cut whole = cutAtOnce(stream);
    const Cut pieces = cutInPieces(stream, pieceSize);
    require(whole.requests.size() == pieces.requests.size(), "another number of requests");
    for (std::size_t at = 0; at < whole.requests.size(); ++at)
        require(same(whole.requests[at], pieces.requests[at]), "another request");
    require(whole.outlook == pieces.outlook, "another outlook");

    Bytes answers;
    std::vector<HttpResponse> made;
    for (const HttpRequest& request : whole.requests) {
        require(isValidUtf8(request.path) && isValidUtf8(request.query), "a path that is no text");
        require(isValidUtf8(request.bodyText()), "a text that is none");
        made.push_back(answerTo(request, made.size()));
        appendBytes(answers, made.back().serialize());
    }
    std::string_view rest = asText(answers);
    for (std::size_t at = 0; at < made.size(); ++at) readAnswer(rest, made[at], at);
    require(rest.empty(), "bytes behind the last answer");
    return 0;
}
