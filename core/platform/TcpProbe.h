// Whether somebody listens on a port of this machine. Stateless; any thread.
#pragma once

#include <chrono>

namespace zepho {

enum class TcpProbe {
    answered,  // a connection was accepted
    silent,    // refused, or not accepted in time
    noSocket,  // this process cannot ask
};

// Connects to 127.0.0.1 and hangs up at once.
[[nodiscard]] TcpProbe probeLoopbackPort(int port, std::chrono::milliseconds limit);

}  // namespace zepho
