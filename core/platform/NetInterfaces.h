// The addresses of this machine's network interfaces. Any thread; a failure gives an empty list.
#pragma once

#include <string>
#include <vector>

namespace zepho {

enum class AddressFamily { ipv4, ipv6 };

struct InterfaceAddress {
    AddressFamily family = AddressFamily::ipv4;
    std::string text;  // numeric
};

[[nodiscard]] std::vector<InterfaceAddress> interfaceAddresses();

}  // namespace zepho
