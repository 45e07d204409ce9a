#include "core/base/Text.h"

#include <algorithm>
#include <array>

#include "core/base/Constants.h"
#include "core/diag/Language.h"

namespace zepho {
namespace {

struct NamedLanguage {
    std::string_view code;
    std::string_view name;
};

constexpr std::array<NamedLanguage, 28> languages{{
    {"zh", "中文"},      {"ja", "日本語"},     {"en", "English"},    {"ko", "한국어"},
    {"es", "Español"},   {"pt", "Português"},  {"fr", "Français"},   {"de", "Deutsch"},
    {"ru", "Русский"},   {"ar", "العربية"},    {"it", "Italiano"},   {"nl", "Nederlands"},
    {"pl", "Polski"},    {"tr", "Türkçe"},     {"vi", "Tiếng Việt"}, {"th", "ไทย"},
    {"id", "Indonesia"}, {"hi", "हिन्दी"},      {"sv", "Svenska"},    {"da", "Dansk"},
    {"no", "Norsk"},     {"fi", "Suomi"},      {"cs", "Čeština"},    {"el", "Ελληνικά"},
    {"he", "עברית"},     {"uk", "Українська"}, {"ro", "Română"},     {"hu", "Magyar"},
}};

}  // namespace

std::string normLang(std::string_view text) {
    std::string code = lowercased(trimmedView(text));
    const std::size_t hyphen = code.find('-');
    code.resize(std::min(code.size(), hyphen != std::string::npos ? hyphen : code.find('_')));
    if (code == "auto") return {};
    if (code == "cn") code = "zh";
    if (code == "jp") code = "ja";
    if (code == "kr") code = "ko";
    const bool plain =
        std::all_of(code.begin(), code.end(), [](char c) { return c >= 'a' && c <= 'z'; });
    return plain ? code : std::string();
}

std::string normAirline(std::string_view text) {
    return uppercased(trimmedView(text));
}

float clampSpeed(float speed) {
    if (!(speed > 0)) return 1.0F;
    return std::clamp(speed, ZEPHO::speedMin, ZEPHO::speedMax);
}

std::string langDisplay(std::string_view code) {
    std::string normal = normLang(code);
    if (normal.empty()) return T("自动");
    for (const NamedLanguage& language : languages)
        if (language.code == normal) return std::string(language.name);
    return normal;
}

std::string langWithCode(std::string_view code) {
    const std::string normal = normLang(code);
    if (normal.empty()) return T("自动") + " (auto)";
    return langDisplay(normal) + " (" + normal + ")";
}

std::vector<std::string> commonLanguages() {
    std::vector<std::string> codes;
    codes.reserve(languages.size());
    for (const NamedLanguage& language : languages) codes.emplace_back(language.code);
    return codes;
}

}  // namespace zepho
