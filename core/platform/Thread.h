// Threads with a name that debuggers and `ps -L` show.
#pragma once

#include <functional>
#include <string>
#include <thread>

namespace zepho {

// Starts a thread; the caller joins or detaches it. The system may cut the name (15 bytes on Linux).
[[nodiscard]] std::thread startThread(const std::string& name, std::function<void()> run);

// Names the calling thread.
void nameThisThread(const std::string& name);

}  // namespace zepho
