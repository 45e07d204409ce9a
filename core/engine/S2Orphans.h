// Engine processes that an earlier run of the service left behind.
//
// A service that was killed leaves a child that holds gigabytes of memory. The sweep kills it at
// the next start. What is killed was not started by this run, so looksLikeOurEngine() guards every
// kill. Stateless; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "core/platform/ProcessList.h"

namespace zepho {

// Only the program in the data root and a packaged one; a program of that name elsewhere is a
// stranger's.
[[nodiscard]] bool looksLikeOurEngine(std::string_view program);

// The processes of the list that are ours, orphaned, and not `self`.
[[nodiscard]] std::vector<std::int32_t> orphanedEngines(std::span<const ProcessEntry> list,
                                                        std::int32_t self);

// Kills what the recorded number and the process list show, and removes the record.
void sweepOrphans();

}  // namespace zepho
