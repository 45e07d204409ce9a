#include <algorithm>
#include <chrono>

#include <sys/stat.h>

#include "core/platform/FileIdentity.h"

namespace zepho {
namespace {

// Local file systems stamp with the kernel's tick, 1 to 10 ms.
constexpr std::chrono::nanoseconds restTime = std::chrono::milliseconds(100);

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

std::optional<FileIdentity> fileIdentity(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    FileIdentity identity;
    identity.device = info.st_dev;
    identity.inode = info.st_ino;
    identity.size = info.st_size;
#ifdef __APPLE__
    identity.modifiedNs = nanoseconds(info.st_mtimespec);
    identity.changedNs = nanoseconds(info.st_ctimespec);
#else
    identity.modifiedNs = nanoseconds(info.st_mtim);
    identity.changedNs = nanoseconds(info.st_ctim);
#endif
    return identity;
}

bool hasRested(const FileIdentity& identity) {
    const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
    return now - std::max(identity.modifiedNs, identity.changedNs) > restTime.count();
}

}  // namespace zepho
