// One clip of the clip text sheet: name, length, outline, a button to hear it, and the field for what
// it says. Main thread only; tells at once what the voice library would object to.
#pragma once

#include <QFrame>
#include <functional>
#include <string>

#include "app/AppState.h"
#include "app/pages/ClipAudio.h"

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace zepho {

class WaveformView;

class ClipTextField : public QFrame {
public:
    ClipTextField(AppState& app, const QString& file, const std::string& text, QWidget* parent);

    [[nodiscard]] const QString& file() const { return path; }
    [[nodiscard]] std::string text() const;
    [[nodiscard]] bool hasWarning() const;
    // Of the clip that plays, from 0 to 1.
    void setPosition(double part);
    void setPlaying(bool now);

    // Set by whoever places the field.
    std::function<void()> onPlay;
    std::function<void()> onChanged;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void take(ClipOutline found);
    void showWarning();
    void makeBold();

    const QString path;
    ClipOutline outline;
    QLabel* const length;
    QLabel* const warning;
    QPushButton* const play;
    WaveformView* const waveform;
    QPlainTextEdit* const transcript;
};

}  // namespace zepho
