// A small coloured disc before a status. The words beside it say the same: colour alone tells nothing
// to some.
#pragma once

#include <QWidget>

namespace zepho {

class StatusDot : public QWidget {
public:
    enum class Tone { good, warning, bad, idle };

    explicit StatusDot(QWidget* parent = nullptr);
    void setTone(Tone next);
    [[nodiscard]] Tone tone() const { return shown; }
    [[nodiscard]] QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    Tone shown = Tone::idle;
};

}  // namespace zepho
