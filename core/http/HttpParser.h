// Cuts requests out of the bytes that a client has sent.
//
// Pure; any thread. Bytes from outside lead to a request or to none, never to an error. Only plain
// Content-Length bodies are known: no chunks, no Expect.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "core/http/HttpMessage.h"
#include "core/platform/Bytes.h"

namespace zepho {

struct ParsedRequest {
    HttpRequest request;
    std::size_t consumed = 0;  // bytes that it took from the front of the buffer
};

// What earlier looks at the same growing buffer have found out, so that no byte is searched twice.
// A fresh one belongs to each beginning of a request.
struct ParseProgress {
    enum class Outlook {
        open,     // more bytes may complete a request
        never,    // the request line is none: whatever comes, there will be no request
        refused,  // no body can be that long, or no header block: the connection is to be ended
    };
    Outlook outlook = Outlook::open;
    std::size_t searched = 0;  // bytes known to hold no end of the header block
    std::size_t needed = 0;    // size of the whole request; 0 while unknown
};

// The first request of the buffer; absent while it is incomplete, and for good where `progress` says
// so.
[[nodiscard]] std::optional<ParsedRequest> parseRequest(ByteView buffer, const std::string& peer,
                                                        ParseProgress& progress);
[[nodiscard]] std::optional<ParsedRequest> parseRequest(ByteView buffer, const std::string& peer);

}  // namespace zepho
