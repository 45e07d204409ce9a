// One line spoken by the engine process: one POST, repeated while the process is busy with an
// earlier line whose client has given up.
//
// Runs on the calling thread, for minutes; holds no lock. Everything that it does to the world goes
// through S2ExchangeWorld, so that a test can play the process and the clock.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "core/audio/PcmBuffer.h"
#include "core/base/TtsTypes.h"
#include "core/engine/S2Tuning.h"
#include "core/platform/HttpClient.h"

namespace zepho {

// Fixed for the whole exchange: a restart of the process in between is not followed.
struct S2ExchangePlan {
    int port = 0;
    std::int64_t timeoutMs = 0;       // of the exchange with all its attempts
    std::int64_t attemptLimitMs = 0;  // of any one attempt
    std::string logPath;              // named in messages
    S2Tuning tuning;
};

struct S2ExchangeWorld {
    using Clock = std::chrono::steady_clock;

    std::function<HttpReply(const HttpCall&)> send;
    std::function<Clock::time_point()> now;
    std::function<void(std::chrono::milliseconds)> sleep;
    // Whether the process that got the request still runs.
    std::function<bool()> childRuns;
    // Whether it ends within the time.
    std::function<bool(std::chrono::milliseconds)> childEnds;
    // Told when the process turns out to be gone, before the error is thrown.
    std::function<void()> childGone;
};

// Throws TtsError.
[[nodiscard]] PcmBuffer exchangeLine(const S2Params& params, const S2ExchangePlan& plan,
                                     const S2ExchangeWorld& world);

}  // namespace zepho
