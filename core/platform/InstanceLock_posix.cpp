#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "core/platform/InstanceLock.h"

namespace zepho {

InstanceLock::InstanceLock(const std::string& path)
    : fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (fd < 0) return;
    int result = 0;
    do {
        result = ::flock(fd, LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    taken = result != 0 && errno == EWOULDBLOCK;
}

InstanceLock::~InstanceLock() {
    if (fd >= 0) ::close(fd);
}

}  // namespace zepho
