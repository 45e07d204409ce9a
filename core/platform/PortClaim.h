// Who puts a program on which port of this machine, agreed among the programs that ask.
//
// A port stays silent until the program that was put there has loaded, and until then nothing else
// tells others that it is spoken for. A claim is a name of the system's own, in no directory: it is
// known to all users as the port is, and goes away with its holder, however that ends. Belongs to one
// thread at a time; another object of this process is another holder.
#pragma once

#include <optional>
#include <utility>

#include "core/platform/Descriptor.h"

namespace zepho {

class PortClaim {
public:
    PortClaim() = default;  // of no port

    // Absent if somebody else holds it. Everybody gets it where the system gives no such names.
    [[nodiscard]] static std::optional<PortClaim> of(int port);

private:
    explicit PortClaim(Descriptor held) : name(std::move(held)) {}

    Descriptor name;
};

}  // namespace zepho
