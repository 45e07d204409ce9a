#include "core/store/OwnIndexReader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>

#include "core/platform/Unicode.h"
#include "core/store/CacheIndexReader.h"
#include "core/store/PlainText.h"

namespace zepho {
namespace {

// No line of ours is longer, but for the texts of a client that is out to make one.
constexpr std::size_t longestLine = std::size_t{64} * 1024;

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

// Takes one part after the other from the front of a text. What fails has taken nothing that
// matters: the caller starts again from where the line began.
class Cursor {
public:
    explicit Cursor(std::string_view text) : from(text.data()), at(from), end(from + text.size()) {}

    [[nodiscard]] std::size_t taken() const { return static_cast<std::size_t>(at - from); }

    template <std::size_t size>
    bool literal(const char (&expected)[size]) {
        constexpr std::size_t length = size - 1;
        if (left() < length || std::memcmp(at, expected, length) != 0) return false;
        at += length;
        return true;
    }

    // The text is a part of what is read, or lies in `spare` if it has an escape.
    bool quoted(std::string_view& text, std::string& spare) {
        if (!literal("\"")) return false;
        std::uint64_t bits = 0;
        const std::size_t plain = plainLength({at, left()}, bits);
        text = {at, plain};
        at += plain;
        if (literal("\"")) return bits < 0x80 || isValidUtf8(text);
        spare = text;
        // Escapes are rare, and the parser of all JSON knows them all.
        while (literal("\\")) {
            if (at == end) return false;
            const char byte = *at++;
            if (byte != '"' && byte != '\\' && byte != 'n') return false;
            spare += byte == 'n' ? '\n' : byte;
            const std::size_t more = plainLength({at, left()}, bits);
            spare.append(at, more);
            at += more;
        }
        text = spare;
        return literal("\"") && isValidUtf8(text);
    }

    bool whole(std::int64_t& number) {
        const char* const start = at;
        if (!digits()) return false;
        const auto [stop, error] = std::from_chars(start, at, number);
        return error == std::errc() && stop == at;
    }

    bool fraction(float& number) {
        const char* const start = at;
        if (!digits() || !literal(".")) return false;
        const char* const point = at;
        while (at != end && isDigit(*at)) ++at;
        double value = 0;
        const auto [stop, error] = std::from_chars(start, at, value);
        if (at == point || error != std::errc() || stop != at) return false;
        number = static_cast<float>(value);
        return value <= indexSpeedLimit;
    }

private:
    [[nodiscard]] std::size_t left() const { return static_cast<std::size_t>(end - at); }

    // JSON has no leading zeros.
    bool digits() {
        const char* const start = at;
        while (at != end && isDigit(*at)) ++at;
        return at != start && (at - start == 1 || *start != '0');
    }

    const char* from;
    const char* at;
    const char* end;
};

bool readLine(Cursor& text, CacheRecord& record, std::array<std::string, 5>& spare) {
    std::int64_t rate = 0;
    const bool read = text.literal("\n  ") && text.quoted(record.key, spare[0]) &&
                      text.literal(": {\n    \"bytes\": ") && text.whole(record.bytes) &&
                      text.literal(",\n    \"durationMs\": ") && text.whole(record.durationMs) &&
                      text.literal(",\n    \"file\": ") && text.quoted(record.fileName, spare[1]) &&
                      text.literal(",\n    \"language\": ") &&
                      text.quoted(record.language, spare[2]) &&
                      text.literal(",\n    \"sampleRate\": ") && text.whole(rate) &&
                      text.literal(",\n    \"speed\": ") && text.fraction(record.speed) &&
                      text.literal(",\n    \"text\": ") && text.quoted(record.text, spare[3]) &&
                      text.literal(",\n    \"voice\": ") && text.quoted(record.voiceId, spare[4]) &&
                      text.literal("\n  }");
    if (!read || rate > std::numeric_limits<int>::max()) return false;
    record.sampleRate = static_cast<int>(rate);
    return true;
}

}  // namespace

bool OwnIndexReader::take(std::string_view piece) {
    window += piece;
    std::size_t done = 0;
    std::array<std::string, 5> spare;
    while (!ended) {
        Cursor text(std::string_view(window).substr(done));
        if (begun && text.literal("\n}")) {
            ended = true;
        } else {
            CacheRecord record;
            const bool opened = begun ? text.literal(",") : text.literal("{");
            if (!opened || !readLine(text, record, spare)) break;
            begun = true;
            if (isClipFileName(record.fileName)) found.add(record);
        }
        done += text.taken();
    }
    window.erase(0, done);
    return ended ? window.empty() : window.size() < longestLine;
}

}  // namespace zepho
