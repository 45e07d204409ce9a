#include "app/pages/DiagnosticsSheet.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/QtText.h"
#include "app/Theme.h"
#include "app/widgets/SheetButtons.h"

namespace zepho {

DiagnosticsSheet::DiagnosticsSheet(const std::vector<DiagnosticsPart>& parts,
                                   std::function<void()> save, QWidget* parent)
    : QDialog(parent) {
    setObjectName("diagnosticsSheet");
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(qT("诊断包"));
    auto* const all = new QVBoxLayout(this);
    all->setContentsMargins(20, 16, 20, 16);
    all->setSpacing(12);
    auto* const told =
        new QLabel(qT("包里就是下面这些文件,逐个看一眼再保存。云分享的删除凭据已经拿掉。"), this);
    told->setWordWrap(true);
    all->addWidget(told);
    auto* const names = new QListWidget(this);
    names->setObjectName("diagnosticsFiles");
    names->setAccessibleName(qT("文件"));
    auto* const content = new QPlainTextEdit(this);
    content->setObjectName("diagnosticsContent");
    content->setAccessibleName(qT("内容"));
    content->setReadOnly(true);
    content->setLineWrapMode(QPlainTextEdit::NoWrap);
    content->setFont(Theme::fixedFont());
    QStringList texts;
    for (const DiagnosticsPart& part : parts) {
        names->addItem(qTF("%@ · %.1f KB", part.name, double(part.text.size()) / 1024));
        texts << toQt(part.text);
    }
    names->setFixedWidth(names->sizeHintForColumn(0) + 32);
    connect(names, &QListWidget::currentRowChanged, content,
            [content, texts](int row) { content->setPlainText(row < 0 ? QString() : texts[row]); });
    names->setCurrentRow(0);
    auto* const beside = new QHBoxLayout;
    beside->addWidget(names);
    beside->addWidget(content, 1);
    all->addLayout(beside, 1);
    connect(addSheetButtons(this, all, qT("另存为…")), &QPushButton::clicked, this,
            &QDialog::accept);
    connect(this, &QDialog::accepted, this, [save = std::move(save)] { save(); });
    resize(780, 480);
}

}  // namespace zepho
