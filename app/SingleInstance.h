// One program per data root: the lock that the headless service takes, too, and the word to the one
// that holds it.
//
// The lock is the system's and dies with its holder, however that ends; the local socket only carries
// the wish to be shown. Main thread only.
#pragma once

#include <QLocalServer>
#include <functional>
#include <memory>

#include "core/platform/InstanceLock.h"

namespace zepho {

class SingleInstance {
public:
    SingleInstance();

    // Another program holds the data root.
    [[nodiscard]] bool isTaken() const { return lock->isTaken(); }
    // Asks it to show its window. False when it has none, as the headless service.
    [[nodiscard]] bool askToShow() const;
    // Hears the others' wishes from now on.
    void listen(std::function<void()> show);

private:
    std::unique_ptr<InstanceLock> lock;
    QLocalServer server;
};

}  // namespace zepho
