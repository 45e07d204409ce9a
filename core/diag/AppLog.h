// The one diagnostic facade of the core: free text lines and finished synthesis requests.
//
// Two rings in memory keep the newest `maxLines` records each; a handler, if set, gets every new
// record later on the main thread. All operations may be called from any thread: one lock guards
// the rings and handlers, and is never held across a handler, a write or a file operation. Texts are
// plain English and are not translated, but may quote what a client has sent: what is kept of each is
// cut at `maxTextBytes`, which ends in an ellipsis then. There is no log file and no level threshold.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/platform/Clock.h"
#include "core/platform/Uuid.h"

namespace zepho {

enum class LogLevel { debug = 0, info = 1, warn = 2, error = 3 };

std::string_view logLevelName(LogLevel level);  // "DEBUG", "INFO", "WARN", "ERROR"
std::optional<LogLevel> logLevelFromRaw(int raw);

struct LogEntry {
    Uuid id;
    WallTime time;
    LogLevel level = LogLevel::info;
    std::string source;  // short lower-case word of the writer: "http", "cache", "s2", …
    std::string text;    // without a trailing new line

    // "HH:mm:ss.SSS [LEVEL] source: text", local time. One line whatever the text holds: control
    // characters appear as blanks, so that nobody's text can pass for an entry of its own.
    [[nodiscard]] std::string formatted() const;
};

// One finished HTTP synthesis call. Times and lengths are in milliseconds.
struct RequestLog {
    Uuid id;
    WallTime time;
    std::string peer;
    std::string route;
    std::string language;
    std::string voice;
    float speed = 1.0F;
    int status = 0;
    std::int64_t elapsedMs = 0;
    std::int64_t audioMs = 0;
    bool cacheHit = false;
    std::string note;
};

class AppLog {
public:
    static constexpr std::size_t maxTextBytes = 4096;

    using LineHandler = std::function<void(const LogEntry&)>;
    using RequestHandler = std::function<void(const RequestLog&)>;

    static void debug(std::string_view source, std::string text);
    static void info(std::string_view source, std::string text);
    static void warn(std::string_view source, std::string text);
    static void error(std::string_view source, std::string text);
    static void request(RequestLog record);

    // Copies, oldest first.
    static std::vector<LogEntry> snapshot();
    static std::vector<RequestLog> requestSnapshot();

    // Empties both rings. Handlers are not told.
    static void clear();

    // Replaces a handler; an empty one detaches. A record scheduled before may still arrive.
    static void setLineHandler(LineHandler handler);
    static void setRequestHandler(RequestHandler handler);

    // Writes the lines as text, atomically. Throws std::system_error; the rings stay as they are.
    static void save(const std::string& path);

    // The cap of each ring, 2000 at first; a lower one takes effect at the next record.
    static void setMaxLines(std::size_t count);
    // Off at first; for use on a command line.
    static void setEchoToStderr(bool on);
};

}  // namespace zepho
