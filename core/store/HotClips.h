// Copies of the clips that are asked for most, so that a hit costs one look at the file's identity
// instead of a read.
//
// Owned by the clip cache. Any thread; one lock, held for a look-up and a change of order only. What
// a file holds is decided by its identity alone: a clip whose file has changed is not given out.
#pragma once

#include <cstddef>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "core/platform/Bytes.h"
#include "core/platform/FileIdentity.h"

namespace zepho {

class HotClips {
public:
    // `capacity` in bytes of clips; those used longest ago go first.
    explicit HotClips(std::size_t capacity) : limit(capacity) {}

    // The clip kept under this key, if its file still is what it was.
    [[nodiscard]] std::optional<SharedBytes> find(std::string_view key,
                                                  const FileIdentity& identity);
    // Keeps a clip that was read while its file had this identity. One that alone exceeds the
    // capacity is not kept.
    void add(std::string_view key, const FileIdentity& identity, const SharedBytes& clip);
    void drop(std::string_view key);
    void clear();

    // The sum of the sizes of all kept clips.
    [[nodiscard]] std::size_t bytes() const;

private:
    struct Clip {
        std::string key;
        FileIdentity identity;
        SharedBytes bytes;
    };
    using Order = std::list<Clip>;

    // Takes a clip out, for its memory to be given back when the lock is no longer held.
    void takeLocked(Order::iterator place, Order& removed);

    // Constant after construction.
    const std::size_t limit;

    // Guarded by lock.
    mutable std::mutex lock;
    Order order;                                                   // the latest use first
    std::unordered_map<std::string_view, Order::iterator> places;  // keys live in `order`
    std::size_t used = 0;
};

}  // namespace zepho
