// The bindings of airlines to voices as rows of a table, and the questions that the table asks of
// them. Plain values and pure functions; any thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/VoiceInfo.h"
#include "core/config/AppConfig.h"

namespace zepho {

struct BindingRow {
    std::string id;  // the key of the binding
    std::string airline;
    std::string language;
    TtsGender gender = TtsGender::auto_;
    std::string voiceId;
    std::string voiceName;  // empty where the voice is gone
};

// One row for each binding, by airline, then language, then gender.
[[nodiscard]] std::vector<BindingRow> bindingRows(const std::vector<Binding>& bindings,
                                                  const std::vector<VoiceInfo>& voices);

// The row that would serve the requests of this one if this one were not there.
[[nodiscard]] const BindingRow* fallbackOf(const BindingRow& row,
                                           const std::vector<BindingRow>& rows);

struct BindingSlot {
    std::string language;
    TtsGender gender = TtsGender::auto_;
};
// The first combination that the airline has not bound: any language first, then these, each with
// every gender.
[[nodiscard]] std::optional<BindingSlot> firstFreeSlot(std::string_view airline,
                                                       const std::vector<std::string>& languages,
                                                       const AppConfig& config);

}  // namespace zepho
