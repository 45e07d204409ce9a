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

std::vector<std::string> preferredLanguages() {
    std::vector<std::string> tags;
    const auto add = [&tags](std::string_view locale) {
        if (std::string tag = languageTag(locale); !tag.empty()) tags.push_back(std::move(tag));
    };
    // LANGUAGE is a list; the others name one locale each, the first that is set decides.
    if (const char* list = std::getenv("LANGUAGE"); list != nullptr) {
        std::string_view rest = list;
        while (!rest.empty()) {
            const std::size_t colon = rest.find(':');
            add(rest.substr(0, colon));
            rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
        }
    }
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (value == nullptr || *value == '\0') continue;
        add(value);
        break;
    }
    return tags;
}

}  // namespace zepho
