#include "core/store/CacheIndex.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/diag/AppLog.h"
#include "core/platform/Files.h"
#include "core/platform/Unicode.h"
#include "core/store/CacheIndexReader.h"

namespace zepho {
namespace {

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
        appendText(to, text.substr(done, pos - done));
        done = pos + 1;
        to.push_back('\\');
        if (const std::size_t known = special.find(text[pos]); known != std::string_view::npos) {
            to.push_back(static_cast<std::uint8_t>(letters[known]));
        } else {
            appendText(to, "u00");
            to.push_back(static_cast<std::uint8_t>(digits[byte >> 4]));
            to.push_back(static_cast<std::uint8_t>(digits[byte & 15]));
        }
    }
    appendText(to, text.substr(done));
    to.push_back('"');
}

// Rounded to three decimals, without needless zeros but the one that makes it a fraction.
std::string speedText(float speed) {
    const double kept = std::fabs(speed) <= indexSpeedLimit ? static_cast<double>(speed) : 1.0;
    return Json(std::round(kept * 1000) / 1000).dump();
}

void appendEntry(Bytes& to, const CacheRecord& record) {
    const CacheEntry& entry = record.entry;
    const auto member = [&to](std::string_view lead, std::string_view value) {
        appendText(to, lead);
        appendText(to, value);
    };
    const auto text = [&to](std::string_view lead, std::string_view value) {
        appendText(to, lead);
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
    appendText(to, "\n  }");
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
    auto records = readIndexText(asText(*bytes));
    if (!records)
        AppLog::warn("cache", "cache index is not valid JSON: " + lastPathComponent(path));
    return records;
}

void saveCacheIndex(const std::string& path, std::vector<CacheRecordPointer> records) {
    std::erase_if(records, [](const CacheRecordPointer& record) { return !isWritable(record); });
    std::sort(records.begin(), records.end(),
              [](const auto& left, const auto& right) { return left->key < right->key; });
    constexpr std::size_t pieceSize = std::size_t{256} * 1024;
    std::size_t written = 0;
    saveFilePieces(path, [&](Bytes& piece) {
        if (records.empty()) {
            appendText(piece, "{}");
            return false;
        }
        for (; written < records.size() && piece.size() < pieceSize; ++written) {
            appendText(piece, written == 0 ? "{" : ",");
            appendEntry(piece, *records[written]);
        }
        if (written < records.size()) return true;
        appendText(piece, "\n}");
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
