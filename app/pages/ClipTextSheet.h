// The dialog that asks what reference clips say: for each file its outline, length and transcript,
// and for a new voice its name, language and gender.
//
// Main thread only; deletes itself when it closes, after it has told its outcome. Clips are decoded
// in the background.
#pragma once

#include <QDialog>
#include <QStringList>
#include <QTimer>
#include <QUuid>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/AppState.h"

class QLabel;
class QLineEdit;
class QVBoxLayout;

namespace zepho {

class ClipTextField;
class GenderPicker;
class LanguagePicker;

struct ClipTextKind {
    enum class Sort { newVoice, addToVoice };
    Sort sort = Sort::newVoice;
    std::string voiceId;  // for addToVoice
};

struct ClipTextRequest {
    QUuid id = QUuid::createUuid();
    ClipTextKind kind;
    QStringList files;
    QString defaultName;
    QString chosenName;  // blank means the default
    std::string language;
    TtsGender gender = TtsGender::auto_;
    std::vector<std::string> texts;  // to begin with, one a file or none
};

class ClipTextSheet : public QDialog {
public:
    // The request as it has been edited, and one text a file; no texts where it was cancelled.
    using Done = std::function<void(const ClipTextRequest&,
                                    const std::optional<std::vector<std::string>>& texts)>;

    ClipTextSheet(AppState& state, ClipTextRequest asked, Done onDone, QWidget* parent);

    void done(int result) override;

private:
    void addVoiceFields(QVBoxLayout* to);
    void addClips(QVBoxLayout* to);
    void playOrStop(ClipTextField* field);
    void setPlaying(ClipTextField* field);
    void showProgress();
    void showSummary();

    AppState& app;
    ClipTextRequest request;
    const Done tell;
    QLineEdit* name = nullptr;
    LanguagePicker* language = nullptr;
    GenderPicker* gender = nullptr;
    QLabel* const summary;
    std::vector<ClipTextField*> fields;
    ClipTextField* playing = nullptr;
    int playTurn = 0;  // of the last press of a play button
    QTimer progress;
};

}  // namespace zepho
