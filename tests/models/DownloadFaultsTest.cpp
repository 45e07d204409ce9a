// The order in which the bytes and names of downloads reach the disk, and a disk that refuses.
//
// The definition of fsync() here stands in front of the C library's for the whole program.
#include <atomic>
#include <cerrno>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/models/DownloadFixture.h"
#include "tests/support/HttpClient.h"

namespace {

std::mutex syncLock;
std::vector<std::string> synced;  // guarded by syncLock
std::atomic<int> syncError{0};    // of every call, if it is not 0

std::string nameOf(int fd) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error);
}

}  // namespace

extern "C" int fsync(int fd) {
    {
        const std::lock_guard guard(syncLock);
        synced.push_back(nameOf(fd));
    }
    if (syncError != 0) {
        errno = syncError;
        return -1;
    }
    static auto* const real = reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, "fsync"));
    return real(fd);
}

namespace zepho::test {
namespace {

using Stage = DownloadStage;

class DownloadFaults : public Download {
protected:
    ~DownloadFaults() override { syncError = 0; }

    static std::vector<std::string> takeSynced() {
        const std::lock_guard guard(syncLock);
        return std::exchange(synced, {});
    }
};

TEST_F(DownloadFaults, aModelIsOnTheDiskBeforeItHasItsName) {
    const std::string body = bodyOf(4000);
    ModelHost host(ModelHost::serving(body));
    const std::string models = std::filesystem::canonical(ZEPHOPaths::modelsDir());
    takeSynced();
    downloader->start(variantOf(4000), host.address(), false);
    awaitEnd(Stage::done);
    EXPECT_EQ(takeSynced(), (std::vector{models + "/m.gguf.part", models}));

    std::filesystem::remove(inModels("m.gguf"));
    syncError = EIO;
    reports.clear();
    downloader->start(variantOf(4000), host.address(), false);
    awaitEnd(Stage::failed);
    EXPECT_EQ(reports.back().error.rfind("Input/output error", 0), 0U) << reports.back().error;
    EXPECT_EQ(contentOf("m.gguf"), "(missing)");
    EXPECT_EQ(contentOf("m.gguf.part"), "(missing)") << "nobody knows which bytes were lost";

    syncError = 0;
    downloader->start(variantOf(4000), host.address(), false);
    awaitEnd(Stage::done);
    EXPECT_EQ(contentOf("m.gguf"), body);
}

}  // namespace
}  // namespace zepho::test
