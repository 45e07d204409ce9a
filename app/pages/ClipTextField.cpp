#include "app/pages/ClipTextField.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextCharFormat>
#include <QVBoxLayout>
#include <utility>

#include "app/QtText.h"
#include "app/Theme.h"
#include "app/widgets/WaveformView.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

constexpr std::size_t outlineColumns = 600;

}  // namespace

ClipTextField::ClipTextField(AppState& app, const QString& file, const std::string& text,
                             QWidget* parent)
    : QFrame(parent),
      path(file),
      length(new QLabel("…", this)),
      warning(new QLabel(this)),
      play(new QPushButton(this)),
      waveform(new WaveformView(this)),
      transcript(new QPlainTextEdit(this)) {
    setObjectName("card");
    const QString fileName = QFileInfo(path).fileName();
    auto* title = new QLabel(this);
    title->setTextFormat(Qt::PlainText);
    title->setText(title->fontMetrics().elidedText(fileName, Qt::ElideMiddle,
                                                   title->fontMetrics().averageCharWidth() * 48));
    title->setToolTip(asTip(path));
    length->setObjectName("length");
    warning->setObjectName("warning");
    warning->setTextFormat(Qt::PlainText);
    warning->setWordWrap(true);
    waveform->setAccessibleName(fileName);
    play->setObjectName("play");
    setPlaying(false);
    transcript->setObjectName("transcript");
    transcript->setAccessibleName(qT("这一段说的是什么?") + " " + fileName);
    transcript->setPlaceholderText(qT("这一段说的是什么?"));
    transcript->setTabChangesFocus(true);
    transcript->setFixedHeight(transcript->fontMetrics().lineSpacing() * 3 + 20);
    transcript->setPlainText(toQt(text));
    transcript->installEventFilter(this);

    auto* head = new QHBoxLayout;
    head->addWidget(title, 1);
    head->addWidget(length);
    head->addWidget(play);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(12, 10, 12, 8);
    column->setSpacing(6);
    column->addLayout(head);
    column->addWidget(waveform);
    column->addWidget(transcript);
    column->addWidget(warning);

    connect(play, &QPushButton::clicked, this, [this] { onPlay(); });
    connect(transcript, &QPlainTextEdit::textChanged, this, [this] {
        showWarning();
        onChanged();
    });
    showWarning();
    app.inBackground(
        this, [name = fromQt(path)] { return outlineClip(name, outlineColumns); },
        [this](Outcome<ClipOutline> found) {
            if (!found.ok()) found.value = ClipOutline{0, {}, found.error};
            take(std::move(*found.value));
        });
}

std::string ClipTextField::text() const {
    return fromQt(transcript->toPlainText());
}

bool ClipTextField::hasWarning() const {
    return !warning->text().isEmpty();
}

void ClipTextField::take(ClipOutline found) {
    outline = std::move(found);
    waveform->setPeaks(std::move(outline.peaks));
    const double seconds = static_cast<double>(outline.durationMs) / 1000;
    length->setText(outline.durationMs > 0 ? qTF("%.1f 秒", seconds) : QString("—"));
    showWarning();
    onChanged();
}

void ClipTextField::showWarning() {
    QStringList lines;
    if (!outline.warning.empty()) lines << toQt(outline.warning);
    if (trimmedView(text()).empty()) lines << qT("还没写它的原话。");
    warning->setText(lines.join("\n"));
    QPalette colours = warning->palette();
    colours.setColor(QPalette::WindowText, Theme::tones().warning);
    warning->setPalette(colours);
}

void ClipTextField::setPosition(double part) {
    waveform->setPosition(part);
}

void ClipTextField::setPlaying(bool now) {
    play->setText(now ? qT("停止") : qT("播放"));
    if (!now) waveform->setPosition(0);
}

// Bold and larger letters help the one who types, and go no further.
bool ClipTextField::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress) {
        auto* const key = static_cast<QKeyEvent*>(event);
        if (key->matches(QKeySequence::Bold)) return makeBold(), true;
        if (key->matches(QKeySequence::ZoomIn)) return transcript->zoomIn(), true;
        if (key->matches(QKeySequence::ZoomOut)) return transcript->zoomOut(), true;
    }
    return QFrame::eventFilter(watched, event);
}

void ClipTextField::makeBold() {
    QTextCharFormat format;
    const bool isBold = transcript->currentCharFormat().fontWeight() > QFont::Normal;
    format.setFontWeight(isBold ? QFont::Normal : QFont::Bold);
    transcript->mergeCurrentCharFormat(format);
}

}  // namespace zepho
