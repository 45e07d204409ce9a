#include <cstdlib>
#include <string_view>

#include "core/platform/Languages.h"

namespace zepho {
namespace {

// "zh_TW.UTF-8@radical" becomes "zh-TW"; the locales C and POSIX name no language.
std::string languageTag(std::string_view locale) {
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale == "C" || locale == "POSIX") return {};
    std::string tag(locale);
    for (char& c : tag)
        if (c == '_') c = '-';
    return tag;
}

}  // namespace

std::string preferredLanguage() {
    // LANGUAGE is a list; the others name one locale each, the first that is set decides.
    if (const char* list = std::getenv("LANGUAGE"); list != nullptr) {
        std::string_view rest = list;
        while (!rest.empty()) {
            const std::size_t colon = rest.find(':');
            if (std::string tag = languageTag(rest.substr(0, colon)); !tag.empty()) return tag;
            rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
        }
    }
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"})
        if (const char* value = std::getenv(name); value != nullptr && *value != '\0')
            return languageTag(value);
    return {};
}

}  // namespace zepho
