#include "core/store/IndexLine.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "core/platform/Unicode.h"
#include "core/store/CacheIndexReader.h"
#include "core/store/PlainText.h"

namespace zepho {
namespace {

// What a line needs besides its texts, and what a byte of a text needs at most.
constexpr std::size_t frameSize = 512;
constexpr std::size_t byteSize = 6;

// Writes into memory that has room for all of the line.
class LineWriter {
public:
    explicit LineWriter(std::uint8_t* memory) : at(reinterpret_cast<char*>(memory)) {}

    [[nodiscard]] const char* end() const { return at; }
    [[nodiscard]] bool isText() const { return valid; }

    template <std::size_t size>
    LineWriter& literal(const char (&text)[size]) {
        std::memcpy(at, text, size - 1);
        at += size - 1;
        return *this;
    }

    LineWriter& character(char byte) {
        *at++ = byte;
        return *this;
    }

    LineWriter& number(std::int64_t value) {
        constexpr std::ptrdiff_t most = 20;
        at = std::to_chars(at, at + most, value).ptr;
        return *this;
    }

    LineWriter& quoted(std::string_view text) {
        character('"');
        std::uint64_t bits = 0;
        for (std::string_view rest = text;;) {
            const std::size_t plain = plainLength(rest, bits);
            if (plain > 0) std::memcpy(at, rest.data(), plain);
            at += plain;
            if (plain == rest.size()) break;
            escape(static_cast<std::uint8_t>(rest[plain]));
            rest.remove_prefix(plain + 1);
        }
        if (bits >= 0x80 && !isValidUtf8(text)) valid = false;
        return character('"');
    }

    // Rounded to three decimals, without needless zeros but the one that makes it a fraction.
    LineWriter& fraction(float value) {
        const double kept = std::fabs(value) <= indexSpeedLimit ? static_cast<double>(value) : 1.0;
        const double rounded = std::round(kept * 1000);
        if (std::signbit(rounded)) character('-');
        const auto thousandths = static_cast<int>(std::fabs(rounded));
        number(thousandths / 1000).character('.');
        int rest = thousandths % 1000;
        for (int digit = 100; digit == 100 || rest != 0; digit /= 10) {
            character(static_cast<char>('0' + rest / digit));
            rest %= digit;
        }
        return *this;
    }

private:
    void escape(std::uint8_t byte) {
        constexpr std::string_view special = "\b\t\n\f\r\"\\";
        constexpr std::string_view letters = "btnfr\"\\";
        constexpr std::string_view digits = "0123456789abcdef";
        character('\\');
        const std::size_t known = special.find(static_cast<char>(byte));
        if (known != std::string_view::npos)
            character(letters[known]);
        else
            literal("u00").character(digits[byte >> 4]).character(digits[byte & 15]);
    }

    char* at;
    bool valid = true;
};

}  // namespace

bool appendIndexLine(Bytes& to, const CacheRecord& record, char lead) {
    const std::size_t texts = record.key.size() + record.fileName.size() + record.voiceId.size() +
                              record.text.size() + record.language.size();
    const std::size_t from = to.size();
    to.resize(from + frameSize + byteSize * texts);
    LineWriter line(to.data() + from);
    line.character(lead).literal("\n  ").quoted(record.key);
    line.literal(": {\n    \"bytes\": ").number(record.bytes);
    line.literal(",\n    \"durationMs\": ").number(record.durationMs);
    line.literal(",\n    \"file\": ").quoted(record.fileName);
    line.literal(",\n    \"language\": ").quoted(record.language);
    line.literal(",\n    \"sampleRate\": ").number(record.sampleRate);
    line.literal(",\n    \"speed\": ").fraction(record.speed);
    line.literal(",\n    \"text\": ").quoted(record.text);
    line.literal(",\n    \"voice\": ").quoted(record.voiceId).literal("\n  }");
    const std::uint8_t* const end = reinterpret_cast<const std::uint8_t*>(line.end());
    to.resize(line.isText() ? static_cast<std::size_t>(end - to.data()) : from);
    return line.isText();
}

}  // namespace zepho
