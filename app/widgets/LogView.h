// The scrolling list of log lines: monospaced, in the colours of their levels, selected lines can be
// copied. It scrolls to each new last line.
//
// Rows are of one size, so that two thousand of them cost no more than those in sight.
#pragma once

#include <QListView>

#include "app/widgets/LogLineModel.h"

namespace zepho {

class LogView : public QListView {
    Q_OBJECT

public:
    LogView(LogLineModel* shown, QWidget* parent);

    // Monospaced, and Han text in the forms of the interface language.
    void applyFont();
    void follow() { scrollToBottom(); }
    [[nodiscard]] QString selectedText() const;

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    LogLineModel* const model;
};

}  // namespace zepho
