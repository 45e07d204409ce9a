// Trouble of the system that is gone a moment later: a want of descriptors, a hiccup of a disk.
//
// A store that cannot be read looks empty, and the next save would make it so; a tenth of a second of
// patience costs nothing against that. For the sources of this folder; stateless; any thread.
#pragma once

#include <cerrno>
#include <chrono>
#include <thread>

namespace zepho {

inline bool isWantOfDescriptors(int number) {
    return number == EMFILE || number == ENFILE;
}

// What the system says of the path itself, and asking again cannot change.
inline bool isVerdictOnPath(int number) {
    return number == ENOENT || number == ENOTDIR || number == EISDIR || number == EACCES ||
           number == EPERM || number == EEXIST || number == ELOOP || number == ENAMETOOLONG ||
           number == ENXIO || number == EINVAL;
}

// Calls `attempt` until it succeeds, or fails with an error that `mayPass` denies, or a tenth of a
// second is over. `attempt` gives whether it has succeeded, and errno otherwise; errno stays.
template <class Attempt, class MayPass>
bool outlast(Attempt attempt, MayPass mayPass) {
    constexpr int attempts = 5;
    constexpr auto pause = std::chrono::milliseconds(20);
    for (int left = attempts;; --left) {
        if (attempt()) return true;
        const int number = errno;
        if (left == 1 || !mayPass(number)) {
            errno = number;
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
}

}  // namespace zepho
