#include <utility>

#include <pthread.h>

#include "core/platform/Thread.h"

namespace zepho {

void nameThisThread(const std::string& name) {
    // Longer names are refused as a whole, not cut.
    ::pthread_setname_np(::pthread_self(), name.substr(0, 15).c_str());
}

std::thread startThread(const std::string& name, std::function<void()> run) {
    return std::thread([name, run = std::move(run)] {
        nameThisThread(name);
        run();
    });
}

}  // namespace zepho
