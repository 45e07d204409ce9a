// The wishes of the system and of the person at the keyboard that the program should end.
#pragma once

namespace zepho {

// Keeps SIGTERM, SIGINT and SIGHUP from ending the process, in this thread and all that it starts;
// they wait for waitForStopSignal(). Called first in main(). A broken pipe is no reason to end, too.
void holdStopSignals();

// Blocks until one of them comes, and returns its number.
int waitForStopSignal();

}  // namespace zepho
