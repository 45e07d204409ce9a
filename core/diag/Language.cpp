#include "core/diag/Language.h"

#include <memory>
#include <mutex>
#include <unordered_map>

#include "core/diag/MessageTable.h"
#include "core/platform/Languages.h"
#include "core/platform/Require.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

using MessageMap = std::unordered_map<std::string_view, const MessageRow*>;
using OverrideMap = std::unordered_map<std::string_view, const OverrideRow*>;

void addRows(MessageMap& map, std::span<const MessageRow> rows) {
    for (const MessageRow& row : rows)
        require(map.emplace(row.zh, &row).second, "a message key stands twice in its table");
}

// The tables are never destroyed: a thread that nobody joins may look up a text while the program
// ends.
const MessageMap& i18nTable() {
    static const MessageMap& table = *[] {
        auto owned = std::make_unique<MessageMap>();
        MessageMap& map = *owned;
        std::size_t count = 0;
        for (const auto rows : i18nRowGroups()) count += rows.size();
        map.reserve(count);
        for (const auto rows : i18nRowGroups()) addRows(map, rows);
        return owned.release();
    }();
    return table;
}

const MessageMap& macExtra() {
    static const MessageMap& table = *[] {
        auto owned = std::make_unique<MessageMap>();
        MessageMap& map = *owned;
        addRows(map, macExtraRows());
        return owned.release();
    }();
    return table;
}

const MessageMap& windowTable() {
    static const MessageMap& table = *[] {
        auto owned = std::make_unique<MessageMap>();
        MessageMap& map = *owned;
        for (const auto rows : windowRowGroups()) addRows(map, rows);
        return owned.release();
    }();
    return table;
}

const OverrideMap& macOverrides() {
    static const OverrideMap& table = *[] {
        auto owned = std::make_unique<OverrideMap>();
        OverrideMap& map = *owned;
        for (const OverrideRow& row : macOverrideRows())
            require(map.emplace(row.key, &row).second, "an override key stands twice");
        return owned.release();
    }();
    return table;
}

// The row's column for Japanese or English, empty where there is no row.
std::string_view columnOf(const MessageMap& table, std::string_view key, UiLang lang) {
    const auto found = table.find(key);
    if (found == table.end()) return {};
    return lang == UiLang::ja ? found->second->ja : found->second->en;
}

std::mutex langLock;
UiLang storedLang = UiLang::auto_;

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
    const std::lock_guard guard(langLock);
    storedLang = lang;
}

UiLang uiLang() {
    UiLang lang = UiLang::auto_;
    {
        const std::lock_guard guard(langLock);
        lang = storedLang;
    }
    return lang == UiLang::auto_ ? detectFromOS() : lang;
}

UiLang detectFromOS() {
    const std::vector<std::string> preferred = preferredLanguages();
    std::string_view first = preferred.empty() ? std::string_view("en") : preferred.front();
    while (!first.empty() && first.front() == '-') first.remove_prefix(1);
    const std::string language = lowercased(first.substr(0, first.find('-')));
    if (language == "zh") return UiLang::zh;
    if (language == "ja") return UiLang::ja;
    return UiLang::en;
}

std::string T(std::string_view key) {
    const UiLang lang = uiLang();
    const auto replaced = macOverrides().find(key);
    if (replaced != macOverrides().end()) {
        const OverrideRow& row = *replaced->second;
        return std::string(lang == UiLang::zh ? row.zh : lang == UiLang::ja ? row.ja : row.en);
    }
    if (lang == UiLang::zh) return std::string(key);
    for (const MessageMap* table : {&i18nTable(), &macExtra(), &windowTable()})
        if (const std::string_view text = columnOf(*table, key, lang); !text.empty())
            return std::string(text);
    return std::string(key);
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
