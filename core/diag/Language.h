// The interface language and the look-up of every text that a person reads.
//
// The Chinese text at the point of use is the key of its row; T() turns it into the current
// language. All functions may be called from any thread. The tables are immutable; the setting is
// the only state. Nothing here can fail: a key without a row comes back as it is.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "core/diag/FormatText.h"

namespace zepho {

enum class UiLang { auto_, zh, ja, en };

// The order of the language picker.
inline constexpr std::array allUiLangs{UiLang::auto_, UiLang::zh, UiLang::ja, UiLang::en};

// "auto", "zh", "ja", "en": the form in the configuration.
std::string_view uiLangCode(UiLang lang);
// The name shown to people: the language's own, and "Auto" in the current language.
std::string uiLangDisplay(UiLang lang);
// Trimmed and without regard to case; anything unknown is auto_.
UiLang uiLangFromCode(std::string_view code);

// Stores the setting; nothing is persisted here.
void setUiLang(UiLang lang);
// The effective language: the setting, or what the desktop prefers. Never auto_.
UiLang uiLang();
// zh, ja or en by the first of the user's preferred languages.
UiLang detectFromOS();

// The text for the current language.
std::string T(std::string_view key);

// T(key) as a format, filled with the arguments. Placeholders are not touched before the look-up.
template <class... Args>
std::string TF(std::string_view key, const Args&... arguments) {
    return formatText(T(key), arguments...);
}

// Whether the platform resolves a font of exactly this name. The desktop program hands it in.
using FontQuery = bool (*)(std::string_view name);

// The font for the whole window in this language (absent: the effective one); absent where the
// system font serves, or where no candidate resolves.
std::optional<std::string> uiFontName(std::optional<UiLang> lang, FontQuery resolves);

}  // namespace zepho
