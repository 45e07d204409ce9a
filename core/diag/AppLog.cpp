#include "core/diag/AppLog.h"

#include <algorithm>
#include <cstdio>
#include <deque>
#include <mutex>
#include <utility>

#include "core/platform/Files.h"
#include "core/platform/MainThread.h"

namespace zepho {
namespace {

struct LogState {
    // Guards everything below.
    std::mutex lock;
    std::deque<LogEntry> lines;
    std::deque<RequestLog> requests;
    std::size_t maxLines = 2000;
    bool echoToStderr = false;
    AppLog::LineHandler onLine;
    AppLog::RequestHandler onRequest;
};

// Never destroyed: threads may still write while the process ends.
LogState& state() {
    static auto* const made = new LogState;
    return *made;
}

// The ring counts records only: a text of a client may have any length. The rest is given back, too.
void cut(std::string& text) {
    constexpr std::string_view ellipsis = "…";
    if (text.size() <= AppLog::maxTextBytes) return;
    std::size_t end = AppLog::maxTextBytes - ellipsis.size();
    const auto isInsideScalar = [&text](std::size_t pos) {
        return (static_cast<unsigned char>(text[pos]) & 0xC0U) == 0x80;
    };
    for (int back = 0; back < 3 && isInsideScalar(end); ++back) --end;
    std::string kept;
    kept.reserve(end + ellipsis.size());
    kept.append(text, 0, end).append(ellipsis);
    text = std::move(kept);
}

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

template <class Record>
void append(std::deque<Record>& ring, const Record& record, std::size_t cap) {
    ring.push_back(record);
    if (ring.size() > cap)
        ring.erase(ring.begin(), ring.begin() + static_cast<std::ptrdiff_t>(ring.size() - cap));
}

// Schedules the handler on the main thread with a copy of the record.
template <class Handler, class Record>
void notify(Handler handler, Record record) {
    if (!handler) return;
    onMainThread([handler = std::move(handler), record = std::move(record)] { handler(record); });
}

void emit(LogLevel level, std::string_view source, std::string text) {
    cut(text);
    LogEntry entry{Uuid::make(), std::chrono::system_clock::now(), level, std::string(source),
                   std::move(text)};
    AppLog::LineHandler handler;
    bool echo = false;
    {
        const std::lock_guard guard(state().lock);
        append(state().lines, entry, state().maxLines);
        handler = state().onLine;
        echo = state().echoToStderr;
    }
    if (echo) {
        const std::string line = entry.formatted() + "\n";
        std::fwrite(line.data(), 1, line.size(), stderr);
    }
    notify(std::move(handler), std::move(entry));
}

}  // namespace

std::string_view logLevelName(LogLevel level) {
    switch (level) {
        case LogLevel::debug:
            return "DEBUG";
        case LogLevel::info:
            return "INFO";
        case LogLevel::warn:
            return "WARN";
        case LogLevel::error:
            break;
    }
    return "ERROR";
}

std::optional<LogLevel> logLevelFromRaw(int raw) {
    if (raw < 0 || raw > static_cast<int>(LogLevel::error)) return std::nullopt;
    return static_cast<LogLevel>(raw);
}

std::string LogEntry::formatted() const {
    std::string line = formatTimeOfDay(time);
    line.reserve(line.size() + source.size() + text.size() + 12);
    line.append(" [").append(logLevelName(level)).append("] ");
    line.append(source).append(": ").append(text);
    std::replace_if(line.begin(), line.end(), isControl, ' ');
    return line;
}

void AppLog::debug(std::string_view source, std::string text) {
    emit(LogLevel::debug, source, std::move(text));
}

void AppLog::info(std::string_view source, std::string text) {
    emit(LogLevel::info, source, std::move(text));
}

void AppLog::warn(std::string_view source, std::string text) {
    emit(LogLevel::warn, source, std::move(text));
}

void AppLog::error(std::string_view source, std::string text) {
    emit(LogLevel::error, source, std::move(text));
}

void AppLog::request(RequestLog record) {
    for (std::string* text :
         {&record.peer, &record.route, &record.language, &record.voice, &record.note})
        cut(*text);
    RequestHandler handler;
    {
        const std::lock_guard guard(state().lock);
        append(state().requests, record, state().maxLines);
        handler = state().onRequest;
    }
    notify(std::move(handler), std::move(record));
}

std::vector<LogEntry> AppLog::snapshot() {
    const std::lock_guard guard(state().lock);
    return {state().lines.begin(), state().lines.end()};
}

std::vector<RequestLog> AppLog::requestSnapshot() {
    const std::lock_guard guard(state().lock);
    return {state().requests.begin(), state().requests.end()};
}

void AppLog::clear() {
    const std::lock_guard guard(state().lock);
    state().lines.clear();
    state().requests.clear();
}

void AppLog::setLineHandler(LineHandler handler) {
    // The old one goes away after the lock: what it holds may log while it ends.
    const std::lock_guard guard(state().lock);
    state().onLine.swap(handler);
}

void AppLog::setRequestHandler(RequestHandler handler) {
    const std::lock_guard guard(state().lock);
    state().onRequest.swap(handler);
}

void AppLog::save(const std::string& path) {
    std::string text;
    for (const LogEntry& entry : snapshot()) {
        if (!text.empty()) text += '\n';
        text += entry.formatted();
    }
    text += '\n';
    saveFileBytes(path, asBytes(text));
}

void AppLog::setMaxLines(std::size_t count) {
    const std::lock_guard guard(state().lock);
    state().maxLines = count;
}

void AppLog::setEchoToStderr(bool on) {
    const std::lock_guard guard(state().lock);
    state().echoToStderr = on;
}

}  // namespace zepho
