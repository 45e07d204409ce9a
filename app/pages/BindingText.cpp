#include "app/pages/BindingText.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "core/base/Text.h"
#include "core/config/BindingKeys.h"
#include "core/diag/Language.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

using Words = std::vector<std::string_view>;

const Words titleWords{"airline", "航司", "航空会社"};
const Words automaticWords{"", "auto", "自动", "自動"};
const Words anyGenderWords{"", "default", "any", "auto", "默认", "既定", "自动", "自動"};
const Words femaleWords{"female", "f", "woman", "女", "女声", "女性"};
const Words maleWords{"male", "m", "man", "男", "男声", "男性"};

bool isOneOf(std::string_view word, const Words& words) {
    return std::any_of(words.begin(), words.end(), [&](std::string_view candidate) {
        return equalsIgnoringCase(word, candidate);
    });
}

// Cells must not break the line that they stand in.
std::string cell(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\t' || c == '\n' || c == '\r'; }, ' ');
    return text;
}

std::vector<std::string_view> splitAt(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (;;) {
        const std::size_t end = text.find(separator);
        pieces.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return pieces;
        text.remove_prefix(end + 1);
    }
}

std::vector<std::string> cellsOf(std::string_view line) {
    char separator = '\t';
    for (const char candidate : {'\t', ';', ','}) {
        if (line.find(candidate) == std::string_view::npos) continue;
        separator = candidate;
        break;
    }
    std::vector<std::string> cells;
    for (std::string_view piece : splitAt(line, separator)) {
        piece = trimmedView(piece);
        // As spreadsheets write a cell with a separator in it.
        if (piece.size() >= 2 && piece.front() == '"' && piece.back() == '"')
            piece = trimmedView(piece.substr(1, piece.size() - 2));
        cells.emplace_back(piece);
    }
    return cells;
}

std::optional<std::string> languageOf(const std::string& word) {
    if (isOneOf(word, automaticWords) || equalsIgnoringCase(word, langWithCode(""))) return "";
    for (const std::string& code : commonLanguages())
        if (equalsIgnoringCase(word, langDisplay(code)) ||
            equalsIgnoringCase(word, langWithCode(code)))
            return code;
    std::string code = normLang(word);
    if (code.empty()) return std::nullopt;
    return code;
}

std::optional<TtsGender> genderOf(const std::string& word) {
    if (isOneOf(word, anyGenderWords)) return TtsGender::auto_;
    if (isOneOf(word, femaleWords)) return TtsGender::female;
    if (isOneOf(word, maleWords)) return TtsGender::male;
    return std::nullopt;
}

const VoiceInfo* voiceOf(const std::string& name, const std::string& id,
                         const std::vector<VoiceInfo>& voices) {
    // The id means exactly one voice; a name may serve for several, and another machine's ids for none.
    for (const std::string& wanted : {id, name})
        for (const VoiceInfo& voice : voices)
            if (!wanted.empty() && equalsIgnoringCase(voice.id, wanted)) return &voice;
    for (const VoiceInfo& voice : voices)
        if (!name.empty() && equalsIgnoringCase(trimmedView(voice.display), name)) return &voice;
    return nullptr;
}

// The row of one line, or a sentence that tells what is wrong with it.
std::pair<std::optional<BindingRow>, std::string> readLine(const std::vector<std::string>& cells,
                                                           const std::vector<VoiceInfo>& voices) {
    const auto wrong = [](std::string why) {
        return std::pair(std::optional<BindingRow>(), std::move(why));
    };
    if (cells.size() < 4) return wrong(T("至少要四列:航司、语言、性别、音色。"));
    BindingRow row;
    row.airline = normAirline(cells[0]);
    if (row.airline.empty()) return wrong(T("没写航司代码。"));
    if (row.airline.find(':') != std::string::npos) return wrong(T("航司代码里不能有冒号。"));
    const std::optional<std::string> language = languageOf(cells[1]);
    if (!language) return wrong(TF("认不出这个语言:%@", cells[1]));
    row.language = *language;
    const std::optional<TtsGender> gender = genderOf(cells[2]);
    if (!gender) return wrong(TF("认不出这个性别:%@", cells[2]));
    row.gender = *gender;
    const VoiceInfo* const voice =
        voiceOf(cells[3], cells.size() > 4 ? cells[4] : std::string(), voices);
    if (voice == nullptr) return wrong(TF("音色库里没有这个音色:%@", cells[3]));
    row.voiceId = voice->id;
    row.voiceName = voice->display;
    row.id = airlineKey(row.airline, row.language, row.gender);
    return {row, {}};
}

}  // namespace

std::string bindingsToText(const std::vector<BindingRow>& rows) {
    std::string text;
    for (const BindingRow& row : rows) {
        const std::string language = row.language.empty() ? "auto" : row.language;
        text += cell(row.airline) + "\t" + cell(language) + "\t" +
                std::string(ttsGenderCode(row.gender)) + "\t" + cell(row.voiceName) + "\t" +
                cell(row.voiceId) + "\n";
    }
    return text;
}

BindingsRead bindingsFromText(std::string_view text, const std::vector<VoiceInfo>& voices) {
    BindingsRead read;
    int number = 0;
    for (const std::string_view line : splitAt(text, '\n')) {
        ++number;
        if (trimmedView(line).empty()) continue;
        const std::vector<std::string> cells = cellsOf(line);
        if (read.rows.empty() && read.errors.empty() && isOneOf(cells.front(), titleWords))
            continue;
        auto [row, error] = readLine(cells, voices);
        if (!row) {
            read.errors.push_back(TF("第 %d 行:", number) + error);
            continue;
        }
        std::erase_if(read.rows,
                      [&, &key = row->id](const BindingRow& other) { return other.id == key; });
        read.rows.push_back(std::move(*row));
    }
    return read;
}

}  // namespace zepho
