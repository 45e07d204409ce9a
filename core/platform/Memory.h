// How the allocator keeps what was freed: by itself it holds a pool for nearly every thread that ever
// ran, each as large as its worst moment.
//
// Stateless; any thread. Without effect where the allocator has no such knobs.
#pragma once

namespace zepho {

// Few pools for all threads. At the start of a program, before the first thread.
void limitMemoryPools();

// Gives what is free back to the system: after work on something large, as it takes a while.
void giveBackMemory();

}  // namespace zepho
