// A fixed window of one minute for each peer. The counters of the API's rate limit.
//
// Guards nothing: its owner calls it under a lock of its own. Entries stay for good.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace zepho {

class RateLimit {
public:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr std::chrono::seconds window{60};

    // Counts one request of the peer. True when it is over the limit; below 1 there is none.
    [[nodiscard]] bool refuses(const std::string& peer, std::int64_t limit, Time now) {
        if (limit < 1) return false;
        const auto [place, isNew] = hits.try_emplace(peer, Hits{now, 1});
        Hits& known = place->second;
        if (isNew) return false;
        if (now - known.start >= window) {
            known = {now, 1};
            return false;
        }
        if (known.count >= limit) return true;
        ++known.count;
        return false;
    }
    [[nodiscard]] std::size_t peers() const { return hits.size(); }

private:
    struct Hits {
        Time start;
        std::int64_t count = 0;
    };
    std::unordered_map<std::string, Hits> hits;
};

}  // namespace zepho
