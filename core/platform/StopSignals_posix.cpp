#include <csignal>
#include <initializer_list>

#include "core/platform/StopSignals.h"

namespace zepho {
namespace {

sigset_t stopSignals() {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&set, number);
    return set;
}

}  // namespace

void holdStopSignals() {
    const sigset_t set = stopSignals();
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

int waitForStopSignal() {
    const sigset_t set = stopSignals();
    int number = 0;
    while (::sigwait(&set, &number) != 0) continue;
    return number;
}

}  // namespace zepho
