#include <array>
#include <memory>

#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "core/platform/NetInterfaces.h"

namespace zepho {

std::vector<InterfaceAddress> interfaceAddresses() {
    std::vector<InterfaceAddress> found;
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) return found;
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, ::freeifaddrs);
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr) continue;
        const int family = entry->ifa_addr->sa_family;
        if (family != AF_INET && family != AF_INET6) continue;
        const socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        std::array<char, NI_MAXHOST> text{};
        if (::getnameinfo(entry->ifa_addr, length, text.data(), text.size(), nullptr, 0,
                          NI_NUMERICHOST) != 0)
            continue;
        found.push_back(
            {family == AF_INET ? AddressFamily::ipv4 : AddressFamily::ipv6, text.data()});
    }
    return found;
}

}  // namespace zepho
