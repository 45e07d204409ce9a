#include <cerrno>
#include <cstdint>
#include <system_error>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "core/platform/Poller.h"

namespace zepho {
namespace {

constexpr std::uint32_t allChanges = EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET;
constexpr std::uint32_t firstReadable = EPOLLIN | EPOLLONESHOT;

Descriptor made(int descriptor, const char* what) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), what);
    return Descriptor(descriptor);
}

bool control(int events, int operation, int descriptor, std::uint32_t wanted, Poller::Id id) {
    epoll_event event{};
    event.events = wanted;
    event.data.u64 = id;
    return ::epoll_ctl(events, operation, descriptor, &event) == 0;
}

void addOne(int counter) {
    const std::uint64_t one = 1;
    // Fails only where 2^64 additions have not been taken out.
    [[maybe_unused]] const ssize_t written = ::write(counter, &one, sizeof one);
}

// False where nothing is left to take.
bool takeOne(int counter) {
    std::uint64_t one = 0;
    return ::read(counter, &one, sizeof one) > 0;
}

}  // namespace

Poller::Poller()
    : events(made(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      postings(made(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE), "eventfd")),
      ending(made(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")) {
    if (!control(events.number(), EPOLL_CTL_ADD, postings.number(), EPOLLIN, posted) ||
        !control(events.number(), EPOLL_CTL_ADD, ending.number(), EPOLLIN, ended))
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
}

bool Poller::watchChanges(int descriptor, Id id) {
    return control(events.number(), EPOLL_CTL_ADD, descriptor, allChanges, id);
}

void Poller::tellAgain(int descriptor, Id id) {
    control(events.number(), EPOLL_CTL_MOD, descriptor, allChanges, id);
}

bool Poller::watchOnce(int descriptor, Id id) {
    return control(events.number(), EPOLL_CTL_ADD, descriptor, firstReadable, id);
}

void Poller::watchOnceMore(int descriptor, Id id) {
    control(events.number(), EPOLL_CTL_MOD, descriptor, firstReadable, id);
}

void Poller::post() {
    addOne(postings.number());
}

void Poller::end() {
    addOne(ending.number());
}

Poller::Batch Poller::wait() {
    Batch batch;
    std::array<epoll_event, batchSize> told;
    while (batch.count == 0) {
        const int count = ::epoll_wait(events.number(), told.data(), told.size(), -1);
        if (count < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "epoll_wait");
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = told[static_cast<std::size_t>(i)];
            const Id id = event.data.u64;
            if (id == posted) {
                // As many as there is room for beside the others: tasks that come in bursts must not
                // fall behind. Another thread may have taken them.
                const std::size_t room = batchSize - static_cast<std::size_t>(count - i - 1);
                while (batch.count < room && takeOne(postings.number()))
                    batch.events[batch.count++].id = posted;
                continue;
            }
            batch.events[batch.count++] = {
                id, (event.events & EPOLLIN) != 0, (event.events & EPOLLOUT) != 0,
                (event.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0};
        }
    }
    return batch;
}

void Poller::close() {
    events.close();
    postings.close();
    ending.close();
}

PollTimer::PollTimer()
    : timer(made(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd")) {}

void PollTimer::set(std::chrono::milliseconds after) {
    itimerspec when{};
    when.it_value.tv_sec = after.count() / 1000;
    when.it_value.tv_nsec = after.count() % 1000 * 1'000'000;
    ::timerfd_settime(timer.number(), 0, &when, nullptr);
}

}  // namespace zepho
