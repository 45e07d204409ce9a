#include <fcntl.h>
#include <unistd.h>

#include "core/platform/Descriptor.h"

namespace zepho {

bool Descriptor::close() {
    return fd < 0 || ::close(std::exchange(fd, -1)) == 0;
}

Descriptor aboveStandard(Descriptor opened) {
    if (!opened.isOpen() || opened.number() > STDERR_FILENO) return opened;
    return Descriptor(::fcntl(opened.number(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace zepho
