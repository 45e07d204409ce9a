// The field for what shall be spoken: plain text, or a text file that is dropped on it.
//
// It does not read files; who owns it does, away from the main thread. Tab leaves it.
#pragma once

#include <QPlainTextEdit>
#include <QStringList>

namespace zepho {

class LineEditor : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit LineEditor(QWidget* parent = nullptr);

    // In the place of all that stands here, as one step that can be undone.
    void replaceText(const QString& text);
    // A few lines of the font.
    [[nodiscard]] QSize sizeHint() const override;

signals:
    // Files of this machine were dropped or pasted.
    void filesGiven(const QStringList& paths);

protected:
    [[nodiscard]] bool canInsertFromMimeData(const QMimeData* given) const override;
    void insertFromMimeData(const QMimeData* given) override;
};

}  // namespace zepho
