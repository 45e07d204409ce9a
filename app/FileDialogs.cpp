#include "app/FileDialogs.h"

#include <QFileDialog>
#include <utility>

namespace zepho {
namespace {

QFileDialog* openDialog(QWidget* parent, const QString& kinds, QFileDialog::FileMode mode,
                        std::function<void(QStringList)> then) {
    auto* dialog = new QFileDialog(parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setNameFilter(kinds);
    dialog->setFileMode(mode);
    QObject::connect(dialog, &QFileDialog::filesSelected, dialog,
                     [then = std::move(then)](const QStringList& files) {
                         if (!files.isEmpty()) then(files);
                     });
    return dialog;
}

}  // namespace

void chooseFiles(QWidget* parent, const QString& kinds, std::function<void(QStringList)> then) {
    openDialog(parent, kinds, QFileDialog::ExistingFiles, std::move(then))->open();
}

void chooseFile(QWidget* parent, const QString& kinds, std::function<void(QString)> then) {
    openDialog(parent, kinds, QFileDialog::ExistingFile,
               [then = std::move(then)](const QStringList& files) { then(files.first()); })
        ->open();
}

void chooseSavePath(QWidget* parent, const QString& name, const QString& suffix,
                    const QString& kinds, std::function<void(QString)> then) {
    QFileDialog* const dialog =
        openDialog(parent, kinds, QFileDialog::AnyFile,
                   [then = std::move(then)](const QStringList& files) { then(files.first()); });
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setDefaultSuffix(suffix);
    dialog->selectFile(name);
    dialog->open();
}

QString fileKinds(const QString& row) {
    const qsizetype bar = row.indexOf('|');
    if (bar < 0) return row;
    QString kinds = row.left(bar);
    // Some descriptions name the patterns already.
    if (kinds.endsWith(')')) return kinds.replace(';', ' ');
    return kinds + " (" + row.mid(bar + 1).replace(';', ' ') + ")";
}

}  // namespace zepho
