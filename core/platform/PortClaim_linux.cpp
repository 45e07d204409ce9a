#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>

#include "core/platform/PortClaim.h"

namespace zepho {

std::optional<PortClaim> PortClaim::of(int port) {
    Descriptor held(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!held.isOpen()) return PortClaim();
    // A leading zero makes it a name without a file, one set for each network of the machine.
    const std::string name = std::string(1, '\0') + "zephon-engine-port-" + std::to_string(port);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    if (::bind(held.number(), reinterpret_cast<const sockaddr*>(&address), size) == 0)
        return PortClaim(std::move(held));
    if (errno == EADDRINUSE) return std::nullopt;
    return PortClaim();
}

}  // namespace zepho
