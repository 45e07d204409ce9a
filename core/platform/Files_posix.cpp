#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/platform/AppendFile.h"
#include "core/platform/Descriptor.h"
#include "core/platform/Directory.h"
#include "core/platform/Files.h"
#include "core/platform/PassingTrouble.h"

namespace zepho {
namespace {

constexpr const char* temporaryMark = ".zepho-tmp-";

// A write that fails is told, but for a want of descriptors; a read has nobody to tell.
bool mayPass(int number, int flags) {
    if (isWantOfDescriptors(number)) return true;
    return (flags & O_ACCMODE) == O_RDONLY && !isVerdictOnPath(number);
}

int openRetrying(const char* path, int flags, mode_t mode = 0) {
    int fd = -1;
    const auto attempt = [&] {
        do {
            fd = ::open(path, flags | O_CLOEXEC, mode);
        } while (fd < 0 && errno == EINTR);
        return fd >= 0;
    };
    outlast(attempt, [flags](int number) { return mayPass(number, flags); });
    return fd;
}

[[noreturn]] void throwErrno(int number, const std::string& path) {
    throw std::system_error(number, std::generic_category(), path);
}

void writeAll(int fd, ByteView bytes, const std::string& path) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            throwErrno(errno, path);
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
}

// The disk may begin with these bytes while the next are made. Only ever a hint: the sync decides.
void startWriting(int fd, std::size_t from, std::size_t size) {
#ifdef __linux__
    static_cast<void>(::sync_file_range(fd, static_cast<off_t>(from), static_cast<off_t>(size),
                                        SYNC_FILE_RANGE_WRITE));
#else
    static_cast<void>(fd), static_cast<void>(from), static_cast<void>(size);
#endif
}

int syncRetrying(int fd) {
    int result = 0;
    do {
        result = ::fsync(fd);
    } while (result != 0 && errno == EINTR);
    return result;
}

std::string temporaryPathFor(const std::string& path) {
    static std::atomic<unsigned> counter{0};
    return path + temporaryMark + std::to_string(::getpid()) + "-" +
           std::to_string(counter.fetch_add(1, std::memory_order_relaxed));
}

// Of the file that is there.
std::optional<mode_t> permissionsOf(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    return info.st_mode & 0777U;
}

// Runs `write` on a temporary file beside `path`, which then takes the place of `path`.
void replaceFile(const std::string& path,
                 const std::function<void(int fd, const std::string& name)>& write) {
    const std::string directory = parentDirectory(path);
    if (!directory.empty()) createDirectories(directory);
    // What an owner has closed to others stays closed, from the first moment on.
    const std::optional<mode_t> permissions = permissionsOf(path);
    // A killed process of the same number, as every start in a container may have, can have left a
    // temporary file of the same name.
    std::string temporary;
    int fd = -1;
    do {
        temporary = temporaryPathFor(path);
        fd = openRetrying(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL,
                          permissions.value_or(0644));
    } while (fd < 0 && errno == EEXIST);
    Descriptor file(fd);
    if (!file.isOpen()) throwErrno(errno, temporary);
    // The mask may have taken some away; a file system that refuses is no reason to lose the content.
    if (permissions) static_cast<void>(::fchmod(file.number(), *permissions));
    try {
        write(file.number(), temporary);
        if (syncRetrying(file.number()) != 0) throwErrno(errno, temporary);
        if (!file.close()) throwErrno(errno, temporary);
        if (::rename(temporary.c_str(), path.c_str()) != 0) throwErrno(errno, path);
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
    // The rename itself must survive a power cut.
    syncDirectory(directory.empty() ? "." : directory);
}

}  // namespace

std::optional<Bytes> loadFileBytes(const std::string& path) {
    const Descriptor file(openRetrying(path.c_str(), O_RDONLY));
    if (!file.isOpen()) return std::nullopt;
    struct stat info {};
    if (::fstat(file.number(), &info) != 0 || S_ISDIR(info.st_mode)) return std::nullopt;
    Bytes bytes(info.st_size > 0 ? static_cast<std::size_t>(info.st_size) : 0);
    std::size_t used = 0;
    for (;;) {
        // A file that grows while it is read, or one that tells no size, goes on beyond st_size.
        if (used == bytes.size()) {
            std::uint8_t probe = 0;
            const ssize_t more = ::read(file.number(), &probe, 1);
            if (more < 0 && errno == EINTR) continue;
            if (more < 0) return std::nullopt;
            if (more == 0) break;
            bytes.resize(bytes.size() + 65536);
            bytes[used++] = probe;
            continue;
        }
        const ssize_t got = ::read(file.number(), bytes.data() + used, bytes.size() - used);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) break;
        used += static_cast<std::size_t>(got);
    }
    bytes.resize(used);
    return bytes;
}

bool readFilePieces(const std::string& path, const std::function<bool(ByteView)>& take) {
    const Descriptor file(openRetrying(path.c_str(), O_RDONLY));
    if (!file.isOpen()) return false;
    Bytes piece(std::size_t{128} * 1024);
    for (;;) {
        const ssize_t got = ::read(file.number(), piece.data(), piece.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0 || !take(ByteView(piece).first(static_cast<std::size_t>(got)))) return true;
    }
}

std::optional<FileHead> readFileHead(const std::string& path, std::size_t maxBytes) {
    const Descriptor file(openRetrying(path.c_str(), O_RDONLY));
    if (!file.isOpen()) return std::nullopt;
    FileHead head;
    struct stat info {};
    if (::fstat(file.number(), &info) == 0) head.fileSize = info.st_size;
    head.bytes.resize(maxBytes);
    std::size_t used = 0;
    while (used < maxBytes) {
        const ssize_t got = ::read(file.number(), head.bytes.data() + used, maxBytes - used);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) break;
        used += static_cast<std::size_t>(got);
    }
    head.bytes.resize(used);
    return head;
}

void saveFileBytes(const std::string& path, ByteView bytes) {
    replaceFile(path, [&](int fd, const std::string& name) { writeAll(fd, bytes, name); });
}

void saveFilePieces(const std::string& path, const std::function<bool(Bytes&)>& appendNext) {
    replaceFile(path, [&](int fd, const std::string& name) {
        constexpr std::size_t worthStarting = std::size_t{4} << 20;
        Bytes piece;
        std::size_t written = 0;
        std::size_t started = 0;
        for (bool more = true; more;) {
            piece.clear();
            more = appendNext(piece);
            writeAll(fd, piece, name);
            written += piece.size();
            if (written - started < worthStarting) continue;
            startWriting(fd, started, written - started);
            started = written;
        }
    });
}

void syncFile(const std::string& path) {
    const Descriptor file(openRetrying(path.c_str(), O_RDONLY));
    if (!file.isOpen() || syncRetrying(file.number()) != 0) throwErrno(errno, path);
}

// Some file systems refuse to sync a directory; a rename in it has happened then all the same.
void syncDirectory(const std::string& path) {
    const Descriptor directory(openRetrying(path.c_str(), O_RDONLY | O_DIRECTORY));
    if (directory.isOpen()) syncRetrying(directory.number());
}

void createDirectories(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) throw std::system_error(error, path);
    // create_directories() is content with a file of that name in some library versions.
    if (!directoryExists(path)) throwErrno(ENOTDIR, path);
}

bool fileExists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

bool fileIsMissing(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

bool directoryExists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool isTemporaryName(std::string_view name) {
    return name.find(temporaryMark) != std::string_view::npos;
}

void removeStaleTemporaries(const std::string& path) {
    for (const std::string& name : listDirectory(path).value_or(std::vector<std::string>())) {
        const std::size_t mark = name.find(temporaryMark);
        if (mark == std::string::npos) continue;
        const long owner =
            std::strtol(name.c_str() + mark + std::strlen(temporaryMark), nullptr, 10);
        const bool lives = owner > 0 && owner <= INT_MAX &&
                           (::kill(static_cast<pid_t>(owner), 0) == 0 || errno == EPERM);
        if (!lives) ::unlink((withTrailingSlash(path) + name).c_str());
    }
}

std::string withTrailingSlash(std::string path) {
    if (path.empty() || path.back() != '/') path += '/';
    return path;
}

std::string parentDirectory(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string lastPathComponent(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

AppendFile::AppendFile(Descriptor opened, std::string path)
    : file(std::move(opened)), name(std::move(path)) {}

std::optional<AppendFile> AppendFile::open(const std::string& path, int flags) {
    Descriptor opened(openRetrying(path.c_str(), O_WRONLY | O_APPEND | flags, 0644));
    if (!opened.isOpen()) return std::nullopt;
    return AppendFile(std::move(opened), path);
}

std::optional<AppendFile> AppendFile::createEmpty(const std::string& path) {
    return open(path, O_CREAT | O_TRUNC);
}

std::optional<AppendFile> AppendFile::openAtEnd(const std::string& path) {
    return open(path, 0);
}

void AppendFile::write(ByteView bytes) {
    writeAll(file.number(), bytes, name);
}

}  // namespace zepho
