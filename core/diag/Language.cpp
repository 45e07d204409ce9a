#include "core/diag/Language.h"

#include <atomic>
#include <memory>
#include <unordered_map>
#include <unordered_set>

#include "core/diag/MessageTable.h"
#include "core/platform/Languages.h"
#include "core/platform/Require.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

// What a key reads as.
struct Wording {
    std::string_view zh, ja, en;
};
using Wordings = std::unordered_map<std::string_view, Wording>;

// The rows of one table, where no earlier one has a text.
void addTable(Wordings& all, std::span<const std::span<const MessageRow>> groups) {
    std::unordered_set<std::string_view> keys;
    for (const auto rows : groups) {
        for (const MessageRow& row : rows) {
            require(keys.insert(row.zh).second, "a message key stands twice in its table");
            Wording& wording = all.try_emplace(row.zh, Wording{row.zh, {}, {}}).first->second;
            if (wording.ja.empty()) wording.ja = row.ja;
            if (wording.en.empty()) wording.en = row.en;
        }
    }
}

Wordings joinedTables() {
    Wordings all;
    addTable(all, i18nRowGroups());
    const std::span<const MessageRow> extra = macExtraRows();
    addTable(all, {&extra, 1});
    addTable(all, windowRowGroups());
    std::unordered_set<std::string_view> keys;
    for (const OverrideRow& row : macOverrideRows()) {
        require(keys.insert(row.key).second, "an override key stands twice");
        all.insert_or_assign(row.key, Wording{row.zh, row.ja, row.en});
    }
    return all;
}

// Never destroyed: a thread that nobody joins may look up a text while the program ends.
const Wordings& wordings() {
    static const Wordings& joined = *std::make_unique<Wordings>(joinedTables()).release();
    return joined;
}

std::atomic<UiLang> storedLang{UiLang::auto_};

}  // namespace

std::string_view uiLangCode(UiLang lang) {
    switch (lang) {
        case UiLang::zh:
            return "zh";
        case UiLang::ja:
            return "ja";
        case UiLang::en:
            return "en";
        case UiLang::auto_:
            break;
    }
    return "auto";
}

std::string uiLangDisplay(UiLang lang) {
    switch (lang) {
        case UiLang::zh:
            return "中文";
        case UiLang::ja:
            return "日本語";
        case UiLang::en:
            return "English";
        case UiLang::auto_:
            break;
    }
    return T("自动");
}

UiLang uiLangFromCode(std::string_view code) {
    const std::string wanted = lowercased(trimmedView(code));
    for (const UiLang lang : allUiLangs)
        if (wanted == uiLangCode(lang)) return lang;
    return UiLang::auto_;
}

void setUiLang(UiLang lang) {
    storedLang.store(lang);
}

UiLang uiLang() {
    const UiLang lang = storedLang.load();
    return lang == UiLang::auto_ ? detectFromOS() : lang;
}

UiLang detectFromOS() {
    const std::string preferred = preferredLanguage();
    std::string_view first = preferred;
    while (!first.empty() && first.front() == '-') first.remove_prefix(1);
    const std::string language = lowercased(first.substr(0, first.find('-')));
    if (language == "zh") return UiLang::zh;
    if (language == "ja") return UiLang::ja;
    return UiLang::en;
}

std::string T(std::string_view key) {
    const UiLang lang = uiLang();
    const auto found = wordings().find(key);
    if (found == wordings().end()) return std::string(key);
    const auto& [zh, ja, en] = found->second;
    const std::string_view text = lang == UiLang::zh ? zh : lang == UiLang::ja ? ja : en;
    return std::string(text.empty() ? key : text);
}

std::optional<std::string> uiFontName(std::optional<UiLang> lang, FontQuery resolves) {
    static constexpr std::array<std::string_view, 3> chinese{"PingFang SC", "Hiragino Sans GB",
                                                             "Heiti SC"};
    static constexpr std::array<std::string_view, 3> japanese{
        "Hiragino Sans", "Hiragino Kaku Gothic ProN", "YuGothic"};
    const UiLang effective = lang.value_or(uiLang());
    if (resolves == nullptr || effective == UiLang::en || effective == UiLang::auto_)
        return std::nullopt;
    for (const std::string_view name : effective == UiLang::zh ? chinese : japanese)
        if (resolves(name)) return std::string(name);
    return std::nullopt;
}

}  // namespace zepho
