#include "app/widgets/LineEditor.h"

#include <QMimeData>
#include <QUrl>

namespace zepho {
namespace {

constexpr int shownLines = 6;

QStringList filesIn(const QMimeData* given) {
    QStringList paths;
    for (const QUrl& url : given->urls())
        if (url.isLocalFile()) paths << url.toLocalFile();
    return paths;
}

}  // namespace

LineEditor::LineEditor(QWidget* parent) : QPlainTextEdit(parent) {
    setTabChangesFocus(true);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void LineEditor::replaceText(const QString& text) {
    QTextCursor all(document());
    all.select(QTextCursor::Document);
    all.insertText(text);
}

QSize LineEditor::sizeHint() const {
    const QSize usual = QPlainTextEdit::sizeHint();
    const int around = 2 * (frameWidth() + static_cast<int>(document()->documentMargin()) + 4);
    return {usual.width(), shownLines * fontMetrics().lineSpacing() + around};
}

bool LineEditor::canInsertFromMimeData(const QMimeData* given) const {
    return !filesIn(given).isEmpty() || QPlainTextEdit::canInsertFromMimeData(given);
}

void LineEditor::insertFromMimeData(const QMimeData* given) {
    const QStringList paths = filesIn(given);
    if (!paths.isEmpty())
        emit filesGiven(paths);
    else
        QPlainTextEdit::insertFromMimeData(given);
}

}  // namespace zepho
