// A socket that never blocks, as the system has it. For the source files of this folder.
//
// Owned by one connection or listener. Only endReceiving() may be called beside another operation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>

#include "core/platform/Bytes.h"
#include "core/platform/Descriptor.h"
#include "core/platform/Tcp.h"

namespace zepho {

class TcpSocket {
public:
    // What one call has moved. `wouldBlock` is no error.
    struct Moved {
        std::size_t count = 0;
        bool wouldBlock = false;
        bool complete = false;  // receiving only: the peer has ended the stream
        std::error_code error;
    };
    struct Accepted;

    TcpSocket() = default;
    // Throws std::system_error.
    static TcpSocket listening(const std::optional<std::string>& address, std::uint16_t port);
    [[nodiscard]] Accepted accept() const;

    [[nodiscard]] Moved receive(std::uint8_t* target, std::size_t size) const;
    // Sends from the concatenation of both, `sent` bytes of which have gone out before.
    [[nodiscard]] Moved send(const std::string& head, const SharedBytes& body,
                             std::size_t sent) const;
    void endReceiving() const;
    // The peer sees the end of the stream behind what was sent.
    void endSending() const;
    void close();

    [[nodiscard]] int descriptor() const { return socket.number(); }
    [[nodiscard]] bool isOpen() const { return socket.isOpen(); }
    [[nodiscard]] std::uint16_t port() const;

private:
    explicit TcpSocket(Descriptor opened) : socket(std::move(opened)) {}
    static TcpSocket listeningOn(const void* address, unsigned size);

    Descriptor socket;
};

struct TcpSocket::Accepted {
    TcpSocket socket;
    TcpHost host;
    std::error_code error;
    bool wouldBlock = false;
};

}  // namespace zepho
