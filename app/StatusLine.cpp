#include "app/StatusLine.h"

#include <QHBoxLayout>
#include <QLabel>

#include "app/QtText.h"
#include "app/Theme.h"

namespace zepho {

StatusLine::StatusLine(AppState& state, QWidget* parent)
    : QWidget(parent), app(state), left(new QLabel(this)), warning(new QLabel(this)) {
    setObjectName("statusLine");
    setAttribute(Qt::WA_StyledBackground);
    left->setTextFormat(Qt::PlainText);
    // The window may be narrower than the sentence.
    left->setMinimumWidth(1);
    left->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(24, 6, 16, 6);
    row->addWidget(left, 1);
    row->addWidget(warning);
    connect(&app, &AppState::ticked, this, &StatusLine::refresh);
    connect(&app, &AppState::languageChanged, this, &StatusLine::refresh);
    refresh();
}

std::string StatusLine::textOf(const ServiceStats& stats) {
    const double rate = stats.totalAudioMs > 0 ? static_cast<double>(stats.totalSynthMs) /
                                                     static_cast<double>(stats.totalAudioMs)
                                               : 0;
    const std::string busy = stats.busy ? T("(合成中)") : std::string();
    const std::string prewarm =
        stats.prewarmPending > 0 ? TF(" · 预热还剩 %d 条", stats.prewarmPending) : std::string();
    return TF("队列 %d%@%@ · 请求 %d(失败 %d) · 缓存 %d 条 / %.1f MB / 命中率 %.0f%% · ",
              stats.queueDepth, busy, prewarm, stats.total, stats.failed, stats.cacheCount,
              static_cast<double>(stats.cacheBytes) / 1048576, stats.cacheHitRate * 100) +
           TF("p50 %d ms · p95 %d ms · 实时率 %.2f · %@", stats.p50Ms, stats.p95Ms, rate,
              stats.engineName);
}

void StatusLine::refresh() {
    const QString text = toQt(textOf(app.stats));
    left->setText(text);
    left->setToolTip(asTip(text));
    warning->setVisible(app.stats.placeholder);
    warning->setText(qT("⚠ 占位波形(还没放模型)"));
    const QColor colour = Theme::tones().warning;
    QPalette amber = warning->palette();
    // It costs more than the rest together, as the style sheet is asked again.
    if (amber.color(QPalette::WindowText) == colour) return;
    amber.setColor(QPalette::WindowText, colour);
    warning->setPalette(amber);
}

}  // namespace zepho
