#include "tests/engine/S2TestSupport.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/platform/Files.h"

namespace zepho::test {

bool eventually(const std::function<bool()>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

bool processLives(int pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!std::getline(file, text)) return false;
    const std::size_t name = text.rfind(')');
    return name != std::string::npos && text.size() > name + 2 && text[name + 2] != 'Z' &&
           text[name + 2] != 'X';
}

void writeText(const std::string& path, const std::string& text) {
    saveFileBytes(path, asBytes(text));
}

std::string readText(const std::string& path) {
    const auto bytes = loadFileBytes(path);
    return bytes ? std::string(asText(*bytes)) : std::string();
}

int countLogLines(const std::string& text) {
    const auto lines = AppLog::snapshot();
    return static_cast<int>(
        std::count_if(lines.begin(), lines.end(), [&text](const LogEntry& entry) {
            return entry.formatted().find(text) != std::string::npos;
        }));
}

TakenPort::TakenPort(int wanted, bool listens)
    : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(wanted));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), size) != 0) return;
    if (listens && ::listen(socket, 16) != 0) return;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0)
        port = ntohs(address.sin_port);
}

TakenPort::~TakenPort() {
    ::close(socket);
}

int findFreePorts(int count) {
    std::random_device random;
    for (;;) {
        const int first = 18000 + static_cast<int>(random() % 14000);
        int port = first;
        while (port < first + count && TakenPort(port, false).number() != 0) ++port;
        if (port == first + count) return first;
    }
}

S2Test::S2Test() : root(ZEPHOPaths::dataRoot()) {
    ZEPHOPaths::ensureDirectories();
    std::filesystem::create_symlink(FAKE_S2, root + "engine/s2");
    writeText(root + "models/voice.gguf", "a model");
    writeText(root + "models/tokenizer.json", "{}");
    // One more port than the range, which stays silent unless a test uses it.
    tuning.firstPort = findFreePorts(5);
    tuning.lastPort = tuning.firstPort + 3;
    tuning.ownPort = tuning.firstPort + 4;
    tuning.readyPoll = std::chrono::milliseconds(10);
    tuning.watchPoll = std::chrono::milliseconds(10);
    tuning.busyWait = std::chrono::milliseconds(10);
    // A death shows at once, or on a crowded machine much later.
    tuning.exitGrace = std::chrono::seconds(30);
    AppLog::clear();
}

S2Test::~S2Test() {
    for (const char* below : {"engine", "models", "logs"})
        std::filesystem::remove_all(root + below);
}

void S2Test::behave(const std::string& lines) const {
    writeText(fakeFile("fake-s2.conf"), lines);
}

std::multimap<std::string, std::string> S2Test::report() const {
    std::multimap<std::string, std::string> entries;
    std::istringstream text(readText(fakeFile("fake-s2.report")));
    for (std::string line; std::getline(text, line);)
        if (const std::size_t equals = line.find('='); equals != std::string::npos)
            entries.emplace(line.substr(0, equals), line.substr(equals + 1));
    return entries;
}

int S2Test::reportedNumber(const std::string& key) const {
    const auto entries = report();
    const auto found = entries.find(key);
    return found == entries.end() ? 0 : std::stoi(found->second);
}

std::string S2Test::fakeFile(const std::string& name) const {
    return root + "engine/" + name;
}

std::unique_ptr<S2LocalEngine> S2Test::readyEngine(const EngineOptions& options) const {
    auto engine = std::make_unique<S2LocalEngine>(options, tuning);
    engine->start();
    EXPECT_TRUE(waitForState(*engine, S2EngineState::ready)) << engine->checkHealth().detail;
    return engine;
}

bool S2Test::waitForState(const S2LocalEngine& engine, S2EngineState state) {
    return eventually([&] { return engine.currentState() == state; });
}

std::pair<TtsErrorCode, std::string> S2Test::refusal(S2LocalEngine& engine,
                                                     const std::string& text) {
    S2Params params;
    params.text = text;
    try {
        (void)engine.synthesize(params, VoiceHint());
    } catch (const TtsError& error) {
        return {error.code, error.message};
    }
    return {TtsErrorCode::none, "it was spoken"};
}

}  // namespace zepho::test
