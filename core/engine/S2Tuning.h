// The ports, waits and limits of the supervision. The values here are those of the product; tests
// shorten waits and move the ports.
#pragma once

#include <chrono>

namespace zepho {

struct S2Tuning {
    using Milliseconds = std::chrono::milliseconds;

    // Where a child is put: the first free port of the range.
    int firstPort = 17151;
    int lastPort = 17170;
    // Where a child is found that does not heed the port it was given.
    int ownPort = 3030;
    Milliseconds probeLimit{500};  // of one connect
    Milliseconds readyPoll{400};   // between two looks at a loading child
    Milliseconds loadLimit{300'000};
    Milliseconds watchPoll{1500};  // between two looks at a ready child
    int maxRestarts = 3;           // between one start and the next

    Milliseconds stopLimit{3000};  // for a child that was asked to end
    Milliseconds stopPoll{50};
    Milliseconds killLimit{5000};  // for the system to clear away a child that was killed

    Milliseconds busyWait{1000};     // before a busy child is asked again
    Milliseconds lastAttempt{5000};  // at least this for each attempt, deadline or not
    // How long an exit may take to show after the connection broke.
    Milliseconds exitGrace{1000};
};

}  // namespace zepho
