// What a service manager hears.
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "core/platform/ServiceNotify.h"
#include "tests/support/TempDir.h"

namespace zepho::test {
namespace {

class Manager {
public:
    explicit Manager(const std::string& path)
        : fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.data(), path.size());
        if (path.front() == '@') address.sun_path[0] = '\0';
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
        EXPECT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), length), 0);
    }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;
    ~Manager() { ::close(fd); }

    // What has come, "" for nothing.
    [[nodiscard]] std::string heard() const {
        char text[64];
        const ssize_t count = ::recv(fd, text, sizeof text, 0);
        return count < 0 ? std::string() : std::string(text, static_cast<std::size_t>(count));
    }

private:
    const int fd;
};

TEST(ServiceNotifyTest, TellsTheManagerThatIsNamedAndNobodyElse) {
    const TempDir root;
    for (const std::string& path :
         {root.path() + "/notify", "@zephon-test-" + std::to_string(::getpid())}) {
        const Manager manager(path);
        ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
        notifyServiceManager(ServiceState::ready);
        EXPECT_EQ(manager.heard(), "READY=1");
        notifyServiceManager(ServiceState::stopping);
        EXPECT_EQ(manager.heard(), "STOPPING=1");
        // Not a path, too long, nobody there, none at all: nothing happens.
        for (const std::string& bad :
             {std::string("nothing"), "/" + std::string(200, 'x'), root.path() + "/none"}) {
            ::setenv("NOTIFY_SOCKET", bad.c_str(), 1);
            notifyServiceManager(ServiceState::ready);
        }
        ::unsetenv("NOTIFY_SOCKET");
        notifyServiceManager(ServiceState::ready);
        EXPECT_EQ(manager.heard(), "");
    }
}

}  // namespace
}  // namespace zepho::test
