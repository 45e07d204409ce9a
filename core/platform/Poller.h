// Which descriptors are ready: the system's event queue under a task queue, for this folder only.
//
// Any number of threads wait; each event goes to one of them. Everything may be called from any
// thread. A descriptor leaves the poller by being closed.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "core/platform/Descriptor.h"

namespace zepho {

class Poller {
public:
    using Id = std::uint64_t;
    // What events of the poller itself carry; descriptors have larger ones.
    static constexpr Id posted = 0;  // one for each post()
    static constexpr Id ended = 1;   // without end after end()
    static constexpr Id firstFree = 2;

    struct Event {
        Id id = ended;
        bool readable = false;
        bool writable = false;
        bool closing = false;  // the peer has ended the stream, or the stream has failed
    };

    // What one wait brought.
    static constexpr std::size_t batchSize = 16;
    struct Batch {
        std::array<Event, batchSize> events;
        std::size_t count = 0;
    };

    // Throws std::system_error.
    Poller();
    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;

    // Tells of each change of a stream: once when bytes arrive, once when there is room again after
    // a send that found none, once when the peer ends it. False if the system refuses.
    [[nodiscard]] bool watchChanges(int descriptor, Id id);
    // Tells of the stream's present state once more, as if it had only now come about.
    void tellAgain(int descriptor, Id id);

    // Tells once when there is something to read or accept; again after watchOnceMore().
    [[nodiscard]] bool watchOnce(int descriptor, Id id);
    void watchOnceMore(int descriptor, Id id);

    void post();
    void end();
    // At least one event; more where more have come about.
    [[nodiscard]] Batch wait();
    // Gives the descriptors back. Nobody waits any more, and nobody will.
    void close();

private:
    Descriptor events;
    Descriptor postings;
    Descriptor ending;
};

// A clock that a poller watches: readable once the time is over, until it is set anew.
class PollTimer {
public:
    // Throws std::system_error.
    PollTimer();
    [[nodiscard]] int descriptor() const { return timer.number(); }
    // Zero stops it.
    void set(std::chrono::milliseconds after);

private:
    const Descriptor timer;
};

}  // namespace zepho
