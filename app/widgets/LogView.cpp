#include "app/widgets/LogView.h"

#include <QApplication>
#include <QClipboard>
#include <QKeyEvent>
#include <QStyledItemDelegate>
#include <algorithm>

#include "app/Theme.h"

namespace zepho {
namespace {

constexpr int pointSize = 11;

class LineDelegate : public QStyledItemDelegate {
public:
    LineDelegate(const LogLineModel* lines, QObject* parent)
        : QStyledItemDelegate(parent), model(lines) {}
    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option,
                                 const QModelIndex&) const override {
        const QFontMetrics& metrics = option.fontMetrics;
        return {(model->widest() + 2) * metrics.horizontalAdvance('M'), metrics.height() + 2};
    }
    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        QStyleOptionViewItem plain = option;
        // The line that has the focus needs no frame: its selection shows it.
        plain.state &= ~QStyle::State_HasFocus;
        QStyledItemDelegate::paint(painter, plain, index);
    }

private:
    const LogLineModel* const model;
};

}  // namespace

LogView::LogView(LogLineModel* shown, QWidget* parent) : QListView(parent), model(shown) {
    setModel(model);
    setItemDelegate(new LineDelegate(model, this));
    setUniformItemSizes(true);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    applyFont();
}

void LogView::applyFont() {
    QFont font = Theme::fixedFont();
    font.setPointSize(pointSize);
    setFont(font);
}

QString LogView::selectedText() const {
    QModelIndexList chosen = selectionModel()->selectedIndexes();
    std::sort(chosen.begin(), chosen.end());
    QStringList lines;
    for (const QModelIndex& line : chosen) lines << model->fullText(line.row());
    return lines.join('\n');
}

void LogView::keyPressEvent(QKeyEvent* event) {
    if (!event->matches(QKeySequence::Copy)) return QListView::keyPressEvent(event);
    const QString text = selectedText();
    if (!text.isEmpty()) QApplication::clipboard()->setText(text);
}

void LogView::changeEvent(QEvent* event) {
    QListView::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) model->refreshLook();
}

}  // namespace zepho
