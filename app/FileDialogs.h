// The three file dialogs of the pages. Each opens on the window and returns at once; `then` gets what
// was chosen, and is not called when nothing was.
#pragma once

#include <QString>
#include <QStringList>
#include <functional>

class QWidget;

namespace zepho {

// `kinds` is a filter of Qt's form, "Audio (*.wav *.mp3)".
void chooseFiles(QWidget* parent, const QString& kinds, std::function<void(QStringList)> then);
void chooseFile(QWidget* parent, const QString& kinds, std::function<void(QString)> then);
// `name` is proposed; `suffix` (without a dot) is added to a name without one.
void chooseSavePath(QWidget* parent, const QString& name, const QString& suffix,
                    const QString& kinds, std::function<void(QString)> then);

// A row of the texts that holds a description and a pattern separated by a bar, in Qt's form.
QString fileKinds(const QString& row);

}  // namespace zepho
