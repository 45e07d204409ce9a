// One program per data root: the lock that the headless service takes, too, and the word to the one
// that holds it.
//
// The lock is the system's and dies with its holder, however that ends; the local socket only carries
// the wish to be shown. The holder listens before its window is built, which may take seconds: a wish
// of that time waits. Main thread only, but for askToShow().
#pragma once

#include <QLocalServer>
#include <chrono>
#include <functional>
#include <memory>

#include "core/platform/InstanceLock.h"

namespace zepho {

class SingleInstance {
public:
    SingleInstance();

    // Another program holds the data root.
    [[nodiscard]] bool isTaken() const { return lock->isTaken(); }
    // Asks it to show its window. False when nobody listens for so long, as the headless service, or
    // when it does not answer.
    [[nodiscard]] bool askToShow(
        std::chrono::milliseconds patience = std::chrono::seconds(3)) const;
    // Hears the others' wishes from now on, and keeps them for showBy().
    void listen();
    // Hears none any more, and leaves no socket. For a program that ends without destructors.
    void stopListening() { server.close(); }
    // Wishes are granted by this, at once if there has been one.
    void showBy(std::function<void()> show);

private:
    void greet(QLocalSocket* caller);
    void grant();

    const std::unique_ptr<InstanceLock> lock;
    QLocalServer server;
    std::function<void()> bringUp;
    bool wished = false;  // before there was a window
};

}  // namespace zepho
