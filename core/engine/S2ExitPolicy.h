// What follows when the engine process is gone, and what people are told. Pure; any thread.
#pragma once

#include <string>

#include "core/platform/Process.h"

namespace zepho {

enum class S2ChildPhase { loading, ready };

struct AfterExit {
    enum class Action { fail, restart };
    Action action = Action::fail;
    int restarts = 0;  // made since the last start, this one included

    bool operator==(const AfterExit&) const = default;
};

// A child that ends while it loads would end again, so only one that was ready is restarted, and no
// more than `maxRestarts` times between one start and the next.
[[nodiscard]] AfterExit afterExit(S2ChildPhase phase, int restarts, int maxRestarts);

// What the way it ended suggests to the user, in the interface language; may be empty.
[[nodiscard]] std::string exitHint(const ProcessExit& exit);

// The sentence for a child that ended while it was loading.
[[nodiscard]] std::string loadExitSentence(const ProcessExit& exit, const std::string& logPath);

}  // namespace zepho
