#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>

#include "core/platform/InstanceLock.h"

namespace zepho {

InstanceLock::InstanceLock(const std::string& path)
    : file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (!file.isOpen()) return;
    int result = 0;
    do {
        result = ::flock(file.number(), LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    taken = result != 0 && errno == EWOULDBLOCK;
}

}  // namespace zepho
