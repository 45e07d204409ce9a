#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

#include "core/platform/Descriptor.h"
#include "core/platform/ServiceNotify.h"

namespace zepho {

void notifyServiceManager(ServiceState state) {
    const char* const named = std::getenv("NOTIFY_SOCKET");
    if (named == nullptr || (*named != '/' && *named != '@')) return;
    const std::string_view path(named);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return;
    std::memcpy(address.sun_path, path.data(), path.size());
    // "@" stands for the abstract name space, whose names begin with a NUL.
    if (path.front() == '@') address.sun_path[0] = '\0';
    const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.isOpen()) return;
    const std::string_view text = state == ServiceState::ready ? "READY=1" : "STOPPING=1";
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    ::sendto(socket.number(), text.data(), text.size(), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&address), length);  // NOLINT: the socket API's way
}

}  // namespace zepho
