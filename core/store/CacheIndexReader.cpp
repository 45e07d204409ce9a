#include "core/store/CacheIndexReader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/platform/Files.h"
#include "core/store/OwnIndexReader.h"

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

// Takes the records out of the events of the parser, without a tree of the whole file in memory.
class IndexReader : public nlohmann::json_sax<Json> {
public:
    CacheRecordList records;

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
            records.add({entryKey, entry.fileName, entry.voiceId, entry.text, entry.language,
                         entry.speed, entry.sampleRate, entry.durationMs, entry.bytes});
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

}  // namespace

bool isClipFileName(std::string_view name) {
    return !name.empty() && name.find('/') == std::string_view::npos &&
           name.find("..") == std::string_view::npos && name.find('\0') == std::string_view::npos &&
           !name.starts_with("index.json") && !isTemporaryName(name);
}

std::optional<std::vector<CacheRecordPointer>> readAnyIndexText(std::string_view text) {
    IndexReader reader;
    if (!Json::sax_parse(text.begin(), text.end(), &reader)) return std::nullopt;
    return reader.records.take();
}

std::optional<std::vector<CacheRecordPointer>> readIndexText(std::string_view text) {
    OwnIndexReader own;
    if (own.take(text) && own.isComplete()) return own.records();
    return readAnyIndexText(text);
}

}  // namespace zepho
