// A child process in a process group of its own.
//
// Held by std::shared_ptr; any thread. One lock makes "does it still live" and "signal it" one step:
// the child stays a zombie, which keeps its number, until the object itself takes its status, and
// no signal is sent after that. So a number that the system has given to somebody else is never hit.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zepho {

enum class ExitCause {
    exited,  // by itself, with an exit code
    illegalInstruction,
    aborted,
    killed,
    busError,
    segmentationFault,
    otherSignal,
};

struct ProcessExit {
    ExitCause cause = ExitCause::exited;
    int number = 0;  // the exit code, or the number of the signal
};

struct ProcessSpec {
    std::string executable;              // its path, also the first word of its command line
    std::vector<std::string> arguments;  // without the program itself
    std::string workingDirectory;        // empty means that of this process
    // Receives stdout and stderr, emptied first. They are dropped where it cannot be opened.
    std::string outputFile;
};

class Process {
public:
    // The child gets the environment, no descriptor but the three standard ones (stdin is empty)
    // and the default action of every signal. Throws std::system_error.
    [[nodiscard]] static std::shared_ptr<Process> spawn(const ProcessSpec& spec);

    explicit Process(std::int32_t pid) : id(pid) {}
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    // Leaves a child that still runs alone, but sees to it that no zombie remains.
    ~Process();

    [[nodiscard]] std::int32_t pid() const { return id; }
    [[nodiscard]] bool running();
    // How it ended; absent while it runs.
    [[nodiscard]] std::optional<ProcessExit> exitStatus();
    // Looks every `poll` for at most `limit`. Whether the child has ended.
    [[nodiscard]] bool waitForExit(std::chrono::milliseconds limit, std::chrono::milliseconds poll);

    // Asks the child, and it alone, to end.
    void terminate();
    // Kills the child and everything in its group.
    void killGroup();

private:
    void look();

    const std::int32_t id;

    std::mutex lock;
    // Guarded by lock; set once, when the child has ended and its status has been taken.
    std::optional<ProcessExit> ended;
};

}  // namespace zepho
