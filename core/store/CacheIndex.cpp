#include "core/store/CacheIndex.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/diag/AppLog.h"
#include "core/platform/Files.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

enum class Member { bytes, durationMs, file, language, sampleRate, speed, text, voice, unknown };
// In the order of the enumeration, which is the sorted one.
constexpr std::array<std::string_view, 8> memberNames{
    "bytes", "durationMs", "file", "language", "sampleRate", "speed", "text", "voice"};

// A speed beyond this is none, and does not fit the form it is written in.
constexpr double speedLimit = 1000;

std::int64_t wholeNumber(const Json& value, std::int64_t limit) {
    const Json object{{"value", value}};
    return std::clamp<std::int64_t>(jInt(&object, "value", 0), 0, limit);
}

float speedNumber(const Json& value) {
    const Json object{{"value", value}};
    const double speed = jFloat(&object, "value", 1.0);
    return std::fabs(speed) <= speedLimit ? static_cast<float>(speed) : 1.0F;
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
        if (depth == 1) entryKey = std::move(name);
        if (depth == 2) {
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

void append(Bytes& to, std::string_view text) {
    to.insert(to.end(), text.begin(), text.end());
}

// Like the JSON library writes a text that is valid UTF-8.
void appendQuoted(Bytes& to, std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    constexpr std::string_view special = "\b\t\n\f\r\"\\";
    constexpr std::string_view letters = "btnfr\"\\";
    to.push_back('"');
    std::size_t done = 0;
    for (std::size_t pos = 0; pos < text.size(); ++pos) {
        const auto byte = static_cast<std::uint8_t>(text[pos]);
        if (byte >= 0x20 && byte != '"' && byte != '\\') continue;
        append(to, text.substr(done, pos - done));
        done = pos + 1;
        to.push_back('\\');
        if (const std::size_t known = special.find(text[pos]); known != std::string_view::npos) {
            to.push_back(static_cast<std::uint8_t>(letters[known]));
        } else {
            append(to, "u00");
            to.push_back(static_cast<std::uint8_t>(digits[byte >> 4]));
            to.push_back(static_cast<std::uint8_t>(digits[byte & 15]));
        }
    }
    append(to, text.substr(done));
    to.push_back('"');
}

// Rounded to three decimals, without needless zeros but the one that makes it a fraction.
std::string speedText(float speed) {
    const double kept = std::fabs(speed) <= speedLimit ? static_cast<double>(speed) : 1.0;
    return Json(std::round(kept * 1000) / 1000).dump();
}

void appendEntry(Bytes& to, const CacheRecord& record) {
    const CacheEntry& entry = record.entry;
    const auto member = [&to](std::string_view lead, std::string_view value) {
        append(to, lead);
        append(to, value);
    };
    const auto text = [&to](std::string_view lead, std::string_view value) {
        append(to, lead);
        appendQuoted(to, value);
    };
    text("\n  ", record.key);
    member(": {\n    \"bytes\": ", std::to_string(entry.bytes));
    member(",\n    \"durationMs\": ", std::to_string(entry.durationMs));
    text(",\n    \"file\": ", entry.fileName);
    text(",\n    \"language\": ", entry.language);
    member(",\n    \"sampleRate\": ", std::to_string(entry.sampleRate));
    member(",\n    \"speed\": ", speedText(entry.speed));
    text(",\n    \"text\": ", entry.text);
    text(",\n    \"voice\": ", entry.voiceId);
    append(to, "\n  }");
}

// A JSON file cannot hold anything else. The clip of such an entry is adopted at the next start.
bool isWritable(const CacheRecordPointer& record) {
    const CacheEntry& entry = record->entry;
    return isValidUtf8(record->key) && isValidUtf8(entry.fileName) && isValidUtf8(entry.voiceId) &&
           isValidUtf8(entry.text) && isValidUtf8(entry.language);
}

}  // namespace

std::optional<std::vector<CacheRecordPointer>> loadCacheIndex(const std::string& path) {
    const std::optional<Bytes> bytes = loadFileBytes(path);
    if (!bytes) return std::nullopt;
    IndexReader reader;
    if (!Json::sax_parse(bytes->begin(), bytes->end(), &reader)) {
        AppLog::warn("cache", "cache index is not valid JSON: " + lastPathComponent(path));
        return std::nullopt;
    }
    return std::move(reader.records);
}

void saveCacheIndex(const std::string& path, std::vector<CacheRecordPointer> records) {
    std::erase_if(records, [](const CacheRecordPointer& record) { return !isWritable(record); });
    std::sort(records.begin(), records.end(),
              [](const auto& left, const auto& right) { return left->key < right->key; });
    constexpr std::size_t pieceSize = 256 * 1024;
    std::size_t written = 0;
    saveFilePieces(path, [&](Bytes& piece) {
        if (records.empty()) {
            append(piece, "{}");
            return false;
        }
        for (; written < records.size() && piece.size() < pieceSize; ++written) {
            append(piece, written == 0 ? "{" : ",");
            appendEntry(piece, *records[written]);
        }
        if (written < records.size()) return true;
        append(piece, "\n}");
        return false;
    });
}

void keepIndexBackup(const std::string& path, const std::string& backupPath) {
    if (!fileExists(path)) return;
    std::error_code error;
    std::filesystem::remove(backupPath, error);
    // The index is only ever replaced as a whole, so a second name for the old file is a copy of
    // it, and costs nothing.
    std::filesystem::create_hard_link(path, backupPath, error);
    if (error) std::filesystem::copy_file(path, backupPath, error);
}

}  // namespace zepho
