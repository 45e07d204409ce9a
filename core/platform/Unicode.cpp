#include "core/platform/Unicode.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include <unicode/brkiter.h>
#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include "core/platform/Require.h"

namespace zepho {
namespace {

constexpr char32_t replacement = 0xFFFD;
// ICU counts bytes in 32 bits, and a text may have more: it sees that much at a time.
constexpr std::size_t walkedAtOnce = std::size_t{16} << 20;

bool isAscii(std::string_view text) {
    std::uint64_t any = 0;
    std::size_t pos = 0;
    for (std::uint64_t eight = 0; text.size() - pos >= sizeof eight; pos += sizeof eight) {
        std::memcpy(&eight, text.data() + pos, sizeof eight);
        any |= eight;
    }
    for (; pos < text.size(); ++pos) any |= static_cast<unsigned char>(text[pos]);
    return (any & 0x8080808080808080U) == 0;
}

bool isAsciiSpace(unsigned char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Reads the scalar at `pos` and moves `pos` behind it.
char32_t nextScalar(std::string_view text, std::size_t& pos) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    UChar32 scalar = 0;
    U8_NEXT_OR_FFFD(bytes, pos, text.size(), scalar);
    return static_cast<char32_t>(scalar);
}

// Reads the scalar that ends at `pos` and moves `pos` to its beginning.
char32_t previousScalar(std::string_view text, std::size_t& pos) {
    // ICU counts in 32 bits here; a scalar has at most four bytes.
    const std::size_t from = pos - std::min<std::size_t>(pos, 4);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data()) + from;
    auto end = static_cast<std::int32_t>(pos - from);
    UChar32 scalar = 0;
    U8_PREV_OR_FFFD(bytes, 0, end, scalar);
    pos = from + static_cast<std::size_t>(end);
    return static_cast<char32_t>(scalar);
}

template <class Map>
std::string mapCase(std::string_view text, Map map) {
    if (text.size() > INT32_MAX) return std::string(text);
    std::string result;
    icu::StringByteSink<std::string> sink(&result);
    UErrorCode status = U_ZERO_ERROR;
    map(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())), sink, status);
    return U_SUCCESS(status) ? result : std::string(text);
}

// The break rules for one walk over a text. Opening a break iterator takes milliseconds, copying one
// and using it microseconds, so each thread keeps one; a walk inside a walk takes a copy of its own.
class CharacterBreaks {
public:
    explicit CharacterBreaks(std::string_view text) : breaks(std::move(kept())) {
        if (!breaks) breaks.reset(original().clone());
        UErrorCode status = U_ZERO_ERROR;
        utext_openUTF8(&source, text.data(), static_cast<std::int64_t>(text.size()), &status);
        if (breaks) breaks->setText(&source, status);
        if (!breaks || status == U_MEMORY_ALLOCATION_ERROR) throw std::bad_alloc();
        require(U_SUCCESS(status), "ICU refused a text");
    }
    CharacterBreaks(const CharacterBreaks&) = delete;
    CharacterBreaks& operator=(const CharacterBreaks&) = delete;
    ~CharacterBreaks() {
        utext_close(&source);
        kept() = std::move(breaks);
    }

    // The end of the next character, or icu::BreakIterator::DONE.
    std::int32_t next() { return breaks->next(); }

private:
    static const icu::BreakIterator& original() {
        // Never destroyed: a background thread may cut texts while the process ends.
        static const icu::BreakIterator* const opened = [] {
            UErrorCode status = U_ZERO_ERROR;
            std::unique_ptr<const icu::BreakIterator> made(
                icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
            require(U_SUCCESS(status) && made, "ICU has no character break rules");
            return made.release();
        }();
        return *opened;
    }
    static std::unique_ptr<icu::BreakIterator>& kept() {
        thread_local std::unique_ptr<icu::BreakIterator> idle;
        return idle;
    }

    std::unique_ptr<icu::BreakIterator> breaks;
    UText source = UTEXT_INITIALIZER;
};

// The beginning of `text` that ICU is shown next: all of it, or what ends between two scalars.
std::string_view nextPart(std::string_view text) {
    if (text.size() <= walkedAtOnce) return text;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    std::size_t size = walkedAtOnce;
    U8_TRUNCATE_IF_INCOMPLETE(bytes, 0, size);
    return text.substr(0, size);
}

// Calls `visit` with the bounds of each grapheme until it answers false.
template <class Visit>
void walkGraphemes(std::string_view text, Visit visit) {
    if (isAscii(text)) {
        // CR LF is the one pair of ASCII characters that makes a single grapheme.
        for (std::size_t pos = 0; pos < text.size();) {
            const bool pair = text[pos] == '\r' && pos + 1 < text.size() && text[pos + 1] == '\n';
            const std::size_t next = pos + (pair ? 2 : 1);
            if (!visit(pos, next)) return;
            pos = next;
        }
        return;
    }
    for (std::size_t start = 0; start < text.size();) {
        const std::string_view part = nextPart(text.substr(start));
        const bool isLast = start + part.size() == text.size();
        CharacterBreaks breaks(part);
        std::size_t from = 0;
        for (std::int32_t next = breaks.next(); next != icu::BreakIterator::DONE;
             next = breaks.next()) {
            const auto to = static_cast<std::size_t>(next);
            // What reaches the end of a part may go on behind it: the next part begins with it. What
            // fills a whole part is cut there.
            if (to == part.size() && !isLast && from > 0) break;
            if (!visit(start + from, start + to)) return;
            from = to;
        }
        start += from;
    }
}

}  // namespace

std::string_view trimmedView(std::string_view text) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t next = begin;
        if (!isWhiteSpace(nextScalar(text, next))) break;
        begin = next;
    }
    std::size_t end = text.size();
    while (end > begin) {
        std::size_t before = end;
        if (!isWhiteSpace(previousScalar(text, before))) break;
        end = before;
    }
    return text.substr(begin, end - begin);
}

std::string trimmed(std::string_view text) {
    return std::string(trimmedView(text));
}

std::string lowercased(std::string_view text) {
    if (isAscii(text)) {
        std::string result(text);
        for (char& c : result)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        return result;
    }
    return mapCase(text, [](icu::StringPiece piece, icu::ByteSink& sink, UErrorCode& status) {
        icu::CaseMap::utf8ToLower("", 0, piece, sink, nullptr, status);
    });
}

std::string uppercased(std::string_view text) {
    if (isAscii(text)) {
        std::string result(text);
        for (char& c : result)
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
        return result;
    }
    return mapCase(text, [](icu::StringPiece piece, icu::ByteSink& sink, UErrorCode& status) {
        icu::CaseMap::utf8ToUpper("", 0, piece, sink, nullptr, status);
    });
}

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    if (left == right) return true;
    if (isAscii(left) && isAscii(right) && left.size() != right.size()) return false;
    return lowercased(left) == lowercased(right);
}

void forEachGrapheme(std::string_view text, const std::function<void(const Grapheme&)>& visit) {
    walkGraphemes(text, [&](std::size_t from, std::size_t to) {
        std::size_t pos = from;
        visit({text.substr(from, to - from), nextScalar(text, pos)});
        return true;
    });
}

std::size_t graphemeCount(std::string_view text) {
    std::size_t count = 0;
    walkGraphemes(text, [&](std::size_t, std::size_t) {
        ++count;
        return true;
    });
    return count;
}

std::string graphemePrefix(std::string_view text, std::size_t count) {
    std::size_t taken = 0;
    std::size_t end = 0;
    if (count == 0) return {};
    walkGraphemes(text, [&](std::size_t, std::size_t to) {
        end = to;
        return ++taken < count;
    });
    return std::string(text.substr(0, end));
}

bool isWhiteSpace(char32_t scalar) {
    if (scalar < 0x80) return isAsciiSpace(static_cast<unsigned char>(scalar));
    return u_isUWhiteSpace(static_cast<UChar32>(scalar)) != 0;
}

bool isLetterOrNumber(char32_t scalar) {
    return (U_GET_GC_MASK(static_cast<UChar32>(scalar)) & (U_GC_L_MASK | U_GC_N_MASK)) != 0;
}

bool isValidUtf8(std::string_view text) {
    if (isAscii(text)) return true;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    for (std::size_t pos = 0; pos < text.size();) {
        UChar32 scalar = 0;
        U8_NEXT(bytes, pos, text.size(), scalar);
        if (scalar < 0) return false;
    }
    return true;
}

std::string replaceInvalidUtf8(std::string_view text) {
    if (isValidUtf8(text)) return std::string(text);
    std::string result;
    result.reserve(text.size() + 8);
    for (std::size_t pos = 0; pos < text.size();) {
        const std::size_t from = pos;
        const char32_t scalar = nextScalar(text, pos);
        const std::string_view piece = text.substr(from, pos - from);
        if (scalar == replacement)
            result += "\xEF\xBF\xBD";
        else
            result += piece;
    }
    return result;
}

}  // namespace zepho
