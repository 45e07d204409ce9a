// Stands in for the inference program: the same command line and wire protocol, a tone for a voice.
//
// How it misbehaves stands in the file "fake-s2.conf" of its working directory, lines of key=value,
// read at the start, before each request and while it is idle:
//   start-delay-ms=N   loads that long before it opens its port
//   never-ready=1      never opens its port
//   lives-with=PID     as long as that process runs it does not end by itself; with never-ready
//   port=N             listens there, whatever it was told
//   busy=N             answers 503 to its first N requests
//   delay-ms=N         takes that long for a line
//   status=N, body=…   answers that status and text; the text alone comes with status 200
//   cut=N              closes the connection after so many bytes of an answer
//   hang-up=1          closes the connection without an answer, and lives on
//   ignore-term=1      does not heed SIGTERM
//   grandchild=1       starts a process of its own that does not heed SIGTERM either
//   die-at=start|idle|request   and then
//   die-exit=N, die-signal=N    how
// It writes to its working directory: "fake-s2.report" (what it was started with, key=value; several
// lines of a key are a list), "fake-s2.request" (the last request as it came).
#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Whatever a test forgets ends by itself.
constexpr unsigned lifetimeSeconds = 300;

using Config = std::map<std::string, std::string>;

Config readConfig() {
    Config config;
    std::ifstream file("fake-s2.conf");
    for (std::string line; std::getline(file, line);)
        if (const std::size_t equals = line.find('='); equals != std::string::npos)
            config[line.substr(0, equals)] = line.substr(equals + 1);
    return config;
}

int number(const Config& config, const std::string& key, int fallback = 0) {
    const auto found = config.find(key);
    return found == config.end() ? fallback : std::atoi(found->second.c_str());
}

std::string word(const Config& config, const std::string& key) {
    const auto found = config.find(key);
    return found == config.end() ? std::string() : found->second;
}

// A reader never sees half a file, and another one of these in the same folder is not in the way.
void writeWhole(const std::string& name, const std::string& content) {
    const std::string fresh = name + "." + std::to_string(::getpid());
    {
        std::ofstream file(fresh, std::ios::binary);
        file << content;
    }
    std::filesystem::rename(fresh, name);
}

void sleepMs(int time) {
    std::this_thread::sleep_for(std::chrono::milliseconds(time));
}

[[noreturn]] void die(const Config& config) {
    if (const int signal = number(config, "die-signal"); signal != 0) {
        // No core file, and no sanitizer that turns the signal into an exit code.
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_CORE, &none);
        std::signal(signal, SIG_DFL);
        std::raise(signal);
    }
    ::_exit(number(config, "die-exit"));
}

std::string statusLine(const std::string& key) {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(key + ":"))
            return line.substr(line.find_first_not_of(" \t", key.size() + 1));
    return {};
}

void report(int count, char** words, pid_t grandchild) {
    std::ostringstream text;
    text << "pid=" << ::getpid() << "\npgid=" << ::getpgrp()
         << "\ncwd=" << std::filesystem::current_path().string()
         << "\nblocked=" << statusLine("SigBlk") << "\nignored=" << statusLine("SigIgn") << "\n";
    for (int index = 0; index < count; ++index) text << "arg=" << words[index] << "\n";
    if (grandchild > 0) text << "grandchild=" << grandchild << "\n";
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const auto target = std::filesystem::read_symlink(entry.path(), error).string();
        // The listing's own descriptor.
        if (error || target.find("/proc/") == 0) continue;
        text << "fd=" << entry.path().filename().string() << " " << target << "\n";
    }
    writeWhole("fake-s2.report", text.str());
}

int listenOn(int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket, 16) != 0) {
        std::cerr << "cannot listen on " << port << std::endl;
        ::_exit(70);
    }
    return socket;
}

// One whole request, or nothing where the client hung up.
std::string receive(int client) {
    std::string request;
    std::size_t wanted = std::string::npos;
    char buffer[65536];
    while (request.size() < wanted) {
        const ssize_t got = ::recv(client, buffer, sizeof buffer, 0);
        if (got <= 0) return {};
        request.append(buffer, static_cast<std::size_t>(got));
        const std::size_t head = request.find("\r\n\r\n");
        if (wanted != std::string::npos || head == std::string::npos) continue;
        std::string lower = request.substr(0, head);
        std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
        const std::size_t length = lower.find("content-length:");
        wanted = head + 4;
        if (length != std::string::npos)
            wanted += std::strtoull(lower.c_str() + length + 15, nullptr, 10);
    }
    return request;
}

void answer(int client, int status, const std::string& type, const std::string& body,
            std::size_t limit = std::string::npos) {
    std::string whole = "HTTP/1.1 " + std::to_string(status) + " Fake\r\nContent-Type: " + type +
                        "\r\nContent-Length: " + std::to_string(body.size()) +
                        "\r\nConnection: close\r\n\r\n" + body;
    whole.resize(std::min(whole.size(), limit));
    std::size_t sent = 0;
    while (sent < whole.size()) {
        const ssize_t now = ::send(client, whole.data() + sent, whole.size() - sent, MSG_NOSIGNAL);
        if (now <= 0) return;
        sent += static_cast<std::size_t>(now);
    }
}

void put(std::string& out, std::uint32_t value, int bytes) {
    for (int index = 0; index < bytes; ++index) out += static_cast<char>(value >> (8 * index));
}

// The value of a text part; empty if there is none.
std::string partOf(const std::string& request, const std::string& name) {
    const std::size_t part = request.find("name=\"" + name + "\"\r\n");
    if (part == std::string::npos) return {};
    const std::size_t begin = request.find("\r\n\r\n", part);
    const std::size_t end = request.find("\r\n------ZEPHO", begin);
    if (begin == std::string::npos || end == std::string::npos || end < begin + 4) return {};
    return request.substr(begin + 4, end - begin - 4);
}

// 20 ms of a tone for each byte of the text, mono at 22050 Hz.
std::string tone(const std::string& text) {
    const auto frames = static_cast<std::uint32_t>(441 * std::max<std::size_t>(1, text.size()));
    std::string wav = "RIFF";
    put(wav, 36 + frames * 2, 4);
    wav += "WAVEfmt ";
    put(wav, 16, 4);
    put(wav, 1, 2);
    put(wav, 1, 2);
    put(wav, 22050, 4);
    put(wav, 44100, 4);
    put(wav, 2, 2);
    put(wav, 16, 2);
    wav += "data";
    put(wav, frames * 2, 4);
    for (std::uint32_t index = 0; index < frames; ++index) {
        const double value = std::sin(index * 2 * 3.14159265358979 * 330 / 22050) * 8000;
        put(wav, static_cast<std::uint32_t>(static_cast<std::int32_t>(value)), 2);
    }
    return wav;
}

void serve(int client, int& busyAnswers) {
    const timeval patience{5, 0};
    ::setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const std::string request = receive(client);
    if (request.empty()) return;
    const Config config = readConfig();
    writeWhole("fake-s2.request", request);
    if (word(config, "die-at") == "request") die(config);
    if (number(config, "hang-up") != 0) return;
    if (busyAnswers < number(config, "busy")) {
        ++busyAnswers;
        answer(client, 503, "text/plain", "busy");
        return;
    }
    sleepMs(number(config, "delay-ms"));
    if (config.contains("status") || config.contains("body"))
        answer(client, number(config, "status", 200), "text/plain", word(config, "body"));
    else if (request.starts_with("POST /generate "))
        answer(client, 200, "audio/wav", tone(partOf(request, "text")),
               config.contains("cut") ? static_cast<std::size_t>(number(config, "cut"))
                                      : std::string::npos);
    else
        answer(client, 404, "text/plain", "not here");
}

// A helper that outlives SIGTERM, as a process of its own.
pid_t startGrandchild() {
    const pid_t made = ::fork();
    if (made != 0) return made;
    std::signal(SIGTERM, SIG_IGN);
    ::alarm(lifetimeSeconds);
    for (;;) ::pause();
}

}  // namespace

int main(int count, char** words) {
    const Config config = readConfig();
    ::alarm(lifetimeSeconds);
    const pid_t grandchild = number(config, "grandchild") != 0 ? startGrandchild() : 0;
    report(count, words, grandchild);
    if (number(config, "ignore-term") != 0) std::signal(SIGTERM, SIG_IGN);
    std::cout << "fake-s2 says this on stdout" << std::endl;
    std::cerr << "fake-s2 says this on stderr" << std::endl;
    int port = number(config, "port");
    for (int index = 1; port == 0 && index + 1 < count; ++index)
        if (std::strcmp(words[index], "--port") == 0) port = std::atoi(words[index + 1]);
    sleepMs(number(config, "start-delay-ms"));
    if (word(config, "die-at") == "start") die(config);
    while (number(config, "never-ready") != 0) {
        sleepMs(1000);
        const int keeper = number(config, "lives-with");
        if (keeper > 0 && ::kill(keeper, 0) == 0) ::alarm(lifetimeSeconds);
    }
    const int listener = listenOn(port);
    int busyAnswers = 0;
    for (;;) {
        pollfd waited{listener, POLLIN, 0};
        const bool asked = ::poll(&waited, 1, 20) > 0;
        // Between two lines, too: with enough clients there is no quiet moment.
        if (const Config now = readConfig(); word(now, "die-at") == "idle") die(now);
        if (!asked) continue;
        const int client = ::accept(listener, nullptr, nullptr);
        if (client < 0) continue;
        serve(client, busyAnswers);
        ::close(client);
    }
}
