// One running program per directory: a lock that the system frees when its holder dies, however.
//
// A second program on the same data would take the first one's inference process for a leftover.
#pragma once

#include <string>

#include "core/platform/Descriptor.h"

namespace zepho {

class InstanceLock {
public:
    // Tries once, without waiting. The file is made where it is missing and stays behind.
    explicit InstanceLock(const std::string& path);

    // Another program holds it. False where the file cannot be made: a disk that takes no lock is no
    // sign of another program.
    [[nodiscard]] bool isTaken() const { return taken; }

private:
    // Constant after construction.
    Descriptor file;
    bool taken = false;
};

}  // namespace zepho
