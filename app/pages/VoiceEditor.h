// The part of the voices page that edits one voice: its fields and the list of its clips.
//
// Main thread only. It only shows and asks; what is to happen goes to the page through onSave and
// onDeleteClip.
#pragma once

#include <functional>
#include <string>

#include "app/Page.h"
#include "core/base/VoiceInfo.h"

class QFormLayout;
class QPushButton;

namespace zepho {

class GenderPicker;
class LanguagePicker;

struct VoiceEdits {
    std::string display;
    std::string language;
    TtsGender gender = TtsGender::auto_;
    std::string style;
    std::string note;
};

class VoiceEditor : public Page {
public:
    VoiceEditor(AppState& state, QWidget* parent);

    // The fields of this voice, in place of what was typed.
    void load(const VoiceInfo& voice);
    // Its clips alone.
    void showClips(const VoiceInfo& voice);
    [[nodiscard]] VoiceEdits edits() const;
    // Nothing can be saved or deleted meanwhile.
    void setBusy(bool now);

    // Set by the page.
    std::function<void()> onSave;
    std::function<void(int index)> onDeleteClip;

private:
    // A line of the form; the label leads to `field`, which is the line or in it.
    void addRow(QFormLayout* form, std::string_view key, QWidget* line, QWidget* field);

    QLineEdit* const display;
    LanguagePicker* const language;
    GenderPicker* const gender;
    QLineEdit* const style;
    QLineEdit* const note;
    QPushButton* const save;
    QWidget* clips = nullptr;  // the list, made anew for each voice
    QVBoxLayout* clipColumn = nullptr;
    bool busy = false;
};

}  // namespace zepho
