#include "app/widgets/StatusDot.h"

#include <QPainter>

#include "app/Theme.h"

namespace zepho {

StatusDot::StatusDot(QWidget* parent) : QWidget(parent) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void StatusDot::setTone(Tone next) {
    if (shown == next) return;
    shown = next;
    update();
}

QSize StatusDot::sizeHint() const {
    const int side = fontMetrics().ascent();
    return {side, side};
}

void StatusDot::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    const Theme::Tones tones = Theme::tones();
    switch (shown) {
        case Tone::good:
            painter.setBrush(tones.good);
            break;
        case Tone::warning:
            painter.setBrush(tones.warning);
            break;
        case Tone::bad:
            painter.setBrush(tones.bad);
            break;
        case Tone::idle:
            painter.setBrush(palette().color(QPalette::Mid));
            break;
    }
    const double side = std::min(width(), height()) * 0.86;
    painter.drawEllipse(QRectF((width() - side) / 2, (height() - side) / 2, side, side));
}

}  // namespace zepho
