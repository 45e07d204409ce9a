#include "app/widgets/SpeechPickers.h"

#include <QCompleter>
#include <QLineEdit>
#include <QSignalBlocker>

#include "app/QtText.h"
#include "core/base/Text.h"

namespace zepho {

LanguagePicker::LanguagePicker(QWidget* parent) : QComboBox(parent) {
    setEditable(true);
    setInsertPolicy(QComboBox::NoInsert);
    addItem(QString(), QString());
    for (const std::string& code : commonLanguages()) addItem(QString(), toQt(code));
    // "ja" and "日本" both find the entry; a code that no entry has must stay as it was typed.
    completer()->setCompletionMode(QCompleter::PopupCompletion);
    completer()->setFilterMode(Qt::MatchContains);
    setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    setMinimumContentsLength(14);
}

void LanguagePicker::setTexts() {
    const std::string kept = count() > 0 && !itemText(0).isEmpty() ? code() : std::string();
    const QSignalBlocker quiet(this);
    for (int row = 0; row < count(); ++row)
        setItemText(row, toQt(langWithCode(fromQt(itemData(row).toString()))));
    setCode(kept);
}

void LanguagePicker::setCode(const std::string& code) {
    const int row = findData(toQt(code));
    setCurrentIndex(row);
    setEditText(row < 0 ? toQt(code) : itemText(row));
    lineEdit()->setCursorPosition(0);
}

std::string LanguagePicker::code() const {
    const QString typed = currentText().trimmed();
    for (int row = 0; row < count(); ++row)
        if (itemText(row) == typed) return fromQt(itemData(row).toString());
    return fromQt(typed);
}

GenderPicker::GenderPicker(QWidget* parent) : QComboBox(parent) {
    for (const TtsGender gender : allTtsGenders) addItem(QString(), static_cast<int>(gender));
}

void GenderPicker::setTexts() {
    for (int row = 0; row < count(); ++row)
        setItemText(row, toQt(ttsGenderDisplay(static_cast<TtsGender>(itemData(row).toInt()))));
}

void GenderPicker::setGender(TtsGender gender) {
    setCurrentIndex(findData(static_cast<int>(gender)));
}

TtsGender GenderPicker::gender() const {
    return static_cast<TtsGender>(currentData().toInt());
}

}  // namespace zepho
