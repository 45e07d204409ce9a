#include "app/widgets/WaveformView.h"

#include <QPainter>
#include <algorithm>
#include <cmath>
#include <utility>

namespace zepho {
namespace {

// In pixels of the design; on a screen of other density as many whole ones as come nearest.
constexpr double barWidth = 2;
constexpr double gapWidth = 1;

int devicePixels(double length, double ratio) {
    return std::max(1, static_cast<int>(std::lround(length * ratio)));
}

}  // namespace

WaveformView::WaveformView(QWidget* parent) : QWidget(parent) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void WaveformView::setPeaks(std::vector<WaveformPeak> next) {
    peaks = std::move(next);
    played = 0;
    update();
}

void WaveformView::setPosition(double part) {
    const double next = part > 0 ? std::min(part, 1.0) : 0;  // no number is none
    if (next == played) return;
    // Only what changes its colour: this comes many times a second.
    const auto [from, to] = std::minmax(played, next);
    const int left = static_cast<int>(std::floor(from * width()));
    const int right = static_cast<int>(std::ceil(to * width()));
    played = next;
    update(left - 1, 0, right - left + 2, height());
}

QSize WaveformView::sizeHint() const {
    const QFontMetrics metrics = fontMetrics();
    return {metrics.averageCharWidth() * 48, metrics.lineSpacing() * 3};
}

QSize WaveformView::minimumSizeHint() const {
    const QFontMetrics metrics = fontMetrics();
    return {metrics.averageCharWidth() * 12, metrics.lineSpacing() * 2};
}

void WaveformView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    // Bars of whole device pixels stay crisp at every scale.
    const double ratio = devicePixelRatioF();
    painter.scale(1 / ratio, 1 / ratio);
    const int wide = static_cast<int>(std::floor(width() * ratio));
    const int high = static_cast<int>(std::floor(height() * ratio));
    const int bar = devicePixels(barWidth, ratio);
    const int step = bar + devicePixels(gapWidth, ratio);
    const int bars = (wide + step - bar) / step;

    QColor rest = palette().color(QPalette::WindowText);
    rest.setAlphaF(0.4F);
    const QColor done = palette().color(QPalette::Highlight);
    const int edge = static_cast<int>(std::lround(played * wide));
    for (int i = 0; i < bars; ++i) {
        const int half =
            static_cast<int>(std::lround(reach(i, bars) * static_cast<float>(high) / 2));
        // Silence is a line as thick as a bar is wide.
        const int length = std::min(high, std::max(2 * half, bar));
        const QRect whole(i * step, (high - length) / 2, bar, length);
        const int split = std::clamp(edge - whole.left(), 0, bar);
        painter.fillRect(QRect(whole.left(), whole.top(), split, length), done);
        painter.fillRect(QRect(whole.left() + split, whole.top(), bar - split, length), rest);
    }
}

float WaveformView::reach(int bar, int bars) const {
    if (peaks.empty()) return 0;
    const std::size_t count = peaks.size();
    const auto at = static_cast<std::size_t>(bar);
    const auto of = static_cast<std::size_t>(bars);
    const std::size_t from = at * count / of;
    const std::size_t to = std::max(from + 1, (at + 1) * count / of);
    float most = 0;
    for (std::size_t i = from; i < to; ++i)
        most = std::max({most, std::abs(peaks[i].min), std::abs(peaks[i].max)});
    return std::min(most, 1.0F);
}

}  // namespace zepho
