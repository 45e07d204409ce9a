// The pieces of which starting and ending one engine process is made: its port, its command line,
// the spawn, the record of its number, its end. Stateless; any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/config/EngineOptions.h"
#include "core/engine/EngineDiscovery.h"
#include "core/engine/S2Tuning.h"
#include "core/platform/PortClaim.h"
#include "core/platform/Process.h"

namespace zepho {

struct S2Port {
    int number = 0;
    PortClaim claim;  // held for as long as the child is to be there
};

// The first port of the range on which nobody answers, and where no other service of the machine
// has put a child that is still loading; absent if all are taken. A port that is open for us but
// answered by somebody else would be mistaken for the child, so it is asked, not bound.
[[nodiscard]] std::optional<S2Port> pickS2Port(const S2Tuning& tuning);

// The words behind the program. `gpu` says whether the files of the GPU backend are there.
[[nodiscard]] std::vector<std::string> s2Arguments(const S2Files& files,
                                                   const EngineOptions& options, int port,
                                                   bool gpu);
// Whether the command line uses the GPU backend.
[[nodiscard]] bool s2UsesGpu(const EngineOptions& options, bool gpu);

// Starts the process in the directory of its program, its output in the engine log, and records its
// number for the sweep of a later run. Throws std::system_error.
[[nodiscard]] std::shared_ptr<Process> launchS2(const S2Files& files,
                                                const std::vector<std::string>& arguments);

// Ends the process: asked first, then killed with its group. It may be null or gone already.
void endS2(Process* process, const S2Tuning& tuning);

// Forgets the recorded number.
void removeS2PidFile();

}  // namespace zepho
