// What the service tells of itself: one snapshot for status lines and routes, and the lines of its
// self test. Plain values.
#pragma once

#include <cstdint>
#include <string>

namespace zepho {

struct ServiceStats {
    std::int64_t total = 0;   // lines answered or failed at the engine stage
    std::int64_t failed = 0;  // of these, the failed ones
    std::int64_t cacheHits = 0;
    double cacheHitRate = 0;
    std::int64_t cacheBytes = 0;
    std::int64_t cacheCount = 0;
    std::int64_t queueDepth = 0;
    std::int64_t prewarmPending = 0;
    bool busy = false;       // the queue's worker is inside a job
    std::int64_t p50Ms = 0;  // engine time of the last lines
    std::int64_t p95Ms = 0;
    std::int64_t totalAudioMs = 0;
    std::int64_t totalSynthMs = 0;
    std::string engineName;
    std::string engineDetail;
    bool engineReady = false;
    bool placeholder = false;
};

struct CheckResult {
    std::string name;
    bool ok = false;
    std::string detail;
};

}  // namespace zepho
