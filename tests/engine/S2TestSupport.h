// A data root with an engine in it that is really tests/tools/FakeS2.cpp, and what tests of the
// supervision ask of it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/engine/S2LocalEngine.h"

namespace zepho::test {

// Looks again and again until it holds; false after half a minute.
bool eventually(const std::function<bool()>& holds);

// Whether the process is there and not a zombie.
bool processLives(int pid);

void writeText(const std::string& path, const std::string& text);
std::string readText(const std::string& path);

// How many log lines contain the text.
int countLogLines(const std::string& text);

// Takes a port of 127.0.0.1 for as long as it lives; refuses connections unless it listens.
class TakenPort {
public:
    // 0 means any. `number()` is 0 if it could not be had.
    explicit TakenPort(int port, bool listens);
    TakenPort(const TakenPort&) = delete;
    TakenPort& operator=(const TakenPort&) = delete;
    ~TakenPort();
    [[nodiscard]] int number() const { return port; }

private:
    int socket;
    int port = 0;
};

// The first of `count` ports in a row that can be had, below those of outgoing connections.
int findFreePorts(int count);

class S2Test : public testing::Test {
protected:
    S2Test();
    ~S2Test() override;

    // The behaviour of the fake from now on; see there.
    void behave(const std::string& lines) const;
    // What the fake that started last tells of its start.
    std::multimap<std::string, std::string> report() const;
    int reportedNumber(const std::string& key) const;
    std::string fakeFile(const std::string& name) const;

    // Starts an engine and waits until it is ready.
    std::unique_ptr<S2LocalEngine> readyEngine(const EngineOptions& options = {}) const;
    static bool waitForState(const S2LocalEngine& engine, S2EngineState state);
    // The code and message that the line is refused with.
    static std::pair<TtsErrorCode, std::string> refusal(S2LocalEngine& engine,
                                                        const std::string& text = "hello");

    std::string root;  // the data root
    S2Tuning tuning;   // short waits, ports of this test's own
};

}  // namespace zepho::test
