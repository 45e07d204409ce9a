// A blocking client for tests: plain sockets, every wait with a deadline. One thread at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace zepho::test {

struct ClientResponse {
    int status = 0;
    std::map<std::string, std::string> headers;  // names lower-cased
    std::string head;                            // as received, blank line included
    std::string body;
};

class HttpClient {
public:
    // Connects to this machine; throws std::runtime_error where that fails. `receiveBuffer` above 0
    // makes the system keep no more than about that much unread.
    explicit HttpClient(int port, const std::string& address = "127.0.0.1", int receiveBuffer = 0);
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;
    HttpClient(HttpClient&& other) noexcept;
    ~HttpClient();

    // False when the peer has gone.
    bool send(std::string_view bytes);
    // One response, framed by its Content-Length; absent at the end of the stream or the deadline.
    std::optional<ClientResponse> read(
        std::chrono::milliseconds patience = std::chrono::seconds(30));
    // A request with Host and, unless it is empty, a body.
    std::optional<ClientResponse> request(const std::string& method, const std::string& target,
                                          const std::string& body = {},
                                          const std::string& extraHeaders = {});

    // Whether the peer ends the connection within the deadline without sending anything more.
    bool endsWithin(std::chrono::milliseconds patience);
    // Ends the sending side only.
    void finishSending();
    // Ends the connection with a reset.
    void reset();

private:
    // Appends what comes next to `received`; false at the end, on an error and at the deadline.
    bool receiveMore(std::chrono::steady_clock::time_point deadline);

    int descriptor = -1;
    std::string received;
};

// A port of this machine that nobody listens on, for listeners that cannot take port 0.
int freePort();

}  // namespace zepho::test
