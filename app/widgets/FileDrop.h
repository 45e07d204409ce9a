// Lets files be dropped onto a control. Main thread; lives and dies with the control.
#pragma once

#include <QObject>
#include <QPoint>
#include <QStringList>
#include <functional>

class QDropEvent;
class QMimeData;
class QWidget;

namespace zepho {

class FileDrop : public QObject {
public:
    // The paths of the files, never none, and where they were dropped.
    using Take = std::function<void(QStringList files, QPoint at)>;

    FileDrop(QWidget* target, Take taker);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // Directories and what lies on other machines are left out.
    static QStringList filesIn(const QMimeData* data);

    const Take take;
};

}  // namespace zepho
