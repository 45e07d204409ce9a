#include <cerrno>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <set>

#include <sys/syscall.h>
#include <unistd.h>

#include "core/platform/Descriptor.h"
#include "core/platform/Files.h"
#include "core/platform/ProcessList.h"

namespace zepho {
namespace {

std::string processFile(std::int32_t pid, const char* name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

std::optional<std::int32_t> wholeNumber(std::string_view text) {
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

struct Stat {
    std::string name;  // the short name that the kernel keeps
    std::int32_t parent = 0;
};

// "12 (a name) S 1 …": the name may hold anything, brackets and blanks included.
std::optional<Stat> statOfProcess(std::int32_t pid) {
    const std::optional<Bytes> bytes = loadFileBytes(processFile(pid, "stat"));
    if (!bytes) return std::nullopt;
    const std::string_view text = asText(*bytes);
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open)
        return std::nullopt;
    if (text.size() < close + 5) return std::nullopt;
    const std::string_view rest = text.substr(close + 4);
    const auto parent = wholeNumber(rest.substr(0, rest.find(' ')));
    if (!parent) return std::nullopt;
    return Stat{std::string(text.substr(open + 1, close - open - 1)), *parent};
}

// By number: the header of glibc 2.36 does not declare these for C++.
int openHandle(std::int32_t pid) {
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

bool killByHandle(int handle) {
    return ::syscall(SYS_pidfd_send_signal, handle, SIGKILL, nullptr, 0) == 0;
}

}  // namespace

std::optional<std::string> programOfProcess(std::int32_t pid) {
    const std::optional<Bytes> bytes = loadFileBytes(processFile(pid, "cmdline"));
    if (!bytes || bytes->empty()) return std::nullopt;
    const std::string_view words = asText(*bytes);
    std::string program(words.substr(0, words.find('\0')));
    if (program.empty()) return std::nullopt;
    return program;
}

std::vector<ProcessEntry> listProcesses() {
    std::vector<ProcessEntry> list;
    std::set<std::int32_t> adopters{1};
    std::error_code error;
    std::filesystem::directory_iterator entry("/proc", error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const auto pid = wholeNumber(entry->path().filename().native());
        if (!pid) continue;
        const std::optional<Stat> stat = statOfProcess(*pid);
        if (!stat) continue;
        if (stat->name == "systemd") adopters.insert(*pid);
        if (std::optional<std::string> program = programOfProcess(*pid))
            list.push_back({*pid, stat->parent, false, std::move(*program)});
    }
    for (ProcessEntry& process : list) process.orphaned = adopters.contains(process.parent);
    return list;
}

std::int32_t ownProcessId() {
    return ::getpid();
}

bool killProcessIf(std::int32_t pid, const std::function<bool(std::string_view program)>& accepts) {
    const Descriptor handle(openHandle(pid));
    if (!handle.isOpen() && errno != ENOSYS) return false;
    const std::optional<std::string> program = programOfProcess(pid);
    bool killed = false;
    if (program && accepts(*program)) {
        // A kernel without such handles leaves the moment between the look and the kill.
        killed = handle.isOpen() ? killByHandle(handle.number()) : ::kill(pid, SIGKILL) == 0;
    }
    return killed;
}

}  // namespace zepho
