#include "core/store/CacheIndexReader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/platform/Files.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

enum class Member { bytes, durationMs, file, language, sampleRate, speed, text, voice, unknown };
// In the order of the enumeration, which is the sorted one.
constexpr std::array<std::string_view, 8> memberNames{
    "bytes", "durationMs", "file", "language", "sampleRate", "speed", "text", "voice"};

std::int64_t wholeNumber(const Json& value, std::int64_t limit) {
    const Json object{{"value", value}};
    return std::clamp<std::int64_t>(jInt(&object, "value", 0), 0, limit);
}

float speedNumber(const Json& value) {
    const Json object{{"value", value}};
    const double speed = jFloat(&object, "value", 1.0);
    return std::fabs(speed) <= indexSpeedLimit ? static_cast<float>(speed) : 1.0F;
}

// A name that stays within the directory and is not the index's own.
bool isClipFileName(const std::string& name) {
    return !name.empty() && name.find('/') == std::string::npos &&
           name.find("..") == std::string::npos && name.find('\0') == std::string::npos &&
           !name.starts_with("index.json") && !isTemporaryName(name);
}

// Takes the records out of the events of the parser, without a tree of the whole file in memory.
class IndexReader : public nlohmann::json_sax<Json> {
public:
    std::vector<CacheRecordPointer> records;

    bool null() override { return scalar(nullptr); }
    bool boolean(bool value) override { return scalar(value); }
    bool number_integer(number_integer_t value) override { return scalar(value); }
    bool number_unsigned(number_unsigned_t value) override { return scalar(value); }
    bool number_float(number_float_t value, const string_t&) override { return scalar(value); }
    bool string(string_t& value) override {
        if (depth == 2) {
            if (std::string* place = textOf(member)) {
                *place = std::move(value);
                return true;
            }
        }
        return scalar(value);
    }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override {
        if (depth == 1) entry = CacheEntry();
        return open();
    }
    bool start_array(std::size_t) override { return depth > 0 && open(); }
    bool key(string_t& name) override {
        if (depth == 1) {
            entryKey = std::move(name);
        } else if (depth == 2) {
            const auto* found = std::find(memberNames.begin(), memberNames.end(), name);
            member = static_cast<Member>(found - memberNames.begin());
        }
        return true;
    }
    bool end_object() override {
        if (--depth == 1 && isClipFileName(entry.fileName))
            records.push_back(std::make_shared<const CacheRecord>(
                CacheRecord{std::move(entryKey), std::move(entry)}));
        return true;
    }
    bool end_array() override {
        --depth;
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return false;
    }

private:
    std::string* textOf(Member wanted) {
        switch (wanted) {
            case Member::file:
                return &entry.fileName;
            case Member::language:
                return &entry.language;
            case Member::text:
                return &entry.text;
            case Member::voice:
                return &entry.voiceId;
            default:
                return nullptr;
        }
    }

    // An object or array that stands for a member reads as null does.
    bool open() {
        if (depth == 2) scalar(nullptr);
        ++depth;
        return true;
    }

    bool scalar(const Json& value) {
        if (depth != 2) return depth > 0;
        if (std::string* place = textOf(member)) *place = jsonText(value);
        if (member == Member::bytes)
            entry.bytes = wholeNumber(value, std::numeric_limits<std::int64_t>::max());
        if (member == Member::durationMs)
            entry.durationMs = wholeNumber(value, std::numeric_limits<std::int64_t>::max());
        if (member == Member::sampleRate)
            entry.sampleRate =
                static_cast<int>(wholeNumber(value, std::numeric_limits<int>::max()));
        if (member == Member::speed) entry.speed = speedNumber(value);
        return true;
    }

    int depth = 0;  // 1 inside the file's object, 2 inside an entry
    Member member = Member::unknown;
    std::string entryKey;
    CacheEntry entry;
};

// Reads the very text that the cache writes, many times faster than a parser of all JSON can. At the
// first byte that is not in that form it gives up, and the parser reads the file from the start.
class OwnFormReader {
public:
    explicit OwnFormReader(std::string_view text) : rest(text) {}

    std::optional<std::vector<CacheRecordPointer>> read() {
        std::vector<CacheRecordPointer> records;
        if (!literal("{")) return std::nullopt;
        do {
            CacheRecord record;
            if (!readRecord(record)) return std::nullopt;
            if (isClipFileName(record.entry.fileName))
                records.push_back(std::make_shared<const CacheRecord>(std::move(record)));
        } while (literal(","));
        if (!literal("\n}") || !rest.empty()) return std::nullopt;
        return records;
    }

private:
    bool readRecord(CacheRecord& record) {
        CacheEntry& entry = record.entry;
        std::int64_t rate = 0;
        const bool read =
            literal("\n  ") && quoted(record.key) && literal(": {\n    \"bytes\": ") &&
            whole(entry.bytes) && literal(",\n    \"durationMs\": ") && whole(entry.durationMs) &&
            literal(",\n    \"file\": ") && quoted(entry.fileName) &&
            literal(",\n    \"language\": ") && quoted(entry.language) &&
            literal(",\n    \"sampleRate\": ") && whole(rate) && literal(",\n    \"speed\": ") &&
            fraction(entry.speed) && literal(",\n    \"text\": ") && quoted(entry.text) &&
            literal(",\n    \"voice\": ") && quoted(entry.voiceId) && literal("\n  }");
        if (!read || rate > std::numeric_limits<int>::max()) return false;
        entry.sampleRate = static_cast<int>(rate);
        return true;
    }

    bool literal(std::string_view expected) {
        if (!rest.starts_with(expected)) return false;
        rest.remove_prefix(expected.size());
        return true;
    }

    bool quoted(std::string& text) {
        if (!literal("\"")) return false;
        bool ascii = true;
        for (;;) {
            std::size_t plain = 0;
            for (; plain < rest.size(); ++plain) {
                const auto byte = static_cast<unsigned char>(rest[plain]);
                if (byte < 0x20 || byte == '"' || byte == '\\') break;
                ascii &= byte < 0x80;
            }
            text.append(rest.substr(0, plain));
            rest.remove_prefix(plain);
            if (literal("\"")) return ascii || isValidUtf8(text);
            // Escapes are rare, and the parser knows them all.
            if (!literal("\\")) return false;
            if (literal("\""))
                text += '"';
            else if (literal("\\"))
                text += '\\';
            else if (literal("n"))
                text += '\n';
            else
                return false;
        }
    }

    // The digits of a number; JSON has no leading zeros.
    std::string_view digits() {
        const std::size_t end = std::min(rest.find_first_not_of("0123456789"), rest.size());
        const std::string_view found = rest.substr(0, end);
        return found.size() > 1 && found.front() == '0' ? std::string_view() : found;
    }

    bool whole(std::int64_t& number) {
        const std::string_view found = digits();
        const char* end = found.data() + found.size();
        const auto [stop, error] = std::from_chars(found.data(), end, number);
        rest.remove_prefix(found.size());
        return error == std::errc() && stop == end;
    }

    bool fraction(float& number) {
        const std::string_view found = digits();
        const std::size_t point = found.size();
        if (found.empty() || point >= rest.size() || rest[point] != '.') return false;
        const std::size_t end =
            std::min(rest.find_first_not_of("0123456789", point + 1), rest.size());
        double value = 0;
        const auto [stop, error] = std::from_chars(rest.data(), rest.data() + end, value);
        if (end == point + 1 || error != std::errc() || stop != rest.data() + end) return false;
        rest.remove_prefix(end);
        number = static_cast<float>(value);
        return value <= indexSpeedLimit;
    }

    std::string_view rest;
};

}  // namespace

std::optional<std::vector<CacheRecordPointer>> readIndexText(std::string_view text) {
    if (auto records = OwnFormReader(text).read()) return records;
    IndexReader reader;
    if (!Json::sax_parse(text.begin(), text.end(), &reader)) return std::nullopt;
    return std::move(reader.records);
}

}  // namespace zepho
