// Bindings as text, for the clipboard and spreadsheets: one line each of airline, language, gender,
// the voice's name and its id, with tabs between.
//
// Pure; any thread. The reader takes what people have: names or codes in any of the interface's
// languages, commas or semicolons where there are no tabs, a title line, blank lines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "app/pages/BindingRows.h"

namespace zepho {

[[nodiscard]] std::string bindingsToText(const std::vector<BindingRow>& rows);

struct BindingsRead {
    std::vector<BindingRow> rows;     // normalised, of voices that exist; the last of equal keys
    std::vector<std::string> errors;  // a sentence a line, in the interface language
};
[[nodiscard]] BindingsRead bindingsFromText(std::string_view text,
                                            const std::vector<VoiceInfo>& voices);

}  // namespace zepho
