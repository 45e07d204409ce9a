// Files while the system refuses: open, write, fsync and rename fail as a test orders it.
//
// The definitions here stand in front of the C library's for the whole program, so that a fault hits
// exactly the call that is meant.
#include <atomic>
#include <cerrno>
#include <cstdarg>

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "core/platform/Directory.h"
#include "core/platform/Files.h"
#include "tests/support/TempDir.h"

namespace {

struct Fault {
    std::atomic<int> failures{0};  // so many of the next calls fail
    std::atomic<int> number{0};    // with this error
    std::atomic<int> calls{0};

    bool strikes() {
        ++calls;
        if (failures <= 0) return false;
        --failures;
        errno = number;
        return true;
    }
    void order(int times, int error) {
        number = error;
        failures = times;
        calls = 0;
    }
};

Fault openFault;
Fault writeFault;
Fault syncFault;
Fault renameFault;

template <class Function>
Function* original(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    std::va_list rest;
    va_start(rest, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(rest, int) : 0;
    va_end(rest);
    if (openFault.strikes()) return -1;
    static auto* const real = original<int(const char*, int, ...)>("open");
    return real(path, flags, mode);
}

ssize_t write(int fd, const void* bytes, size_t size) {
    if (writeFault.strikes()) return -1;
    static auto* const real = original<ssize_t(int, const void*, size_t)>("write");
    return real(fd, bytes, size);
}

int fsync(int fd) {
    if (syncFault.strikes()) return -1;
    static auto* const real = original<int(int)>("fsync");
    return real(fd);
}

int rename(const char* from, const char* to) noexcept {
    if (renameFault.strikes()) return -1;
    static auto* const real = original<int(const char*, const char*)>("rename");
    return real(from, to);
}

}  // extern "C"

namespace zepho::test {
namespace {

class FileFaults : public testing::Test {
protected:
    FileFaults() { saveFileBytes(path, asBytes("old")); }
    ~FileFaults() override {
        for (Fault* fault : {&openFault, &writeFault, &syncFault, &renameFault}) fault->order(0, 0);
    }

    [[nodiscard]] std::string content() const {
        return std::string(asText(loadFileBytes(path).value_or(Bytes())));
    }
    // The error of a save; 0 when it succeeds.
    [[nodiscard]] int errorOfSave() const {
        try {
            saveFileBytes(path, asBytes("new"));
            return 0;
        } catch (const std::system_error& error) {
            return error.code().value();
        }
    }

    TempDir directory;
    const std::string path = directory.file("store.json");
};

TEST_F(FileFaults, AReadOutlastsTroubleThatPasses) {
    for (const int error : {EMFILE, ENFILE, EIO, ENOMEM, ENOSPC, EROFS}) {
        openFault.order(2, error);
        EXPECT_EQ(content(), "old") << error;
        EXPECT_EQ(openFault.calls, 3) << error;
    }
    // What does not pass is given up, and what is a verdict is believed at once.
    openFault.order(1000, EMFILE);
    EXPECT_FALSE(loadFileBytes(path));
    EXPECT_LT(openFault.calls, 10);
    openFault.order(1, ENOENT);
    EXPECT_FALSE(loadFileBytes(path));
    EXPECT_EQ(openFault.calls, 1);
}

TEST_F(FileFaults, AFailedSaveTellsAndLeavesTheOldFileAndNothingElse) {
    for (Fault* fault : {&openFault, &writeFault, &syncFault, &renameFault}) {
        for (const int error : {ENOSPC, EIO, EROFS}) {
            fault->order(1, error);
            EXPECT_EQ(errorOfSave(), error);
            EXPECT_EQ(content(), "old");
            EXPECT_EQ(listDirectory(directory.path())->size(), 1U);
        }
    }
    // A want of descriptors passes.
    openFault.order(2, EMFILE);
    EXPECT_EQ(errorOfSave(), 0);
    EXPECT_EQ(content(), "new");
}

}  // namespace
}  // namespace zepho::test
