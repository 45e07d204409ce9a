// How much memory the unfinished and unanswered requests of all connections may take together, with
// what their handlers make of them.
//
// The length of one request has no limit of its own, so many clients that send much, finished or not,
// could otherwise take the machine. Shared by the connections; any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

namespace zepho {

class BufferBudget {
public:
    explicit BufferBudget(std::size_t bytes) : limit(bytes) {}
    // The one of this process: half of the machine's memory.
    static const std::shared_ptr<BufferBudget>& ofProcess();

    [[nodiscard]] std::size_t used() const { return taken.load(); }

    // What one connection has taken; given back with it. Used by one thread at a time.
    class Share {
    public:
        explicit Share(std::shared_ptr<BufferBudget> whole) : budget(std::move(whole)) {}
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;
        ~Share() { shrink(0); }

        // Makes it this many bytes. False, and nothing changes, if that were too much for all.
        [[nodiscard]] bool grow(std::size_t bytes);
        void shrink(std::size_t bytes);

    private:
        const std::shared_ptr<BufferBudget> budget;
        std::size_t size = 0;
    };

private:
    void tellOfRefusal();

    // Constant after construction.
    const std::size_t limit;
    // Guarding themselves.
    std::atomic<std::size_t> taken{0};
    std::atomic<bool> refusing{false};  // told in the log, and not yet far from the limit again
};

}  // namespace zepho
