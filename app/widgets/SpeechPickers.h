// Pickers of the language and the gender of a voice. Main thread only; whoever places one calls
// setTexts() at first and after a change of the interface language, which keeps what is chosen.
#pragma once

#include <QComboBox>
#include <string>

#include "core/base/TtsTypes.h"

namespace zepho {

// The languages that have a name, "Auto (auto)" first, and any other code as free text.
class LanguagePicker : public QComboBox {
public:
    explicit LanguagePicker(QWidget* parent);

    void setTexts();
    void setCode(const std::string& code);
    // Of the language that is picked, else what was typed, trimmed. Not normalised.
    [[nodiscard]] std::string code() const;
};

class GenderPicker : public QComboBox {
public:
    explicit GenderPicker(QWidget* parent);

    void setTexts();
    void setGender(TtsGender gender);
    [[nodiscard]] TtsGender gender() const;
};

}  // namespace zepho
