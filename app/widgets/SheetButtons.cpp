#include "app/widgets/SheetButtons.h"

#include <QDialog>
#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/QtText.h"

namespace zepho {

QPushButton* addSheetButtons(QDialog* sheet, QVBoxLayout* to, const QString& text, QWidget* told) {
    auto* const cancel = new QPushButton(qT("取消"), sheet);
    auto* const accept = new QPushButton(text, sheet);
    accept->setProperty("primary", true);
    accept->setDefault(true);
    auto* const line = new QHBoxLayout;
    if (told != nullptr)
        line->addWidget(told, 1);
    else
        line->addStretch(1);
    line->addWidget(cancel);
    line->addWidget(accept);
    to->addLayout(line);
    QObject::connect(cancel, &QPushButton::clicked, sheet, &QDialog::reject);
    return accept;
}

}  // namespace zepho
