#include "app/widgets/FileDrop.h"

#include <QDropEvent>
#include <QFileInfo>
#include <QMimeData>
#include <QUrl>
#include <QWidget>
#include <utility>

namespace zepho {

FileDrop::FileDrop(QWidget* target, Take taker) : QObject(target), take(std::move(taker)) {
    target->setAcceptDrops(true);
    target->installEventFilter(this);
}

bool FileDrop::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
        case QEvent::DragEnter:
        case QEvent::DragMove:
        case QEvent::Drop: {
            auto* const drop = static_cast<QDropEvent*>(event);
            const QStringList files = filesIn(drop->mimeData());
            // Never moved: the sender would delete its file.
            drop->setDropAction(Qt::CopyAction);
            drop->setAccepted(!files.isEmpty());
            if (event->type() == QEvent::Drop && !files.isEmpty())
                take(files, drop->position().toPoint());
            return true;
        }
        default:
            return QObject::eventFilter(watched, event);
    }
}

QStringList FileDrop::filesIn(const QMimeData* data) {
    QStringList files;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile() && QFileInfo(url.toLocalFile()).isFile()) files << url.toLocalFile();
    return files;
}

}  // namespace zepho
