// zephon_client.h: a client of the Zephon speech service in one header.
//
// C++17, the standard library and the system's sockets, nothing else; copy the file into your program
// and include it. On Windows link ws2_32 (MSVC does by itself).
//
//     zephon::Client client("http://127.0.0.1:17150");
//     zephon::Line line;
//     line.text = "Flight CA 981 is now boarding at gate 4.";
//     line.airline = "CCA";
//     line.language = "en";
//     if (auto clip = client.speak(line))
//         play(clip.value.wav);                      // the bytes of a WAV file
//     else
//         complain(clip.error.word, clip.error.message);
//
// Errors. Every call returns a Result: a value, or an Error with a code, the HTTP status, the
// service's own word ("bad_voice") and its message. Nothing is thrown but std::bad_alloc.
//
// Time. A call ends after ten minutes (Options::timeout), as an engine may need minutes for a line that
// is not in the cache. Connecting ends after ten seconds. Only the look-up of a host name is the
// system's own and has the system's patience; addresses need none.
//
// Connections. A Client keeps one connection alive between calls. If the service has ended it in the
// meantime, the call connects again, once, and only while no byte of an answer has come. An order to
// clone a voice is not sent twice when it may have arrived the first time.
//
// Threads. One Client serves one thread at a time. Use one per thread: they share nothing.
#pragma once

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <locale>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
// The order matters to Windows.
#include <winsock2.h>
#include <ws2tcpip.h>
#if defined(_MSC_VER)
#pragma comment(lib, "ws2_32")
#endif
#else
#include <cerrno>

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace zephon {

// ---------------------------------------------------------------------------------------------
// Values
// ---------------------------------------------------------------------------------------------

using Bytes = std::vector<std::uint8_t>;

enum class ErrorCode {
    none,
    badArgument,     // the call cannot be made: a wrong address, a speed that is no number
    connectFailed,   // nobody listens there, or the name is unknown
    timedOut,        // the time of Options is over
    connectionLost,  // the connection ended before the answer was whole
    badReply,        // what answers is not this service, or its answer is damaged
    replyTooLarge,   // longer than Options::maxReplyBytes
    refused,         // the service answered with an error; status, word and message tell which
};

struct Error {
    ErrorCode code = ErrorCode::none;
    int status = 0;             // of the HTTP answer; 0 where there was none
    std::string word;           // the service's word for programs, such as "engine_not_connected"
    std::string message;        // a sentence for people
    int retryAfterSeconds = 0;  // with status 429

    explicit operator bool() const { return code != ErrorCode::none; }
};

template <class T>
struct [[nodiscard]] Result {
    T value{};
    Error error;

    [[nodiscard]] bool ok() const { return error.code == ErrorCode::none; }
    explicit operator bool() const { return ok(); }
};

struct Options {
    std::chrono::milliseconds connectTimeout = std::chrono::seconds(10);
    std::chrono::milliseconds timeout = std::chrono::minutes(10);  // of a whole call
    std::size_t maxReplyBytes = std::size_t{1} << 30;
};

// What to speak. Only `text` is needed; what is empty or 0 is left to the service.
struct Line {
    std::string text;
    std::string voice;     // id of a voice; else airline, language and gender choose one
    std::string airline;   // three-letter code
    std::string language;  // "zh", "en", …
    std::string gender;    // "female" or "male"
    std::string style;     // "calm"
    double speed = 1.0;    // 0.5 to 2
    int sampleRate = 0;
    std::int64_t seed = 0;
    bool urgent = false;  // overtakes waiting lines
};

struct Clip {
    bool notModified =
        false;           // the tag that was given still holds; no audio, and only `etag` is set
    Bytes wav;           // a whole WAV file
    std::string etag;    // for the next call with the same line
    std::string engine;  // empty for a line from the cache
    std::string voice;
    int sampleRate = 0;
    std::int64_t durationMs = 0;
    std::int64_t synthMs = 0;
    bool cacheHit = false;
};

struct PrewarmCounts {
    std::int64_t queued = 0;
    std::int64_t cached = 0;  // were there already
    std::int64_t skippedEmpty = 0;
    std::int64_t pending = 0;  // wait now, of this and of earlier orders
};

struct VoiceClip {
    std::string file;
    std::string text;
    std::int64_t durationMs = 0;
};

struct Voice {
    std::string id;
    std::string display;
    std::string kind;  // "cloned" or "profile"
    std::string voiceProfile;
    std::string language;  // empty is automatic
    std::string gender;
    std::string style;
    std::string note;
    std::vector<VoiceClip> clips;
};

// A voice to make of recordings (WAV, MP3 or Ogg Vorbis) and of what is said in them.
struct CloneOrder {
    struct Clip {
        Bytes audio;
        std::string text;
    };
    std::string display;
    std::string language;
    std::string gender;
    std::string style;
    std::string note;
    std::vector<Clip> clips;
};

// From binding ("CCA:zh:female", and "zh:female" of a default) to id of voice.
using Bindings = std::map<std::string, std::string>;

struct Health {
    std::string status;  // "ready" or "degraded"
    std::string version;
    std::string engine;
    std::string engineDetail;
    bool engineReady = false;
    bool placeholder = false;
    std::string engineExe;
    std::string compute;
    std::int64_t voices = 0;
    std::int64_t outputSampleRate = 0;
};

struct Stats {
    std::int64_t total = 0;
    std::int64_t failed = 0;
    std::int64_t cacheHits = 0;
    double cacheHitRate = 0;
    std::int64_t cacheBytes = 0;
    std::int64_t cacheCount = 0;
    std::int64_t queueDepth = 0;
    std::int64_t prewarmPending = 0;
    bool busy = false;
    double p50Ms = 0;
    double p95Ms = 0;
    double realTimeFactor = 0;
    std::string engine;
    bool placeholder = false;
};

struct SelfTest {
    struct Check {
        std::string name;
        bool ok = false;
        std::string detail;
    };
    bool ok = false;
    std::string endpoint;
    std::vector<Check> checks;
    std::string report;  // the same for people
};

// An answer as it came, for what has no function of its own here.
struct Reply {
    int status = 0;
    std::map<std::string, std::string> headers;  // names in lower case
    Bytes body;

    [[nodiscard]] std::string header(const std::string& lowerName) const {
        const auto found = headers.find(lowerName);
        return found == headers.end() ? std::string() : found->second;
    }
    [[nodiscard]] std::string_view text() const {
        return body.empty()
                   ? std::string_view()
                   : std::string_view(reinterpret_cast<const char*>(body.data()), body.size());
    }
};

// ---------------------------------------------------------------------------------------------
// Text formats
// ---------------------------------------------------------------------------------------------

namespace detail {

// Without regard to the locale, which a program may have set.
inline bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
inline char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
inline std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result) c = lowered(c);
    return result;
}
inline std::string_view trimmed(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}
inline int hexValue(char c) {
    if (isDigit(c)) return c - '0';
    const char low = lowered(c);
    return low >= 'a' && low <= 'f' ? low - 'a' + 10 : -1;
}
// Digits only, and not more than a size can hold.
inline bool readSize(std::string_view text, int base, std::size_t& value) {
    if (text.empty() || text.size() > 15) return false;
    std::uint64_t sum = 0;
    for (const char c : text) {
        const int digit = hexValue(c);
        if (digit < 0 || digit >= base) return false;
        sum = sum * static_cast<unsigned>(base) + static_cast<unsigned>(digit);
    }
    if (sum > SIZE_MAX) return false;
    value = static_cast<std::size_t>(sum);
    return true;
}
inline std::string numberText(double value) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << value;
    return out.str();
}

inline std::string percentEncoded(std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
        const char low = lowered(c);
        if (isDigit(c) || (low >= 'a' && low <= 'z') || c == '-' || c == '_' || c == '.' ||
            c == '~') {
            result += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        result += '%';
        result += digits[byte >> 4U];
        result += digits[byte & 15U];
    }
    return result;
}

inline std::string base64(const Bytes& bytes) {
    constexpr std::string_view letters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t left = (std::min<std::size_t>)(3, bytes.size() - i);
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 3; ++j) group = group << 8U | (j < left ? bytes[i + j] : 0U);
        for (std::size_t j = 0; j < 4; ++j)
            text += j <= left ? letters[group >> (18U - 6U * static_cast<unsigned>(j)) & 63U] : '=';
    }
    return text;
}

inline std::string quoted(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string result = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (byte < 0x20) {
            result += "\\u00";
            result += digits[byte >> 4U];
            result += digits[byte & 15U];
        } else {
            result += c;
        }
    }
    return result += '"';
}

// A JSON object, member by member. Texts that are empty are left out unless they are `always` there.
class ObjectText {
public:
    void raw(std::string_view name, std::string_view value) {
        text += text.size() > 1 ? "," : "";
        text += quoted(name);
        text += ':';
        text += value;
    }
    void add(std::string_view name, std::string_view value) {
        if (!value.empty()) always(name, value);
    }
    void always(std::string_view name, std::string_view value) { raw(name, quoted(value)); }
    [[nodiscard]] std::string finish() const { return text + '}'; }

private:
    std::string text = "{";
};

// A JSON value, read strictly: one value and nothing behind it, no name twice in an object, at most
// `maxDepth` levels.
class Json {
public:
    enum class Kind { null, boolean, number, text, array, object };

    Kind kind = Kind::null;
    bool boolean = false;
    double number = 0;
    std::string text;
    std::vector<std::string> names;  // of an object, beside `items`
    std::vector<Json> items;

    // False where the text is no JSON.
    [[nodiscard]] static bool read(std::string_view source, Json& value) {
        Reader reader{source, 0};
        if (!reader.value(value, 0)) return false;
        reader.blanks();
        return reader.at == source.size();
    }
    [[nodiscard]] const Json* find(std::string_view name) const {
        for (std::size_t i = 0; i < names.size(); ++i)
            if (names[i] == name) return &items[i];
        return nullptr;
    }

private:
    static constexpr int maxDepth = 32;

    struct Reader {
        std::string_view source;
        std::size_t at;

        [[nodiscard]] char next() const { return at < source.size() ? source[at] : '\0'; }
        void blanks() {
            while (next() == ' ' || next() == '\t' || next() == '\n' || next() == '\r') ++at;
        }
        bool take(std::string_view word) {
            if (at > source.size() || source.substr(at, word.size()) != word) return false;
            at += word.size();
            return true;
        }
        bool value(Json& result, int depth) {
            if (depth > maxDepth) return false;
            blanks();
            switch (next()) {
                case '{':
                    return object(result, depth);
                case '[':
                    return array(result, depth);
                case '"':
                    result.kind = Kind::text;
                    return string(result.text);
                case 't':
                    result.boolean = true;
                    result.kind = Kind::boolean;
                    return take("true");
                case 'f':
                    result.kind = Kind::boolean;
                    return take("false");
                case 'n':
                    return take("null");
                default:
                    return number(result);
            }
        }
        bool object(Json& result, int depth) {
            result.kind = Kind::object;
            ++at;
            blanks();
            if (take("}")) return true;
            for (;;) {
                blanks();
                std::string name;
                if (next() != '"' || !string(name)) return false;
                blanks();
                if (!take(":")) return false;
                Json item;
                if (!value(item, depth + 1)) return false;
                result.names.push_back(std::move(name));
                result.items.push_back(std::move(item));
                blanks();
                if (take("}")) return allDiffer(result.names);
                if (!take(",")) return false;
            }
        }
        static bool allDiffer(std::vector<std::string> names) {
            std::sort(names.begin(), names.end());
            return std::adjacent_find(names.begin(), names.end()) == names.end();
        }
        bool array(Json& result, int depth) {
            result.kind = Kind::array;
            ++at;
            blanks();
            if (take("]")) return true;
            for (;;) {
                Json item;
                if (!value(item, depth + 1)) return false;
                result.items.push_back(std::move(item));
                blanks();
                if (take("]")) return true;
                if (!take(",")) return false;
            }
        }
        bool string(std::string& result) {
            ++at;
            while (at < source.size()) {
                const char c = source[at++];
                if (c == '"') return true;
                if (static_cast<unsigned char>(c) < 0x20) return false;
                if (c != '\\') {
                    result += c;
                } else if (!escape(result)) {
                    return false;
                }
            }
            return false;
        }
        bool escape(std::string& result) {
            constexpr std::string_view letters = "\"\\/bfnrt";
            constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
            const char c = next();
            ++at;
            if (c == 'u') return codePoint(result);
            const std::size_t which = c == '\0' ? std::string_view::npos : letters.find(c);
            if (which == std::string_view::npos) return false;
            result += meanings[which];
            return true;
        }
        bool unit(std::uint32_t& result) {
            result = 0;
            for (int i = 0; i < 4; ++i, ++at) {
                const int digit = hexValue(next());
                if (digit < 0) return false;
                result = result << 4U | static_cast<std::uint32_t>(digit);
            }
            return true;
        }
        bool codePoint(std::string& result) {
            std::uint32_t code = 0;
            if (!unit(code)) return false;
            if (code >= 0xD800 && code < 0xE000) {
                std::uint32_t low = 0;
                if (code >= 0xDC00 || !take("\\u") || !unit(low) || low < 0xDC00 || low > 0xDFFF)
                    return false;
                code = 0x10000 + ((code - 0xD800) << 10U) + (low - 0xDC00);
            }
            const auto put = [&result](std::uint32_t byte) { result += static_cast<char>(byte); };
            if (code < 0x80) {
                put(code);
            } else if (code < 0x800) {
                put(0xC0U | code >> 6U);
                put(0x80U | (code & 63U));
            } else if (code < 0x10000) {
                put(0xE0U | code >> 12U);
                put(0x80U | (code >> 6U & 63U));
                put(0x80U | (code & 63U));
            } else {
                put(0xF0U | code >> 18U);
                put(0x80U | (code >> 12U & 63U));
                put(0x80U | (code >> 6U & 63U));
                put(0x80U | (code & 63U));
            }
            return true;
        }
        bool digits() {
            if (!isDigit(next())) return false;
            while (isDigit(next())) ++at;
            return true;
        }
        bool number(Json& result) {
            const std::size_t begin = at;
            take("-");
            if (!take("0") && !digits()) return false;
            if (take(".") && !digits()) return false;
            if (take("e") || take("E")) {
                if (!take("+")) take("-");
                if (!digits()) return false;
            }
            result.kind = Kind::number;
            std::istringstream in{std::string(source.substr(begin, at - begin))};
            in.imbue(std::locale::classic());
            return static_cast<bool>(in >> result.number);
        }
    };
};

// Reads the members of an answer, all of which must be there and of the right kind: an answer without
// them comes from somebody else.
class Fields {
public:
    explicit Fields(const Json& object) : source(object) {
        if (source.kind != Json::Kind::object) fault = "no JSON object";
    }

    Fields& read(std::string_view name, std::string& value) {
        if (const Json* field = find(name, Json::Kind::text)) value = field->text;
        return *this;
    }
    Fields& read(std::string_view name, bool& value) {
        if (const Json* field = find(name, Json::Kind::boolean)) value = field->boolean;
        return *this;
    }
    Fields& read(std::string_view name, double& value) {
        if (const Json* field = find(name, Json::Kind::number)) value = field->number;
        return *this;
    }
    Fields& read(std::string_view name, std::int64_t& value) {
        constexpr double limit = 9007199254740992.0;  // up to here every whole number has a double
        const Json* field = find(name, Json::Kind::number);
        if (field == nullptr) return *this;
        if (std::fabs(field->number) <= limit && std::floor(field->number) == field->number)
            value = static_cast<std::int64_t>(field->number);
        else
            fault = "no whole number: " + std::string(name);
        return *this;
    }
    [[nodiscard]] const std::vector<std::string>& names() const { return source.names; }
    [[nodiscard]] const std::vector<Json>& list(std::string_view name) {
        static const std::vector<Json> none;
        const Json* field = find(name, Json::Kind::array);
        return field == nullptr ? none : field->items;
    }
    // Takes over what a part of this answer lacked.
    void add(const Fields& part) {
        if (fault.empty()) fault = part.fault;
    }
    [[nodiscard]] const std::string& missing() const { return fault; }

private:
    const Json* find(std::string_view name, Json::Kind kind) {
        const Json* field = source.find(name);
        if (field != nullptr && field->kind == kind) return field;
        if (fault.empty()) fault = "missing: " + std::string(name);
        return nullptr;
    }

    const Json& source;
    std::string fault;
};

inline std::string lineText(const Line& line) {
    ObjectText text;
    text.always("text", line.text);
    text.add("voice", line.voice);
    text.add("airline", line.airline);
    text.add("language", line.language);
    text.add("gender", line.gender);
    text.add("style", line.style);
    text.raw("speed", numberText(line.speed));
    if (line.sampleRate != 0) text.raw("sample_rate", std::to_string(line.sampleRate));
    if (line.seed != 0) text.raw("seed", std::to_string(line.seed));
    if (line.urgent) text.add("priority", "high");
    return text.finish();
}

// "http://host", "http://host:port", "http://[::1]:port", each with or without "/" at the end.
struct Address {
    std::string host;
    std::string port = "17150";

    [[nodiscard]] static bool read(std::string_view url, Address& address) {
        constexpr std::string_view scheme = "http://";
        if (lowered(url.substr(0, scheme.size())) != scheme) return false;
        url.remove_prefix(scheme.size());
        if (!url.empty() && url.back() == '/') url.remove_suffix(1);
        std::string_view port;
        if (!url.empty() && url.front() == '[') {
            const std::size_t end = url.find(']');
            if (end == std::string_view::npos) return false;
            address.host = url.substr(1, end - 1);
            port = url.substr(end + 1);
        } else {
            const std::size_t colon = url.find(':');
            address.host = url.substr(0, colon);
            if (colon != std::string_view::npos) port = url.substr(colon);
        }
        for (const char c : address.host)
            if (static_cast<unsigned char>(c) <= ' ' || c == '/' || c == '?' || c == '#' ||
                c == '@' || c == '\x7f')
                return false;
        if (!port.empty()) {
            std::size_t number = 0;
            if (port.front() != ':' || !readSize(port.substr(1), 10, number) || number == 0 ||
                number > 65535)
                return false;
            address.port = std::to_string(number);
        }
        return !address.host.empty();
    }
    // As the header Host.
    [[nodiscard]] std::string authority() const {
        const bool bare = host.find(':') == std::string::npos;
        return (bare ? host : "[" + host + "]") + ":" + port;
    }
};

// ---------------------------------------------------------------------------------------------
// Sockets
// ---------------------------------------------------------------------------------------------

using Clock = std::chrono::steady_clock;

#if defined(_WIN32)
using Handle = SOCKET;
constexpr Handle noHandle = INVALID_SOCKET;
constexpr int sendFlags = 0;

inline bool startSockets() {
    static const bool started = [] {
        WSADATA data;
        return ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    return started;
}
inline int lastError() {
    return ::WSAGetLastError();
}
inline bool isLater(int error) {
    return error == WSAEWOULDBLOCK || error == WSAEINPROGRESS;
}
inline bool isInterruption(int error) {
    return error == WSAEINTR;
}
inline void closeHandle(Handle handle) {
    ::closesocket(handle);
}
inline bool prepare(Handle handle) {
    u_long on = 1;
    return ::ioctlsocket(handle, FIONBIO, &on) == 0;
}
inline int portionOf(std::size_t size) {
    return static_cast<int>((std::min)(size, std::size_t{1} << 20));
}
#else
using Handle = int;
constexpr Handle noHandle = -1;
#if defined(MSG_NOSIGNAL)
constexpr int sendFlags = MSG_NOSIGNAL;
#else
constexpr int sendFlags = 0;
#endif

inline bool startSockets() {
    return true;
}
inline int lastError() {
    return errno;
}
inline bool isLater(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINPROGRESS;
}
inline bool isInterruption(int error) {
    return error == EINTR;
}
inline void closeHandle(Handle handle) {
    ::close(handle);
}
inline bool prepare(Handle handle) {
#if defined(SO_NOSIGPIPE)
    const int on = 1;
    ::setsockopt(handle, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
    ::fcntl(handle, F_SETFD, FD_CLOEXEC);
    const int flags = ::fcntl(handle, F_GETFL);
    return flags >= 0 && ::fcntl(handle, F_SETFL, flags | O_NONBLOCK) == 0;
}
inline std::size_t portionOf(std::size_t size) {
    return size;
}
#endif

inline std::string describe(int error) {
    return std::system_category().message(error);
}

enum class Moved { some, end, timeout, failure };

// A socket that never blocks by itself; every wait has a deadline.
class Socket {
public:
    Socket() = default;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    Socket(Socket&& other) noexcept : handle(std::exchange(other.handle, noHandle)) {}
    Socket& operator=(Socket&& other) noexcept {
        std::swap(handle, other.handle);
        return *this;
    }
    ~Socket() { close(); }

    [[nodiscard]] bool isOpen() const { return handle != noHandle; }
    void close() {
        if (isOpen()) closeHandle(std::exchange(handle, noHandle));
    }

    // Tries each address of the host. Not open afterwards: `error` tells why.
    void connect(const Address& address, Clock::time_point deadline, Error& error) {
        close();
        error = Error();
        error.code = ErrorCode::connectFailed;
        if (!startSockets()) {
            error.message = "the system's sockets cannot be used";
            return;
        }
        addrinfo hints{};
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (::getaddrinfo(address.host.c_str(), address.port.c_str(), &hints, &found) != 0) {
            error.message = "unknown host: " + address.host;
            return;
        }
        int left = 0;
        for (const addrinfo* one = found; one != nullptr; one = one->ai_next) ++left;
        for (const addrinfo* one = found; one != nullptr; one = one->ai_next, --left) {
            // One address that swallows everything leaves time to the others.
            const Clock::time_point now = Clock::now();
            connectTo(*one, now + (deadline - now) / left, error);
            if (isOpen()) break;
        }
        ::freeaddrinfo(found);
        if (isOpen())
            error = Error();
        else
            error.message = "cannot connect to " + address.authority() + ": " + error.message;
    }

    Moved send(std::string_view& data, Clock::time_point deadline) {
        for (;;) {
            const auto sent = ::send(handle, data.data(), portionOf(data.size()), sendFlags);
            if (sent > 0) {
                data.remove_prefix(static_cast<std::size_t>(sent));
                return Moved::some;
            }
            const Moved waited = goOn(true, deadline);
            if (waited != Moved::some) return waited;
        }
    }

    // `count` is how many bytes came.
    Moved receive(char* data, std::size_t size, std::size_t& count, Clock::time_point deadline) {
        for (;;) {
            const auto got = ::recv(handle, data, portionOf(size), 0);
            if (got == 0) return Moved::end;
            if (got > 0) {
                count = static_cast<std::size_t>(got);
                return Moved::some;
            }
            const Moved waited = goOn(false, deadline);
            if (waited != Moved::some) return waited;
        }
    }

    // Whether an idle connection has neither ended nor got bytes that nobody asked for.
    [[nodiscard]] bool isQuiet() const {
        char byte = 0;
        return ::recv(handle, &byte, 1, MSG_PEEK) < 0 && isLater(lastError());
    }

private:
    void connectTo(const addrinfo& target, Clock::time_point deadline, Error& error) {
        handle = ::socket(target.ai_family, target.ai_socktype, target.ai_protocol);
        if (!isOpen() || !prepare(handle)) {
            error.message = describe(lastError());
            close();
            return;
        }
        int problem = 0;
        if (::connect(handle, target.ai_addr, static_cast<socklen_t>(target.ai_addrlen)) != 0) {
            problem = lastError();
            // An interrupted connect goes on by itself.
            if (isLater(problem) || isInterruption(problem)) {
                const Moved waited = wait(true, deadline);
                if (waited == Moved::timeout) {
                    error.code = ErrorCode::timedOut;
                    error.message = "no answer in time";
                    close();
                    return;
                }
                socklen_t size = sizeof problem;
                if (::getsockopt(handle, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&problem),
                                 &size) != 0)
                    problem = lastError();
            }
        }
        if (problem != 0) {
            error.code = ErrorCode::connectFailed;
            error.message = describe(problem);
            close();
            return;
        }
        const int on = 1;
        const auto* value = reinterpret_cast<const char*>(&on);
        ::setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, value, sizeof on);
        // A peer that loses its power while a line is spoken is noticed, and what lies between does
        // not forget the connection.
        ::setsockopt(handle, SOL_SOCKET, SO_KEEPALIVE, value, sizeof on);
    }

    // After a call that did nothing: waits where that helps.
    Moved goOn(bool writing, Clock::time_point deadline) {
        const int error = lastError();
        if (isInterruption(error)) return Clock::now() < deadline ? Moved::some : Moved::timeout;
        return isLater(error) ? wait(writing, deadline) : Moved::failure;
    }

    [[nodiscard]] Moved wait(bool writing, Clock::time_point deadline) const {
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - Clock::now() + std::chrono::microseconds(999));
            if (left.count() <= 0) return Moved::timeout;
            const auto patience = static_cast<int>((std::min<std::int64_t>)(left.count(), 3600000));
#if defined(_WIN32)
            fd_set wanted;
            fd_set failed;
            FD_ZERO(&wanted);
            FD_ZERO(&failed);
            FD_SET(handle, &wanted);
            FD_SET(handle, &failed);
            timeval span{patience / 1000, patience % 1000 * 1000};
            const int ready = ::select(0, writing ? nullptr : &wanted, writing ? &wanted : nullptr,
                                       &failed, &span);
#else
            pollfd wanted{handle, static_cast<short>(writing ? POLLOUT : POLLIN), 0};
            const int ready = ::poll(&wanted, 1, patience);
#endif
            if (ready > 0) return Moved::some;
            if (ready < 0 && !isInterruption(lastError())) return Moved::failure;
        }
    }

    Handle handle = noHandle;
};

// ---------------------------------------------------------------------------------------------
// HTTP
// ---------------------------------------------------------------------------------------------

// Reads one answer off a connection. Nothing it is sent makes it keep more than the limits.
class ReplyReader {
public:
    ReplyReader(Socket& connection, std::size_t maxBody, Clock::time_point latest)
        : socket(connection), limit(maxBody), deadline(latest) {}

    [[nodiscard]] bool read(Reply& reply, Error& error) {
        const bool whole = readAll(reply);
        error = fault;
        error.status = reply.status;
        return whole;
    }
    // Whether anything at all has come.
    [[nodiscard]] bool begun() const { return anyByte; }
    // Whether the connection serves for another call.
    [[nodiscard]] bool reusable() const { return keepsAlive && at == received.size(); }

private:
    static constexpr std::size_t maxHead = 65536;
    static constexpr std::size_t maxChunkLine = 4096;
    static constexpr int maxInterim = 8;

    bool fail(ErrorCode code, std::string message) {
        fault.code = code;
        fault.message = std::move(message);
        return false;
    }
    bool garbage(const std::string& what) {
        return fail(ErrorCode::badReply, "the answer is damaged or not of this service: " + what);
    }

    bool fill() {
        if (at == received.size()) {
            received.clear();
            at = 0;
        }
        char portion[32768];
        std::size_t count = 0;
        switch (socket.receive(portion, sizeof portion, count, deadline)) {
            case Moved::some:
                anyByte = true;
                received.append(portion, count);
                return true;
            case Moved::timeout:
                return fail(ErrorCode::timedOut, "no whole answer in time");
            case Moved::end:
            case Moved::failure:
                break;
        }
        return fail(ErrorCode::connectionLost, anyByte ? "the connection ended within the answer"
                                                       : "the connection ended without an answer");
    }
    // A line without its end.
    bool readLine(std::string& line, std::size_t most) {
        std::size_t searched = at;
        for (;;) {
            const std::size_t end = received.find('\n', searched);
            if (end != std::string::npos && end - at <= most) {
                line = received.substr(at, end - at);
                at = end + 1;
                if (!line.empty() && line.back() == '\r') line.pop_back();
                return true;
            }
            if (end != std::string::npos || received.size() - at > most)
                return garbage("a line is too long");
            const std::size_t kept = received.size() - at;
            if (!fill()) return false;
            searched = at + kept;
        }
    }
    bool readBytes(Bytes& target, std::size_t count) {
        while (count > 0) {
            if (at == received.size() && !fill()) return false;
            const std::size_t portion = (std::min)(count, received.size() - at);
            const auto* data = reinterpret_cast<const std::uint8_t*>(received.data()) + at;
            target.insert(target.end(), data, data + portion);
            at += portion;
            count -= portion;
        }
        return true;
    }

    bool readAll(Reply& reply) {
        for (int interim = 0;; ++interim) {
            if (!readHead(reply)) return false;
            if (reply.status >= 200) break;
            if (interim == maxInterim || reply.status == 101) return garbage("no final status");
        }
        if (reply.status == 204 || reply.status == 304) return true;
        const bool chunked = reply.headers.count("transfer-encoding") != 0;
        const bool counted = reply.headers.count("content-length") != 0;
        if (chunked && (counted || lowered(reply.header("transfer-encoding")) != "chunked"))
            return garbage("its framing");
        if (chunked) return readChunks(reply.body);
        // Without a length a cut answer would pass for a whole one.
        std::size_t size = 0;
        if (!counted || !readSize(reply.header("content-length"), 10, size))
            return garbage("its length");
        if (size > limit) return tooLarge();
        // The length is a claim: memory is taken as the bytes come.
        reply.body.reserve((std::min)(size, std::size_t{1} << 20));
        return readBytes(reply.body, size);
    }

    bool tooLarge() {
        return fail(ErrorCode::replyTooLarge,
                    "the answer is longer than " + std::to_string(limit) + " bytes");
    }

    bool readHead(Reply& reply) {
        reply = Reply();
        std::size_t left = maxHead;
        std::string line;
        if (!readLine(line, left)) return false;
        left -= (std::min)(left, line.size() + 1);
        const std::string_view version = std::string_view(line).substr(0, 9);
        if ((version != "HTTP/1.1 " && version != "HTTP/1.0 ") || line.size() < 12 ||
            (line.size() > 12 && line[12] != ' '))
            return garbage("its status line");
        for (const char c : line.substr(9, 3)) {
            if (!isDigit(c)) return garbage("its status line");
            reply.status = reply.status * 10 + (c - '0');
        }
        if (reply.status < 100 || reply.status > 599) return garbage("its status");
        keepsAlive = line[7] == '1';
        for (;;) {
            if (!readLine(line, left)) return false;
            if (line.empty()) break;
            left -= (std::min)(left, line.size() + 1);
            if (!takeHeader(line, reply)) return garbage("a header");
        }
        if (lowered(reply.header("connection")).find("close") != std::string::npos)
            keepsAlive = false;
        return true;
    }
    static bool takeHeader(std::string_view line, Reply& reply) {
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos || colon == 0) return false;
        for (const char c : line.substr(0, colon))
            if (static_cast<unsigned char>(c) <= ' ' || c == '\x7f') return false;
        const std::string name = lowered(line.substr(0, colon));
        const std::string value(trimmed(line.substr(colon + 1)));
        const auto [entry, isNew] = reply.headers.emplace(name, value);
        if (isNew) return true;
        if (name == "content-length" || name == "transfer-encoding") return entry->second == value;
        entry->second += ", " + value;
        return true;
    }

    bool readChunks(Bytes& body) {
        std::string line;
        for (;;) {
            std::size_t size = 0;
            if (!readLine(line, maxChunkLine)) return false;
            if (!readSize(trimmed(std::string_view(line).substr(0, line.find(';'))), 16, size))
                return garbage("the size of a chunk");
            if (size == 0) break;
            if (size > limit - body.size()) return tooLarge();
            if (!readBytes(body, size) || !readLine(line, maxChunkLine)) return false;
            if (!line.empty()) return garbage("the end of a chunk");
        }
        for (std::size_t trailers = 0;; trailers += line.size() + 1) {
            if (trailers > maxHead) return garbage("its trailers");
            if (!readLine(line, maxChunkLine)) return false;
            if (line.empty()) return true;
        }
    }

    Socket& socket;
    const std::size_t limit;
    const Clock::time_point deadline;
    std::string received;  // what came and has not been looked at, from `at` on
    std::size_t at = 0;
    bool anyByte = false;
    bool keepsAlive = false;
    Error fault;
};

inline Error makeError(ErrorCode code, std::string message, int status = 0) {
    Error error;
    error.code = code;
    error.status = status;
    error.message = std::move(message);
    return error;
}

// The error that an answer tells.
inline Error refusal(const Reply& reply) {
    Error error =
        makeError(ErrorCode::refused, "HTTP status " + std::to_string(reply.status), reply.status);
    std::size_t seconds = 0;
    if (readSize(reply.header("retry-after"), 10, seconds) && seconds <= INT_MAX)
        error.retryAfterSeconds = static_cast<int>(seconds);
    Json body;
    if (!Json::read(reply.text(), body)) return error;
    const Json* word = body.find("error");
    const Json* message = body.find("message");
    if (word != nullptr && word->kind == Json::Kind::text) error.word = word->text;
    if (message != nullptr && message->kind == Json::Kind::text && !message->text.empty())
        error.message = message->text;
    return error;
}

}  // namespace detail

// ---------------------------------------------------------------------------------------------
// The client
// ---------------------------------------------------------------------------------------------

class Client {
public:
    // "http://host:port"; without a port it is 17150. A wrong address shows at the first call.
    explicit Client(const std::string& url = "http://127.0.0.1:17150", const Options& wishes = {})
        : options(wishes), urlIsGood(detail::Address::read(url, address)) {}

    // Speaks a line, or takes it from the service's cache. With the `etag` of an earlier clip of the
    // line the audio comes only if it has changed.
    Result<Clip> speak(const Line& line, const std::string& heldTag = {}) {
        Result<Clip> result;
        if (!std::isfinite(line.speed)) {
            result.error = detail::makeError(ErrorCode::badArgument, "the speed is no number");
            return result;
        }
        std::map<std::string, std::string> headers;
        if (!heldTag.empty()) headers["If-None-Match"] = heldTag;
        Result<Reply> reply = request("POST", "/v1/tts", detail::lineText(line), headers);
        result.error = std::move(reply.error);
        if (result.ok()) readClip(std::move(reply.value), !heldTag.empty(), result);
        return result;
    }

    // Orders lines to be spoken into the cache, and returns at once. A single line goes out in the
    // form in which it is spoken, so that what balances on lines finds it, too.
    Result<PrewarmCounts> prewarm(const std::vector<Line>& lines) {
        std::string items;
        for (const Line& line : lines) {
            if (!std::isfinite(line.speed)) {
                Result<PrewarmCounts> result;
                result.error = detail::makeError(ErrorCode::badArgument, "a speed is no number");
                return result;
            }
            items += (items.empty() ? "" : ",") + detail::lineText(line);
        }
        return ask<PrewarmCounts>(
            "POST", "/v1/prewarm", lines.size() == 1 ? items : "{\"items\":[" + items + "]}",
            [](detail::Fields& fields, PrewarmCounts& counts) {
                fields.read("queued", counts.queued).read("cached", counts.cached);
                fields.read("skipped_empty", counts.skippedEmpty).read("pending", counts.pending);
            });
    }

    Result<std::vector<Voice>> voices() {
        return ask<std::vector<Voice>>("GET", "/v1/voices", {},
                                       [](detail::Fields& fields, std::vector<Voice>& list) {
                                           for (const detail::Json& item : fields.list("voices")) {
                                               detail::Fields part(item);
                                               readVoice(part, list.emplace_back());
                                               fields.add(part);
                                           }
                                       });
    }

    // The service may know more voices by one afterwards even if the answer is lost: such an order
    // is never sent a second time.
    Result<Voice> clone(const CloneOrder& order) {
        detail::ObjectText text;
        text.always("display", order.display);
        text.add("language", order.language);
        text.add("gender", order.gender);
        text.add("style", order.style);
        text.add("note", order.note);
        std::string clips;
        for (const CloneOrder::Clip& clip : order.clips) {
            detail::ObjectText one;
            one.always("audio", detail::base64(clip.audio));
            one.always("text", clip.text);
            clips += (clips.empty() ? "" : ",") + one.finish();
        }
        text.raw("clips", "[" + clips + "]");
        return ask<Voice>("POST", "/v1/voices/clone", text.finish(), readVoice, Repeat::never);
    }

    // The voice, its recordings and its bindings. The value is the id.
    Result<std::string> removeVoice(const std::string& id) {
        return ask<std::string>(
            "DELETE", "/v1/voices/" + detail::percentEncoded(id), {},
            [](detail::Fields& fields, std::string& removed) { fields.read("removed", removed); });
    }

    Result<Bindings> bindings() { return askBindings("GET", "/v1/airlines", {}); }
    // Without a language for all languages, without a gender for both; without a voice the binding
    // is removed. The value is all bindings.
    Result<Bindings> bind(const std::string& airline, const std::string& language,
                          const std::string& gender, const std::string& voice) {
        detail::ObjectText text;
        text.always("airline", airline);
        text.add("language", language);
        text.add("gender", gender);
        text.always("voice", voice);
        return askBindings("PUT", "/v1/airlines", text.finish());
    }

    // The voices of lines without an airline.
    Result<Bindings> defaults() { return askBindings("GET", "/v1/defaults", {}); }
    // What is empty stays as it is.
    Result<Bindings> setDefaults(const std::string& language, const std::string& female,
                                 const std::string& male) {
        detail::ObjectText text;
        text.add("language", language);
        text.add("female", female);
        text.add("male", male);
        return askBindings("PUT", "/v1/defaults", text.finish());
    }

    Result<Health> health() {
        return ask<Health>("GET", "/v1/health", {}, [](detail::Fields& fields, Health& health) {
            fields.read("status", health.status).read("version", health.version);
            fields.read("engine", health.engine).read("engine_detail", health.engineDetail);
            fields.read("engine_ready", health.engineReady);
            fields.read("placeholder", health.placeholder).read("engine_exe", health.engineExe);
            fields.read("compute", health.compute).read("voices", health.voices);
            fields.read("output_sample_rate", health.outputSampleRate);
        });
    }

    Result<Stats> stats() {
        return ask<Stats>("GET", "/v1/stats", {}, [](detail::Fields& fields, Stats& stats) {
            fields.read("total", stats.total).read("failed", stats.failed);
            fields.read("cache_hits", stats.cacheHits).read("cache_hit_rate", stats.cacheHitRate);
            fields.read("cache_bytes", stats.cacheBytes).read("cache_count", stats.cacheCount);
            fields.read("queue_depth", stats.queueDepth);
            fields.read("prewarm_pending", stats.prewarmPending).read("busy", stats.busy);
            fields.read("p50_ms", stats.p50Ms).read("p95_ms", stats.p95Ms);
            fields.read("rtf", stats.realTimeFactor).read("engine", stats.engine);
            fields.read("placeholder", stats.placeholder);
        });
    }

    // Speaks a real line. A test that fails is a value, too: see SelfTest::ok.
    Result<SelfTest> selfTest(const Line& line = {}) {
        std::string query;
        const std::pair<const char*, const std::string*> fields[] = {{"text", &line.text},
                                                                     {"language", &line.language},
                                                                     {"gender", &line.gender},
                                                                     {"airline", &line.airline}};
        for (const auto& [name, value] : fields)
            if (!value->empty())
                query += (query.empty() ? "?" : "&") + std::string(name) + "=" +
                         detail::percentEncoded(*value);
        return ask<SelfTest>("GET", "/v1/selftest" + query, {},
                             [](detail::Fields& answer, SelfTest& test) {
                                 answer.read("ok", test.ok).read("endpoint", test.endpoint);
                                 answer.read("report", test.report);
                                 for (const detail::Json& item : answer.list("checks")) {
                                     detail::Fields part(item);
                                     SelfTest::Check& check = test.checks.emplace_back();
                                     part.read("name", check.name).read("ok", check.ok);
                                     part.read("detail", check.detail);
                                     answer.add(part);
                                 }
                             });
    }

    // The last lines of the service's log, 1 to 2000 of them.
    Result<std::string> log(int lines = 200) {
        Result<Reply> reply = request("GET", "/v1/log?lines=" + std::to_string(lines));
        Result<std::string> result;
        result.error = std::move(reply.error);
        if (result.ok() && reply.value.status != 200)
            result.error = detail::refusal(reply.value);
        else if (result.ok())
            result.value = std::string(reply.value.text());
        return result;
    }

    // Removes every finished clip.
    Result<bool> clearCache() {
        return ask<bool>("DELETE", "/v1/cache", {}, [](detail::Fields& fields, bool& cleared) {
            fields.read("cleared", cleared);
        });
    }

    enum class Repeat { whenUnanswered, never };

    // Any call. Every status is a success here; `target` is a path and perhaps a query, escaped.
    Result<Reply> request(const std::string& method, const std::string& target,
                          const std::string& body = {},
                          const std::map<std::string, std::string>& headers = {},
                          Repeat repeat = Repeat::whenUnanswered) {
        Result<Reply> result;
        const std::string head = requestHead(method, target, body, headers);
        if (!urlIsGood || head.empty()) {
            result.error = detail::makeError(
                ErrorCode::badArgument, urlIsGood ? "a line break or blank where none may stand"
                                                  : "not an address of the form http://host:port");
            return result;
        }
        const detail::Clock::time_point deadline = detail::Clock::now() + options.timeout;
        if (socket.isOpen() && !socket.isQuiet()) socket.close();
        const bool kept = socket.isOpen();
        Attempt attempt = exchange(head, body, deadline, result);
        // A kept connection may have ended while it was idle, which shows only now.
        if (kept && result.error.code == ErrorCode::connectionLost && !attempt.answered &&
            (!attempt.delivered || repeat == Repeat::whenUnanswered))
            attempt = exchange(head, body, deadline, result);
        return result;
    }

private:
    struct Attempt {
        bool delivered = false;  // the whole request went out, so it may have been carried out
        bool answered = false;   // a byte of the answer came
    };

    // Empty where a part would break out of its place.
    [[nodiscard]] std::string requestHead(const std::string& method, const std::string& target,
                                          const std::string& body,
                                          const std::map<std::string, std::string>& headers) const {
        const auto isClean = [](std::string_view text, char least) {
            return std::none_of(text.begin(), text.end(), [least](char c) {
                return static_cast<unsigned char>(c) < static_cast<unsigned char>(least) ||
                       c == '\x7f';
            });
        };
        if (method.empty() || target.empty() || !isClean(method, '!') || !isClean(target, '!'))
            return {};
        std::string head = method + " " + target + " HTTP/1.1\r\nHost: " + address.authority();
        for (const auto& [name, value] : headers) {
            if (!isClean(name, '!') || !isClean(value, ' ')) return {};
            head.append("\r\n").append(name).append(": ").append(value);
        }
        if (!body.empty()) head += "\r\nContent-Type: application/json; charset=utf-8";
        head += "\r\nContent-Length: " + std::to_string(body.size());
        return head + "\r\n\r\n";
    }

    Attempt exchange(const std::string& head, const std::string& body,
                     detail::Clock::time_point deadline, Result<Reply>& result) {
        Attempt attempt;
        result = Result<Reply>();
        if (!socket.isOpen()) {
            const auto latest = (std::min)(deadline, detail::Clock::now() + options.connectTimeout);
            socket.connect(address, latest, result.error);
            if (!socket.isOpen()) return attempt;
        }
        attempt.delivered = true;
        for (std::string_view part : {std::string_view(head), std::string_view(body)}) {
            while (!part.empty() && attempt.delivered) {
                const detail::Moved moved = socket.send(part, deadline);
                attempt.delivered = moved == detail::Moved::some;
                if (moved != detail::Moved::timeout) continue;
                socket.close();
                result.error =
                    detail::makeError(ErrorCode::timedOut, "the service takes no request in time");
                return attempt;
            }
        }
        // Even a request that could not be sent to its end may have got its answer: a refusal.
        detail::ReplyReader reader(socket, options.maxReplyBytes, deadline);
        const bool whole = reader.read(result.value, result.error);
        attempt.answered = reader.begun();
        if (!whole) result.value = Reply();
        if (!whole || !attempt.delivered || !reader.reusable()) socket.close();
        return attempt;
    }

    static void readClip(Reply reply, bool tagWasHeld, Result<Clip>& result) {
        Clip& clip = result.value;
        if (reply.status == 304 && tagWasHeld) {
            clip.etag = reply.header("etag");
            clip.notModified = true;
            return;
        }
        if (reply.status != 200) {
            result.error = detail::refusal(reply);
            return;
        }
        const std::string_view bytes = reply.text();
        clip.etag = reply.header("etag");
        clip.engine = reply.header("x-zepho-engine");
        clip.voice = reply.header("x-zepho-voice");
        clip.cacheHit = reply.header("x-zepho-cache") == "hit";
        std::size_t rate = 0;
        std::size_t duration = 0;
        std::size_t synth = 0;
        if (bytes.size() < 12 || bytes.substr(0, 4) != "RIFF" || bytes.substr(8, 4) != "WAVE" ||
            !detail::readSize(reply.header("x-zepho-sample-rate"), 10, rate) || rate > INT_MAX ||
            !detail::readSize(reply.header("x-zepho-duration-ms"), 10, duration) ||
            !detail::readSize(reply.header("x-zepho-synth-ms"), 10, synth)) {
            result.error =
                detail::makeError(ErrorCode::badReply, "the answer is no clip", reply.status);
            clip = Clip();
            return;
        }
        clip.wav = std::move(reply.body);
        clip.sampleRate = static_cast<int>(rate);
        clip.durationMs = static_cast<std::int64_t>(duration);
        clip.synthMs = static_cast<std::int64_t>(synth);
    }

    static void readVoice(detail::Fields& fields, Voice& voice) {
        fields.read("id", voice.id).read("display", voice.display).read("kind", voice.kind);
        fields.read("voice_profile", voice.voiceProfile).read("language", voice.language);
        fields.read("gender", voice.gender).read("style", voice.style).read("note", voice.note);
        for (const detail::Json& item : fields.list("clips")) {
            detail::Fields part(item);
            VoiceClip& clip = voice.clips.emplace_back();
            part.read("file", clip.file).read("text", clip.text);
            part.read("duration_ms", clip.durationMs);
            fields.add(part);
        }
    }

    Result<Bindings> askBindings(const char* method, const char* path, const std::string& body) {
        return ask<Bindings>(method, path, body, [](detail::Fields& fields, Bindings& bindings) {
            for (const std::string& key : fields.names()) fields.read(key, bindings[key]);
        });
    }

    template <class T, class Read>
    Result<T> ask(const char* method, const std::string& target, const std::string& body,
                  const Read& read, Repeat repeat = Repeat::whenUnanswered) {
        const Result<Reply> reply = request(method, target, body, {}, repeat);
        Result<T> result;
        detail::Json json;
        if (!readJson(reply, json, result.error)) return result;
        detail::Fields fields(json);
        read(fields, result.value);
        if (fields.missing().empty()) return result;
        result.value = T();
        result.error = detail::makeError(ErrorCode::badReply,
                                         "the answer is not of this service: " + fields.missing(),
                                         reply.value.status);
        return result;
    }

    // The object of a good answer. A failed self test is one, too, though its status is 503.
    static bool readJson(const Result<Reply>& reply, detail::Json& json, Error& error) {
        error = reply.error;
        if (error) return false;
        const int status = reply.value.status;
        const bool isObject =
            detail::Json::read(reply.value.text(), json) && json.kind == detail::Json::Kind::object;
        const bool isTest = status == 503 && isObject && json.find("checks") != nullptr;
        if (status != 200 && status != 202 && !isTest)
            error = detail::refusal(reply.value);
        else if (!isObject)
            error = detail::makeError(ErrorCode::badReply, "the answer is no JSON object", status);
        return !error;
    }

    const Options options;
    detail::Address address;
    const bool urlIsGood;
    detail::Socket socket;
};

}  // namespace zephon
