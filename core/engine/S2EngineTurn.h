// One start, stop or restart of the engine at a time, in the order in which they were asked for.
// Private to S2LocalEngine, whose fields it uses under that object's lock.
#pragma once

#include "core/engine/S2LocalEngine.h"

namespace zepho {

class S2LocalEngine::Turn {
public:
    enum Kind {
        newRun,      // begins a run: everything of an older run ends
        withinMine,  // on behalf of a run that may be over
    };

    // Waits for its turn. No lock is held while it lasts.
    Turn(S2LocalEngine& engine, Kind kind) : owner(engine) {
        std::unique_lock guard(owner.lock);
        if (kind == newRun) {
            ++owner.run;
            owner.changed.notify_all();
        }
        begun = owner.run;
        const std::uint64_t mine = owner.turnsAsked++;
        owner.changed.wait(guard, [this, mine] { return owner.turnsDone == mine; });
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() {
        const std::lock_guard guard(owner.lock);
        ++owner.turnsDone;
        owner.changed.notify_all();
    }

    [[nodiscard]] Run run() const { return begun; }
    // A later start or stop waits for its turn; it decides what is to be.
    [[nodiscard]] bool isOver() const {
        const std::lock_guard guard(owner.lock);
        return owner.run != begun;
    }

private:
    S2LocalEngine& owner;
    Run begun = 0;
};

}  // namespace zepho
