// What tests watch for while other threads and processes go on.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "core/diag/AppLog.h"

namespace zepho::test {

// Looks again and again until it holds; false after half a minute.
inline bool eventually(const std::function<bool()>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// How many log lines contain the text.
inline int countLogLines(const std::string& text) {
    const auto lines = AppLog::snapshot();
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const LogEntry& entry) {
        return entry.formatted().find(text) != std::string::npos;
    }));
}

}  // namespace zepho::test
