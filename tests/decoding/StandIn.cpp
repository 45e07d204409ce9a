// Stands in for zephon-decode and does what its input says, to try what happens around it.
//
// The first group answers, or fails to, like a helper; the second locks itself in and then does one
// thing that the sandbox forbids. Exit code 50 means that the forbidden thing worked, 51 that it was
// refused with an error.
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/audio/DecoderReply.h"
#include "core/platform/SandboxedProgram.h"

namespace {

constexpr int forbiddenWorked = 50;
constexpr int forbiddenRefused = 51;

bool writeBlock(const std::vector<float>& samples) {
    const auto count = static_cast<std::uint32_t>(samples.size());
    return zepho::writeStandardOutput(&count, sizeof count) &&
           zepho::writeStandardOutput(samples.data(), samples.size() * sizeof(float));
}

void answer(const std::vector<float>& samples, std::uint64_t frames, std::uint32_t rate,
            std::uint32_t form = zepho::decoderReplyForm) {
    const zepho::DecoderReply facts{form, 1, rate, 0, frames};
    if (!writeBlock(samples) || !writeBlock({}) ||
        !zepho::writeStandardOutput(&facts, sizeof facts))
        zepho::endProgram(1);
}

// Open descriptors, signals that are blocked or ignored, words of the environment.
void answerSurroundings() {
    float files = 0;
    for (int i = 0; i < 1024; ++i) files += ::fcntl(i, F_GETFD) >= 0 ? 1 : 0;
    float signals = 0;
    sigset_t blocked;
    ::sigprocmask(SIG_BLOCK, nullptr, &blocked);
    for (int i = 1; i < 32; ++i) {
        struct sigaction action {};
        ::sigaction(i, nullptr, &action);
        signals += ::sigismember(&blocked, i) == 1 || action.sa_handler == SIG_IGN ? 1 : 0;
    }
    float words = 0;
    for (char** word = environ; *word != nullptr; ++word) ++words;
    answer({files, signals, words}, 3, 8000);
}

// Shows itself in `folder`, waits until the test says go, and answers.
void answerWhenTold(const std::filesystem::path& folder) {
    std::ofstream(folder / "here" / std::to_string(::getpid())).put('x');
    while (!std::filesystem::exists(folder / "go"))
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    answer({0.5F}, 1, 8000);
}

void answerNonNumbers() {
    // More than the widest vectors take at a time, and some left over.
    std::vector<float> samples;
    for (int i = 0; i < 25; ++i)
        samples.insert(samples.end(), {0.5F, std::numeric_limits<float>::quiet_NaN(),
                                       -std::numeric_limits<float>::infinity(), 1.5F});
    answer(samples, samples.size(), 8000);
}

void behave(const std::string& order) {
    if (order == "hang") ::pause();
    if (order == "crash") std::raise(SIGSEGV);
    if (order == "fail") zepho::endProgram(9);
    if (order == "other form") answer({0.5F}, 1, 8000, 1);
    if (order == "too few") answer({0.5F}, 2, 8000);
    if (order == "too many") answer({0.5F, 0.5F}, 1, 8000);
    if (order == "large block") answer(std::vector<float>(zepho::decoderBlockSize + 1), 1, 8000);
    if (order == "endless")
        while (writeBlock(std::vector<float>(zepho::decoderBlockSize))) continue;
    if (order == "trickles")
        while (writeBlock({0.5F})) continue;
    if (order == "breaks off") writeBlock({0.5F, 0.5F});
    if (order == "talks on") (answer({0.5F}, 1, 8000), answer({0.5F}, 1, 8000));
    if (order == "too long") answer(std::vector<float>(601), 601, 1);
    if (order == "countless") answer({0.5F}, std::uint64_t{1} << 62, 8000);
    if (order == "wide rate") answer({0.5F}, 1, 0x80000000U);
    if (order == "not finite") answerNonNumbers();
    if (order == "surroundings") answerSurroundings();
    if (order.starts_with("wait in ")) answerWhenTold(order.substr(8));
}

constexpr std::uint64_t mega = 1 << 20;

// The reason is in the exit code; the filter ends the program before there is one.
bool tryForbidden(const std::string& what) {
    if (what == "open") return ::open("/etc/passwd", O_RDONLY) >= 0;
    if (what == "fork") return ::fork() >= 0;
    if (what == "socket") return ::socket(AF_INET, SOCK_STREAM, 0) >= 0;
    if (what == "signal the parent") return ::kill(::getppid(), SIGUSR2) == 0;
    if (what == "write elsewhere") return ::write(STDERR_FILENO, "x", 1) == 1;
    if (what == "map code")
        return ::mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) !=
               MAP_FAILED;
    if (what == "allocate") {
        void* volatile bytes = std::malloc(100 * mega);
        return bytes != nullptr;
    }
    if (what == "write without end") {
        static const char bytes[64 * 1024] = {};
        while (zepho::writeStandardOutput(bytes, sizeof bytes)) continue;
        return false;
    }
    if (what == "spin")
        for (;;) asm volatile("");
    return false;
}

}  // namespace

int main() {
    const auto input = zepho::mapStandardInput();
    const std::string order(reinterpret_cast<const char*>(input.data()), input.size());
    constexpr std::string_view locked = "locked in: ";
    if (!order.starts_with(locked)) {
        behave(order);
        zepho::endProgram(0);
    }
    if (!zepho::enterSandbox({.addressSpace = 96 * mega, .cpuSeconds = 1})) zepho::endProgram(3);
    zepho::endProgram(tryForbidden(order.substr(locked.size())) ? forbiddenWorked
                                                                : forbiddenRefused);
}
