// One large file from loopback through the model downloader, against the `curl` program in the same
// run:
//
//   bench-download [megabytes] [rounds]     1024 and 5; files lie in TMPDIR
//
// The file is sparse and served with sendfile by a process of its own, so that the two clients and
// the disk are what is measured. Expected: hundreds of megabytes a second, not below nine tenths of
// curl's rate (the larger reads make it up to three times that where the cores are shared), with
// less than 30 MB resident; curl has about 11.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/config/ZEPHOPaths.h"
#include "core/platform/FileSize.h"
#include "core/platform/Files.h"
#include "core/platform/PlatformPaths.h"

namespace zepho {
namespace {

constexpr const char* fileName = "bench.gguf";

[[noreturn]] void stop(const char* what) {
    std::perror(what);
    std::exit(1);
}

[[noreturn]] void serve(int listener, int file, std::int64_t size) {
    for (;;) {
        const int peer = ::accept(listener, nullptr, nullptr);
        if (peer < 0) std::_Exit(1);
        std::string head;
        char byte = 0;
        while (!head.ends_with("\r\n\r\n") && ::recv(peer, &byte, 1, 0) == 1) head += byte;
        head = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n";
        bool open = ::send(peer, head.data(), head.size(), MSG_NOSIGNAL) > 0;
        off_t sent = 0;
        while (open && sent < size)
            open = ::sendfile(peer, file, &sent, static_cast<std::size_t>(size - sent)) > 0;
        ::close(peer);
    }
}

class Server {
public:
    Server(const std::string& path, std::int64_t size) {
        const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        if (file < 0 || ::ftruncate(file, size) != 0) stop("the served file");
        const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (::bind(listener, generic, length) != 0 || ::listen(listener, 8) != 0 ||
            ::getsockname(listener, generic, &length) != 0)
            stop("the server");
        host = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        child = ::fork();
        if (child < 0) stop("fork");
        if (child == 0) serve(listener, file, size);
        ::close(listener);
        ::close(file);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server() {
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }
    std::string host;

private:
    pid_t child = -1;
};

struct Run {
    double megabytesPerSecond = 0;
    double cpuSeconds = 0;
    double residentMegabytes = 0;
};

Run measure(std::vector<std::string> words, std::int64_t bytes, const std::string& made) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = -1;
    if (::posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0)
        stop(arguments[0]);
    int status = 0;
    rusage used{};
    if (::wait4(child, &status, 0, &used) != child) stop("wait4");
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || fileSizeOf(made) != bytes) {
        std::fprintf(stderr, "%s has not fetched the file\n", arguments[0]);
        std::exit(1);
    }
    std::filesystem::remove(made);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return {static_cast<double>(bytes) / 1e6 / took.count(),
            seconds(used.ru_utime) + seconds(used.ru_stime),
            static_cast<double>(used.ru_maxrss) / 1024};
}

Run median(std::vector<Run> runs) {
    std::sort(runs.begin(), runs.end(), [](const Run& left, const Run& right) {
        return left.megabytesPerSecond < right.megabytesPerSecond;
    });
    Run middle = runs[runs.size() / 2];
    for (const Run& run : runs)
        middle.residentMegabytes = std::max(middle.residentMegabytes, run.residentMegabytes);
    return middle;
}

int bench(std::int64_t bytes, int rounds) {
    std::string home = (std::filesystem::temp_directory_path() / "bench-download-XXXXXX").string();
    if (::mkdtemp(home.data()) == nullptr) stop("the directory");
    ::setenv("ZEPHO_HOME", home.c_str(), 1);
    ::setenv("no_proxy", "*", 1);
    std::filesystem::create_directories(ZEPHOPaths::modelsDir());
    std::vector<Run> ours;
    std::vector<Run> theirs;
    {
        const Server server(home + "/served", bytes);
        const std::string program = parentDirectory(executablePath()) + "bench-download-client";
        const std::string target = home + "/curl.out";
        for (int round = 0; round < rounds; ++round) {
            theirs.push_back(measure({"curl", "-s", "-o", target, server.host}, bytes, target));
            ours.push_back(measure({program, server.host, fileName, std::to_string(bytes)}, bytes,
                                   ZEPHOPaths::modelsDir() + fileName));
        }
    }
    std::filesystem::remove_all(home);
    const Run curl = median(theirs);
    const Run zephon = median(ours);
    std::printf("%-12s %10s %8s %14s\n", "", "MB/s", "CPU s", "resident MB");
    for (const auto& [name, run] : {std::pair{"curl", curl}, std::pair{"downloader", zephon}})
        std::printf("%-12s %10.0f %8.2f %14.1f\n", name, run.megabytesPerSecond, run.cpuSeconds,
                    run.residentMegabytes);
    std::printf("%.2f times the rate of curl, medians of %d rounds\n",
                zephon.megabytesPerSecond / curl.megabytesPerSecond, rounds);
    return 0;
}

}  // namespace
}  // namespace zepho

int main(int argc, char** argv) {
    const std::int64_t megabytes = argc > 1 ? std::atoll(argv[1]) : 1024;
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 5;
    if (megabytes < 1 || rounds < 1) return 2;
    return zepho::bench(megabytes << 20, rounds);
}
